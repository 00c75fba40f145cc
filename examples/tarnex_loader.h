#pragma once

// For hosts that load Tarnex 3 at run time. Copy this header into the project.

#include <tarnex_3.h>
#include <windows.h>

#include <stdexcept>
#include <string>

/**
 * The library with its functions, found by name. Throws std::runtime_error when it cannot be loaded. Copies are as
 * good as the first; one of them calls Unload() when all are through.
 */
struct TarnexLoader
{
    HMODULE module = ::LoadLibraryW(L"Tarnex_3.dll");

    /** The clean-up of old log files may keep the library loaded a little longer, until it is over. */
    void Unload() const { ::FreeLibrary(module); }

    /** The export of that name, with the type that the header gives it. */
    template <typename Function>
    Function* Find(const char* name) const
    {
        const FARPROC address = module == nullptr ? nullptr : ::GetProcAddress(module, name);
        if (address == nullptr)
            throw std::runtime_error(std::string("Tarnex_3.dll: no ") + name);
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
    }

// NOLINTNEXTLINE(bugprone-macro-parentheses): name is the name of a member
#define TARNEX_FIND(name) decltype(::name##_3)* name = Find<decltype(::name##_3)>(#name "_3")
    TARNEX_FIND(tarnexGetAPIVersion);
    TARNEX_FIND(tarnexCreateAuthHandle);
    TARNEX_FIND(tarnexDeleteAuthHandle);
    TARNEX_FIND(tarnexSetAuthParams);
    TARNEX_FIND(tarnexRemoveAuthParams);
    TARNEX_FIND(tarnexSetLogName);
    TARNEX_FIND(tarnexSetLogLevel);
    TARNEX_FIND(tarnexFlushLog);
#undef TARNEX_FIND
};
