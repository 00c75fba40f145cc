#pragma once

#include "platform/Process.h"

/**
 * An object that process exit leaves as it is. Exit may have ended a thread in the middle of changing the object,
 * or in the middle of changing the heap: running the destructor then is not safe, and the end of the process
 * reclaims everything anyway.
 */
template <typename T>
class CAbandonable
{
public:
    CAbandonable() : m_Value() {}
    ~CAbandonable()
    {
        if (!IsProcessEnding())
            m_Value.~T();
    }
    CAbandonable(const CAbandonable&) = delete;
    CAbandonable& operator=(const CAbandonable&) = delete;

    T& operator*() noexcept { return m_Value; }
    T* operator->() noexcept { return &m_Value; }

private:
    // A member of a union is destroyed by hand only.
    union {
        T m_Value;
    };
};
