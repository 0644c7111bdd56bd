#include <zelutility/version.h>

// The values are compiled in here, so they describe the library that was built, whatever
// headers the calling program saw.
const char* ZELGetVersionString() noexcept { return ZELUTILITY_VERSION_STRING; }

int ZELGetVersionNumber() noexcept { return ZELUTILITY_VERSION_NUMBER; }
