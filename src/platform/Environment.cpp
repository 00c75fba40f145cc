#include "platform/Environment.h"

#include <cstdlib>

std::wstring GetEnvValue(const wchar_t* name)
{
    const wchar_t* value = name != nullptr ? ::_wgetenv(name) : nullptr;
    return value != nullptr ? std::wstring(value) : std::wstring();
}
