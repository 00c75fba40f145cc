// A DLL without content, linked like the library: what loading costs at least.
#include <string>

extern "C" __declspec(dllexport) std::size_t emptyVersion()
{
    return std::string("3.1.1.43, long enough to need the allocator").size();
}
