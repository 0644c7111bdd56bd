#include "codec/codec_support.h"

#include "image/dib_layout.h"

#include <mrlbase/stream.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <typeinfo>
#include <utility>

ICA_ImageDecoder::~ICA_ImageDecoder() = default;
ICA_ImageEncoder::~ICA_ImageEncoder() = default;

namespace mrl_codec {

namespace {

// Four times the largest bitmap is far beyond any real file; refusing early keeps a lying
// stream from asking for an absurd buffer.
constexpr size_t kMaxStreamBytes = static_cast<size_t>(kMaxPixels) * 4;

using mrl_image::BitsPerPixel;

void SetDefaultPalette(CCA_Dib& dib) {
  if (dib.GetFormat() == CA_DIB_1bpp) {
    const unsigned bw[2] = {0x000000u, 0xFFFFFFu};
    dib.SetPalette(bw, 2);
  } else if (dib.GetFormat() == CA_DIB_8bpp) {
    unsigned ramp[256];
    for (unsigned i = 0; i < 256; ++i) ramp[i] = i * 0x010101u;
    dib.SetPalette(ramp, 256);
  }
}

// A bitmap over a pixel buffer it holds itself. CCA_Dib zero-fills the buffers it allocates;
// this one is allocated bare and freed with the bitmap, like an own buffer (a later Create on
// the bitmap gets an own buffer as usual; this one is then merely kept until the end).
class HeldBufferDib final : public CCA_Dib {
 public:
  explicit HeldBufferDib(std::unique_ptr<unsigned char[]> pixels) noexcept : pixels_(std::move(pixels)) {}
  unsigned char* Pixels() const noexcept { return pixels_.get(); }

