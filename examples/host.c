/* A host: sets a parameter of a handle, removes it twice, and leaves a log. */
#include <stdio.h>
#include <tarnex_3.h>

int main(void)
{
    TarnexAuthHandle handle = NULL;

    /* Both optional: the log's name, until the first message, and its level, at any time (default: TARNEX_LOG_ERR). */
    tarnexSetLogName_3("my-app");
    tarnexSetLogLevel_3(TARNEX_LOG_DEBUG);

    if (tarnexCreateAuthHandle_3(&handle) != TARNEX_OK)
        return 1;
    printf("set     %u\n", (unsigned)tarnexSetAuthParams_3(&handle, "user", "alice"));
    printf("remove  %u\n", (unsigned)tarnexRemoveAuthParams_3(&handle, "user"));
    printf("remove  %u\n", (unsigned)tarnexRemoveAuthParams_3(&handle, "user"));
    tarnexDeleteAuthHandle_3(&handle); /* handle is NULL again */
    tarnexFlushLog_3();
    return 0;
}
