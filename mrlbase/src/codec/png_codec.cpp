// PNG over libpng. libpng reports faults by longjmp back to the setjmp of the call that started
// the work; everything that must be released afterwards lives in a state record made before it.

#include <mrlbase/stream.h>
#include <png.h>

#include <csetjmp>
#include <cstring>

#include "codec/codec_support.h"

namespace mrl_codec {
namespace {

struct MemoryInput {
  const uint8_t* data;
  size_t size;
  size_t pos;
};

void ReadFromMemory(png_structp png, png_bytep out, png_size_t length) {
  auto* in = static_cast<MemoryInput*>(png_get_io_ptr(png));
  if (length > in->size - in->pos) png_error(png, "truncated");
  std::memcpy(out, in->data + in->pos, length);
  in->pos += length;
}

void IgnoreWarning(png_structp, png_const_charp) {}
void StopOnError(png_structp png, png_const_charp) { png_longjmp(png, 1); }

// Keeps what libpng holds for one file within kDecodeMemoryBudget: a few rows of the widest
// image it agrees to read, and at most kCachedChunks ancillary chunks (text, sPLT, unknown) of
// at most a share of the budget each, inflated size included, so a compressed text or profile
// that expands without end is dropped as soon as it passes its share (libpng warns and skips it).
void LimitMemory(png_structp png) {
  constexpr png_uint_32 kCachedChunks = 16;
  constexpr png_uint_32 kMaxWidth = static_cast<png_uint_32>(kDecodeMemoryBudget / 32);   // 8 bytes a pixel, 4 rows
  png_set_user_limits(png, kMaxWidth, PNG_UINT_31_MAX);
  png_set_chunk_cache_max(png, kCachedChunks);
  png_set_chunk_malloc_max(png, kDecodeMemoryBudget / kCachedChunks);
}

// Everything a decode owns, so the error path can release it after the longjmp.
struct ReadState {
  png_structp png = nullptr;
  png_infop info = nullptr;
  DibPtr dib;
  std::vector<png_bytep> rows;
  volatile bool rowsRead = false;   // every row is in dib: what follows the pixels cannot spoil them
  ~ReadState() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

// Chooses the transforms and the layout of the result; fills state.dib and state.rows.
bool Prepare(ReadState& s) {
  png_structp png = s.png;
  png_infop info = s.info;
  const png_uint_32 width = png_get_image_width(png, info), height = png_get_image_height(png, info);
  const int depth = png_get_bit_depth(png, info), type = png_get_color_type(png, info);
  const bool trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  if (width > 0x7FFFFFFFu || height > 0x7FFFFFFFu) return false;

  CA_DibFormat format;
  if (depth == 16) png_set_strip_16(png);
  if (type == PNG_COLOR_TYPE_GRAY && !trns) {
    format = depth == 1 ? CA_DIB_1bpp : CA_DIB_8bpp;
    if (depth == 2 || depth == 4) png_set_expand_gray_1_2_4_to_8(png);
  } else if (type == PNG_COLOR_TYPE_PALETTE && !trns) {
    png_colorp plte = nullptr;
    int count = 0;
    png_get_PLTE(png, info, &plte, &count);
    format = depth == 1 && count <= 2 ? CA_DIB_1bpp : CA_DIB_8bpp;
    if (depth < 8 && format == CA_DIB_8bpp) png_set_packing(png);
  } else if (type == PNG_COLOR_TYPE_RGB && !trns) {
    format = CA_DIB_Rgb;
    png_set_bgr(png);
  } else {
    // Alpha from any source: a channel, or a tRNS entry made into one.
    format = CA_DIB_Argb;
    png_set_expand(png);
    if (trns) png_set_tRNS_to_alpha(png);
    if (type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
    if (!(type & PNG_COLOR_MASK_ALPHA) && !trns) png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
    png_set_bgr(png);
  }
  const bool interlaced = png_set_interlace_handling(png) > 1;
  png_read_update_info(png, info);

  // png_read_image writes every row in full before the bitmap is handed on, so it need not start
  // zeroed. Interlaced passes of packed pixels merge into the row under a bit mask, reading bytes
  // not written yet; those start zeroed so that nothing is read uninitialised.
  s.dib = interlaced ? NewDib(static_cast<int>(width), static_cast<int>(height), format)
                     : NewDibToOverwrite(static_cast<int>(width), static_cast<int>(height), format);
  if (!s.dib) return false;
  if (png_get_rowbytes(png, info) > static_cast<size_t>(s.dib->GetPitch())) return false;
  if (type == PNG_COLOR_TYPE_PALETTE && !trns) {
    png_colorp plte = nullptr;
    int count = 0;
    if (!png_get_PLTE(png, info, &plte, &count) || count < 1) return false;
    unsigned entries[256];
    for (int i = 0; i < count && i < 256; ++i) entries[i] = (plte[i].red << 16) | (plte[i].green << 8) | plte[i].blue;
    s.dib->SetPalette(entries, count < 256 ? count : 256);
  }
  s.rows.resize(height);
  for (png_uint_32 y = 0; y < height; ++y) s.rows[y] = s.dib->GetScanline(static_cast<int>(y));
  return true;
}

class PngDecoder final : public DecoderBase {
 protected:
  bool Accepts(const uint8_t* head, size_t size) const override { return IsPngSignature(head, size); }

  DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) override {
    if (frame != 0) return nullptr;
    MemoryInput input{data, size, 0};
    ReadState s;
    s.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, StopOnError, IgnoreWarning);
    if (!s.png) return nullptr;
    s.info = png_create_info_struct(s.png);
    if (!s.info) return nullptr;
    // s releases libpng's state and the bitmap. A fault before the last row refuses the file; one
    // in the chunks after the pixels (a file cut before IEND) does not.
    if (setjmp(png_jmpbuf(s.png))) return s.rowsRead ? std::move(s.dib) : nullptr;
    png_set_read_fn(s.png, &input, ReadFromMemory);
    LimitMemory(s.png);
    png_read_info(s.png, s.info);
    if (!Prepare(s)) return nullptr;
    png_read_image(s.png, s.rows.data());
    s.rowsRead = true;
    png_read_end(s.png, nullptr);
    return std::move(s.dib);
  }
};

void WriteToStream(png_structp png, png_bytep data, png_size_t length) {
  if (!static_cast<IMRL_StreamWrite*>(png_get_io_ptr(png))->WriteBlock(data, length)) png_error(png, "write");
}
void NoFlush(png_structp) {}

// Everything the write needs after setjmp lives here, in memory, so a longjmp cannot leave a
// register copy of it stale.
struct WriteState {
  png_structp png = nullptr;
  png_infop info = nullptr;
  std::vector<png_bytep> rows;
  png_color plte[256];
  int plteCount = 0;
  int type = PNG_COLOR_TYPE_GRAY;
  int depth = 8;
  ~WriteState() { png_destroy_write_struct(&png, info ? &info : nullptr); }
};

class PngEncoder final : public EncoderBase {
 protected:
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) override {
    WriteState s;
    s.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, StopOnError, IgnoreWarning);
    if (!s.png) return false;
    s.info = png_create_info_struct(s.png);
    if (!s.info) return false;
    s.rows.resize(dib.GetHeight());
    for (int y = 0; y < dib.GetHeight(); ++y) s.rows[y] = dib.GetScanline(y);
    const CA_DibFormat format = dib.GetFormat();
    if (format == CA_DIB_1bpp || format == CA_DIB_8bpp) {
      s.depth = format == CA_DIB_1bpp ? 1 : 8;
      if (!HasGrayRampPalette(dib) || dib.GetPaletteSize() != (1 << s.depth)) {
        s.type = PNG_COLOR_TYPE_PALETTE;
        s.plteCount = dib.GetPaletteSize();
        for (int i = 0; i < s.plteCount; ++i) {
          const unsigned e = dib.GetPaletteEntry(i);
          s.plte[i] = png_color{static_cast<png_byte>(e >> 16), static_cast<png_byte>(e >> 8), static_cast<png_byte>(e)};
        }
      }
    } else if (format == CA_DIB_Rgb || format == CA_DIB_Rgb32) {
      s.type = PNG_COLOR_TYPE_RGB;
    } else if (format == CA_DIB_Argb) {
      s.type = PNG_COLOR_TYPE_RGB_ALPHA;
    }
    if (setjmp(png_jmpbuf(s.png))) return false;
    png_set_write_fn(s.png, &stream, WriteToStream, NoFlush);
    png_set_compression_level(s.png, QualityOr(0, 9, 6));
    png_set_IHDR(s.png, s.info, dib.GetWidth(), dib.GetHeight(), s.depth, s.type, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (s.plteCount > 0) png_set_PLTE(s.png, s.info, s.plte, s.plteCount);
    if (XDpi() > 0 && YDpi() > 0) {
      png_set_pHYs(s.png, s.info, PixelsPerMetre(XDpi()), PixelsPerMetre(YDpi()), PNG_RESOLUTION_METER);
    }
    png_write_info(s.png, s.info);
    if (s.type & PNG_COLOR_MASK_COLOR) png_set_bgr(s.png);
    if (format == CA_DIB_Rgb32) png_set_filler(s.png, 0, PNG_FILLER_AFTER);
    png_write_image(s.png, s.rows.data());
    png_write_end(s.png, nullptr);
    return true;
  }
};

}  // namespace

ICA_ImageDecoder* NewPngDecoder() { return new PngDecoder; }
ICA_ImageEncoder* NewPngEncoder() { return new PngEncoder; }

}  // namespace mrl_codec
