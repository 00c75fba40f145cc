// Loading at run time: no import library, and the host unloads the library when it likes.
#include "tarnex_loader.h"

#include <cstdio>

int main()
{
    try {
        TarnexLoader tarnex;
        const char* version = nullptr;
        tarnex.tarnexGetAPIVersion_3(&version);
        std::printf("loaded Tarnex %s\n", version);

        TarnexAuthHandle handle = nullptr;
        std::printf("create: %u\n", tarnex.tarnexCreateAuthHandle_3(&handle));
        std::printf("set:    %u\n", tarnex.tarnexSetAuthParams_3(&handle, "user", "alice"));
        std::printf("delete: %u\n", tarnex.tarnexDeleteAuthHandle_3(&handle));

        tarnex.Unload();
        std::printf("unloaded\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
