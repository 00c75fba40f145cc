#include "session/AuthHandle.h"

#include "logging/Logger.h"
#include "platform/Text.h"

TarnexResult AuthHandle::SetAuthParam(std::string_view key, std::string_view value)
{
    Log(spdlog::level::trace, "SetAuthParam() called with key=[{}], value=[{}]", key, value);
    const std::lock_guard lock(m_Mutex);
    if (m_bLocked) {
        Log(spdlog::level::warn, "SetAuthParam() called while AuthHandle is locked");
        return TARNEX_E_HANDLE_LOCKED;
    }
    if (const auto param = m_Params.find(key); param != m_Params.end())
        param->second = value;
    else
        m_Params.emplace(key, value);
    Log(spdlog::level::debug, "SetAuthParam(): parameter key=[{}] is set to value=[{}]", key, value);
    return TARNEX_OK;
}

TarnexResult AuthHandle::GetAuthParam(std::string_view key, std::string& value)
{
    Log(spdlog::level::trace, "GetAuthParam() called with key=[{}]", key);
    const std::lock_guard lock(m_Mutex);
    const auto param = m_Params.find(key);
    if (param == m_Params.end()) {
        Log(spdlog::level::debug, "GetAuthParam() key=[{}] was not found", key);
        return TARNEX_E_PARAM_NOT_FOUND;
    }
    value = param->second;
    return TARNEX_OK;
}

TarnexResult AuthHandle::GetAuthParamInt(std::string_view key, int* pValue, const int* pMin, const int* pMax)
{
    Log(spdlog::level::trace, "GetAuthParamInt() called with key=[{}]", key);
    const std::lock_guard lock(m_Mutex);
    const auto param = m_Params.find(key);
    if (param == m_Params.end()) {
        Log(spdlog::level::debug, "GetAuthParamInt() key=[{}] was not found", key);
        return TARNEX_E_PARAM_NOT_FOUND;
    }
    const std::optional<int> number = ParseInteger(param->second);
    if (!number) {
        Log(spdlog::level::err, "GetAuthParamInt(): failed to convert parameter [{}] to integer", param->second);
        return TARNEX_E_INVALID_ARGUMENT;
    }
    if (pMin != nullptr && *number < *pMin) {
        Log(spdlog::level::err, "GetAuthParamInt(): [{}] = [{}] is out of range [>= [{}]]", key, *number, *pMin);
        return TARNEX_E_OUT_OF_RANGE;
    }
    if (pMax != nullptr && *number > *pMax) {
        Log(spdlog::level::err, "GetAuthParamInt(): [{}] = [{}] is out of range [<= [{}]]", key, *number, *pMax);
        return TARNEX_E_OUT_OF_RANGE;
    }
    *pValue = *number;
    return TARNEX_OK;
}

TarnexResult AuthHandle::RemoveAuthParam(std::string_view key)
{
    Log(spdlog::level::trace, "RemoveAuthParam() called with key=[{}]", key);
    const std::lock_guard lock(m_Mutex);
    if (m_bLocked) {
        Log(spdlog::level::warn, "RemoveAuthParam() called while AuthHandle is locked");
        return TARNEX_E_HANDLE_LOCKED;
    }
    const auto param = m_Params.find(key);
    if (param == m_Params.end()) {
        Log(spdlog::level::debug, "RemoveAuthParam() key=[{}] was not found", key);
        return TARNEX_E_PARAM_NOT_FOUND;
    }
    m_Params.erase(param);
    Log(spdlog::level::info, "RemoveAuthParam() parameter key=[{}] was removed", key);
    return TARNEX_OK;
}

TarnexResult AuthHandle::LockAuthParam()
{
    Log(spdlog::level::trace, "LockAuthParam() called");
    const std::lock_guard lock(m_Mutex);
    m_bLocked = true;
    return TARNEX_OK;
}
