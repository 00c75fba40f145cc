// The library at the worst moments. "stress MOMENT COUNT" goes through one moment so many times (or seconds),
// prints a row "MOMENT | COUNT | what went wrong", and exits with 1 when anything did.
#include <atomic>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "host.h"

namespace {

constexpr DWORD kLimit = 60'000;  // milliseconds for one process; longer is a hang

int g_Failures = 0;
std::string g_FirstFailure = "nothing";
std::string g_Note;

void Fail(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    if (g_Failures++ == 0)
        g_FirstFailure = what;
}

void Check(bool condition, const std::string& what)
{
    if (!condition)
        Fail(what);
}

/** Runs the work on so many threads at once, which start together and are given their number. */
void RunThreads(int count, const std::function<void(int)>& work)
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

/** What the log holds after WriteFirstMessage, where nobody has set a level. */
const Lines kFirstMessage = {"[O] Created Tarnex Logger level [error]",
                             "[E] CreateAuthHandle() hAuth=[0x0] was not found"};

void WriteFirstMessage(Library& lib, std::uintptr_t value = 0)
{
    auto handle = reinterpret_cast<TarnexAuthHandle>(value);
    Check(lib.tarnexDeleteAuthHandle(&handle) == TARNEX_E_HANDLE_NOT_FOUND, "a handle that is none was found");
}

/**
 * Starts this program with the arguments; null when that cannot be done. Wine fails to start one process in
 * some thousands, before any of its code runs (also programs without the library), so it is asked again.
 */
HANDLE StartProcess(const std::wstring& arguments)
{
    static int refused = 0;
    wchar_t program[MAX_PATH];
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring command = L"stress " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (::CreateProcessW(program, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                             &process)) {
            ::CloseHandle(process.hThread);
            return process.hProcess;
        }
        const DWORD error = ::GetLastError();
        g_Note = "; started again, because the system did not: " + std::to_string(++refused) + " (error " +
                 std::to_string(error) + ")";
    }
    return nullptr;
}

/** Runs this program's child part of a moment, time after time, and hands each log to the check. */
void RunProcesses(const std::string& moment, int count, const std::function<void(const Lines&)>& check)
{
    for (int round = 0; round < count; ++round) {
        const LogFolder folder("stress");
        folder.AddExpiredFiles(moment == "first-at-unload" ? 1 : 0);
        const HANDLE child =
            StartProcess(L"--child " + std::wstring(moment.begin(), moment.end()) + L" " + std::to_wstring(round));
        if (child == nullptr) {
            Fail("a process did not start");
            continue;
        }
        if (::WaitForSingleObject(child, kLimit) != WAIT_OBJECT_0) {
            Fail("hang");
            ::TerminateProcess(child, 1);
            ::WaitForSingleObject(child, kLimit);
        } else {
            DWORD code = 0;
            ::GetExitCodeProcess(child, &code);
            Check(code == 0, "exit code " + std::to_string(code));
            const Lines files = folder.Files();
            if (files.size() == 1)
                check(ReadLog(folder.path / files[0]));
            else
                Fail(std::to_string(files.size()) + " files instead of the log alone");
        }
        ::CloseHandle(child);
    }
}

void CheckLines(const Lines& log, const Lines& expected)
{
    for (std::size_t i = 0; i < std::max(log.size(), expected.size()); ++i)
        if (i >= log.size() || i >= expected.size() || log[i] != expected[i])
            return Fail("line " + std::to_string(i) + " is " + (i < log.size() ? log[i] : "missing"));
}

/** Ends the process in one of the two ways there are. */
void Exit(int round)
{
    const int code = g_Failures == 0 ? 0 : 1;
    if (round % 2 == 0)
        ::ExitProcess(static_cast<UINT>(code));
    std::exit(code);
}

