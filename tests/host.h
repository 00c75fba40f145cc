#pragma once

// What the tests and the benchmark share: a host of the finished DLL, its log folder, and faults of the system.

#include <gtest/gtest.h>
#include <tarnex_loader.h>
// After <windows.h>, which it needs.
#include <dbghelp.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using Names = std::set<std::wstring>;

inline const std::string kNoHandle = "[E] CreateAuthHandle() hAuth=[0x0] was not found";
inline const std::string kLeftBehind = "[D] ~CSession() for (auto h : m_Handles)";

inline void SetEnv(const std::wstring& name, const std::wstring& value)
{
    ::_wputenv((name + L"=" + value).c_str());
}

/** Polls until the flag is set, for ten seconds at most; false when it is not. */
inline bool WaitFor(const std::atomic<bool>& flag)
{
    for (int i = 0; i < 10000 && !flag; ++i)
        ::Sleep(1);
    return flag;
}

/** Runs the work on `count` threads, which begin together and are given their number. */
inline void RunThreads(int count, const auto& work)
{
    std::atomic<int> missing{count};
    std::vector<std::thread> threads;  // not every C++ library has jthread
    for (int number = 0; number < count; ++number)
        threads.emplace_back([&, number] {  // NOLINT(performance-inefficient-vector-operation): there are few
            for (--missing; missing > 0;)
                std::this_thread::yield();
            work(number);
        });
    std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
}

/** An empty folder for log files, removed at the end. A child process uses its parent's folder. */
struct LogFolder
{
    LogFolder()
    {
        fs::remove_all(path);
        fs::create_directories(path);
        SetEnv(L"TARNEX_TEST_FOLDER", path);
        SetEnv(L"TARNEX_LOG_DIR", path);
    }
    ~LogFolder() { fs::remove_all(path, ignored); }

    /** Makes a file that was last written `minutesAgo`. */
    void AddFile(const std::wstring& name, int minutesAgo) const
    {
        std::ofstream(path / name).close();
        fs::last_write_time(path / name, fs::file_time_type::clock::now() - std::chrono::minutes(minutesAgo));
    }

    Names Files() const
    {
        Names names;
        for (const auto& entry : fs::directory_iterator(path))
            names.insert(entry.path().filename());
        return names;
    }

    /** The lines of all its log files without their time, as in "[E] text", or "torn: ..." for an incomplete line. */
    Lines Log() const
    {
        Lines lines;
        for (const std::wstring& name : Files()) {
            std::ifstream file(path / name, std::ios::binary);
            for (std::string line; std::getline(file, line);)
                lines.push_back(line.find(" [") == 23 && line.back() == '\r' ? line.substr(24, line.size() - 25)
                                                                             : "torn: " + line);
        }
        return lines;
    }

    std::error_code ignored;
    const wchar_t* inherited = ::_wgetenv(L"TARNEX_TEST_FOLDER");
    std::wstring processId = std::to_wstring(::GetCurrentProcessId());
    std::wstring logName = L"Tarnex-" + processId + L".log";
    fs::path path = inherited != nullptr ? inherited : fs::temp_directory_path() / (L"tarnex-" + processId);
};

/** Fails with the first line in which a log is not as expected. */
inline void ExpectLog(const Lines& log, const Lines& expected)
{
    const auto [line, wanted] = std::mismatch(log.begin(), log.end(), expected.begin(), expected.end());
    if (line != log.end() || wanted != expected.end())
        ADD_FAILURE() << "line " << line - log.begin() + 1 << " of the log: " << (line == log.end() ? "none" : *line)
                      << "\n  expected: " << (wanted == expected.end() ? "none" : *wanted);
}

/** Has a module call something else in place of a function that it imports. */
template <typename Function>
void Replace(const wchar_t* module, const char* name, Function* replacement)
{
    ULONG size = 0, before = 0;
    auto* const table = static_cast<char*>(
        ::ImageDirectoryEntryToData(::GetModuleHandleW(module), TRUE, IMAGE_DIRECTORY_ENTRY_IAT, &size));
    ::VirtualProtect(table, size, PAGE_READWRITE, &before);
    for (const wchar_t* exporter : {L"kernel32", L"kernelbase", L"shell32"})
        if (const FARPROC original = ::GetProcAddress(::GetModuleHandleW(exporter), name))
            for (ULONG i = 0; i < size; i += sizeof original)
                if (std::memcmp(table + i, &original, sizeof original) == 0)
                    std::memcpy(table + i, &replacement, sizeof replacement);
}

/** The same for WriteFile, which the library's C runtime calls; it may be part of the library. */
inline void ReplaceWriteFile(decltype(::WriteFile)* replacement)
{
    for (const wchar_t* runtime : {L"Tarnex_3", L"msvcrt", L"ucrtbase"})
        if (::GetModuleHandleW(runtime) != nullptr)
            Replace(runtime, "WriteFile", replacement);
}

/** A host of the finished DLL, with these values in its environment. */
struct Host : LogFolder, TarnexLoader
{
    explicit Host(const std::wstring& level = L"", const std::wstring& hours = L"")
    {
        SetEnv(L"TARNEX_LOG_LEVEL", level);
        SetEnv(L"TARNEX_LOG_CLEANUP", hours);
    }
    ~Host() { Unload(module ? 30000 : 0); }

    TarnexAuthHandle handle = nullptr;

    /** Deletes a null handle: the simplest call that writes a message. */
    TarnexResult DeleteNull() const
    {
        TarnexAuthHandle null = nullptr;
        return tarnexDeleteAuthHandle_3(&null);
    }

    /** Makes calls with all kinds of results, and stops at the first that gets another one than it should. */
    void UseHandle(const std::string& value = "v") const
    {
        TarnexAuthHandle own = nullptr;
        ASSERT_EQ(tarnexCreateAuthHandle_3(&own), TARNEX_OK);
        ASSERT_EQ(tarnexRemoveAuthParams_3(&own, "k"), TARNEX_E_PARAM_NOT_FOUND);
        ASSERT_EQ(tarnexSetAuthParams_3(&own, "k", value.c_str()), TARNEX_OK);
        ASSERT_EQ(tarnexDeleteAuthHandle_3(&own), TARNEX_OK);
        ASSERT_EQ(own, nullptr);
        ASSERT_EQ(DeleteNull(), TARNEX_E_HANDLE_NOT_FOUND);
        ASSERT_EQ(tarnexSetLogLevel_3(7), TARNEX_E_INVALID_ARGUMENT);  // writes without the session's lock
    }
};
