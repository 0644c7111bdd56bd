#ifndef ZELTOOL_IMAGE_IO_H_
#define ZELTOOL_IMAGE_IO_H_

// Reading, writing and converting page images for the image commands of zeltool.
#include <cstdio>
#include <memory>
#include <string>

#include <mrlbase/dib.h>
#include <mrlbase/stream.h>
#include <zelutility/image_codec.h>
#include <zelutility/image_format.h>
#include <zelutility/path.h>

#include "zeltool_input.h"

namespace zeltool {

// Decodes the file, or standard input for "-"; null (with a message on standard error) when it
// cannot be read. Standard input is read whole first: the decoders seek.
inline std::unique_ptr<CCA_Dib> LoadImage(const std::string& path, const char* command) {
  if (path == "-") {
    std::string bytes;
    if (!ReadAll(path, bytes)) {
      std::fprintf(stderr, "zeltool %s: cannot read standard input\n", command);
      return nullptr;
    }
    CMRL_MemoryStream in(bytes.data(), bytes.size());
    std::unique_ptr<CCA_Dib> dib(ImageDecode(&in));
    if (!dib) std::fprintf(stderr, "zeltool %s: standard input is not an image this build can read\n", command);
    return dib;
  }
  auto stream = CMRL_FileStream::Open(path.c_str(), false);
  if (!stream) {
    std::fprintf(stderr, "zeltool %s: cannot open %s\n", command, path.c_str());
    return nullptr;
  }
  std::unique_ptr<CCA_Dib> dib(ImageDecode(stream.get()));
  if (!dib) std::fprintf(stderr, "zeltool %s: %s is not an image this build can read\n", command, path.c_str());
  return dib;
}

// A 32 bpp copy (Argb when the image has alpha, else Rgb32) of any bitmap, or the bitmap
// itself when it already is one.
inline std::unique_ptr<CCA_Dib> ToTrueColour32(std::unique_ptr<CCA_Dib> dib) {
  if (!dib || dib->GetFormat() == CA_DIB_Rgb32 || dib->GetFormat() == CA_DIB_Argb) return dib;
  std::unique_ptr<CCA_Dib> out(new CCA_Dib);
  if (!out->Create(dib->GetWidth(), dib->GetHeight(), CA_DIB_Rgb32)) return nullptr;
  for (int y = 0; y < dib->GetHeight(); ++y)
    for (int x = 0; x < dib->GetWidth(); ++x) {
      const CMRL_PSVTemplate<int> p(x, y);
      unsigned v = dib->GetPixel(p);
      if (dib->GetFormat() == CA_DIB_8bppMask) v = v * 0x010101u;
      else if (dib->GetPaletteSize() > 0) v = dib->GetPaletteEntry(static_cast<int>(v));
      out->SetPixel(p, 0xFF000000u | (v & 0xFFFFFFu));
    }
  return out;
}

// The format named by `ext` ("png" or ".png"), else by the extension of `path`; PNG for "-"
// (standard output) when `ext` is empty.
inline CA_ImageFormat OutputFormat(const std::string& path, const std::string& ext) {
  if (!ext.empty()) return getImageFormatFromExt(CMRL_ByteString((ext[0] == '.' ? ext : "." + ext).c_str()));
  if (path == "-") return CA_IMAGE_Png;
  return getImageFormatFromExt(CMRL_ByteString(GetFileExt(path.c_str(), -1)));
}

// Encodes in the format OutputFormat picks and writes the file, or standard output for "-".
// Rgb32 goes out as 24 bpp, since its fourth byte means nothing. False, with a message, when the
// format or the write fails.
inline bool SaveImage(const CCA_Dib& dib, const std::string& path, const char* command, const std::string& ext = {}) {
  const CA_ImageFormat format = OutputFormat(path, ext);
  if (format == CA_IMAGE_None) {
    if (!ext.empty()) std::fprintf(stderr, "zeltool %s: no image format is called %s\n", command, ext.c_str());
    else std::fprintf(stderr, "zeltool %s: no image format for the extension of %s\n", command, path.c_str());
    return false;
  }
  const CCA_Dib* source = &dib;
  CCA_Dib packed;
  if (dib.GetFormat() == CA_DIB_Rgb32) {
    if (!packed.Create(dib.GetWidth(), dib.GetHeight(), CA_DIB_Rgb)) return false;
    for (int y = 0; y < dib.GetHeight(); ++y) {
      const unsigned char* from = dib.GetScanline(y);
      unsigned char* to = packed.GetScanline(y);
      for (int x = 0; x < dib.GetWidth(); ++x) {
        to[x * 3] = from[x * 4];
        to[x * 3 + 1] = from[x * 4 + 1];
        to[x * 3 + 2] = from[x * 4 + 2];
      }
    }
    source = &packed;
  }
  // Encode into memory first, so a format that cannot be written leaves no empty file behind.
  const int quality = format == CA_IMAGE_Png ? 6 : 90;  // PNG: compression level; others: quality
  const int dpi = 150;
  CMRL_MemoryStream encoded;
  if (ImageEncode(const_cast<CCA_Dib*>(source), format, &encoded, quality, dpi, dpi) == 0) {
    std::fprintf(stderr, "zeltool %s: cannot encode %s in that format\n", command, path.c_str());
    return false;
  }
  if (path == "-") {
    const size_t size = encoded.GetSize();
    const bool written = std::fwrite(encoded.GetData(), 1, size, stdout) == size && std::fflush(stdout) == 0;
    if (!written) std::fprintf(stderr, "zeltool %s: writing to standard output failed\n", command);
    return written;
  }
  auto stream = CMRL_FileStream::Open(path.c_str(), true);
  const bool written = stream && stream->WriteBlock(encoded.GetData(), encoded.GetSize()) && stream->Flush();
  if (!written) std::fprintf(stderr, "zeltool %s: writing %s failed\n", command, path.c_str());
  return written;
}

}  // namespace zeltool

#endif  // ZELTOOL_IMAGE_IO_H_
