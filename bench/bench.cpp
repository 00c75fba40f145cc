// What a call costs: the library through its exports against the same work by hand, in one process and in turn.
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "calls.h"
#include "host.h"

using Seconds = std::chrono::duration<double>;

namespace {

constexpr const char* kValue = "a value of forty bytes, as tokens often.";
constexpr const char* kKeys[] = {"user", "token"};
bool g_GoalMissed = false;

Calls GetCalls(const TarnexLoader& library)
{
    return {library.tarnexCreateAuthHandle_3, library.tarnexDeleteAuthHandle_3, library.tarnexSetAuthParams_3};
}

/** Ten thousand log files that the next retention pass deletes. */
void AddExpiredFiles(const LogFolder& folder)
{
    for (int i = 0; i < 10'000; ++i)
        folder.AddFile(L"Tarnex-" + std::to_wstring(i) + L"-old.log", 100'000);
}

double Time(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return Seconds(std::chrono::steady_clock::now() - start).count();
}

struct Figures
{
    std::vector<double> samples;  // seconds for one unit of work

    double At(double share) const
    {
        std::vector<double> sorted = samples;
        std::sort(sorted.begin(), sorted.end());
        return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
    }
    double Median() const { return At(0.5); }
};

void PrintHead()
{
    std::printf("%-54s %24s %24s %6s %8s\n", "work (median, minimum to maximum)", "library", "by hand", "ratio",
                "goal");
}

std::string Show(const Figures& figures, const char* unit, double scale)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f (%.*f-%.*f) %s", scale > 1e6 ? 0 : 2, figures.Median() * scale,
                  scale > 1e6 ? 0 : 2, figures.At(0) * scale, scale > 1e6 ? 0 : 2, figures.At(1) * scale, unit);
    return text;
}

/** Prints a row; a goal of 0 is none. A goal is the most that the ratio may be, or with atLeast the least. */
void PrintRow(const char* work, const std::string& library, const std::string& byHand, double ratio, double goal,
              bool atLeast = false)
{
    const bool missed = goal != 0 && (atLeast ? ratio < goal : ratio > goal);
    g_GoalMissed = g_GoalMissed || missed;
    char wanted[16] = "-";
    if (goal != 0)
        std::snprintf(wanted, sizeof wanted, "%s %.2f", atLeast ? ">=" : "<=", goal);
    std::printf("%-54s %24s %24s %6.2f %8s%s\n", work, library.c_str(), byHand.c_str(), ratio, wanted,
                missed ? "  MISSED" : "");
    std::fflush(stdout);
}

/** Measures both sides in turn, so many rounds after one to warm up; work returns seconds for one unit. */
std::pair<Figures, Figures> Alternate(int rounds, const std::function<double()>& library,
                                      const std::function<double()>& byHand)
{
    library();
    byHand();
    std::pair<Figures, Figures> figures;
    for (int round = 0; round < rounds; ++round) {
        figures.first.samples.push_back(library());
        figures.second.samples.push_back(byHand());
    }
    return figures;
}

void Compare(const char* work, double goal, int rounds, const std::function<double()>& library,
             const std::function<double()>& byHand, const char* unit = "ns", double scale = 1e9)
{
    const auto [ours, theirs] = Alternate(rounds, library, byHand);
    PrintRow(work, Show(ours, unit, scale), Show(theirs, unit, scale), ours.Median() / theirs.Median(), goal);
}

double TimeSets(const Calls& calls, TarnexAuthHandle* handle, int count)
{
    return Time([&] {
               for (int i = 0; i < count; ++i)
                   calls.set(handle, kKeys[i & 1], kValue);
           }) /
           count;
}

void BenchSet(const Calls& library, const Calls& byHand, const char* work, double goal, int count)
{
    TarnexAuthHandle ours = nullptr, theirs = nullptr;
    library.create(&ours);
    byHand.create(&theirs);
    Compare(
        work, goal, 31, [&] { return TimeSets(library, &ours, count); },
        [&] { return TimeSets(byHand, &theirs, count); });
    library.destroy(&ours);
    byHand.destroy(&theirs);
}

void BenchCreate(const Calls& library, const Calls& byHand)
{
    const auto time = [](const Calls& calls) {
        constexpr int kCount = 200'000;
        TarnexAuthHandle handle = nullptr;
        return Time([&] {
                   for (int i = 0; i < kCount; ++i) {
                       calls.create(&handle);
                       calls.destroy(&handle);
                   }
               }) /
               kCount;
    };
    const auto timeLibrary = [&] { return time(library); };
    const auto timeByHand = [&] { return time(byHand); };
    Compare("2 create and delete a handle", 0.95, 31, timeLibrary, timeByHand);
}

void BenchGrowth(const Calls& library)
{
    constexpr int kCount = 300'000;
    std::vector<Figures> ours, bare;
    for (const int handles : {1'000, 100'000, 1'000'000}) {
        std::vector<TarnexAuthHandle> all(static_cast<std::size_t>(handles));
        for (TarnexAuthHandle& handle : all)
            library.create(&handle);
        BareContainers containers(handles);
        const auto setOurs = [&](int i, const char* key) {
            library.set(&all[static_cast<std::size_t>(i)], key, kValue);
        };
        const auto setBare = [&](int i, const char* key) { containers.Set(i, key, kValue); };
        for (int i = 0; i < handles; ++i) {  // every parameter exists before the clock runs
            for (const char* key : kKeys) {
                setOurs(i, key);
                setBare(i, key);
            }
        }
        std::mt19937 random(1);
        std::vector<int> order(kCount);
        for (int& index : order)
            index = static_cast<int>(random() % static_cast<unsigned>(handles));
        const auto time = [&order](const auto& set) {
            return Time([&] {
                       for (const int i : order)
                           set(i, kKeys[i & 1]);
                   }) /
                   kCount;
        };
        const auto timeOurs = [&] { return time(setOurs); };
        const auto timeBare = [&] { return time(setBare); };
        const auto [first, second] = Alternate(5, timeOurs, timeBare);
        ours.push_back(first);
        bare.push_back(second);
        const std::string work = "4 row 1 among " + std::to_string(handles) + " handles; bare containers";
        PrintRow(work.c_str(), Show(first, "ns", 1e9), Show(second, "ns", 1e9), first.Median() / second.Median(), 0);
        for (TarnexAuthHandle& handle : all)
            library.destroy(&handle);
    }
    const double growth = ours.back().Median() / ours.front().Median();
    const double bareGrowth = bare.back().Median() / bare.front().Median();
    PrintRow("4 growth from the first to the last", std::to_string(growth), std::to_string(bareGrowth),
             growth / bareGrowth, 1.0);
}

void BenchThreads(const Calls& library, const Calls& byHand)
{
    const auto time = [](const Calls& calls) {
        constexpr int kCount = 100'000;
        const auto work = [&calls] {
            TarnexAuthHandle handle = nullptr;
            calls.create(&handle);
            TimeSets(calls, &handle, kCount);
            calls.destroy(&handle);
        };
        return Time([&] {
                   std::thread other(work);
                   work();
                   other.join();
               }) /
               (2 * kCount);
    };
    const auto timeLibrary = [&] { return time(library); };
    const auto timeByHand = [&] { return time(byHand); };
    const auto [ours, theirs] = Alternate(21, timeLibrary, timeByHand);
    PrintRow("5 two threads, handles of their own (throughput)", Show(ours, "ns", 1e9), Show(theirs, "ns", 1e9),
             theirs.Median() / ours.Median(), 0.95, true);
}

void DeleteExpiredFiles(const std::wstring& folder)
{
    FILETIME cutOff;
    ::GetSystemTimeAsFileTime(&cutOff);
    const LONGLONG dayAgo =
        (static_cast<LONGLONG>(cutOff.dwHighDateTime) << 32 | cutOff.dwLowDateTime) - 24LL * 3600 * 10'000'000;
    cutOff = {static_cast<DWORD>(dayAgo), static_cast<DWORD>(dayAgo >> 32)};
    WIN32_FIND_DATAW entry;
    const HANDLE search = ::FindFirstFileW((folder + L"\\Tarnex*.log").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return;
    do {
        if (::CompareFileTime(&entry.ftLastWriteTime, &cutOff) < 0)
            ::DeleteFileW((folder + L"\\" + entry.cFileName).c_str());
    } while (::FindNextFileW(search, &entry));
    ::FindClose(search);
}

void BenchRetention(const LogFolder& folder)
{
    Compare(
        "6 retention pass over 10,000 expired files", 1.10, 3,
        [&] {
            AddExpiredFiles(folder);
            TarnexLoader library;
            TarnexAuthHandle none = nullptr;
            return Time([&] {
                library.tarnexDeleteAuthHandle_3(&none);  // the first message starts the pass
                library.Unload();                         // and the module stays until it is over
            });
        },
        [&] {
            AddExpiredFiles(folder);
            return Time([&] {  // on a thread of its own, watched by this one, as on the other side
                std::atomic<bool> done{false};
                std::thread pass([&] {
                    DeleteExpiredFiles(folder.path.wstring());
                    done = true;
                });
                WaitUntil([&] { return done.load(); });
                pass.join();
            });
        },
        "ms", 1e3);
}

void BenchLoad()
{
    Compare(
        "7 load, query, unload; an empty DLL", 0, 21,
        [] {
            return Time([] {
                TarnexLoader library;
                const char* version = nullptr;
                library.tarnexGetAPIVersion_3(&version);
                library.Unload();
            });
        },
        [] {
            return Time([] {
                const HMODULE module = ::LoadLibraryW(L"empty.dll");
                reinterpret_cast<std::size_t (*)()>(
                    reinterpret_cast<void*>(::GetProcAddress(module, "emptyVersion")))();
                ::FreeLibrary(module);
            });
        },
        "us", 1e6);
}

}  // namespace

// Names of rows as an argument, as in "125", select those.
int main(int argc, char** argv)
{
    const LogFolder folder;
    SetEnv(L"TARNEX_LOG_LEVEL", L"");

    PrintHead();
    const std::string rows = argc > 1 ? argv[1] : "1234567";
    const auto wanted = [&](char row) { return rows.find(row) != std::string::npos; };
    const Calls byHand = GetCallsByHand();
    TarnexLoader dll;
    const Calls library = GetCalls(dll);
    if (wanted('1'))
        BenchSet(library, byHand, "1 set a parameter, level err", 1.05, 200'000);
    if (wanted('2'))
        BenchCreate(library, byHand);
    if (wanted('3')) {
        dll.tarnexSetLogLevel_3(TARNEX_LOG_TRACE);
        SetLogByHand((folder.path / "by-hand.log").string().c_str());
        BenchSet(library, byHand, "3 set a parameter, level trace (two lines)", 0.95, 20'000);
        SetLogByHand(nullptr);
        dll.tarnexSetLogLevel_3(TARNEX_LOG_ERR);
    }
    if (wanted('4'))
        BenchGrowth(library);
    if (wanted('5'))
        BenchThreads(library, byHand);
    dll.Unload();
    if (wanted('6'))
        BenchRetention(folder);
    if (wanted('7'))
        BenchLoad();
    return g_GoalMissed ? 1 : 0;
}
