// The finished DLL, used through its exports as an application uses it, and the log file it writes.
#include <gtest/gtest.h>

#include <ctime>
#include <optional>
#include <stdexcept>

#include "host.h"
#include "image.h"

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
    }

    /** Ends the log by unloading the library, reads it, and removes it. */
    Lines EndLog(const std::string& custom = "")
    {
        EXPECT_TRUE(lib->Unload());
        Lines lines = ReadLog(folder.LogPath(custom));
        fs::remove(folder.LogPath(custom));
        return lines;
    }

    LogFolder folder;
    std::optional<Library> lib;
};

TEST_F(HostTest, TheDllExportsEightNamesAndNeedsWindowsAlone)
{
    Load();
    const auto* table = At<IMAGE_EXPORT_DIRECTORY>(lib->module, Header(lib->module).DataDirectory[0].VirtualAddress);
    Lines exports;
    for (DWORD i = 0; i < table->NumberOfNames; ++i)
        exports.emplace_back(At<char>(lib->module, At<DWORD>(lib->module, table->AddressOfNames)[i]));
    EXPECT_EQ(exports, (Lines{"tarnexCreateAuthHandle_3", "tarnexDeleteAuthHandle_3", "tarnexFlushLog_3",
                              "tarnexGetAPIVersion_3", "tarnexRemoveAuthParams_3", "tarnexSetAuthParams_3",
                              "tarnexSetLogLevel_3", "tarnexSetLogName_3"}));
    ForEachImport(lib->module, [](const std::string& dll, const char* name, void*) {
        const Lines windows = {"ADVAPI32.dll", "KERNEL32.dll", "SHELL32.dll", "SHLWAPI.dll", "msvcrt.dll", "ntdll.dll"};
        const bool known = std::count(windows.begin(), windows.end(), dll) == 1;
        EXPECT_TRUE(known || dll.rfind("api-ms-win-crt-", 0) == 0) << dll << " for " << name;
    });
    const int hardened = IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA | IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE |
                         IMAGE_DLLCHARACTERISTICS_NX_COMPAT | TARNEX_GUARD_CF * IMAGE_DLLCHARACTERISTICS_GUARD_CF;
    EXPECT_EQ(Header(lib->module).DllCharacteristics & hardened, hardened);
    // The numbers of the version follow a header of 40 bytes.
    const HRSRC version = ::FindResourceW(lib->module, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
    ASSERT_NE(version, nullptr);
    const auto* numbers = static_cast<const DWORD*>(::LockResource(::LoadResource(lib->module, version))) + 10;
    EXPECT_EQ((std::vector<DWORD>{numbers[2], numbers[3], numbers[4], numbers[5]}),
              (std::vector<DWORD>{0x00030001, 0x0001002B, 0x00030001, 0x0001002B}));
}

TEST_F(HostTest, HandlesLiveUntilDeletedAndStaleOnesAreRefused)
{
    Load(L"T");
    auto& v = lib->variables;
    v['a'] = v['g'] = reinterpret_cast<TarnexAuthHandle>(0xDEADBEEF);
    EXPECT_EQ(lib->Play("+a +b"), "0 0");
    EXPECT_NE(v['a'], v['b']);
    const TarnexAuthHandle live = v['s'] = v['a'];
    EXPECT_EQ(lib->Play("+a a.k=1 a.= a.K b.k a.k"), "14 0 0 16 16 0");
    EXPECT_EQ(v['a'], live);
    EXPECT_EQ(lib->Play("-a -a s.k=2 s.k -g"), "0 13 13 13 13");
    EXPECT_EQ(v['a'], nullptr);
    EXPECT_EQ(v['s'], live);
    const std::string gone = "hAuth=[" + Hex(live) + "]";
    EXPECT_EQ(
        EndLog(),
        (Lines{
            "[O] Created Tarnex Logger level [trace]", "[E] CreateAuthHandle() " + gone + " was already created",
            "[T] SetAuthParam() called with key=[k], value=[1]",
            "[D] SetAuthParam(): parameter key=[k] is set to value=[1]",
            "[T] SetAuthParam() called with key=[], value=[]",
            "[D] SetAuthParam(): parameter key=[] is set to value=[]", "[T] RemoveAuthParam() called with key=[K]",
            "[D] RemoveAuthParam() key=[K] was not found", "[T] RemoveAuthParam() called with key=[k]",
            "[D] RemoveAuthParam() key=[k] was not found", "[T] RemoveAuthParam() called with key=[k]",
            "[I] RemoveAuthParam() parameter key=[k] was removed", "[E] CreateAuthHandle() hAuth=[0x0] was not found",
            "[E] SetAuthParam() " + gone + " was not found", "[E] RemoveAuthParam() " + gone + " was not found",
            "[E] CreateAuthHandle() hAuth=[0xdeadbeef] was not found", kLeftBehind, "[T] Logger Flush() was called"}));
}

TEST_F(HostTest, KeysAndValuesMayBeAnyBytesOfAnyLength)
{
    Load(L"D");
    std::string bytes = "{}{0}%s";
    for (int byte = 1; byte < 256; ++byte)
        bytes += byte == '\r' ? ' ' : static_cast<char>(byte);  // ReadLog takes CR LF for the end of a line
    const std::string huge(1 << 20, 'x');
    EXPECT_EQ(lib->Play("+a"), "0");
    EXPECT_EQ(lib->tarnexSetAuthParams(&lib->variables['a'], bytes.c_str(), huge.c_str()), 0u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(&lib->variables['a'], bytes.c_str()), 0u);
    EXPECT_EQ(EndLog(), (Lines{"[O] Created Tarnex Logger level [debug]",
                               "[D] SetAuthParam(): parameter key=[" + bytes + "] is set to value=[" + huge + "]",
                               "[I] RemoveAuthParam() parameter key=[" + bytes + "] was removed", kLeftBehind}));
}

TEST_F(HostTest, TheLevelComesFromTheHostOrElseFromTheEnvironment)
{
    const std::tuple<const wchar_t*, const char*, const char*> cases[] = {
        // environment, call before the first message, level
        {L"", "", "error"},    {L"TRACE", "", "trace"},  {L"Debug", "", "debug"},    {L"debug", "", "error"},
        {L"Info", "", "info"}, {L"W", "", "warning"},    {L"Wobble", "", "warning"}, {L"3", "", "error"},
        {L"E", "", "error"},   {L"C", "", "critical"},   {L"OFF", "", "off"},        {L" T", "", "error"},
        {L"W", "@0", "trace"}, {L"W", "@1", "debug"},    {L"W", "@2", "info"},       {L"T", "@3", "warning"},
        {L"T", "@4", "error"}, {L"T", "@5", "critical"}, {L"T", "@6", "off"}};
    for (const auto& [environment, call, name] : cases) {
        Load(environment);
        lib->Play(call);
        EXPECT_EQ(folder.Files(), Lines{});  // a valid level makes no log
        EXPECT_EQ(lib->Play("-0"), "13");
        EXPECT_EQ(EndLog().at(0), FirstMessage(name)[0]);
    }
}

TEST_F(HostTest, TheLevelIsSetAndLinesAreBuffered)
{
    Load(L"T");
    const auto written = [this] { return ReadLog(folder.LogPath()).size(); };
    EXPECT_EQ(lib->Play("@2 @7 @4294967295"), "0 7 7");
    EXPECT_EQ(written(), 1u);  // only the creation line was flushed
    EXPECT_EQ(lib->Play("@3 -0"), "0 13");
    EXPECT_EQ(written(), 5u);
    EXPECT_EQ(lib->Play("@6 @7 -0 @0"), "0 7 13 0");
    EXPECT_EQ(written(), 5u);
    EXPECT_EQ(lib->Play("!"), "0");
    EXPECT_EQ(written(), 8u);
    EXPECT_EQ(EndLog(),
              (Lines{"[O] Created Tarnex Logger level [info]", "[W] SetLogLevel() was called whith invalid level [7]",
                     "[W] SetLogLevel() was called whith invalid level [-1]", "[O] Logger level was set to [warning]",
                     FirstMessage("")[1], "[O] Logger level was set to [off]", "[O] Logger level was set to [trace]",
                     "[T] Logger Flush() was called", "[T] Logger Flush() was called"}));
}

TEST_F(HostTest, TheFirstMessageCreatesTheLogEvenWhenItIsFilteredOut)
{
    Load();
    const char *first = nullptr, *second = nullptr;
    EXPECT_EQ(lib->tarnexGetAPIVersion(&first) + lib->tarnexGetAPIVersion(&second), 0u);
    EXPECT_STREQ(first, "3.1.1.43");
    EXPECT_EQ(first, second);
    EXPECT_EQ(lib->tarnexSetAuthParams(nullptr, nullptr, "v"), 7u);
    EXPECT_EQ(lib->tarnexSetAuthParams(nullptr, "k", nullptr), 7u);
    EXPECT_EQ(lib->tarnexRemoveAuthParams(nullptr, nullptr), 7u);
    EXPECT_EQ(lib->Play("+a !"), "0 40");
    EXPECT_EQ(folder.Files(), Lines{});
    EXPECT_EQ(lib->Play("a.k=v !"), "0 0");
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-PID.log"});
    EXPECT_EQ(EndLog(), Lines{FirstMessage("error")[0]});
}

TEST_F(HostTest, LogNameGoesIntoTheFileNameUntilTheLogExists)
{
    Load(L"W");
    folder.AddFile("Tarnex-B-" + ProcessId() + ".log");
    EXPECT_EQ(lib->Play("#\xC3\xA4\xF0\x9F\x98\x80 #no/such #B"), "0 7 0");
    for (const char* malformed : {"#\xC3", "#\xE4x", "#\xED\xA0\x80", "#\xC0\x80", "#\xF4\x90\x80\x80"}) {
        try {
            ADD_FAILURE() << lib->Play(malformed);
        } catch (const std::range_error& error) {
            EXPECT_STREQ(error.what(), "bad conversion");
        }
    }
    const fs::path written = folder.path / ("Tarnex-B-" + ProcessId() + "-1.log");
    std::ofstream(written, std::ios::binary) << "2026-01-01 00:00:00.000 [O] before\r\n";
    EXPECT_EQ(lib->Play("-0 #C"), "13 39");
    EXPECT_TRUE(lib->Unload());
    EXPECT_EQ(folder.Files(),
              (Lines{"Tarnex-B-PID-1.log", "Tarnex-B-PID.log", "Tarnex-\xC3\xA4\xF0\x9F\x98\x80-PID.log"}));
    EXPECT_EQ(ReadLog(written), (Lines{"[O] before", FirstMessage("warning")[0], FirstMessage("")[1],
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
    EXPECT_EQ(lib->Play("#x -0"), "7 13");
    ASSERT_TRUE(ReplaceImport(lib->module, "CreateFileW", &::CreateFileW));  // too late: creation is not tried again
    EXPECT_EQ(lib->Play("+a +a a.k=v a.x @1 @9 !"), "0 14 0 16 0 7 40");
    EXPECT_EQ(folder.Files(), Lines{});
    EXPECT_EQ(lib->Play("#x"), "0");  // makes a file that nothing will write
    EXPECT_TRUE(lib->Unload());
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-x-PID.log"});
}

TEST_F(HostTest, AFullDiskChangesNoResult)
{
    Load(L"T");
    EXPECT_EQ(lib->Play("-0"), "13");
    ASSERT_TRUE(FillDisk());
    EXPECT_EQ(lib->Play("+a +a a.k=v !"), "0 14 0 0");
    EXPECT_EQ(EndLog(), FirstMessage("trace"));
}

TEST_F(HostTest, AnErrorWhileTheLogIsOpenedLeavesTheCallAndTheNextMessageTriesAgain)
{
    for (const bool releasedInTime : {true, false}) {
        Load(L"D");
        EXPECT_EQ(lib->Play("#x +a"), "0 0");
        const TarnexAuthHandle before = lib->variables['a'];
        const HANDLE taken =
            ::CreateFileW(folder.LogPath("-x").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_THROW(lib->Play("+a"), std::exception);
        EXPECT_EQ(lib->variables['a'], before);
        if (releasedInTime) {
            ::CloseHandle(taken);
            EXPECT_EQ(lib->Play("+a -0"), "14 13");
        }
        EXPECT_TRUE(lib->Unload());  // the handle left behind asks for the log once more
        if (!releasedInTime)
            ::CloseHandle(taken);
        const Lines log = {FirstMessage("debug")[0],
                           "[E] CreateAuthHandle() hAuth=[" + Hex(before) + "] was already created",
                           FirstMessage("")[1], kLeftBehind};
        EXPECT_EQ(ReadLog(folder.LogPath("-x")), releasedInTime ? log : Lines());
        fs::remove(folder.LogPath("-x"));
    }
}

TEST_F(HostTest, RetentionDeletesWhatIsOlderThanTheLimit)
{
    const std::tuple<const wchar_t*, int, bool> cases[] = {
        // setting, hours that it stands for, whether malformed
        {L"", 24, false}, {L"48", 48, false}, {L" +48", 48, false},      {L"48h", 24, true},
        {L"0", 0, false}, {L"-1", -1, false}, {L"2147483648", 24, true}, {L"100", 100, false}};
    fs::create_directory(folder.path / "Tarnex-dir.log");
    for (const auto& [setting, hours, malformed] : cases) {
        for (const char* other : {"OtherTool.log", "Tarnex-x.txt", "TarnexX.tmp"})
            folder.AddFile(other, 60'000);
        for (const std::string name : {"-1.log", "50.log", "-9.tmp"}) {
            folder.AddFile("Tarnex-young" + name, hours * 60 - 5);
            folder.AddFile("Tarnex" + name, hours * 60 + 5);
        }
        Load(L"", setting);
        EXPECT_EQ(lib->Play("-0"), "13");
        Lines log = FirstMessage("error");
        if (malformed)
            log.push_back("[E] CleanupFiles(): failed to convert cleanup parameter to integer, defaulting to 24 hours");
        Lines written = EndLog();
        std::sort(written.begin() + 1, written.end(), std::greater<>());  // two threads wrote these
        EXPECT_EQ(written, log) << setting;
        EXPECT_EQ(folder.Files(), (Lines{"OtherTool.log", "Tarnex-dir.log", "Tarnex-x.txt", "Tarnex-young-1.log",
                                         "Tarnex-young-9.tmp", "Tarnex-young50.log", "TarnexX.tmp"}))
            << setting;
    }
}

TEST_F(HostTest, CreationStartsOneCleanUpAndDoesNotWaitForIt)
{
    static int started;
    static std::function<HANDLE()> start;
    decltype(&::CreateThread) const hold = [](auto... arguments) -> HANDLE {
        start = [=] { return ::CreateThread(arguments...); };
        return ++started == 1 ? nullptr : ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    };
    folder.AddExpiredFiles(1);
    for (const bool refused : {true, false}) {
        Load();
        ASSERT_TRUE(ReplaceImport(lib->module, "CreateThread", hold));
        EXPECT_EQ(lib->Play("-0 -0"), "13 13");
        EXPECT_EQ(started, refused ? 1 : 2);
        EXPECT_EQ(folder.Files(), (Lines{"Tarnex-0-old.log", "Tarnex-PID.log"}));
        ::FreeLibrary(lib->module);
        EXPECT_EQ(IsLibraryLoaded(), !refused);  // the thread to come keeps the module
        if (refused)
            fs::remove(folder.LogPath());
    }
    const HANDLE thread = start();
    EXPECT_TRUE(WaitUntil([] { return !IsLibraryLoaded(); }));
    ::CloseHandle(thread);
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-PID.log"});
}

TEST_F(HostTest, LinesCarryTheLocalTime)
{
    SetEnv(L"TZ", L"FAR-11:30");  // that is, eleven and a half hours ahead of UTC
    ::_tzset();
    const auto now = [] {
        const std::time_t seconds = std::time(nullptr);
        char text[32];
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&seconds));
        return std::string(text);
    };
    Load();
    const std::string before = now();
    EXPECT_EQ(lib->Play("-0"), "13");
    const std::string after = now();
    EXPECT_TRUE(lib->Unload());
    std::string stamp;
    std::ifstream log(folder.LogPath());
    std::getline(log, stamp);
    stamp.resize(before.size());
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, after);
}

}  // namespace
