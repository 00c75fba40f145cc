#include "logging/Logger.h"

#include <mutex>

#include "logging/LogFile.h"
#include "logging/Retention.h"
#include "platform/Environment.h"
#include "platform/Process.h"
#include "platform/Text.h"

namespace {

/** Above every level: the filter of a process that will never have a logger. */
constexpr int kDropAll = spdlog::level::n_levels;

std::atomic<bool> g_Unloading{false};

/** The logger, null when there can be none. Raises what making the file and opening it raise. */
spdlog::logger* CreateLogger()
{
    const std::lock_guard lock(g_LoggerMutex);
    if (*g_Logger)  // another thread was first
        return g_Logger->get();
    if (g_LoggerFailed)
        return nullptr;
    if (g_LogFilePath->empty() && BuildLogFilePath("") != TARNEX_OK) {
        g_LoggerFailed = true;
        g_LogFilter = kDropAll;
        return nullptr;
    }

    // Everything that can raise an error comes before the logger is registered, which cannot be undone. The registry is
    // a function-local static: at unload it has been destroyed, or would be created too late to be destroyed.
    int level = g_LogLevel;
    if (level == -1)
        level = GetLogLevelFromEnv();
    *g_Logger = OpenLogger(*g_LogFilePath, static_cast<spdlog::level::level_enum>(level), !g_Unloading);
    spdlog::logger& logger = **g_Logger;
    // Not before the file is open: another attempt reads the environment again. A level that the host has set
    // meanwhile stays.
    int chosen = -1;
    if (!g_LogLevel.compare_exchange_strong(chosen, level))
        level = chosen;
    const spdlog::string_view_t levelName =
        spdlog::level::to_string_view(static_cast<spdlog::level::level_enum>(level));
    WriteLine(logger, spdlog::level::off, "Created Tarnex Logger level [{}]", fmt::make_format_args(levelName));
    FlushLogger(logger);

    // The host stores its level and then looks for the logger; here it is the other way round. Whichever runs second
    // sees the other's store, so the level is never lost.
    g_ReadyLogger = &logger;
    ApplyLogLevel(logger);

    // At unload no thread may be started, and no call is blocked. If none can be started now, the clean-up is left to
    // the next process: on this thread it would block every other call.
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
    if (logger == nullptr)
        logger = CreateLogger();
    if (logger != nullptr)
        WriteLine(*logger, level, format, args);
}

void ApplyLogLevel(spdlog::logger& logger) noexcept
{
    // Callers may overtake each other: the last one to store a level finds it in force, or applies it.
    int level = g_LogLevel;
    int applied;
    do {
        applied = level;
        SetLoggerLevel(logger, static_cast<spdlog::level::level_enum>(applied));
        g_LogFilter = applied;
        level = g_LogLevel;
    } while (level != applied);
}

spdlog::level::level_enum GetLogLevelFromEnv()
{
    const std::wstring value = GetEnvValue(Utf8ToWide("TARNEX_LOG_LEVEL").c_str());
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

void BeginUnload() noexcept
{
    g_Unloading = true;
    DropTornBuffer();
}