// The process exits while four threads are inside calls, in half of the rounds with a full disk.
void ExitBusyChild(int round)
{
    static Library lib;
    static std::atomic<int> calls[4];
    Check(round % 4 < 2 || FillDisk(lib.module), "the disk is not full");
    lib.tarnexSetLogLevel(TARNEX_LOG_TRACE);
    for (auto& count : calls)
        std::thread([&count] {
            for (TarnexAuthHandle handle = nullptr;; ++count) {
                lib.tarnexCreateAuthHandle(&handle);
                lib.tarnexSetAuthParams(&handle, "a key that is not short", "a value that is not short");
                lib.tarnexDeleteAuthHandle(&handle);
                lib.tarnexSetLogLevel(9);  // writes without the session's lock
            }
        }).detach();
    WaitUntil([] { return std::all_of(std::begin(calls), std::end(calls), [](auto& count) { return count > 20; }); });
    Exit(round);
}

void CheckExitBusy(const Lines& log)
{
    for (std::size_t i = 0; i + 1 < log.size(); ++i)  // the end of the last line may have gone with its thread
        Check(log[i].rfind("torn", 0) != 0, "line " + std::to_string(i) + " is " + log[i]);
}

/** Calls in as late as a host can, when exit has ended the other threads. */
void WINAPI CallDuringExit(void* lib)
{
    try {
        WriteFirstMessage(*static_cast<Library*>(lib));
    } catch (const std::system_error&) {
        return;
    }
    ::TerminateProcess(::GetCurrentProcess(), 1);  // the lock of a thread that is no more was not noticed
}

// The process exits while a thread stands still in the middle of writing to the log, with every lock there is.
void ExitStuckChild(int round)
{
    static Library lib;
    static std::atomic<bool> stuck{false};
    WriteFirstMessage(lib);
    decltype(&std::fwrite) const write = [](auto...) {
        for (stuck = true;;)
            ::Sleep(INFINITE);
        return std::size_t{0};
    };
    Check(ReplaceImport(lib.module, "fwrite", write), "the log is not written by fwrite");
    std::thread([] { WriteFirstMessage(lib); }).detach();
    Check(WaitUntil([] { return stuck.load(); }), "nothing was written");
    ::FlsSetValue(::FlsAlloc(CallDuringExit), &lib);
    Exit(round);
}

// Exit, or unload, with handles left and nobody inside a call.
void ExitIdleChild(int round)
{
    Library lib;
    TarnexAuthHandle handles[3] = {};
    lib.tarnexSetLogLevel(TARNEX_LOG_DEBUG);
    for (TarnexAuthHandle& handle : handles)
        lib.tarnexCreateAuthHandle(&handle);
    lib.tarnexSetAuthParams(&handles[0], "k", "v");
    Exit(round);
}

// The process's first message is written by the library's own destructor.
void FirstAtUnloadChild(int round)
{
    Library lib;
    TarnexAuthHandle handle = nullptr;
    lib.tarnexSetLogLevel(TARNEX_LOG_DEBUG);
    lib.tarnexCreateAuthHandle(&handle);
    if (round % 3 == 2) {
        ::FreeLibrary(lib.module);
        Check(!Library::IsLoaded(), "a thread was started in a module that is going away");
    }
    Exit(round);
}

void FirstMessageChild(int)
{
    SetEnv(L"TARNEX_LOG_LEVEL", L"W");
    Library lib;
    RunThreads(16, [&](int number) {
        for (int i = 0; i < 16; ++i) {
            // The session lets one thread through at a time; an invalid level passes it by.
            if (number % 2 == 0)
                WriteFirstMessage(lib, static_cast<std::uintptr_t>(number) + 0x10);
            else
                lib.tarnexSetLogLevel(static_cast<uint32_t>(number) + 0x10);
        }
    });
}

void CheckFirstMessage(const Lines& log)
{
    Lines expected(256);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const std::size_t value = i / 16 + 0x10;
        expected[i] =
            value % 2 == 0
                ? "[E] CreateAuthHandle() hAuth=[" + Hex(reinterpret_cast<TarnexAuthHandle>(value)) + "] was not found"
                : "[W] SetLogLevel() was called whith invalid level [" + std::to_string(value) + "]";
    }
    std::sort(expected.begin(), expected.end());
    Lines sorted(log.begin(), log.end());
    if (!sorted.empty())
        std::sort(sorted.begin() + 1, sorted.end());
    expected.insert(expected.begin(), "[O] Created Tarnex Logger level [warning]");
    CheckLines(sorted, expected);
}

