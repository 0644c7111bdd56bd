#ifndef MRLBASE_CODEC_H_
#define MRLBASE_CODEC_H_

// Image decoders and encoders behind one factory.
//
//   CMRL_MemoryStream in(bytes, size);
//   CCA_CodecFactory* factory = CCA_Context::Get()->GetCodecFactory();
//   std::unique_ptr<ICA_ImageDecoder> decoder(factory->CreateImageDecoder(CA_GetImageFormat(&in)));
//   CCA_Dib* dib = decoder && decoder->SetStream(&in, 1) ? decoder->Decode(0, 0, 0) : nullptr;
//
// Decoders give 1 bpp or 8 bpp with a palette for bilevel and indexed images, 8 bpp with the gray
// ramp for gray ones, CA_DIB_Rgb for colour and CA_DIB_Argb wherever the file carries alpha or
// transparency. Nothing is read past the stream's size.
//
// Every decoder gives the picture the way up its file says it is shown: a TIFF Orientation tag
// and a JPEG's Exif orientation are applied (5-8 swap width and height); a missing, malformed or
// out-of-range value counts as 1. TIFF integer samples deeper than 8 bits are narrowed to 8
// (12- and 16-bit gray, 16-bit RGB and CMYK alike; floating-point samples are refused); CMYK
// becomes CA_DIB_Rgb, and CIE L*a*b* becomes sRGB with the file's white point (D50 when it
// names none) shown as pure white.
//
// Damaged files are refused, in every format: Decode gives null when the codec library reports
// an error while reading the frame, or a warning that pixels were lost (data ending before the
// frame's last row, corrupt compressed data). Warnings a library recovers from without losing
// pixels are not damage, and what follows a whole frame (junk, a cut trailer or end chunk) does
// not spoil it. One gap: a JBIG2 file whose data ends early inside a whole segment cannot be
// told from a sound one (jbig2dec reports nothing), so such a page decodes with what it holds.
//
// Memory: on top of the bitmap (at most 2^28 pixels) a decode lets its codec library hold at most
// 1 GiB at once; a file whose decoding would need more gives null. JPEG 2000 is measured from its
// headers before decoding, so a single-tile RGB picture of more than about 85 million pixels is
// refused.
//
// Threads: CCA_Context::Get() builds the context once, thread-safely, and installing a factory is
// atomic. Coders are made per use and are for one thread at a time; any number of them may work at
// once. The GIF encoder runs giflib's quantizer (for bitmaps of more than 256 colours) one call
// at a time in the process, since it is not reentrant.

#include <mrlbase/enums.h>
#include <mrlbase/export.h>

#include <atomic>

class CCA_Dib;
class IMRL_StreamRead;
class IMRL_StreamWrite;

// Reads one image file from a stream. The virtual order is part of the binary interface.
class MRL_API ICA_ImageDecoder {
 public:
  virtual ~ICA_ImageDecoder();
  // Binds the stream (not owned; it must outlive the decoder) and checks its signature.
  // Non-zero: the decoder can read it; 0: it cannot, and Decode gives null.
  virtual int SetStream(IMRL_StreamRead* stream, int flags) = 0;
  // Decodes frame `frame` (0 is the first page or frame). `format` 0 keeps the image's own
  // layout; a CA_DibFormat asks for that layout instead. New bitmap owned by the caller, or null.
  virtual CCA_Dib* Decode(int frame, int format, int flags) = 0;
};

// Writes one bitmap as an image file. The virtual order is part of the binary interface.
class MRL_API ICA_ImageEncoder {
 public:
  virtual ~ICA_ImageEncoder();
  // Encodes `dib` into `stream` (neither owned). 1: written; 0: failed. The file is made in memory
  // and handed to the stream in one block, so a failed encoding writes nothing. Every encoder
  // takes every layout a decoder gives; an index past a short palette is written as black.
  virtual int Encode(const CCA_Dib* dib, IMRL_StreamWrite* stream) = 0;
  // JPEG and JPEG 2000: quality 1..100 (100 makes JPEG 2000 lossless); PNG: zlib level 0..9.
  // Null or out of range: the format's default. Other formats ignore it.
  virtual void SetQuality(const int* quality) = 0;
  // Dots per inch written where the format keeps a resolution (BMP, PNG, JPEG, TIFF).
  // A null or non-positive value leaves that axis unwritten.
  virtual void SetResolution(const int* xDpi, const int* yDpi) = 0;
};

// Makes coders for the formats of CA_ImageFormat. JB2 has a decoder and no encoder.
class MRL_API CCA_CodecFactory {
 public:
  CCA_CodecFactory() = default;
  virtual ~CCA_CodecFactory();
  CCA_CodecFactory(const CCA_CodecFactory&) = delete;
  CCA_CodecFactory& operator=(const CCA_CodecFactory&) = delete;

  // A new decoder owned by the caller; null for a format without one (0, 8, -1 ...).
  virtual ICA_ImageDecoder* CreateImageDecoder(CA_ImageFormat format);
  // A new encoder owned by the caller; null for JB2 and for unknown formats.
  virtual ICA_ImageEncoder* CreateImageEncoder(CA_ImageFormat format);
};

// The process-wide context that holds the codec factory.
class MRL_API CCA_Context {
 public:
  // Never null; built on first use, thread-safe.
  static CCA_Context* Get();
  // The factory in use: the built-in one unless a caller installed another.
  CCA_CodecFactory* GetCodecFactory();
  // Installs `factory` (not owned; it must outlive its use; null restores the built-in one) and
  // returns the one installed before, null when that was the built-in one. Lets a host or a test
  // put its own coders behind every user of the context.
  CCA_CodecFactory* SetCodecFactory(CCA_CodecFactory* factory) noexcept;

 private:
  CCA_Context() = default;
  CCA_CodecFactory builtin_;
  std::atomic<CCA_CodecFactory*> installed_{nullptr};
};

// The format of the image file in `stream`, read from its first bytes (the stream is not
// changed). CA_IMAGE_None for a null stream, a short one, or unknown bytes.
MRL_API CA_ImageFormat CA_GetImageFormat(IMRL_StreamRead* stream);

#endif  // MRLBASE_CODEC_H_
