// The finished DLL, used through its exports as an application uses it, and the log file it writes.
#include <gtest/gtest.h>

#include <optional>

#include "host.h"
#include "image.h"

// After <windows.h>, which the shell's header needs.
#include <shlobj.h>

namespace {

// What the system tells the library.
fs::path g_AppData;
std::string g_Refused;
std::ostringstream g_Refusals;
DWORD g_Reason = 0;
std::atomic<int> g_Locks{0};

BOOL WINAPI TellFolder(HWND, LPWSTR path, int id, BOOL)
{
    g_AppData.wstring().copy(path, id == CSIDL_LOCAL_APPDATA ? MAX_PATH : 0);
    return FALSE;  // the path alone counts
}

HANDLE WINAPI CreateOrRefuse(LPCWSTR name, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                             DWORD disposition, DWORD flags, HANDLE like)
{
    if (!fs::path(name).string().ends_with(g_Refused))
        return ::CreateFileW(name, access, sharing, security, disposition, flags, like);
    g_Refusals << "refused " << fs::path(name).string() << std::hex << " " << access << " " << sharing << " "
               << disposition << " " << flags << "\n";
    ::SetLastError(g_Reason);
    return INVALID_HANDLE_VALUE;
}

/** A host that is told step by step what to do. */
struct Host
{
    LogFolder folder;
    std::optional<Library> lib;
    HANDLE held = nullptr;
    std::map<std::string, std::size_t> shown;

    /**
     * Does a step and tells what comes of it: the calls' results, what files have come and gone, and what lines are in
     * them now. A handle reads as its variable, a process id as PID, the log folder as DIR.
     */
    std::string Do(std::string step)
    {
        step = Replaced(Replaced(step, "PID", kProcessId), "DIR", folder.path.string());
        std::istringstream words(step);
        std::string verb, object, detail, hours;
        words >> verb >> object >> detail >> hours;
        const fs::path file = folder.path / object;
        std::string outcome;
        if (verb == "load") {  // with this level, log folder and hours in the environment, where - is none
            SetEnv(L"TARNEX_LOG_LEVEL", {object.begin(), object.end()});
            SetEnv(L"TARNEX_LOG_DIR", detail.empty() ? folder.path : detail == "-" ? "" : fs::path(detail));
            SetEnv(L"TARNEX_LOG_CLEANUP", {hours.begin(), hours.end()});
            lib.emplace();
            lib->variables['g'] = reinterpret_cast<TarnexAuthHandle>(0xDEADBEEF);
            g_AppData = folder.path;
            g_Refused = "nothing";
            EXPECT_TRUE(RefuseThreads(lib->module));  // no clean-up
            EXPECT_TRUE(ReplaceImport(lib->module, "CreateFileW", CreateOrRefuse));
            EXPECT_TRUE(ReplaceImport(lib->module, "SHGetSpecialFolderPathW", TellFolder));
            EXPECT_TRUE(WatchLocks(lib->module, [] { ++g_Locks; }));
        } else if (verb == "unload") {
            EXPECT_TRUE(lib->Unload());
        } else if (verb == "copy") {  // a variable
            lib->variables[object[0]] = lib->variables[detail[0]];
        } else if (verb == "write") {  // a line to a file
            std::ofstream(file, std::ios::binary) << LocalTime() << ".000 [O] before\r\n";
        } else if (verb == "age") {  // a file, by so many minutes
            AddFile(file, std::stoi(detail));
        } else if (verb == "hold") {  // this file so that nobody else can open it, or none
            ::CloseHandle(std::exchange(held, nullptr));
            held = ::CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        } else if (verb == "disk") {
            EXPECT_TRUE(FillDisk(object == "full"));
        } else if (verb == "refuse") {  // files with names that end so, for this reason
            g_Refused = object;
            g_Reason = static_cast<DWORD>(std::atoi(detail.c_str()));
        } else if (verb == "appdata") {
            g_AppData = object;
        } else if (verb == "count") {  // the locks that these calls take, and the threads that they start
            g_Locks = g_ThreadsRefused = 0;
            outcome = lib->Play(step.substr(verb.size()));
            outcome += " with " + std::to_string(g_Locks) + " and " + std::to_string(g_ThreadsRefused) + "\n";
        } else {
            try {
                outcome = lib->Play(step) + "\n";
            } catch (const std::exception&) {
                outcome = "raised\n";
            }
        }
        outcome += g_Refusals.str() + Files();
        g_Refusals.str("");
        if (lib)
            for (const auto& [name, handle] : lib->variables) {
                std::ostringstream value;
                value << "[0x" << std::hex << reinterpret_cast<std::uintptr_t>(handle) << "]";
                outcome = handle == nullptr ? outcome : Replaced(outcome, value.str(), std::string("[") + name + "]");
            }
        if (verb == "unload") {
            ::CloseHandle(std::exchange(held, nullptr));
            shown.clear();
            for (const auto& entry : fs::directory_iterator(folder.path))
                fs::remove_all(entry);
        }
        return WithoutId(Replaced(outcome, folder.path.string(), "DIR"));
    }

    std::string Files()
    {
        std::string news;
        const Lines files = folder.Files();
        std::erase_if(shown, [&](const auto& file) {
            const bool gone = std::count(files.begin(), files.end(), file.first) == 0;
            news += gone ? "gone " + file.first + "\n" : "";
            return gone;
        });
        for (const std::string& name : files) {
            const std::string real = Replaced(name, "PID", kProcessId);
            const Lines lines = ReadLog(folder.path / std::u8string(real.begin(), real.end()));
            if (shown.count(name) == 0)
                news += name + "\n";
            for (std::size_t& next = shown[name]; next < lines.size();)
                news += lines[next++] + "\n";
        }
        return news;
    }
};

TEST(HostTest, TheTranscriptsComeOutTheSame)
{
    for (const char* name : {"handles", "log", "levels", "folder", "clean-up", "faults"}) {
        Host host;
        const auto [before, after] = Replay(name, [&](const std::string& step) { return host.Do(step); });
        EXPECT_EQ(after, before);
    }
}

}  // namespace
