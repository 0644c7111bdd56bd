// JPEG 2000 over OpenJPEG: JP2 box files and bare J2K code streams in, JP2 out. The library's
// streams run on our callbacks over memory. Its messages are dropped, but any error it reports
// makes the decode give null, as do headers that contradict each other, and a file whose decoding
// would pass the memory budget is refused from its headers before the library sees it (the
// library takes no allocator to hold it to one).

#include <mrlbase/stream.h>
#include <openjpeg.h>

#include <algorithm>
#include <cstring>

#include "codec/codec_support.h"
#include "codec/decode_budget.h"

namespace mrl_codec {
namespace {

OPJ_SIZE_T ReadProc(void* buffer, OPJ_SIZE_T length, void* user) {
  auto* f = static_cast<MemoryFile*>(user);
  if (f->pos >= f->size) return static_cast<OPJ_SIZE_T>(-1);
  const size_t n = std::min(static_cast<size_t>(length), f->size - f->pos);
  std::memcpy(buffer, f->data + f->pos, n);
  f->pos += n;
  return n;
}
OPJ_SIZE_T WriteProc(void* buffer, OPJ_SIZE_T length, void* user) {
  auto* f = static_cast<MemoryFile*>(user);
  const size_t end = f->pos + length;
  if (end > f->owned->size()) f->owned->resize(end);
  std::memcpy(f->owned->data() + f->pos, buffer, length);
  f->pos = end;
  f->size = f->owned->size();
  return length;
}
OPJ_OFF_T SkipProc(OPJ_OFF_T count, void* user) {
  auto* f = static_cast<MemoryFile*>(user);
  const int64_t target = static_cast<int64_t>(f->pos) + count;
  if (target < 0 || (!f->owned && static_cast<uint64_t>(target) > f->size)) return -1;
  f->pos = static_cast<size_t>(target);
  return count;
}
OPJ_BOOL SeekProc(OPJ_OFF_T offset, void* user) {
  auto* f = static_cast<MemoryFile*>(user);
  if (offset < 0 || (!f->owned && static_cast<uint64_t>(offset) > f->size)) return OPJ_FALSE;
  f->pos = static_cast<size_t>(offset);
  return OPJ_TRUE;
}
void DropMessage(const char*, void*) {}

struct CodecFree {
  void operator()(opj_codec_t* c) const { opj_destroy_codec(c); }
};
struct StreamFree {
  void operator()(opj_stream_t* s) const { opj_stream_destroy(s); }
};
struct ImageFree {
  void operator()(opj_image_t* i) const { opj_image_destroy(i); }
};
using CodecPtr = std::unique_ptr<opj_codec_t, CodecFree>;
using StreamPtr = std::unique_ptr<opj_stream_t, StreamFree>;
using ImagePtr = std::unique_ptr<opj_image_t, ImageFree>;

StreamPtr MakeStream(MemoryFile& file, bool input) {
  StreamPtr s(opj_stream_create(64 * 1024, input ? OPJ_TRUE : OPJ_FALSE));
  if (!s) return nullptr;
  opj_stream_set_user_data(s.get(), &file, nullptr);
  if (input) {
    opj_stream_set_user_data_length(s.get(), file.size);
    opj_stream_set_read_function(s.get(), ReadProc);
  } else {
    opj_stream_set_write_function(s.get(), WriteProc);
  }
  opj_stream_set_skip_function(s.get(), SkipProc);
  opj_stream_set_seek_function(s.get(), SeekProc);
  return s;
}

void NoteError(const char*, void* user) { *static_cast<bool*>(user) = true; }

// Drops the library's messages; errors also set `*failed` when it is given.
void Silence(opj_codec_t* codec, bool* failed = nullptr) {
  opj_set_info_handler(codec, DropMessage, nullptr);
  opj_set_warning_handler(codec, DropMessage, nullptr);
  if (failed) {
    opj_set_error_handler(codec, NoteError, failed);
  } else {
    opj_set_error_handler(codec, DropMessage, nullptr);
  }
}

uint32_t Be32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

// Walks the boxes in [data, data + size) and calls `visit(type, body, bodySize)` for each whole
// one. Stops at the first box that does not fit.
template <typename Visit>
void ForEachBox(const uint8_t* data, size_t size, Visit visit) {
  size_t pos = 0;
  while (size - pos >= 8) {
    uint64_t length = Be32(data + pos);
    const uint32_t type = Be32(data + pos + 4);
    size_t header = 8;
    if (length == 1) {
      if (size - pos < 16) return;
      length = (uint64_t{Be32(data + pos + 8)} << 32) | Be32(data + pos + 12);
      header = 16;
    } else if (length == 0) {
      length = size - pos;   // the last box runs to the end
    }
    if (length < header || length > size - pos) return;
    visit(type, data + pos + header, static_cast<size_t>(length - header));
    pos += static_cast<size_t>(length);
  }
}

constexpr uint32_t BoxType(const char (&name)[5]) {
  return (uint32_t{static_cast<uint8_t>(name[0])} << 24) | (uint32_t{static_cast<uint8_t>(name[1])} << 16) |
         (uint32_t{static_cast<uint8_t>(name[2])} << 8) | static_cast<uint8_t>(name[3]);
}

// The parts of a file the decoder looks at before the library does: the code stream, and for a
// JP2 file its image header box and the palette's channel count.
struct FileParts {
  const uint8_t* stream = nullptr;
  size_t streamSize = 0;
  const uint8_t* imageHeader = nullptr;   // ihdr body, at least 14 bytes
  uint32_t paletteChannels = 0;
};

FileParts FindParts(const uint8_t* data, size_t size, bool bare) {
  FileParts parts;
  if (bare) {
    parts.stream = data;
    parts.streamSize = size;
    return parts;
  }
  ForEachBox(data, size, [&](uint32_t type, const uint8_t* body, size_t bodySize) {
    if (type == BoxType("jp2c") && !parts.stream) {
      parts.stream = body;
      parts.streamSize = bodySize;
    } else if (type == BoxType("jp2h")) {
      ForEachBox(body, bodySize, [&](uint32_t inner, const uint8_t* b, size_t n) {
        if (inner == BoxType("pclr") && n >= 3) parts.paletteChannels = b[2];
        if (inner == BoxType("ihdr") && n >= 14) parts.imageHeader = b;
      });
    }
  });
  return parts;
}

// Whether decoding stays within the budget, judged from the headers before the library reads
// them. False too when the code stream's headers are broken.
bool FitsBudget(const FileParts& parts) {
  J2kLayout layout;
  layout.paletteChannels = parts.paletteChannels;
  return parts.stream && ReadJ2kLayout(parts.stream, parts.streamSize, layout) &&
         EstimateJ2kDecodeBytes(layout) <= kDecodeMemoryBudget;
}

// Header damage the library lets through: a JP2 image header that disagrees with the code stream
// on size, component count or a bit depth it states for all components, and a component sampled
// more coarsely than the image is large (a single sample for the whole image, which no encoder
// writes for a picture of more than one pixel).
bool HeadersAgree(const opj_image_t& image, const FileParts& parts) {
  const uint32_t w = image.x1 - image.x0, h = image.y1 - image.y0;
  for (OPJ_UINT32 i = 0; i < image.numcomps; ++i) {
    const opj_image_comp_t& c = image.comps[i];
    if ((c.dx > w && w > 1) || (c.dy > h && h > 1)) return false;
  }
  if (!parts.imageHeader) return true;
  const uint8_t* ih = parts.imageHeader;
  if (Be32(ih) != h || Be32(ih + 4) != w || ((uint32_t{ih[8]} << 8) | ih[9]) != image.numcomps) return false;
  const uint8_t depth = ih[10];
  if (depth == 0xFF) return true;   // each component states its own
  for (OPJ_UINT32 i = 0; i < image.numcomps; ++i) {
    if (image.comps[i].prec != (depth & 0x7Fu) + 1 || image.comps[i].sgnd != (depth >> 7)) return false;
  }
  return true;
}

// One component scaled to 8 bits, sampled at image pixel (x, y).
struct Plane {
  const opj_image_comp_t* comp;
  int shift = 0;      // for precision above 8
  int maxValue = 0;   // for precision below 8
  int offset = 0;     // signed samples are moved up by half the range

