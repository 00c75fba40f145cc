#include "logging/Logger.h"
#include "platform/RuntimeMemory.h"
#include "session/Session.h"

// Everything process-wide that has a destructor, in the order of construction. Destruction is the reverse:
// the session goes first and writes its last messages while the logger still exists. Only within one source
// file is that order defined, hence this file.

CRuntimeMemory g_RuntimeMemory;
CMutex g_LoggerMutex;
CMutex g_WriteMutex;
CAbandonable<std::wstring> g_LogFilePath;
CAbandonable<std::shared_ptr<spdlog::logger>> g_Logger;
CSession g_Session;
