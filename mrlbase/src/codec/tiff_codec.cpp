// TIFF over libtiff through client procs on memory. Common layouts (bilevel, gray of 8 to 16
// bits, gray with alpha, palette, RGB, RGBA, CMYK, L*a*b*; strips or tiles) are read row by row;
// everything else goes through libtiff's RGBA reader. Either way the rows come as stored and the
// Orientation tag is applied afterwards. Messages go to per-handle handlers: nothing reaches
// stderr, and an error (or a warning that means lost pixels) while the pixels are read makes the
// file damaged.

#include <mrlbase/stream.h>
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "codec/codec_support.h"
#include "codec/image_orientation.h"

namespace mrl_codec {
namespace {

tmsize_t ReadProc(thandle_t h, void* buffer, tmsize_t length) {
  auto* f = static_cast<MemoryFile*>(h);
  if (length < 0 || f->pos > f->size) return -1;
  const size_t n = std::min(static_cast<size_t>(length), f->size - f->pos);
  std::memcpy(buffer, f->data + f->pos, n);
  f->pos += n;
  return static_cast<tmsize_t>(n);
}
tmsize_t WriteProc(thandle_t h, void* buffer, tmsize_t length) {
  auto* f = static_cast<MemoryFile*>(h);
  if (!f->owned || length < 0) return -1;
  const size_t end = f->pos + static_cast<size_t>(length);
  if (end > f->owned->size()) f->owned->resize(end);
  std::memcpy(f->owned->data() + f->pos, buffer, static_cast<size_t>(length));
  f->pos = end;
  f->data = f->owned->data();
  f->size = f->owned->size();
  return length;
}
toff_t SeekProc(thandle_t h, toff_t offset, int whence) {
  auto* f = static_cast<MemoryFile*>(h);
  uint64_t base = whence == SEEK_CUR ? f->pos : whence == SEEK_END ? f->size : 0;
  const uint64_t target = base + offset;
  // A reader may not move past the end; a writer may (the gap is filled on write).
  if (target > (f->owned ? uint64_t{1} << 40 : f->size)) return static_cast<toff_t>(-1);
  f->pos = static_cast<size_t>(target);
  return target;
}
int CloseProc(thandle_t) { return 0; }
toff_t SizeProc(thandle_t h) { return static_cast<MemoryFile*>(h)->size; }
int MapProc(thandle_t, void**, toff_t*) { return 0; }
void UnmapProc(thandle_t, void*, toff_t) {}
// What libtiff reported while one file was decoded; the handlers get it as their user data, so
// concurrent decodes never share it.
struct TiffMessages {
  bool reading = false;   // set once the directory is read: messages from here on are about pixels
  bool damaged = false;   // an error, or a warning that means pixels were lost
};

// Decoder warnings that mean rows were cut short or patched: the fax decoders warn only about
// lines of the wrong length, and libjpeg's warnings reach us as text under "JPEGLib". Of those,
// bytes skipped between segments lose nothing, bytes skipped before a restart marker do.
bool LosesPixels(const char* module, const char* text) {
  if (!module) return false;
  if (std::strncmp(module, "Fax", 3) == 0) return true;
  if (std::strcmp(module, "JPEGLib") != 0) return false;
  if (std::strncmp(text, "Premature end", 13) == 0) return true;
  if (std::strncmp(text, "Corrupt JPEG data", 17) != 0) return false;
  const char* marker = std::strstr(text, "before marker 0x");
  if (!marker) return true;
  const unsigned long code = std::strtoul(marker + 16, nullptr, 16);
  return code >= 0xD0 && code <= 0xD7;
}
int OnError(TIFF*, void* user, const char*, const char*, va_list) {
  auto* messages = static_cast<TiffMessages*>(user);
  if (messages && messages->reading) messages->damaged = true;
  return 1;
}
int OnWarning(TIFF*, void* user, const char* module, const char* format, va_list args) {
  auto* messages = static_cast<TiffMessages*>(user);
  if (!messages || !messages->reading) return 1;
  char text[256];
  std::vsnprintf(text, sizeof text, format, args);
  if (LosesPixels(module, text)) messages->damaged = true;
  return 1;
}

struct TiffClose {
  void operator()(TIFF* tif) const { TIFFClose(tif); }
};
using TiffPtr = std::unique_ptr<TIFF, TiffClose>;
struct OptionsFree {
  void operator()(TIFFOpenOptions* o) const { TIFFOpenOptionsFree(o); }
};

// Messages go to `messages` (null: dropped), never to stderr or a process-wide handler.
TiffPtr OpenTiff(MemoryFile& file, const char* mode, TiffMessages* messages) {
  std::unique_ptr<TIFFOpenOptions, OptionsFree> options(TIFFOpenOptionsAlloc());
  if (!options) return nullptr;
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), OnError, messages);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), OnWarning, messages);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(kDecodeMemoryBudget));
  return TiffPtr(TIFFClientOpenExt("memory", mode, &file, ReadProc, WriteProc, SeekProc, CloseProc, SizeProc,
                                   MapProc, UnmapProc, options.get()));
}

