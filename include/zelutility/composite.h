#ifndef ZELUTILITY_COMPOSITE_H_
#define ZELUTILITY_COMPOSITE_H_

#include <mrlbase/device_rect.h>
#include <mrlbase/dib.h>
#include <mrlbase/enums.h>
#include <mrlbase/psv_template.h>
#include <zelutility/export.h>

// Threads: calls on different target bitmaps run at once. A target is for one thread at a time; a
// source or a page searched by GetAutoCalClipRect may be read by several calls at once while
// nobody changes it.

// Composites source onto target with a blend mode; the target's alpha (if it has one) is taken
// first and multiplied back afterwards.
// Mode 30 (CA_BLEND_HSB) is done here pixel by pixel: hue and saturation of the source,
// brightness of the target. Its rectangle is inclusive of right and bottom, is put in order and
// clipped to the target in place (the caller sees the result), and point is where the source
// area starts. When the rectangle or the source area lies wholly outside its bitmap, mode 30
// answers true and leaves the target, alpha included, as it was; the rectangle keeps the
// ordering and clipping done before that was known. Every other mode goes to
// CCA_Dib::CompositeBitmap with rect and point unchanged.
// False for a null bitmap or a refused composite.
//
//   CMRL_DeviceRectTemplate<int> rect(10, 10, 59, 39);
//   CMRL_PSVTemplate<int> at(0, 0);
//   CompositeDibInBM(&stamp, &page, CA_BLEND_HSB, rect, at);
ZEL_API bool CompositeDibInBM(CCA_Dib* source, CCA_Dib* target, CA_BlendMode mode,
                              CMRL_DeviceRectTemplate<int>& rect, CMRL_PSVTemplate<int>& point);

// Finds the content of a 32 bpp page (B, G, R, unused byte): strong edges of a gradient filter
// with double thresholds, and one pixel of margin around them.
// True with rect set to the content (right and bottom inclusive, inside the bitmap); false with
// rect untouched when there is no content, the bitmap is under 3 pixels wide or high, or work
// memory fails. The bitmap must be non-null and of 32 bits per pixel.
//
//   CMRL_DeviceRectTemplate<int> content;
//   if (GetAutoCalClipRect(page, content)) { /* crop to content */ }
ZEL_API bool GetAutoCalClipRect(const CCA_Dib* bitmap, CMRL_DeviceRectTemplate<int>& rect);

#endif  // ZELUTILITY_COMPOSITE_H_
