#pragma once

#include <cstdint>
#include <string>

/**
 * The retention pass: deletes the library's log files and leftover probe files from the log folder when they
 * have not been written for the hours that TARNEX_LOG_CLEANUP gives, 24 by default. Takes no lock of the
 * library and may run on any thread; an error only ends the pass.
 */
void RunRetention() noexcept;

/**
 * Deletes from the folder, whose path ends in a backslash, every file named prefix + anything + "." +
 * extension that was last written more than so many hours ago. A file that cannot be deleted is skipped.
 */
void CleanupFiles(const std::wstring& folder, const std::wstring& prefix, const std::wstring& extension, int hours);

/**
 * The moment so many hours before now (seconds since 1970), as 100 ns units since 1601. Hours times 3600, and
 * the moment itself in seconds, wrap around at 32 bits.
 */
std::int64_t GetCutOffTime(std::int64_t now, int hours) noexcept;