// Sample i of a row of `bits`-bit samples: native 16-bit words as libtiff hands them over,
// anything else packed from the high bit as stored (at most 16 bits, so three bytes hold it).
uint32_t RawSample(const uint8_t* row, size_t i, unsigned bits) noexcept {
  if (bits == 8) return row[i];
  if (bits == 16) {
    uint16_t v;
    std::memcpy(&v, row + 2 * i, 2);
    return v;
  }
  const uint64_t bit = uint64_t{i} * bits;
  const unsigned shift = static_cast<unsigned>(bit & 7), n = (shift + bits + 7) / 8;
  uint32_t window = 0;
  for (unsigned k = 0; k < n; ++k) window = (window << 8) | row[(bit >> 3) + k];
  return (window >> (8 * n - shift - bits)) & ((1u << bits) - 1);
}
// Deep samples keep their high eight bits, as the PNG reader and libtiff's RGBA reader narrow them.
uint8_t Narrow(uint32_t v, unsigned bits) noexcept { return static_cast<uint8_t>(bits > 8 ? v >> (bits - 8) : v); }

// CIE L*a*b* relative to a file's reference white to sRGB. The white is carried to D65 by the
// Bradford transform, so the file's white shows as 255,255,255 whatever white it names.
class LabToSrgb {
 public:
  // `x`, `y`: chromaticity of the reference white.
  LabToSrgb(double x, double y) {
    white_[0] = x / y;
    white_[1] = 1.0;
    white_[2] = (1.0 - x - y) / y;
    static const double kBradford[9] = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0685, 1.0296};
    static const double kBradfordInverse[9] = {0.9869929, -0.1470543, 0.1599627, 0.4323053, 0.5183603,
                                               0.0492912, -0.0085287, 0.0400428, 0.9684867};
    static const double kD65[3] = {0.95047, 1.0, 1.08883};
    static const double kXyzToSrgb[9] = {3.2404542, -1.5371385, -0.4985314, -0.9692660, 1.8760108,
                                         0.0415560, 0.0556434, -0.2040259, 1.0572252};
    double gain[3];
    for (int i = 0; i < 3; ++i) {
      double from = 0, to = 0;
      for (int k = 0; k < 3; ++k) {
        from += kBradford[3 * i + k] * white_[k];
        to += kBradford[3 * i + k] * kD65[k];
      }
      gain[i] = to / from;
    }
    double adapt[9];   // kBradfordInverse * diag(gain) * kBradford
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        adapt[3 * r + c] = 0;
        for (int k = 0; k < 3; ++k) adapt[3 * r + c] += kBradfordInverse[3 * r + k] * gain[k] * kBradford[3 * k + c];
      }
    }
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        matrix_[3 * r + c] = 0;
        for (int k = 0; k < 3; ++k) matrix_[3 * r + c] += kXyzToSrgb[3 * r + k] * adapt[3 * k + c];
      }
    }
  }

  // Writes B, G, R.
  void Convert(double l, double a, double b, uint8_t* bgr) const {
    const double fy = (l + 16) / 116, f[3] = {fy + a / 500, fy, fy - b / 200};
    double xyz[3];
    for (int i = 0; i < 3; ++i) {
      const double t = f[i] > 6.0 / 29 ? f[i] * f[i] * f[i] : 3 * (6.0 / 29) * (6.0 / 29) * (f[i] - 4.0 / 29);
      xyz[i] = t * white_[i];
    }
    for (int i = 0; i < 3; ++i) {
      double v = matrix_[3 * i] * xyz[0] + matrix_[3 * i + 1] * xyz[1] + matrix_[3 * i + 2] * xyz[2];
      v = std::min(1.0, std::max(0.0, v));
      v = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
      bgr[2 - i] = static_cast<uint8_t>(v * 255 + 0.5);
    }
  }

 private:
  double white_[3];
  double matrix_[9];
};

