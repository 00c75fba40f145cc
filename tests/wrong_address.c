/* A host that crashes inside the library, for the test of the debugger. */
#include <tarnex_3.h>

int main(void)
{
    return (int)tarnexCreateAuthHandle_3((TarnexAuthHandle*)16);
}
