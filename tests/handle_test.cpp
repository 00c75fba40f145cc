// The handle objects and the session from inside: what no export reaches, and what is easier to see there.
#include <gtest/gtest.h>

#include <limits>
#include <new>

#include "host.h"
#include "image.h"
#include "logging/Controls.h"
#include "session/AuthHandle.h"

namespace {

// Allocations of C++ code in this program go through here, and one of them can be made to fail.
std::atomic<long> g_Alive{0};
std::atomic<long> g_UntilFailure{std::numeric_limits<long>::max()};
std::atomic<bool> g_KeepFreed{false};  // memory that is freed is not used again

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
    g_Alive -= memory != nullptr;
    if (!g_KeepFreed)
        std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

namespace {

using Results = std::vector<TarnexResult>;

class HandleTest : public testing::Test
{
protected:
    HandleTest()
    {
        SetEnv(L"TARNEX_LOG_LEVEL", L"T");
        EXPECT_TRUE(RefuseThreads(::GetModuleHandleW(nullptr)));  // no clean-up: nobody else allocates
    }

    /** What has been logged so far, without the creation line. */
    Lines Log() const
    {
        Flush();
        const Lines lines = ReadLog(folder.LogPath());
        EXPECT_EQ(lines.at(0), "[O] Created Tarnex Logger level [trace]");
        EXPECT_EQ(lines.back(), "[T] Logger Flush() was called");
        return {lines.begin() + 1, lines.end() - 1};
    }

