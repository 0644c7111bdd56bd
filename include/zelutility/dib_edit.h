#ifndef ZELUTILITY_DIB_EDIT_H_
#define ZELUTILITY_DIB_EDIT_H_

#include <memory>

#include <mrlbase/device_rect.h>
#include <mrlbase/dib.h>
#include <mrlbase/object_array.h>
#include <mrlbase/psv_template.h>
#include <mrlbase/ts_array_template.h>
#include <zelutility/export.h>
#include <zelutility/json.h>

// Erasing: overwriting a rectangle or a thick polyline of a bitmap with one pixel value, in place
// (no blending). A JSON object describes the paint; every key is optional:
//   "ColorValue" (unsigned, default 0xFFFFFF): the raw pixel value handed to CCA_Dib::SetPixel;
//   "LineWidth"  (float, default 2): full width of a polyline in pixels;
//   "Cap"        (int, default 2): 2 ends a polyline flat at its end points, anything else rounds them.
//
//   auto desc = ZELJsonFactory::ParseJsonString("{\"LineWidth\": 8, \"ColorValue\": 16777215}", -1, nullptr);
//   DeleteRectDib(page, CMRL_DeviceRectTemplate<int>(10, 10, 200, 40), desc);
//   DeletePathDib(page, strokePoints, desc);
//
// Threads: calls on different bitmaps run at once; the bitmap being erased is for one thread at
// a time. The description and the points are only read and may be shared by calls at once while
// nobody changes them; the points' array lock is taken for one read at a time, never across the
// call, so the caller keeps the array unchanged meanwhile.

// Overwrites rect (right and bottom exclusive) of dib. Negative coordinates become 0; the rectangle
// is clipped to the rows and to the pitch (so spare bytes at the end of a row may be written).
// With a description each pixel is set to "ColorValue" through SetPixel. Without one the bytes are
// filled directly: with the index of the lightest palette entry (the last of equals), 255 when
// there is no palette, and on bitmaps of fewer than 8 bits per pixel whole bytes only, with 0.
// False, bitmap untouched, for a null dib or an empty rect; true otherwise, even when nothing is left.
ZEL_API bool DeleteRectDib(CCA_Dib* dib, CMRL_DeviceRectTemplate<int> rect,
                           std::shared_ptr<const ZELJson> description);

// Paints the polyline through points (pixel coordinates) with "ColorValue": every pixel whose
// whole-number position lies in a segment's rectangle ("LineWidth" wide; side rules of
// IsPointInside) or within half the width of a path point (the end points only when "Cap" is not 2).
// Pixels are set row by row from the top, x rising, each once. False, bitmap untouched, for a null
// dib, fewer than 2 points or a null description.
ZEL_API bool DeletePathDib(CCA_Dib* dib,
                           const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>>& points,
                           std::shared_ptr<const ZELJson> description);

#endif  // ZELUTILITY_DIB_EDIT_H_
