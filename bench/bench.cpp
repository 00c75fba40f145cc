// What a call costs: the library through its exports against the same work by hand, in one process and in turn.
#include <algorithm>
#include <cstdio>
#include <random>

#include "calls.h"
#include "host.h"

namespace {

constexpr const char* kValue = "a value of forty bytes, as tokens often.";
constexpr const char* kKeys[] = {"user", "token"};
bool g_GoalMissed = false;

/** Nanoseconds for one of the calls that the work makes. */
double Time(int calls, const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / calls;
}

/** Measurements of one side. */
struct Figures
{
    std::vector<double> samples;

    void Add(double sample) { samples.insert(std::upper_bound(samples.begin(), samples.end(), sample), sample); }
    double Median() const { return samples[samples.size() / 2]; }
    std::string Text() const
    {
        char text[64];
        std::snprintf(text, sizeof text, "%.0f (%.0f to %.0f) ns", Median(), samples.front(), samples.back());
        return text;
    }
};

/** Prints a row and compares the ratio with the most that it may be; 0 is no goal. */
void PrintRow(const std::string& work, const std::string& library, const std::string& byHand, double ratio, double goal)
{
    const bool missed = goal != 0 && ratio > goal;
    g_GoalMissed = g_GoalMissed || missed;
    std::printf("%-42s %24s %24s %6.2f", work.c_str(), library.c_str(), byHand.c_str(), ratio);
    if (goal != 0)
        std::printf("  at most %.2f%s", goal, missed ? "  MISSED" : "");
    std::printf("\n");
    std::fflush(stdout);
}

/** Measures both sides in turn, after one round to warm up, and prints their medians. Returns these. */
std::pair<double, double> Compare(const std::string& work, double goal, int rounds,
                                  const std::function<double()>& library, const std::function<double()>& byHand)
{
    library();
    byHand();
    Figures ours, theirs;
    for (int round = 0; round < rounds; ++round) {
        ours.Add(library());
        theirs.Add(byHand());
    }
    PrintRow(work, ours.Text(), theirs.Text(), ours.Median() / theirs.Median(), goal);
    return {ours.Median(), theirs.Median()};
}

double TimeSets(const Calls& calls, int count)
{
    TarnexAuthHandle handle = nullptr;
    calls.create(&handle);
    const double time = Time(count, [&] {
        for (int i = 0; i < count; ++i)
            calls.set(&handle, kKeys[i & 1], kValue);
    });
    calls.destroy(&handle);
    return time;
}

double TimeCreations(const Calls& calls, int count)
{
    TarnexAuthHandle handle = nullptr;
    return Time(count, [&] {
        for (int i = 0; i < count; ++i) {
            calls.create(&handle);
            calls.destroy(&handle);
        }
    });
}

double TimeTwoThreads(const Calls& calls, int count)
{
    return Time(2 * count, [&] { RunThreads(2, [&](int) { TimeSets(calls, count); }); });
}

/** Prints a row for this many handles, with a parameter set in random order. Returns the medians. */
std::pair<double, double> CompareAmong(int handles, const Calls& library)
{
    std::vector<TarnexAuthHandle> all(static_cast<std::size_t>(handles));
    for (TarnexAuthHandle& handle : all)
        library.create(&handle);
    BareContainers containers(handles);
    const auto setOurs = [&](int i, const char* key) { library.set(&all[static_cast<std::size_t>(i)], key, kValue); };
    const auto setBare = [&](int i, const char* key) { containers.Set(i, key, kValue); };
    for (int i = 0; i < handles; ++i) {  // every parameter exists before the clock runs
        for (const char* key : kKeys) {
            setOurs(i, key);
            setBare(i, key);
        }
    }
    std::mt19937 random(1);
    std::vector<int> order(300'000);
    for (int& index : order)
        index = static_cast<int>(random() % static_cast<unsigned>(handles));
    const auto time = [&order](const auto& set) {
        return Time(static_cast<int>(order.size()), [&] {
            for (const int i : order)
                set(i, kKeys[i & 1]);
        });
    };
    const auto medians = Compare(
        "  set among " + std::to_string(handles) + "; bare containers", 0, 9, [&] { return time(setOurs); },
        [&] { return time(setBare); });
    for (TarnexAuthHandle& handle : all)
        library.destroy(&handle);
    return medians;
}

}  // namespace

// Numbers of rows as an argument, as in "125", select those.
int main(int argc, char** argv)
{
    const std::string rows = argc > 1 ? argv[1] : "123456";
    const auto wanted = [&](char row) { return rows.find(row) != std::string::npos; };
    const LogFolder folder;
    SetEnv(L"TARNEX_LOG_LEVEL", L"");
    const TarnexLoader dll;
    const Calls library = {dll.tarnexCreateAuthHandle_3, dll.tarnexDeleteAuthHandle_3, dll.tarnexSetAuthParams_3};
    const Calls byHand = GetCallsByHand();
    const auto compare = [&](const char* work, double goal, double (*time)(const Calls&, int), int count) {
        const auto timeLibrary = [&] { return time(library, count); };
        const auto timeByHand = [&] { return time(byHand, count); };
        Compare(work, goal, 31, timeLibrary, timeByHand);
    };

    std::printf("%-42s %24s %24s %6s  %s\n", "work: median (least to most)", "library", "by hand", "ratio", "goal");
    if (wanted('1'))
        compare("1 set a parameter, level err", 0.82, TimeSets, 200'000);
    if (wanted('2'))
        compare("2 create and delete a handle", 0.70, TimeCreations, 200'000);
    if (wanted('3')) {
        dll.tarnexSetLogLevel_3(TARNEX_LOG_TRACE);
        SetLogByHand((folder.path / "by-hand.log").string().c_str());
        compare("3 set a parameter, level trace: two lines", 0.90, TimeSets, 20'000);
        SetLogByHand(nullptr);
        dll.tarnexSetLogLevel_3(TARNEX_LOG_ERR);
    }
    if (wanted('4')) {
        const auto few = CompareAmong(1'000, library), many = CompareAmong(1'000'000, library);
        const double ours = many.first / few.first, theirs = many.second / few.second;
        char factors[2][16];
        std::snprintf(factors[0], sizeof factors[0], "%.1f times", ours);
        std::snprintf(factors[1], sizeof factors[1], "%.1f times", theirs);
        PrintRow("4 slower with 1,000,000 handles than 1,000", factors[0], factors[1], ours / theirs, 0.65);
    }
    if (wanted('5'))
        compare("5 two threads, a handle each: set", 0.85, TimeTwoThreads, 100'000);
    if (wanted('6')) {
        wchar_t path[MAX_PATH] = {};
        ::GetModuleFileNameW(dll.module.get(), path, MAX_PATH);
        const auto size = fs::file_size(path);
        PrintRow("6 size of the DLL; goal", std::to_string(size) + " bytes", "480000 bytes",
                 static_cast<double>(size) / 480'000, 1);
    }
    return g_GoalMissed ? 1 : 0;
}
