// GIF over giflib. Decoding walks the records itself: it passes over the frames before the one
// asked for without decompressing them, decodes that frame, de-interlaces its rows and stops
// there, so whatever follows a whole frame (more frames, or junk) does not spoil it.

#include <mrlbase/stream.h>
#include <gif_lib.h>

#include <cstring>
#include <mutex>
#include <unordered_map>

#include "codec/codec_support.h"

namespace mrl_codec {
namespace {

struct MemoryInput {
  const uint8_t* data;
  size_t size;
  size_t pos;
};

int ReadFromMemory(GifFileType* gif, GifByteType* out, int length) {
  auto* in = static_cast<MemoryInput*>(gif->UserData);
  if (length < 0) return 0;
  const size_t n = std::min(static_cast<size_t>(length), in->size - in->pos);
  std::memcpy(out, in->data + in->pos, n);
  in->pos += n;
  return static_cast<int>(n);
}

struct GifCloser {
  void operator()(GifFileType* gif) const {
    int error = 0;
    DGifCloseFile(gif, &error);
  }
};
using GifReader = std::unique_ptr<GifFileType, GifCloser>;

// Skips the sub-blocks that follow an extension or image descriptor.
bool SkipExtensionBlocks(GifFileType* gif, GifByteType* block) {
  while (block) {
    if (DGifGetExtensionNext(gif, &block) != GIF_OK) return false;
  }
  return true;
}

class GifDecoder final : public DecoderBase {
 protected:
  bool Accepts(const uint8_t* head, size_t size) const override { return IsGifSignature(head, size); }

  DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) override {
    MemoryInput input{data, size, 0};
    int error = 0;
    GifReader gif(DGifOpen(&input, ReadFromMemory, &error));
    if (!gif) return nullptr;
    int frameIndex = 0, transparent = -1;
    std::vector<GifPixelType> line;
    for (;;) {
      GifRecordType type;
      if (DGifGetRecordType(gif.get(), &type) != GIF_OK) return nullptr;
      if (type == TERMINATE_RECORD_TYPE) return nullptr;   // fewer frames than asked for
      if (type == EXTENSION_RECORD_TYPE) {
        int code = 0;
        GifByteType* block = nullptr;
        if (DGifGetExtension(gif.get(), &code, &block) != GIF_OK) return nullptr;
        if (code == GRAPHICS_EXT_FUNC_CODE && block && block[0] >= 4) transparent = (block[1] & 1) ? block[4] : -1;
        if (!SkipExtensionBlocks(gif.get(), block)) return nullptr;
        continue;
      }
      if (type != IMAGE_DESC_RECORD_TYPE) return nullptr;
      if (DGifGetImageDesc(gif.get()) != GIF_OK) return nullptr;
      if (frameIndex++ == frame) return DecodeFrame(gif.get(), transparent, line);
      // Not wanted: pass over the compressed blocks only.
      int codeSize = 0;
      GifByteType* block = nullptr;
      if (DGifGetCode(gif.get(), &codeSize, &block) != GIF_OK) return nullptr;
      while (block) {
        if (DGifGetCodeNext(gif.get(), &block) != GIF_OK) return nullptr;
      }
      transparent = -1;   // a control extension applies to the next image only
    }
  }