 private:
  std::unique_ptr<unsigned char[]> pixels_;
};

}  // namespace

bool StreamBytes::Load(IMRL_StreamRead* stream) {
  copy_.reset();
  data_ = nullptr;
  size_ = 0;
  if (!stream) return false;
  const size_t size = stream->GetSize();
  if (size == 0 || size > kMaxStreamBytes) return false;
  // Only the exact type: a class derived from it may read something other than its buffer.
  if (typeid(*stream) == typeid(CMRL_MemoryStream)) {
    data_ = static_cast<const CMRL_MemoryStream*>(stream)->GetData();
  } else {
    copy_.reset(new (std::nothrow) uint8_t[size]);
    if (!copy_ || !stream->ReadBlock(copy_.get(), 0, size)) {
      copy_.reset();
      return false;
    }
    data_ = copy_.get();
  }
  size_ = size;
  return true;
}

size_t ReadHead(IMRL_StreamRead* stream, uint8_t* buffer, size_t size) {
  if (!stream) return 0;
  const size_t available = stream->GetSize();
  const size_t n = available < size ? available : size;
  if (n == 0 || !stream->ReadBlock(buffer, 0, n)) return 0;
  return n;
}

DibPtr NewDib(int width, int height, CA_DibFormat format) {
  if (width <= 0 || height <= 0 || int64_t{width} * height > kMaxPixels) return nullptr;
  DibPtr dib(new CCA_Dib);
  if (!dib->Create(width, height, format)) return nullptr;
  SetDefaultPalette(*dib);
  return dib;
}

DibPtr NewDibToOverwrite(int width, int height, CA_DibFormat format) {
  const int bpp = BitsPerPixel(format);
  if (bpp == 0 || width <= 0 || height <= 0 || int64_t{width} * height > kMaxPixels) return nullptr;
  // The pitch CCA_Dib::Create picks by itself: the row rounded up to 4 bytes.
  const size_t pitch = (static_cast<size_t>(width) * bpp + 31) / 32 * 4;
  std::unique_ptr<unsigned char[]> pixels(new (std::nothrow) unsigned char[pitch * static_cast<size_t>(height)]);
  if (!pixels) return nullptr;
  std::unique_ptr<HeldBufferDib> dib(new (std::nothrow) HeldBufferDib(std::move(pixels)));
  if (!dib || !dib->Create(width, height, format, dib->Pixels(), static_cast<int>(pitch))) return nullptr;
  const size_t whole = static_cast<size_t>(width) * bpp / 8;
  if (whole < pitch) {
    for (int y = 0; y < height; ++y) std::memset(dib->GetScanline(y) + whole, 0, pitch - whole);
  }
  SetDefaultPalette(*dib);
  return dib;
}

bool HasGrayRampPalette(const CCA_Dib& dib) {
  const int n = dib.GetPaletteSize();
  if (n < 2) return false;
  for (int i = 0; i < n; ++i) {
    const unsigned level = static_cast<unsigned>(i * 255 / (n - 1));
    if ((dib.GetPaletteEntry(i) & 0xFFFFFFu) != level * 0x010101u) return false;
  }
  return true;
}

void ReadRowRgba(const CCA_Dib& dib, int y, uint8_t* rgba) {
  const uint8_t* row = dib.GetScanline(y);
  const int w = dib.GetWidth();
  auto fromEntry = [&](unsigned entry, uint8_t* out) {
    out[0] = static_cast<uint8_t>(entry >> 16);
    out[1] = static_cast<uint8_t>(entry >> 8);
    out[2] = static_cast<uint8_t>(entry);
    out[3] = 255;
  };
  switch (dib.GetFormat()) {
    case CA_DIB_1bpp:
      for (int x = 0; x < w; ++x) fromEntry(dib.GetPaletteEntry((row[x >> 3] >> (7 - (x & 7))) & 1), rgba + 4 * x);
      break;
    case CA_DIB_8bpp: {
      const int n = dib.GetPaletteSize();
      // An index beyond a short palette reads as black, as GetPaletteEntry and compositing do.
      for (int x = 0; x < w; ++x) fromEntry(row[x] < n ? dib.GetPaletteEntry(row[x]) : 0u, rgba + 4 * x);
      break;
    }
    case CA_DIB_8bppMask:
      for (int x = 0; x < w; ++x) {
        rgba[4 * x] = rgba[4 * x + 1] = rgba[4 * x + 2] = row[x];
        rgba[4 * x + 3] = 255;
      }
      break;
    case CA_DIB_Rgb:
      for (int x = 0; x < w; ++x) {
        rgba[4 * x] = row[3 * x + 2];
        rgba[4 * x + 1] = row[3 * x + 1];
        rgba[4 * x + 2] = row[3 * x];
        rgba[4 * x + 3] = 255;
      }
      break;
    case CA_DIB_Rgb32:
    case CA_DIB_Argb: {
      const bool alpha = dib.GetFormat() == CA_DIB_Argb;
      for (int x = 0; x < w; ++x) {
        rgba[4 * x] = row[4 * x + 2];
        rgba[4 * x + 1] = row[4 * x + 1];
        rgba[4 * x + 2] = row[4 * x];
        rgba[4 * x + 3] = alpha ? row[4 * x + 3] : 255;
      }
      break;
    }
    default:
      std::memset(rgba, 0, static_cast<size_t>(w) * 4);
  }
}

bool HasTranslucentPixel(const CCA_Dib& dib) {
  if (dib.GetFormat() != CA_DIB_Argb) return false;
  for (int y = 0; y < dib.GetHeight(); ++y) {
    const uint8_t* row = dib.GetScanline(y);
    for (int x = 0; x < dib.GetWidth(); ++x) {
      if (row[4 * x + 3] != 255) return true;
    }
  }
  return false;
}

DibPtr ConvertDib(const CCA_Dib& source, CA_DibFormat format) {
  DibPtr out = NewDib(source.GetWidth(), source.GetHeight(), format);
  if (!out) return nullptr;
  const int w = source.GetWidth();
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
  for (int y = 0; y < source.GetHeight(); ++y) {
    ReadRowRgba(source, y, rgba.data());
    uint8_t* dst = out->GetScanline(y);
    for (int x = 0; x < w; ++x) {
      const uint8_t* p = &rgba[4 * x];
      const uint8_t gray = static_cast<uint8_t>((p[0] * 299 + p[1] * 587 + p[2] * 114 + 500) / 1000);
      switch (format) {
        case CA_DIB_1bpp:
          if (gray >= 128) dst[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));
          break;
        case CA_DIB_8bpp:
          dst[x] = gray;
          break;
        case CA_DIB_8bppMask:
          dst[x] = source.GetFormat() == CA_DIB_Argb ? p[3] : gray;
          break;
        case CA_DIB_Rgb:
          dst[3 * x] = p[2];
          dst[3 * x + 1] = p[1];
          dst[3 * x + 2] = p[0];
          break;
        default:  // Rgb32 and Argb
          dst[4 * x] = p[2];
          dst[4 * x + 1] = p[1];
          dst[4 * x + 2] = p[0];
          dst[4 * x + 3] = p[3];
      }
    }
  }
  return out;
}

