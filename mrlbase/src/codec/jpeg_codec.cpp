// JPEG over libjpeg-turbo. Faults come back by longjmp from the error manager's error_exit; the
// warnings that mean pixels were lost (data ending early, corrupt entropy data) are faults here
// too. The Exif orientation is applied, so the bitmap comes out the way up it is shown.

#include <mrlbase/stream.h>

#include <csetjmp>
#include <cstdio>   // jpeglib.h needs FILE
#include <cstring>
#include <jpeglib.h>
#include <jerror.h>

#include "codec/codec_support.h"
#include "codec/image_orientation.h"

namespace mrl_codec {
namespace {

struct ErrorManager {
  jpeg_error_mgr pub;
  jmp_buf jump;
};

[[noreturn]] void ErrorExit(j_common_ptr cinfo) { longjmp(reinterpret_cast<ErrorManager*>(cinfo->err)->jump, 1); }
void EmitMessage(j_common_ptr cinfo, int level) {
  if (level >= 0) return;   // trace messages
  // The library pads a truncated file with gray and patches over corrupt entropy data; either
  // way rows are lost, so refuse. Bytes skipped before a restart marker are entropy data the
  // decoder could not place. Other warnings (stray bytes between segments, odd JFIF versions,
  // ...) leave every pixel intact.
  const jpeg_error_mgr& err = *cinfo->err;
  switch (err.msg_code) {
    case JWRN_JPEG_EOF:
    case JWRN_HIT_MARKER:
    case JWRN_MUST_RESYNC:
    case JWRN_HUFF_BAD_CODE:
    case JWRN_ARITH_BAD_CODE:
      ErrorExit(cinfo);
    case JWRN_EXTRANEOUS_DATA:
      if (err.msg_parm.i[1] >= JPEG_RST0 && err.msg_parm.i[1] <= JPEG_RST0 + 7) ErrorExit(cinfo);
      break;
    default:
      break;
  }
}
void OutputNothing(j_common_ptr) {}

void InstallErrorManager(ErrorManager& err) {
  jpeg_std_error(&err.pub);
  err.pub.error_exit = ErrorExit;
  err.pub.emit_message = EmitMessage;
  err.pub.output_message = OutputNothing;
}

struct Decompressor {
  jpeg_decompress_struct cinfo{};
  ErrorManager err{};
  bool created = false;
  CA_DibFormat format = CA_DIB_Rgb;
  DibPtr dib;
  std::vector<uint8_t> cmykRow;
  ~Decompressor() {
    if (created) jpeg_destroy_decompress(&cinfo);
  }
};

uint8_t Mul255(unsigned a, unsigned b) { return static_cast<uint8_t>((a * b + 127) / 255); }

// Sets the output space; false for a size the bitmap cannot take. The bitmap itself is made
// after jpeg_start_decompress, once the library has settled (within its memory limit) that it
// can hold what the file asks for.
bool ChooseOutput(Decompressor& d) {
  jpeg_decompress_struct& c = d.cinfo;
  CA_DibFormat format = CA_DIB_Rgb;
  switch (c.jpeg_color_space) {
    case JCS_GRAYSCALE:
      c.out_color_space = JCS_GRAYSCALE;
      format = CA_DIB_8bpp;
      break;
    case JCS_CMYK:
    case JCS_YCCK:
      c.out_color_space = JCS_CMYK;
      break;
    default:
      c.out_color_space = JCS_EXT_BGR;
  }
  d.format = format;
  return c.image_width > 0 && c.image_height > 0 && uint64_t{c.image_width} * c.image_height <= static_cast<uint64_t>(kMaxPixels);
}

void CmykToBgr(const uint8_t* cmyk, uint8_t* bgr, int width, bool inverted) {
  for (int x = 0; x < width; ++x, cmyk += 4, bgr += 3) {
    // Adobe writes CMYK inverted (0 = full ink); plain CMYK is not.
    const unsigned c = inverted ? cmyk[0] : 255 - cmyk[0], m = inverted ? cmyk[1] : 255 - cmyk[1];
    const unsigned y = inverted ? cmyk[2] : 255 - cmyk[2], k = inverted ? cmyk[3] : 255 - cmyk[3];
    bgr[0] = Mul255(y, k);
    bgr[1] = Mul255(m, k);
    bgr[2] = Mul255(c, k);
  }
}

class JpegDecoder final : public DecoderBase {
 protected:
  bool Accepts(const uint8_t* head, size_t size) const override { return IsJpegSignature(head, size); }

  DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) override {
    if (frame != 0) return nullptr;
    Decompressor d;
    d.cinfo.err = &d.err.pub;
    InstallErrorManager(d.err);
    if (setjmp(d.err.jump)) return nullptr;   // d releases the decompressor and the bitmap
    jpeg_create_decompress(&d.cinfo);
    d.created = true;
    // With no backing store, coefficient arrays beyond this make the library fail instead of
    // allocating (a progressive file holds the whole image's coefficients at once).
    d.cinfo.mem->max_memory_to_use = static_cast<long>(kDecodeMemoryBudget);
    jpeg_save_markers(&d.cinfo, JPEG_APP0 + 1, 0xFFFF);
    jpeg_mem_src(&d.cinfo, data, static_cast<unsigned long>(size));
    if (jpeg_read_header(&d.cinfo, TRUE) != JPEG_HEADER_OK) return nullptr;
    if (!ChooseOutput(d)) return nullptr;
    int orientation = 1;
    for (jpeg_saved_marker_ptr m = d.cinfo.marker_list; m; m = m->next) {
      if (m->marker == JPEG_APP0 + 1 && m->data_length >= 6 && std::memcmp(m->data, "Exif\0", 6) == 0) {
        orientation = ExifOrientation(m->data, m->data_length);
        break;
      }
    }
    jpeg_start_decompress(&d.cinfo);
    const bool cmyk = d.cinfo.out_color_space == JCS_CMYK;
    if (d.cinfo.output_width != d.cinfo.image_width || d.cinfo.output_components != (cmyk ? 4 : d.format == CA_DIB_8bpp ? 1 : 3)) {
      return nullptr;
    }
    // Every row below is written or the bitmap is dropped, so it need not start zeroed.
    d.dib = NewDibToOverwrite(static_cast<int>(d.cinfo.output_width), static_cast<int>(d.cinfo.output_height), d.format);
    if (!d.dib) return nullptr;
    if (cmyk) d.cmykRow.resize(static_cast<size_t>(d.cinfo.output_width) * 4);
    const bool inverted = d.cinfo.saw_Adobe_marker != 0;
    while (d.cinfo.output_scanline < d.cinfo.output_height) {
      const int y = static_cast<int>(d.cinfo.output_scanline);
      JSAMPROW row = cmyk ? d.cmykRow.data() : d.dib->GetScanline(y);
      if (jpeg_read_scanlines(&d.cinfo, &row, 1) != 1) return nullptr;
      if (cmyk) CmykToBgr(d.cmykRow.data(), d.dib->GetScanline(y), d.dib->GetWidth(), inverted);
    }
    jpeg_finish_decompress(&d.cinfo);
    return ApplyOrientation(std::move(d.dib), orientation);
  }
};

// Destination manager that hands each filled buffer to the stream.
struct StreamDestination {
  jpeg_destination_mgr pub;
  IMRL_StreamWrite* stream;
  JOCTET buffer[64 * 1024];
};

void InitDestination(j_compress_ptr c) {
  auto* d = reinterpret_cast<StreamDestination*>(c->dest);
  d->pub.next_output_byte = d->buffer;
  d->pub.free_in_buffer = sizeof d->buffer;
}
boolean EmptyOutputBuffer(j_compress_ptr c) {
  auto* d = reinterpret_cast<StreamDestination*>(c->dest);
  if (!d->stream->WriteBlock(d->buffer, sizeof d->buffer)) ErrorExit(reinterpret_cast<j_common_ptr>(c));
  InitDestination(c);
  return TRUE;
}
void TermDestination(j_compress_ptr c) {
  auto* d = reinterpret_cast<StreamDestination*>(c->dest);
  const size_t used = sizeof d->buffer - d->pub.free_in_buffer;
  if (used && !d->stream->WriteBlock(d->buffer, used)) ErrorExit(reinterpret_cast<j_common_ptr>(c));
}

struct Compressor {
  jpeg_compress_struct cinfo{};
  ErrorManager err{};
  bool created = false;
  std::unique_ptr<StreamDestination> dest;
  std::vector<uint8_t> row;   // conversion row; empty when the bitmap's rows go in as they are
  ~Compressor() {
    if (created) jpeg_destroy_compress(&cinfo);
  }
};

class JpegEncoder final : public EncoderBase {
 protected:
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) override {
    if (dib.GetWidth() > 0xFFFF || dib.GetHeight() > 0xFFFF) return false;
    Compressor k;
    k.dest.reset(new StreamDestination);
    k.dest->stream = &stream;
    k.dest->pub.init_destination = InitDestination;
    k.dest->pub.empty_output_buffer = EmptyOutputBuffer;
    k.dest->pub.term_destination = TermDestination;
    const CA_DibFormat format = dib.GetFormat();
    const bool gray = format == CA_DIB_8bppMask || (format == CA_DIB_8bpp && HasGrayRampPalette(dib) && dib.GetPaletteSize() == 256);
    if (!(gray || format == CA_DIB_Rgb || format == CA_DIB_Rgb32 || format == CA_DIB_Argb)) {
      k.row.resize(static_cast<size_t>(dib.GetWidth()) * 4);
    }

    k.cinfo.err = &k.err.pub;
    InstallErrorManager(k.err);
    if (setjmp(k.err.jump)) return false;
    jpeg_create_compress(&k.cinfo);
    k.created = true;
    k.cinfo.dest = &k.dest->pub;
    k.cinfo.image_width = static_cast<JDIMENSION>(dib.GetWidth());
    k.cinfo.image_height = static_cast<JDIMENSION>(dib.GetHeight());
    if (gray) {
      k.cinfo.in_color_space = JCS_GRAYSCALE;
      k.cinfo.input_components = 1;
    } else if (format == CA_DIB_Rgb) {
      k.cinfo.in_color_space = JCS_EXT_BGR;
      k.cinfo.input_components = 3;
    } else if (k.row.empty()) {
      k.cinfo.in_color_space = JCS_EXT_BGRX;   // alpha is not kept by JPEG
      k.cinfo.input_components = 4;
    } else {
      k.cinfo.in_color_space = JCS_EXT_RGBX;
      k.cinfo.input_components = 4;
    }
    jpeg_set_defaults(&k.cinfo);
    jpeg_set_quality(&k.cinfo, QualityOr(1, 100, 75), TRUE);
    if (XDpi() > 0 && YDpi() > 0) {
      k.cinfo.write_JFIF_header = TRUE;
      k.cinfo.density_unit = 1;
      k.cinfo.X_density = static_cast<UINT16>(XDpi() > 0xFFFF ? 0xFFFF : XDpi());
      k.cinfo.Y_density = static_cast<UINT16>(YDpi() > 0xFFFF ? 0xFFFF : YDpi());
    }
    jpeg_start_compress(&k.cinfo, TRUE);
    while (k.cinfo.next_scanline < k.cinfo.image_height) {
      const int y = static_cast<int>(k.cinfo.next_scanline);
      JSAMPROW row = dib.GetScanline(y);
      if (!k.row.empty()) {
        ReadRowRgba(dib, y, k.row.data());
        row = k.row.data();
      }
      jpeg_write_scanlines(&k.cinfo, &row, 1);
    }
    jpeg_finish_compress(&k.cinfo);
    return true;
  }
};

}  // namespace

ICA_ImageDecoder* NewJpegDecoder() { return new JpegDecoder; }
ICA_ImageEncoder* NewJpegEncoder() { return new JpegEncoder; }

}  // namespace mrl_codec
