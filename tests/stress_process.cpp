// The moments that need a process for each round: its first message, and its end.
#include <set>
#include <system_error>

#include "image.h"
#include "stress.h"

namespace {

/** Ends the process in one of the two ways there are. */
void Exit(int round)
{
    const int code = g_Failures == 0 ? 0 : 1;
    if (round % 2 == 0)
        ::ExitProcess(static_cast<UINT>(code));
    std::exit(code);
}

// The process exits while four threads are inside calls, in half of the rounds with a full disk.
void ExitBusy(int round)
{
    static Library lib;
    static std::atomic<int> calls[4];
    lib.Play("@0 -0");
    Check(round % 4 < 2 || FillDisk(), "the disk is not full");
    for (auto& count : calls)
        std::thread([&count] {
            TarnexAuthHandle handle = nullptr;
            for (const std::string name = "a value of thread " + std::to_string(&count - calls) + ", number ";;
                 ++count) {
                lib.tarnexCreateAuthHandle(&handle);
                lib.tarnexSetAuthParams(&handle, "a key that is not short", (name + std::to_string(count)).c_str());
                lib.tarnexDeleteAuthHandle(&handle);
                lib.tarnexSetLogLevel(9);  // writes without the session's lock
            }
        }).detach();
    WaitUntil([] { return std::all_of(std::begin(calls), std::end(calls), [](auto& count) { return count > 20; }); });
    Exit(round);
}

Lines ExpectBusy(const Lines& log, int)
{
    std::set<std::string> values;
    Lines expected;
    for (const std::string& line : log) {  // the end of the last line may have gone with its thread
        const bool whole = line[0] == '[' || &line == &log.back();
        const bool once = line.rfind("[D] Set", 0) != 0 || values.insert(line).second;
        expected.push_back(whole && once ? line : "a whole line, once");
    }
    return expected;
}

std::atomic<DWORD> g_Victim{0};
std::atomic<bool> g_Stuck{false};

/** Stops the victim for good at its n-th visit. */
void StandStillAt(int n)
{
    static int visits = 0;
    if (::GetCurrentThreadId() == g_Victim && ++visits == n)
        for (g_Stuck = true;;)
            ::Sleep(INFINITE);
}

/** At once, or when the line has been written. */
template <int FirstVisit>
BOOL WINAPI StopInWriteFile(HANDLE file, const void* data, DWORD size, DWORD* written, OVERLAPPED* late)
{
    StandStillAt(FirstVisit);
    const BOOL result = ::WriteFile(file, data, size, written, late);
    StandStillAt(2);
    return result;
}

/** The first file that is created is the probe. */
HANDLE WINAPI StopInCreateFile(LPCWSTR name, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                               DWORD disposition, DWORD flags, HANDLE like)
{
    StandStillAt(2);
    return ::CreateFileW(name, access, sharing, security, disposition, flags, like);
}

/** Each lock of the library asks this: the session's first, then the handle's. */
BOOLEAN NTAPI StopInHandle()
{
    static FARPROC const original = ::GetProcAddress(::GetModuleHandleW(L"ntdll"), "RtlDllShutdownInProgress");
    StandStillAt(2);
    return static_cast<BOOLEAN>(original());
}

/** Calls in as late as a host can, when exit has ended the other threads. */
void WINAPI CallDuringExit(void* lib)
{
    try {
        static_cast<Library*>(lib)->Play("-0");
    } catch (const std::system_error&) {
        return;
    }
    ::TerminateProcess(::GetCurrentProcess(), 1);  // the lock of a thread that is no more was not noticed
}

// The process exits while a thread stands still with the session's lock and perhaps more: before a line is written,
// with the line written, in the creation of the log, and in a handle.
void ExitStuck(int round)
{
    static Library lib;
    const int where = round % 4;
    Check(RefuseThreads(lib.module), "nobody starts threads");
    lib.Play(where == 2 ? "@1 +a +b" : "@1 +a +b -0");
    Check(where != 0 || ReplaceWriteFile(StopInWriteFile<1>), "nobody writes");
    Check(where != 1 || ReplaceWriteFile(StopInWriteFile<2>), "nobody writes");
    Check(where != 2 || ReplaceImport(lib.module, "CreateFileW", StopInCreateFile), "nobody creates files");
    Check(where != 3 || ReplaceImport(lib.module, "RtlDllShutdownInProgress", StopInHandle), "nobody asks");
    std::thread([where] {
        g_Victim = ::GetCurrentThreadId();
        lib.Play(where == 3 ? "a.k=v" : "-0");
    }).detach();
    Check(WaitUntil([] { return g_Stuck.load(); }), "the thread did not get there");
    ::FlsSetValue(::FlsAlloc(CallDuringExit), &lib);
    ::ExitProcess(g_Failures == 0 ? 0 : 1);
}

Lines ExpectStuck(const Lines&, int round)
{
    Lines expected = FirstMessage("debug");
    if (round % 4 == 1)
        expected.push_back(expected.back());
    return round % 4 == 2 ? Lines() : expected;
}

// Exit, or unload, with handles left and nobody inside a call. The log's first message has been written before, or is
// written by the library's own destructor.
void LeaveHandles(int round, const char* calls)
{
    Library lib;
    Check(round % 3 == 2 || RefuseThreads(lib.module), "nobody starts threads");
    lib.Play(calls);
    if (round % 3 == 2) {
        ::FreeLibrary(lib.module);
        Check(calls[3] == '-' || !IsLibraryLoaded(), "a thread was started in a module that is going away");
    }
    Exit(round);
}

void ExitIdle(int round)
{
    LeaveHandles(round, "@1 -0 +a +b +c");
}

Lines ExpectIdle(const Lines&, int)
{
    return {FirstMessage("debug")[0], FirstMessage("")[1], kLeftBehind, kLeftBehind, kLeftBehind};
}

void FirstAtUnload(int round)
{
    LeaveHandles(round, "@1 +a");
}

Lines ExpectFirstAtUnload(const Lines&, int)
{
    return {FirstMessage("debug")[0], kLeftBehind};
}

// Sixteen threads write the first message while another names the log; in some rounds there can be no log.
void FirstMessages(int round)
{
    SetEnv(L"TARNEX_LOG_LEVEL", L"W");
    static Library lib;
    static std::atomic<int> attempts{0}, arrived{0};
    decltype(&::CreateFileW) const refuse = [](auto...) -> HANDLE {
        WaitUntil([] { return arrived == 16; });
        ::SetLastError(++attempts == 1 ? ERROR_FILE_EXISTS : ERROR_DISK_FULL);  // the probe's error is a good one
        return INVALID_HANDLE_VALUE;
    };
    const bool refused = round % 4 == 3;
    Check(!refused || ReplaceImport(lib.module, "CreateFileW", refuse), "nobody creates files");
    RunThreads(refused ? 16 : 17, [&](int number) {
        TarnexAuthHandle none = nullptr;
        if (number == 16) {
            const std::string name = lib.tarnexSetLogName("x") == TARNEX_OK ? "Tarnex-x-" : "Tarnex-";
            lib.tarnexDeleteAuthHandle(&none);
            Check(fs::exists(fs::path(::_wgetenv(L"TARNEX_LOG_DIR")) / (name + ProcessId() + ".log")), "another name");
        }
        ++arrived;
        for (int i = 0; number < 16 && i < 16; ++i)  // the session lets one thread through at a time; a level is free
            if ((number % 2 == 0 ? lib.tarnexDeleteAuthHandle(&none) : lib.tarnexSetLogLevel(9)) == TARNEX_OK)
                Check(false, "a call gave 0");
    });
    Check(!refused || attempts == 2, "creation was tried again");
}

Lines ExpectFirstMessages(const Lines& log, int round)
{
    const auto count = [&](const std::string& line) { return std::count(log.begin(), log.end(), line); };
    const auto tooLate = count("[W] SetLogName() was called after log file was created");
    const bool right = count(FirstMessage("")[1]) == 129 && tooLate <= 1 && std::ssize(log) == 258 + tooLate &&
                       count("[W] SetLogLevel() was called whith invalid level [9]") == 128 &&
                       log[0] == FirstMessage("warning")[0];
    return round % 4 == 3 ? Lines() : right ? log : Lines{"each message once"};
}

// A level is set while the first message creates the log.
void LevelRace(int round)
{
    Library lib;
    Check(RefuseThreads(lib.module), "nobody starts threads");
    lib.Play("+a");
    RunThreads(2, [&](int number) {
        for (std::atomic<int> delay = number * (round * 37 % 64) * 5000; delay > 0;)  // all over the creation
            --delay;
        TarnexAuthHandle none = nullptr;
        number == 0 ? lib.tarnexDeleteAuthHandle(&none) : lib.tarnexSetLogLevel(TARNEX_LOG_DEBUG);
    });
    lib.Play("a.k");
}

Lines ExpectLevelRace(const Lines& log, int)
{
    Lines expected(log.begin(), log.end() - std::min<std::ptrdiff_t>(2, std::ssize(log)));
    expected.insert(expected.end(), {"[D] RemoveAuthParam() key=[k] was not found", kLeftBehind});
    return expected;
}

}  // namespace

const std::map<std::string, ProcessMoment> g_ProcessMoments = {
    {"exit-busy", {ExitBusy, ExpectBusy}},
    {"exit-stuck", {ExitStuck, ExpectStuck}},
    {"exit-idle", {ExitIdle, ExpectIdle}},
    {"first-at-unload", {FirstAtUnload, ExpectFirstAtUnload}},
    {"first-message", {FirstMessages, ExpectFirstMessages}},
    {"level-race", {LevelRace, ExpectLevelRace}}};
