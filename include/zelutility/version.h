#ifndef ZELUTILITY_VERSION_H_
#define ZELUTILITY_VERSION_H_

// The version of the zelutility headers, and the version of the library actually loaded.
//
//   #if ZELUTILITY_VERSION_NUMBER >= 10100   // compile-time: the headers are 1.1.0 or newer
//   if (ZELGetVersionNumber() != ZELUTILITY_VERSION_NUMBER) { ... }   // run-time: a different
//                                                                      // library is loaded
//
// The numbers follow semantic versioning: a new major version breaks the ABI (and changes the
// library's SONAME), a new minor version only adds, a new patch version only fixes. The build
// refuses to configure when these values differ from the project version in CMakeLists.txt.
//
// Threads: constants only; any number of calls at once.

#include <zelutility/export.h>

// The parts are macros so that `#if` can test them.
#define ZELUTILITY_VERSION_MAJOR 1
#define ZELUTILITY_VERSION_MINOR 0
#define ZELUTILITY_VERSION_PATCH 0
#define ZELUTILITY_VERSION_STRING "1.0.0"
// major * 10000 + minor * 100 + patch, so versions compare as plain integers.
#define ZELUTILITY_VERSION_NUMBER \
  (ZELUTILITY_VERSION_MAJOR * 10000 + ZELUTILITY_VERSION_MINOR * 100 + ZELUTILITY_VERSION_PATCH)

// The version of the loaded library as "major.minor.patch", e.g. "1.0.0". The text is static and
// never freed. Differs from ZELUTILITY_VERSION_STRING when the program was built against other headers.
ZEL_API const char* ZELGetVersionString() noexcept;

// The version of the loaded library as major * 10000 + minor * 100 + patch, e.g. 10000 for
// 1.0.0; compare it with ZELUTILITY_VERSION_NUMBER to tell which library a program really runs.
ZEL_API int ZELGetVersionNumber() noexcept;

#endif  // ZELUTILITY_VERSION_H_
