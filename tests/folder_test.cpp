// What the log stands on, from inside: its folder, text, and times.
#include "host.h"
#include "logging/Retention.h"
#include "platform/LogFolder.h"
#include "platform/Text.h"

// After <windows.h>, which the shell's header needs.
#include <shlobj.h>

namespace {

TEST(Folder, IsTheOneAskedForOrBelowTheApplicationData)
{
    static const auto create = reinterpret_cast<decltype(&::CreateFileW)>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32"), "CreateFileW")));
    static DWORD probeError = 0;
    static std::wstring appData;
    Replace<decltype(::CreateFileW)>(nullptr, "CreateFileW", [](auto... how) {
        ::SetLastError(probeError);
        return probeError != 0 ? INVALID_HANDLE_VALUE : create(how...);
    });
    Replace<decltype(::SHGetSpecialFolderPathW)>(nullptr, "SHGetSpecialFolderPathW",
                                                 [](HWND, LPWSTR path, int folder, BOOL) {
                                                     appData.copy(path, folder == CSIDL_LOCAL_APPDATA ? MAX_PATH : 0);
                                                     return FALSE;  // the path alone counts
                                                 });

    const LogFolder here;
    const std::wstring folder = here.path;
    here.AddFile(L"file", 0);
    const auto expect = [&](const std::wstring& wanted, DWORD error, bool isUsable) {
        SetEnv(L"TARNEX_LOG_DIR", wanted);
        probeError = error;
        appData = folder;
        EXPECT_EQ(GetLogFolderPath(), isUsable ? wanted + L"\\" : folder + L"\\Velmora\\Logs\\") << error;
        appData = L"";
        EXPECT_EQ(GetLogFolderPath(), wanted + L"\\") << error;
        probeError = 0;
        EXPECT_EQ(fs::remove_all(here.path / "Velmora"), isUsable ? 0u : 2u) << wanted;
        EXPECT_EQ(here.Files(), Names{L"file"});
    };
    for (const auto& wanted : {folder, folder + L"\\"})
        expect(wanted, 0, true);
    for (const auto& wanted : {folder + L"\\missing", folder + L"\\file", std::wstring(L"C:"), std::wstring()})
        expect(wanted, 0, false);
    for (const DWORD error : std::initializer_list<DWORD>{ERROR_ACCESS_DENIED, ERROR_FILE_EXISTS, ERROR_PATH_NOT_FOUND})
        expect(folder, error, error != ERROR_PATH_NOT_FOUND);
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
