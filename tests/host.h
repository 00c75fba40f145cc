#pragma once

// What a host of the library needs to test it: the DLL by its exports, a log folder, and the log's lines.

#include <tarnex_3.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

/** Polls until the condition holds; false when it does not within the limit. */
inline bool WaitUntil(const std::function<bool()>& condition, int seconds = 30)
{
    const ULONGLONG end = ::GetTickCount64() + static_cast<ULONGLONG>(seconds) * 1000;
    while (!condition()) {
        if (::GetTickCount64() > end)
            return false;
        ::Sleep(1);
    }
    return true;
}

/** Runs the work on so many threads at once, which start together and are given their number. */
inline void RunThreads(int count, const std::function<void(int)>& work)
{
    std::atomic<int> waiting{count};
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int number = 0; number < count; ++number)
        threads.emplace_back([&, number] {
            for (--waiting; waiting > 0;)
                std::this_thread::yield();
            work(number);
        });
    for (std::thread& thread : threads)
        thread.join();
}

inline void SetEnv(const wchar_t* name, const std::wstring& value)
{
    ::_wputenv((std::wstring(name) + L"=" + value).c_str());
}

inline std::string ProcessId()
{
    return std::to_string(static_cast<int>(::GetCurrentProcessId()));
}

inline FILETIME SecondsAgo(int seconds)
{
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    const LONGLONG time =
        (static_cast<LONGLONG>(now.dwHighDateTime) << 32 | now.dwLowDateTime) - seconds * 10'000'000LL;
    return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

inline bool IsLibraryLoaded()
{
    return ::GetModuleHandleW(L"Tarnex_3.dll") != nullptr;
}

/** The finished DLL, loaded the way a host loads it. */
struct Library
{
    HMODULE module = ::LoadLibraryW(L"Tarnex_3.dll");

    Library()
    {
        if (module == nullptr)
            throw std::runtime_error("Tarnex_3.dll cannot be loaded");
    }

    template <typename Function>
    Function* Find(const char* name) const
    {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
    }
// NOLINTNEXTLINE(bugprone-macro-parentheses): name is the name of a member
#define TARNEX_FIND(name) decltype(::name##_3)* name = Find<decltype(::name##_3)>(#name "_3")
    TARNEX_FIND(tarnexGetAPIVersion);
    TARNEX_FIND(tarnexCreateAuthHandle);
    TARNEX_FIND(tarnexDeleteAuthHandle);
    TARNEX_FIND(tarnexSetAuthParams);
    TARNEX_FIND(tarnexRemoveAuthParams);
    TARNEX_FIND(tarnexSetLogName);
    TARNEX_FIND(tarnexSetLogLevel);
    TARNEX_FIND(tarnexFlushLog);
#undef TARNEX_FIND

    /** Handle variables with names of one letter. */
    std::map<char, TarnexAuthHandle> variables;

    /**
     * Makes calls given as words and returns their results: "+a" creates a handle in the variable a and "-a" deletes
     * it, "a.k=v" sets a parameter and "a.k" removes it, "@3" sets the log's level, "#x" its name, "!" flushes it.
     */
    std::string Play(const std::string& calls)
    {
        std::string word, results;
        for (std::istringstream words(calls); words >> word;) {
            const std::string rest = word.substr(1), key = rest.substr(rest.find('.') + 1);
            const std::size_t equals = key.find('=');
            TarnexAuthHandle* const variable = &variables[word.find_first_of("+-") == 0 ? rest[0] : word[0]];
            const TarnexResult result =
                word[0] == '+'   ? tarnexCreateAuthHandle(variable)
                : word[0] == '-' ? tarnexDeleteAuthHandle(variable)
                : word[0] == '@' ? tarnexSetLogLevel(static_cast<uint32_t>(std::stoll(rest)))
                : word[0] == '#' ? tarnexSetLogName(rest.c_str())
                : word[0] == '!' ? tarnexFlushLog()
                : equals == std::string::npos
                    ? tarnexRemoveAuthParams(variable, key.c_str())
                    : tarnexSetAuthParams(variable, key.substr(0, equals).c_str(), key.substr(equals + 1).c_str());
            results += (results.empty() ? "" : " ") + std::to_string(result);
        }
        return results;
    }

    /** Unloads it and waits for the retention pass, which keeps the module for as long as it runs. */
    bool Unload()
    {
        ::FreeLibrary(module);
        return WaitUntil([] { return !IsLibraryLoaded(); });
    }
};

/** A new folder for log files, in force for libraries loaded afterwards; removed at the end. */
struct LogFolder
{
    fs::path path = fs::temp_directory_path() / ("tarnex-" + ProcessId());

    LogFolder()
    {
        fs::remove_all(path);
        fs::create_directories(path);
        SetEnv(L"TARNEX_LOG_DIR", path.wstring());
    }
    ~LogFolder()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }

    /** The names in the folder in UTF-8, sorted, with this process's id shown as PID. */
    Lines Files() const
    {
        Lines names;
        for (const auto& entry : fs::directory_iterator(path)) {
            const std::u8string utf8 = entry.path().filename().u8string();
            std::string name(utf8.begin(), utf8.end());
            for (const char* end : {".", "-"})
                if (const auto at = name.find("-" + ProcessId() + end); at != std::string::npos)
                    name.replace(at + 1, ProcessId().size(), "PID");
            names.push_back(std::move(name));
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /** An empty file, last written so many minutes ago. */
    void AddFile(const std::string& name, int minutesAgo = 0) const
    {
        const FILETIME written = SecondsAgo(minutesAgo * 60);
        const HANDLE file = ::CreateFileW((path / name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        ::SetFileTime(file, nullptr, nullptr, &written);
        ::CloseHandle(file);
    }

    /** So many log files that the next retention pass deletes. */
    void AddExpiredFiles(int count) const
    {
        for (int i = 0; i < count; ++i)
            AddFile("Tarnex-" + std::to_string(i) + "-old.log", 100'000);
    }

    fs::path LogPath(const std::string& custom = "") const
    {
        return path / ("Tarnex" + custom + "-" + ProcessId() + ".log");
    }
};

/**
 * The file's lines without their time, as in "[E] text". A line that is not whole reads "torn: ...", and a file
 * that cannot be opened reads as a line that says so.
 */
inline Lines ReadLog(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return {"no file " + path.string()};
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::string shape = "dddd-dd-dd dd:dd:dd.ddd [";
    const auto fits = [](char want, char have) { return want == 'd' ? have >= '0' && have <= '9' : want == have; };
    Lines lines;
    for (std::size_t begin = 0, end; begin < text.size(); begin = end + 2) {
        end = text.find("\r\n", begin);
        const bool whole = end != std::string::npos && end - begin > shape.size() + 3 &&
                           std::equal(shape.begin(), shape.end(), text.begin() + static_cast<long>(begin), fits);
        end = std::min(end, text.size());
        lines.push_back(whole ? text.substr(begin + 24, end - begin - 24) : "torn: " + text.substr(begin, end - begin));
    }
    return lines;
}

/** A handle value as log lines show it. */
inline std::string Hex(TarnexAuthHandle handle)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%llx", reinterpret_cast<unsigned long long>(handle));
    return text;
}

/** What the log begins with when the first message is about a handle that is null. */
inline Lines FirstMessage(const std::string& level)
{
    return {"[O] Created Tarnex Logger level [" + level + "]", "[E] CreateAuthHandle() hAuth=[0x0] was not found"};
}

inline const std::string kLeftBehind = "[D] ~CSession() for (auto h : m_Handles)";
