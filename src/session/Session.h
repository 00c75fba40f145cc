#pragma once

#include <tarnex_3.h>

#include <string_view>
#include <unordered_set>

#include "platform/Abandonable.h"
#include "platform/Mutex.h"

class AuthHandle;

/**
 * Owns every handle of the process and does all handle work, one call at a time. A value in a host's variable
 * is compared with the registry before anything touches the object behind it.
 *
 * Operations on handles return TARNEX_E_HANDLE_NOT_FOUND for a value that is not registered, else what AuthHandle
 * returns. They throw std::bad_alloc, std::system_error when a lock fails, and what the creation of the logger throws;
 * the registry and the host's variable are then as before.
 */
class CSession
{
public:
    CSession() = default;

    /**
     * Destroys the handles that hosts left behind and flushes the log. Waits for no lock: no call may be in
     * progress. At process exit the objects stay, and the registry is not read if a thread was ended that may
     * have been changing it.
     */
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    /** Stores a new handle in *phAuth. TARNEX_E_HANDLE_EXISTS when that holds a registered handle. */
    TarnexResult CreateAuthHandle(TarnexAuthHandle* phAuth);

    /** Destroys the handle in *phAuth and stores null there. */
    TarnexResult DeleteAuthHandle(TarnexAuthHandle* phAuth);

    TarnexResult SetAuthParam(TarnexAuthHandle* phAuth, std::string_view key, std::string_view value);
    TarnexResult RemoveAuthParam(TarnexAuthHandle* phAuth, std::string_view key);

    // Plain forwarders to the logging layer; they take no lock here.
    TarnexResult SetLogLevel(uint32_t level);
    TarnexResult SetLogName(const char* name);
    TarnexResult FlushLog();

private:
    /** First of all locks. Held for the whole of each operation on handles; guards all that follows. */
    CMutex m_Mutex;

    using Registry = std::unordered_set<AuthHandle*>;

    /** The handles that are alive, each owned from here. */
    CAbandonable<Registry> m_Handles;

    /** The entry of the handle deleted last, kept for the next one: creation and deletion then spare the heap. */
    CAbandonable<Registry::node_type> m_SpareEntry;
};

/** The process's session, from load to unload. */
extern CSession g_Session;
