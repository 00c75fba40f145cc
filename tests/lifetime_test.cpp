// The library's end: it is unloaded, or the process exits.
#include <gtest/gtest.h>

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
        EXPECT_EQ(host.Log(), (logged ? Lines{kCreated, kNoHandle, kLeftBehind} : Lines{kCreated, kLeftBehind}));
        EXPECT_EQ(host.Files(), Names{L"Tarnex-" + host.processId + L".log"});
    }
}

/** The handle that the process would get next, and its private memory in KB. */
std::pair<HANDLE, std::size_t> GetUsage()
{
    const HANDLE next = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ::CloseHandle(next);
    std::size_t memory = 0;
    MEMORY_BASIC_INFORMATION region;
    for (char* at = nullptr; ::VirtualQuery(at, &region, sizeof region) != 0; at += region.RegionSize)
        memory += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize / 1024 : 0;
    return {next, memory};
}

TEST(Unloading, LeavesNothingInTheProcess)
{
    std::pair<HANDLE, std::size_t> early;
    for (int round = 0; round < 120; ++round) {
        TarnexAuthHandle handle = nullptr;
        Host host;
        host.tarnexCreateAuthHandle_3(&handle);
        host.tarnexSetAuthParams_3(&handle, "k", std::string(50000, 'x').c_str());
        host.UseHandle(std::string(50000, 'x'));
        host.Unload();
        if (round == 20)
            early = GetUsage();
    }
    EXPECT_LE(GetUsage().first, early.first);
    EXPECT_LE(GetUsage().second, early.second + 4096);  // the stack of an ended thread may still be there
}

// A process that the test starts; systems differ in its exit code. No clean-up: Wine may not survive its interruption.
struct ExitingHost : Host
{
    static inline std::atomic<bool> standStill{false};
    ExitingHost() : Host(L"D")
    {
        ReplaceImport(module.get(), &::CreateThread, [](auto...) {
            if (standStill.exchange(false))
                ::Sleep(INFINITE);
            return HANDLE{};
        });
    }
};

TEST(Exit, InsideCallsEndsTheProcessAndLeavesNoLineTornOrTwice)
{
    const ExitingHost host;
    EXPECT_EXIT(
        {
            std::atomic<int> calls{0};
            RunThreads(5, [&](int number) {
                while (number > 0 || calls < 100)
                    host.UseHandle(std::to_string(++calls));
                ::ExitProcess(0);
            });
        },
        [](int) { return true; }, "");
    const Lines log = host.Log();
    std::set<std::string> once;
    EXPECT_GT(log.size(), 1u);
    for (const std::string& line : log) {
        EXPECT_TRUE(line[0] == '[' || &line == &log.back()) << line;  // the last one's end may have gone
        EXPECT_TRUE(!line.starts_with("[D] Set") || once.insert(line).second) << "twice: " << line;
    }
}

TEST(Exit, FlushesTheLogUnlessItEndsAThreadInACall)
{
    const std::tuple<bool, bool, Lines> cases[] = {{true, false, {kCreated, kNoHandle, kLeftBehind}},
                                                   {false, false, {kCreated, kLeftBehind}},
                                                   {false, true, {kCreated}}};
    for (const auto& [logged, inACall, expected] : cases) {
        const ExitingHost host;
        TarnexAuthHandle handle = nullptr;
        EXPECT_EXIT(
            {
                host.tarnexCreateAuthHandle_3(&handle);
                if (logged)
                    host.DeleteNull();
                host.standStill = inACall;
                if (inACall)
                    std::thread([&] { host.DeleteNull(); }).detach();
                WaitUntil([&] { return !host.standStill; });
                ::ExitProcess(0);
            },
            [](int) { return true; }, "");
        EXPECT_EQ(host.Log(), expected);
    }
}

}  // namespace
