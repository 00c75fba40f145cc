#include "platform/RuntimeMemory.h"

#include "platform/Process.h"

#ifdef __GLIBCXX__
namespace __gnu_cxx {
void __freeres();  // NOLINT(bugprone-reserved-identifier): the name is libstdc++'s
}
#endif

CRuntimeMemory::~CRuntimeMemory()
{
#ifdef __GLIBCXX__
    // libstdc++ sets 73 KB aside at load, for exceptions that find no memory, and frees them only when asked.
    if (!IsProcessEnding())
        __gnu_cxx::__freeres();
#endif
}