    LogFolder folder;
    AuthHandle handle;
    int number = 99;
};

TEST_F(HandleTest, IntegersAreWholeAndFitIn32Bits)
{
    const std::pair<const char*, int> cases[] = {// value, the integer that it stands for; 99 for none
                                                 {"42", 42},
                                                 {" 42", 42},
                                                 {"\t\n\v\f\r42", 42},
                                                 {"+42", 42},
                                                 {"-7", -7},
                                                 {"007", 7},
                                                 {"42 ", 99},
                                                 {"4x", 99},
                                                 {"0x10", 99},
                                                 {"", 99},
                                                 {"  ", 99},
                                                 {"x", 99},
                                                 {"+-1", 99},
                                                 {"2147483648", 99},
                                                 {"2147483647", 2147483647},
                                                 {"-2147483649", 99},
                                                 {"9999999999", 99},
                                                 {"-2147483648", std::numeric_limits<int>::min()}};
    Lines expected;
    for (const auto& [text, value] : cases) {
        number = 99;
        handle.SetAuthParam("n", text);
        EXPECT_EQ(handle.GetAuthParamInt("n", &number, nullptr, nullptr), value == 99 ? 7u : 0u) << text;
        EXPECT_EQ(number, value) << text;
        if (value == 99)
            expected.push_back(std::string("[E] GetAuthParamInt(): failed to convert parameter [") + text +
                               "] to integer");
    }
    Lines log = Log();
    log.erase(std::remove_if(log.begin(), log.end(), [](const std::string& line) { return line[1] != 'E'; }),
              log.end());
    EXPECT_EQ(log, expected);
}

TEST_F(HandleTest, BoundsAreInclusiveAndTheLowerIsTestedFirst)
{
    const int one = 1, ten = 10;
    const std::tuple<const char*, const int*, const int*, const char*> cases[] = {
        // value, bounds, the line that refuses it
        {"1", &one, &ten, ""},
        {"10", &one, &ten, ""},
        {"-5", nullptr, &ten, ""},
        {"50", &one, nullptr, ""},
        {"0", &one, &ten, "[E] GetAuthParamInt(): [n] = [0] is out of range [>= [1]]"},
        {"11", &one, &ten, "[E] GetAuthParamInt(): [n] = [11] is out of range [<= [10]]"},
        {"5", &ten, &one, "[E] GetAuthParamInt(): [n] = [5] is out of range [>= [10]]"}};
    for (const auto& [text, min, max, line] : cases) {
        number = 99;
        handle.SetAuthParam("n", text);
        EXPECT_EQ(handle.GetAuthParamInt("n", &number, min, max), *line == '\0' ? 0u : 33u) << text;
        EXPECT_EQ(number, *line == '\0' ? std::atoi(text) : 99);
        EXPECT_EQ(Log().back(), *line == '\0' ? "[T] GetAuthParamInt() called with key=[n]" : line);
    }
}

TEST_F(HandleTest, AStoreOverwritesDistinguishesCaseAndLocksForGood)
{
    std::string value = "untouched", upper;
    EXPECT_EQ((Results{handle.GetAuthParam("k", value), handle.GetAuthParamInt("k", &number, nullptr, nullptr)}),
              (Results{16, 16}));
    EXPECT_EQ(value + std::to_string(number), "untouched99");
    EXPECT_EQ((Lines(Log())),
              (Lines{"[T] GetAuthParam() called with key=[k]", "[D] GetAuthParam() key=[k] was not found",
                     "[T] GetAuthParamInt() called with key=[k]", "[D] GetAuthParamInt() key=[k] was not found"}));
    EXPECT_EQ((Results{handle.SetAuthParam("k", "1"), handle.SetAuthParam("k", "2"),
                       handle.SetAuthParam("K", std::string("a\0b", 3)), handle.LockAuthParam(), handle.LockAuthParam(),
                       handle.SetAuthParam("k", "3"), handle.RemoveAuthParam("k"), handle.RemoveAuthParam("absent"),
                       handle.GetAuthParam("k", value), handle.GetAuthParam("K", upper),
                       handle.GetAuthParamInt("k", &number, nullptr, nullptr)}),
              (Results{0, 0, 0, 0, 0, 20, 20, 20, 0, 0, 0}));
    EXPECT_EQ(value + std::to_string(number) + upper, std::string("22a\0b", 5));
    const Lines log = Log();
    EXPECT_EQ(
        (Lines{log.end() - 11, log.end()}),
        (Lines{"[T] LockAuthParam() called", "[T] LockAuthParam() called",
               "[T] SetAuthParam() called with key=[k], value=[3]",
               "[W] SetAuthParam() called while AuthHandle is locked", "[T] RemoveAuthParam() called with key=[k]",
               "[W] RemoveAuthParam() called while AuthHandle is locked",
               "[T] RemoveAuthParam() called with key=[absent]",
               "[W] RemoveAuthParam() called while AuthHandle is locked", "[T] GetAuthParam() called with key=[k]",
               "[T] GetAuthParam() called with key=[K]", "[T] GetAuthParamInt() called with key=[k]"}));
}

TEST_F(HandleTest, AHandleIsSafeWithoutTheSessionsLock)
{
    SetLogLevel(TARNEX_LOG_OFF);
    const std::string values[] = {std::string(40, '0') + "1111", std::string(50, '0') + "2222"};
    std::atomic<int> wrong{0};
    RunThreads(4, [&](int thread) {
        for (int i = 0; i < 50'000; ++i) {
            std::string text = values[0];
            int integer = 1111;
            const std::string key = std::to_string((i + thread) % 40);
            handle.SetAuthParam(key, values[thread % 2]);
            handle.GetAuthParam(key, text);
            handle.GetAuthParamInt(key, &integer, nullptr, nullptr);
            handle.RemoveAuthParam(std::to_string((i + thread + 20) % 40));
            wrong += (text != values[0] && text != values[1]) || (integer != 1111 && integer != 2222);
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST_F(HandleTest, AnotherAttemptToOpenTheLogReadsTheEnvironmentAgain)
{
    SetEnv(L"TARNEX_LOG_LEVEL", L"W");
    EXPECT_EQ(SetLogName(""), 0u);
    const HANDLE taken = ::CreateFileW(folder.LogPath().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_THROW(handle.LockAuthParam(), std::exception);
    ::CloseHandle(taken);
    SetEnv(L"TARNEX_LOG_LEVEL", L"T");
    EXPECT_EQ(handle.LockAuthParam(), 0u);
    EXPECT_EQ(Log(), Lines{"[T] LockAuthParam() called"});
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

TEST_F(HandleTest, AnAllocationThatFailsLeavesTheCallAndNothingElse)
{
    const std::string text(300, 'x');
    TarnexAuthHandle h = nullptr, others[100] = {};
    // The first message, until the logger exists.
    EXPECT_GT(FailEachAllocation([&] { tarnexSetAuthParams_3(&h, "k", "v"); }), 10);
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-PID.log"});

    // The registry grows, and gets its spare entry, before the count, because it keeps both.
    for (TarnexAuthHandle& other : others)
        ASSERT_EQ(tarnexCreateAuthHandle_3(&other), 0u);
    ASSERT_EQ(tarnexDeleteAuthHandle_3(&others[0]), 0u);
    for (const uint32_t level : {TARNEX_LOG_OFF, TARNEX_LOG_TRACE}) {
        tarnexSetLogLevel_3(level);
        const long alive = g_Alive;
        const int raised = FailEachAllocation([&] {
            if (h != nullptr)  // the attempt before ended half-way
                tarnexDeleteAuthHandle_3(&h);
            EXPECT_EQ((Results{tarnexCreateAuthHandle_3(&h), tarnexSetAuthParams_3(&h, text.c_str(), text.c_str()),
                               tarnexRemoveAuthParams_3(&h, text.c_str()), tarnexDeleteAuthHandle_3(&h)}),
                      (Results{0, 0, 0, 0}));
        });
        EXPECT_EQ(h, nullptr);
        EXPECT_EQ(g_Alive, alive);
        EXPECT_GE(raised, 4);  // the object; the parameter, its key, its value
    }
    for (TarnexAuthHandle& other : others)
        EXPECT_EQ(tarnexDeleteAuthHandle_3(&other), &other == others ? 13u : 0u);

    // The next handle need not lie where the one deleted last did.
    g_KeepFreed = true;
    TarnexAuthHandle stale = nullptr;
    EXPECT_EQ(tarnexCreateAuthHandle_3(&h) + tarnexDeleteAuthHandle_3(&(stale = h)), 0u);
    EXPECT_EQ((Results{tarnexCreateAuthHandle_3(&h), tarnexDeleteAuthHandle_3(&h)}), (Results{0, 0}));
}

}  // namespace