  explicit Plane(const opj_image_comp_t* c) : comp(c) {
    const int prec = static_cast<int>(c->prec);
    if (prec > 8) shift = prec - 8;
    if (prec < 8) maxValue = (1 << prec) - 1;
    if (c->sgnd) offset = 1 << (prec - 1);
  }
  uint8_t At(int x, int y) const {
    const uint32_t cx = std::min<uint32_t>(comp->w - 1, static_cast<uint32_t>(x) / comp->dx);
    const uint32_t cy = std::min<uint32_t>(comp->h - 1, static_cast<uint32_t>(y) / comp->dy);
    int v = comp->data[static_cast<size_t>(cy) * comp->w + cx] + offset;
    if (shift) v >>= shift;
    if (maxValue) v = (v * 255 + maxValue / 2) / maxValue;
    return static_cast<uint8_t>(std::clamp(v, 0, 255));
  }
};

uint8_t Clamp(double v) { return static_cast<uint8_t>(std::clamp(v + 0.5, 0.0, 255.0)); }

class Jp2Decoder final : public DecoderBase {
 protected:
  bool Accepts(const uint8_t* head, size_t size) const override { return IsJp2Signature(head, size); }

  DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) override {
    if (frame != 0) return nullptr;
    const bool bare = size >= 2 && data[0] == 0xFF && data[1] == 0x4F;
    CodecPtr codec(opj_create_decompress(bare ? OPJ_CODEC_J2K : OPJ_CODEC_JP2));
    if (!codec) return nullptr;
    bool failed = false;
    Silence(codec.get(), &failed);
    opj_dparameters_t params;
    opj_set_default_decoder_parameters(&params);
    if (!opj_setup_decoder(codec.get(), &params)) return nullptr;
    opj_decoder_set_strict_mode(codec.get(), OPJ_TRUE);   // a cut code stream is an error
    // Worker threads would each take their own wavelet and code-block buffers, which the
    // budget below does not count; OPJ_NUM_THREADS in the environment may ask the library for
    // them. A false result only means a library built without threads.
    opj_codec_set_threads(codec.get(), 0);
    const FileParts parts = FindParts(data, size, bare);
    if (!FitsBudget(parts)) return nullptr;
    MemoryFile file;
    file.data = data;
    file.size = size;
    StreamPtr stream = MakeStream(file, true);
    if (!stream) return nullptr;
    opj_image_t* raw = nullptr;
    if (!opj_read_header(stream.get(), codec.get(), &raw)) {
      opj_image_destroy(raw);
      return nullptr;
    }
    ImagePtr image(raw);
    const int64_t w = static_cast<int64_t>(image->x1) - image->x0, h = static_cast<int64_t>(image->y1) - image->y0;
    if (w <= 0 || h <= 0 || w * h > kMaxPixels || image->numcomps == 0) return nullptr;
    if (failed || !HeadersAgree(*image, parts)) return nullptr;
    if (!opj_decode(codec.get(), stream.get(), image.get()) || !opj_end_decompress(codec.get(), stream.get()) || failed) {
      return nullptr;
    }
    return ToDib(*image, static_cast<int>(w), static_cast<int>(h));
  }