 private:
  static DibPtr DecodeFrame(GifFileType* gif, int transparent, std::vector<GifPixelType>& line) {
    const GifImageDesc& desc = gif->Image;
    if (desc.Width <= 0 || desc.Height <= 0 || desc.Left < 0 || desc.Top < 0) return nullptr;
    const int canvasW = std::max(gif->SWidth, desc.Left + desc.Width);
    const int canvasH = std::max(gif->SHeight, desc.Top + desc.Height);
    const ColorMapObject* map = desc.ColorMap ? desc.ColorMap : gif->SColorMap;
    unsigned palette[256];
    int count = 256;
    if (map && map->ColorCount > 0) {
      count = std::min(map->ColorCount, 256);
      for (int i = 0; i < count; ++i) {
        const GifColorType& c = map->Colors[i];
        palette[i] = (c.Red << 16) | (c.Green << 8) | c.Blue;
      }
    } else {
      for (int i = 0; i < 256; ++i) palette[i] = static_cast<unsigned>(i) * 0x010101u;
    }
    const bool alpha = transparent >= 0;
    DibPtr dib = NewDib(canvasW, canvasH, alpha ? CA_DIB_Argb : CA_DIB_8bpp);
    if (!dib) return nullptr;
    if (!alpha) {
      dib->SetPalette(palette, count);
      const int background = gif->SBackGroundColor < count ? gif->SBackGroundColor : 0;
      const bool covers = desc.Left == 0 && desc.Top == 0 && desc.Width == canvasW && desc.Height == canvasH;
      if (!covers) {
        for (int y = 0; y < canvasH; ++y) std::memset(dib->GetScanline(y), background, canvasW);
      }
    }
    line.resize(desc.Width);
    static constexpr int kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
    const int passes = desc.Interlace ? 4 : 1;
    for (int pass = 0; pass < passes; ++pass) {
      const int start = desc.Interlace ? kStart[pass] : 0, step = desc.Interlace ? kStep[pass] : 1;
      for (int y = start; y < desc.Height; y += step) {
        if (DGifGetLine(gif, line.data(), desc.Width) != GIF_OK) return nullptr;
        uint8_t* row = dib->GetScanline(desc.Top + y);
        if (!alpha) {
          std::memcpy(row + desc.Left, line.data(), desc.Width);
          continue;
        }
        for (int x = 0; x < desc.Width; ++x) {
          const int index = line[x];
          // The transparent entry keeps its palette colour, as a PNG tRNS entry does.
          const unsigned c = index < count ? palette[index] : 0;
          uint8_t* p = row + 4 * (desc.Left + x);
          p[0] = static_cast<uint8_t>(c);
          p[1] = static_cast<uint8_t>(c >> 8);
          p[2] = static_cast<uint8_t>(c >> 16);
          p[3] = index == transparent ? 0 : 255;
        }
      }
    }
    return dib;
  }
};

int WriteToStream(GifFileType* gif, const GifByteType* data, int length) {
  auto* stream = static_cast<IMRL_StreamWrite*>(gif->UserData);
  return length >= 0 && stream->WriteBlock(data, static_cast<size_t>(length)) ? length : 0;
}

struct GifWriterCloser {
  void operator()(GifFileType* gif) const {
    int error = 0;
    EGifCloseFile(gif, &error);
  }
};
struct MapFree {
  void operator()(ColorMapObject* map) const { GifFreeMapObject(map); }
};

// Indexed pixels and a palette for any bitmap; exact when it has at most 256 colours
// (255 and a transparent entry for Argb), quantised otherwise.
struct Indexed {
  std::vector<GifPixelType> pixels;
  std::vector<unsigned> palette;
  int transparent = -1;
};

bool MakeIndexed(const CCA_Dib& dib, Indexed& out) {
  const int w = dib.GetWidth(), h = dib.GetHeight();
  const size_t n = static_cast<size_t>(w) * h;
  out.pixels.resize(n);
  const CA_DibFormat format = dib.GetFormat();
  if (format == CA_DIB_1bpp || format == CA_DIB_8bpp || format == CA_DIB_8bppMask) {
    for (int y = 0; y < h; ++y) {
      const uint8_t* row = dib.GetScanline(y);
      GifPixelType* dst = &out.pixels[static_cast<size_t>(y) * w];
      for (int x = 0; x < w; ++x) dst[x] = format == CA_DIB_1bpp ? (row[x >> 3] >> (7 - (x & 7))) & 1 : row[x];
    }
    if (format == CA_DIB_8bppMask) {
      for (unsigned i = 0; i < 256; ++i) out.palette.push_back(i * 0x010101u);
    } else {
      for (int i = 0; i < dib.GetPaletteSize(); ++i) out.palette.push_back(dib.GetPaletteEntry(i) & 0xFFFFFFu);
    }
    return true;
  }
  const bool alpha = format == CA_DIB_Argb;
  const size_t limit = alpha ? 255 : 256;
  std::unordered_map<unsigned, uint8_t> index;
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
  bool exact = true, anyTransparent = false;
  for (int y = 0; y < h && exact; ++y) {
    ReadRowRgba(dib, y, rgba.data());
    for (int x = 0; x < w; ++x) {
      const uint8_t* p = &rgba[4 * x];
      if (alpha && p[3] < 128) {
        anyTransparent = true;
        continue;
      }
      const unsigned c = (p[0] << 16) | (p[1] << 8) | p[2];
      auto it = index.find(c);
      if (it == index.end()) {
        if (index.size() == limit) {
          exact = false;
          break;
        }
        it = index.emplace(c, static_cast<uint8_t>(out.palette.size())).first;
        out.palette.push_back(c);
      }
      out.pixels[static_cast<size_t>(y) * w + x] = it->second;
    }
  }
  if (!exact) {
    // Too many colours: let giflib's median cut choose a palette.
    std::vector<GifByteType> r(n), g(n), b(n);
    for (int y = 0; y < h; ++y) {
      ReadRowRgba(dib, y, rgba.data());
      for (int x = 0; x < w; ++x) {
        const size_t i = static_cast<size_t>(y) * w + x;
        r[i] = rgba[4 * x];
        g[i] = rgba[4 * x + 1];
        b[i] = rgba[4 * x + 2];
      }
    }
    int size = alpha ? 128 : 256;   // a power of two; one free entry left for transparency
    GifColorType colors[256];
    {
      // giflib's median cut keeps the axis its sort compares on in a file-level variable, so two
      // quantizations at once reorder each other's boxes: one at a time in the process.
      static std::mutex quantizeLock;
      std::lock_guard<std::mutex> hold(quantizeLock);
      if (GifQuantizeBuffer(w, h, &size, r.data(), g.data(), b.data(), out.pixels.data(), colors) != GIF_OK)
        return false;
    }
    out.palette.clear();
    for (int i = 0; i < size; ++i) out.palette.push_back((colors[i].Red << 16) | (colors[i].Green << 8) | colors[i].Blue);
  }
  if (alpha && anyTransparent) {
    out.transparent = static_cast<int>(out.palette.size());
    out.palette.push_back(0);
    for (int y = 0; y < h; ++y) {
      const uint8_t* row = dib.GetScanline(y);
      for (int x = 0; x < w; ++x) {
        if (row[4 * x + 3] < 128) out.pixels[static_cast<size_t>(y) * w + x] = static_cast<GifPixelType>(out.transparent);
      }
    }
  }
  if (out.palette.empty()) out.palette.push_back(0);
  return true;
}

class GifEncoder final : public EncoderBase {
 protected:
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) override {
    const int w = dib.GetWidth(), h = dib.GetHeight();
    if (w > 0xFFFF || h > 0xFFFF) return false;
    Indexed image;
    if (!MakeIndexed(dib, image) || image.palette.size() > 256) return false;
    int mapSize = 2;
    while (mapSize < static_cast<int>(image.palette.size())) mapSize *= 2;
    std::unique_ptr<ColorMapObject, MapFree> map(GifMakeMapObject(mapSize, nullptr));
    if (!map) return false;
    for (int i = 0; i < mapSize; ++i) {
      const unsigned c = i < static_cast<int>(image.palette.size()) ? image.palette[i] : 0;
      map->Colors[i] = GifColorType{static_cast<GifByteType>(c >> 16), static_cast<GifByteType>(c >> 8), static_cast<GifByteType>(c)};
    }
    int error = 0;
    std::unique_ptr<GifFileType, GifWriterCloser> gif(EGifOpen(&stream, WriteToStream, &error));
    if (!gif) return false;
    EGifSetGifVersion(gif.get(), image.transparent >= 0);
    if (EGifPutScreenDesc(gif.get(), w, h, 8, 0, map.get()) != GIF_OK) return false;
    if (image.transparent >= 0) {
      const GifByteType control[4] = {1, 0, 0, static_cast<GifByteType>(image.transparent)};
      if (EGifPutExtension(gif.get(), GRAPHICS_EXT_FUNC_CODE, 4, control) != GIF_OK) return false;
    }
    if (EGifPutImageDesc(gif.get(), 0, 0, w, h, false, nullptr) != GIF_OK) return false;
    for (int y = 0; y < h; ++y) {
      if (EGifPutLine(gif.get(), &image.pixels[static_cast<size_t>(y) * w], w) != GIF_OK) return false;
    }
    GifFileType* raw = gif.release();
    return EGifCloseFile(raw, &error) == GIF_OK;   // writes the trailer
  }
};

}  // namespace

ICA_ImageDecoder* NewGifDecoder() { return new GifDecoder; }
ICA_ImageEncoder* NewGifEncoder() { return new GifEncoder; }

}  // namespace mrl_codec
