#include <tarnex_3.h>

#include <string>

#include "session/Session.h"

TarnexResult tarnexGetAPIVersion_3(const char** ppVersion)
{
    *ppVersion = TARNEX_VERSION;
    return TARNEX_OK;
}

TarnexResult tarnexCreateAuthHandle_3(TarnexAuthHandle* phAuth)
{
    return g_Session.CreateAuthHandle(phAuth);
}

TarnexResult tarnexDeleteAuthHandle_3(TarnexAuthHandle* phAuth)
{
    return g_Session.DeleteAuthHandle(phAuth);
}

TarnexResult tarnexSetAuthParams_3(TarnexAuthHandle* phAuth, const char* key, const char* value)
{
    if (key == nullptr || value == nullptr)
        return TARNEX_E_INVALID_ARGUMENT;
    const std::string ownValue = value;
    const std::string ownKey = key;
    return g_Session.SetAuthParam(phAuth, ownKey, ownValue);
}

TarnexResult tarnexRemoveAuthParams_3(TarnexAuthHandle* phAuth, const char* key)
{
    if (key == nullptr)
        return TARNEX_E_INVALID_ARGUMENT;
    return g_Session.RemoveAuthParam(phAuth, key);
}

TarnexResult tarnexSetLogName_3(const char* name)
{
    return g_Session.SetLogName(name);
}

TarnexResult tarnexSetLogLevel_3(uint32_t level)
{
    return g_Session.SetLogLevel(level);
}

TarnexResult tarnexFlushLog_3(void)
{
    return g_Session.FlushLog();
}
