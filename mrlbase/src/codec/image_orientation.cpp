#include "codec/image_orientation.h"

#include <cstring>

namespace mrl_codec {

DibPtr ApplyOrientation(DibPtr dib, int orientation) {
  if (!dib || orientation < 2 || orientation > 8) return dib;
  const int w = dib->GetWidth(), h = dib->GetHeight();
  const bool swap = orientation >= 5;
  DibPtr out = NewDib(swap ? h : w, swap ? w : h, dib->GetFormat());
  if (!out) return nullptr;
  if (dib->GetPaletteSize() > 0) out->SetPalette(dib->GetPaletteData(), dib->GetPaletteSize());
  const int outW = out->GetWidth(), outH = out->GetHeight();
  // Stored pixel (column c, row r) lands on (x0 + c*xc + r*xr, y0 + c*yc + r*yr).
  int x0 = 0, y0 = 0, xc = 1, xr = 0, yc = 0, yr = 1;
  switch (orientation) {
    case 2: x0 = outW - 1, xc = -1; break;
    case 3: x0 = outW - 1, xc = -1, y0 = outH - 1, yr = -1; break;
    case 4: y0 = outH - 1, yr = -1; break;
    case 5: xc = 0, xr = 1, yc = 1, yr = 0; break;
    case 6: x0 = outW - 1, xc = 0, xr = -1, yc = 1, yr = 0; break;
    case 7: x0 = outW - 1, xc = 0, xr = -1, y0 = outH - 1, yc = -1, yr = 0; break;
    default: xc = 0, xr = 1, y0 = outH - 1, yc = -1, yr = 0; break;   // 8
  }
  const int bytes = dib->GetBPP() / 8;
  for (int r = 0; r < h; ++r) {
    const uint8_t* src = dib->GetScanline(r);
    int x = x0 + r * xr, y = y0 + r * yr;
    for (int c = 0; c < w; ++c, x += xc, y += yc) {
      uint8_t* dst = out->GetScanline(y);
      if (bytes == 0) {   // 1 bpp, first pixel in the high bit
        const uint8_t mask = static_cast<uint8_t>(0x80 >> (x & 7));
        if (src[c >> 3] & (0x80 >> (c & 7))) dst[x >> 3] |= mask;
        else dst[x >> 3] &= static_cast<uint8_t>(~mask);
      } else {
        std::memcpy(dst + static_cast<size_t>(x) * bytes, src + static_cast<size_t>(c) * bytes, static_cast<size_t>(bytes));
      }
    }
  }
  return out;
}

int ExifOrientation(const uint8_t* exif, size_t size) noexcept {
  static const uint8_t kSignature[6] = {'E', 'x', 'i', 'f', 0, 0};
  if (!exif || size < 6 + 8 || std::memcmp(exif, kSignature, 6) != 0) return 1;
  const uint8_t* tiff = exif + 6;
  const size_t n = size - 6;
  bool little;
  if (tiff[0] == 'I' && tiff[1] == 'I' && tiff[2] == 42 && tiff[3] == 0) little = true;
  else if (tiff[0] == 'M' && tiff[1] == 'M' && tiff[2] == 0 && tiff[3] == 42) little = false;
  else return 1;
  auto u16 = [tiff, little](size_t at) -> uint32_t {
    return little ? tiff[at] | tiff[at + 1] << 8 : tiff[at] << 8 | tiff[at + 1];
  };
  auto u32 = [&u16, little](size_t at) -> uint32_t {
    return little ? u16(at) | u16(at + 2) << 16 : u16(at) << 16 | u16(at + 2);
  };
  const uint32_t ifd = u32(4);
  if (ifd < 8 || ifd > n - 2) return 1;
  const uint32_t count = u16(ifd);
  for (uint32_t i = 0; i < count; ++i) {
    const size_t entry = ifd + 2 + size_t{i} * 12;
    if (entry + 12 > n) return 1;
    if (u16(entry) != 0x0112) continue;
    const uint32_t type = u16(entry + 2);
    if (u32(entry + 4) != 1) return 1;
    // SHORT as the tag is defined; LONG from lenient writers.
    const uint32_t value = type == 3 ? u16(entry + 8) : type == 4 ? u32(entry + 8) : 0;
    return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
  }
  return 1;
}

}  // namespace mrl_codec
