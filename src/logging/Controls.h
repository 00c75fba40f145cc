#pragma once

#include <tarnex_3.h>

// How hosts steer the log. Any thread may call these at any time.

/** Sets the level of the log, or of the one to come. TARNEX_E_INVALID_ARGUMENT above off; nothing changes then. */
TarnexResult SetLogLevel(uint32_t level);

/**
 * Makes a log file with this custom name (UTF-8) for the coming logger. TARNEX_E_INVALID_ARGUMENT when the file could
 * not be created, TARNEX_E_LOG_FILE_EXISTS when there is a logger already. Throws std::range_error for a name that is
 * not UTF-8.
 */
TarnexResult SetLogName(const char* name);

/** Writes what is buffered to the file. TARNEX_E_NO_LOGGER when there is no logger. */
TarnexResult Flush();
