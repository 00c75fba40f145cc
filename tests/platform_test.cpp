// What the log stands on, from inside: text, environment, files, the clean-up's arithmetic.
#include <gtest/gtest.h>

#include <stdexcept>

#include "host.h"
#include "logging/Retention.h"
#include "platform/Environment.h"
#include "platform/ScopedHandle.h"
#include "platform/Text.h"

namespace {

TEST(Environment, AVariableMayBeAbsent)
{
    EXPECT_EQ(GetEnvValue(nullptr) + GetEnvValue(L"TARNEX_NONE"), L"");
}

TEST(Text, Utf8BecomesUtf16OrIsRefused)
{
    EXPECT_EQ(Utf8ToWide(""), L"");
    EXPECT_EQ(Utf8ToWide("\xEF\xBB\xBF\xC3\xA4\xE2\x82\xAC"), L"\uFEFF\u00E4\u20AC");
    EXPECT_EQ(Utf8ToWide("\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"), (std::wstring{0xD83D, 0xDE00, 0xDBFF, 0xDFFF}));
    for (const char* text : {"\xC3", "\x80", "a\xFF", "\xC0\xAF", "\xE2\x82", "\xED\xBF\xBF", "\xF4\x90\x80\x80"})
        EXPECT_THROW(Utf8ToWide(text), std::range_error) << text;
}

TEST(Text, AnIntegerIsWholeAndFitsIn32Bits)
{
    for (const std::string text : {"42", " 42", "\t\n\v\f\r42", "+42", "-7", "007", "2147483647", "-2147483648"})
        EXPECT_EQ(ParseInteger(text), std::stoi(text));
    for (const std::string text : {"42 ", "4x", "0x10", "", "  ", "x", "+-1", "2147483648", "-2147483649"})
        EXPECT_EQ(ParseInteger(text), std::nullopt);
}

TEST(ScopedHandle, TheNumberOfARedirectedFileIsThatOfNothing)
{
    const HANDLE below = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE file = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ::CloseHandle(below);  // a number that the system may prefer
    RedirectToNothing(file);
    EXPECT_EQ(::GetFileType(file), static_cast<DWORD>(FILE_TYPE_CHAR));
}

TEST(Retention, TheCutOffWrapsAt32Bits)
{
    const std::tuple<std::int64_t, int, std::int64_t> cases[] = {
        // now, hours, cut-off; the last product below 2^31, the first above, and one that comes round to 1904 seconds
        {1'800'000'000, 24, 1'799'913'600},        {1'800'000'000, -1, 1'800'003'600},
        {1'800'000'000, 596'523, -347'482'800},    {1'800'000'000, 596'524, -347'486'400},
        {1'800'000'000, 1'193'047, 1'799'998'096}, {2'147'483'647, -1, -2'147'480'049}};
    for (const auto& [now, hours, seconds] : cases)
        EXPECT_EQ(GetCutOffTime(now, hours), (seconds + 11'644'473'600) * 10'000'000) << now << " " << hours;
}

}  // namespace
