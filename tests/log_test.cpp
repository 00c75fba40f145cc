// The log: when it begins, its name, its lines, its level, and the clean-up of old ones.
#include <ctime>

#include "host.h"

namespace {

TEST(Log, HasLinesInLocalTimeThatEndInCrLf)
{
    SetEnv(L"TZ", L"FAR-11:30");
    const std::time_t now = std::time(nullptr);
    char text[100] = "", expected[100];
    std::strftime(expected, sizeof expected, "%Y-%m-%d %H:mm:ss.mmm [O] Created Tarnex Logger level [error]\r\n",
                  std::localtime(&now));
    const Host host;
    host.tarnexSetLogLevel_3(7);
    std::ifstream(host.path / host.logName, std::ios::binary).read(text, sizeof text - 1);
    std::copy_n("mm:ss.mmm", 9, text + 14);
    EXPECT_STREQ(text, expected);
}

TEST(Log, BeginsWithTheFirstMessageAtTheLevelOfTheEnvironment)
{
    const std::pair<std::wstring, std::string> cases[] = {
        {L"TRACE", "trace"}, {L"Debug", "debug"}, {L"Info", "info"},   {L"Wobble", "warning"},
        {L"C", "critical"},  {L"OFF", "off"},     {L"debug", "error"}, {L"3", "error"}};
    for (const auto& [value, level] : cases) {
        Host host(value);
        host.tarnexCreateAuthHandle_3(&host.handle);
        EXPECT_EQ(host.Files(), Names());
        host.tarnexSetAuthParams_3(&host.handle, "k", "v");  // filtered out by most levels
        EXPECT_EQ(host.Log(), Lines{"[O] Created Tarnex Logger level [" + level + "]"}) << value;
    }
}

TEST(Log, TakesItsLevelFromTheHostAndHoldsLinesBelowErrUntilAFlush)
{
    Host host(L"T");
    host.tarnexSetLogLevel_3(TARNEX_LOG_WARN);
    host.tarnexSetLogLevel_3(7);
    host.tarnexSetLogLevel_3(TARNEX_LOG_ERR);
    EXPECT_EQ(host.Log().size(), 1u);
    host.DeleteNull();
    host.tarnexSetLogLevel_3(TARNEX_LOG_OFF);
    host.DeleteNull();
    host.tarnexSetLogLevel_3(TARNEX_LOG_TRACE);
    host.tarnexSetLogLevel_3(0xFFFFFFFF);
    EXPECT_EQ(host.Log().size(), 4u);
    host.tarnexFlushLog_3();
    ExpectLog(host.Log(),
              {"[O] Created Tarnex Logger level [warning]", "[W] SetLogLevel() was called whith invalid level [7]",
               "[O] Logger level was set to [error]", kNoHandle, "[O] Logger level was set to [off]",
               "[O] Logger level was set to [trace]", "[W] SetLogLevel() was called whith invalid level [-1]",
               "[T] Logger Flush() was called"});
}

TEST(Log, TakesANameFromTheHostUntilItBegins)
{
    Host host;
    const std::wstring id = L"-" + host.processId;
    host.tarnexSetLogName_3("\xC3\xA4");
    EXPECT_EQ(host.tarnexSetLogName_3("no/such"), TARNEX_E_INVALID_ARGUMENT);
    EXPECT_THROW(host.tarnexSetLogName_3("\xFF"), std::range_error);
    for (int i = 0; i < 3; ++i)
        host.tarnexSetLogName_3("B");
    host.DeleteNull();
    EXPECT_EQ(host.tarnexSetLogName_3("C"), TARNEX_E_LOG_FILE_EXISTS);
    host.Unload();
    EXPECT_EQ(host.Files(), (Names{L"Tarnex-\u00E4" + id + L".log", L"Tarnex-B" + id + L".log",
                                   L"Tarnex-B" + id + L"-1.log", L"Tarnex-B" + id + L"-2.log"}));
    ExpectLog(host.Log(), {"[O] Created Tarnex Logger level [error]", kNoHandle});
}

TEST(CleanUp, DeletesTheLibrarysFilesThatAreOlderThanTheHoursAskedFor)
{
    const std::pair<std::wstring, int> cases[] = {{L"", 24}, {L" 48", 48}, {L"0", 0}, {L"-1", -1}, {L"48h", 24}};
    for (const auto& [value, hours] : cases) {
        Host host(L"", value);
        for (const wchar_t* name : {L"Tarnex-1.log", L"Tarnex50.log", L"Tarnex-9.tmp", L"TarnexX.tmp"})
            host.AddFile(name, hours * 60 + 5);
        host.AddFile(L"Tarnex-2.log", hours * 60 - 5);
        host.DeleteNull();
        host.Unload();
        EXPECT_EQ(host.Files(), (Names{host.logName, L"Tarnex-2.log", L"TarnexX.tmp"})) << value;
    }
}

TEST(CleanUp, RunsInTheBackgroundAndKeepsTheDllLoaded)
{
    static std::atomic<bool> isAtWork, mayGoOn;
    isAtWork = mayGoOn = false;
    Host host(L"", L"x");
    Replace<decltype(::DeleteFileW)>(L"Tarnex_3", "DeleteFileW", [](LPCWSTR name) {
        isAtWork = true;
        WaitFor(mayGoOn);
        return ::DeleteFileW(name);
    });
    host.AddFile(L"Tarnex-1.log", 100000);
    host.tarnexSetLogLevel_3(7);
    EXPECT_TRUE(WaitFor(isAtWork) && !host.Unload(0));
    EXPECT_EQ(host.Files().size(), 2u);
    mayGoOn = true;
    EXPECT_TRUE(host.Unload());
    ExpectLog(host.Log(),
              {"[O] Created Tarnex Logger level [error]",
               "[E] CleanupFiles(): failed to convert cleanup parameter to integer, defaulting to 24 hours"});
}

}  // namespace
