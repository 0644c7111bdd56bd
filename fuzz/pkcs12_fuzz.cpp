// Opens arbitrary bytes as a PKCS#12 container with a fixed password.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include <zelutility/cert.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const CMRL_ByteString bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
  CertInfo info;
  try {
    const int code = ParsePrivateKeyCert(bytes, CMRL_ByteString("secret"), info);
    if (code < -1 || code > 1) __builtin_trap();
    // Only a container that opened and held a certificate may have written the record.
    if ((code == 0) == info.version.IsEmpty()) __builtin_trap();
  } catch (const std::out_of_range& e) {
    // The one documented failure: a validity time too short to read.
    if (std::strcmp(e.what(), "invalid string position") != 0) __builtin_trap();
  }
  return 0;
}
