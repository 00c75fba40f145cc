#include "platform/LogFolder.h"

#include <windows.h>
// <windows.h> comes first: the shell's headers need it.
#include <shlobj.h>
#include <shlwapi.h>

#include "platform/Environment.h"
#include "platform/Process.h"
#include "platform/ScopedHandle.h"

namespace {

void AppendFolder(wchar_t (&path)[MAX_PATH], const wchar_t* name)
{
    ::PathAppendW(path, name);
    if (!::PathFileExistsW(path))
        ::CreateDirectoryW(path, nullptr);
}

/** True when the folder exists, is not read-only, and a probe file can be made in it. A drive alone, "C:", is none. */
bool IsFolderUsable(const std::wstring& path)
{
    // Not the C runtime's status call: that of msvcrt.dll fails for a path with a final backslash.
    // INVALID_FILE_ATTRIBUTES has both bits set.
    constexpr DWORD kBits = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY;
    const bool isDriveAlone = path.size() == 2 && path[1] == L':';
    if (isDriveAlone || (::GetFileAttributesW(path.c_str()) & kBits) != FILE_ATTRIBUTE_DIRECTORY)
        return false;

    std::wstring probe = path;
    if (probe.back() != L'\\')
        probe += L'\\';
    probe += L"Tarnex-" + GetProcessIdText() + L".tmp";
    const CScopedHandle file(::CreateFileW(probe.c_str(), GENERIC_READ, FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                                           FILE_FLAG_DELETE_ON_CLOSE | FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.get() != INVALID_HANDLE_VALUE)
        return true;
    // A folder may refuse the probe's deletion on close and still take log files. An existing probe is another
    // thread's.
    const DWORD error = ::GetLastError();
    return error == ERROR_ACCESS_DENIED || error == ERROR_FILE_EXISTS;
}

}  // namespace

std::wstring GetLogFolderPath()
{
    std::wstring folder = GetEnvValue(L"TARNEX_LOG_DIR");
    if (folder.empty() || !IsFolderUsable(folder)) {
        wchar_t path[MAX_PATH] = {};
        ::SHGetSpecialFolderPathW(nullptr, path, CSIDL_LOCAL_APPDATA, FALSE);
        if (path[0] != L'\0') {
            AppendFolder(path, L"Velmora");
            AppendFolder(path, L"Logs");
            folder = path;
        }
    }
    return folder + L'\\';
}
