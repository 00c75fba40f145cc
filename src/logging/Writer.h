#pragma once

#include <spdlog/tweakme.h>

#ifdef SPDLOG_USE_STD_FORMAT
#error "The log needs fmt: install an spdlog that is configured to use fmt, not std::format."
#endif

#include <spdlog/common.h>
#include <spdlog/fwd.h>

#include <memory>
#include <string>

#include "platform/Mutex.h"

// How lines get into the log file: the only code that knows the inside of a logger and of its sink.

/**
 * Held while a line is written or the log is flushed. Guards the file's buffer and spdlog's error handler, which
 * runs outside of a sink's own lock and has one that process exit could leave locked. Innermost of all locks.
 */
extern CMutex g_WriteMutex;

/**
 * A logger for the file, which exists and is appended to. It takes every level; lines at err and critical flush it.
 * The caller holds g_LoggerMutex. Throws spdlog::spdlog_ex when the file cannot be opened.
 */
std::shared_ptr<spdlog::logger> OpenLogger(const std::wstring& path);

/** Formats and writes a message; whatever goes wrong costs that message only. */
void WriteLine(spdlog::logger& logger, spdlog::level::level_enum level, fmt::string_view format,
               fmt::format_args args) noexcept;

/** Writes what is buffered to the file; the logger reports errors itself. */
void FlushLogger(spdlog::logger& logger) noexcept;

/**
 * To be called when process exit has begun. If that ended a thread in the middle of writing, what is buffered goes
 * nowhere from now on: the C runtime still flushes every stream, and the buffer may be in the file already.
 */
void DropTornBuffer() noexcept;
