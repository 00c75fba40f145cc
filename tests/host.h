#pragma once

// What the tests share: a host of the finished DLL, its log folder, and faults of the system.

#include <tarnex_loader.h>
// After <windows.h>, which it needs.
#include <dbghelp.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using Names = std::set<std::wstring>;

// What is logged by a deletion that finds a null handle, and at the end for each handle that is left.
inline const std::string kNoHandle = "[E] CreateAuthHandle() hAuth=[0x0] was not found";
inline const std::string kLeftBehind = "[D] ~CSession() for (auto h : m_Handles)";

inline void SetEnv(const std::wstring& name, const std::wstring& value)
{
    ::_wputenv((name + L"=" + value).c_str());
}

/** Polls until the condition holds, for half a minute at most. */
inline void WaitUntil(const std::function<bool()>& condition)
{
    for (int i = 0; i < 30000 && !condition(); ++i)
        ::Sleep(1);
}

/** Runs the work on so many threads at once, which are given their number. */
inline void RunThreads(int count, const std::function<void(int)>& work)
{
    std::vector<std::jthread> threads;
    for (int number = 0; number < count; ++number)
        threads.emplace_back(work, number);  // NOLINT(performance-inefficient-vector-operation): there are few
}

/** An empty folder for log files, removed at the end. A process that a test starts has that of the test. */
struct LogFolder
{
    LogFolder()
    {
        fs::remove_all(path);
        fs::create_directories(path);
        SetEnv(L"TARNEX_TEST_FOLDER", path);
        SetEnv(L"TARNEX_LOG_DIR", path);
    }
    ~LogFolder() { fs::remove_all(path); }

    /** Makes a file that was last written so many minutes ago. */
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

    /** The lines of all its log files without their time, as in "[E] text", or "torn: ..." where one is not whole. */
    Lines Log() const
    {
        Lines lines;
        for (const std::wstring& name : Files()) {
            std::ifstream file(path / name, std::ios::binary);
            for (std::string line; std::getline(file, line);) {
                const bool whole = line.find(" [") == 23 && line.back() == '\r';
                lines.push_back(whole ? line.substr(24, line.size() - 25) : "torn: " + line);
            }
        }
        return lines;
    }

    const wchar_t* inherited = ::_wgetenv(L"TARNEX_TEST_FOLDER");
    std::wstring processId = std::to_wstring(::GetCurrentProcessId());
    fs::path path = inherited != nullptr ? inherited : fs::temp_directory_path() / (L"tarnex-" + processId);
};

/** A host of the finished DLL, with these values in its environment. */
struct Host : LogFolder, TarnexLoader
{
    explicit Host(const std::wstring& level = L"", const std::wstring& hours = L"")
    {
        SetEnv(L"TARNEX_LOG_LEVEL", level);
        SetEnv(L"TARNEX_LOG_CLEANUP", hours);
    }
    ~Host() { Unload(); }

    /** Deletes a null handle: the simplest call that writes a message. */
    TarnexResult DeleteNull() const
    {
        TarnexAuthHandle null = nullptr;
        return tarnexDeleteAuthHandle_3(&null);
    }

    /** Makes calls with all kinds of results; true when these are as usual. */
    bool UseHandle(const std::string& value = "v") const
    {
        TarnexAuthHandle handle = nullptr;
        return tarnexCreateAuthHandle_3(&handle) == TARNEX_OK &&
               tarnexRemoveAuthParams_3(&handle, "k") == TARNEX_E_PARAM_NOT_FOUND &&
               tarnexSetAuthParams_3(&handle, "k", value.c_str()) == TARNEX_OK &&
               tarnexDeleteAuthHandle_3(&handle) == TARNEX_OK && DeleteNull() == TARNEX_E_HANDLE_NOT_FOUND &&
               tarnexSetLogLevel_3(7) == TARNEX_E_INVALID_ARGUMENT;  // writes without the session's lock
    }

    /** From now on nothing can be written to the log file, as on a full disk. */
    void BreakLogFile() const
    {
        wchar_t name[MAX_PATH];
        for (std::uintptr_t value = 4; value < 4096; value += 4) {
            const auto handle = reinterpret_cast<HANDLE>(value);
            if (::GetFinalPathNameByHandleW(handle, name, MAX_PATH, 0) != 0 && fs::path(name).extension() == L".log")
                ::CloseHandle(handle);
        }
    }
};

/** Has the module call something else in place of an imported function. */
template <typename Function>
void ReplaceImport(HMODULE module, Function* original, std::common_type_t<Function*> replacement)
{
    ULONG size = 0;
    DWORD before = 0;
    auto* const table = static_cast<char*>(::ImageDirectoryEntryToData(module, TRUE, IMAGE_DIRECTORY_ENTRY_IAT, &size));
    ::VirtualProtect(table, size, PAGE_READWRITE, &before);
    for (ULONG i = 0; i < size; i += sizeof original)
        if (std::memcmp(table + i, &original, sizeof original) == 0)
            std::memcpy(table + i, &replacement, sizeof replacement);
}
