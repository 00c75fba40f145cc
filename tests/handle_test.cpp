// The handle objects and the session from inside: what no export reaches, and what is easier to see there.
#include <gtest/gtest.h>

#include <limits>
#include <new>

#include "host.h"
#include "image.h"
#include "logging/Controls.h"
#include "logging/Logger.h"
#include "session/AuthHandle.h"

namespace {

// Allocations of C++ code in this program go through here, and one of them can be made to fail.
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
    g_Alive -= memory != nullptr;
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

    LogFolder folder;
    AuthHandle handle;
};

TEST_F(HandleTest, TheTranscriptComesOutTheSame)
{
    static std::atomic<int> locks{0};
    std::size_t shown = 0;
    EXPECT_TRUE(WatchLocks(::GetModuleHandleW(nullptr), [] { ++locks; }));
    // A step is an operation with a key and a value, or an integer's bounds. It gives the result, the text and the
    // integer that it was to fill, the number of locks it took, which is one more for each line of the log, and these.
    const auto [before, after] = Replay("store", [&](const std::string& step) {
        std::istringstream words(step);
        std::string verb, key, value, high, text = "untouched";
        words >> verb >> key >> value >> high;
        const int min = std::atoi(value.c_str()), max = std::atoi(high.c_str());
        int number = 99;
        locks = 0;
        const TarnexResult result =
            verb == "set"      ? handle.SetAuthParam(key, value)
            : verb == "get"    ? handle.GetAuthParam(key, text)
            : verb == "remove" ? handle.RemoveAuthParam(key)
            : verb == "lock"
                ? handle.LockAuthParam()
                : handle.GetAuthParamInt(key, &number, value == "-" ? nullptr : &min, high == "-" ? nullptr : &max);
        std::ostringstream outcome;
        outcome << result << " " << text << " " << number << " " << locks << "\n";
        Flush();
        for (const Lines lines = ReadLog(folder.LogPath()); shown < lines.size(); ++shown)
            if (lines[shown] != "[T] Logger Flush() was called")
                outcome << lines[shown] << "\n";
        return outcome.str();
    });
    EXPECT_EQ(after, before);
}

TEST_F(HandleTest, AHandleIsSafeWithoutTheSessionsLock)
{
    SetLogLevel(TARNEX_LOG_OFF);
    RunThreads(4, [&](int thread) {
        for (int i = 0; i < 50'000; ++i) {
            const std::string key = std::to_string((i + thread) % 40);
            std::string text(50, '1');
            handle.SetAuthParam(key, std::string(thread % 2 == 0 ? 40 : 50, '1'));
            handle.GetAuthParam(key, text);
            handle.RemoveAuthParam(std::to_string((i + thread + 20) % 40));
            EXPECT_EQ(text.find_first_not_of('1'), std::string::npos);
        }
    });
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
    // The first message, until the logger exists. Each attempt reads the environment again: trace 0, debug 1, info 2.
    int attempt = 0;
    const auto first = [&] {
        ::_wputenv_s(L"TARNEX_LOG_LEVEL", ++attempt % 3 == 0 ? L"T" : attempt % 3 == 1 ? L"D" : L"I");
        tarnexSetAuthParams_3(&h, "k", "v");
    };
    EXPECT_GT(FailEachAllocation(first), 10);
    EXPECT_EQ(folder.Files(), Lines{"Tarnex-PID.log"});
    EXPECT_EQ(g_LogLevel, attempt % 3);

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
}

}  // namespace
