// The version of the library, for programs that want to know which one they run with. The number
// itself stands in the header.
#include <vesk/vesk_version.h>

const char *vesk_version(void)
{
    return VESK_VERSION;
}
