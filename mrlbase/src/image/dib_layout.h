#ifndef MRLBASE_SRC_IMAGE_DIB_LAYOUT_H_
#define MRLBASE_SRC_IMAGE_DIB_LAYOUT_H_

#include <mrlbase/enums.h>

namespace mrl_image {

// Bits per pixel of a bitmap format; 0 for a number that is no bitmap format.
constexpr int BitsPerPixel(CA_DibFormat format) noexcept {
  switch (format) {
    case CA_DIB_1bpp: return 1;
    case CA_DIB_8bppMask:
    case CA_DIB_8bpp: return 8;
    case CA_DIB_Rgb: return 24;
    case CA_DIB_Rgb32:
    case CA_DIB_Argb: return 32;
    default: return 0;
  }
}

}  // namespace mrl_image

#endif  // MRLBASE_SRC_IMAGE_DIB_LAYOUT_H_