// The layouts read row by row; everything else goes through libtiff's RGBA reader.
enum class RowKind { Bilevel, Gray, GrayAlpha, Palette, Rgb, Rgba, Cmyk, Lab };

struct RowLayout {
  RowKind kind;
  CA_DibFormat format;
  unsigned bits, samples;
  bool minIsWhite;    // gray
  bool labOffset;     // Lab with a and b stored unsigned around the middle (ICC L*a*b*)
};

// The row layout of the current directory, or false when libtiff's RGBA reader has to do it.
bool ClassifyRows(TIFF* tif, RowLayout& out) {
  uint16_t bits = 1, samples = 1, photometric = 0, planar = PLANARCONFIG_CONTIG, extraCount = 0, inkSet = INKSET_CMYK;
  uint16_t* extra = nullptr;
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
  TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
  TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &inkSet);
  if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric) || planar != PLANARCONFIG_CONTIG) return false;
  const bool gray = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
  const bool bytes = bits == 8 || bits == 16;
  // Unassociated alpha is kept as stored: libtiff's RGBA reader would premultiply it into the
  // colour, which cannot be undone exactly.
  const bool straightAlpha = extraCount == 1 && extra && extra[0] == EXTRASAMPLE_UNASSALPHA;
  out = RowLayout{RowKind::Gray, CA_DIB_8bpp, bits, samples, photometric == PHOTOMETRIC_MINISWHITE, photometric == PHOTOMETRIC_ICCLAB};
  if (gray && samples == 1 && bits == 1) out.kind = RowKind::Bilevel, out.format = CA_DIB_1bpp;
  else if (gray && samples == 1 && bits >= 8 && bits <= 16) out.kind = RowKind::Gray;
  else if (gray && samples == 2 && bytes && straightAlpha) out.kind = RowKind::GrayAlpha, out.format = CA_DIB_Argb;
  else if (photometric == PHOTOMETRIC_PALETTE && samples == 1 && bits == 8) out.kind = RowKind::Palette;
  else if (photometric == PHOTOMETRIC_RGB && bytes && samples == 3) out.kind = RowKind::Rgb, out.format = CA_DIB_Rgb;
  else if (photometric == PHOTOMETRIC_RGB && bytes && samples == 4 && straightAlpha) out.kind = RowKind::Rgba, out.format = CA_DIB_Argb;
  else if (photometric == PHOTOMETRIC_SEPARATED && inkSet == INKSET_CMYK && bytes && samples == 4) out.kind = RowKind::Cmyk, out.format = CA_DIB_Rgb;
  else if ((photometric == PHOTOMETRIC_CIELAB || photometric == PHOTOMETRIC_ICCLAB) && bytes && samples == 3) out.kind = RowKind::Lab, out.format = CA_DIB_Rgb;
  else return false;
  return true;
}

// A white point from the file when it is a usable chromaticity, else D50 (the default libtiff
// and the common Lab writers assume).
LabToSrgb LabConverter(TIFF* tif) {
  float* white = nullptr;
  double x = 0.3457, y = 0.3585;
  if (TIFFGetField(tif, TIFFTAG_WHITEPOINT, &white) && white && white[0] > 0 && white[1] > 0.01f && white[0] + white[1] < 1) {
    x = white[0];
    y = white[1];
  }
  return LabToSrgb(x, y);
}