void LevelRaceChild(int round)
{
    Library lib;
    TarnexAuthHandle handle = nullptr;
    lib.tarnexCreateAuthHandle(&handle);
    RunThreads(2, [&](int number) {
        if (number == 0)
            return WriteFirstMessage(lib);
        for (std::atomic<int> delay = round * 37 % 64 * 5000; delay > 0;)  // all over the creation of the logger
            --delay;
        lib.tarnexSetLogLevel(TARNEX_LOG_DEBUG);
    });
    lib.tarnexRemoveAuthParams(&handle, "k");
}

void CheckLevelRace(const Lines& log)
{
    const Lines end(log.end() - std::min<std::ptrdiff_t>(2, std::ssize(log)), log.end());
    CheckLines(end, {"[D] RemoveAuthParam() key=[k] was not found", "[D] ~CSession() for (auto h : m_Handles)"});
}

// The library is unloaded right after the first message, with much to do for the retention pass.
void UnloadDuringPass(int count)
{
    const LogFolder folder("stress");
    for (int round = 0; round < count; ++round) {
        folder.AddExpiredFiles(4000);
        Library lib;
        WriteFirstMessage(lib);
        Check(lib.Unload(), "the module stays");
        Check(folder.Files() == Lines{"Tarnex-PID.log"}, "the pass is not over");
        fs::remove(folder.LogPath());
    }
}

/** What the process uses, counted by hand because Wine does not tell. */
struct Usage
{
    int handles = 0;
    int slots = 0;
    SIZE_T memory = 0;

    Usage()
    {
        DWORD flags = 0;
        for (std::uintptr_t value = 4; value < 0x8000; value += 4)
            handles += ::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags);
        std::vector<DWORD> left;
        for (DWORD slot; (slot = ::TlsAlloc()) != TLS_OUT_OF_INDEXES;)
            left.push_back(slot);
        for (const DWORD slot : left)
            ::TlsFree(slot);
        slots = 1088 - static_cast<int>(left.size());
        MEMORY_BASIC_INFORMATION region;
        for (char* at = nullptr; ::VirtualQuery(at, &region, sizeof region) != 0; at += region.RegionSize)
            memory += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize / 1024 : 0;
    }
};

// Loads, writes one message, unloads; again and again in one process.
void Reload(int count)
{
    const LogFolder folder("stress");
    const auto run = [&](int rounds) {
        for (int round = 0; round < rounds; ++round) {
            Library lib;
            WriteFirstMessage(lib);
            Check(lib.Unload(), "the module stays");
            CheckLines(ReadLog(folder.LogPath()), kFirstMessage);
            fs::remove(folder.LogPath());
        }
        return Usage();
    };
    const Usage half = run(count / 2), full = run(count - count / 2);
    const auto show = [](const char* what, auto before, auto after) {
        return what + std::to_string(before) + " to " + std::to_string(after);
    };
    g_Note = show("; from half-way to the end handles ", half.handles, full.handles) +
             show(", thread-local slots ", half.slots, full.slots) + show(", private KB ", half.memory, full.memory);
    Check(full.handles <= half.handles, "handles grow");
    Check(full.slots <= half.slots, "thread-local slots grow");
    Check(full.memory <= half.memory + 256, "private memory grows");
}

