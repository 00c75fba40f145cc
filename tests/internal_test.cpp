// The library's own objects, linked in: what no export reaches, and what is easier to see from inside.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>

#include "host.h"
#include "logging/Controls.h"
#include "logging/Retention.h"
#include "platform/Environment.h"
#include "platform/LogFolder.h"
#include "platform/Text.h"
#include "session/AuthHandle.h"

namespace {

// Every allocation of C++ code in this program goes through here, and one of them can be made to fail.
std::atomic<long> g_Alive{0};
std::atomic<long> g_UntilFailure{std::numeric_limits<long>::max()};

}  // namespace

void* operator new(std::size_t size)
{
    void* const memory = --g_UntilFailure == 0 ? nullptr : std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    ++g_Alive;
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory != nullptr)
        --g_Alive;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

// No type of the library needs more alignment than malloc gives.
void* operator new(std::size_t size, std::align_val_t)
{
    return operator new(size);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    operator delete(memory);
}

namespace {

class InternalTest : public testing::Test
{
protected:
    InternalTest()
    {
        SetEnv(L"TARNEX_LOG_LEVEL", L"T");
        SetEnv(L"TARNEX_LOG_CLEANUP", L"");
        // The retention pass then runs where the log is created. Nobody else allocates, and no thread is left when
        // the program ends: under Wine, exit stands still now and then where it interrupts another thread.
        decltype(&::CreateThread) const refuse = [](auto...) -> HANDLE { return nullptr; };
        EXPECT_TRUE(ReplaceImport(::GetModuleHandleW(nullptr), "CreateThread", refuse));
    }

    /** What has been logged so far, without the creation line. */
    Lines Log() const
    {
        Flush();
        Lines lines = ReadLog(folder.LogPath());
        EXPECT_EQ(lines.at(0), "[O] Created Tarnex Logger level [trace]");
        EXPECT_EQ(lines.back(), "[T] Logger Flush() was called");
        return {lines.begin() + 1, lines.end() - 1};
    }

