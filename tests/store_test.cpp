// The handle objects from inside: what no export reaches.
#include "host.h"
#include "logging/Controls.h"
#include "logging/Logger.h"
#include "logging/Retention.h"
#include "session/AuthHandle.h"

namespace {

bool g_NoMemory = false;

}  // namespace

void* operator new(std::size_t size)
{
    void* const memory = g_NoMemory ? nullptr : std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

namespace {

/** A handle object, and a log that ends with it. */
struct Store : testing::Test
{
    Store() { BeginUnload(); }  // creating the logger then starts no thread
    ~Store() override
    {
        *g_Logger = nullptr;
        g_ReadyLogger = nullptr;
    }

    LogFolder folder;
    AuthHandle handle;
};

TEST_F(Store, GivesParametersBackAndIsLockedForGood)
{
    std::string text;
    int number = 0;
    SetLogLevel(TARNEX_LOG_TRACE);
    EXPECT_EQ(handle.GetAuthParam("k", text), TARNEX_E_PARAM_NOT_FOUND);
    EXPECT_EQ(handle.GetAuthParamInt("k", &number, nullptr, nullptr), TARNEX_E_PARAM_NOT_FOUND);
    handle.SetAuthParam("k", "1");
    EXPECT_EQ(handle.LockAuthParam(), TARNEX_OK);
    EXPECT_EQ(handle.SetAuthParam("k", "2"), TARNEX_E_HANDLE_LOCKED);
    EXPECT_EQ(handle.RemoveAuthParam("absent"), TARNEX_E_HANDLE_LOCKED);
    EXPECT_EQ(handle.GetAuthParam("k", text), TARNEX_OK);
    EXPECT_EQ(handle.GetAuthParamInt("k", &number, nullptr, nullptr), TARNEX_OK);
    EXPECT_EQ(text, "1");
    Flush();
    ExpectLog(folder.Log(),
              {"[O] Created Tarnex Logger level [trace]", "[T] GetAuthParam() called with key=[k]",
               "[D] GetAuthParam() key=[k] was not found", "[T] GetAuthParamInt() called with key=[k]",
               "[D] GetAuthParamInt() key=[k] was not found", "[T] SetAuthParam() called with key=[k], value=[1]",
               "[D] SetAuthParam(): parameter key=[k] is set to value=[1]", "[T] LockAuthParam() called",
               "[T] SetAuthParam() called with key=[k], value=[2]",
               "[W] SetAuthParam() called while AuthHandle is locked", "[T] RemoveAuthParam() called with key=[absent]",
               "[W] RemoveAuthParam() called while AuthHandle is locked", "[T] GetAuthParam() called with key=[k]",
               "[T] GetAuthParamInt() called with key=[k]", "[T] Logger Flush() was called"});
}

TEST_F(Store, GivesIntegersWithinTheirBounds)
{
    const int one = 1, ten = 10;
    int number = 99;
    const auto get = [&](const char* value) {
        handle.SetAuthParam("n", value);
        return handle.GetAuthParamInt("n", &number, &one, &ten);
    };
    SetLogLevel(TARNEX_LOG_ERR);
    for (const char* value : {"", "1 ", "0x10", "2147483648"})
        EXPECT_EQ(get(value), TARNEX_E_INVALID_ARGUMENT) << value;
    EXPECT_EQ(folder.Log().back(), "[E] GetAuthParamInt(): failed to convert parameter [2147483648] to integer");
    EXPECT_EQ(get("0"), TARNEX_E_OUT_OF_RANGE);
    EXPECT_EQ(folder.Log().back(), "[E] GetAuthParamInt(): [n] = [0] is out of range [>= [1]]");
    EXPECT_EQ(get("11"), TARNEX_E_OUT_OF_RANGE);
    EXPECT_EQ(folder.Log().back(), "[E] GetAuthParamInt(): [n] = [11] is out of range [<= [10]]");
    EXPECT_EQ(number, 99);
    for (const auto& [value, expected] : {std::pair{"1", 1}, {"10", 10}, {" \t\n+7", 7}}) {
        EXPECT_EQ(get(value), TARNEX_OK) << value;
        EXPECT_EQ(number, expected);
    }
}

TEST_F(Store, IsSafeWithoutTheSessionsLock)
{
    RunThreads(4, [&](int number) {
        for (int i = 0; i < 100000; ++i) {
            std::string key = std::to_string((i + number) % 3), text;
            handle.SetAuthParam(key, std::string(50, '1'));
            handle.GetAuthParam(key, text);
            handle.RemoveAuthParam(key);
        }
    });
}

#ifndef _DEBUG  // with iterator debugging, constructors that must not fail allocate
TEST_F(Store, RaisesBadAllocWithoutMemoryAndIsAsBefore)
{
    const std::string text(300, 'x');
    TarnexAuthHandle first = nullptr, second = nullptr;
    tarnexCreateAuthHandle_3(&first);
    g_NoMemory = true;
    EXPECT_THROW(tarnexCreateAuthHandle_3(&second), std::bad_alloc);
    EXPECT_THROW(tarnexSetAuthParams_3(&first, "k", text.c_str()), std::bad_alloc);
    RunRetention();  // ends without a word
    g_NoMemory = false;
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(tarnexRemoveAuthParams_3(&first, "k"), TARNEX_E_PARAM_NOT_FOUND);
}
#endif

}  // namespace
