// The library's end: it is unloaded, or the process exits.
#include "host.h"

namespace {

const std::string kCreated = "[O] Created Tarnex Logger level [debug]";

TEST(Unloading, LogsTheHandlesLeftAndFlushesTheLogOrMakesOne)
{
    for (const bool logged : {true, false}) {
        Host host(L"D");
        TarnexAuthHandle handle = nullptr;
        host.AddFile(L"Tarnex-1.log", 1445);
        host.tarnexCreateAuthHandle_3(&handle);
        if (logged)
            host.DeleteNull();
        host.Unload();
        EXPECT_EQ(host.Files(), Names{host.logName});
        ExpectLog(host, logged ? Lines{kCreated, kNoHandle, kLeftBehind} : Lines{kCreated, kLeftBehind});
    }
}

/** What the process has: handles, those of them that child processes inherit, and private memory in MB. */
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

TEST(ChildProcesses, DoNotInheritTheLog)
{
    const Host host;
    const Usage before;
    host.DeleteNull();
    EXPECT_EQ(Usage().inherited, before.inherited);
}

TEST(Unloading, LeavesNothingInTheProcess)
{
    Usage early;
    for (int round = 0; round < 120; ++round) {
        Host host;
        TarnexAuthHandle handles[20] = {};  // of which every second one is left behind
        for (int i = 0; i < 20; ++i) {
            host.tarnexCreateAuthHandle_3(&handles[i]);
            host.tarnexSetAuthParams_3(&handles[i], "k", std::string(50000, 'x').c_str());
            if (i % 2 == 0)
                host.tarnexDeleteAuthHandle_3(&handles[i]);
        }
        host.Unload();
        if (round == 20)
            early = Usage();
    }
    // Much less than 100 loads would leave, and more than what the system keeps for a while.
    EXPECT_LE(Usage().handles, early.handles + 20);
    EXPECT_LE(Usage().bytes, early.bytes + 16'000'000);
}

/** Has a process of its own exit with a handle left. No clean-up: Wine may not survive its interruption. */
struct ExitingHost : Host
{
    static inline std::atomic<bool> isHeld{false};
    static inline Gate gate;
    ExitingHost() : Host(L"D")
    {
        Replace<decltype(::CreateThread)>("CreateThread", [](auto...) {
            if (isHeld)
                gate.Pass();
            return HANDLE{};
        });
    }
    /** Ends the process after this work, or while another thread stands at the gate; systems then differ in the code.
     */
    void Exit(const auto& work, bool atTheGate = false) const
    {
        TarnexAuthHandle handle = nullptr;
        EXPECT_EXIT(
            {
                tarnexCreateAuthHandle_3(&handle);
                work();
                if (atTheGate) {
                    std::thread([&] { DeleteNull(); }).detach();
                    WaitFor(gate.reached);
                }
                ::ExitProcess(0);
            },
            [=](int code) { return code == 0 || atTheGate; }, "");
    }
};

TEST(Exit, FlushesTheLog)
{
    const ExitingHost host;
    host.Exit([&] { host.DeleteNull(); });
    ExpectLog(host, {kCreated, kNoHandle, kLeftBehind});
}

TEST(Exit, MakesALogForTheHandlesLeft)
{
    const ExitingHost host;
    host.Exit([] {});
    ExpectLog(host, {kCreated, kLeftBehind});
}

TEST(Exit, InACallOnHandlesLeavesTheHandlesAlone)
{
    const ExitingHost host;
    host.Exit([] { ExitingHost::isHeld = true; }, true);
    ExpectLog(host, {kCreated});
}

TEST(Exit, InTheMiddleOfAWriteLeavesEachLineOnce)
{
    const ExitingHost host;
    host.Exit(
        [&] {
            host.DeleteNull();
            ReplaceWriteFile([](auto... what) {
                const BOOL isWritten = ::WriteFile(what...);
                ExitingHost::gate.Pass();
                return isWritten;
            });
        },
        true);
    ExpectLog(host, {kCreated, kNoHandle, kNoHandle});
}

TEST(Exit, InsideCallsEndsTheProcessAndLeavesNoLineTornOrTwice)
{
    const ExitingHost host;
    host.Exit(
        [&] {
            std::atomic<int> calls{0};
            RunThreads(5, [&](int number) {
                while (number > 0 || calls < 100)
                    host.UseHandle(std::to_string(++calls));
                ::ExitProcess(0);
            });
        },
        true);
    const Lines log = host.Log();
    std::set<std::string> once;
    EXPECT_GT(log.size(), 1u);
    for (const std::string& line : log) {
        EXPECT_TRUE(line[0] == '[' || &line == &log.back()) << line;  // the last one's end may have gone
        EXPECT_TRUE(!line.starts_with("[D] Set") || once.insert(line).second) << "twice: " << line;
    }
}

}  // namespace
