#pragma once

#include <tarnex_3.h>

#include <string>

/**
 * Creates a new, empty file named folder + prefix [+ "-" + customName] + "-" + process id [+ "-" + counter] +
 * "." + extension, counting up from 1 while the name is taken. Returns its path, empty when the file could
 * not be created.
 */
std::wstring CreateUniqueLogFile(const std::wstring& folder, const std::wstring& prefix, const std::wstring& customName,
                                 const std::wstring& extension);

/**
 * Creates the log file with the custom name (UTF-8, may be empty) in the log folder and stores its path in
 * g_LogFilePath. The caller holds g_LoggerMutex. 0, or 7 when the file could not be created. Throws
 * std::range_error, with nothing changed, when the name is not UTF-8.
 */
TarnexResult BuildLogFilePath(const char* customName);
