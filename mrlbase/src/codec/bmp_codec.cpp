// Our own BMP reader and writer: every header version from the 12-byte core header to V5,
// 1/4/8 bpp with palette, RLE8 and RLE4, 16/32 bpp bit fields (with alpha), 24 and 32 bpp.

#include <mrlbase/stream.h>

#include <cstring>

#include "codec/codec_support.h"

namespace mrl_codec {
namespace {

constexpr uint32_t kBiRgb = 0, kBiRle8 = 1, kBiRle4 = 2, kBiBitfields = 3, kBiAlphaBitfields = 6;

uint32_t U16(const uint8_t* p) { return p[0] | (p[1] << 8); }
uint32_t U32(const uint8_t* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24); }

// One colour channel described by a bit mask.
struct Channel {
  uint32_t mask = 0;
  int shift = 0;
  uint32_t max = 0;

  explicit Channel(uint32_t m = 0) : mask(m) {
    if (!m) return;
    while (!((m >> shift) & 1)) ++shift;
    max = m >> shift;
  }
  uint8_t Get(uint32_t pixel) const {
    if (!max) return 0;
    return static_cast<uint8_t>((((pixel & mask) >> shift) * 255 + max / 2) / max);
  }
};

class BmpDecoder final : public DecoderBase {
 protected:
  bool Accepts(const uint8_t* head, size_t size) const override { return IsBmpSignature(head, size); }
  DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) override;
};

DibPtr DecodeRle(const uint8_t* src, size_t avail, int width, int height, bool four, bool topDown,
                 const std::vector<unsigned>& palette) {
  DibPtr dib = NewDib(width, height, CA_DIB_8bpp);
  if (!dib || palette.empty() || !dib->SetPalette(palette.data(), static_cast<int>(palette.size()))) return nullptr;
  int x = 0, y = 0;   // y counts rows in file order
  size_t i = 0;
  auto put = [&](uint8_t index) {
    if (x < width && y < height) dib->GetScanline(topDown ? y : height - 1 - y)[x] = index;
    ++x;
  };
  while (i + 1 < avail) {
    const uint8_t count = src[i], value = src[i + 1];
    i += 2;
    if (count) {
      for (int k = 0; k < count; ++k) put(four ? ((k & 1) ? value & 15 : value >> 4) : value);
      continue;
    }
    if (value == 0) {  // end of line
      x = 0;
      ++y;
    } else if (value == 1) {  // end of bitmap
      return dib;
    } else if (value == 2) {  // delta
      if (i + 1 >= avail) return nullptr;
      x += src[i];
      y += src[i + 1];
      i += 2;
    } else {  // absolute run, padded to a 16-bit boundary
      const size_t bytes = four ? (value + 1u) / 2 : value;
      if (i + bytes > avail) return nullptr;
      for (int k = 0; k < value; ++k) put(four ? ((k & 1) ? src[i + k / 2] & 15 : src[i + k / 2] >> 4) : src[i + k]);
      i += (bytes + 1) & ~size_t{1};
    }
    if (y > height) return nullptr;
  }
  return nullptr;   // ran out of data before the end-of-bitmap mark
}

