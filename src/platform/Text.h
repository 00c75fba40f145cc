#pragma once

#include <optional>
#include <stdexcept>
#include <string>

/**
 * Converts NUL-terminated UTF-8 to UTF-16. A byte-order mark is kept as the character U+FEFF. Throws
 * std::range_error, "bad conversion", for anything that is not well-formed UTF-8.
 */
std::wstring Utf8ToWide(const char* text);

/**
 * The text as a base-10 integer of 32 bits, with leading white space and one sign allowed; nothing when it is
 * no integer, is followed by anything else, or does not fit.
 */
template <typename String>
std::optional<int> ParseInteger(const String& text)
{
    try {
        std::size_t used = 0;
        const int number = std::stoi(text, &used);
        if (used == text.size())
            return number;
    } catch (const std::logic_error&) {  // no digits, or out of range
    }
    return std::nullopt;
}
