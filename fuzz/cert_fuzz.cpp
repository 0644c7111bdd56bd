// Reads arbitrary bytes as a certificate in any of the public forms.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include <zelutility/cert.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const CMRL_ByteString bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
  CertInfo info;
  try {
    if (!ParsePublicKeyCert(bytes, info)) {
      // A refused input must leave the record as it was.
      if (!info.version.IsEmpty() || !info.thumbprint.IsEmpty() || !info.notBefore.IsEmpty())
        __builtin_trap();
      return 0;
    }
    // A successful reading always writes these members.
    if (info.version.IsEmpty() || info.notAfter.IsEmpty()) __builtin_trap();
    // A second reading into a filled record only replaces or appends; it must not crash.
    (void)ParsePublicKeyCert(bytes, info);
  } catch (const std::out_of_range& e) {
    // The one documented failure: a validity time too short to read.
    if (std::strcmp(e.what(), "invalid string position") != 0) __builtin_trap();
  }
  return 0;
}
