#include "logging/LogFile.h"

#include <windows.h>

#include "logging/Logger.h"
#include "platform/LogFolder.h"
#include "platform/Process.h"
#include "platform/ScopedHandle.h"
#include "platform/Text.h"

namespace {

/**
 * Creates a new, empty file named folder + prefix [+ "-" + customName] + "-" + process id [+ "-" + counter] +
 * "." + extension, counting up from 1 while the name is taken. Returns its path, empty when the file could
 * not be created.
 */
std::wstring CreateUniqueLogFile(const std::wstring& folder, const std::wstring& prefix, const std::wstring& customName,
                                 const std::wstring& extension)
{
    std::wstring stem = folder + prefix;
    if (!customName.empty())
        stem += L"-" + customName;
    stem += L"-" + GetProcessIdText();

    for (int attempt = 0;; ++attempt) {
        std::wstring path = stem;
        if (attempt != 0)
            path.append(L"-").append(std::to_wstring(attempt));
        path.append(L".").append(extension);
        const CScopedHandle file(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                               FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file.get() != INVALID_HANDLE_VALUE)
            return path;
        if (::GetLastError() != ERROR_FILE_EXISTS)
            return {};
    }
}

}  // namespace

TarnexResult BuildLogFilePath(const char* customName)
{
    const std::wstring name = Utf8ToWide(customName);
    *g_LogFilePath = CreateUniqueLogFile(GetLogFolderPath(), L"Tarnex", name, L"log");
    return g_LogFilePath->empty() ? TARNEX_E_INVALID_ARGUMENT : TARNEX_OK;
}