int DecoderBase::SetStream(IMRL_StreamRead* stream, int /*flags*/) {
  stream_ = nullptr;
  uint8_t head[kSignatureBytes];
  const size_t n = ReadHead(stream, head, sizeof head);
  if (n == 0 || !Accepts(head, n)) return 0;
  stream_ = stream;
  return 1;
}

CCA_Dib* DecoderBase::Decode(int frame, int format, int /*flags*/) {
  if (!stream_ || frame < 0) return nullptr;
  if (format < 0 || format > CA_DIB_Argb) return nullptr;
  StreamBytes file;
  if (!file.Load(stream_)) return nullptr;
  DibPtr dib = DecodeFile(file.data(), file.size(), frame);
  if (dib && format != 0 && dib->GetFormat() != format) dib = ConvertDib(*dib, static_cast<CA_DibFormat>(format));
  return dib.release();
}

uint32_t PixelsPerMetre(int dpi) noexcept {
  if (dpi <= 0) return 0;
  const int64_t ppm = (int64_t{dpi} * 10000 + 127) / 254;
  return static_cast<uint32_t>(std::min<int64_t>(ppm, 0x7FFFFFFF));
}

DibPtr WithFullPalette(const CCA_Dib& source) {
  const CA_DibFormat format = source.GetFormat();
  if (format != CA_DIB_1bpp && format != CA_DIB_8bpp) return nullptr;
  const int count = source.GetPaletteSize();
  const int full = format == CA_DIB_1bpp ? 2 : 256;
  if (count >= full) return nullptr;
  int highest = 0;
  const int w = source.GetWidth();
  for (int y = 0; y < source.GetHeight() && highest < full - 1; ++y) {
    const uint8_t* row = source.GetScanline(y);
    if (format == CA_DIB_1bpp) {
      for (int x = 0; x < w; ++x) highest = std::max(highest, (row[x >> 3] >> (7 - (x & 7))) & 1);
    } else {
      highest = std::max<int>(highest, *std::max_element(row, row + w));
    }
  }
  if (highest < count) return nullptr;
  DibPtr copy(new CCA_Dib);
  if (!copy->Create(w, source.GetHeight(), format)) return nullptr;
  const size_t rowBytes = format == CA_DIB_1bpp ? (static_cast<size_t>(w) + 7) / 8 : static_cast<size_t>(w);
  for (int y = 0; y < source.GetHeight(); ++y) std::memcpy(copy->GetScanline(y), source.GetScanline(y), rowBytes);
  std::vector<unsigned> palette(static_cast<size_t>(highest) + 1, 0u);   // black past the source's entries
  for (int i = 0; i < count; ++i) palette[i] = source.GetPaletteEntry(i);
  if (!copy->SetPalette(palette.data(), static_cast<int>(palette.size()))) return nullptr;
  return copy;
}

int EncoderBase::Encode(const CCA_Dib* dib, IMRL_StreamWrite* stream) {
  if (!dib || !stream || !dib->GetBuffer() || dib->GetWidth() <= 0 || dib->GetHeight() <= 0) return 0;
  if (dib->GetFormat() < CA_DIB_1bpp || dib->GetFormat() > CA_DIB_Argb) return 0;
  // Indexes past a short palette would make some formats write an invalid file or fail halfway;
  // the encoders see the palette grown to cover them instead.
  const DibPtr padded = WithFullPalette(*dib);
  // The file is made in memory and handed over whole, so a failure leaves the stream untouched.
  CMRL_MemoryStream file;
  if (!EncodeDib(padded ? *padded : *dib, file)) return 0;
  const std::vector<unsigned char> bytes = file.TakeData();
  return !bytes.empty() && stream->WriteBlock(bytes.data(), bytes.size()) && stream->Flush() ? 1 : 0;
}

void EncoderBase::SetQuality(const int* quality) {
  hasQuality_ = quality != nullptr;
  quality_ = quality ? *quality : 0;
}

void EncoderBase::SetResolution(const int* xDpi, const int* yDpi) {
  xDpi_ = xDpi && *xDpi > 0 ? *xDpi : 0;
  yDpi_ = yDpi && *yDpi > 0 ? *yDpi : 0;
}

int EncoderBase::QualityOr(int lo, int hi, int fallback) const noexcept {
  return hasQuality_ && quality_ >= lo && quality_ <= hi ? quality_ : fallback;
}

}  // namespace mrl_codec
