#ifndef ZELUTILITY_IMAGE_CODEC_H_
#define ZELUTILITY_IMAGE_CODEC_H_

// Streams to bitmaps and back through the foundation's codec factory, and the image
// processing shell.
//
//   auto in = CMRL_FileStream::Open("page.png", false);
//   CCA_Dib* dib = ImageDecode(in.get());                 // null: unknown or damaged
//   auto out = CMRL_FileStream::Open("page.jpg", true);
//   int ok = ImageEncode(dib, getImageFormatFromExt(".jpg"), out.get(), 90, 300, 300);
//   delete dib;
//
// Threads: decodes and encodes run at once, each with a coder of its own; a stream and a bitmap
// being decoded into or encoded from are for one thread at a time (a bitmap nobody changes may
// be encoded by several calls at once). GIF encodes of bitmaps with more than 256 colours take
// turns for their palette step only, since giflib's quantizer is not reentrant. An LXImageProcess
// is for one thread at a time.

#include <cstddef>

#include <mrlbase/enums.h>
#include <zelutility/export.h>

class CCA_Dib;
class IMRL_StreamRead;
class IMRL_StreamWrite;

// Decodes the first image of `stream`: the format is read from its signature, the factory's
// decoder for it reads the stream. A new bitmap the caller deletes, or null when the format
// has no decoder, the decoder refuses the stream, or decoding fails.
// Decoding fails for a damaged file and for one that would take more than 1 GiB beyond the bitmap.
// The picture comes the way up its file says (TIFF Orientation, JPEG Exif orientation applied).
ZEL_API CCA_Dib* ImageDecode(IMRL_StreamRead* stream);

// ImageDecode of the file at the UTF-8 path, read straight from disk. Null for a null or empty
// path, a file that cannot be opened (a folder included) or is empty, and whatever ImageDecode
// refuses.
ZEL_API CCA_Dib* ImageDecodeFile(const char* utf8Path);

// ImageDecode of `size` bytes at `data`, which are copied first and stay the caller's. Null for
// null data, size 0, and whatever ImageDecode refuses.
ZEL_API CCA_Dib* ImageDecodeBytes(const void* data, size_t size);

// Encodes `dib` as `format` into `stream` with the factory's encoder, handing it `first` as the
// quality (JPEG and JPEG 2000 1..100, PNG level 0..9) and `second`, `third` as the horizontal and
// vertical resolution in dots per inch. The encoder's result (1 written, 0 failed: then nothing
// was written), or 0 when the format has no encoder. Every layout a decoder gives can be written
// in every format. The bitmap and the stream stay the caller's.
ZEL_API int ImageEncode(CCA_Dib* dib, CA_ImageFormat format, IMRL_StreamWrite* stream, int first = -1,
                        int second = 0, int third = 0);

// The shell of an image processing service. The operations are placeholders with fixed
// results: none of them looks at or changes its arguments, and ErrorMessage stays empty.
class ZEL_API LXImageProcess {
 public:
  // Keeps copies of both texts (neither may be null).
  LXImageProcess(const char* firstName, const char* secondName);
  ~LXImageProcess();
  LXImageProcess(const LXImageProcess&) = delete;
  // Copies the other object's record into this one's; the two never share a record.
  LXImageProcess& operator=(const LXImageProcess& other);

  // The error text: always the empty text, never null.
  const char* ErrorMessage() const;
  // Always false; `target` is left as it was.
  bool AutoRotation(const CCA_Dib* source, CCA_Dib* target);
  // Always false; `target` is left as it was.
  bool AutoBrightnessContrastRatio(const CCA_Dib* source, CCA_Dib* target);
  // Always -1, for any page and for null.
  int DetectionBlankPage(const CCA_Dib* page);
  // Always false; `target` is left as it was.
  bool RemoveBlackMatte(const CCA_Dib* source, double first, double second, double third, double fourth,
                        CCA_Dib* target);

 private:
  struct Record;
  Record* m_record;
};

// Always null; the source is not touched.
ZEL_API CCA_Dib* AlphaBlending(const CCA_Dib* source, unsigned int value);
// Always null; the source is not touched.
ZEL_API CCA_Dib* ImageBinary(const CCA_Dib* source);

#endif  // ZELUTILITY_IMAGE_CODEC_H_
