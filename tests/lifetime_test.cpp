// The library's end: it is unloaded, or the process exits.
#include "host.h"

namespace {

const string kDebug = kLog + "[O] Created Tarnex Logger level [debug]\n";
const string kSet = "[D] SetAuthParam(): parameter key=[k] is set to value=[v]\n";
const string kHours = "[E] CleanupFiles(): failed to convert cleanup parameter to integer, defaulting to 24 hours\n";
const string kLeftBehind = "[D] ~CSession() for (auto h : m_Handles)\n";

int CountHeapBlocks()
{
    HANDLE heaps[64];
    int count = 0;
    for (DWORD i = ::GetProcessHeaps(64, heaps); i-- > 0;) {
        PROCESS_HEAP_ENTRY entry = {};
        while (::HeapWalk(heaps[i], &entry))
            count += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    }
    return count;
}

TEST(Unloading, LogsTheHandlesLeftAndLeavesNothingInTheProcess)
{
    string expected = kDebug + kHours + kLeftBehind;
    int before = 0;
    for (int round = -5; round < 45; ++round) {
        before = round < 1 ? CountHeapBlocks() : before;
        Host host("D", "48h");
        host.AddFile("Tarnex-1.log", 1445);
        for (auto call : {host.tarnexCreateAuthHandle_3, host.tarnexDeleteAuthHandle_3, host.tarnexCreateAuthHandle_3})
            call(&host.handle);
        host.Unload();
        EXPECT_EQ(host.Look(), expected);
    }
    Host host;
    host.tarnexSetLogName_3("x");
    fs::path path = *fs::directory_iterator(host.path);
    fs::remove(path), fs::create_directory(path);
    for (TarnexAuthHandle& handle : vector<TarnexAuthHandle>(50))
        host.tarnexCreateAuthHandle_3(&handle);
    host.Unload();
    // Not one for each load or handle, but what the system keeps for a while, and MinGW of a load that throws.
    EXPECT_LT(CountHeapBlocks(), before + 40);
}

atomic<DWORD> g_Thread{0};
atomic<bool> g_IsHeld, g_IsExiting;
string g_Place;
int g_Released;
TarnexAuthHandle g_Second = nullptr;

/** Holds the thread here if this is its place. It is not inside the system then, where Wine's exit may stand still. */
void Pass(const char* place)
{
    if (::GetCurrentThreadId() == g_Thread && g_Place == place)
        for (g_IsHeld = true; g_IsHeld;)
            ;
}

struct Moment
{
    const char* place;
    TarnexResult (*call)(Host&);
    string log;
    bool hasLog = true;  // before the call
};
#define CALL(expression) [](Host& host) { return host.expression; }

void ExitAt(const Moment& moment)
{
    Host host("D");
    REPLACE(CreateThread, [](auto...) { return HANDLE{}; });  // no clean-up: Wine may not survive its interruption
    REPLACE(CreateFileW, [](auto... how) { return Pass("creating"), ::CreateFileW(how...); });
    ReplaceWriteFile([](auto... what) {
        Pass("before writing");
        const BOOL result = ::WriteFile(what...);
        Pass("after writing");
        return result;
    });
    REPLACE(free, [](void* block) {
        // MinGW's runtime for msvcrt.dll releases a block behind the library's last destructor.
        if (g_IsExiting && g_Place == "nowhere" && ++g_Released == 2)
            std::fputs("memory was released at exit\n", stderr);
        std::free(block);
    });
    ::AddVectoredExceptionHandler(1, [](EXCEPTION_POINTERS*) { return Pass("reading"), LONG{0}; });
    host.tarnexCreateAuthHandle_3(&host.handle);
    host.tarnexCreateAuthHandle_3(&g_Second);
    if (moment.hasLog)
        host.tarnexSetAuthParams_3(&host.handle, "k", "v");
    g_Place = moment.place;
    std::thread([&] {
        g_Thread = ::GetCurrentThreadId();
        moment.call(host);
        g_IsHeld = true;
    }).detach();
    WaitFor(g_IsHeld);
    g_IsExiting = true;
    ::ExitProcess(0);  // systems differ in the code that this leaves when a thread is inside the C runtime
}

TEST(Exit, SaysNothingAndLeavesEachFinishedLineOnceWhereverItEndsAThread)
{
    const Moment moments[] = {
        {"nowhere", CALL(tarnexDeleteAuthHandle_3(&g_Second)), kDebug + kSet + kLeftBehind},
        {"nowhere, without a log", CALL(tarnexDeleteAuthHandle_3(&g_Second)), kDebug + kLeftBehind, false},
        {"reading", CALL(tarnexDeleteAuthHandle_3(reinterpret_cast<TarnexAuthHandle*>(std::uintptr_t{16}))),
         kDebug + kSet},
        {"creating", CALL(tarnexSetLogLevel_3(7)), "", false},
        {"before writing", CALL(tarnexSetLogLevel_3(7)), kLog, false},
        {"after writing", CALL(DeleteNull()), kDebug + kSet + kNoHandle},
        {"before writing", CALL(tarnexFlushLog_3()), kDebug},
        {"after writing", CALL(tarnexFlushLog_3()), kDebug + kSet},
    };
    for (const Moment& moment : moments) {
        LogFolder folder;
        SCOPED_TRACE(moment.place);
        EXPECT_EXIT(
            ExitAt(moment), [](int) { return true; }, testing::Eq(""));
        EXPECT_EQ(testing::internal::InDeathTestChild() ? moment.log : folder.Look(), moment.log);
    }
}

}  // namespace
