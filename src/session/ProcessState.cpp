#include "logging/Logger.h"
#include "platform/Process.h"
#include "session/Session.h"

#ifdef __GLIBCXX__
namespace __gnu_cxx {
void __freeres();  // NOLINT(bugprone-reserved-identifier): the name is libstdc++'s
}
#endif

namespace {

/** Gives back, at unload, what the statically linked C++ runtime would leave behind with every load of the library. */
struct CRuntimeMemory
{
    ~CRuntimeMemory()
    {
#ifdef __GLIBCXX__
        // libstdc++ sets 73 KB aside at load, for exceptions that find no memory, and frees them only when asked.
        if (!IsProcessEnding())
            __gnu_cxx::__freeres();
#endif
    }
};

}  // namespace

// Everything process-wide that has a destructor, in the order of construction. Destruction is the reverse:
// the session goes first and writes its last messages while the logger still exists. Only within one source
// file is that order defined, hence this file.

static CRuntimeMemory g_RuntimeMemory;
CMutex g_LoggerMutex;
CMutex g_WriteMutex;
CAbandonable<std::wstring> g_LogFilePath;
CAbandonable<std::shared_ptr<spdlog::logger>> g_Logger;
CSession g_Session;