// Eight threads do everything at once for so many seconds.
void Mixed(int seconds)
{
    const LogFolder folder("stress");
    Library lib;
    lib.tarnexSetLogLevel(TARNEX_LOG_TRACE);
    const ULONGLONG end = ::GetTickCount64() + static_cast<ULONGLONG>(seconds) * 1000;
    std::atomic<TarnexAuthHandle> shown[8] = {};  // lets threads use each other's handles, live or stale
    RunThreads(8, [&](int number) {
        std::mt19937 random(static_cast<unsigned>(number));
        TarnexAuthHandle own = nullptr;
        const std::string key = std::to_string(number);
        for (int step = 0; ::GetTickCount64() < end; ++step) {
            TarnexAuthHandle other = shown[random() % 8];
            TarnexResult result = 0;
            switch (random() % 16) {
                case 0:
                    result = lib.tarnexCreateAuthHandle(&own) % TARNEX_E_HANDLE_EXISTS;
                    shown[number] = own;
                    break;
                case 1:
                    result = lib.tarnexDeleteAuthHandle(&own) % TARNEX_E_HANDLE_NOT_FOUND;
                    break;
                case 2:
                    result = lib.tarnexSetAuthParams(&other, "other", "x") % TARNEX_E_HANDLE_NOT_FOUND;
                    break;
                case 3:
                    result = lib.tarnexRemoveAuthParams(&other, "other");
                    result = result == TARNEX_E_PARAM_NOT_FOUND ? 0 : result % TARNEX_E_HANDLE_NOT_FOUND;
                    break;
                case 4:
                    result = lib.tarnexSetLogLevel(random() % 64 == 0 ? random() % 7 : 0);
                    break;
                case 5:
                    result = lib.tarnexFlushLog();
                    break;
                default:
                    result = lib.tarnexSetAuthParams(&own, key.c_str(), std::to_string(step).c_str()) % 13;
            }
            Check(result == 0, "result " + std::to_string(result));
        }
    });
    Check(lib.Unload(), "the module stays");

    std::map<std::string, long> last;
    const std::string set = "[D] SetAuthParam(): parameter key=[";
    for (const std::string& line : ReadLog(folder.LogPath())) {
        Check(line.rfind("torn", 0) != 0, line);
        if (line.rfind(set, 0) == 0 && line.find("other") == std::string::npos) {
            const long step = std::atol(line.c_str() + line.rfind('[') + 1);
            long& before = last.try_emplace(line.substr(set.size(), 1), -1).first->second;
            Check(step > before, "out of order: " + line);
            before = step;
        }
    }
    Check(last.size() == 8, "threads without a line");
}

// Random calls of one thread against a model.
void Model(int count)
{
    const LogFolder folder("stress");
    Library lib;
    std::mt19937 random(7);
    std::map<TarnexAuthHandle, std::set<std::string>> model;
    TarnexAuthHandle variables[16] = {};
    lib.tarnexSetLogLevel(TARNEX_LOG_OFF);
    for (int i = 0; i < count; ++i) {
        TarnexAuthHandle& variable = variables[random() % 16];
        const TarnexAuthHandle before = variable;
        const auto known = model.find(before);
        const bool live = known != model.end();
        const std::string key = std::to_string(random() % 8);
        TarnexResult expected = live ? TARNEX_OK : TARNEX_E_HANDLE_NOT_FOUND, result = expected;
        switch (random() % 5) {
            case 0:
                result = lib.tarnexCreateAuthHandle(&variable);
                expected = live ? TARNEX_E_HANDLE_EXISTS : TARNEX_OK;
                Check(live ? variable == before : model.try_emplace(variable).second, "created the wrong handle");
                break;
            case 1:
                result = lib.tarnexDeleteAuthHandle(&variable);
                Check(variable == (live ? nullptr : before), "deletion left the wrong variable");
                model.erase(before);
                break;
            case 2:
                result = lib.tarnexSetAuthParams(&variable, key.c_str(), "value");
                if (live)
                    known->second.insert(key);
                break;
            case 3:
                result = lib.tarnexRemoveAuthParams(&variable, key.c_str());
                if (live && known->second.erase(key) == 0)
                    expected = TARNEX_E_PARAM_NOT_FOUND;
                break;
            default:
                variable = variables[random() % 16];
        }
        Check(result == expected, "call " + std::to_string(i) + " gave " + std::to_string(result));
    }
    WriteFirstMessage(lib);
    lib.tarnexSetLogLevel(TARNEX_LOG_DEBUG);
    Check(lib.Unload(), "the module stays");
    Lines expected = {"[O] Created Tarnex Logger level [off]", "[O] Logger level was set to [debug]"};
    expected.insert(expected.end(), model.size(), "[D] ~CSession() for (auto h : m_Handles)");
    CheckLines(ReadLog(folder.LogPath()), expected);
}

