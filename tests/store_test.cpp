// The library from inside: what no export reaches, and each place at which a call may run out of memory or be held.
#include <functional>

#include "host.h"
#include "logging/Controls.h"
#include "logging/Logger.h"
#include "session/AuthHandle.h"

namespace {

// One thread's places, where it allocates, releases or writes: from one on, so many allocations fail; 0 holds it.
atomic<DWORD> g_Thread{0};
atomic<bool> g_IsReached, g_IsOver, g_MayGoOn;
atomic<int> g_Blocks{0}, g_Refused{0};
int g_PlacesLeft = 0;

/** True when an allocation is to be refused here. */
bool Pass()
{
    if (::GetCurrentThreadId() != g_Thread)
        return false;
    if (--g_PlacesLeft == 0) {
        g_IsReached = g_IsOver = true;
        if (g_Refused == 0)
            WaitFor(g_MayGoOn);
    }
    return g_PlacesLeft <= 0 && -g_PlacesLeft < g_Refused;
}

struct Call
{
    string text;
    std::function<TarnexResult()> make;
    TarnexResult expected = TARNEX_OK;

    /** Makes the call with this done to its n-th place. */
    TarnexResult MakeAt(int n, int refused) const
    {
        g_IsReached = false;
        g_PlacesLeft = n;
        g_Refused = refused;
        g_Thread = ::GetCurrentThreadId();
        const TarnexResult result = make();
        g_Thread = 0;
        g_IsOver = true;
        return result;
    }
};

struct Running
{
    void End()
    {
        thread.join();
        EXPECT_EQ(result, call.expected) << call.text;
    }

    const Call& call;
    int place = 0;
    TarnexResult result = TARNEX_OK;
    atomic<bool> isDone{false};
    std::thread thread{[this] { result = place ? call.MakeAt(place, 0) : call.make(), isDone = true; }};
};

#define CALL(expression) #expression, [&] { return expression; }

/** A handle object, two handles, calls on them, and a log that can begin again. Messages allocate: they are long. */
struct Store : testing::Test
{
    Store() { BeginUnload(); }  // creating the logger then starts no thread
    ~Store() override { EndLog(); }

    void EndLog() const
    {
        *g_Logger = nullptr;
        g_ReadyLogger = nullptr;
        g_LogFilePath->clear();
        g_LogLevel = -1;
        folder.Clear();
    }

    /** Refuses memory at each place of a call until it has none left: that allocation, or it and all after it. */
    void RefuseEachPlace(const Call& call, bool hasLog = true)
    {
        for (int n = 2; n == 2 || g_IsReached; ++n) {
            SCOPED_TRACE(call.text + ", place " + to_string(n / 2));
            if (!hasLog)
                EndLog();
            int blocks = g_Blocks;
            TarnexAuthHandle before = fresh;
            try {
                EXPECT_EQ(call.MakeAt(n / 2, n % 2 == 0 ? 1000 : 1), call.expected);
            } catch (const std::bad_alloc&) {
                g_Thread = 0;
                EXPECT_EQ(fresh, before);
            }
            EXPECT_EQ(hasLog && g_IsReached ? g_Blocks.load() : blocks, blocks);
        }
    }

    /** Holds a call at each of its places: meanwhile one waits and another does not, and all get their results. */
    void HoldEachPlace(const Call& held, const Call& waiting, const Call& other, bool hasLog = true)
    {
        for (int n = 1; n == 1 || (g_IsReached && !HasFailure()); ++n) {
            SCOPED_TRACE("place " + to_string(n) + " of " + held.text);
            tarnexDeleteAuthHandle_3(&fresh), tarnexDeleteAuthHandle_3(&doomed), tarnexCreateAuthHandle_3(&doomed);
            setLevel.make();  // leaves a line to be flushed
            if (!hasLog)
                EndLog();
            g_IsOver = g_MayGoOn = false;
            Running first{held, n};
            WaitFor(g_IsOver);
            Running second{waiting}, third{other};
            EXPECT_TRUE(WaitFor(third.isDone)) << other.text;
            EXPECT_FALSE(g_IsReached && (hasLog || !g_ReadyLogger) && WaitFor(second.isDone, 3)) << waiting.text;
            g_MayGoOn = true;
            first.End(), second.End(), third.End();
            flush.make();
            EXPECT_TRUE(hasLog || std::regex_match(folder.Look(), regex("[^C]*C[^C]*debug[^C]*"))) << folder.Look();
        }
    }

