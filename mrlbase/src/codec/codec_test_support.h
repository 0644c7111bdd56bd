#ifndef MRLBASE_SRC_CODEC_CODEC_TEST_SUPPORT_H_
#define MRLBASE_SRC_CODEC_CODEC_TEST_SUPPORT_H_

// Helpers shared by the codec tests: files, the factory round trip, and pixels read through the
// public CCA_Dib interface only (so they do not lean on the codecs' own row conversion).

#include <mrlbase/codec.h>
#include <mrlbase/dib.h>
#include <mrlbase/stream.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace codec_test {

using Bytes = std::vector<uint8_t>;

constexpr CA_DibFormat kLayouts[] = {CA_DIB_1bpp, CA_DIB_8bpp, CA_DIB_8bppMask, CA_DIB_Rgb, CA_DIB_Rgb32, CA_DIB_Argb};

inline std::string TestDataDir() { return std::string(ZEL_TESTDATA_DIR); }

inline bool ReadFileBytes(const std::string& path, Bytes& out) {
  std::ifstream in(path, std::ios::binary);
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return static_cast<bool>(in);
}

// Names (not paths) of the files in `dir` ending in `suffix`; empty when the folder is absent.
inline std::vector<std::string> ListFiles(const std::string& dir, const std::string& suffix) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(dir, ec)) {
    const std::string name = e.path().filename().string();
    if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) names.push_back(name);
  }
  return names;
}

inline Bytes Head(const Bytes& bytes, size_t n) { return Bytes(bytes.begin(), bytes.begin() + n); }

// Decodes through the factory the way a caller does; null when any step refuses.
inline std::unique_ptr<CCA_Dib> Decode(const Bytes& bytes, int frame = 0, int format = 0) {
  CMRL_MemoryStream in(bytes.data(), bytes.size());
  std::unique_ptr<ICA_ImageDecoder> decoder(CCA_Context::Get()->GetCodecFactory()->CreateImageDecoder(CA_GetImageFormat(&in)));
  if (!decoder || !decoder->SetStream(&in, 1)) return nullptr;
  return std::unique_ptr<CCA_Dib>(decoder->Decode(frame, format, 0));
}

// Encodes with the factory's encoder; empty when it fails.
inline Bytes Encode(const CCA_Dib& dib, CA_ImageFormat format, const int* quality = nullptr,
                    const int* xDpi = nullptr, const int* yDpi = nullptr) {
  std::unique_ptr<ICA_ImageEncoder> encoder(CCA_Context::Get()->GetCodecFactory()->CreateImageEncoder(format));
  if (!encoder) return {};
  encoder->SetQuality(quality);
  encoder->SetResolution(xDpi, yDpi);
  CMRL_MemoryStream out;
  if (encoder->Encode(&dib, &out) != 1) return {};
  return Bytes(out.GetData(), out.GetData() + out.GetSize());
}

// Pixel (x, y) as 0xAARRGGBB: palettes looked up, alpha 0xFF where the layout has none.
inline uint32_t Argb(const CCA_Dib& dib, int x, int y) {
  const unsigned v = dib.GetPixel(CMRL_PSVTemplate<int>(x, y));
  switch (dib.GetFormat()) {
    case CA_DIB_1bpp:
    case CA_DIB_8bpp: return 0xFF000000u | (dib.GetPaletteEntry(static_cast<int>(v)) & 0xFFFFFFu);
    case CA_DIB_8bppMask: return 0xFF000000u | (v & 0xFF) * 0x010101u;
    case CA_DIB_Argb: return v;
    default: return 0xFF000000u | (v & 0xFFFFFFu);
  }
}

// Pixel (x, y) of tightly packed 8-bit R,G,B,A samples as 0xAARRGGBB.
inline uint32_t RgbaAt(const Bytes& rgba, int width, int x, int y) {
  const uint8_t* p = &rgba[(static_cast<size_t>(y) * width + x) * 4];
  return (uint32_t{p[3]} << 24) | (p[0] << 16) | (p[1] << 8) | p[2];
}

