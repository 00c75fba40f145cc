// The moments that need a process for each round: its first message, and its end. Each test starts itself once more
// for each round, which TARNEX_TEST_ROUND tells the process, and then reads the log that the process has left.
#include <gtest/gtest.h>
#include <process.h>

#include <set>
#include <system_error>

#include "host.h"
#include "image.h"

namespace {

class ProcessTest : public testing::Test
{
protected:
    /** In the test itself; false in the processes that it starts. */
    const bool isTest = ::_wgetenv(L"TARNEX_TEST_ROUND") == nullptr;
    int round = isTest ? 0 : std::stoi(::_wgetenv(L"TARNEX_TEST_ROUND"));

    /** Ends the process in one of the two ways there are. */
    void Exit() const { round % 2 == 0 ? ::ExitProcess(HasFailure()) : std::exit(HasFailure()); }

    /** Runs a process for each round, from the folder of the program. */
    void RunProcesses(int usual, const std::function<void(const Lines&)>& check)
    {
        const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
        const std::string filter = std::string("--gtest_filter=ProcessTest.") + test->name();
        for (round = 0; round < GetCount(usual); ++round) {
            const LogFolder folder;
            SetEnv(L"TARNEX_TEST_ROUND", std::to_wstring(round));
            std::intptr_t code = -1;  // Wine fails to start one in some thousands, also those without the library
            for (int attempt = 0; attempt < 3 && code == -1; ++attempt)
                code = ::_spawnl(_P_WAIT, "host_test.exe", "host_test", filter.c_str(), nullptr);
            EXPECT_EQ(code, 0) << "in round " << round;
            const Lines files = folder.Files();
            EXPECT_LE(files.size(), 1u);
            check(files.empty() ? Lines() : ReadLog(folder.path / files[0]));
        }
    }
};

// The process exits while four threads are inside calls, in half of the rounds with a full disk.
TEST_F(ProcessTest, ExitBusy)
{
    if (isTest)
        return RunProcesses(8, [](const Lines& log) {
            std::set<std::string> values;
            for (const std::string& line : log) {
                EXPECT_TRUE(line[0] == '[' || &line == &log.back()) << line;  // the last one's end may have gone
                EXPECT_TRUE(!line.starts_with("[D] Set") || values.insert(line).second) << "twice: " << line;
            }
        });
    static Library lib;
    static std::atomic<int> calls[4];
    lib.Play("@0 -0");
    EXPECT_TRUE(round % 4 < 2 || FillDisk());
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
    for (auto& count : calls)
        EXPECT_TRUE(WaitUntil([&] { return count > 20; }));
    Exit();
}

// Where a thread of this process stands still for good: at its n-th visit to a function.
std::atomic<DWORD> g_Victim{0};
std::atomic<int> g_VisitsLeft{0};

void StandStill()
{
    if (::GetCurrentThreadId() == g_Victim && --g_VisitsLeft == 0)
        ::Sleep(INFINITE);
}

/** Calls in as late as a host can, when exit has ended the other threads. */
void WINAPI CallDuringExit(void* lib)
{
    try {
        static_cast<Library*>(lib)->Play("#x -0");
        ::TerminateProcess(::GetCurrentProcess(), 1);  // the lock of a thread that is no more was not noticed
    } catch (const std::system_error&) {
    }
}

// The process exits with handles left, in two ways. Nobody is inside a call, and the log's first message has been
// written before (0), or is not written until then (1); or a thread stands still with a line just written (2), in the
// creation of the log (3), or with the session's lock (4).
TEST_F(ProcessTest, ExitWithHandles)
{
    if (isTest)
        return RunProcesses(10, [this](const Lines& log) {
            const std::string created = "[O] Created Tarnex Logger level [debug]";
            const Lines expected[] = {{created, kNoHandle, kLeftBehind, kLeftBehind},
                                      {created, kLeftBehind, kLeftBehind},
                                      {created, kNoHandle, kNoHandle},
                                      {},
                                      {created, kNoHandle, "[W] SetLogName() was called after log file was created"}};
            EXPECT_EQ(log, expected[round % 5]);
        });
    static Library lib;
    const int where = round % 5;
    EXPECT_TRUE(RefuseThreads(lib.module));
    lib.Play(where == 1 || where == 3 ? "@1 +a +b" : "@1 +a +b -0");
    if (where > 1) {
        EXPECT_TRUE(where == 2 ? WatchWrites(StandStill) : WatchLocks(lib.module, StandStill));
        g_VisitsLeft = where == 2 ? 1 : where == 3 ? 3 : 2;
        std::thread([] {
            g_Victim = ::GetCurrentThreadId();
            lib.Play("-0");
        }).detach();
        EXPECT_TRUE(WaitUntil([] { return g_VisitsLeft == 0; }));
        ::FlsSetValue(::FlsAlloc(CallDuringExit), &lib);
        ::ExitProcess(HasFailure());
    }
    Exit();
}

// Threads write the first message while others name the log and set its level; in some rounds there can be no log.
TEST_F(ProcessTest, FirstMessages)
{
    if (isTest)
        return RunProcesses(40, [this](const Lines& log) {
            const auto count = [&](const std::string& line) { return std::count(log.begin(), log.end(), line); };
            const std::ptrdiff_t late = count("[W] SetLogName() was called after log file was created") +
                                        count("[O] Logger level was set to [debug]");
            const int each = round % 4 == 3 ? 0 : round % 2 == 0 ? 16 : 128;
            EXPECT_EQ(std::ssize(log), each == 0 ? 0 : 2 * each + 3 + late);
            EXPECT_EQ(count(kNoHandle), each);
            EXPECT_EQ(count("[W] SetLogLevel() was called whith invalid level [9]"), each);
            const Lines end = {log.end() - (log.size() < 2 ? 0 : 2), log.end()};
            EXPECT_EQ(end, each == 0 ? Lines() : Lines({"[D] RemoveAuthParam() key=[k] was not found", kLeftBehind}));
        });
    SetEnv(L"TARNEX_LOG_LEVEL", L"W");
    static Library lib;
    static std::atomic<int> attempts{0}, arrived{0};
    decltype(&::CreateFileW) const refuse = [](auto...) -> HANDLE {
        WaitUntil([] { return arrived == 16; });
        ::SetLastError(++attempts == 1 ? ERROR_FILE_EXISTS : ERROR_DISK_FULL);  // the probe's error is a good one
        return INVALID_HANDLE_VALUE;
    };
    const bool refused = round % 4 == 3;
    const int writers = round % 2 == 0 ? 2 : 16;
    EXPECT_TRUE(RefuseThreads(lib.module));
    EXPECT_TRUE(!refused || ReplaceImport(lib.module, "CreateFileW", refuse));
    lib.Play("+a");
    RunThreads(refused ? writers : writers + 2, [&](int number) {
        Library own = lib;
        const std::string call = number == writers ? "#x" : number > writers ? "@1" : number % 2 == 0 ? "-0" : "@9";
        for (std::atomic<int> delay = number / writers * (round * 37 % 64) * 5000; delay > 0;)  // all over the creation
            --delay;
        ++arrived;
        for (int i = number < writers ? 16 : 1; i > 0; --i)
            own.Play(call);
    });
    lib.Play("a.k");
    EXPECT_TRUE(!refused || attempts == 2) << "creation was tried again";
    Exit();
}

}  // namespace
