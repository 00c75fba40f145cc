#pragma once

// What a host of the library needs to test it: the DLL by its exports, a log folder, and the log's lines.

#include <tarnex_3.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <string>
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

inline void SetEnv(const wchar_t* name, const std::wstring& value)
{
    ::_wputenv((std::wstring(name) + L"=" + value).c_str());
}

/** The finished DLL, loaded the way a host loads it. */
struct Library
{
    HMODULE module = ::LoadLibraryW(L"Tarnex_3.dll");

    template <typename Function>
    Function* Find(const char* name) const
    {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
    }
// NOLINTNEXTLINE(bugprone-macro-parentheses): name is the name of a member
#define TARNEX_FIND(name) decltype(&::name##_3) name = Find<decltype(::name##_3)>(#name "_3")
    TARNEX_FIND(tarnexGetAPIVersion);
    TARNEX_FIND(tarnexCreateAuthHandle);
    TARNEX_FIND(tarnexDeleteAuthHandle);
    TARNEX_FIND(tarnexSetAuthParams);
    TARNEX_FIND(tarnexRemoveAuthParams);
    TARNEX_FIND(tarnexSetLogName);
    TARNEX_FIND(tarnexSetLogLevel);
    TARNEX_FIND(tarnexFlushLog);
#undef TARNEX_FIND

    static bool IsLoaded()
    {
        return ::GetModuleHandleW(L"Tarnex_3.dll") != nullptr;
    }

    /** Unloads it and waits for the retention pass, which keeps the module for as long as it runs. */
    bool Unload()
    {
        ::FreeLibrary(module);
        return WaitUntil([] { return !IsLoaded(); });
    }
};

/** A new folder for log files, in force for libraries loaded afterwards; removed at the end. */
struct LogFolder
{
    fs::path path;

    explicit LogFolder(const std::string& name)
        : path(fs::temp_directory_path() / ("tarnex-" + name + "-" + std::to_string(::GetCurrentProcessId())))
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
        const std::regex id("-" + std::to_string(static_cast<int>(::GetCurrentProcessId())) + "\\b");
        Lines names;
        for (const auto& entry : fs::directory_iterator(path)) {
            const std::u8string utf8 = entry.path().filename().u8string();
            const std::string name(utf8.begin(), utf8.end());
            names.push_back(std::regex_replace(name, id, "-PID"));
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /** A file with something in it, last written so many hours ago. */
    void AddFile(const std::string& name, int hoursAgo = 0) const
    {
        std::ofstream(path / name) << "x";
        fs::last_write_time(path / name, fs::file_time_type::clock::now() - std::chrono::hours(hoursAgo));
    }

    /** So many log files that the next retention pass deletes; by the thousand, for which AddFile is too slow. */
    void AddExpiredFiles(int count) const
    {
        const FILETIME longAgo = {0, 0x01D00000};
        for (int i = 0; i < count; ++i) {
            const fs::path file = path / ("Tarnex-" + std::to_string(i) + "-old.log");
            const HANDLE handle = ::CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
            ::SetFileTime(handle, nullptr, nullptr, &longAgo);
            ::CloseHandle(handle);
        }
    }

    fs::path LogPath(const std::string& custom = "") const
    {
        return path / ("Tarnex" + custom + "-" + std::to_string(::GetCurrentProcessId()) + ".log");
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
    std::snprintf(text, sizeof text, "0x%llx",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(handle)));
    return text;
}

/** Redirects the module's calls of a function that it imports; false when it does not import it. */
template <typename Function>
bool ReplaceImport(HMODULE module, const std::string& name, Function* replacement)
{
    auto* const base = reinterpret_cast<std::byte*>(module);
    const auto at = [base](auto offset, auto* type) { return reinterpret_cast<decltype(type)>(base + offset); };
    const auto* dos = at(0, static_cast<IMAGE_DOS_HEADER*>(nullptr));
    const auto& directories =
        at(dos->e_lfanew, static_cast<IMAGE_NT_HEADERS64*>(nullptr))->OptionalHeader.DataDirectory;
    auto* import =
        at(directories[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress, static_cast<IMAGE_IMPORT_DESCRIPTOR*>(nullptr));
    for (; import->Name != 0; ++import) {
        const auto* names = at(import->OriginalFirstThunk, static_cast<IMAGE_THUNK_DATA64*>(nullptr));
        auto* slots = at(import->FirstThunk, static_cast<void**>(nullptr));
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal) ||
                name != at(names->u1.AddressOfData, static_cast<IMAGE_IMPORT_BY_NAME*>(nullptr))->Name)
                continue;
            DWORD protection = 0;
            ::VirtualProtect(slots, sizeof *slots, PAGE_READWRITE, &protection);
            *slots = reinterpret_cast<void*>(replacement);
            return true;
        }
    }
    return false;
}

/** From now on the module's writes through the C runtime fail as they do when the disk is full. */
inline bool FillDisk(HMODULE module)
{
    decltype(&std::fwrite) const writeNothing = [](auto...) { return std::size_t{0}; };
    return ReplaceImport(module, "fwrite", writeNothing);
}
