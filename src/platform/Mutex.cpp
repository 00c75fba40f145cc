#include "platform/Mutex.h"

#include <system_error>

#include "platform/Process.h"

void CMutex::lock()
{
    if (IsAbandoned())
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    m_Mutex->lock();
}

bool CMutex::IsAbandoned()
{
    if (!IsProcessEnding())
        return false;
    // Nobody else is left to take or to release it.
    if (!m_Mutex->try_lock())
        return true;
    m_Mutex->unlock();
    return false;
}
