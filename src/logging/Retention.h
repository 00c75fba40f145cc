#pragma once

#include <cstdint>

/**
 * The retention pass: deletes the library's log files and leftover probe files from the log folder when they
 * have not been written for the hours that TARNEX_LOG_CLEANUP gives, 24 by default. Takes no lock of the
 * library and may run on any thread; an error only ends the pass.
 */
void RunRetention() noexcept;

/**
 * The time this number of hours before now (seconds since 1970), as 100 ns units since 1601. Hours times 3600, and
 * that time in seconds, wrap around at 32 bits.
 */
std::int64_t GetCutOffTime(std::int64_t now, int hours) noexcept;
