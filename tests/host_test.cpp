// The finished DLL, used through its exports as an application uses it, and the log file it writes.
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <thread>

#include "host.h"

namespace {

class HostTest : public testing::Test
{
protected:
    /** Loads the library with these settings in the environment; an empty one is not set. */
    void Load(const std::wstring& level = L"", const std::wstring& hours = L"")
    {
        SetEnv(L"TARNEX_LOG_LEVEL", level);
        SetEnv(L"TARNEX_LOG_CLEANUP", hours);
        lib.emplace();
        ASSERT_NE(lib->module, nullptr);
    }

    /** Ends the log by unloading the library, and reads it. */
    Lines EndLog(const std::string& custom = "")
    {
        EXPECT_TRUE(lib->Unload());
        return ReadLog(folder.LogPath(custom));
    }

    LogFolder folder{"host"};
    std::optional<Library> lib;
    TarnexAuthHandle none = nullptr;
};

TEST_F(HostTest, VersionIsOneConstantTextAndTouchesNothing)
{
    Load();
    const char *first = nullptr, *second = nullptr;
    EXPECT_EQ(lib->tarnexGetAPIVersion(&first), 0u);
    EXPECT_EQ(lib->tarnexGetAPIVersion(&second), 0u);
    EXPECT_STREQ(first, "3.1.1.43");
    EXPECT_EQ(first, second);
    EXPECT_TRUE(lib->Unload());
    EXPECT_EQ(folder.Files(), Lines{});
}

TEST_F(HostTest, HandlesLiveUntilDeletedAndStaleOnesAreRefused)
{
    Load(L"T");
    auto garbage = reinterpret_cast<TarnexAuthHandle>(0xDEADBEEF);
    TarnexAuthHandle a = garbage, b = nullptr;
    EXPECT_EQ(lib->tarnexCreateAuthHandle(&a), 0u);
    EXPECT_EQ(lib->tarnexCreateAuthHandle(&b), 0u);
    EXPECT_NE(a, b);
    const TarnexAuthHandle live = a;
    EXPECT_EQ(lib->tarnexCreateAuthHandle(&a), 14u);
    EXPECT_EQ(a, live);
    EXPECT_EQ(lib->tarnexSetAuthParams(&a, "k", "1"), 0u);
    EXPECT_EQ(lib->tarnexSetAuthParams(&a, "", ""), 0u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(&a, "K"), 16u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(&b, "k"), 16u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(&a, "k"), 0u);
    TarnexAuthHandle stale = a;
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&a), 0u);
    EXPECT_EQ(a, nullptr);
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&a), 13u);
    EXPECT_EQ(lib->tarnexSetAuthParams(&stale, "k", "2"), 13u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(&stale, "k"), 13u);
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&garbage), 13u);
    EXPECT_EQ(stale, live);
    const std::string gone = Hex(live);
    EXPECT_EQ(EndLog(),
              (Lines{"[O] Created Tarnex Logger level [trace]",
                     "[E] CreateAuthHandle() hAuth=[" + gone + "] was already created",
                     "[T] SetAuthParam() called with key=[k], value=[1]",
                     "[D] SetAuthParam(): parameter key=[k] is set to value=[1]",
                     "[T] SetAuthParam() called with key=[], value=[]",
                     "[D] SetAuthParam(): parameter key=[] is set to value=[]",
                     "[T] RemoveAuthParam() called with key=[K]", "[D] RemoveAuthParam() key=[K] was not found",
                     "[T] RemoveAuthParam() called with key=[k]", "[D] RemoveAuthParam() key=[k] was not found",
                     "[T] RemoveAuthParam() called with key=[k]", "[I] RemoveAuthParam() parameter key=[k] was removed",
                     "[E] CreateAuthHandle() hAuth=[0x0] was not found",
                     "[E] SetAuthParam() hAuth=[" + gone + "] was not found",
                     "[E] RemoveAuthParam() hAuth=[" + gone + "] was not found",
                     "[E] CreateAuthHandle() hAuth=[0xdeadbeef] was not found",
                     "[D] ~CSession() for (auto h : m_Handles)",  // b was left behind
                     "[T] Logger Flush() was called"}));
}

