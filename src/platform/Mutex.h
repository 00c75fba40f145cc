#pragma once

#include <mutex>

#include "platform/Abandonable.h"

/**
 * The library's one kind of lock: a std::mutex that process exit cannot turn into a hang.
 *
 * Process exit ends other threads wherever they stand, holding what they hold. A plain mutex would let the
 * thread that is left, which runs the destructors, wait for them for ever. That thread never releases a lock either:
 * a mutex may keep its waiters in a list on their stacks, which exit has ended too.
 */
class CMutex
{
public:
    /**
     * Waits for the lock. Throws std::system_error when the lock fails, or instead of waiting for a thread that
     * process exit has ended (resource_deadlock_would_occur).
     */
    void lock();
    void unlock();

    /** True when process exit has ended the thread that holds the lock: what it guards may be torn. */
    bool IsAbandoned();

private:
    /** Once the process is ending: takes the lock, never to release it. False when an ended thread holds it. */
    bool TakeForGood();

    CAbandonable<std::mutex> m_Mutex;

    /** Written when one thread is left, else false. */
    bool m_bTakenForGood = false;
};
