#pragma once

// For C++ hosts that load Tarnex 3 at run time. Needs C++11; copy this header into your project.

#include <tarnex_3.h>
#include <windows.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

/** Unloads a DLL. */
struct TarnexUnloader
{
    void operator()(HMODULE module) const { ::FreeLibrary(module); }
};

/** The library and its functions, under the names that the header gives them. It is unloaded with this object. */
struct TarnexLoader
{
    /**
     * Loads the DLL from this full path. A name without a folder is looked for in the program's folder, in System32 and
     * in folders that were added by AddDllDirectory, but not in the current folder and not in PATH, where others may
     * have put one. Throws std::runtime_error, with the system's error number, when the DLL or one of its functions is
     * missing.
     */
    explicit TarnexLoader(const wchar_t* path = L"Tarnex_3.dll")
        : module(::LoadLibraryExW(path, nullptr, LOAD_LIBRARY_SEARCH_DEFAULT_DIRS)), address(module.get())
    {
        if (module == nullptr)
            Fail("Tarnex 3 cannot be loaded");
        Find("tarnexGetAPIVersion_3", tarnexGetAPIVersion_3);
        Find("tarnexCreateAuthHandle_3", tarnexCreateAuthHandle_3);
        Find("tarnexDeleteAuthHandle_3", tarnexDeleteAuthHandle_3);
        Find("tarnexSetAuthParams_3", tarnexSetAuthParams_3);
        Find("tarnexRemoveAuthParams_3", tarnexRemoveAuthParams_3);
        Find("tarnexSetLogName_3", tarnexSetLogName_3);
        Find("tarnexSetLogLevel_3", tarnexSetLogLevel_3);
        Find("tarnexFlushLog_3", tarnexFlushLog_3);
    }

    /**
     * Unloads the library and waits until it is gone. False when it is still there after this time: its clean-up of old
     * log files may keep it loaded, and so does anybody else in the process who has loaded it. Another call then waits
     * again.
     */
    bool Unload(DWORD milliseconds = 30000)
    {
        const ULONGLONG start = ::GetTickCount64();
        module.reset();
        while (IsLoaded()) {
            if (::GetTickCount64() - start >= milliseconds)
                return false;
            ::Sleep(1);
        }
        return true;
    }

    std::unique_ptr<std::remove_pointer<HMODULE>::type, TarnexUnloader> module;
    PFN_tarnexGetAPIVersion_3 tarnexGetAPIVersion_3 = nullptr;
    PFN_tarnexCreateAuthHandle_3 tarnexCreateAuthHandle_3 = nullptr;
    PFN_tarnexDeleteAuthHandle_3 tarnexDeleteAuthHandle_3 = nullptr;
    PFN_tarnexSetAuthParams_3 tarnexSetAuthParams_3 = nullptr;
    PFN_tarnexRemoveAuthParams_3 tarnexRemoveAuthParams_3 = nullptr;
    PFN_tarnexSetLogName_3 tarnexSetLogName_3 = nullptr;
    PFN_tarnexSetLogLevel_3 tarnexSetLogLevel_3 = nullptr;
    PFN_tarnexFlushLog_3 tarnexFlushLog_3 = nullptr;

private:
    bool IsLoaded() const
    {
        HMODULE found = nullptr;
        return ::GetModuleHandleExW(
                   GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                   reinterpret_cast<LPCWSTR>(address), &found) != FALSE;
    }

    [[noreturn]] static void Fail(const std::string& what)
    {
        throw std::runtime_error(what + " (error " + std::to_string(::GetLastError()) + ")");
    }

    template <typename Function>
    void Find(const char* name, Function& function)
    {
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module.get(), name)));
        if (function == nullptr)
            Fail(std::string("Tarnex 3 has no function ") + name);
    }

    HMODULE address;
};
