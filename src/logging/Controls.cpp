#include "logging/Controls.h"

#include <mutex>

#include "logging/LogFile.h"
#include "logging/Logger.h"

TarnexResult SetLogLevel(uint32_t level)
{
    if (level > TARNEX_LOG_OFF) {
        Log(spdlog::level::warn, "SetLogLevel() was called whith invalid level [{}]", static_cast<std::int32_t>(level));
        return TARNEX_E_INVALID_ARGUMENT;
    }

    g_LogLevel = static_cast<int>(level);
    if (g_ReadyLogger != nullptr)
        LogLevelChange(static_cast<int>(level));
    return TARNEX_OK;
}

TarnexResult SetLogName(const char* name)
{
    const std::lock_guard lock(g_LoggerMutex);
    if (*g_Logger) {
        Log(spdlog::level::warn, "SetLogName() was called after log file was created");
        return TARNEX_E_LOG_FILE_EXISTS;
    }
    return BuildLogFilePath(name);
}

TarnexResult Flush()
{
    spdlog::logger* const logger = g_ReadyLogger;
    if (logger == nullptr)
        return TARNEX_E_NO_LOGGER;
    Log(spdlog::level::trace, "Logger Flush() was called");
    FlushLogger(*logger);
    return TARNEX_OK;
}