TEST_F(HostTest, NullStringsAreRefusedBeforeAnythingIsRead)
{
    Load(L"T");
    EXPECT_EQ(lib->tarnexSetAuthParams(nullptr, nullptr, "v"), 7u);
    EXPECT_EQ(lib->tarnexSetAuthParams(nullptr, "k", nullptr), 7u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(nullptr, nullptr), 7u);
    EXPECT_TRUE(lib->Unload());
    EXPECT_EQ(folder.Files(), Lines{});
}

TEST_F(HostTest, KeysAndValuesMayBeAnyBytesOfAnyLength)
{
    Load(L"D");
    std::string bytes = "{}{0}%s";
    for (int byte = 1; byte < 256; ++byte)
        bytes += byte == '\r' ? ' ' : static_cast<char>(byte);  // ReadLog takes CR LF for the end of a line
    const std::string huge(1 << 20, 'x');
    TarnexAuthHandle handle = nullptr;
    ASSERT_EQ(lib->tarnexCreateAuthHandle(&handle), 0u);
    EXPECT_EQ(lib->tarnexSetAuthParams(&handle, bytes.c_str(), huge.c_str()), 0u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(&handle, bytes.c_str()), 0u);
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&handle), 0u);
    EXPECT_EQ(EndLog(), (Lines{"[O] Created Tarnex Logger level [debug]",
                               "[D] SetAuthParam(): parameter key=[" + bytes + "] is set to value=[" + huge + "]",
                               "[I] RemoveAuthParam() parameter key=[" + bytes + "] was removed"}));
}

TEST_F(HostTest, LevelComesFromTheFirstLetterOfTheEnvironment)
{
    const std::pair<const wchar_t*, const char*> cases[] = {
        {L"", "error"},    {L"TRACE", "trace"},   {L"Debug", "debug"},    {L"debug", "error"},
        {L"Info", "info"}, {L"W", "warning"},     {L"Wobble", "warning"}, {L"3", "error"},
        {L"E", "error"},   {L"Crit", "critical"}, {L"OFF", "off"},        {L" T", "error"}};
    for (const auto& [value, name] : cases) {
        Load(value);
        lib->tarnexDeleteAuthHandle(&none);
        const std::string created = std::string("[O] Created Tarnex Logger level [") + name + "]";
        EXPECT_EQ(EndLog().at(0), created);
        fs::remove(folder.LogPath());
    }
}

TEST_F(HostTest, LevelIsSetBeforeAndAfterCreation)
{
    Load(L"T");
    EXPECT_EQ(lib->tarnexSetLogLevel(2), 0u);
    EXPECT_EQ(folder.Files(), Lines{});  // a valid level makes no logger
    EXPECT_EQ(lib->tarnexSetLogLevel(7), 7u);
    EXPECT_EQ(lib->tarnexSetLogLevel(4294967295u), 7u);
    EXPECT_EQ(lib->tarnexSetLogLevel(3), 0u);
    EXPECT_EQ(lib->tarnexSetLogLevel(6), 0u);
    EXPECT_EQ(lib->tarnexSetLogLevel(7), 7u);
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&none), 13u);
    EXPECT_EQ(lib->tarnexSetLogLevel(0), 0u);
    EXPECT_EQ(EndLog(),
              (Lines{"[O] Created Tarnex Logger level [info]", "[W] SetLogLevel() was called whith invalid level [7]",
                     "[W] SetLogLevel() was called whith invalid level [-1]", "[O] Logger level was set to [warning]",
                     "[O] Logger level was set to [off]", "[O] Logger level was set to [trace]",
                     "[T] Logger Flush() was called"}));
}

TEST_F(HostTest, FirstMessageCreatesTheLogEvenWhenItIsFilteredOut)
{
    Load();
    TarnexAuthHandle handle = nullptr;
    EXPECT_EQ(lib->tarnexCreateAuthHandle(&handle), 0u);
    EXPECT_EQ(lib->tarnexFlushLog(), 40u);
    EXPECT_EQ(folder.Files(), Lines{});
    EXPECT_EQ(lib->tarnexSetAuthParams(&handle, "k", "v"), 0u);
    EXPECT_EQ(lib->tarnexFlushLog(), 0u);
    EXPECT_EQ(EndLog(), Lines{"[O] Created Tarnex Logger level [error]"});
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-PID.log"});
}

