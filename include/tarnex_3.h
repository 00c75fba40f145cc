/*
 * Tarnex 3: opaque handles that carry named string parameters, and a diagnostic log.
 *
 * Conventions for the whole interface:
 *
 * 1. Every function returns a TarnexResult. TARNEX_OK (0) says that the call did what was asked; any other
 *    code is a refusal. The codes a function can return are listed with it.
 * 2. A handle lives in a variable of yours. Functions take the address of that variable, phAuth, which must
 *    not be null. The variable may hold anything: its value is only ever compared with the handles that
 *    exist, so a null, stale or invalid value is answered with a code and never followed. (A new handle, often the
 *    very next one, may get the value of a deleted one; a stale copy of that value then names the new handle.)
 * 3. The library owns the handle objects. You own your variables and every string you pass: strings are
 *    copied during the call, and no pointer of yours is kept after it.
 * 4. Strings are NUL-terminated bytes of any length. Keys and values are stored exactly as passed, in
 *    whatever encoding, and keys are compared byte for byte. Only the log name must be valid UTF-8.
 * 5. The log shows keys from TARNEX_LOG_INFO down and values from TARNEX_LOG_DEBUG down, byte for byte, line
 *    breaks included. If you store secrets, use a higher level, such as the default TARNEX_LOG_ERR, and set it by
 *    call: otherwise the environment variable TARNEX_LOG_LEVEL can lower it.
 * 6. Every function may be called from any thread, at any time between loading and unloading the library,
 *    but not from a DllMain. The handle functions run one call at a time, so that several may be given the same
 *    variable at once; what you do with the variable yourself meanwhile needs a lock of yours. Unload when no call
 *    is in progress.
 * 7. Four failures have no code but throw a C++ exception: no memory (std::bad_alloc), a lock that fails
 *    (std::system_error, also during process exit where the exit has ended a thread that held it), a log name
 *    that is not UTF-8 (std::range_error), and an error while the first message opens the log (a class derived
 *    from std::exception; the next message tries again). Such a call has changed neither your handle variable nor
 *    the set of handles. Only a program built with the same kind of compiler and C++ library as the DLL can catch
 *    them. In others, those in other languages included, they normally end the process; a host that swallows one is
 *    in an undefined state. When memory is so short that the exception cannot be made either, a DLL built with
 *    MinGW ends the process. The log name is the one you can always avoid: pass UTF-8.
 * 8. When the library is unloaded, handles that are left are destroyed, each with a message, and the log is flushed.
 *    While its clean-up of old log files is running, FreeLibrary returns, but the DLL stays loaded and does all this,
 *    flushing included, only when the clean-up has finished; reloading before then gets the same instance, with its
 *    handles, level and log name. Normal process exit logs the handles that are left, unless it ended a thread
 *    inside a call on handles, and flushes the log, unless it ended one that was writing to it; TerminateProcess
 *    does neither.
 * 9. The first message creates the log, even if the level in force, TARNEX_LOG_OFF included, filters it out. A call
 *    is a message if it sets or removes a parameter or is refused, except for a null key or value, a log name for
 *    which no file could be created, and a flush without a log; a handle left behind at unload or exit is one, too.
 */
#ifndef TARNEX_3_H
#define TARNEX_3_H

#if !defined(_WIN64) || !(defined(_M_X64) || defined(__x86_64__))
#error "Tarnex 3 is a library for 64-bit Windows on x64: compile for that target."
#endif

#include <stdint.h>

/* The version of this header, as numbers for #if and as text, "3.1.1.43". tarnexGetAPIVersion_3 tells that of the
   DLL. */
#define TARNEX_3_VERSION_MAJOR 3
#define TARNEX_3_VERSION_MINOR 1
#define TARNEX_3_VERSION_PATCH 1
#define TARNEX_3_VERSION_BUILD 43
#define TARNEX_3_TEXT_(a, b, c, d) #a "." #b "." #c "." #d
#define TARNEX_3_TEXT(a, b, c, d) TARNEX_3_TEXT_(a, b, c, d)
#define TARNEX_3_VERSION \
    TARNEX_3_TEXT(TARNEX_3_VERSION_MAJOR, TARNEX_3_VERSION_MINOR, TARNEX_3_VERSION_PATCH, TARNEX_3_VERSION_BUILD)

