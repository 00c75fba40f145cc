#pragma once

#include <tarnex_3.h>

/** The handle functions of either side: the library's exports, or the same work written by hand. */
struct Calls
{
    decltype(&tarnexCreateAuthHandle_3) create;
    decltype(&tarnexDeleteAuthHandle_3) destroy;
    decltype(&tarnexSetAuthParams_3) set;
};

/**
 * The straightforward equivalent, written by hand: a set of objects and their maps under two locks and, once that has
 * been turned on, the same lines to a file through spdlog with its defaults.
 */
Calls GetCallsByHand();

/** Opens the log of the side written by hand and writes to it from then on; null turns it off. */
void SetLogByHand(const char* path);
