// Reads arbitrary text as a colour and writes back what was read.
#include <cstddef>
#include <cstdint>
#include <string>

#include <zelutility/color.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  unsigned int color = 0;
  CA_ColorSpace space = CA_COLORSPACE_Gray;
  if (ParseColorString(text.c_str(), color, space)) {
    CMRL_ByteString back;
    (void)ParseColorByte(color, space, back);
  }
  return 0;
}