DibPtr BmpDecoder::DecodeFile(const uint8_t* data, size_t size, int frame) {
  if (frame != 0 || size < 26) return nullptr;
  const uint32_t offBits = U32(data + 10);
  const uint32_t headerSize = U32(data + 14);
  // The core header, the OS/2 2.x header (16 to 64 bytes, its fields past 16 optional) and the
  // Windows ones (40, 52, 56, 108, 124); any other size is not a BMP header.
  const bool knownSize = headerSize == 12 || (headerSize >= 16 && headerSize <= 64) || headerSize == 108 || headerSize == 124;
  if (!knownSize || headerSize > size - 14) return nullptr;
  const uint8_t* h = data + 14;
  int64_t width, height;
  uint32_t bitCount, compression = kBiRgb, colorsUsed = 0;
  size_t paletteEntrySize = 4;
  if (headerSize == 12) {
    width = U16(h + 4);
    height = U16(h + 6);
    bitCount = U16(h + 10);
    paletteEntrySize = 3;
  } else {
    width = static_cast<int32_t>(U32(h + 4));
    height = static_cast<int32_t>(U32(h + 8));
    bitCount = U16(h + 14);
    if (headerSize >= 20) compression = U32(h + 16);
    if (headerSize >= 36) colorsUsed = U32(h + 32);
  }
  const bool topDown = height < 0;
  if (topDown) height = -height;
  if (width <= 0 || height <= 0 || width * height > kMaxPixels) return nullptr;

  // Bit masks: inside a V2+ header, or in the 12 or 16 bytes after a 40-byte one.
  size_t tableStart = 14 + headerSize;
  uint32_t masks[4] = {0, 0, 0, 0};
  if (compression == kBiBitfields || compression == kBiAlphaBitfields) {
    const int count = compression == kBiAlphaBitfields ? 4 : 3;
    const uint8_t* m = h + 40;
    if (headerSize == 40) {
      if (tableStart + 4 * count > size) return nullptr;
      tableStart += 4 * count;
    } else if (headerSize < 40u + 4u * count) {
      return nullptr;  // the masks must lie inside the header, the alpha mask included
    }
    for (int k = 0; k < count; ++k) masks[k] = U32(m + 4 * k);
    if (headerSize >= 56) masks[3] = U32(m + 12);
  } else if (bitCount == 16) {
    masks[0] = 0x7C00;
    masks[1] = 0x03E0;
    masks[2] = 0x001F;
  } else if (bitCount == 32) {
    masks[0] = 0xFF0000;
    masks[1] = 0xFF00;
    masks[2] = 0xFF;
  }

  std::vector<unsigned> palette;
  if (bitCount <= 8) {
    if (bitCount != 1 && bitCount != 4 && bitCount != 8) return nullptr;
    const uint32_t maxColors = 1u << bitCount;
    uint32_t n = colorsUsed == 0 || colorsUsed > maxColors ? maxColors : colorsUsed;
    // Without a stated count, a pixel offset inside the full-sized table marks a shorter one.
    if (colorsUsed == 0 && offBits > tableStart && offBits < tableStart + n * paletteEntrySize) {
      n = static_cast<uint32_t>((offBits - tableStart) / paletteEntrySize);
    }
    if (tableStart + n * paletteEntrySize > size) return nullptr;
    for (uint32_t k = 0; k < n; ++k) {
      const uint8_t* e = data + tableStart + k * paletteEntrySize;
      palette.push_back((e[2] << 16) | (e[1] << 8) | e[0]);
    }
    tableStart += n * paletteEntrySize;
  }
  // Pixels cannot start inside the headers or the palette; some writers put a wrong offset
  // there, and the pixels then follow the palette.
  const size_t start = offBits < tableStart ? tableStart : offBits;
  if (start >= size) return nullptr;
  const uint8_t* bits = data + start;
  const size_t avail = size - start;
  const int w = static_cast<int>(width), hgt = static_cast<int>(height);

  if (compression == kBiRle8 || compression == kBiRle4) {
    if (bitCount != (compression == kBiRle8 ? 8u : 4u)) return nullptr;
    return DecodeRle(bits, avail, w, hgt, compression == kBiRle4, topDown, palette);
  }
  if (compression != kBiRgb && compression != kBiBitfields && compression != kBiAlphaBitfields) return nullptr;

  const size_t stride = ((static_cast<size_t>(w) * bitCount + 31) / 32) * 4;
  // Every pixel must be there; the padding after the last row in the file may be missing.
  const size_t lastRowBytes = (static_cast<size_t>(w) * bitCount + 7) / 8;
  if (stride * static_cast<size_t>(hgt - 1) + lastRowBytes > avail) return nullptr;
  auto fileRow = [&](int y) { return bits + stride * static_cast<size_t>(topDown ? y : hgt - 1 - y); };

  if (bitCount <= 8) {
    DibPtr dib = NewDib(w, hgt, bitCount == 1 ? CA_DIB_1bpp : CA_DIB_8bpp);
    if (!dib || !dib->SetPalette(palette.data(), static_cast<int>(palette.size()))) return nullptr;
    for (int y = 0; y < hgt; ++y) {
      const uint8_t* src = fileRow(y);
      uint8_t* dst = dib->GetScanline(y);
      if (bitCount == 1) {
        std::memcpy(dst, src, (w + 7) / 8);
      } else if (bitCount == 4) {
        for (int x = 0; x < w; ++x) dst[x] = (x & 1) ? src[x / 2] & 15 : src[x / 2] >> 4;
      } else {
        std::memcpy(dst, src, w);
      }
    }
    return dib;
  }
  if (bitCount == 24) {
    DibPtr dib = NewDib(w, hgt, CA_DIB_Rgb);
    if (!dib) return nullptr;
    for (int y = 0; y < hgt; ++y) std::memcpy(dib->GetScanline(y), fileRow(y), static_cast<size_t>(w) * 3);
    return dib;
  }
  if (bitCount != 16 && bitCount != 32) return nullptr;
  // The fourth byte of a plain 32 bpp pixel is unused whatever it holds: alpha comes only with
  // bit fields that name it.
  const Channel r(masks[0]), g(masks[1]), b(masks[2]), a(masks[3]);
  const bool alpha = masks[3] != 0;
  DibPtr dib = NewDib(w, hgt, alpha ? CA_DIB_Argb : CA_DIB_Rgb);
  if (!dib) return nullptr;
  const int outBytes = alpha ? 4 : 3;
  for (int y = 0; y < hgt; ++y) {
    const uint8_t* src = fileRow(y);
    uint8_t* dst = dib->GetScanline(y);
    for (int x = 0; x < w; ++x) {
      const uint32_t pixel = bitCount == 16 ? U16(src + 2 * x) : U32(src + 4 * x);
      uint8_t* o = dst + outBytes * x;
      o[0] = b.Get(pixel);
      o[1] = g.Get(pixel);
      o[2] = r.Get(pixel);
      if (alpha) o[3] = a.Get(pixel);
    }
  }
  return dib;
}

