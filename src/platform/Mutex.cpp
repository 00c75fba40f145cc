#include "platform/Mutex.h"

#include <system_error>

#include "platform/Process.h"

void CMutex::lock()
{
    if (IsProcessEnding()) [[unlikely]]
        LockAtExit();
    else
        m_Mutex->lock();
}

void CMutex::unlock()
{
    if (!m_bTakenForGood)
        m_Mutex->unlock();
}

void CMutex::LockAtExit()
{
    if (!TakeAtExit())
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
}

bool CMutex::TakeAtExit()
{
    if (!IsProcessEnding())
        return true;
    m_bTakenForGood = m_bTakenForGood || m_Mutex->try_lock();
    return m_bTakenForGood;
}
