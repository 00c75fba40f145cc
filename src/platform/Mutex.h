#pragma once

#include <mutex>

#include "platform/Abandonable.h"

/**
 * The lock of all that is process-wide: a std::mutex that process exit cannot turn into a hang.
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

    /**
     * Takes the lock if the process is ending, never to release it. False when process exit has ended the thread that
     * holds it: what it guards may be torn.
     */
    bool TakeAtExit();

private:
    /** lock() at process exit. Inlined, the making of its exception would cost every lock() a guarded stack frame. */
    __declspec(noinline) void LockAtExit();
    CAbandonable<std::mutex> m_Mutex;

    /** False until process exit; written only by the last thread. */
    bool m_bTakenForGood = false;
};