// A bitmap of the layout filled with a pattern that uses every channel (and, for palettes, a
// palette that is not the gray ramp unless `grayPalette`).
inline std::unique_ptr<CCA_Dib> Pattern(int w, int h, CA_DibFormat format, bool grayPalette = false) {
  std::unique_ptr<CCA_Dib> dib(new CCA_Dib);
  if (!dib->Create(w, h, format)) return nullptr;
  unsigned palette[256] = {0x203040u, 0xF0E0D0u};
  for (unsigned i = 2; i < 256; ++i) palette[i] = (i * 0x9E3779B9u) >> 8;
  if (!grayPalette && (format == CA_DIB_1bpp || format == CA_DIB_8bpp)) dib->SetPalette(palette, format == CA_DIB_1bpp ? 2 : 256);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const unsigned seed = static_cast<unsigned>(x * 7 + y * 13 + x * y);
      const unsigned rgb = ((x * 255 / w) << 16) | ((y * 255 / h) << 8) | (seed & 0xFF);
      unsigned v;
      switch (format) {
        case CA_DIB_1bpp: v = (x + y) % 3 == 0; break;
        case CA_DIB_8bpp:
        case CA_DIB_8bppMask: v = seed & 0xFF; break;
        case CA_DIB_Argb: v = ((seed * 37u) & 0xFF) << 24 | rgb; break;
        case CA_DIB_Rgb32: v = 0xFF000000u | rgb; break;
        default: v = rgb;
      }
      dib->SetPixel(CMRL_PSVTemplate<int>(x, y), v);
    }
  }
  return dib;
}

// Peak virtual memory of this process in bytes, or -1 where /proc does not tell. An allocation
// shows here even when its pages are never touched, so a decoder that trusts a huge header
// makes it jump.
inline int64_t PeakVirtualBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, 7, "VmPeak:") == 0) return std::stoll(line.substr(7)) * 1024;
  }
  return -1;
}

// Number of pixels whose ARGB differs; -1 when the sizes differ.
inline int CountDifferences(const CCA_Dib& a, const CCA_Dib& b) {
  if (a.GetWidth() != b.GetWidth() || a.GetHeight() != b.GetHeight()) return -1;
  int diff = 0;
  for (int y = 0; y < a.GetHeight(); ++y) {
    for (int x = 0; x < a.GetWidth(); ++x) diff += Argb(a, x, y) != Argb(b, x, y);
  }
  return diff;
}

// Every byte of the bitmap's pixel buffer, row padding included.
inline Bytes BufferBytes(const CCA_Dib& dib) {
  const uint8_t* p = dib.GetBuffer();
  return Bytes(p, p + static_cast<size_t>(dib.GetPitch()) * static_cast<size_t>(dib.GetHeight()));
}

// Decodes the file three times, scribbling a different value over each bitmap's buffer before
// freeing it so that the next decode likely gets that memory back: a byte the decoder leaves
// unwritten then differs between them. Success when the buffers are the same byte for byte and
// the padding past each row's last byte is zero.
inline testing::AssertionResult SameBytesOverReusedMemory(const Bytes& file, int format = 0) {
  auto dib = Decode(file, 0, format);
  if (!dib) return testing::AssertionFailure() << "not decoded";
  const Bytes want = BufferBytes(*dib);
  const size_t used = (static_cast<size_t>(dib->GetWidth()) * dib->GetBPP() + 7) / 8;
  for (int y = 0; y < dib->GetHeight(); ++y) {
    for (size_t i = used; i < static_cast<size_t>(dib->GetPitch()); ++i) {
      if (dib->GetScanline(y)[i] != 0) return testing::AssertionFailure() << "padding byte " << i << " of row " << y << " is set";
    }
  }
  for (const uint8_t dirt : {uint8_t{0xA5}, uint8_t{0x5A}}) {
    std::memset(dib->GetBuffer(), dirt, want.size());
    dib.reset();
    dib = Decode(file, 0, format);
    if (!dib) return testing::AssertionFailure() << "not decoded again";
    if (BufferBytes(*dib) != want) return testing::AssertionFailure() << "bytes differ on memory left at " << int{dirt};
  }
  return testing::AssertionSuccess();
}

}  // namespace codec_test

#endif  // MRLBASE_SRC_CODEC_CODEC_TEST_SUPPORT_H_