TEST_F(HostTest, BufferedLinesReachTheFileByErrorsAndFlushes)
{
    Load(L"T");
    const auto read = [this] { return ReadLog(folder.LogPath()).size(); };
    EXPECT_EQ(lib->tarnexSetLogLevel(9), 7u);
    EXPECT_EQ(read(), 1u);  // only the creation line was flushed
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&none), 13u);
    EXPECT_EQ(read(), 3u);
    EXPECT_EQ(lib->tarnexFlushLog(), 0u);
    EXPECT_EQ(read(), 4u);
    lib->Unload();
}

TEST_F(HostTest, LogNameGoesIntoTheFileNameUntilTheLogExists)
{
    Load(L"W");
    folder.AddFile("Tarnex-B-" + std::to_string(::GetCurrentProcessId()) + ".log");
    folder.AddFile("Tarnex-B-" + std::to_string(::GetCurrentProcessId()) + "-1.log");
    EXPECT_EQ(lib->tarnexSetLogName("\xC3\xA4\xF0\x9F\x98\x80"), 0u);
    EXPECT_EQ(lib->tarnexSetLogName("no/such"), 7u);
    EXPECT_EQ(lib->tarnexSetLogName("B"), 0u);
    for (const char* malformed : {"\xC3", "\xE4x", "\xED\xA0\x80", "\xC0\x80", "\xF4\x90\x80\x80"}) {
        try {
            lib->tarnexSetLogName(malformed);
            ADD_FAILURE() << "accepted";
        } catch (const std::range_error& error) {
            EXPECT_STREQ(error.what(), "bad conversion");
        }
    }
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&none), 13u);
    EXPECT_EQ(lib->tarnexSetLogName("C"), 39u);
    EXPECT_TRUE(lib->Unload());
    EXPECT_EQ(folder.Files(), (Lines{"Tarnex-B-PID-1.log", "Tarnex-B-PID-2.log", "Tarnex-B-PID.log",
                                     "Tarnex-\xC3\xA4\xF0\x9F\x98\x80-PID.log"}));
    fs::path written = folder.LogPath("-B");
    written.replace_filename(written.stem().string() + "-2.log");
    EXPECT_EQ(ReadLog(written),
              (Lines{"[O] Created Tarnex Logger level [warning]", "[E] CreateAuthHandle() hAuth=[0x0] was not found",
                     "[W] SetLogName() was called after log file was created"}));
}

TEST_F(HostTest, WithoutALogFileEveryCallStillAnswersTheSame)
{
    Load(L"T");
    decltype(&::CreateFileW) const refuse = [](auto...) -> HANDLE {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    };
    ASSERT_TRUE(ReplaceImport(lib->module, "CreateFileW", refuse));
    TarnexAuthHandle handle = nullptr;
    EXPECT_EQ(lib->tarnexSetLogName("x"), 7u);
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&none), 13u);
    ASSERT_TRUE(ReplaceImport(lib->module, "CreateFileW", &::CreateFileW));  // too late: creation is not tried again
    EXPECT_EQ(lib->tarnexCreateAuthHandle(&handle), 0u);
    EXPECT_EQ(lib->tarnexCreateAuthHandle(&handle), 14u);
    EXPECT_EQ(lib->tarnexSetAuthParams(&handle, "k", "v"), 0u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(&handle, "x"), 16u);
    EXPECT_EQ(lib->tarnexSetLogLevel(1), 0u);
    EXPECT_EQ(lib->tarnexSetLogLevel(9), 7u);
    EXPECT_EQ(lib->tarnexFlushLog(), 40u);
    EXPECT_EQ(folder.Files(), Lines{});
    EXPECT_EQ(lib->tarnexSetLogName("x"), 0u);  // makes a file that nothing will write
    EXPECT_TRUE(lib->Unload());
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-x-PID.log"});
}

TEST_F(HostTest, AFullDiskChangesNoResult)
{
    Load(L"T");
    EXPECT_EQ(lib->tarnexDeleteAuthHandle(&none), 13u);
    ASSERT_TRUE(FillDisk(lib->module));
    TarnexAuthHandle handle = nullptr;
    EXPECT_EQ(lib->tarnexCreateAuthHandle(&handle), 0u);
    EXPECT_EQ(lib->tarnexCreateAuthHandle(&handle), 14u);
    EXPECT_EQ(lib->tarnexSetAuthParams(&handle, "k", "v"), 0u);
    EXPECT_EQ(lib->tarnexFlushLog(), 0u);
    EXPECT_EQ(EndLog(),
              (Lines{"[O] Created Tarnex Logger level [trace]", "[E] CreateAuthHandle() hAuth=[0x0] was not found"}));
}

