#pragma once

// How to put something else in the place of what a module imports.

#include <windows.h>
// After <windows.h>, which it needs.
#include <psapi.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <string>

/** Redirects the module's calls of a function that it imports by name; false when it does not import it. */
template <typename Function>
bool ReplaceImport(HMODULE module, const std::string& wanted, Function* replacement)
{
    const auto at = [module](std::size_t offset) { return reinterpret_cast<std::byte*>(module) + offset; };
    const auto header = static_cast<std::size_t>(reinterpret_cast<IMAGE_DOS_HEADER*>(at(0))->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory =
        reinterpret_cast<IMAGE_NT_HEADERS64*>(at(header))->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    bool found = false;
    auto* dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(at(directory.VirtualAddress));
    for (; directory.Size != 0 && dll->Name != 0; ++dll) {
        ULONGLONG name = 0;  // copied, because the tables of Wine's own modules are not aligned
        for (std::size_t i = 0; std::memcpy(&name, at(dll->OriginalFirstThunk + i), sizeof name), name != 0;
             i += sizeof name) {
            std::byte* const slot = at(dll->FirstThunk + i);
            DWORD protection = 0;
            if (!IMAGE_SNAP_BY_ORDINAL64(name) && wanted == reinterpret_cast<char*>(at(name + sizeof(WORD))) &&
                ::VirtualProtect(slot, sizeof replacement, PAGE_READWRITE, &protection)) {
                std::memcpy(slot, &replacement, sizeof replacement);
                found = true;
            }
        }
    }
    return found;
}

inline std::atomic<int> g_ThreadsRefused{0};

/** From now on the module can start no threads. Wine does not always survive an exit that interrupts one. */
inline bool RefuseThreads(HMODULE module)
{
    decltype(&::CreateThread) const refuse = [](auto...) { return ++g_ThreadsRefused, HANDLE{}; };
    return ReplaceImport(module, "CreateThread", refuse);
}

/** Has this called whenever the library is about to take one of its locks, which it first asks for process exit. */
inline bool WatchLocks(HMODULE module, void (*watch)())
{
    static void (*called)();
    called = watch;
    using Question = BOOLEAN(NTAPI*)();
    const Question hook = []() -> BOOLEAN {
        static const FARPROC original = ::GetProcAddress(::GetModuleHandleW(L"ntdll"), "RtlDllShutdownInProgress");
        called();
        return static_cast<BOOLEAN>(original());
    };
    return ReplaceImport(module, "RtlDllShutdownInProgress", hook);
}

inline std::atomic<bool> g_DiskIsFull{false};

/**
 * Watches writing to files, wherever the C runtime that writes the log may be; the function is called after each.
 * This program is left out, and kernel32, whose own function passes the call on by such an import.
 */
inline bool WatchWrites(void (*watch)())
{
    static void (*called)();
    called = watch;
    decltype(&::WriteFile) const hook = [](HANDLE file, auto data, auto size, auto written, auto late) -> BOOL {
        if (g_DiskIsFull && ::GetFileType(file) == FILE_TYPE_DISK)
            return FALSE;
        const BOOL result = ::WriteFile(file, data, size, written, late);
        called();
        return result;
    };
    HMODULE modules[256];
    DWORD size = 0;
    bool found = false;
    ::EnumProcessModules(::GetCurrentProcess(), modules, sizeof modules, &size);
    for (DWORD i = 0; i < size / sizeof(HMODULE); ++i)
        if (modules[i] != ::GetModuleHandleW(nullptr) && modules[i] != ::GetModuleHandleW(L"kernel32"))
            found |= ReplaceImport(modules[i], "WriteFile", hook);
    return found;
}

/** The disk is full, or no longer. */
inline bool FillDisk(bool full = true)
{
    g_DiskIsFull = full;
    return WatchWrites([] {});
}
