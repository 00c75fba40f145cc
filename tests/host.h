#pragma once

// What the tests and the benchmark share: a host of the finished DLL, its log folder, and faults of the system.

#include <gtest/gtest.h>
#include <tarnex_loader.h>
// After <windows.h>, which it needs.
#include <dbghelp.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <regex>
#include <thread>

namespace fs = std::filesystem;
using std::atomic, std::regex, std::string, std::to_string, std::vector;

const string kLog = "Tarnex-ID.log\n";
const string kCreated = kLog + "[O] Created Tarnex Logger level [error]\n";
const string kNoHandle = "[E] CreateAuthHandle() hAuth=[0x0] was not found\n";

inline void SetEnv(const fs::path& name, const fs::path& value)
{
    ::_wputenv((name.wstring() + L"=" + value.wstring()).c_str());
}

/** Polls until the flag is set, for so many milliseconds at most; false when it is not. */
inline bool WaitFor(const atomic<bool>& flag, int milliseconds = 10000)
{
    for (; milliseconds > 0 && !flag; --milliseconds)
        ::Sleep(1);
    return flag;
}

/** An empty folder for log files, removed at the end. A child process uses its parent's folder. */
struct LogFolder
{
    LogFolder()
    {
        if (const wchar_t* parents = ::_wgetenv(L"TARNEX_TEST_FOLDER"))
            path = parents;
        Clear();
        SetEnv("TARNEX_TEST_FOLDER", path);
        SetEnv("TARNEX_LOG_DIR", path);
        SetEnv("TZ", "FAR-11:30");  // logs are in local time
    }
    ~LogFolder()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }

    void Clear() const
    {
        fs::remove_all(path);
        fs::create_directories(path);
    }

    void AddFile(const string& name, int minutesAgo) const
    {
        std::ofstream(path / name).close();
        fs::last_write_time(path / name, fs::file_time_type::clock::now() - std::chrono::minutes(minutesAgo));
    }

    /** Its files and folders, sorted: names with ID for the process id, lines without the time or "torn". */
    string Look() const
    {
        std::map<string, string> files;
        for (const auto& entry : fs::recursive_directory_iterator(path)) {
            const auto name = entry.path().filename().u8string();
            string& lines = files[std::regex_replace(string(name.begin(), name.end()), regex("-\\d\\d+"), "-ID")];
            std::ifstream file(entry.path(), std::ios::binary);
            for (string line; std::getline(file, line); lines += "\n") {
                std::tm time{};
                std::istringstream(line) >> std::get_time(&time, "%Y-%m-%d %H:%M:%S.");
                const bool isLine = std::abs(std::mktime(&time) - std::time(nullptr)) < 99 && line.back() == '\r';
                lines += isLine ? line.substr(24, line.size() - 25) : "torn: " + line;
            }
        }
        if (::GetModuleHandleW(L"Tarnex_3"))
            files.erase("Tarnex-ID.tmp");  // the clean-up may just look for the folder
        string all;
        for (const auto& [name, lines] : files)
            all.append(name).append("\n" + lines);
        return all;
    }

    // Its name is in no code page but that of UTF-8, and not to be expanded.
    fs::path path =
        fs::temp_directory_path() / (L"tarnex-%OS%-\x905E\x05D0" + std::to_wstring(::GetCurrentProcessId()));
};

/** Has a module call something else in place of a function that it imports. */
template <typename Function>
void Replace(const char* name, Function* replacement, const wchar_t* module = L"Tarnex_3")
{
    ULONG size = 0, before = 0;
    auto* table = static_cast<Function**>(
        ::ImageDirectoryEntryToData(::GetModuleHandleW(module), TRUE, IMAGE_DIRECTORY_ENTRY_IAT, &size));
    ::VirtualProtect(table, size, PAGE_READWRITE, &before);
    for (const wchar_t* exporter : {L"kernel32", L"kernelbase", L"shell32", L"msvcrt", L"ucrtbase"})
        if (void* found = reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(exporter), name)))
            std::replace(table, table + size / sizeof found, reinterpret_cast<Function*>(found), replacement);
}
#define REPLACE(function, ...) Replace<decltype(function)>(#function, __VA_ARGS__)

/** The same for WriteFile, which the library's C runtime calls; that may be part of the library. */
inline void ReplaceWriteFile(decltype(WriteFile)* replacement)
{
    for (const wchar_t* runtime : {L"Tarnex_3", L"msvcrt", L"ucrtbase"})
        if (::GetModuleHandleW(runtime))
            Replace("WriteFile", replacement, runtime);
}

/** A host of the finished DLL, with these values in its environment. */
struct Host : LogFolder, TarnexLoader
{
    Host(const fs::path& level = "", const fs::path& hours = "")
    {
        SetEnv("TARNEX_LOG_LEVEL", level);
        SetEnv("TARNEX_LOG_CLEANUP", hours);
    }
    ~Host() { Unload(); }

    TarnexAuthHandle handle = nullptr;

    /** Deletes a null handle: the simplest call that writes a message. */
    TarnexResult DeleteNull() const
    {
        TarnexAuthHandle null = nullptr;
        return tarnexDeleteAuthHandle_3(&null);
    }
};
