#pragma once

#include <string>

/**
 * The folder for log files, ending in a backslash: the one named by TARNEX_LOG_DIR when it can be used,
 * otherwise Velmora\Logs under the user's local application data, whose two levels are made when missing.
 * Always returns a folder, though perhaps one in which no file can be created: opening the log file will show.
 * Reads the environment and the file system at each call.
 */
std::wstring GetLogFolderPath();
