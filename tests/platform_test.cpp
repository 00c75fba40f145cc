// What the log stands on, from inside: text, environment, the log folder, file names, the clean-up.
#include <gtest/gtest.h>

#include <stdexcept>

#include "host.h"
#include "image.h"
#include "logging/LogFile.h"
#include "logging/Retention.h"
#include "platform/Environment.h"
#include "platform/LogFolder.h"
#include "platform/ScopedHandle.h"
#include "platform/Text.h"

// After <windows.h>, which the shell's header needs.
#include <shlobj.h>

namespace {

template <typename Function>
bool Replace(const char* name, Function* replacement)
{
    return ReplaceImport(::GetModuleHandleW(nullptr), name, replacement);
}

TEST(Text, Utf8BecomesUtf16OrIsRefused)
{
    EXPECT_EQ(Utf8ToWide(""), L"");
    EXPECT_EQ(Utf8ToWide("\xEF\xBB\xBF"
                         "a\xC3\xA4\xE2\x82\xAC"),
              L"\uFEFFa\u00E4\u20AC");
    EXPECT_EQ(Utf8ToWide("\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"), (std::wstring{0xD83D, 0xDE00, 0xDBFF, 0xDFFF}));
    for (const char* text : {"\xC3", "\x80", "a\xFF", "\xC0\xAF", "\xE2\x82", "\xED\xBF\xBF", "\xF4\x90\x80\x80"})
        EXPECT_THROW(Utf8ToWide(text), std::range_error) << text;
}

TEST(Environment, ValuesAreReadAsTheyStand)
{
    SetEnv(L"TARNEX_TEST", L" %PATH% \u20AC");
    EXPECT_EQ(GetEnvValue(L"TARNEX_TEST"), L" %PATH% \u20AC");
    EXPECT_EQ(GetEnvValue(L"TARNEX_NONE") + GetEnvValue(nullptr), L"");
}

TEST(LogFolder, AnUnusableFolderGivesWayToTheDefault)
{
    const LogFolder folder;
    static std::wstring appData;
    static int asked;
    decltype(&::SHGetSpecialFolderPathW) const tell = [](auto, auto path, auto id, auto) -> BOOL {
        asked = id;
        appData.copy(path, appData.size());
        return FALSE;  // the path alone counts
    };
    ASSERT_TRUE(Replace("SHGetSpecialFolderPathW", tell));
    const std::wstring base = folder.path.wstring(), missing = base + L"\\missing",
                       normal = base + L"\\Velmora\\Logs\\";
    folder.AddFile("file");
    const std::wstring ofWine = fs::exists(L"Z:\\proc") ? L"Z:\\proc" : missing;  // a folder that nobody may write
    const std::tuple<std::wstring, std::wstring, std::wstring> cases[] = {
        // application data, folder asked for, folder given
        {base, base, base + L"\\"}, {base, base + L"\\", base + L"\\\\"},
        {base, L"", normal},        {base, base + L"\\file", normal},
        {base, missing, normal},    {base, ofWine, normal},
        {L"", L"", L"\\"},          {L"", missing, missing + L"\\"}};
    for (const auto& [local, override, given] : cases) {
        appData = local;
        SetEnv(L"TARNEX_LOG_DIR", override);
        EXPECT_EQ(GetLogFolderPath(), given) << fs::path(override);
    }
    EXPECT_EQ(asked, CSIDL_LOCAL_APPDATA);
    EXPECT_TRUE(fs::is_directory(normal));
    EXPECT_EQ(folder.Files(), (Lines{"Velmora", "file"}));  // no probe stays behind
}

TEST(LogFolder, AReadOnlyFolderIsNotUsable)
{
    if (::GetProcAddress(::GetModuleHandleW(L"ntdll"), "wine_get_version") != nullptr)
        GTEST_SKIP() << "because Wine cannot mark a folder as read-only";
    const LogFolder folder;
    for (const bool readOnly : {true, false}) {
        ::SetFileAttributesW(folder.path.c_str(), readOnly ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL);
        EXPECT_EQ(GetLogFolderPath() == folder.path.wstring() + L"\\", !readOnly);
    }
}

TEST(LogFolder, TheProbeDecidesByItsError)
{
    static std::wstring name;
    static std::vector<DWORD> how;
    static std::atomic<DWORD> error;
    decltype(&::CreateFileW) const probe = [](auto file, auto access, auto sharing, auto, auto mode, auto flags, auto) {
        name = file;
        how = {access, sharing, mode, flags};
        ::SetLastError(error);
        return INVALID_HANDLE_VALUE;
    };
    const LogFolder folder;
    const std::wstring path = folder.path.wstring();
    ASSERT_TRUE(Replace("CreateFileW", probe));
    for (const auto& [code, usable] : {std::pair<int, bool>{5, true}, {80, true}, {3, false}, {112, false}}) {
        error = static_cast<DWORD>(code);
        EXPECT_EQ(GetLogFolderPath() == path + L"\\", usable) << code;
    }
    for (const std::wstring& asked : {path, path + L"\\"}) {
        SetEnv(L"TARNEX_LOG_DIR", asked);
        GetLogFolderPath();
        EXPECT_EQ(name, path + L"\\Tarnex-" + std::to_wstring(::GetCurrentProcessId()) + L".tmp");
    }
    EXPECT_EQ(how, (std::vector<DWORD>{0x80000000, 4, 1, 0x04000080}));
}

TEST(LogFile, ATakenNameCountsUp)
{
    const LogFolder folder;
    const std::wstring stem = folder.path.wstring() + L"\\A-" + std::to_wstring(::GetCurrentProcessId());
    for (const wchar_t* counter : {L"", L"-1", L"-2", L"-3"})
        EXPECT_EQ(CreateUniqueLogFile(folder.path.wstring() + L"\\", L"A", L"", L"b"), stem + counter + L".b");
    EXPECT_EQ(folder.Files(), (Lines{"A-PID-1.b", "A-PID-2.b", "A-PID-3.b", "A-PID.b"}));
}

TEST(ScopedHandle, WhatIsWrittenToARedirectedFileGoesNowhere)
{
    const LogFolder folder;
    const auto create = [&](const char* name) {
        return ::CreateFileW((folder.path / name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    };
    const HANDLE below = create("below"), file = create("file");
    ::CloseHandle(below);  // a number that the system may prefer
    RedirectToNothing(file);
    const HANDLE next = create("next");
    DWORD written = 0;
    EXPECT_TRUE(::WriteFile(file, "x", 1, &written, nullptr));
    ::CloseHandle(next);
    EXPECT_EQ(fs::file_size(folder.path / "file") + fs::file_size(folder.path / "next"), 0u);
}

TEST(Retention, TheCutOffWrapsAt32Bits)
{
    const std::tuple<std::int64_t, int, std::int64_t> cases[] = {
        // now, hours, cut-off
        {1'800'000'000, 24, 1'799'913'600},
        {1'800'000'000, 0, 1'800'000'000},
        {1'800'000'000, -1, 1'800'003'600},
        {1'800'000'000, 596'523, -347'482'800},     // the last product below 2^31
        {1'800'000'000, 596'524, -347'486'400},     // turns negative, and the difference passes 2^31
        {1'800'000'000, 1'193'047, 1'799'998'096},  // comes round to 1904 seconds
        {2'147'483'647, -1, -2'147'480'049},
        {4'294'967'296, 0, 0}};
    for (const auto& [now, hours, seconds] : cases)
        EXPECT_EQ(GetCutOffTime(now, hours), (seconds + 11'644'473'600) * 10'000'000) << now << " " << hours;
}

}  // namespace