#if defined(TARNEX_3_BUILDING) && defined(__GNUC__)
#define TARNEX_API __attribute__((visibility("default")))
#elif defined(TARNEX_3_BUILDING)
#define TARNEX_API
#else
#define TARNEX_API __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Result of a call. The values are fixed for all versions of this interface, and not contiguous. */
typedef uint32_t TarnexResult;

enum {
    /* The call did what was asked. */
    TARNEX_OK = 0,
    /* A key or value is null, or an argument cannot be used: a log level above TARNEX_LOG_OFF, or a log name for
       which no file could be created. */
    TARNEX_E_INVALID_ARGUMENT = 7,
    /* The value in the handle variable is no handle: never created, already deleted, or null. */
    TARNEX_E_HANDLE_NOT_FOUND = 13,
    /* Create was called on a variable that still holds a handle; nothing was created. */
    TARNEX_E_HANDLE_EXISTS = 14,
    /* The handle has no parameter of that name. */
    TARNEX_E_PARAM_NOT_FOUND = 16,
    /* The parameters of the handle are locked; the change was refused. No exported function locks them. */
    TARNEX_E_HANDLE_LOCKED = 20,
    /* An integer parameter lies outside the bounds asked for. No exported function returns it. */
    TARNEX_E_OUT_OF_RANGE = 33,
    /* The log name can no longer be changed because the log file is already in use. */
    TARNEX_E_LOG_FILE_EXISTS = 39,
    /* There is no log to flush: there has been no message, or the log could not be created. */
    TARNEX_E_NO_LOGGER = 40
};

/* Log levels: a message is written when its level is at least the level in force. */
enum {
    TARNEX_LOG_TRACE = 0,    /* calls that set and remove parameters of a valid handle, with keys and values, as they
                                begin; flushes */
    TARNEX_LOG_DEBUG = 1,    /* parameters set, with keys and values; parameters not found; handles left behind */
    TARNEX_LOG_INFO = 2,     /* parameters removed, with their keys */
    TARNEX_LOG_WARN = 3,     /* refused changes and settings */
    TARNEX_LOG_ERR = 4,      /* invalid handles, handles created twice, a malformed TARNEX_LOG_CLEANUP; the default */
    TARNEX_LOG_CRITICAL = 5, /* no message has this level today */
    TARNEX_LOG_OFF = 6       /* only the creation of the log and changes of its level, which are always shown */
};

/* A handle. Only the library knows what it points to. */
typedef struct TarnexAuthHandleObject* TarnexAuthHandle;

/*
 * Gets the version of the library, as TARNEX_3_VERSION.
 *
 * ppVersion  receives the address of a NUL-terminated constant text, the same at every call. It belongs to
 *            the library and is valid until the library is unloaded. Must not be null.
 *
 * Returns TARNEX_OK. Writes nothing to the log.
 */
TARNEX_API TarnexResult tarnexGetAPIVersion_3(const char** ppVersion);

/*
 * Creates a handle without parameters and stores it in your variable.
 *
 * phAuth  address of your handle variable; must not be null. Whatever it holds is overwritten, unless that
 *         is a handle that exists.
 *
 * Returns TARNEX_OK, or TARNEX_E_HANDLE_EXISTS when the variable holds a handle that exists; the variable
 * and that handle then stay as they are.
 */
TARNEX_API TarnexResult tarnexCreateAuthHandle_3(TarnexAuthHandle* phAuth);

/*
 * Destroys a handle with its parameters and sets your variable to null. Copies of the handle that you keep
 * elsewhere are invalid from then on. The memory of keys and values is freed, but not wiped.
 *
 * phAuth  address of your handle variable; must not be null.
 *
 * Returns TARNEX_OK, or TARNEX_E_HANDLE_NOT_FOUND; the variable then stays as it is.
 */
TARNEX_API TarnexResult tarnexDeleteAuthHandle_3(TarnexAuthHandle* phAuth);

