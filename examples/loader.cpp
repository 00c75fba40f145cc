// Loading at run time: no import library, and the host unloads the library when it likes.
#include "tarnex_loader.h"

#include <cstdio>

namespace {

/** Prints a call's result; anything but TARNEX_OK ends the program. */
void Check(const char* call, TarnexResult result)
{
    std::printf("%-7s %u\n", call, static_cast<unsigned>(result));
    if (result != TARNEX_OK)
        throw std::runtime_error(std::string(call) + " failed");
}

}  // namespace

int main()
{
    try {
        TarnexLoader tarnex;
        const char* version = nullptr;
        tarnex.tarnexGetAPIVersion_3(&version);
        std::printf("loaded Tarnex %s\n", version);

        TarnexAuthHandle handle = nullptr;
        Check("create:", tarnex.tarnexCreateAuthHandle_3(&handle));
        Check("set:", tarnex.tarnexSetAuthParams_3(&handle, "user", "alice"));
        Check("delete:", tarnex.tarnexDeleteAuthHandle_3(&handle));

        std::printf(tarnex.Unload() ? "unloaded\n" : "still loaded\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
