#ifndef MRLBASE_SRC_CODEC_CODEC_SUPPORT_H_
#define MRLBASE_SRC_CODEC_CODEC_SUPPORT_H_

// Pieces shared by the codec adapters: whole-stream input, bitmap allocation with sane limits,
// layout conversion and the common state of decoders and encoders.

#include <mrlbase/codec.h>
#include <mrlbase/dib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace mrl_codec {

// A file in memory for the libraries that read and write through callbacks: the writer grows
// `owned`, the reader looks at `data` from `pos`.
struct MemoryFile {
  const uint8_t* data = nullptr;
  size_t size = 0;
  size_t pos = 0;
  std::vector<uint8_t>* owned = nullptr;
};

using DibPtr = std::unique_ptr<CCA_Dib>;

// Largest image a decoder agrees to allocate, in pixels; a header asking for more is refused
// before any allocation (a truncated file must not cost gigabytes).
constexpr int64_t kMaxPixels = int64_t{1} << 28;
// Most memory a codec library may hold at once while it decodes one file, on top of the bitmap
// it fills (which kMaxPixels bounds). A file whose decoding would need more is refused.
constexpr size_t kDecodeMemoryBudget = size_t{1} << 30;

// The whole content of a stream for one decode. The bytes of a CMRL_MemoryStream (that exact
// type, whose reads are known to be plain copies) are looked at where they are, so that stream
// must stay unchanged while this lives; any other stream is read into a buffer of its own.
class StreamBytes {
 public:
  // False, with nothing held, for a null, empty or unreadable stream, one claiming more than
  // four times the largest bitmap's pixels in bytes (no real file is that big), or when the
  // copy cannot be allocated.
  bool Load(IMRL_StreamRead* stream);
  const uint8_t* data() const noexcept { return data_; }
  size_t size() const noexcept { return size_; }

 private:
  std::unique_ptr<uint8_t[]> copy_;
  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

// Reads up to `size` leading bytes; the count read (0 when the stream is shorter than asked
// for nothing).
size_t ReadHead(IMRL_StreamRead* stream, uint8_t* buffer, size_t size);

// A new bitmap, or null when the size is out of range or allocation fails. 1 bpp gets the
// black/white palette, 8 bpp the gray ramp.
DibPtr NewDib(int width, int height, CA_DibFormat format);
// Like NewDib, for a decoder that writes every pixel of every row before anyone sees the bitmap:
// the pixels are left as allocated, not zero-filled. Only the bytes each row does not wholly
// cover (a 1 bpp row's last byte, the padding up to the pitch) start at zero.
DibPtr NewDibToOverwrite(int width, int height, CA_DibFormat format);
// True when the 8 bpp or 1 bpp palette maps index i to gray level i*255/(n-1) for all entries.
bool HasGrayRampPalette(const CCA_Dib& dib);
// Row y of any layout as 8-bit R,G,B,A quadruples (alpha 255 where the layout has none;
// 8bppMask reads as gray with opaque alpha).
void ReadRowRgba(const CCA_Dib& dib, int y, uint8_t* rgba);
// True when any pixel of an Argb bitmap is not opaque.
bool HasTranslucentPixel(const CCA_Dib& dib);
// A new bitmap of `format` holding the pixels of `source` (palettes expanded, gray by the
// usual luma weights, alpha dropped or made opaque). Null for a format it cannot make.
DibPtr ConvertDib(const CCA_Dib& source, CA_DibFormat format);

// Common decoder state: the bound stream and the signature test.
class DecoderBase : public ICA_ImageDecoder {
 public:
  int SetStream(IMRL_StreamRead* stream, int flags) override;
  CCA_Dib* Decode(int frame, int format, int flags) override;

 protected:
  // True when the leading bytes belong to this format.
  virtual bool Accepts(const uint8_t* head, size_t size) const = 0;
  // Decodes frame `frame` of the whole file in its native layout; null on any fault.
  virtual DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) = 0;

 private:
  IMRL_StreamRead* stream_ = nullptr;
};

// Dots per inch as pixels per metre, rounded, and capped at 2^31 - 1 (the most BMP and PNG can
// hold) so that no resolution overflows; 0 for a non-positive dpi.
uint32_t PixelsPerMetre(int dpi) noexcept;

// A copy of a 1 bpp or 8 bpp bitmap whose palette is grown, with black entries, to cover the
// highest index it uses; null when the bitmap needs none (its palette already covers every pixel).
DibPtr WithFullPalette(const CCA_Dib& source);

// Common encoder state: the settings, stored until Encode. Encode hands EncodeDib a memory
// stream and copies the file to the caller's stream only when EncodeDib succeeded.
class EncoderBase : public ICA_ImageEncoder {
 public:
  int Encode(const CCA_Dib* dib, IMRL_StreamWrite* stream) override;
  void SetQuality(const int* quality) override;
  void SetResolution(const int* xDpi, const int* yDpi) override;

 protected:
  // Writes a bitmap that has pixels, a known layout and, when indexed, a palette that covers
  // every pixel. True when it was written; on false, whatever was written is dropped.
  virtual bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) = 0;
  // Quality when set and within lo..hi, else `fallback`.
  int QualityOr(int lo, int hi, int fallback) const noexcept;
  int XDpi() const noexcept { return xDpi_; }
  int YDpi() const noexcept { return yDpi_; }

 private:
  bool hasQuality_ = false;
  int quality_ = 0;
  int xDpi_ = 0;
  int yDpi_ = 0;
};

// Coder makers of each format, used by the factory.
ICA_ImageDecoder* NewBmpDecoder();
ICA_ImageEncoder* NewBmpEncoder();
ICA_ImageDecoder* NewPngDecoder();
ICA_ImageEncoder* NewPngEncoder();
ICA_ImageDecoder* NewJpegDecoder();
ICA_ImageEncoder* NewJpegEncoder();
ICA_ImageDecoder* NewGifDecoder();
ICA_ImageEncoder* NewGifEncoder();
ICA_ImageDecoder* NewTiffDecoder();
ICA_ImageEncoder* NewTiffEncoder();
ICA_ImageDecoder* NewJp2Decoder();
ICA_ImageEncoder* NewJp2Encoder();
ICA_ImageDecoder* NewJb2Decoder();

// Signature tests shared by the decoders and CA_GetImageFormat.
bool IsBmpSignature(const uint8_t* head, size_t size);
bool IsPngSignature(const uint8_t* head, size_t size);
bool IsJpegSignature(const uint8_t* head, size_t size);
bool IsGifSignature(const uint8_t* head, size_t size);
bool IsTiffSignature(const uint8_t* head, size_t size);
bool IsJp2Signature(const uint8_t* head, size_t size);   // JP2 box file or bare J2K stream
bool IsJb2Signature(const uint8_t* head, size_t size);
// Bytes CA_GetImageFormat and the decoders look at.
constexpr size_t kSignatureBytes = 16;

}  // namespace mrl_codec

#endif  // MRLBASE_SRC_CODEC_CODEC_SUPPORT_H_
