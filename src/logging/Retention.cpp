#include "logging/Retention.h"

#include <windows.h>

#include <ctime>
#include <memory>

#include "logging/Logger.h"
#include "platform/Environment.h"
#include "platform/LogFolder.h"
#include "platform/Text.h"

namespace {

constexpr int kDefaultHours = 24;

int GetHoursFromEnv()
{
    const std::wstring value = GetEnvValue(L"TARNEX_LOG_CLEANUP");
    if (value.empty())
        return kDefaultHours;
    const std::optional<int> hours = ParseInteger(value);
    if (!hours)
        Log(spdlog::level::err,
            "CleanupFiles(): failed to convert cleanup parameter to integer, defaulting to 24 hours");
    return hours.value_or(kDefaultHours);
}

/**
 * Deletes from the folder, whose path ends in a backslash, every file named prefix + anything + "." + extension that
 * was last written more than this number of hours ago. A file that cannot be deleted is skipped.
 */
void CleanupFiles(const std::wstring& folder, const std::wstring& prefix, const std::wstring& extension, int hours)
{
    const std::int64_t cutOff = GetCutOffTime(::_time64(nullptr), hours);
    const FILETIME cutOffTime = {static_cast<DWORD>(cutOff), static_cast<DWORD>(cutOff >> 32)};

    WIN32_FIND_DATAW entry;
    const HANDLE search = ::FindFirstFileW((folder + prefix + L"*." + extension).c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return;
    const std::unique_ptr<void, decltype(&::FindClose)> owner(search, &::FindClose);
    do {
        if (::CompareFileTime(&entry.ftLastWriteTime, &cutOffTime) < 0)
            ::DeleteFileW((folder + entry.cFileName).c_str());
    } while (::FindNextFileW(search, &entry));
}

}  // namespace

void RunRetention() noexcept
{
    try {
        const std::wstring folder = GetLogFolderPath();
        const int hours = GetHoursFromEnv();
        CleanupFiles(folder, L"Tarnex", L"log", hours);
        CleanupFiles(folder, L"Tarnex-", L"tmp", hours);
    } catch (...) {
        // Memory exhaustion ends the pass; the host has not asked for it.
    }
}

std::int64_t GetCutOffTime(std::int64_t now, int hours) noexcept
{
    // Unsigned arithmetic, because the wrap at 32 bits is wanted and signed overflow is undefined.
    const auto age = static_cast<std::uint32_t>(hours) * 3600u;
    const auto seconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(now) - age);
    constexpr std::int64_t kSecondsFrom1601To1970 = 11644473600;
    return (seconds + kSecondsFrom1601To1970) * 10'000'000;
}
