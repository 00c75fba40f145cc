#include "platform/ScopedHandle.h"

#include <windows.h>

void CloseFile(void* handle) noexcept
{
    ::CloseHandle(handle);
}

void CloseSearch(void* handle) noexcept
{
    ::FindClose(handle);
}