class BmpEncoder final : public EncoderBase {
 protected:
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) override;
};

void Put16(std::vector<uint8_t>& v, uint32_t x) {
  v.push_back(static_cast<uint8_t>(x));
  v.push_back(static_cast<uint8_t>(x >> 8));
}
void Put32(std::vector<uint8_t>& v, uint32_t x) {
  Put16(v, x & 0xFFFF);
  Put16(v, x >> 16);
}

bool BmpEncoder::EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) {
  const CA_DibFormat format = dib.GetFormat();
  const int w = dib.GetWidth(), h = dib.GetHeight();
  const bool alpha = format == CA_DIB_Argb;
  const uint32_t bitCount = format == CA_DIB_1bpp ? 1 : format == CA_DIB_8bpp || format == CA_DIB_8bppMask ? 8 : alpha ? 32 : 24;
  std::vector<unsigned> palette;
  if (format == CA_DIB_1bpp || format == CA_DIB_8bpp) {
    for (int i = 0; i < dib.GetPaletteSize(); ++i) palette.push_back(dib.GetPaletteEntry(i));
  } else if (format == CA_DIB_8bppMask) {
    for (unsigned i = 0; i < 256; ++i) palette.push_back(i * 0x010101u);
  }
  const uint32_t headerSize = alpha ? 108 : 40;   // V4 carries the alpha mask
  const uint64_t stride = ((static_cast<uint64_t>(w) * bitCount + 31) / 32) * 4;
  const uint64_t offBits = 14 + headerSize + 4 * palette.size();
  const uint64_t fileSize = offBits + stride * h;
  if (fileSize > 0xFFFFFFFFu) return false;

  std::vector<uint8_t> head;
  head.reserve(offBits);
  head.push_back('B');
  head.push_back('M');
  Put32(head, static_cast<uint32_t>(fileSize));
  Put32(head, 0);
  Put32(head, static_cast<uint32_t>(offBits));
  Put32(head, headerSize);
  Put32(head, static_cast<uint32_t>(w));
  Put32(head, static_cast<uint32_t>(h));
  Put16(head, 1);
  Put16(head, bitCount);
  Put32(head, alpha ? kBiBitfields : kBiRgb);
  Put32(head, static_cast<uint32_t>(stride * h));
  Put32(head, PixelsPerMetre(XDpi()));
  Put32(head, PixelsPerMetre(YDpi()));
  Put32(head, static_cast<uint32_t>(palette.size()));
  Put32(head, 0);
  if (alpha) {
    Put32(head, 0x00FF0000);
    Put32(head, 0x0000FF00);
    Put32(head, 0x000000FF);
    Put32(head, 0xFF000000);
    Put32(head, 0x73524742);   // 'sRGB'
    head.resize(14 + headerSize, 0);   // endpoints and gamma stay zero
  }
  for (unsigned e : palette) Put32(head, e & 0xFFFFFFu);
  if (!stream.WriteBlock(head.data(), head.size())) return false;

  std::vector<uint8_t> row(stride, 0);
  for (int y = h - 1; y >= 0; --y) {
    const uint8_t* src = dib.GetScanline(y);
    switch (format) {
      case CA_DIB_1bpp: std::memcpy(row.data(), src, (w + 7) / 8); break;
      case CA_DIB_8bpp:
      case CA_DIB_8bppMask: std::memcpy(row.data(), src, w); break;
      case CA_DIB_Rgb: std::memcpy(row.data(), src, static_cast<size_t>(w) * 3); break;
      case CA_DIB_Argb: std::memcpy(row.data(), src, static_cast<size_t>(w) * 4); break;
      default:
        for (int x = 0; x < w; ++x) std::memcpy(&row[3 * x], src + 4 * x, 3);
    }
    if (!stream.WriteBlock(row.data(), row.size())) return false;
  }
  return true;
}

}  // namespace

ICA_ImageDecoder* NewBmpDecoder() { return new BmpDecoder; }
ICA_ImageEncoder* NewBmpEncoder() { return new BmpEncoder; }

}  // namespace mrl_codec
