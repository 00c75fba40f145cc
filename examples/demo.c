/* A tour of Tarnex 3: links the import library, makes every call, and gets every result that these calls have but
   TARNEX_E_HANDLE_LOCKED (no call locks a handle). */
#include <stdio.h>
#include <string.h>
#include <tarnex_3.h>

static const char* resultName(TarnexResult result)
{
    switch (result) {
        case TARNEX_OK:
            return "TARNEX_OK";
        case TARNEX_E_INVALID_ARGUMENT:
            return "TARNEX_E_INVALID_ARGUMENT";
        case TARNEX_E_HANDLE_NOT_FOUND:
            return "TARNEX_E_HANDLE_NOT_FOUND";
        case TARNEX_E_HANDLE_EXISTS:
            return "TARNEX_E_HANDLE_EXISTS";
        case TARNEX_E_PARAM_NOT_FOUND:
            return "TARNEX_E_PARAM_NOT_FOUND";
        case TARNEX_E_LOG_FILE_EXISTS:
            return "TARNEX_E_LOG_FILE_EXISTS";
        case TARNEX_E_NO_LOGGER:
            return "TARNEX_E_NO_LOGGER";
        default:
            return "another code";
    }
}

/* The first call with another result than expected; empty when there is none. */
static char unexpected[200] = "";

static void show(const char* call, TarnexResult result, TarnexResult expected)
{
    printf("  %-62s %2u  %s", call, (unsigned)result, resultName(result));
    if (result != expected) {
        printf(", EXPECTED %u", (unsigned)expected);
        if (unexpected[0] == '\0')
            snprintf(unexpected, sizeof unexpected, "%s returned %u, expected %u", call, (unsigned)result,
                     (unsigned)expected);
    }
    printf("\n");
}

/* Makes the call, and prints it as it is written here with its result. */
#define SHOW(call, expected) show(#call, call, expected)

int main(void)
{
    const char* version = NULL;
    TarnexAuthHandle alice = NULL;
    TarnexAuthHandle bob = NULL;
    TarnexAuthHandle copyOfAlice;

    printf("Before the first message there is no log: it can be named, but not flushed\n");
    SHOW(tarnexGetAPIVersion_3(&version), TARNEX_OK);
    printf("    version is now \"%s\"\n", version);
    if (strcmp(version, TARNEX_3_VERSION) != 0)
        snprintf(unexpected, sizeof unexpected, "the DLL is of version %s, expected %s", version, TARNEX_3_VERSION);
    SHOW(tarnexFlushLog_3(), TARNEX_E_NO_LOGGER);
    SHOW(tarnexSetLogName_3("no:such/name?"), TARNEX_E_INVALID_ARGUMENT);
    SHOW(tarnexSetLogName_3("demo"), TARNEX_OK);
    SHOW(tarnexSetLogLevel_3(TARNEX_LOG_TRACE), TARNEX_OK);

    printf("\nHandles and their parameters\n");
    SHOW(tarnexCreateAuthHandle_3(&alice), TARNEX_OK);
    SHOW(tarnexCreateAuthHandle_3(&bob), TARNEX_OK);
    SHOW(tarnexSetAuthParams_3(&bob, "", ""), TARNEX_OK);
    SHOW(tarnexSetAuthParams_3(&alice, "user", "alice"), TARNEX_OK);
    SHOW(tarnexSetAuthParams_3(&alice, "User", "case matters"), TARNEX_OK);
    SHOW(tarnexSetAuthParams_3(&alice, "user", "alice@example.com"), TARNEX_OK);
    SHOW(tarnexRemoveAuthParams_3(&alice, "User"), TARNEX_OK);

    printf("\nRefusals, with their codes\n");
    SHOW(tarnexCreateAuthHandle_3(&alice), TARNEX_E_HANDLE_EXISTS);
    SHOW(tarnexSetAuthParams_3(&alice, NULL, "value"), TARNEX_E_INVALID_ARGUMENT);
    SHOW(tarnexSetAuthParams_3(&alice, "user", NULL), TARNEX_E_INVALID_ARGUMENT);
    SHOW(tarnexRemoveAuthParams_3(&alice, NULL), TARNEX_E_INVALID_ARGUMENT);
    SHOW(tarnexRemoveAuthParams_3(&alice, "User"), TARNEX_E_PARAM_NOT_FOUND);
    SHOW(tarnexSetLogName_3("too-late"), TARNEX_E_LOG_FILE_EXISTS);
    SHOW(tarnexSetLogLevel_3(7), TARNEX_E_INVALID_ARGUMENT);

    printf(
        "\nAfter deletion copies of a handle are refused, until a new handle, often the very next, gets the same "
        "value\n");
    copyOfAlice = alice;
    SHOW(tarnexDeleteAuthHandle_3(&alice), TARNEX_OK);
    SHOW(tarnexDeleteAuthHandle_3(&copyOfAlice), TARNEX_E_HANDLE_NOT_FOUND);
    SHOW(tarnexSetAuthParams_3(&copyOfAlice, "user", "mallory"), TARNEX_E_HANDLE_NOT_FOUND);
    SHOW(tarnexRemoveAuthParams_3(&copyOfAlice, "user"), TARNEX_E_HANDLE_NOT_FOUND);
    SHOW(tarnexDeleteAuthHandle_3(&alice), TARNEX_E_HANDLE_NOT_FOUND);
    SHOW(tarnexCreateAuthHandle_3(&copyOfAlice), TARNEX_OK);
    SHOW(tarnexDeleteAuthHandle_3(&copyOfAlice), TARNEX_OK);
    SHOW(tarnexDeleteAuthHandle_3(&bob), TARNEX_OK);
    SHOW(tarnexFlushLog_3(), TARNEX_OK);

    if (unexpected[0] == '\0')
        return 0;
    printf("\n%s\n", unexpected);
    return 1;
}
