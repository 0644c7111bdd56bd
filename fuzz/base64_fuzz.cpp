// Decodes arbitrary text and checks that encoding what came out decodes to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <zelutility/base64.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const CMRL_ByteString decoded = Base64Decode(reinterpret_cast<const char*>(data), static_cast<int>(size));
  const CMRL_ByteString encoded =
      Base64Encode(reinterpret_cast<const unsigned char*>(decoded.c_str()), decoded.GetLength());
  const CMRL_ByteString again = Base64Decode(encoded.c_str(), encoded.GetLength());
  if (again.GetLength() != decoded.GetLength() ||
      std::memcmp(again.c_str(), decoded.c_str(), static_cast<size_t>(decoded.GetLength())) != 0)
    __builtin_trap();
  return 0;
}
