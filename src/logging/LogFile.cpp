#include "logging/LogFile.h"

#include <windows.h>

#include "logging/Logger.h"
#include "platform/LogFolder.h"
#include "platform/Process.h"
#include "platform/ScopedHandle.h"
#include "platform/Text.h"

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
        const CFileHandle file(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                             FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file.IsOpen())
            return path;
        if (::GetLastError() != ERROR_FILE_EXISTS)
            return {};
    }
}

TarnexResult BuildLogFilePath(const char* customName)
{
    const std::wstring name = Utf8ToWide(customName);
    *g_LogFilePath = CreateUniqueLogFile(GetLogFolderPath(), L"Tarnex", name, L"log");
    return g_LogFilePath->empty() ? TARNEX_E_INVALID_ARGUMENT : TARNEX_OK;
}