    LogFolder folder;
    AuthHandle object;
    string key = string(200, 'k'), none = string(200, 'n'), value = string(90, 'v'), text = "before";
    TarnexAuthHandle doomed = nullptr, fresh = nullptr, *target = &fresh;

    vector<Call> onObject{{CALL(object.SetAuthParam(key, value))},
                          {CALL(object.GetAuthParam(none, text)), TARNEX_E_PARAM_NOT_FOUND},
                          {CALL(object.GetAuthParamInt(key, nullptr, nullptr, nullptr)), TARNEX_E_INVALID_ARGUMENT},
                          {CALL(object.RemoveAuthParam(none)), TARNEX_E_PARAM_NOT_FOUND}};
    vector<Call> onHandles{{CALL(tarnexCreateAuthHandle_3(&fresh))},
                           {CALL(tarnexDeleteAuthHandle_3(target))},
                           {CALL(tarnexSetAuthParams_3(target, none.c_str(), value.c_str()))},
                           {CALL(tarnexRemoveAuthParams_3(target, none.c_str())), TARNEX_E_PARAM_NOT_FOUND}};
    Call get{CALL(object.GetAuthParam(key, text))};
    Call setLevel{CALL(tarnexSetLogLevel_3(TARNEX_LOG_DEBUG))};
    Call badLevel{CALL(tarnexSetLogLevel_3(7)), TARNEX_E_INVALID_ARGUMENT};
    Call setName{CALL(tarnexSetLogName_3("x"))};
    Call flush{CALL(tarnexFlushLog_3())};
};

TEST_F(Store, GivesParametersBackAndIsLockedForGood)
{
    int one = 1, ten = 10, number = 99;
    const auto getInt = [&](const char* digits, const int* min, const int* max) {
        object.SetAuthParam("n", digits);
        return object.GetAuthParamInt("n", &number, min, max);
    };
    SetLogLevel(TARNEX_LOG_ERR);
    for (const char* digits : {"", "1 ", "2147483648"})
        EXPECT_EQ(getInt(digits, &one, &ten), TARNEX_E_INVALID_ARGUMENT) << digits;
    EXPECT_EQ(getInt("0", &one, nullptr), TARNEX_E_OUT_OF_RANGE);
    EXPECT_EQ(getInt("11", nullptr, &ten), TARNEX_E_OUT_OF_RANGE);
    EXPECT_EQ(number, 99);
    EXPECT_EQ(getInt(" \t\n+010", &ten, &ten), TARNEX_OK);
    EXPECT_EQ(number, 10);
    EXPECT_EQ(folder.Look(), kCreated +
                                 "[E] GetAuthParamInt(): failed to convert parameter [] to integer\n"
                                 "[E] GetAuthParamInt(): failed to convert parameter [1 ] to integer\n"
                                 "[E] GetAuthParamInt(): failed to convert parameter [2147483648] to integer\n"
                                 "[E] GetAuthParamInt(): [n] = [0] is out of range [>= [1]]\n"
                                 "[E] GetAuthParamInt(): [n] = [11] is out of range [<= [10]]\n");
    EndLog();
    SetLogLevel(TARNEX_LOG_TRACE);
    EXPECT_EQ(object.GetAuthParam("k", text), TARNEX_E_PARAM_NOT_FOUND);
    EXPECT_EQ(text, "before");
    EXPECT_EQ(object.GetAuthParamInt("k", nullptr, nullptr, nullptr), TARNEX_E_PARAM_NOT_FOUND);
    object.SetAuthParam("k", "1");
    object.LockAuthParam();
    EXPECT_EQ(object.SetAuthParam("x", "2"), TARNEX_E_HANDLE_LOCKED);
    EXPECT_EQ(object.RemoveAuthParam("k"), TARNEX_E_HANDLE_LOCKED);
    EXPECT_EQ(object.GetAuthParam("k", text), TARNEX_OK);
    EXPECT_EQ(text, "1");
    Flush();
    EXPECT_EQ(folder.Look(),
              kLog +
                  "[O] Created Tarnex Logger level [trace]\n[T] GetAuthParam() called with key=[k]\n"
                  "[D] GetAuthParam() key=[k] was not found\n[T] GetAuthParamInt() called with key=[k]\n"
                  "[D] GetAuthParamInt() key=[k] was not found\n[T] SetAuthParam() called with key=[k], value=[1]\n"
                  "[D] SetAuthParam(): parameter key=[k] is set to value=[1]\n[T] LockAuthParam() called\n"
                  "[T] SetAuthParam() called with key=[x], value=[2]\n"
                  "[W] SetAuthParam() called while AuthHandle is locked\n[T] RemoveAuthParam() called with key=[k]\n"
                  "[W] RemoveAuthParam() called while AuthHandle is locked\n[T] GetAuthParam() called with key=[k]\n"
                  "[T] Logger Flush() was called\n");
    for (const unsigned size : {0u, 1u, 255u, 256u, 257u, 100000u}) {
        string bytes(size, '\xFF');
        tarnexCreateAuthHandle_3(&fresh);
        tarnexSetAuthParams_3(&fresh, bytes.c_str(), bytes.c_str());
        reinterpret_cast<AuthHandle*>(fresh)->GetAuthParam(bytes, text);
        EXPECT_EQ(text, bytes) << size;
    }
}

#ifndef _DEBUG  // with iterator debugging, constructors that must not fail allocate
TEST_F(Store, IsAsBeforeWhereverMemoryRunsOut)
{
    SetLogLevel(TARNEX_LOG_ERR);
    object.SetAuthParam(key, string(50, '1'));
    none += key;                      // too long for the stack
    TarnexAuthHandle crowd[13] = {};  // with one more the registry needs room
    for (TarnexAuthHandle& handle : crowd)
        tarnexCreateAuthHandle_3(&handle);
    for (const Call& call : {onHandles[0], onHandles[2], onHandles[1], onObject[0], get})
        RefuseEachPlace(call);
    SetLogLevel(TARNEX_LOG_TRACE);
    for (const Call& call : onObject)
        RefuseEachPlace(call);
    RefuseEachPlace(setName, false);
    RefuseEachPlace(badLevel, false);
}
#endif

TEST_F(Store, MakesCallsWaitForThoseThatTheyWouldDisturbAndForNoOther)
{
    ReplaceWriteFile([](auto... what) { return Pass(), ::WriteFile(what...); });
    for (const Call& waiting : {{CALL(tarnexSetLogName_3("x")), TARNEX_E_LOG_FILE_EXISTS}, badLevel})
        HoldEachPlace(badLevel, waiting, setLevel, false);
    HoldEachPlace(setName, badLevel, setLevel, false);
    object.SetAuthParam(key, value);
    for (unsigned i = 1; i < 4; ++i) {
        HoldEachPlace(onObject[0], onObject[i], onHandles[0]);
        HoldEachPlace(onObject[i], onObject[0], onHandles[0]);
        target = &fresh;
        HoldEachPlace(onHandles[0], onHandles[i], setLevel);
        target = &doomed;
        HoldEachPlace(onHandles[i], onHandles[0], get);
    }
    HoldEachPlace(onHandles[0], {CALL(tarnexCreateAuthHandle_3(&fresh)), TARNEX_E_HANDLE_EXISTS}, get);
    for (const Call& waiting : {flush, setLevel, onObject[2]})
        HoldEachPlace(flush, waiting, onHandles[0]);
    HoldEachPlace(onObject[1], {CALL(object.LockAuthParam())}, onHandles[0]);
    EXPECT_EQ(onObject[0].make(), TARNEX_E_HANDLE_LOCKED);
}

}  // namespace

void* operator new(std::size_t size)
{
    void* const block = Pass() ? nullptr : std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    ++g_Blocks;
    return block;
}

void operator delete(void* block) noexcept
{
    if (block != nullptr && --g_Blocks >= 0 && g_Refused == 0)
        Pass();
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}
