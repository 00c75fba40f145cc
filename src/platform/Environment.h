#pragma once

#include <string>

/** The value of an environment variable exactly as stored; empty when it is not set or the name is null. */
std::wstring GetEnvValue(const wchar_t* name);