TEST_F(HostTest, AnErrorWhileTheLogIsOpenedLeavesTheCallAndTheNextMessageTriesAgain)
{
    for (const bool releasedInTime : {true, false}) {
        Load(L"D");
        EXPECT_EQ(lib->tarnexSetLogName("x"), 0u);
        TarnexAuthHandle handle = nullptr;
        ASSERT_EQ(lib->tarnexCreateAuthHandle(&handle), 0u);
        const HANDLE taken =
            ::CreateFileW(folder.LogPath("-x").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(taken, INVALID_HANDLE_VALUE);
        const TarnexAuthHandle before = handle;
        EXPECT_THROW(lib->tarnexCreateAuthHandle(&handle), std::exception);
        EXPECT_EQ(handle, before);
        Lines expected;
        if (releasedInTime) {
            ::CloseHandle(taken);
            EXPECT_EQ(lib->tarnexCreateAuthHandle(&handle), 14u);
            expected = {"[O] Created Tarnex Logger level [debug]",
                        "[E] CreateAuthHandle() hAuth=[" + Hex(before) + "] was already created",
                        "[D] ~CSession() for (auto h : m_Handles)"};
        }
        EXPECT_TRUE(lib->Unload());  // the handle left behind asks for the log once more
        if (!releasedInTime)
            ::CloseHandle(taken);
        EXPECT_EQ(ReadLog(folder.LogPath("-x")), expected);
        fs::remove(folder.LogPath("-x"));
    }
}

TEST_F(HostTest, RetentionDeletesWhatIsOlderThanTheLimit)
{
    const std::tuple<const char*, int, bool> files[] = {
        // name, age in hours, whether it is the library's
        {"Tarnex-23h.log", 23, true}, {"Tarnex-25h.log", 25, true}, {"Tarnex50h.log", 50, true},
        {"Tarnex-9.tmp", 30, true},   {"TarnexX.tmp", 99, false},   {"OtherTool.log", 99, false},
        {"Tarnex-x.txt", 99, false},  {"Tarnex-dir.log", 99, false}};  // the last one is a folder
    const std::tuple<const wchar_t*, int, bool> cases[] = {
        // setting, hours that it stands for, whether malformed
        {L"", 24, false}, {L"48", 48, false}, {L" +48", 48, false},      {L"48h", 24, true},
        {L"0", 0, false}, {L"-1", -1, false}, {L"2147483648", 24, true}, {L"100", 100, false}};
    for (const auto& [setting, hours, malformed] : cases) {
        fs::create_directory(folder.path / "Tarnex-dir.log");
        Lines expected = {"Tarnex-PID.log"};
        for (const auto& [name, age, ours] : files) {
            if (!fs::is_directory(folder.path / name))
                folder.AddFile(name, age);
            if (!ours || age < hours)
                expected.emplace_back(name);
        }
        std::sort(expected.begin(), expected.end());
        Load(L"", setting);
        lib->tarnexDeleteAuthHandle(&none);
        Lines log = {"[O] Created Tarnex Logger level [error]", "[E] CreateAuthHandle() hAuth=[0x0] was not found"};
        if (malformed)
            log.push_back("[E] CleanupFiles(): failed to convert cleanup parameter to integer, defaulting to 24 hours");
        Lines written = EndLog();
        std::sort(written.begin() + 1, written.end(), std::greater<>());  // two threads wrote these
        EXPECT_EQ(written, log) << setting;
        EXPECT_EQ(folder.Files(), expected) << setting;
        fs::remove(folder.LogPath());
    }
}

TEST_F(HostTest, WithoutAThreadTheCleanUpIsOverWhenTheCallReturns)
{
    Load();
    folder.AddExpiredFiles(3);
    decltype(&::CreateThread) const refuse = [](auto...) -> HANDLE { return nullptr; };
    ASSERT_TRUE(ReplaceImport(lib->module, "CreateThread", refuse));
    lib->tarnexDeleteAuthHandle(&none);
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-PID.log"});
    ::FreeLibrary(lib->module);
    EXPECT_FALSE(Library::IsLoaded());
}

}  // namespace
