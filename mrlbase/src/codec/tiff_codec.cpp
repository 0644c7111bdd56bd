// TIFF over libtiff through client procs on memory. Common layouts (bilevel, gray, gray with
// alpha, palette, RGB, RGBA; 8 or 16 bits; strips or tiles) are read row by row; everything else
// goes through libtiff's RGBA reader.
// Messages go to a per-handle handler that drops them, so nothing reaches stderr.

#include <mrlbase/stream.h>
#include <tiffio.h>

#include <algorithm>
#include <cstring>

#include "codec/codec_support.h"

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
int DropMessage(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TiffClose {
  void operator()(TIFF* tif) const { TIFFClose(tif); }
};
using TiffPtr = std::unique_ptr<TIFF, TiffClose>;
struct OptionsFree {
  void operator()(TIFFOpenOptions* o) const { TIFFOpenOptionsFree(o); }
};

TiffPtr OpenTiff(MemoryFile& file, const char* mode) {
  std::unique_ptr<TIFFOpenOptions, OptionsFree> options(TIFFOpenOptionsAlloc());
  if (!options) return nullptr;
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), DropMessage, nullptr);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), DropMessage, nullptr);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(kMaxPixels) * 4);
  return TiffPtr(TIFFClientOpenExt("memory", mode, &file, ReadProc, WriteProc, SeekProc, CloseProc, SizeProc,
                                   MapProc, UnmapProc, options.get()));
}

class TiffDecoder final : public DecoderBase {
 protected:
  bool Accepts(const uint8_t* head, size_t size) const override { return IsTiffSignature(head, size); }

  DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) override {
    MemoryFile file;
    file.data = data;
    file.size = size;
    TiffPtr tif = OpenTiff(file, "rm");
    if (!tif || (frame > 0 && !TIFFSetDirectory(tif.get(), static_cast<tdir_t>(frame)))) return nullptr;
    uint32_t w = 0, h = 0;
    if (!TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &w) || !TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &h)) return nullptr;
    if (w == 0 || h == 0 || w > 0x7FFFFFFF || h > 0x7FFFFFFF || uint64_t{w} * h > static_cast<uint64_t>(kMaxPixels)) return nullptr;
    if (DibPtr dib = ReadByRows(tif.get(), static_cast<int>(w), static_cast<int>(h))) return dib;
    if (bypassed_) return nullptr;   // a layout the row reader owns failed: the file is damaged
    return ReadRgba(tif.get(), static_cast<int>(w), static_cast<int>(h));
  }

 private:
  // Null with bypassed_ false when the layout is not one it reads; null with bypassed_ true on
  // a read fault. Strips and tiles alike, 8 or 16 bits a sample: libtiff's RGBA reader would
  // premultiply unassociated alpha into the colour, which cannot be undone exactly.
  DibPtr ReadByRows(TIFF* tif, int w, int h) {
    bypassed_ = false;
    uint16_t bits = 1, samples = 1, photometric = 0, planar = PLANARCONFIG_CONTIG, extraCount = 0;
    uint16_t* extra = nullptr;
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric)) return nullptr;
    if (planar != PLANARCONFIG_CONTIG) return nullptr;
    const bool gray = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
    const bool bytes = bits == 8 || bits == 16;
    const bool straightAlpha = extraCount == 1 && extra && extra[0] == EXTRASAMPLE_UNASSALPHA;
    CA_DibFormat format;
    if (gray && samples == 1 && bits == 1) format = CA_DIB_1bpp;
    else if (gray && samples == 1 && bytes) format = CA_DIB_8bpp;
    else if (gray && samples == 2 && bytes && straightAlpha) format = CA_DIB_Argb;
    else if (photometric == PHOTOMETRIC_PALETTE && samples == 1 && bits == 8) format = CA_DIB_8bpp;
    else if (photometric == PHOTOMETRIC_RGB && bytes && samples == 3) format = CA_DIB_Rgb;
    else if (photometric == PHOTOMETRIC_RGB && bytes && samples == 4 && straightAlpha) format = CA_DIB_Argb;
    else return nullptr;
    const tmsize_t scanline = TIFFScanlineSize(tif);
    const uint64_t needed = (uint64_t{static_cast<uint32_t>(w)} * bits * samples + 7) / 8;
    if (scanline <= 0 || static_cast<uint64_t>(scanline) < needed) return nullptr;
    const bool tiled = TIFFIsTiled(tif) != 0;
    uint32_t tileW = 0, tileH = 0;
    if (tiled) {
      TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tileW);
      TIFFGetField(tif, TIFFTAG_TILELENGTH, &tileH);
      // A tile that does not start on a byte is left to the RGBA reader.
      if (tileW == 0 || tileH == 0 || (uint64_t{tileW} * bits * samples) % 8 != 0) return nullptr;
      if (uint64_t{tileW} * tileH > static_cast<uint64_t>(kMaxPixels)) return nullptr;
    }
    bypassed_ = true;
    DibPtr dib = NewDib(w, h, format);
    if (!dib) return nullptr;
    if (format == CA_DIB_1bpp && photometric == PHOTOMETRIC_MINISWHITE) {
      const unsigned wb[2] = {0xFFFFFFu, 0};
      dib->SetPalette(wb, 2);
    }
    if (photometric == PHOTOMETRIC_PALETTE) {
      uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
      if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b)) return nullptr;
      // Some writers store 8-bit entries in the 16-bit map; libtiff's own reader makes the same guess.
      bool eightBit = true;
      for (int i = 0; i < 256; ++i) eightBit = eightBit && r[i] < 256 && g[i] < 256 && b[i] < 256;
      const int shift = eightBit ? 0 : 8;
      unsigned entries[256];
      for (int i = 0; i < 256; ++i) entries[i] = ((r[i] >> shift) << 16) | ((g[i] >> shift) << 8) | (b[i] >> shift);
      dib->SetPalette(entries, 256);
    }

    // Tiled files are gathered into whole rows first.
    std::vector<uint8_t> whole;
    if (tiled) {
      const tmsize_t tileSize = TIFFTileSize(tif), tileRow = TIFFTileRowSize(tif);
      if (tileSize <= 0 || tileRow <= 0) return nullptr;
      whole.resize(static_cast<size_t>(scanline) * h);
      std::vector<uint8_t> tile(static_cast<size_t>(tileSize));
      for (uint32_t ty = 0; ty < static_cast<uint32_t>(h); ty += tileH) {
        for (uint32_t tx = 0; tx < static_cast<uint32_t>(w); tx += tileW) {
          if (TIFFReadTile(tif, tile.data(), tx, ty, 0, 0) < 0) return nullptr;
          const size_t at = static_cast<size_t>(uint64_t{tx} * bits * samples / 8);
          const size_t copy = std::min(static_cast<size_t>(tileRow), static_cast<size_t>(scanline) - at);
          const uint32_t rows = std::min(tileH, static_cast<uint32_t>(h) - ty);
          for (uint32_t r = 0; r < rows; ++r) {
            std::memcpy(&whole[(ty + r) * static_cast<size_t>(scanline) + at], &tile[r * static_cast<size_t>(tileRow)], copy);
          }
        }
      }
    }
    std::vector<uint8_t> row(tiled ? 0 : static_cast<size_t>(scanline));
    const bool deep = bits == 16;
    for (int y = 0; y < h; ++y) {
      const uint8_t* src = row.data();
      if (tiled) {
        src = &whole[static_cast<size_t>(y) * scanline];
      } else if (TIFFReadScanline(tif, row.data(), static_cast<uint32_t>(y), 0) < 0) {
        return nullptr;
      }
      // Sample i of the row at 8 bits: the high byte of a 16-bit sample (in the machine's byte
      // order), as the PNG reader and libtiff's RGBA reader narrow it.
      auto at = [src, deep](size_t i) -> uint8_t {
        if (!deep) return src[i];
        uint16_t v;
        std::memcpy(&v, src + 2 * i, 2);
        return static_cast<uint8_t>(v >> 8);
      };
      uint8_t* dst = dib->GetScanline(y);
      if (format == CA_DIB_1bpp) {
        std::memcpy(dst, src, (w + 7) / 8);
      } else if (format == CA_DIB_8bpp) {
        for (int x = 0; x < w; ++x) dst[x] = photometric == PHOTOMETRIC_MINISWHITE ? 255 - at(x) : at(x);
      } else if (gray) {   // gray and alpha
        for (int x = 0; x < w; ++x) {
          const uint8_t v = photometric == PHOTOMETRIC_MINISWHITE ? 255 - at(2 * x) : at(2 * x);
          dst[4 * x] = dst[4 * x + 1] = dst[4 * x + 2] = v;
          dst[4 * x + 3] = at(2 * x + 1);
        }
      } else {
        const int n = format == CA_DIB_Argb ? 4 : 3;
        for (int x = 0; x < w; ++x) {
          dst[n * x] = at(n * x + 2);
          dst[n * x + 1] = at(n * x + 1);
          dst[n * x + 2] = at(n * x);
          if (n == 4) dst[4 * x + 3] = at(4 * x + 3);
        }
      }
    }
    return dib;
  }

  static DibPtr ReadRgba(TIFF* tif, int w, int h) {
    char message[1024];
    if (!TIFFRGBAImageOK(tif, message)) return nullptr;
    uint16_t extraCount = 0;
    uint16_t* extra = nullptr;
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    const bool alpha = extraCount > 0;
    std::vector<uint32_t> raster(static_cast<size_t>(w) * h);
    if (!TIFFReadRGBAImageOriented(tif, static_cast<uint32_t>(w), static_cast<uint32_t>(h), raster.data(),
                                   ORIENTATION_TOPLEFT, 1)) {
      return nullptr;
    }
    DibPtr dib = NewDib(w, h, alpha ? CA_DIB_Argb : CA_DIB_Rgb);
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

  bool bypassed_ = false;
};

class TiffEncoder final : public EncoderBase {
 protected:
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) override {
    std::vector<uint8_t> bytes;
    MemoryFile file;
    file.owned = &bytes;
    {
      TiffPtr tif = OpenTiff(file, "w");
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
