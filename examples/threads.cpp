// Threads share the library without a lock of their own, and the process ends in the middle of their calls.
#include <tarnex_3.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

int main()
{
    static std::atomic<int> calls{0}, unexpected{0};
    for (int i = 0; i < 6; ++i)
        std::thread([] {
            const auto expect = [](TarnexResult result, TarnexResult expected) {
                unexpected += result != expected;
                ++calls;
            };
            TarnexAuthHandle handle = nullptr, none = nullptr;
            expect(tarnexSetLogLevel_3(7), TARNEX_E_INVALID_ARGUMENT);  // perhaps the first message
            for (;;) {
                expect(tarnexCreateAuthHandle_3(&handle), TARNEX_OK);
                expect(tarnexSetAuthParams_3(&handle, "user", "alice"), TARNEX_OK);
                expect(tarnexRemoveAuthParams_3(&handle, "token"), TARNEX_E_PARAM_NOT_FOUND);
                expect(tarnexDeleteAuthHandle_3(&handle), TARNEX_OK);
                expect(tarnexDeleteAuthHandle_3(&none), TARNEX_E_HANDLE_NOT_FOUND);
            }
        }).detach();
    while (calls < 500)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::printf("%d calls, %d with another result than expected\n", calls.load(), unexpected.load());
    return unexpected != 0;
}
