#include <string.h>
#include <tarnex_3.h>

int main(void)
{
    const char* version = NULL;
    TarnexAuthHandle handle = NULL;
    return tarnexGetAPIVersion_3(&version) != TARNEX_OK || strcmp(version, "3.1.1.43") != 0 ||
           tarnexCreateAuthHandle_3(&handle) != TARNEX_OK || tarnexDeleteAuthHandle_3(&handle) != TARNEX_OK;
}
