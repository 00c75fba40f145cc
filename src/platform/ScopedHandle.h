#pragma once

#include <windows.h>

#include <memory>

struct CHandleCloser
{
    void operator()(HANDLE handle) const noexcept
    {
        if (handle != INVALID_HANDLE_VALUE)
            ::CloseHandle(handle);
    }
};

/** Owns a handle of the operating system; null and INVALID_HANDLE_VALUE are none. */
using CScopedHandle = std::unique_ptr<void, CHandleCloser>;
