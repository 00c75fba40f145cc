// Handles and their parameters, in one thread and in many.
#include <gtest/gtest.h>
#include <process.h>

#include <regex>

#include "host.h"

namespace {

TEST(Demo, GetsEachResultThatItExpectsAndLogsEachCall)
{
    const LogFolder folder;
    EXPECT_EQ(::_spawnl(_P_WAIT, "demo.exe", "demo.exe", nullptr), 0);
    Lines log = folder.Log();
    for (std::string& line : log)
        line = std::regex_replace(line, std::regex("0x[1-9a-f][0-9a-f]+"), "ALICE");
    EXPECT_EQ(log, (Lines{"[O] Created Tarnex Logger level [trace]",
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
                          "[T] Logger Flush() was called"}));
}

TEST(Handles, ReplaceAnyValueHoldAnyBytesAndAreNullAfterDeletion)
{
    Host host(L"I");
    auto handle = reinterpret_cast<TarnexAuthHandle>(std::uintptr_t{0xDEADBEEF});
    EXPECT_EQ(host.tarnexDeleteAuthHandle_3(&handle), TARNEX_E_HANDLE_NOT_FOUND);
    host.tarnexCreateAuthHandle_3(&handle);
    const std::string key = "{}{0}%s \xC3\xA4\xFF" + std::string(500, 'x');
    host.tarnexSetAuthParams_3(&handle, key.c_str(), key.c_str());
    host.tarnexRemoveAuthParams_3(&handle, key.c_str());
    host.tarnexDeleteAuthHandle_3(&handle);
    EXPECT_EQ(handle, nullptr);
    host.Unload();
    EXPECT_EQ(host.Log(), (Lines{"[O] Created Tarnex Logger level [info]",
                                 "[E] CreateAuthHandle() hAuth=[0xdeadbeef] was not found",
                                 "[I] RemoveAuthParam() parameter key=[" + key + "] was removed"}));
}

TEST(Threads, RaceForTheFirstMessageAndGetTheResultsThatEachWouldGetAlone)
{
    for (int round = 0; round < 40; ++round) {
        Host host(L"W");
        RunThreads(6, [&](int number) {
            if (number == 0)
                host.tarnexSetLogName_3("x");
            if (number == 1)
                host.tarnexSetLogLevel_3(TARNEX_LOG_TRACE);
            for (int i = 0; i < 50; ++i)
                EXPECT_TRUE(host.UseHandle());
        });
        host.Unload();
        const Lines log = host.Log();
        EXPECT_EQ(host.Files().size(), 1u);
        EXPECT_EQ(std::count(log.begin(), log.end(), kNoHandle), 300);
        EXPECT_EQ(log.back(), "[T] Logger Flush() was called");
        for (const std::string& line : log)
            EXPECT_EQ(line[0], '[') << line;
    }
}

}  // namespace
