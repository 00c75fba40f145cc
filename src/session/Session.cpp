#include "session/Session.h"

#include <memory>
#include <mutex>

#include "logging/Controls.h"
#include "logging/Logger.h"
#include "platform/Process.h"
#include "session/AuthHandle.h"

namespace {

AuthHandle* ToObject(TarnexAuthHandle hAuth)
{
    return reinterpret_cast<AuthHandle*>(hAuth);
}

}  // namespace

CSession::~CSession()
{
    BeginUnload();
    if (m_Mutex.TakeAtExit()) {
        bool canLog = true;
        for (const AuthHandle* handle : *m_Handles) {
            try {
                if (canLog)
                    Log(spdlog::level::debug, "~CSession() for (auto h : m_Handles)");
            } catch (...) {
                // The process's first message, and opening the log failed. spdlog retries for 50 ms; do that once.
                canLog = false;
            }
            if (!IsProcessEnding())  // for the reason that CAbandonable gives
                delete handle;
        }
    }
    Flush();
}

TarnexResult CSession::CreateAuthHandle(TarnexAuthHandle* phAuth)
{
    const std::lock_guard lock(m_Mutex);
    AuthHandle* const current = ToObject(*phAuth);
    if (m_Handles->contains(current)) {
        Log(spdlog::level::err, "CreateAuthHandle() hAuth=[{}] was already created", fmt::ptr(current));
        return TARNEX_E_HANDLE_EXISTS;
    }
    auto created = std::make_unique<AuthHandle>();
    if (m_SpareEntry->empty()) {
        m_Handles->insert(created.get());
    } else {
        m_SpareEntry->value() = created.get();
        m_Handles->insert(std::move(*m_SpareEntry));
    }
    *phAuth = reinterpret_cast<TarnexAuthHandle>(created.release());
    return TARNEX_OK;
}

TarnexResult CSession::DeleteAuthHandle(TarnexAuthHandle* phAuth)
{
    const std::lock_guard lock(m_Mutex);
    AuthHandle* const handle = ToObject(*phAuth);
    Registry::node_type entry = m_Handles->extract(handle);
    if (entry.empty()) {
        Log(spdlog::level::err, "CreateAuthHandle() hAuth=[{}] was not found", fmt::ptr(handle));
        return TARNEX_E_HANDLE_NOT_FOUND;
    }
    *m_SpareEntry = std::move(entry);
    delete handle;
    *phAuth = nullptr;
    return TARNEX_OK;
}

TarnexResult CSession::SetAuthParam(TarnexAuthHandle* phAuth, std::string_view key, std::string_view value)
{
    const std::lock_guard lock(m_Mutex);
    AuthHandle* const handle = ToObject(*phAuth);
    if (!m_Handles->contains(handle)) {
        Log(spdlog::level::err, "SetAuthParam() hAuth=[{}] was not found", fmt::ptr(handle));
        return TARNEX_E_HANDLE_NOT_FOUND;
    }
    return handle->SetAuthParam(key, value);
}

TarnexResult CSession::RemoveAuthParam(TarnexAuthHandle* phAuth, std::string_view key)
{
    const std::lock_guard lock(m_Mutex);
    AuthHandle* const handle = ToObject(*phAuth);
    if (!m_Handles->contains(handle)) {
        Log(spdlog::level::err, "RemoveAuthParam() hAuth=[{}] was not found", fmt::ptr(handle));
        return TARNEX_E_HANDLE_NOT_FOUND;
    }
    return handle->RemoveAuthParam(key);
}

TarnexResult CSession::SetLogLevel(uint32_t level)
{
    return ::SetLogLevel(level);
}

TarnexResult CSession::SetLogName(const char* name)
{
    return ::SetLogName(name);
}

TarnexResult CSession::FlushLog()
{
    return ::Flush();
}
