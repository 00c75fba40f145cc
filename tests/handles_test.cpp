// Handles and their parameters, in one thread and in many.
#include <regex>

#include "host.h"

namespace {

TEST(Demo, GetsEachResultThatItExpectsAndLogsEachCall)
{
    const LogFolder folder;
    EXPECT_EQ(std::system("demo.exe"), 0);
    Lines log = folder.Log();
    for (std::string& line : log)
        line = std::regex_replace(line, std::regex("0x[1-9a-f][0-9a-f]+"), "ALICE");
    ExpectLog(log, {"[O] Created Tarnex Logger level [trace]",
                    "[T] SetAuthParam() called with key=[user], value=[alice]",
                    "[D] SetAuthParam(): parameter key=[user] is set to value=[alice]",
                    "[T] SetAuthParam() called with key=[User], value=[case matters]",
                    "[D] SetAuthParam(): parameter key=[User] is set to value=[case matters]",
                    "[T] SetAuthParam() called with key=[user], value=[alice@example.com]",
                    "[D] SetAuthParam(): parameter key=[user] is set to value=[alice@example.com]",
                    "[T] SetAuthParam() called with key=[], value=[]",
                    "[D] SetAuthParam(): parameter key=[] is set to value=[]",
                    "[T] RemoveAuthParam() called with key=[User]",
                    "[I] RemoveAuthParam() parameter key=[User] was removed",
                    "[E] CreateAuthHandle() hAuth=[ALICE] was already created",
                    "[T] RemoveAuthParam() called with key=[User]",
                    "[D] RemoveAuthParam() key=[User] was not found",
                    "[W] SetLogName() was called after log file was created",
                    "[W] SetLogLevel() was called whith invalid level [7]",
                    "[E] SetAuthParam() hAuth=[ALICE] was not found",
                    "[E] RemoveAuthParam() hAuth=[ALICE] was not found",
                    "[E] CreateAuthHandle() hAuth=[ALICE] was not found",
                    kNoHandle,
                    "[T] Logger Flush() was called",
                    "[T] Logger Flush() was called"});
}

TEST(Handles, ReplaceAnyValueAndHoldAnyBytes)
{
    Host host(L"I");
    host.handle = reinterpret_cast<TarnexAuthHandle>(std::uintptr_t{0xDEADBEEF});
    const std::string key = "{}{0}%s \xC3\xA4\xFF" + std::string(500, 'x');
    EXPECT_EQ(host.tarnexDeleteAuthHandle_3(&host.handle), TARNEX_E_HANDLE_NOT_FOUND);
    EXPECT_EQ(host.tarnexCreateAuthHandle_3(&host.handle), TARNEX_OK);
    EXPECT_EQ(host.tarnexSetAuthParams_3(&host.handle, key.c_str(), key.c_str()), TARNEX_OK);
    EXPECT_EQ(host.tarnexRemoveAuthParams_3(&host.handle, key.c_str()), TARNEX_OK);
    host.Unload();
    ExpectLog(host.Log(),
              {"[O] Created Tarnex Logger level [info]", "[E] CreateAuthHandle() hAuth=[0xdeadbeef] was not found",
               "[I] RemoveAuthParam() parameter key=[" + key + "] was removed"});
}

TEST(Threads, MakeOneLogAndGetTheResultsThatEachWouldGetAlone)
{
    static std::atomic<int> started;
    static std::atomic<bool> isCreating;
    started = 0;
    isCreating = false;
    Host host(L"W");
    // The log is created only when all are on their way and its level has been changed.
    ReplaceWriteFile([](auto... what) {
        isCreating = true;
        while (started < 6)
            std::this_thread::yield();
        return ::WriteFile(what...);
    });
    RunThreads(6, [&](int number) {
        if (number == 5 && WaitFor(isCreating))
            host.tarnexSetLogLevel_3(TARNEX_LOG_TRACE);
        ++started;
        host.tarnexSetLogLevel_3(7);
        for (int i = 0; i < 3000 && !HasFailure(); ++i)
            host.UseHandle();
    });
    host.Unload();
    const Lines log = host.Log();
    EXPECT_EQ(std::count(log.begin(), log.end(), "[O] Logger level was set to [trace]"), 1);
    EXPECT_EQ(log.size(), 108009u);
}

}  // namespace