/*
 * Sets one parameter of a handle: adds it, or replaces its value.
 *
 * phAuth  address of your handle variable; must not be null (it is not read when key or value is null).
 * key     name of the parameter, any bytes; case matters; may be empty.
 * value   its value, any bytes; may be empty.
 *
 * Returns TARNEX_OK; TARNEX_E_INVALID_ARGUMENT when key or value is null, before anything else is looked
 * at and without a log message; TARNEX_E_HANDLE_NOT_FOUND; or TARNEX_E_HANDLE_LOCKED.
 */
TARNEX_API TarnexResult tarnexSetAuthParams_3(TarnexAuthHandle* phAuth, const char* key, const char* value);

/*
 * Removes one parameter of a handle.
 *
 * phAuth  address of your handle variable; must not be null (it is not read when key is null).
 * key     name of the parameter, any bytes; case matters; may be empty.
 *
 * Returns TARNEX_OK; TARNEX_E_INVALID_ARGUMENT when key is null, before anything else is looked at and
 * without a log message; TARNEX_E_HANDLE_NOT_FOUND; TARNEX_E_PARAM_NOT_FOUND; or TARNEX_E_HANDLE_LOCKED.
 */
TARNEX_API TarnexResult tarnexRemoveAuthParams_3(TarnexAuthHandle* phAuth, const char* key);

/*
 * Adds your name to the name of the log file: "Tarnex-<name>-<process id>.log", plus a counter if that file exists.
 * Possible until the first message. The file is created at once; another name creates another file and leaves the
 * earlier one behind, empty. A name that is refused cancels the earlier one: the log then gets the default name.
 *
 * name  NUL-terminated UTF-8; must not be null, which is not checked. May be empty, which gives the default name.
 *       It is not validated: "x\..\..\name" puts the file outside the log folder, where no clean-up finds it,
 *       and with ":" it is a stream of another file. A text that is not UTF-8 throws std::range_error,
 *       "bad conversion", creates no file and leaves an earlier name as it is (see convention 7).
 *
 * Returns TARNEX_OK; TARNEX_E_INVALID_ARGUMENT when the file could not be created, for instance because the name
 * holds a character that file names cannot have; or TARNEX_E_LOG_FILE_EXISTS after the first message. (After
 * creation has failed, naming still creates a file, but nothing is ever written to it.)
 */
TARNEX_API TarnexResult tarnexSetLogName_3(const char* name);

/*
 * Sets the level of the log, now or for the log that is still to come. A level set before the first message
 * takes the place of the environment variable TARNEX_LOG_LEVEL; one set later gets a line in the log.
 *
 * level  one of the TARNEX_LOG_ levels, 0 to 6.
 *
 * Returns TARNEX_OK, or TARNEX_E_INVALID_ARGUMENT for a level above TARNEX_LOG_OFF; the level in force then stays, and
 * the refusal is a message, which may be the first one.
 */
TARNEX_API TarnexResult tarnexSetLogLevel_3(uint32_t level);

/*
 * Writes the log lines that are still buffered to the file. An err line also flushes everything before it. All other
 * lines wait, level changes included, except the first.
 *
 * Returns TARNEX_OK, also when the system cannot write the lines (on a full disk they are lost); or
 * TARNEX_E_NO_LOGGER when there is no log: there has been no message yet, or the log could not be created.
 */
TARNEX_API TarnexResult tarnexFlushLog_3(void);

/* The types of the functions, for hosts that load the library at run time and find each function by its name. */
typedef TarnexResult (*PFN_tarnexGetAPIVersion_3)(const char** ppVersion);
typedef TarnexResult (*PFN_tarnexCreateAuthHandle_3)(TarnexAuthHandle* phAuth);
typedef TarnexResult (*PFN_tarnexDeleteAuthHandle_3)(TarnexAuthHandle* phAuth);
typedef TarnexResult (*PFN_tarnexSetAuthParams_3)(TarnexAuthHandle* phAuth, const char* key, const char* value);
typedef TarnexResult (*PFN_tarnexRemoveAuthParams_3)(TarnexAuthHandle* phAuth, const char* key);
typedef TarnexResult (*PFN_tarnexSetLogName_3)(const char* name);
typedef TarnexResult (*PFN_tarnexSetLogLevel_3)(uint32_t level);
typedef TarnexResult (*PFN_tarnexFlushLog_3)(void);

#ifdef __cplusplus
}
#endif

#endif /* TARNEX_3_H */
