#include "logging/Writer.h"

#include <io.h>
#include <spdlog/details/registry.h>
#include <spdlog/details/synchronous_factory.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <mutex>

#include "platform/ScopedHandle.h"

namespace {

// Without a lock of its own: g_WriteMutex covers what happens around it as well.
using FileSink = spdlog::sinks::basic_file_sink_st;

constexpr const char* kLoggerName = "Tarnex";

/** Lines below err gather in the stream until it is full. Four times the usual size saves a tenth of their cost. */
constexpr std::size_t kStreamSize = std::size_t{16} * 1024;

/** The operating system's handle below the sink's stream. Written before the logger is ready for use. */
void* g_LogFileHandle = nullptr;

void PrepareStream(const std::wstring&, std::FILE* file)
{
    std::setvbuf(file, nullptr, _IOFBF, kStreamSize);
    g_LogFileHandle = reinterpret_cast<void*>(::_get_osfhandle(::_fileno(file)));
}

}  // namespace

std::shared_ptr<spdlog::logger> OpenLogger(const std::wstring& path, spdlog::level::level_enum level, bool registered)
{
    auto formatter = std::make_unique<spdlog::pattern_formatter>("%Y-%m-%d %H:%M:%S.%e [%L] %v",
                                                                 spdlog::pattern_time_type::local, "\r\n");
    spdlog::file_event_handlers handlers;
    handlers.after_open = PrepareStream;
    std::shared_ptr<spdlog::logger> logger;
    if (registered) {
        spdlog::details::registry::instance().set_formatter(std::move(formatter));
        logger = spdlog::synchronous_factory::create<FileSink>(kLoggerName, path, false, handlers);
    } else {
        logger = std::make_shared<spdlog::logger>(kLoggerName, std::make_shared<FileSink>(path, false, handlers));
        logger->set_formatter(std::move(formatter));
    }
    logger->set_level(level);
    logger->flush_on(spdlog::level::err);
    return logger;
}

void SetLoggerLevel(spdlog::logger& logger, spdlog::level::level_enum level) noexcept
{
    logger.set_level(level);
}

void WriteLine(spdlog::logger& logger, spdlog::level::level_enum level, fmt::string_view format,
               fmt::format_args args) noexcept
{
    try {
        spdlog::memory_buf_t text;
        fmt::vformat_to(fmt::appender(text), format, args);
        const std::lock_guard lock(g_WriteMutex);
        logger.log(level, fmt::string_view(text.data(), text.size()));
    } catch (...) {
        // The logger reports its own errors. What is left is memory exhaustion, and a lock lost at process exit.
    }
}

void FlushLogger(spdlog::logger& logger) noexcept
{
    try {
        const std::lock_guard lock(g_WriteMutex);
        logger.flush();
    } catch (...) {
        // As in WriteLine.
    }
}

void DropTornBuffer() noexcept
{
    if (g_WriteMutex.IsAbandoned())
        RedirectToNothing(g_LogFileHandle);
}