class TiffDecoder final : public DecoderBase {
 protected:
  bool Accepts(const uint8_t* head, size_t size) const override { return IsTiffSignature(head, size); }

  DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) override {
    MemoryFile file;
    file.data = data;
    file.size = size;
    TiffMessages messages;
    TiffPtr tif = OpenTiff(file, "rm", &messages);
    if (!tif || (frame > 0 && !TIFFSetDirectory(tif.get(), static_cast<tdir_t>(frame)))) return nullptr;
    uint32_t w = 0, h = 0;
    if (!TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &w) || !TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &h)) return nullptr;
    if (w == 0 || h == 0 || w > 0x7FFFFFFF || h > 0x7FFFFFFF || uint64_t{w} * h > static_cast<uint64_t>(kMaxPixels)) return nullptr;
    uint16_t sampleFormat = SAMPLEFORMAT_UINT;
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    // Floating-point and complex samples have no 8-bit reading that keeps the picture; both
    // readers would take their bits for integers.
    if (sampleFormat != SAMPLEFORMAT_UINT && sampleFormat != SAMPLEFORMAT_INT && sampleFormat != SAMPLEFORMAT_VOID) return nullptr;
    uint16_t orientation = ORIENTATION_TOPLEFT;
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_ORIENTATION, &orientation);
    messages.reading = true;
    RowLayout layout;
    DibPtr dib = ClassifyRows(tif.get(), layout) ? ReadByRows(tif.get(), layout, static_cast<int>(w), static_cast<int>(h))
                                                 : ReadRgba(tif.get(), static_cast<int>(w), static_cast<int>(h));
    if (!dib || messages.damaged) return nullptr;
    return ApplyOrientation(std::move(dib), orientation);
  }

 private:
  // Rows as stored (top row first whatever the orientation); null on a read fault. Strips and
  // tiles alike; tiles are gathered one band of tile rows at a time.
  static DibPtr ReadByRows(TIFF* tif, const RowLayout& layout, int w, int h) {
    const unsigned bits = layout.bits, samples = layout.samples;
    const tmsize_t scanline = TIFFScanlineSize(tif);
    const uint64_t needed = (uint64_t{static_cast<uint32_t>(w)} * bits * samples + 7) / 8;
    if (scanline <= 0 || static_cast<uint64_t>(scanline) < needed) return nullptr;
    const bool tiled = TIFFIsTiled(tif) != 0;
    uint32_t tileW = 0, tileH = 1;
    tmsize_t tileSize = 0, tileRow = 0;
    if (tiled) {
      TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tileW);
      TIFFGetField(tif, TIFFTAG_TILELENGTH, &tileH);
      tileSize = TIFFTileSize(tif);
      tileRow = TIFFTileRowSize(tif);
      // A tile that does not start on a byte would need bit shifting; none is known to exist.
      if (tileW == 0 || tileH == 0 || (uint64_t{tileW} * bits * samples) % 8 != 0 || tileSize <= 0 || tileRow <= 0) return nullptr;
    }
    const uint64_t bandBytes = static_cast<uint64_t>(scanline) * std::min<uint64_t>(tileH, static_cast<uint64_t>(h));
    if (bandBytes + static_cast<uint64_t>(tileSize) > kDecodeMemoryBudget) return nullptr;

    DibPtr dib = NewDibToOverwrite(w, h, layout.format);   // ConvertRow writes every row
    if (!dib) return nullptr;
    if (layout.kind == RowKind::Bilevel && layout.minIsWhite) {
      const unsigned wb[2] = {0xFFFFFFu, 0};
      dib->SetPalette(wb, 2);
    }
    if (layout.kind == RowKind::Palette && !CopyColorMap(tif, *dib)) return nullptr;
    const LabToSrgb lab = LabConverter(tif);

    std::vector<uint8_t> band(static_cast<size_t>(bandBytes)), tile(static_cast<size_t>(tileSize));
    for (uint32_t y0 = 0; y0 < static_cast<uint32_t>(h); y0 += tileH) {
      const uint32_t rows = std::min(tileH, static_cast<uint32_t>(h) - y0);
      if (tiled) {
        for (uint32_t tx = 0; tx < static_cast<uint32_t>(w); tx += tileW) {
          if (TIFFReadTile(tif, tile.data(), tx, y0, 0, 0) < 0) return nullptr;
          const size_t at = static_cast<size_t>(uint64_t{tx} * bits * samples / 8);
          const size_t copy = std::min(static_cast<size_t>(tileRow), static_cast<size_t>(scanline) - at);
          for (uint32_t r = 0; r < rows; ++r) {
            std::memcpy(&band[r * static_cast<size_t>(scanline) + at], &tile[r * static_cast<size_t>(tileRow)], copy);
          }
        }
      } else if (TIFFReadScanline(tif, band.data(), y0, 0) < 0) {
        return nullptr;
      }
      for (uint32_t r = 0; r < rows; ++r) {
        ConvertRow(layout, lab, &band[r * static_cast<size_t>(scanline)], dib->GetScanline(static_cast<int>(y0 + r)), w);
      }
    }
    return dib;
  }

  static bool CopyColorMap(TIFF* tif, CCA_Dib& dib) {
    uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
    if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b)) return false;
    // Some writers store 8-bit entries in the 16-bit map; libtiff's own reader makes the same guess.
    bool eightBit = true;
    for (int i = 0; i < 256; ++i) eightBit = eightBit && r[i] < 256 && g[i] < 256 && b[i] < 256;
    const int shift = eightBit ? 0 : 8;
    unsigned entries[256];
    for (int i = 0; i < 256; ++i) entries[i] = ((r[i] >> shift) << 16) | ((g[i] >> shift) << 8) | (b[i] >> shift);
    return dib.SetPalette(entries, 256);
  }

  static void ConvertRow(const RowLayout& layout, const LabToSrgb& lab, const uint8_t* src, uint8_t* dst, int w) {
    const unsigned bits = layout.bits;
    auto at = [src, bits](size_t i) { return Narrow(RawSample(src, i, bits), bits); };
    auto gray = [&layout, &at](size_t i) -> uint8_t { return layout.minIsWhite ? 255 - at(i) : at(i); };
    switch (layout.kind) {
      case RowKind::Bilevel:
        std::memcpy(dst, src, (static_cast<size_t>(w) + 7) / 8);
        break;
      case RowKind::Gray:
      case RowKind::Palette:
        for (int x = 0; x < w; ++x) dst[x] = layout.kind == RowKind::Gray ? gray(x) : at(x);
        break;
      case RowKind::GrayAlpha:
        for (int x = 0; x < w; ++x) {
          dst[4 * x] = dst[4 * x + 1] = dst[4 * x + 2] = gray(2 * x);
          dst[4 * x + 3] = at(2 * x + 1);
        }
        break;
      case RowKind::Rgb:
      case RowKind::Rgba: {
        const int n = layout.kind == RowKind::Rgba ? 4 : 3;
        for (int x = 0; x < w; ++x) {
          dst[n * x] = at(n * x + 2);
          dst[n * x + 1] = at(n * x + 1);
          dst[n * x + 2] = at(n * x);
          if (n == 4) dst[4 * x + 3] = at(4 * x + 3);
        }
        break;
      }
      case RowKind::Cmyk:
        // The sums libtiff's RGBA reader uses for 8-bit ink, so both depths agree with it.
        for (int x = 0; x < w; ++x) {
          const unsigned k = 255u - at(4 * x + 3);
          dst[3 * x] = static_cast<uint8_t>(k * (255u - at(4 * x + 2)) / 255);
          dst[3 * x + 1] = static_cast<uint8_t>(k * (255u - at(4 * x + 1)) / 255);
          dst[3 * x + 2] = static_cast<uint8_t>(k * (255u - at(4 * x)) / 255);
        }
        break;
      case RowKind::Lab: {
        // L* runs over the whole unsigned range; a* and b* are signed, or offset by half the
        // range in the ICC encoding, with one unit per 1 << (bits - 8).
        const double full = bits == 16 ? 65535.0 : 255.0, unit = bits == 16 ? 256.0 : 1.0;
        const int32_t offset = layout.labOffset ? (bits == 16 ? 32768 : 128) : 0;
        auto chroma = [&](size_t i) {
          const uint32_t v = RawSample(src, i, bits);
          const int32_t s = layout.labOffset ? static_cast<int32_t>(v) - offset
                                             : bits == 16 ? static_cast<int16_t>(v) : static_cast<int8_t>(v);
          return s / unit;
        };
        for (int x = 0; x < w; ++x) {
          lab.Convert(RawSample(src, 3 * x, bits) * 100.0 / full, chroma(3 * x + 1), chroma(3 * x + 2), dst + 3 * x);
        }
        break;
      }
    }
  }

  // Rows as stored, like ReadByRows, through libtiff's RGBA reader.
  static DibPtr ReadRgba(TIFF* tif, int w, int h) {
    char message[1024];
    if (!TIFFRGBAImageOK(tif, message)) return nullptr;
    if (uint64_t{static_cast<uint32_t>(w)} * h * 4 > kDecodeMemoryBudget) return nullptr;
    uint16_t extraCount = 0;
    uint16_t* extra = nullptr;
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    const bool alpha = extraCount > 0;
    std::vector<uint32_t> raster(static_cast<size_t>(w) * h);
    TIFFRGBAImage image;
    if (!TIFFRGBAImageBegin(&image, tif, 1, message)) return nullptr;
    // The reader would mirror or flip for the file's orientation but cannot turn a quarter;
    // taking the rows as stored lets ApplyOrientation do every case the same way.
    image.orientation = ORIENTATION_TOPLEFT;
    image.req_orientation = ORIENTATION_TOPLEFT;
    const int got = TIFFRGBAImageGet(&image, raster.data(), static_cast<uint32_t>(w), static_cast<uint32_t>(h));
    TIFFRGBAImageEnd(&image);
    if (!got) return nullptr;
    DibPtr dib = NewDibToOverwrite(w, h, alpha ? CA_DIB_Argb : CA_DIB_Rgb);   // every pixel is set below
    if (!dib) return nullptr;
    // The reader hands associated alpha on as stored and premultiplies unassociated colour
    // alpha itself; gray with unassociated alpha it leaves straight.
    uint16_t photometric = 0;
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    const bool grayAlpha = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
    const bool premultiplied =
        alpha && (extra[0] == EXTRASAMPLE_ASSOCALPHA || (extra[0] == EXTRASAMPLE_UNASSALPHA && !grayAlpha));
    for (int y = 0; y < h; ++y) {
      const uint32_t* src = &raster[static_cast<size_t>(y) * w];
      uint8_t* dst = dib->GetScanline(y);
      for (int x = 0; x < w; ++x) {
        const uint32_t p = src[x];
        unsigned r = TIFFGetR(p), g = TIFFGetG(p), b = TIFFGetB(p);
        const unsigned a = TIFFGetA(p);
        if (premultiplied && a > 0 && a < 255) {
          r = std::min(255u, (r * 255 + a / 2) / a);
          g = std::min(255u, (g * 255 + a / 2) / a);
          b = std::min(255u, (b * 255 + a / 2) / a);
        }
        uint8_t* o = dst + (alpha ? 4 : 3) * x;
        o[0] = static_cast<uint8_t>(b);
        o[1] = static_cast<uint8_t>(g);
        o[2] = static_cast<uint8_t>(r);
        if (alpha) o[3] = static_cast<uint8_t>(a);
      }
    }
    return dib;
  }
};

