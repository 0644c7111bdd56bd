// Decodes arbitrary bytes as an image of whatever format their signature names.
#include <cstddef>
#include <cstdint>
#include <memory>

#include <mrlbase/dib.h>
#include <mrlbase/stream.h>
#include <zelutility/image_codec.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CMRL_MemoryStream stream(data, size);
  std::unique_ptr<CCA_Dib> dib(ImageDecode(&stream));
  if (!dib) return 0;
  // Touch every row of what came out, so a bitmap smaller than it claims shows up.
  const int height = dib->GetHeight();
  const int pitch = dib->GetPitch();
  const unsigned char* buffer = dib->GetBuffer();
  if (height <= 0 || pitch <= 0 || buffer == nullptr) __builtin_trap();
  volatile unsigned char sink = 0;
  for (int y = 0; y < height; ++y) sink = sink ^ buffer[static_cast<size_t>(y) * pitch + pitch - 1];
  (void)sink;
  return 0;
}