 private:
  static DibPtr ToDib(const opj_image_t& image, int w, int h) {
    const int n = static_cast<int>(image.numcomps);
    for (int i = 0; i < n; ++i) {
      const opj_image_comp_t& c = image.comps[i];
      if (!c.data || c.w == 0 || c.h == 0 || c.dx == 0 || c.dy == 0 || c.prec == 0 || c.prec > 31) return nullptr;
    }
    std::vector<Plane> planes;
    for (int i = 0; i < n; ++i) planes.emplace_back(&image.comps[i]);
    const bool gray = n < 3;
    const bool cmyk = n >= 4 && image.color_space == OPJ_CLRSPC_CMYK;
    const bool alpha = !cmyk && (n == 2 || n >= 4);
    const bool ycc = !gray && image.color_space == OPJ_CLRSPC_SYCC;
    DibPtr dib = NewDib(w, h, alpha ? CA_DIB_Argb : gray ? CA_DIB_8bpp : CA_DIB_Rgb);
    if (!dib) return nullptr;
    const int bytes = dib->GetBPP() / 8;
    for (int y = 0; y < h; ++y) {
      uint8_t* row = dib->GetScanline(y);
      for (int x = 0; x < w; ++x) {
        uint8_t* o = row + bytes * x;
        if (gray) {
          const uint8_t v = planes[0].At(x, y);
          if (!alpha) {
            o[0] = v;
            continue;
          }
          o[0] = o[1] = o[2] = v;
          o[3] = planes[1].At(x, y);
          continue;
        }
        double r = planes[0].At(x, y), g = planes[1].At(x, y), b = planes[2].At(x, y);
        if (ycc) {
          const double yy = r, cb = g - 128, cr = b - 128;
          r = yy + 1.402 * cr;
          g = yy - 0.344136 * cb - 0.714136 * cr;
          b = yy + 1.772 * cb;
        } else if (cmyk) {
          const double k = 255 - planes[3].At(x, y);
          r = (255 - r) * k / 255;
          g = (255 - g) * k / 255;
          b = (255 - b) * k / 255;
        }
        o[0] = Clamp(b);
        o[1] = Clamp(g);
        o[2] = Clamp(r);
        if (alpha) o[3] = planes[3].At(x, y);
      }
    }
    return dib;
  }
};

class Jp2Encoder final : public EncoderBase {
 protected:
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& out) override {
    const int w = dib.GetWidth(), h = dib.GetHeight();
    const CA_DibFormat format = dib.GetFormat();
    const bool gray = format == CA_DIB_8bppMask ||
                      ((format == CA_DIB_8bpp || format == CA_DIB_1bpp) && HasGrayRampPalette(dib));
    const int n = gray ? 1 : format == CA_DIB_Argb ? 4 : 3;
    opj_image_cmptparm_t parms[4];
    std::memset(parms, 0, sizeof parms);
    for (int i = 0; i < n; ++i) {
      parms[i].dx = parms[i].dy = 1;
      parms[i].w = static_cast<OPJ_UINT32>(w);
      parms[i].h = static_cast<OPJ_UINT32>(h);
      parms[i].prec = 8;
      parms[i].sgnd = 0;
    }
    ImagePtr image(opj_image_create(static_cast<OPJ_UINT32>(n), parms, gray ? OPJ_CLRSPC_GRAY : OPJ_CLRSPC_SRGB));
    if (!image) return false;
    image->x0 = image->y0 = 0;
    image->x1 = static_cast<OPJ_UINT32>(w);
    image->y1 = static_cast<OPJ_UINT32>(h);
    if (n == 4) image->comps[3].alpha = 1;
    std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
    for (int y = 0; y < h; ++y) {
      ReadRowRgba(dib, y, rgba.data());
      const size_t base = static_cast<size_t>(y) * w;
      for (int x = 0; x < w; ++x) {
        for (int c = 0; c < n; ++c) image->comps[c].data[base + x] = rgba[4 * x + c];
      }
    }

    opj_cparameters_t params;
    opj_set_default_encoder_parameters(&params);
    params.tcp_numlayers = 1;
    params.cp_disto_alloc = 1;
    const int quality = QualityOr(1, 100, 100);
    if (quality >= 100) {
      params.tcp_rates[0] = 0;   // reversible wavelet, no rate limit: lossless
    } else {
      params.irreversible = 1;
      params.tcp_rates[0] = static_cast<float>(1.0 + (100 - quality) * 0.5);
    }
    // Each resolution level halves the image; a small image takes fewer levels.
    int levels = 1;
    while (levels < 6 && (1 << levels) <= std::min(w, h)) ++levels;
    params.numresolution = levels;
    params.tcp_mct = n >= 3 ? 1 : 0;

    CodecPtr codec(opj_create_compress(OPJ_CODEC_JP2));
    if (!codec) return false;
    Silence(codec.get());
    if (!opj_setup_encoder(codec.get(), &params, image.get())) return false;
    std::vector<uint8_t> bytes;
    MemoryFile file;
    file.owned = &bytes;
    {
      StreamPtr stream = MakeStream(file, false);
      if (!stream || !opj_start_compress(codec.get(), image.get(), stream.get()) ||
          !opj_encode(codec.get(), stream.get()) || !opj_end_compress(codec.get(), stream.get())) {
        return false;
      }
    }   // destroying the stream flushes its buffer into `bytes`
    return out.WriteBlock(bytes.data(), bytes.size());
  }
};

}  // namespace

ICA_ImageDecoder* NewJp2Decoder() { return new Jp2Decoder; }
ICA_ImageEncoder* NewJp2Encoder() { return new Jp2Encoder; }

}  // namespace mrl_codec
