#include "platform/ScopedHandle.h"

#include <windows.h>

void CloseFile(void* handle) noexcept
{
    ::CloseHandle(handle);
}

void RedirectToNothing(void* handle) noexcept
{
    ::CloseHandle(handle);
    // The system assigns the value again sooner or later, usually at once. What is opened until then is closed with the
    // process.
    for (int attempt = 0; attempt < 10'000; ++attempt)
        if (::CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                          nullptr) == handle)
            return;
}

void CloseSearch(void* handle) noexcept
{
    ::FindClose(handle);
}