// Random bytes, and random characters, as log names.
void Names(int count)
{
    const LogFolder folder("stress");
    Library lib;
    std::mt19937 random(11);
    std::size_t created = 0;
    for (int i = 0; i < count; ++i) {
        std::string name(random() % 40, ' ');
        for (char& byte : name)  // no colon: it would name a stream of another file
            byte = i % 2 == 0 ? static_cast<char>(random() % 255 + 1) : "abc\xC3\xA4<?\"|*/.\\ "[random() % 14];
        std::replace(name.begin(), name.end(), ':', ';');
        try {
            const TarnexResult result = lib.tarnexSetLogName(name.c_str());
            Check(result == 0 || result == 7, "result " + std::to_string(result));
            created += result == 0;
        } catch (const std::range_error& error) {
            Check(error.what() == std::string("bad conversion"), error.what());
        }
    }
    Check(folder.Files().size() == created, "files without a 0");
    Check(created > 0, "no name was accepted");
    Check(lib.Unload(), "the module stays");
}

// The log's disk, which the caller provides in TARNEX_LOG_DIR, fills up or goes away for so many seconds.
void Disk(int seconds)
{
    Library lib;
    lib.tarnexSetLogLevel(TARNEX_LOG_TRACE);
    TarnexAuthHandle handle = nullptr;
    const ULONGLONG end = ::GetTickCount64() + static_cast<ULONGLONG>(seconds) * 1000;
    while (::GetTickCount64() < end) {
        Check(lib.tarnexCreateAuthHandle(&handle) == TARNEX_OK, "create");
        Check(lib.tarnexCreateAuthHandle(&handle) == TARNEX_E_HANDLE_EXISTS, "create again");
        Check(lib.tarnexSetAuthParams(&handle, "k", "v") == TARNEX_OK, "set");
        Check(lib.tarnexRemoveAuthParams(&handle, "x") == TARNEX_E_PARAM_NOT_FOUND, "remove");
        Check(lib.tarnexFlushLog() == TARNEX_OK, "flush");
        Check(lib.tarnexDeleteAuthHandle(&handle) == TARNEX_OK, "delete");
    }
    Check(lib.Unload(), "the module stays");
}

}  // namespace

int main(int argc, char** argv)
{
    const bool child = argc == 4 && argv[1] == std::string("--child");
    const std::string moment = child ? argv[2] : argc == 3 ? argv[1] : "";
    const int count = argc >= 3 ? std::atoi(argv[argc - 1]) : 0;
    SetEnv(L"TARNEX_LOG_LEVEL", L"");

    const Lines left(3, "[D] ~CSession() for (auto h : m_Handles)");
    Lines idle = {"[O] Created Tarnex Logger level [debug]",
                  "[D] SetAuthParam(): parameter key=[k] is set to value=[v]"};
    idle.insert(idle.end(), left.begin(), left.end());
    const Lines first = {"[O] Created Tarnex Logger level [debug]", left[0]};

    struct ProcessMoment
    {
        void (*child)(int round);
        std::function<void(const Lines&)> check;
    };
    const std::map<std::string, ProcessMoment> processMoments = {
        {"exit-busy", {ExitBusyChild, CheckExitBusy}},
        {"exit-stuck", {ExitStuckChild, [](const Lines& log) { CheckLines(log, kFirstMessage); }}},
        {"exit-idle", {ExitIdleChild, [&](const Lines& log) { CheckLines(log, idle); }}},
        {"first-at-unload", {FirstAtUnloadChild, [&](const Lines& log) { CheckLines(log, first); }}},
        {"first-message", {FirstMessageChild, CheckFirstMessage}},
        {"level-race", {LevelRaceChild, CheckLevelRace}}};
    const std::map<std::string, void (*)(int)> moments = {{"unload-during-pass", UnloadDuringPass},
                                                          {"reload", Reload},
                                                          {"mixed", Mixed},
                                                          {"model", Model},
                                                          {"names", Names},
                                                          {"disk", Disk}};
    if (const auto found = processMoments.find(moment); found != processMoments.end()) {
        if (child) {
            found->second.child(count);
            return g_Failures == 0 ? 0 : 1;
        }
        RunProcesses(moment, count, found->second.check);
    } else if (const auto other = moments.find(moment); other != moments.end()) {
        other->second(count);
    } else {
        std::fprintf(stderr, "usage: stress MOMENT COUNT\n");
        return 2;
    }
    std::printf("%-20s | %9d | %d: %s%s\n", moment.c_str(), count, g_Failures, g_FirstFailure.c_str(), g_Note.c_str());
    return g_Failures == 0 ? 0 : 1;
}
