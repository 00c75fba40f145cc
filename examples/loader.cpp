// Loading at run time: no import library, and the library is gone again when the host is through with it.
#include "tarnex_loader.h"

#include <cstdio>

int main()
{
    try {
        const TarnexLoader tarnex;
        const char* version = nullptr;
        tarnex.tarnexGetAPIVersion(&version);
        std::printf("loaded Tarnex %s\n", version);

        TarnexAuthHandle handle = nullptr;
        std::printf("create: %u\n", tarnex.tarnexCreateAuthHandle(&handle));
        std::printf("set:    %u\n", tarnex.tarnexSetAuthParams(&handle, "user", "alice"));
        std::printf("delete: %u\n", tarnex.tarnexDeleteAuthHandle(&handle));
        tarnex.Unload();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    // The clean-up of old log files keeps the library loaded until it is over.
    while (::GetModuleHandleW(L"Tarnex_3.dll") != nullptr)
        ::Sleep(1);
    std::printf("unloaded\n");
    return 0;
}
