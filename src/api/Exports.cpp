#include <tarnex_3.h>

#include <memory>
#include <string_view>

#include "session/Session.h"

namespace {

/** The library's own copy of a host's string. One that is not very long needs no memory from the heap. */
class COwnText
{
public:
    explicit COwnText(std::string_view text) : m_Size(text.size())
    {
        if (m_Size > sizeof m_Short)
            m_Long = std::make_unique_for_overwrite<char[]>(m_Size);
        text.copy(m_Long ? m_Long.get() : m_Short, m_Size);
    }

    operator std::string_view() const noexcept { return {m_Long ? m_Long.get() : m_Short, m_Size}; }

private:
    std::size_t m_Size;
    char m_Short[256];
    std::unique_ptr<char[]> m_Long;
};

}  // namespace

TarnexResult tarnexGetAPIVersion_3(const char** ppVersion)
{
    *ppVersion = TARNEX_3_VERSION;
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
    const COwnText ownValue(value);
    const COwnText ownKey(key);
    return g_Session.SetAuthParam(phAuth, ownKey, ownValue);
}

TarnexResult tarnexRemoveAuthParams_3(TarnexAuthHandle* phAuth, const char* key)
{
    if (key == nullptr)
        return TARNEX_E_INVALID_ARGUMENT;
    return g_Session.RemoveAuthParam(phAuth, COwnText(key));
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
