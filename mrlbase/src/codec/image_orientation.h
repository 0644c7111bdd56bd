#ifndef MRLBASE_SRC_CODEC_IMAGE_ORIENTATION_H_
#define MRLBASE_SRC_CODEC_IMAGE_ORIENTATION_H_

// Turning a decoded bitmap the way up its file says it is shown.

#include <cstddef>
#include <cstdint>

#include "codec/codec_support.h"

namespace mrl_codec {

// The bitmap as shown for an orientation value of TIFF and Exif (1 = rows top to bottom,
// columns left to right; 2-4 mirror or turn it half way; 5-8 swap width and height). Any value
// outside 1..8 counts as 1. Null only when the turned bitmap cannot be allocated.
DibPtr ApplyOrientation(DibPtr dib, int orientation);

// The orientation recorded in IFD0 of an Exif block (the APP1 payload from "Exif\0\0" on).
// 1 for a block without the tag, a malformed block or a value outside 1..8; reads only
// within `size` bytes.
int ExifOrientation(const uint8_t* exif, size_t size) noexcept;

}  // namespace mrl_codec

#endif  // MRLBASE_SRC_CODEC_IMAGE_ORIENTATION_H_
