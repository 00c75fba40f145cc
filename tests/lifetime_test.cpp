// The library's end: it is unloaded, or the process exits.
#include "host.h"

namespace {

const std::string kCreated = "[O] Created Tarnex Logger level [debug]";

TEST(Unloading, LogsTheHandlesLeftAndFlushesTheLogOrMakesOne)
{
    for (const bool logged : {true, false}) {
        Host host(L"D");
        host.AddFile(L"Tarnex-1.log", 1445);
        host.tarnexCreateAuthHandle_3(&host.handle);
        if (logged)
            host.DeleteNull();
        host.Unload();
        EXPECT_EQ(host.Files(), Names{host.logName});
        ExpectLog(host.Log(), logged ? Lines{kCreated, kNoHandle, kLeftBehind} : Lines{kCreated, kLeftBehind});
    }
}

/** What a process has: handles, those of them that child processes inherit, and private memory. */
struct Usage
{
    Usage()
    {
        for (std::uintptr_t value = 4; value < 8192; value += 4) {
            DWORD flags = 0;
            handles += ::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != FALSE;
            inherited += (flags & HANDLE_FLAG_INHERIT) != 0;
        }
        MEMORY_BASIC_INFORMATION region;
        for (char* at = nullptr; ::VirtualQuery(at, &region, sizeof region) != 0; at += region.RegionSize)
            bytes += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
    }
    int handles = 0, inherited = 0;
    std::size_t bytes = 0;
};

TEST(Unloading, LeavesNothingInTheProcessOrInItsChildren)
{
    Usage before, early;
    for (int round = 0; round < 120 && !HasFailure(); ++round) {
        Host host;
        const std::string large(50000, 'x');
        for (int i = 0; i < 10 && !HasFailure(); ++i) {
            host.UseHandle(large);
            host.handle = nullptr;  // the one before is left behind
            host.tarnexCreateAuthHandle_3(&host.handle);
            host.tarnexSetAuthParams_3(&host.handle, "k", large.c_str());
        }
        if (round == 20)
            early = Usage();
    }
    EXPECT_EQ(early.inherited, before.inherited);
    // Much less than 100 loads would leave, and more than what the system keeps for a while.
    EXPECT_LE(Usage().handles, early.handles + 20);
    EXPECT_LE(Usage().bytes, early.bytes + 16'000'000);
}

/** A host of a process of its own that exits. Without the clean-up: Wine may not survive its interruption. */
struct ExitingHost : Host
{
    ExitingHost() : Host(L"D")
    {
        Replace<decltype(::CreateThread)>(L"Tarnex_3", "CreateThread", [](auto...) { return HANDLE{}; });
    }
    static bool AnyCode(int) { return true; }  // systems differ in it when exit ends threads inside calls
    void ExitWithHandle()
    {
        tarnexCreateAuthHandle_3(&handle);
        ::ExitProcess(0);
    }
};

TEST(Exit, FlushesTheLog)
{
    ExitingHost host;
    EXPECT_EXIT((host.DeleteNull(), host.ExitWithHandle()), testing::ExitedWithCode(0), "");
    ExpectLog(host.Log(), {kCreated, kNoHandle, kLeftBehind});
}

TEST(Exit, MakesALogForTheHandlesLeft)
{
    ExitingHost host;
    EXPECT_EXIT(host.ExitWithHandle(), testing::ExitedWithCode(0), "");
    ExpectLog(host.Log(), {kCreated, kLeftBehind});
}

TEST(Exit, InTheMiddleOfAWriteLeavesEachLineOnce)
{
    static std::atomic<bool> isWritten;
    const ExitingHost host;
    const auto exitAfterWrite = [&] {
        host.DeleteNull();
        ReplaceWriteFile([](auto... what) {
            ::WriteFile(what...);
            if (!isWritten.exchange(true))
                ::Sleep(INFINITE);
            return TRUE;
        });
        std::thread([&] { host.DeleteNull(); }).detach();
        WaitFor(isWritten);
        ::ExitProcess(0);
    };
    EXPECT_EXIT(exitAfterWrite(), ExitingHost::AnyCode, "");
    ExpectLog(host.Log(), {kCreated, kNoHandle, kNoHandle});
}

TEST(Exit, InsideCallsEndsTheProcessAndLeavesNoLineTorn)
{
    const ExitingHost host;
    const auto exitInsideCalls = [&] {
        std::atomic<int> calls{0};
        RunThreads(5, [&](int number) {
            while (number > 0 || calls < 100)
                host.UseHandle(std::to_string(++calls));
            ::ExitProcess(0);
        });
    };
    EXPECT_EXIT(exitInsideCalls(), ExitingHost::AnyCode, "");
    const Lines log = host.Log();
    EXPECT_GT(log.size(), 1u);
    for (const std::string& line : log)
        EXPECT_TRUE(line[0] == '[' || &line == &log.back()) << line;  // the last one's end may have gone
}

}  // namespace
