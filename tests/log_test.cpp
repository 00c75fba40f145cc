// The log: where and when it begins, its name, its lines, its level, and the clean-up of old ones.
#include "host.h"
// After <windows.h>, which the shell's header needs.
#include <shlobj.h>

namespace {

TEST(Log, BeginsWithTheFirstMessageAtTheLevelOfTheEnvironment)
{
    string created = kLog + "[O] Created Tarnex Logger level [";
    const std::pair<string, string> cases[] = {
        {"TRACE", "trace]\n"}, {"Debug", "debug]\n"}, {"I", "info]\n"},     {string(300, 'W'), "warning]\n"},
        {"OFF", "off]\n"},     {"C", "critical]\n"},  {"debug", "error]\n"}};
    for (const auto& [value, level] : cases) {
        Host host(value);
        host.tarnexCreateAuthHandle_3(&host.handle);
        EXPECT_EQ(host.Look(), "");
        host.tarnexSetLogLevel_3(7);  // filtered out by most levels
        EXPECT_EQ(host.Look(), created + level);
    }
}

TEST(Log, TakesItsLevelFromTheHostAndHoldsLinesBelowErrUntilAFlush)
{
    Host host("T");
    host.tarnexSetLogLevel_3(TARNEX_LOG_ERR);
    host.tarnexSetLogLevel_3(7);
    host.tarnexSetLogLevel_3(TARNEX_LOG_ERR);
    EXPECT_EQ(host.Look(), kCreated);
    host.DeleteNull();
    string flushed = kCreated + "[O] Logger level was set to [error]\n" + kNoHandle;
    host.tarnexSetLogLevel_3(TARNEX_LOG_OFF);
    host.DeleteNull();
    host.tarnexSetLogLevel_3(TARNEX_LOG_TRACE);
    host.tarnexSetLogLevel_3(0xFFFFFFFF);
    EXPECT_EQ(host.Look(), flushed);
    host.tarnexFlushLog_3();
    EXPECT_EQ(host.Look(),
              flushed +
                  "[O] Logger level was set to [off]\n[O] Logger level was set to [trace]\n"
                  "[W] SetLogLevel() was called whith invalid level [-1]\n[T] Logger Flush() was called\n");
}

TEST(Log, TakesANameInUtf8FromTheHostUntilItBegins)
{
    Host host;
    for (auto name : {"B", "B", "\xC3\xA4\xF0\x9F\x98\x80"})
        host.tarnexSetLogName_3(name);
    for (const char* name : {"\xC3", "a\xFF", "\xC0\xAF", "\xED\xBF\xBF"})
        EXPECT_THROW(host.tarnexSetLogName_3(name), std::range_error) << name;
    EXPECT_EQ(host.tarnexSetLogName_3("no/such"), TARNEX_E_INVALID_ARGUMENT);  // cancels the names before
    host.DeleteNull();
    EXPECT_EQ(host.Look(), "Tarnex-B-ID-1.log\nTarnex-B-ID.log\n" + kCreated + kNoHandle +
                               "Tarnex-\xC3\xA4\xF0\x9F\x98\x80-ID.log\n");
}

TEST(CleanUp, DeletesTheLibrarysFilesThatAreOlderThanTheHoursAskedFor)
{
    const std::pair<string, int> cases[] = {{"", 1440}, {" 48", 2880}, {"0", 0}, {"1193047", 31}};  // the last wraps
    for (const auto& [value, minutes] : cases) {
        Host host("", value);
        SetEnv("TARNEX_LOG_DIR", L"\\\\?\\" + host.path.wstring());
        for (const char* name : {"Tarnex-1.log", "Tarnex5.log", "Tarnex-9.tmp", "TarnexX.tmp"})
            host.AddFile(name, minutes + 5);
        host.AddFile("Tarnex-2.log", minutes - 5);
        host.tarnexSetLogLevel_3(7);
        host.Unload();
        EXPECT_EQ(host.Look(), "Tarnex-2.log\n" + kCreated + "TarnexX.tmp\n") << value;
    }
}

TEST(CleanUp, RunsInTheBackgroundAndKeepsTheDllLoaded)
{
    static atomic<bool> isAtWork, mayGoOn;
    isAtWork = mayGoOn = false;
    Host host;
    REPLACE(DeleteFileW, [](auto name) { return isAtWork = true, WaitFor(mayGoOn), ::DeleteFileW(name); });
    host.AddFile("Tarnex-1.log", 100000);
    host.tarnexSetLogLevel_3(7);
    EXPECT_TRUE(WaitFor(isAtWork) && !host.Unload(0));
    mayGoOn = true;
    EXPECT_TRUE(host.Unload());
    EXPECT_EQ(host.Look(), kCreated);
}

atomic<int> g_Left;

/** Has one call of a function of the system by the library fail, after g_Left that do not. */
#define REFUSE(call, result, error)                                                                                  \
    [] {                                                                                                             \
        REPLACE(call, [](auto... how) { return g_Left-- == 0 ? (::SetLastError(error), result) : ::call(how...); }); \
    },                                                                                                               \
        #call

TEST(Faults, OfFoldersAndTheSystemCostNoResultAndNoMoreThanTheyMust)
{
    const string all = kCreated + kNoHandle + kNoHandle, none = "Tarnex-1.log\nTarnex-2.log\n",
                 once = "Logs\n" + all + "Velmora\n", elsewhere = "Logs\n" + none + all + "Velmora\n";
    const struct
    {
        void (*refuse)();
        const char* refused;
        string files, folder = "";  // below the one that the test has made
        int after = 0;
    } cases[] = {
        {[] {}, "with a backslash", all, "\\"},
        {[] {}, "a drive", elsewhere, "C:"},
        {[] {}, "a missing folder", elsewhere, "\\missing"},
        {REFUSE(CreateDirectoryW, FALSE, ERROR_ACCESS_DENIED), none, "\\missing"},
        {REFUSE(SHGetSpecialFolderPathW, FALSE, 0), none, "\\missing"},
        {REFUSE(GetModuleHandleExW, FALSE, 0), none + all},
        {REFUSE(GetFileAttributesW, FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY, 0), once},
        {REFUSE(CreateFileW, INVALID_HANDLE_VALUE, ERROR_FILE_EXISTS), all},
        {REFUSE(CreateFileW, INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED), all},
        {REFUSE(CreateFileW, INVALID_HANDLE_VALUE, ERROR_DISK_FULL), once},
        {REFUSE(CreateFileW, INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED), none, "", 1},
        {REFUSE(CreateThread, nullptr, 0), none + all},
        {REFUSE(FindFirstFileW, INVALID_HANDLE_VALUE, 0), none + all},
        {REFUSE(DeleteFileW, FALSE, ERROR_ACCESS_DENIED), "Tarnex-1.log\n" + all},
    };
    for (const auto& [refuse, refused, files, folder, after] : cases) {
        Host host;
        SCOPED_TRACE(refused);
        SetEnv("TARNEX_LOG_DIR", folder == "C:" ? L"C:" : host.path.wstring() + fs::path(folder).wstring());
        g_Left = after;
        refuse();
        REPLACE(SHGetSpecialFolderPathW, [](HWND, LPWSTR path, int kind, BOOL) -> BOOL {
            return kind == CSIDL_LOCAL_APPDATA && ::lstrcpyW(path, ::_wgetenv(L"TARNEX_TEST_FOLDER"));
        });
        for (const char* old : {"Tarnex-1.log", "Tarnex-2.log"})
            host.AddFile(old, 100000);
        EXPECT_EQ(host.DeleteNull(), host.DeleteNull());
        EXPECT_EQ(host.tarnexFlushLog_3(), files == none ? TARNEX_E_NO_LOGGER : TARNEX_OK);
        EXPECT_TRUE(host.Unload());
        EXPECT_EQ(host.Look(), files);
    }
}

TEST(Faults, AFileThatCannotBeOpenedThrowsAndIsTriedAgainWithTheEnvironmentOfThen)
{
    Host host("D");
    host.tarnexSetLogName_3("x");
    EXPECT_THROW(host.tarnexSetLogName_3("\xFF"), std::range_error);
    fs::path path = *fs::directory_iterator(host.path);
    fs::remove(path), fs::create_directory(path);
    EXPECT_THROW(host.DeleteNull(), std::exception);
    fs::remove(path);
    std::ofstream(path) << "is kept\n";
    SetEnv("TARNEX_LOG_LEVEL", "I");
    EXPECT_EQ(host.DeleteNull(), TARNEX_E_HANDLE_NOT_FOUND);
    EXPECT_EQ(host.Look(), "Tarnex-x-ID.log\ntorn: is kept\r\n[O] Created Tarnex Logger level [info]\n" + kNoHandle);
}

TEST(Demo, GetsEachResultThatItExpectsAndLogsEachCall)
{
    LogFolder folder;
    EXPECT_EQ(std::system("demo.exe"), 0);
    EXPECT_EQ(std::regex_replace(folder.Look(), regex("0x[1-9a-f][0-9a-f]+"), "ALICE"),
              "Tarnex-demo-ID.log\n[O] Created Tarnex Logger level [trace]\n"
              "[T] SetAuthParam() called with key=[], value=[]\n"
              "[D] SetAuthParam(): parameter key=[] is set to value=[]\n"
              "[T] SetAuthParam() called with key=[user], value=[alice]\n"
              "[D] SetAuthParam(): parameter key=[user] is set to value=[alice]\n"
              "[T] SetAuthParam() called with key=[User], value=[case matters]\n"
              "[D] SetAuthParam(): parameter key=[User] is set to value=[case matters]\n"
              "[T] SetAuthParam() called with key=[user], value=[alice@example.com]\n"
              "[D] SetAuthParam(): parameter key=[user] is set to value=[alice@example.com]\n"
              "[T] RemoveAuthParam() called with key=[User]\n[I] RemoveAuthParam() parameter key=[User] was removed\n"
              "[E] CreateAuthHandle() hAuth=[ALICE] was already created\n[T] RemoveAuthParam() called with key=[User]\n"
              "[D] RemoveAuthParam() key=[User] was not found\n[W] SetLogName() was called after log file was created\n"
              "[W] SetLogLevel() was called whith invalid level [7]\n"
              "[E] CreateAuthHandle() hAuth=[ALICE] was not found\n[E] SetAuthParam() hAuth=[ALICE] was not found\n"
              "[E] RemoveAuthParam() hAuth=[ALICE] was not found\n[E] CreateAuthHandle() hAuth=[0x0] was not found\n"
              "[T] Logger Flush() was called\n[T] Logger Flush() was called\n");
}

}  // namespace
