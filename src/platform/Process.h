#pragma once

#include <string>

/** The process id as file names carry it: a signed decimal number. */
std::wstring GetProcessIdText();

/**
 * True once process exit has begun. All threads but the calling one have then been ended wherever they stood,
 * and whatever locks they held stay locked.
 */
bool IsProcessEnding() noexcept;

/**
 * Runs the task on a thread of its own that keeps this module loaded until the task has returned, so that the
 * host may unload the library meanwhile; does nothing when no thread can be started. Must not be called once the
 * module is being unloaded.
 */
void StartModuleThread(void (*task)() noexcept) noexcept;
