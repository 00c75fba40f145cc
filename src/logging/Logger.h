#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "logging/Writer.h"
#include "platform/Abandonable.h"
#include "platform/Mutex.h"

// The library's one logger and the rule by which every layer writes a message. The objects with destructors
// are defined in session/ProcessState.cpp, which fixes the order of their construction.

/** Guards the creation of the logger and its file. Taken after the session's and a handle's lock. */
extern CMutex g_LoggerMutex;

/** Path of the log file; empty until a file has been made. Guarded by g_LoggerMutex. */
extern CAbandonable<std::wstring> g_LogFilePath;

/** Owner of the logger: empty until creation succeeds, never reset. Guarded by g_LoggerMutex. */
extern CAbandonable<std::shared_ptr<spdlog::logger>> g_Logger;

/** g_Logger's logger, read without a lock; null until it is ready for use. */
inline std::atomic<spdlog::logger*> g_ReadyLogger{nullptr};

/** The lowest level that is written, trace 0 to off 6; -1 until one has been chosen. */
inline std::atomic<int> g_LogLevel{-1};

/** Set once creation has failed: it is not tried again. Written under g_LoggerMutex. */
inline std::atomic<bool> g_LoggerFailed{false};

/**
 * Writes a message if its level is high enough, and creates the logger first if need be. Without a logger the
 * message is dropped. Throws what the creation of the logger throws, and nothing once that exists.
 */
void WriteMessage(spdlog::level::level_enum level, fmt::string_view format, fmt::format_args args);

/** How every layer writes a message. A filtered one costs two loads; none is filtered before the log exists. */
template <typename... Args>
void Log(spdlog::level::level_enum level, fmt::format_string<Args...> format, Args&&... args)
{
    if (level < g_LogLevel.load(std::memory_order_relaxed) && g_ReadyLogger.load(std::memory_order_relaxed) != nullptr)
        return;
#if FMT_VERSION >= 100000
    const fmt::string_view text = format.get();
#else
    const fmt::string_view text = format;
#endif
    WriteMessage(level, text, fmt::make_format_args(args...));
}

/** Writes the line that tells of a new level. */
void LogLevelChange(int level);

/**
 * To be called first at unload or process exit, while all objects of the library still exist. From then on a first
 * message starts no thread, and what process exit left half-written in the log's buffer is dropped.
 */
void BeginUnload() noexcept;
