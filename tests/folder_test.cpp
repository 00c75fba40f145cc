// What the log stands on, from inside: its folder, text, and times.
#include "host.h"
#include "logging/Retention.h"
#include "platform/LogFolder.h"
#include "platform/Text.h"

// After <windows.h>, which the shell's header needs.
#include <shlobj.h>

namespace {

std::wstring g_AppData;
DWORD g_ProbeError = 0;

/** The log folder for this TARNEX_LOG_DIR when the probe fails with this error, and the application-data path is this.
 */
std::wstring FolderFor(const std::wstring& wanted, DWORD probeError, const std::wstring& appData)
{
    static const auto create = reinterpret_cast<decltype(&::CreateFileW)>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32"), "CreateFileW")));
    Replace<decltype(::CreateFileW)>(
        "CreateFileW",
        [](auto... how) {
            ::SetLastError(g_ProbeError);
            return g_ProbeError != 0 ? INVALID_HANDLE_VALUE : create(how...);
        },
        nullptr);
    Replace<decltype(::SHGetSpecialFolderPathW)>(
        "SHGetSpecialFolderPathW",
        [](HWND, LPWSTR path, int folder, BOOL) {
            g_AppData.copy(path, folder == CSIDL_LOCAL_APPDATA ? MAX_PATH : 0);
            return FALSE;  // the path alone counts
        },
        nullptr);
    SetEnv(L"TARNEX_LOG_DIR", wanted);
    g_ProbeError = probeError;
    g_AppData = appData;
    std::wstring folder = GetLogFolderPath();
    g_ProbeError = 0;
    return folder;
}

TEST(Folder, IsTheOneAskedForOrBelowTheApplicationData)
{
    const LogFolder here;
    const std::wstring folder = here.path, standard = folder + L"\\Velmora\\Logs\\";
    here.AddFile(L"file", 0);
    const std::tuple<std::wstring, DWORD, std::wstring> cases[] = {{folder, 0, folder + L"\\"},
                                                                   {folder + L"\\", 0, folder + L"\\\\"},
                                                                   {folder, ERROR_ACCESS_DENIED, folder + L"\\"},
                                                                   {folder, ERROR_FILE_EXISTS, folder + L"\\"},
                                                                   {folder, ERROR_PATH_NOT_FOUND, standard},
                                                                   {folder + L"\\missing", 0, standard},
                                                                   {folder + L"\\file", 0, standard},
                                                                   {L"C:", 0, standard},
                                                                   {L"", 0, standard}};
    for (const auto& [wanted, probeError, expected] : cases) {
        EXPECT_EQ(FolderFor(wanted, probeError, folder), expected) << wanted << " " << probeError;
        EXPECT_EQ(fs::remove_all(here.path / "Velmora"), expected == standard ? 2u : 0u);
        EXPECT_EQ(FolderFor(wanted, probeError, L""), expected == standard ? wanted + L"\\" : expected) << wanted;
        EXPECT_EQ(here.Files(), Names{L"file"});
    }
    ::SetFileAttributesW(folder.c_str(), FILE_ATTRIBUTE_READONLY);
    const bool isReadOnly = (::GetFileAttributesW(folder.c_str()) & FILE_ATTRIBUTE_READONLY) != 0;  // not under Wine
    EXPECT_EQ(FolderFor(folder, 0, folder), isReadOnly ? standard : folder + L"\\");
    ::SetFileAttributesW(folder.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST(Text, IsConvertedFromUtf8OrRefused)
{
    EXPECT_EQ(Utf8ToWide("\xEF\xBB\xBF\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"), L"\uFEFF\u00E4\u20AC\U0001F600");
    for (const char* text : {"\xC3", "a\xFF", "\xC0\xAF", "\xED\xBF\xBF"})
        EXPECT_THROW(Utf8ToWide(text), std::range_error) << text;
}

TEST(Retention, CutOffWrapsAt32Bits)
{
    // 1800000000 seconds since 1970 are 13444473600 since 1601; 596523 hours are the most below 2^31 seconds.
    EXPECT_EQ(GetCutOffTime(1800000000, 596523), 112969908000000000);
    EXPECT_EQ(GetCutOffTime(1800000000, 1193047), 134444716960000000) << "wraps to 1904 seconds";
    EXPECT_EQ(GetCutOffTime(2147483647, -1), 94969935510000000) << "wraps to before 1970";
}

}  // namespace
