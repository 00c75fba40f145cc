// What the library does when the log cannot be written.
#include <gtest/gtest.h>

#include "host.h"

namespace {

TEST(Faults, WithoutAFileThereIsNoLogForGood)
{
    static bool refused = true;
    Host host;
    ReplaceImport(host.module.get(), &::CreateFileW, [](LPCWSTR name, auto... how) {
        ::SetLastError(ERROR_DISK_FULL);
        return refused && fs::path(name).extension() == L".log" ? INVALID_HANDLE_VALUE : ::CreateFileW(name, how...);
    });
    host.DeleteNull();
    refused = false;
    EXPECT_TRUE(host.UseHandle());
    EXPECT_EQ(host.tarnexFlushLog_3(), TARNEX_E_NO_LOGGER);
    host.Unload();
    EXPECT_EQ(host.Log(), Lines());
}

TEST(Faults, AFileThatCannotBeOpenedRaisesAnErrorAndIsTriedAgain)
{
    Host host;
    host.tarnexSetLogName_3("x");
    const fs::path file = host.path / *host.Files().begin();
    const HANDLE held = ::CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_THROW(host.DeleteNull(), std::exception);
    ::CloseHandle(held);
    EXPECT_EQ(host.DeleteNull(), TARNEX_E_HANDLE_NOT_FOUND);
    EXPECT_EQ(host.Log(), (Lines{"[O] Created Tarnex Logger level [error]", kNoHandle}));
}

TEST(Faults, AFullDiskChangesNoResult)
{
    Host host;
    host.tarnexSetLogLevel_3(9);
    host.BreakLogFile();
    EXPECT_TRUE(host.UseHandle());
    EXPECT_EQ(host.tarnexFlushLog_3(), TARNEX_OK);
    host.Unload();
    EXPECT_EQ(host.Log(), Lines{"[O] Created Tarnex Logger level [error]"});
}

}  // namespace
