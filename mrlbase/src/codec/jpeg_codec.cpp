// JPEG over libjpeg-turbo. Faults come back by longjmp from the error manager's error_exit; a
// premature end of data, which the library would only warn about, is a fault here too.

#include <mrlbase/stream.h>

#include <csetjmp>
#include <cstdio>   // jpeglib.h needs FILE
#include <jpeglib.h>
#include <jerror.h>

#include "codec/codec_support.h"

namespace mrl_codec {
namespace {

struct ErrorManager {
  jpeg_error_mgr pub;
  jmp_buf jump;
};

[[noreturn]] void ErrorExit(j_common_ptr cinfo) { longjmp(reinterpret_cast<ErrorManager*>(cinfo->err)->jump, 1); }
void EmitMessage(j_common_ptr cinfo, int level) {
  // A truncated file only raises a warning and is padded with gray; refuse it instead.
  if (level < 0 && cinfo->err->msg_code == JWRN_JPEG_EOF) ErrorExit(cinfo);
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
  DibPtr dib;
  std::vector<uint8_t> cmykRow;
  ~Decompressor() {
    if (created) jpeg_destroy_decompress(&cinfo);
  }
};

uint8_t Mul255(unsigned a, unsigned b) { return static_cast<uint8_t>((a * b + 127) / 255); }

// Sets the output space and makes the bitmap; false for a size or layout we do not take.
bool PrepareOutput(Decompressor& d) {
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
  if (c.image_width == 0 || c.image_height == 0 || c.image_width > 0xFFFF || c.image_height > 0xFFFF) return false;
  d.dib = NewDib(static_cast<int>(c.image_width), static_cast<int>(c.image_height), format);
  if (!d.dib) return false;
  if (c.out_color_space == JCS_CMYK) d.cmykRow.resize(static_cast<size_t>(c.image_width) * 4);
  return true;
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
    jpeg_mem_src(&d.cinfo, data, static_cast<unsigned long>(size));
    if (jpeg_read_header(&d.cinfo, TRUE) != JPEG_HEADER_OK) return nullptr;
    if (!PrepareOutput(d)) return nullptr;
    jpeg_start_decompress(&d.cinfo);
    const bool cmyk = d.cinfo.out_color_space == JCS_CMYK;
    if (d.cinfo.output_width != d.cinfo.image_width || d.cinfo.output_components != (cmyk ? 4 : d.dib->GetBPP() / 8)) {
      return nullptr;
    }
    const bool inverted = d.cinfo.saw_Adobe_marker != 0;
    while (d.cinfo.output_scanline < d.cinfo.output_height) {
      const int y = static_cast<int>(d.cinfo.output_scanline);
      JSAMPROW row = cmyk ? d.cmykRow.data() : d.dib->GetScanline(y);
      if (jpeg_read_scanlines(&d.cinfo, &row, 1) != 1) return nullptr;
      if (cmyk) CmykToBgr(d.cmykRow.data(), d.dib->GetScanline(y), d.dib->GetWidth(), inverted);
    }
    jpeg_finish_decompress(&d.cinfo);
    return std::move(d.dib);
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
