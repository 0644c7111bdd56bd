#ifndef ZELUTILITY_IMAGE_FORMAT_H_
#define ZELUTILITY_IMAGE_FORMAT_H_

// Image format names: CA_ImageFormat numbers, type words and file name extensions.
//
//   number  type word    extension given out  extensions accepted
//   1       "BMP"        ".bmp"               .bmp
//   2       "GIF"        ".gif"               .gif
//   3       "JPEG"       ".jpg"               .jpeg .jpe .jpg
//   4       "JPEG2000"   ".jp2"               .jp2000 .j2k .jp2
//   5       "JB2"        ".jb2"               .jb2
//   6       "PNG"        ".png"               .png
//   7       "TIF"        ".tiff"              .tiff .tif
//
// The directions are not inverse: getImageFormatFromExt(".jpeg") is 3 and
// getExtFromImageFormat(CA_IMAGE_Jpeg) is ".jpg". Every number survives the round trip.
//
//   CA_ImageFormat f = getImageFormatFromExt(".TIF");   // CA_IMAGE_Tif
//   CMRL_ByteString word = getTypeFromImageFormat(f);    // "TIF"
//
// Threads: no state (the type words are constants); any number of calls at once.

#include <mrlbase/byte_string.h>
#include <mrlbase/enums.h>
#include <zelutility/export.h>

// The type words, one object each; the translations read the words from here.
ZEL_API extern const char* const ImageFormat_BMP;       // "BMP"
ZEL_API extern const char* const ImageFormat_JPEG;      // "JPEG"
ZEL_API extern const char* const ImageFormat_JPEG2000;  // "JPEG2000"
ZEL_API extern const char* const ImageFormat_JB2;       // "JB2"
ZEL_API extern const char* const ImageFormat_PNG;       // "PNG"
ZEL_API extern const char* const ImageFormat_TIF;       // "TIF"
ZEL_API extern const char* const ImageFormat_GIF;       // "GIF"

// The extension given out for a format, with its point (".jpg", ".tiff").
// Any number outside 1 to 7 gives the empty string.
ZEL_API CMRL_ByteString getExtFromImageFormat(CA_ImageFormat format);

// The type word of a format ("JPEG", "TIF"). Any number outside 1 to 7 gives the empty string.
ZEL_API CMRL_ByteString getTypeFromImageFormat(CA_ImageFormat format);

// The format whose accepted extensions hold `ext` (with its point), compared in lower case on a
// copy; the whole text must match. 0 (CA_IMAGE_None) when none does.
ZEL_API CA_ImageFormat getImageFormatFromExt(const CMRL_ByteString& ext);

// The format whose type word is `type`, compared in upper case on a copy; the whole text must
// match. 0 (CA_IMAGE_None) when none does.
ZEL_API CA_ImageFormat getImageFormatFromType(const CMRL_ByteString& type);

#endif  // ZELUTILITY_IMAGE_FORMAT_H_
