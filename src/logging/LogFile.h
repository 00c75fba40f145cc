#pragma once

#include <tarnex_3.h>

/**
 * Creates the log file with the custom name (UTF-8, may be empty) in the log folder and stores its path in
 * g_LogFilePath, which is empty after a failure. The caller holds g_LoggerMutex. TARNEX_E_INVALID_ARGUMENT when the
 * file could not be created. Throws std::range_error, with nothing changed, when the name is not UTF-8.
 */
TarnexResult BuildLogFilePath(const char* customName);
