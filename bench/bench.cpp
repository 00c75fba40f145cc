// What a call costs: the library through its exports against the same work by hand, in one process and in turn.
#include <algorithm>
#include <cstdio>

#include "calls.h"
#include "host.h"

namespace {

constexpr const char* kKeys[] = {"user", "token"};
const char* g_Value = "alice";
bool g_GoalMissed = false;

/** Nanoseconds for each of this many calls. */
double Time(int calls, const auto& call)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i)
        call(i);
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / calls;
}

/** Prints a row and compares the ratio with the most that it may be; 0 is no goal. */
void PrintRow(const std::string& work, const std::string& library, const std::string& byHand, double ratio, double goal)
{
    const bool missed = goal != 0 && ratio > goal;
    g_GoalMissed = g_GoalMissed || missed;
    std::printf("%-44s %24s %24s %6.2f", work.c_str(), library.c_str(), byHand.c_str(), ratio);
    if (goal != 0)
        std::printf("  at most %.2f%s", goal, missed ? "  MISSED" : "");
    std::printf("\n");
    std::fflush(stdout);
}

/** Sorts the samples: their median, and all that is printed of those of one side. */
std::pair<double, std::string> Summarize(std::vector<double>& samples)
{
    std::sort(samples.begin(), samples.end());
    const double median = samples[samples.size() / 2];
    char text[64];
    std::snprintf(text, sizeof text, "%.0f (%.0f to %.0f) ns", median, samples.front(), samples.back());
    return {median, text};
}

double TimeSets(const Calls& calls, int count)
{
    TarnexAuthHandle handle = nullptr;
    calls.create(&handle);
    const double time = Time(count, [&](int i) { calls.set(&handle, kKeys[i & 1], g_Value); });
    calls.destroy(&handle);
    return time;
}

double TimeSetsOfTwoThreads(const Calls& calls, int count)
{
    return Time(1,
                [&](int) {
                    std::thread other(TimeSets, calls, count);
                    TimeSets(calls, count);
                    other.join();
                }) /
           (2 * count);
}

/** A million handles have a parameter each. Those that follow each other here lie far apart. */
double TimeSetsAmongMany(const Calls& calls, int count)
{
    std::vector<TarnexAuthHandle> handles(1'000'000);
    for (TarnexAuthHandle& handle : handles) {
        calls.create(&handle);
        calls.set(&handle, kKeys[0], g_Value);
    }
    const double time = Time(count, [&](int i) {
        calls.set(&handles[static_cast<std::size_t>(i) * 611'953 % handles.size()], kKeys[0], g_Value);
    });
    for (TarnexAuthHandle& handle : handles)
        calls.destroy(&handle);
    return time;
}

double TimeCreations(const Calls& calls, int count)
{
    TarnexAuthHandle handle = nullptr;
    return Time(count, [&](int) {
        calls.create(&handle);
        calls.destroy(&handle);
    });
}

double TimeRefusals(const Calls& calls, int count)
{
    TarnexAuthHandle null = nullptr;
    return Time(count, [&](int) { calls.destroy(&null); });
}

}  // namespace

// Numbers of rows as an argument, as in "125", select those.
int main(int argc, char** argv)
{
    const std::string rows = argc > 1 ? argv[1] : "12345678";
    const LogFolder folder;
    SetEnv(L"TARNEX_LOG_LEVEL", L"");
    const TarnexLoader dll;
    const Calls library = {dll.tarnexCreateAuthHandle_3, dll.tarnexDeleteAuthHandle_3, dll.tarnexSetAuthParams_3};
    const Calls byHand = GetCallsByHand();

    /** Measures both sides in turn, after one round to warm up. Takes the ratio of each round: the clock changes. */
    const auto compare = [&](const std::string& work, double goal, auto* time, int count, int rounds = 31) {
        if (rows.find(work[0]) == std::string::npos)
            return;
        std::vector<double> ours, theirs, ratios;
        for (int round = 0; round <= rounds; ++round) {
            ours.push_back(time(library, count));
            theirs.push_back(time(byHand, count));
            ratios.push_back(ours.back() / theirs.back());
            if (round == 0)
                ours = theirs = ratios = {};
        }
        PrintRow(work, Summarize(ours).second, Summarize(theirs).second, Summarize(ratios).first, goal);
    };

    std::printf("%-44s %24s %24s %6s  %s\n", "work: medians (least to most)", "library", "by hand", "ratio", "goal");
    compare("1 set a short parameter, level err", 1.25, TimeSets, 200'000);
    g_Value = "a value of forty bytes, as tokens often.";
    compare("2 set a parameter of forty bytes, level err", 0.70, TimeSets, 200'000);
    compare("3 the same by two threads, a handle each", 0.85, TimeSetsOfTwoThreads, 100'000);
    compare("4 the same among 1,000,000 handles", 0.85, TimeSetsAmongMany, 300'000, 5);
    compare("5 create and delete a handle", 0.70, TimeCreations, 200'000);

    const fs::path log = fs::temp_directory_path() / "tarnex-by-hand.log";
    SetLogByHand(log.string().c_str());
    compare("6 refuse a null handle: an err line, flushed", 0, TimeRefusals, 5'000);
    dll.tarnexSetLogLevel_3(TARNEX_LOG_TRACE);
    compare("7 set a parameter, level trace: two lines", 0.90, TimeSets, 20'000);
    SetLogByHand(nullptr);
    fs::remove(log);

    if (rows.find('8') != std::string::npos) {
        wchar_t path[MAX_PATH] = {};
        ::GetModuleFileNameW(dll.module.get(), path, MAX_PATH);
        const auto size = fs::file_size(path);
        PrintRow("8 size of the DLL; goal", std::to_string(size) + " bytes", "455000 bytes",
                 static_cast<double>(size) / 455'000, 1);
    }
    return g_GoalMissed ? 1 : 0;
}
