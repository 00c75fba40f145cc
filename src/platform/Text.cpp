#include "platform/Text.h"

#include <windows.h>

#include <cstring>
#include <limits>

std::wstring Utf8ToWide(const char* text)
{
    const std::size_t size = std::strlen(text);
    if (size == 0)  // the system call refuses an empty input
        return {};

    // The system's converter, because the standard library's lets surrogate code points through and its own
    // errors carry other texts. No UTF-8 text has more UTF-16 units than bytes.
    std::wstring wide(size, L'\0');
    int length = 0;
    if (size <= static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        const int units = static_cast<int>(size);
        length = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, units, wide.data(), units);
    }
    if (length == 0)
        throw std::range_error("bad conversion");
    wide.resize(static_cast<std::size_t>(length));
    return wide;
}
