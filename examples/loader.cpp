// Loading at run time: no import library, and the library is gone again when the object is.
#include <tarnex_3.h>
#include <windows.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

/** The library for as long as this object lives. */
class CTarnex
{
public:
    CTarnex() : m_Module(::LoadLibraryW(L"Tarnex_3.dll"))
    {
        if (m_Module == nullptr)
            throw std::runtime_error("Tarnex_3.dll was not found");
    }
    ~CTarnex() { ::FreeLibrary(m_Module); }
    CTarnex(const CTarnex&) = delete;
    CTarnex& operator=(const CTarnex&) = delete;

    /** The export of that name, with the type that the header gives it. */
    template <typename Function>
    Function* Find(const char* name) const
    {
        const FARPROC address = ::GetProcAddress(m_Module, name);
        if (address == nullptr)
            throw std::runtime_error(std::string("Tarnex_3.dll does not export ") + name);
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
    }

private:
    HMODULE m_Module;
};

#define TARNEX_FIND(library, name) (library).Find<decltype(::name)>(#name)

}  // namespace

int main()
{
    try {
        const CTarnex tarnex;
        const auto getVersion = TARNEX_FIND(tarnex, tarnexGetAPIVersion_3);
        const auto create = TARNEX_FIND(tarnex, tarnexCreateAuthHandle_3);
        const auto set = TARNEX_FIND(tarnex, tarnexSetAuthParams_3);
        const auto destroy = TARNEX_FIND(tarnex, tarnexDeleteAuthHandle_3);

        const char* version = nullptr;
        getVersion(&version);
        std::printf("loaded Tarnex %s\n", version);

        TarnexAuthHandle handle = nullptr;
        std::printf("create: %u\n", create(&handle));
        std::printf("set:    %u\n", set(&handle, "user", "alice"));
        std::printf("delete: %u\n", destroy(&handle));
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
