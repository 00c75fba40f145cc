#include "logging/Logger.h"

#include <io.h>
#include <spdlog/details/registry.h>
#include <spdlog/details/synchronous_factory.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <mutex>

#include "logging/LogFile.h"
#include "logging/Retention.h"
#include "platform/Environment.h"
#include "platform/Process.h"
#include "platform/ScopedHandle.h"
#include "platform/Text.h"

namespace {

// Without a lock of its own: g_WriteMutex covers what happens around it as well.
using FileSink = spdlog::sinks::basic_file_sink_st;

constexpr const char* kLoggerName = "Tarnex";

/** Above every level: the filter of a process that will never have a logger. */
constexpr int kDropAll = spdlog::level::n_levels;

std::atomic<bool> g_Unloading{false};

/** The operating system's handle below the sink's stream. Written before the logger is ready for use. */
void* g_LogFileHandle = nullptr;

/** Lines below err gather in the stream until it is full. Four times the usual size saves a tenth of their cost. */
constexpr std::size_t kStreamSize = std::size_t{16} * 1024;

void PrepareStream(const std::wstring&, std::FILE* file)
{
    std::setvbuf(file, nullptr, _IOFBF, kStreamSize);
    g_LogFileHandle = reinterpret_cast<void*>(::_get_osfhandle(::_fileno(file)));
}

/** Formats and writes a message; whatever goes wrong costs that message only. */
void WriteTo(spdlog::logger& logger, spdlog::level::level_enum level, fmt::string_view format,
             fmt::format_args args) noexcept
{
    if (!logger.should_log(level))
        return;
    try {
        spdlog::memory_buf_t text;
        fmt::vformat_to(fmt::appender(text), format, args);
        const std::lock_guard lock(g_WriteMutex);
        logger.log(level, fmt::string_view(text.data(), text.size()));
    } catch (...) {
        // The logger reports its own errors. What is left is memory exhaustion, and a lock lost at process exit.
    }
}

/** Opens the log file, which exists. Throws spdlog::spdlog_ex when it cannot be opened. */
std::shared_ptr<spdlog::logger> MakeLogger()
{
    auto formatter = std::make_unique<spdlog::pattern_formatter>("%Y-%m-%d %H:%M:%S.%e [%L] %v",
                                                                 spdlog::pattern_time_type::local, "\r\n");
    spdlog::file_event_handlers handlers;
    handlers.after_open = PrepareStream;
    if (g_Unloading) {
        // The registry is a function-local static: by now it is gone, or would come too late to be destroyed.
        auto sink = std::make_shared<FileSink>(*g_LogFilePath, false, handlers);
        auto logger = std::make_shared<spdlog::logger>(kLoggerName, std::move(sink));
        logger->set_formatter(std::move(formatter));
        return logger;
    }
    spdlog::details::registry::instance().set_formatter(std::move(formatter));
    return spdlog::synchronous_factory::create<FileSink>(kLoggerName, *g_LogFilePath, false, handlers);
}

/** The level for a new logger. A level that the host sets meanwhile is not overwritten. */
spdlog::level::level_enum ChooseLevel()
{
    int level = g_LogLevel;
    if (level == -1) {
        const int asked = GetLogLevelFromEnv();
        if (g_LogLevel.compare_exchange_strong(level, asked))
            level = asked;
    }
    return static_cast<spdlog::level::level_enum>(level);
}

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

    // Everything that can raise an error comes before MakeLogger, which registers the name for good.
    const spdlog::level::level_enum level = ChooseLevel();
    *g_Logger = MakeLogger();
    spdlog::logger& logger = **g_Logger;
    logger.set_level(level);
    const spdlog::string_view_t levelName = spdlog::level::to_string_view(level);
    WriteTo(logger, spdlog::level::off, "Created Tarnex Logger level [{}]", fmt::make_format_args(levelName));
    FlushLogger(logger);
    logger.flush_on(spdlog::level::err);

    // The host stores its level and then looks for the logger; here it is the other way round. Whoever comes
    // second sees the other, so the level is never lost.
    g_ReadyLogger = &logger;
    ApplyLogLevel(logger);

    if (g_Unloading || !StartModuleThread(RunRetention))
        RunRetention();
    return &logger;
}

}  // namespace

void WriteMessage(spdlog::level::level_enum level, fmt::string_view format, fmt::format_args args)
{
    spdlog::logger* logger = g_ReadyLogger;
    if (logger == nullptr)
        logger = CreateLogger();
    if (logger != nullptr)
        WriteTo(*logger, level, format, args);
}

void ApplyLogLevel(spdlog::logger& logger) noexcept
{
    // Callers may overtake each other. Whoever stores last finds that level in force, or puts it there.
    int level = g_LogLevel;
    int applied;
    do {
        applied = level;
        logger.set_level(static_cast<spdlog::level::level_enum>(applied));
        g_LogFilter = applied;
        level = g_LogLevel;
    } while (level != applied);
}

void FlushLogger(spdlog::logger& logger) noexcept
{
    try {
        const std::lock_guard lock(g_WriteMutex);
        logger.flush();
    } catch (...) {
        // As in WriteTo.
    }
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
    const bool tornStream = g_WriteMutex.IsAbandoned();
    // The C runtime still flushes every stream, and would write this one's buffer a second time if the thread
    // died between writing it and noting that.
    if (tornStream)
        CloseFile(g_LogFileHandle);
    if (tornStream || g_LoggerMutex.IsAbandoned()) {
        g_LogFilter = kDropAll;
        g_ReadyLogger = nullptr;
    }
}
