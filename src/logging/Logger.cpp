#include "logging/Logger.h"

#include <mutex>

#include "logging/LogFile.h"
#include "logging/Retention.h"
#include "platform/Environment.h"
#include "platform/Process.h"

namespace {

std::atomic<bool> g_Unloading{false};

/** The level asked for by TARNEX_LOG_LEVEL: its first character decides, and only T D I W E C O count. */
spdlog::level::level_enum GetLogLevelFromEnv()
{
    const std::wstring value = GetEnvValue(L"TARNEX_LOG_LEVEL");
    switch (value.empty() ? L'\0' : value.front()) {
        case L'T':
            return spdlog::level::trace;
        case L'D':
            return spdlog::level::debug;
        case L'I':
            return spdlog::level::info;
        case L'W':
            return spdlog::level::warn;
        case L'C':
            return spdlog::level::critical;
        case L'O':
            return spdlog::level::off;
        default:
            return spdlog::level::err;
    }
}

spdlog::string_view_t GetLevelName(int level)
{
    return spdlog::level::to_string_view(static_cast<spdlog::level::level_enum>(level));
}

/** The logger, null when there can be none. Throws what making the file and opening it throw. */
spdlog::logger* CreateLogger()
{
    const std::lock_guard lock(g_LoggerMutex);
    if (*g_Logger || g_LoggerFailed)  // another thread was first
        return g_Logger->get();
    if (g_LogFilePath->empty() && BuildLogFilePath("") != TARNEX_OK) {
        g_LoggerFailed = true;
        return nullptr;
    }

    int level = g_LogLevel;
    const int chosen = level == -1 ? GetLogLevelFromEnv() : level;
    *g_Logger = OpenLogger(*g_LogFilePath);
    spdlog::logger& logger = **g_Logger;
    // Store the level only once the file is open, so that a retry reads the environment again. One that the host has
    // set meanwhile stays.
    if (g_LogLevel.compare_exchange_strong(level, chosen))
        level = chosen;
    const spdlog::string_view_t levelName = GetLevelName(level);
    WriteLine(logger, spdlog::level::off, "Created Tarnex Logger level [{}]", fmt::make_format_args(levelName));
    FlushLogger(logger);
    g_ReadyLogger = &logger;
    // A host that has set a level since then may have found no logger to say so.
    if (const int latest = g_LogLevel; latest != level)
        LogLevelChange(latest);

    // At unload no thread may be started and there is no call to block, so it runs here. If no thread can be started
    // now, the clean-up is left to the next process: on this thread it would block every other call.
    if (g_Unloading)
        RunRetention();
    else
        StartModuleThread(RunRetention);
    return &logger;
}

}  // namespace

void WriteMessage(spdlog::level::level_enum level, fmt::string_view format, fmt::format_args args)
{
    spdlog::logger* logger = g_ReadyLogger;
    if (logger == nullptr && !g_LoggerFailed)
        logger = CreateLogger();
    if (logger != nullptr && level >= g_LogLevel)
        WriteLine(*logger, level, format, args);
}

void LogLevelChange(int level)
{
    Log(spdlog::level::off, "Logger level was set to [{}]", GetLevelName(level));
}

void BeginUnload() noexcept
{
    g_Unloading = true;
    DropTornBuffer();
}
