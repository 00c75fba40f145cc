#pragma once

// What a host of the library needs to test it: the DLL by its exports, a log folder, and the log's lines.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tarnex_loader.h"

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

/** Polls until the condition holds; false when it does not within half a minute. */
inline bool WaitUntil(const std::function<bool()>& condition)
{
    const ULONGLONG end = ::GetTickCount64() + 30'000;
    while (!condition() && ::GetTickCount64() < end)
        ::Sleep(1);
    return condition();
}

/** Runs the work on so many threads at once, which start together and are given their number. */
inline void RunThreads(int count, const std::function<void(int)>& work)
{
    std::atomic<int> waiting{count};  // std::latch of GCC 12 loses a wake-up now and then
    std::vector<std::jthread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int number = 0; number < count; ++number)
        threads.emplace_back([&, number] {
            for (--waiting; waiting > 0;)
                std::this_thread::yield();
            work(number);
        });
}

inline void SetEnv(const wchar_t* name, const std::wstring& value)
{
    ::_wputenv((std::wstring(name) + L"=" + value).c_str());
}

/** How often a test is to do its work, or how many seconds: TARNEX_TEST_COUNT, or else as usual. */
inline int GetCount(int usual)
{
    const wchar_t* const count = ::_wgetenv(L"TARNEX_TEST_COUNT");
    return count == nullptr ? usual : std::stoi(count);
}

inline std::string LocalTime()
{
    const std::time_t seconds = std::time(nullptr);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&seconds));
    return text;
}

/** When the test began, in a zone that is eleven and a half hours ahead of UTC, as all that it does. */
inline const std::string kStart = (SetEnv(L"TZ", L"FAR-11:30"), ::_tzset(), LocalTime());

inline const std::string kProcessId = std::to_string(static_cast<int>(::GetCurrentProcessId()));

/** The text with something else in place of each such part. */
inline std::string Replaced(std::string text, const std::string& part, const std::string& other)
{
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += other.size())
        text.replace(at, part.size(), other);
    return text;
}

/** The text with this process's id shown as PID where it ends a part of a file's name. */
inline std::string WithoutId(const std::string& text)
{
    return Replaced(Replaced(text, "-" + kProcessId + ".", "-PID."), "-" + kProcessId + "-", "-PID-");
}

/** An empty file, last written so many minutes ago. */
inline void AddFile(const fs::path& file, int minutesAgo)
{
    std::ofstream(file).close();
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::minutes(minutesAgo));
}

/** The finished DLL, loaded the way a host loads it. */
struct Library : TarnexLoader
{
    /** Handle variables with names of one letter. */
    std::map<char, TarnexAuthHandle> variables;

    /**
     * Makes calls given as words and returns their results: "+a" creates a handle in the variable a and "-a" deletes
     * it, "a.k=v" sets a parameter and "a.k" removes it (a null one where it says NULL), "@3" sets the log's level,
     * "#x" its name, "!" flushes it.
     */
    std::string Play(const std::string& calls)
    {
        const auto text = [](const std::string& word) { return word == "NULL" ? nullptr : word.c_str(); };
        std::string word, results;
        for (std::istringstream words(calls); words >> word;) {
            const std::string rest = word.substr(1), parameter = rest.substr(rest.find('.') + 1),
                              key = parameter.substr(0, parameter.find('=')),
                              value = parameter.substr(parameter.find('=') + 1);
            TarnexAuthHandle* const variable = &variables[word.find_first_of("+-") == 0 ? rest[0] : word[0]];
            const TarnexResult result = word[0] == '+'     ? tarnexCreateAuthHandle(variable)
                                        : word[0] == '-'   ? tarnexDeleteAuthHandle(variable)
                                        : word[0] == '@'   ? tarnexSetLogLevel(static_cast<uint32_t>(std::stoll(rest)))
                                        : word[0] == '#'   ? tarnexSetLogName(rest.c_str())
                                        : word[0] == '!'   ? tarnexFlushLog()
                                        : key == parameter ? tarnexRemoveAuthParams(variable, text(key))
                                                           : tarnexSetAuthParams(variable, text(key), text(value));
            results += (results.empty() ? "" : " ") + std::to_string(result);
        }
        return results;
    }

    /** Unloads it and waits for the retention pass, which keeps the module for as long as it runs. */
    bool Unload() const
    {
        TarnexLoader::Unload();
        return WaitUntil([] { return ::GetModuleHandleW(L"Tarnex_3.dll") == nullptr; });
    }
};

/** A new folder for log files, in force for libraries loaded afterwards; removed at the end. */
struct LogFolder
{
    fs::path path = fs::temp_directory_path() / ("tarnex-" + kProcessId);

    LogFolder()
    {
        fs::remove_all(path);
        fs::create_directories(path);
        SetEnv(L"TARNEX_LOG_DIR", path.wstring());
        SetEnv(L"TARNEX_LOG_LEVEL", L"");
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
        for (const auto& entry : fs::recursive_directory_iterator(path)) {
            const std::u8string name = entry.path().lexically_relative(path).generic_u8string();
            names.push_back(WithoutId({name.begin(), name.end()}));
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /** So many log files that the next retention pass deletes. */
    void AddExpiredFiles(int count) const
    {
        for (int i = 0; i < count; ++i)
            AddFile(path / ("Tarnex-" + std::to_string(i) + "-old.log"), 100'000);
    }

    fs::path LogPath() const { return path / ("Tarnex-" + kProcessId + ".log"); }
};

/** The lines without their time, as in "[E] text"; as "torn: ..." when not whole, or not of the time of this test. */
inline Lines ReadLog(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}}, now = LocalTime();
    Lines lines;
    for (std::size_t begin = 0, end; begin < text.size(); begin = end + 2) {
        end = std::min(text.find("\r\n", begin), text.size());
        const std::string line = text.substr(begin, end - begin), time = line.substr(0, now.size());
        const bool whole = end < text.size() && line.size() > 28 && time >= kStart && time <= now && line[19] == '.' &&
                           line.compare(23, 2, " [") == 0;
        lines.push_back(whole ? line.substr(24) : "torn: " + line);
    }
    return lines;
}

inline const std::string kNoHandle = "[E] CreateAuthHandle() hAuth=[0x0] was not found";
inline const std::string kLeftBehind = "[D] ~CSession() for (auto h : m_Handles)";

/** A transcript, and how it reads when what its lines with "> " say is done again and what comes of it written down. */
inline std::pair<std::string, std::string> Replay(const std::string& name,
                                                  const std::function<std::string(const std::string&)>& step)
{
    std::ifstream transcript("transcripts/" + name + ".txt");
    std::string before = transcript ? "" : "no transcript " + name, after, line;
    while (std::getline(transcript, line)) {
        const bool isStep = line.starts_with("> ");
        before += line + "\n";
        if (line.empty() || line[0] == '#' || isStep)
            after += line + "\n";
        if (isStep)
            after += step(line.substr(2));
    }
    return {before, after};
}
