#include "logging/Writer.h"

#include <io.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <windows.h>

#include <mutex>

namespace {

/** Lines below err gather in the stream until it is full. Four times the usual size saves a tenth of their cost. */
constexpr std::size_t kStreamSize = std::size_t{16} * 1024;

/** The operating system's handle below the sink's stream. Written before the logger is ready for use. */
HANDLE g_LogFileHandle = nullptr;

void PrepareStream(const std::wstring&, std::FILE* file)
{
    std::setvbuf(file, nullptr, _IOFBF, kStreamSize);
    g_LogFileHandle = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(file)));
}

/**
 * Closes the file and opens NUL under the same handle value: what is written to the handle afterwards is discarded, and
 * cannot reach another file that got the value. For the end of a process only, when no other thread is left.
 */
void RedirectToNothing(HANDLE file) noexcept
{
    ::CloseHandle(file);
    // The system assigns the value again sooner or later, usually at once. What is opened until then is closed with the
    // process.
    for (int attempt = 0; attempt < 10'000; ++attempt)
        if (::CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                          nullptr) == file)
            return;
}

}  // namespace

std::shared_ptr<spdlog::logger> OpenLogger(const std::wstring& path)
{
    spdlog::file_event_handlers handlers;
    handlers.after_open = PrepareStream;
    // No lock in the sink: g_WriteMutex also covers spdlog's error handler.
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_st>(path, false, handlers);
    auto logger = std::make_shared<spdlog::logger>("Tarnex", std::move(sink));
    logger->set_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%d %H:%M:%S.%e [%L] %v",
                                                                      spdlog::pattern_time_type::local, "\r\n"));
    logger->set_level(spdlog::level::trace);
    logger->flush_on(spdlog::level::err);
    return logger;
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
    if (!g_WriteMutex.TakeAtExit())
        RedirectToNothing(g_LogFileHandle);
}
