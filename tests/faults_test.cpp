// What the library does when the system refuses it something.
#include "host.h"

namespace {

TEST(Faults, FailedCreationIsPermanent)
{
    static bool refused = true;
    Host host;
    Replace<decltype(::CreateFileW)>(L"Tarnex_3", "CreateFileW", [](LPCWSTR name, auto... how) {
        ::SetLastError(ERROR_DISK_FULL);
        return refused && fs::path(name).extension() == L".log" ? INVALID_HANDLE_VALUE : ::CreateFileW(name, how...);
    });
    host.DeleteNull();
    refused = false;
    host.UseHandle();
    EXPECT_EQ(host.tarnexFlushLog_3(), TARNEX_E_NO_LOGGER);
    host.Unload();
    EXPECT_EQ(host.Files(), Names());
}

TEST(Faults, AFileThatCannotBeOpenedThrowsAndIsTriedAgain)
{
    Host host;
    host.tarnexSetLogName_3("x");
    const HANDLE held =
        ::CreateFileW((host.path / *host.Files().begin()).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_THROW(host.DeleteNull(), std::exception);
    ::CloseHandle(held);
    EXPECT_EQ(host.DeleteNull(), TARNEX_E_HANDLE_NOT_FOUND);
    ExpectLog(host.Log(), {"[O] Created Tarnex Logger level [error]", kNoHandle});
}

TEST(Faults, WithoutAThreadTheCleanUpIsLeftToTheNextProcess)
{
    Host host;
    Replace<decltype(::CreateThread)>(L"Tarnex_3", "CreateThread", [](auto...) { return HANDLE{}; });
    host.AddFile(L"Tarnex-1.log", 100000);
    host.DeleteNull();
    EXPECT_TRUE(host.Unload(2000));
    EXPECT_EQ(host.Files(), (Names{host.logName, L"Tarnex-1.log"}));
}

}  // namespace
