#pragma once

#include <utility>

/**
 * An object that can be exempted from its own destruction. When process exit has ended a thread in the middle
 * of changing an object, running its destructor is not safe; the end of the process reclaims it anyway.
 */
template <typename T>
class CAbandonable
{
public:
    template <typename... Args>
    explicit CAbandonable(Args&&... args) : m_Value(std::forward<Args>(args)...)
    {
    }
    ~CAbandonable()
    {
        if (!m_bAbandoned)
            m_Value.~T();
    }
    CAbandonable(const CAbandonable&) = delete;
    CAbandonable& operator=(const CAbandonable&) = delete;

    void Abandon() noexcept { m_bAbandoned = true; }

    T& operator*() noexcept { return m_Value; }
    T* operator->() noexcept { return &m_Value; }

private:
    // A member of a union is destroyed by hand only.
    union {
        T m_Value;
    };
    bool m_bAbandoned = false;
};
