#include "platform/Process.h"

#include <windows.h>

#include "platform/ScopedHandle.h"

namespace {

// Found by name: an import library of ntdll.dll also offers wcstol and other functions of the C runtime, which
// behave differently.
const auto g_RtlDllShutdownInProgress = reinterpret_cast<BOOLEAN(NTAPI*)()>(
    reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress")));

/** The module that this code is part of; with flags 0 it gains a reference. Null on failure. */
HMODULE GetThisModule(DWORD flags) noexcept
{
    HMODULE module = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | flags, reinterpret_cast<LPCWSTR>(&GetThisModule),
                         &module);
    return module;
}

DWORD WINAPI RunModuleTask(void* task)
{
    reinterpret_cast<void (*)() noexcept>(task)();
    // Returning from here would run code that releasing the reference may have unmapped.
    // cppcheck-suppress missingReturn ; this call does not return
    ::FreeLibraryAndExitThread(GetThisModule(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT), 0);
}

}  // namespace

std::wstring GetProcessIdText()
{
    return std::to_wstring(static_cast<int>(::GetCurrentProcessId()));
}

bool IsProcessEnding() noexcept
{
    return g_RtlDllShutdownInProgress() != FALSE;
}

void StartModuleThread(void (*task)() noexcept) noexcept
{
    const HMODULE module = GetThisModule(0);
    if (module == nullptr)
        return;
    const CScopedHandle thread(::CreateThread(nullptr, 0, RunModuleTask, reinterpret_cast<void*>(task), 0, nullptr));
    if (!thread)
        ::FreeLibrary(module);
}
