#pragma once

// What a loaded module exports and imports, and how to put something else in an import's place.

#include <windows.h>
// After <windows.h>, which it needs.
#include <psapi.h>

#include <cstddef>
#include <cstring>
#include <string>

template <typename T>
T* At(HMODULE module, std::size_t offset)
{
    return reinterpret_cast<T*>(reinterpret_cast<std::byte*>(module) + offset);
}

inline const IMAGE_OPTIONAL_HEADER64& Header(HMODULE module)
{
    const auto offset = static_cast<std::size_t>(At<IMAGE_DOS_HEADER>(module, 0)->e_lfanew);
    return At<IMAGE_NT_HEADERS64>(module, offset)->OptionalHeader;
}

/** Shows each function that the module imports by name: of which DLL, its name, and where its address stands. */
template <typename Visitor>
void ForEachImport(HMODULE module, const Visitor& show)
{
    const IMAGE_DATA_DIRECTORY& directory = Header(module).DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (directory.Size == 0)
        return;
    for (auto* dll = At<IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress); dll->Name != 0; ++dll) {
        ULONGLONG name = 0;  // copied, because the tables of Wine's own modules are not aligned
        for (std::size_t i = 0;; i += sizeof name) {
            std::memcpy(&name, At<char>(module, dll->OriginalFirstThunk + i), sizeof name);
            if (name == 0)
                break;
            if (!IMAGE_SNAP_BY_ORDINAL64(name))
                show(At<char>(module, dll->Name), At<char>(module, name + sizeof(WORD)),
                     At<void>(module, dll->FirstThunk + i));
        }
    }
}

/** Redirects the module's calls of a function that it imports; false when it does not import it. */
template <typename Function>
bool ReplaceImport(HMODULE module, const std::string& wanted, Function* replacement)
{
    bool found = false;
    ForEachImport(module, [&](const char*, const char* name, void* slot) {
        DWORD protection = 0;
        if (wanted == name && ::VirtualProtect(slot, sizeof replacement, PAGE_READWRITE, &protection)) {
            std::memcpy(slot, &replacement, sizeof replacement);
            found = true;
        }
    });
    return found;
}

/** From now on the module can start no threads. Wine does not always survive an exit that interrupts one. */
inline bool RefuseThreads(HMODULE module)
{
    decltype(&::CreateThread) const refuse = [](auto...) { return HANDLE{}; };
    return ReplaceImport(module, "CreateThread", refuse);
}

/**
 * The same for writing to files, wherever the C runtime that writes the log may be. This program can still write, and
 * so can kernel32, whose function passes the call on by such an import.
 */
inline bool ReplaceWriteFile(decltype(&::WriteFile) replacement)
{
    HMODULE modules[256];
    DWORD size = 0;
    bool found = false;
    ::EnumProcessModules(::GetCurrentProcess(), modules, sizeof modules, &size);
    for (DWORD i = 0; i < size / sizeof(HMODULE); ++i)
        if (modules[i] != ::GetModuleHandleW(nullptr) && modules[i] != ::GetModuleHandleW(L"kernel32"))
            found |= ReplaceImport(modules[i], "WriteFile", replacement);
    return found;
}

/** From now on files cannot be written, as when the disk is full. */
inline bool FillDisk()
{
    return ReplaceWriteFile([](HANDLE file, const void* data, DWORD size, DWORD* written, OVERLAPPED* late) -> BOOL {
        return ::GetFileType(file) == FILE_TYPE_DISK ? FALSE : ::WriteFile(file, data, size, written, late);
    });
}
