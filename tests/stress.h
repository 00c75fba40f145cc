#pragma once

#include "host.h"

inline std::atomic<int> g_Failures{0};
inline std::string g_FirstFailure = "nothing";

inline void Check(bool condition, const std::string& what)
{
    if (!condition && g_Failures++ == 0)
        g_FirstFailure = what;
    if (!condition)
        std::fprintf(stderr, "%s\n", what.c_str());
}

inline void CheckLines(const Lines& log, const Lines& expected)
{
    const auto [have, want] = std::mismatch(log.begin(), log.end(), expected.begin(), expected.end());
    if (have != log.end() || want != expected.end())
        Check(false, "line " + std::to_string(have - log.begin()) + ": " + (have == log.end() ? "none" : *have));
}

/** A moment that takes a process of its own for each round: the process's part, and what its log must then be. */
struct ProcessMoment
{
    void (*run)(int round);
    Lines (*expect)(const Lines& log, int round);
};

extern const std::map<std::string, ProcessMoment> g_ProcessMoments;