class TiffEncoder final : public EncoderBase {
 protected:
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) override {
    std::vector<uint8_t> bytes;
    MemoryFile file;
    file.owned = &bytes;
    {
      TiffPtr tif = OpenTiff(file, "w", nullptr);
      if (!tif || !WriteImage(tif.get(), dib)) return false;
      if (!TIFFFlush(tif.get())) return false;
    }
    return stream.WriteBlock(bytes.data(), bytes.size());
  }

 private:
  bool WriteImage(TIFF* tif, const CCA_Dib& dib) {
    const int w = dib.GetWidth(), h = dib.GetHeight();
    const CA_DibFormat format = dib.GetFormat();
    uint16_t bits = 8, samples = 1, photometric = PHOTOMETRIC_MINISBLACK, compression = COMPRESSION_LZW;
    std::vector<uint16_t> map;
    if (format == CA_DIB_1bpp || format == CA_DIB_8bpp) {
      bits = format == CA_DIB_1bpp ? 1 : 8;
      const unsigned first = dib.GetPaletteEntry(0) & 0xFFFFFFu, second = dib.GetPaletteEntry(1) & 0xFFFFFFu;
      if (format == CA_DIB_1bpp && first == 0 && second == 0xFFFFFFu) {
        compression = COMPRESSION_CCITTFAX4;
      } else if (format == CA_DIB_1bpp && first == 0xFFFFFFu && second == 0) {
        photometric = PHOTOMETRIC_MINISWHITE;
        compression = COMPRESSION_CCITTFAX4;
      } else if (!(format == CA_DIB_8bpp && HasGrayRampPalette(dib) && dib.GetPaletteSize() == 256)) {
        photometric = PHOTOMETRIC_PALETTE;
        const int n = 1 << bits;
        map.assign(3 * n, 0);
        for (int i = 0; i < n && i < dib.GetPaletteSize(); ++i) {
          const unsigned e = dib.GetPaletteEntry(i);
          map[i] = static_cast<uint16_t>(((e >> 16) & 0xFF) * 257);
          map[n + i] = static_cast<uint16_t>(((e >> 8) & 0xFF) * 257);
          map[2 * n + i] = static_cast<uint16_t>((e & 0xFF) * 257);
        }
      }
    } else if (format == CA_DIB_Rgb || format == CA_DIB_Rgb32 || format == CA_DIB_Argb) {
      photometric = PHOTOMETRIC_RGB;
      samples = format == CA_DIB_Argb ? 4 : 3;
    }
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(w));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(h));
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, photometric);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
    if (samples == 4) {
      const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
      TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    if (!map.empty()) {
      const size_t n = map.size() / 3;
      TIFFSetField(tif, TIFFTAG_COLORMAP, map.data(), map.data() + n, map.data() + 2 * n);
    }
    if (XDpi() > 0 && YDpi() > 0) {
      TIFFSetField(tif, TIFFTAG_XRESOLUTION, static_cast<float>(XDpi()));
      TIFFSetField(tif, TIFFTAG_YRESOLUTION, static_cast<float>(YDpi()));
      TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    }
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    std::vector<uint8_t> row(static_cast<size_t>(TIFFScanlineSize(tif)) + 4);
    for (int y = 0; y < h; ++y) {
      const uint8_t* src = dib.GetScanline(y);
      if (photometric == PHOTOMETRIC_RGB) {
        const int in = format == CA_DIB_Rgb ? 3 : 4;
        for (int x = 0; x < w; ++x) {
          row[samples * x] = src[in * x + 2];
          row[samples * x + 1] = src[in * x + 1];
          row[samples * x + 2] = src[in * x];
          if (samples == 4) row[4 * x + 3] = src[4 * x + 3];
        }
      } else {
        std::memcpy(row.data(), src, bits == 1 ? (w + 7) / 8 : w);
      }
      if (TIFFWriteScanline(tif, row.data(), static_cast<uint32_t>(y), 0) < 0) return false;
    }
    return TIFFWriteDirectory(tif) != 0;
  }
};

}  // namespace

ICA_ImageDecoder* NewTiffDecoder() { return new TiffDecoder; }
ICA_ImageEncoder* NewTiffEncoder() { return new TiffEncoder; }

}  // namespace mrl_codec
