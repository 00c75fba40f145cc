#pragma once

#include <cstdint>

/** Owns an operating system handle of the kind whose failure value is INVALID_HANDLE_VALUE. */
template <void (*Close)(void*) noexcept>
class CScopedHandle
{
public:
    explicit CScopedHandle(void* handle) noexcept : m_Handle(handle) {}
    ~CScopedHandle()
    {
        if (IsOpen())
            Close(m_Handle);
    }
    CScopedHandle(const CScopedHandle&) = delete;
    CScopedHandle& operator=(const CScopedHandle&) = delete;

    bool IsOpen() const noexcept { return reinterpret_cast<std::intptr_t>(m_Handle) != -1; }
    void* Get() const noexcept { return m_Handle; }

private:
    void* m_Handle;
};

void CloseFile(void* handle) noexcept;

/**
 * Closes the file and opens NUL under the same handle value: what is written to the handle afterwards is discarded, and
 * cannot reach another file that got the value. For the end of a process only, when no other thread is left.
 */
void RedirectToNothing(void* handle) noexcept;
void CloseSearch(void* handle) noexcept;

using CFileHandle = CScopedHandle<CloseFile>;
using CSearchHandle = CScopedHandle<CloseSearch>;
