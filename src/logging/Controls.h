#pragma once

#include <tarnex_3.h>

// How hosts steer the log. Any thread may call these at any time.

/** Sets the level, of the logger or of the one to come. 7 for a level above 6; nothing changes then. */
TarnexResult SetLogLevel(uint32_t level);

/**
 * Makes a log file with this custom name (UTF-8) for the coming logger. 7 when the file could not be created,
 * 39 when there is a logger already. Throws std::range_error for a name that is not UTF-8.
 */
TarnexResult SetLogName(const char* name);

/** Writes what is buffered to the file. 40 when there is no logger. */
TarnexResult Flush();
