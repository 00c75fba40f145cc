#pragma once

#include <tarnex_3.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

/**
 * The object behind one handle: named parameters that can be locked against change for good.
 *
 * Any thread may call any operation; each holds m_Mutex from its look-up until its message is written.
 * No operation may be running when the object is destroyed. Every operation logs what it does, throws std::bad_alloc
 * when memory is exhausted, and leaves the caller's outputs unchanged unless it returns TARNEX_OK.
 */
class AuthHandle
{
public:
    /** Adds the parameter or replaces its value. TARNEX_E_HANDLE_LOCKED when locked. */
    TarnexResult SetAuthParam(std::string_view key, std::string_view value);

    /** Copies the value out, also when locked. TARNEX_E_PARAM_NOT_FOUND when there is none. */
    TarnexResult GetAuthParam(std::string_view key, std::string& value);

    /**
     * Reads the value as a base-10 integer into *pValue, also when locked. pValue must not be null. A null bound is
     * none; bounds are inclusive. TARNEX_E_PARAM_NOT_FOUND when there is no such parameter, TARNEX_E_INVALID_ARGUMENT
     * when it is anything but a 32-bit integer, TARNEX_E_OUT_OF_RANGE when it is out of bounds.
     */
    TarnexResult GetAuthParamInt(std::string_view key, int* pValue, const int* pMin, const int* pMax);

    /** Removes the parameter. TARNEX_E_HANDLE_LOCKED when locked, TARNEX_E_PARAM_NOT_FOUND when there is none. */
    TarnexResult RemoveAuthParam(std::string_view key);

    /** Refuses to set and to remove from now on. Always TARNEX_OK. */
    TarnexResult LockAuthParam();

private:
    /** Default hash that accepts views, so that a look-up needs no string of its own. */
    struct TextHash : std::hash<std::string_view>
    {
        using is_transparent = void;
    };

    /** Under the session's lock, past which no call gets once exit has ended a thread in here. Guards what follows. */
    std::mutex m_Mutex;
    bool m_bLocked = false;
    std::unordered_map<std::string, std::string, TextHash, std::equal_to<>> m_Params;
};
