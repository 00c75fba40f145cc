// The log: when it begins, its name, its lines, its level, and the clean-up of old ones.
#include <ctime>

#include "host.h"

namespace {

TEST(Log, HasLinesInLocalTimeThatEndInCrLf)
{
    SetEnv(L"TZ", L"FAR-11:30");
    const std::time_t now = std::time(nullptr);
    char expected[80];
    std::strftime(expected, sizeof expected, "%Y-%m-%d %H:mm:ss.mmm [O] Created Tarnex Logger level [error]\r\n",
                  std::localtime(&now));
    Host host;
    host.tarnexSetLogLevel_3(7);
    std::string text;
    std::getline(std::ifstream(host.path / *host.Files().begin(), std::ios::binary), text, '\0');
    EXPECT_EQ(text.replace(14, 9, "mm:ss.mmm"), expected);
}

TEST(Log, BeginsWithTheFirstMessageAtTheLevelOfTheEnvironment)
{
    const std::pair<std::wstring, std::string> cases[] = {
        {L"TRACE", "trace"}, {L"Debug", "debug"}, {L"Info", "info"},   {L"Wobble", "warning"},
        {L"C", "critical"},  {L"OFF", "off"},     {L"debug", "error"}, {L"3", "error"}};
    for (const auto& [value, level] : cases) {
        const Host host(value);
        TarnexAuthHandle handle = nullptr;
        host.tarnexCreateAuthHandle_3(&handle);
        EXPECT_EQ(host.Files(), Names());
        host.tarnexSetAuthParams_3(&handle, "k", "v");  // filtered out by most levels
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
    ExpectLog(host, {"[O] Created Tarnex Logger level [warning]",
                     "[W] SetLogLevel() was called whith invalid level [7]", "[O] Logger level was set to [error]",
                     kNoHandle, "[O] Logger level was set to [off]", "[O] Logger level was set to [trace]",
                     "[W] SetLogLevel() was called whith invalid level [-1]", "[T] Logger Flush() was called"});
}

TEST(Log, TellsOfALevelThatIsSetWhileItIsCreated)
{
    static Gate gate;
    Host host;
    ReplaceWriteFile([](auto... what) {
        gate.Pass();
        return ::WriteFile(what...);
    });
    {
        const std::jthread first([&] { host.DeleteNull(); });
        EXPECT_TRUE(WaitFor(gate.reached));
        host.tarnexSetLogLevel_3(TARNEX_LOG_TRACE);
        gate.open = true;
    }
    ExpectLog(host, {"[O] Created Tarnex Logger level [error]", "[O] Logger level was set to [trace]", kNoHandle});
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
    std::ofstream(host.path / (L"Tarnex-B" + id + L"-2.log")) << "before\n";
    host.DeleteNull();
    EXPECT_EQ(host.tarnexSetLogName_3("C"), TARNEX_E_LOG_FILE_EXISTS);
    host.Unload();
    EXPECT_EQ(host.Files(), (Names{L"Tarnex-\u00E4" + id + L".log", L"Tarnex-B" + id + L".log",
                                   L"Tarnex-B" + id + L"-1.log", L"Tarnex-B" + id + L"-2.log"}));
    ExpectLog(host, {"torn: before\r", "[O] Created Tarnex Logger level [error]", kNoHandle});
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
    static Gate gate;
    static const DWORD caller = ::GetCurrentThreadId();
    Host host(L"", L"x");
    Replace<decltype(::DeleteFileW)>("DeleteFileW", [](LPCWSTR name) {
        gate.open = gate.open || ::GetCurrentThreadId() == caller;
        gate.Pass();
        return ::DeleteFileW(name);
    });
    host.AddFile(L"Tarnex-1.log", 100000);
    host.tarnexSetLogLevel_3(7);
    EXPECT_TRUE(WaitFor(gate.reached) && !gate.open);
    host.UseHandle();
    EXPECT_FALSE(host.Unload(0));
    gate.open = true;
    EXPECT_TRUE(host.Unload());
    EXPECT_EQ(host.Files().size(), 1u);
    EXPECT_EQ(host.Log()[1],
              "[E] CleanupFiles(): failed to convert cleanup parameter to integer, defaulting to 24 hours");
}

}  // namespace