    LogFolder folder{"internal"};
    AuthHandle handle;
};

TEST_F(InternalTest, IntegersAreWholeAndFitIn32Bits)
{
    constexpr int kNone = 12345;
    const std::tuple<const char*, unsigned, int> cases[] = {{"42", 0, 42},
                                                            {" 42", 0, 42},
                                                            {"\t\n\v\f\r42", 0, 42},
                                                            {"+42", 0, 42},
                                                            {"-7", 0, -7},
                                                            {"007", 0, 7},
                                                            {"2147483647", 0, 2147483647},
                                                            {"42 ", 7, kNone},
                                                            {"4x", 7, kNone},
                                                            {"0x10", 7, kNone},
                                                            {"", 7, kNone},
                                                            {"  ", 7, kNone},
                                                            {"x", 7, kNone},
                                                            {"2147483648", 7, kNone},
                                                            {"-2147483649", 7, kNone},
                                                            {"+-1", 7, kNone},
                                                            {"-2147483648", 0, std::numeric_limits<int>::min()},
                                                            {"99999999999999999999", 7, kNone}};
    Lines expected;
    for (const auto& [text, result, number] : cases) {
        int value = kNone;
        handle.SetAuthParam("n", text);
        EXPECT_EQ(handle.GetAuthParamInt("n", &value, nullptr, nullptr), result) << text;
        EXPECT_EQ(value, number) << text;
        const std::string shown = std::string("[") + text + "]";
        expected.insert(expected.end(), {"[T] SetAuthParam() called with key=[n], value=" + shown,
                                         "[D] SetAuthParam(): parameter key=[n] is set to value=" + shown,
                                         "[T] GetAuthParamInt() called with key=[n]"});
        if (result == 7)
            expected.push_back("[E] GetAuthParamInt(): failed to convert parameter " + shown + " to integer");
    }
    EXPECT_EQ(Log(), expected);
}

TEST_F(InternalTest, IntegerBoundsAreInclusiveAndTheLowerIsTestedFirst)
{
    const int one = 1, ten = 10;
    const std::tuple<const char*, const int*, const int*, unsigned, const char*> cases[] = {
        {"1", &one, &ten, 0, ""},
        {"10", &one, &ten, 0, ""},
        {"0", &one, &ten, 33, "[E] GetAuthParamInt(): [n] = [0] is out of range [>= [1]]"},
        {"11", &one, &ten, 33, "[E] GetAuthParamInt(): [n] = [11] is out of range [<= [10]]"},
        {"5", &ten, &one, 33, "[E] GetAuthParamInt(): [n] = [5] is out of range [>= [10]]"},
        {"-5", nullptr, &ten, 0, ""},
        {"50", &one, nullptr, 0, ""}};
    for (const auto& [text, min, max, result, line] : cases) {
        int value = 99;
        handle.SetAuthParam("n", text);
        EXPECT_EQ(handle.GetAuthParamInt("n", &value, min, max), result) << text;
        EXPECT_EQ(value, result == 0 ? std::atoi(text) : 99);
        EXPECT_EQ(Log().back(), result == 0 ? "[T] GetAuthParamInt() called with key=[n]" : line);
    }
}

TEST_F(InternalTest, AStoreOverwritesDistinguishesCaseAndLocksForGood)
{
    std::string value = "untouched";
    int number = 99;
    EXPECT_EQ(handle.GetAuthParam("k", value), 16u);
    EXPECT_EQ(handle.GetAuthParamInt("k", &number, nullptr, nullptr), 16u);
    EXPECT_EQ(value, "untouched");
    EXPECT_EQ(handle.SetAuthParam("k", "1"), 0u);
    EXPECT_EQ(handle.SetAuthParam("k", "2"), 0u);
    EXPECT_EQ(handle.SetAuthParam("K", std::string("a\0b", 3)), 0u);
    EXPECT_EQ(handle.RemoveAuthParam("x"), 16u);
    EXPECT_EQ(handle.LockAuthParam(), 0u);
    EXPECT_EQ(handle.LockAuthParam(), 0u);
    EXPECT_EQ(handle.SetAuthParam("k", "3"), 20u);
    EXPECT_EQ(handle.RemoveAuthParam("k"), 20u);
    EXPECT_EQ(handle.RemoveAuthParam("absent"), 20u);
    EXPECT_EQ(handle.GetAuthParam("k", value), 0u);
    EXPECT_EQ(value, "2");
    EXPECT_EQ(handle.GetAuthParam("K", value), 0u);
    EXPECT_EQ(value, std::string("a\0b", 3));
    EXPECT_EQ(handle.GetAuthParamInt("k", &number, nullptr, nullptr), 0u);
    EXPECT_EQ(number, 2);
    const Lines log = Log();
    EXPECT_EQ((Lines{log.begin(), log.begin() + 4}),
              (Lines{"[T] GetAuthParam() called with key=[k]", "[D] GetAuthParam() key=[k] was not found",
                     "[T] GetAuthParamInt() called with key=[k]", "[D] GetAuthParamInt() key=[k] was not found"}));
    EXPECT_EQ(
        (Lines{log.begin() + 12, log.end()}),
        (Lines{"[T] LockAuthParam() called", "[T] LockAuthParam() called",
               "[T] SetAuthParam() called with key=[k], value=[3]",
               "[W] SetAuthParam() called while AuthHandle is locked", "[T] RemoveAuthParam() called with key=[k]",
               "[W] RemoveAuthParam() called while AuthHandle is locked",
               "[T] RemoveAuthParam() called with key=[absent]",
               "[W] RemoveAuthParam() called while AuthHandle is locked", "[T] GetAuthParam() called with key=[k]",
               "[T] GetAuthParam() called with key=[K]", "[T] GetAuthParamInt() called with key=[k]"}));
}

/** Makes one allocation after the other fail during the work; returns how often that left it as bad_alloc. */
int FailEachAllocation(const std::function<void()>& work)
{
    for (int raised = 0, nth = 1;; ++nth) {
        g_UntilFailure = nth;
        try {
            work();
        } catch (const std::bad_alloc&) {
            ++raised;
        }
        if (g_UntilFailure.exchange(std::numeric_limits<long>::max()) > 0)
            return raised;
    }
}

TEST_F(InternalTest, AnAllocationThatFailsLeavesTheCallAndNothingElse)
{
    const std::string longText(300, 'x');
    TarnexAuthHandle h = nullptr;
    // The first message, until the logger exists.
    const int failures = FailEachAllocation([&] { tarnexSetAuthParams_3(&h, "k", "v"); });
    EXPECT_GT(failures, 10);
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-PID.log"});

    // The registry grows, and gets its spare entry, before the count, because it keeps both.
    TarnexAuthHandle others[100] = {};
    for (TarnexAuthHandle& other : others)
        ASSERT_EQ(tarnexCreateAuthHandle_3(&other), 0u);
    ASSERT_EQ(tarnexDeleteAuthHandle_3(&others[0]), 0u);
    for (const uint32_t level : {TARNEX_LOG_OFF, TARNEX_LOG_TRACE}) {
        EXPECT_EQ(tarnexSetLogLevel_3(level), 0u);
        const long alive = g_Alive;
        const int raised = FailEachAllocation([&] {
            if (h != nullptr)  // the attempt before ended half-way
                tarnexDeleteAuthHandle_3(&h);
            EXPECT_EQ(tarnexCreateAuthHandle_3(&h), 0u);
            EXPECT_EQ(tarnexSetAuthParams_3(&h, longText.c_str(), longText.c_str()), 0u);
            EXPECT_EQ(tarnexRemoveAuthParams_3(&h, longText.c_str()), 0u);
            EXPECT_EQ(tarnexDeleteAuthHandle_3(&h), 0u);
        });
        EXPECT_EQ(h, nullptr);
        EXPECT_EQ(g_Alive, alive);
        EXPECT_GE(raised, 7);  // object; value, key; the parameter with both; key
    }
    for (TarnexAuthHandle& other : others)
        EXPECT_EQ(tarnexDeleteAuthHandle_3(&other), &other == others ? 13u : 0u);
}

TEST(Text, Utf8BecomesUtf16OrIsRefused)
{
    EXPECT_EQ(Utf8ToWide(""), L"");
    EXPECT_EQ(Utf8ToWide("a\xC3\xA4\xE2\x82\xAC"), L"a\u00E4\u20AC");
    EXPECT_EQ(Utf8ToWide("\xEF\xBB\xBFx"), L"\uFEFFx");
    EXPECT_EQ(Utf8ToWide("\xF0\x9F\x98\x80"), (std::wstring{0xD83D, 0xDE00}));
    EXPECT_EQ(Utf8ToWide("\xF4\x8F\xBF\xBF"), (std::wstring{0xDBFF, 0xDFFF}));
    for (const char* text : {"\xC3", "\x80", "a\xFF", "\xC0\xAF", "\xE2\x82", "\xED\xBF\xBF", "\xF4\x90\x80\x80"})
        EXPECT_THROW(Utf8ToWide(text), std::range_error) << text;
}

TEST(Environment, ValuesAreReadAsTheyStand)
{
    SetEnv(L"TARNEX_TEST", L" %PATH% \u20AC");
    EXPECT_EQ(GetEnvValue(L"TARNEX_TEST"), L" %PATH% \u20AC");
    SetEnv(L"TARNEX_TEST", L"");
    EXPECT_EQ(GetEnvValue(L"TARNEX_TEST"), L"");
    EXPECT_EQ(GetEnvValue(nullptr), L"");
}

TEST_F(InternalTest, AnUnusableFolderGivesWayToTheDefault)
{
    SetEnv(L"TARNEX_LOG_DIR", L"");
    const std::wstring fallback = GetLogFolderPath();
    EXPECT_TRUE(fallback.ends_with(L"\\Velmora\\Logs\\")) << fs::path(fallback);
    EXPECT_TRUE(fs::is_directory(fallback));

    folder.AddFile("file");
    // Wine cannot mark a folder as read-only; there it is one of the machine underneath.
    const fs::path ofWine = "Z:\\proc";
    const fs::path readOnly = fs::exists(ofWine) ? ofWine : folder.path / "readonly";
    fs::create_directory(readOnly);
    ::SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_READONLY);
    const std::wstring base = folder.path.wstring();
    for (const auto& [asked, given] :
         std::initializer_list<std::pair<std::wstring, std::wstring>>{{base, base + L"\\"},
                                                                      {base + L"\\", base + L"\\\\"},
                                                                      {base + L"\\file", fallback},
                                                                      {base + L"\\missing", fallback},
                                                                      {readOnly.wstring(), fallback}}) {
        SetEnv(L"TARNEX_LOG_DIR", asked);
        EXPECT_EQ(GetLogFolderPath(), given) << fs::path(asked);
    }
    ::SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_NORMAL);
    fs::remove(folder.path / "readonly");
    EXPECT_EQ(folder.Files(), Lines{"file"});  // no probe stays behind
}

TEST(Retention, TheCutOffWrapsAt32Bits)
{
    const auto cutOff = [](std::int64_t seconds) { return (seconds + 11644473600) * 10'000'000; };
    const std::tuple<std::int64_t, int, std::int64_t> cases[] = {
        {1'800'000'000, 24, 1'799'913'600},
        {1'800'000'000, 0, 1'800'000'000},
        {1'800'000'000, -1, 1'800'003'600},
        {1'800'000'000, 596'523, 1'800'000'000 - 2'147'482'800},
        {1'800'000'000, 596'524, -347'486'400},             // hours * 3600 passes 2^31 and turns negative
        {1'800'000'000, 1'193'047, 1'800'000'000 - 1'904},  // and comes round to 1904 seconds
        {2'147'483'647, -1, -2'147'480'049},                // the difference passes 2^31
        {4'294'967'296, 0, 0}};
    for (const auto& [now, hours, seconds] : cases)
        EXPECT_EQ(GetCutOffTime(now, hours), cutOff(seconds)) << now << " " << hours;
}

}  // namespace
