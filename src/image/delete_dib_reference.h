#ifndef ZELUTILITY_SRC_IMAGE_DELETE_DIB_REFERENCE_H_
#define ZELUTILITY_SRC_IMAGE_DELETE_DIB_REFERENCE_H_

// The plain way of painting a thick polyline: every pixel of the bitmap tested against every
// segment rectangle (through the public IsPointInside) and every disc. Far too slow for use; kept
// as the yardstick the fast scan is compared with, pixel for pixel and call for call.

#include <cmath>
#include <functional>

#include <mrlbase/object_array.h>
#include <mrlbase/psv_template.h>
#include <mrlbase/ts_array_template.h>
#include <zelutility/geometry.h>

namespace zel_erase_reference {

using PointF = CMRL_PSVTemplate<float>;
using PointArray = CMRL_TSArrayTemplate<CMRL_ObjectArray, PointF>;

inline float Single(double v) { return static_cast<float>(v); }

// Calls paint(x, y) for every covered pixel of a width x height grid, rows first.
inline void FullScanStroke(const PointArray& path, float lineWidth, int cap, int width, int height,
                           const std::function<void(int, int)>& paint) {
  const int count = path.GetSize();
  const float half = Single(static_cast<double>(lineWidth) * 0.5);
  CMRL_ObjectArray<PointArray> rects;
  for (int i = 0; i + 1 < count; ++i) {
    const PointF cur = path.GetAt(i);
    const PointF next = path.GetAt(i + 1);
    const float dx = Single(static_cast<double>(next.x) - cur.x);
    const float dy = Single(static_cast<double>(next.y) - cur.y);
    const float len = Single(std::sqrt(static_cast<double>(Single(static_cast<double>(dx) * dx + static_cast<double>(dy) * dy))));
    const float nx = Single(-static_cast<double>(dy) / len);
    const float ny = Single(static_cast<double>(dx) / len);
    const double ox = static_cast<double>(nx) * half;
    const double oy = static_cast<double>(half) * ny;
    PointArray rect;
    rect.Add(PointF(Single(cur.x + ox), Single(cur.y + oy)));
    rect.Add(PointF(Single(cur.x - ox), Single(cur.y - oy)));
    rect.Add(PointF(Single(next.x - ox), Single(next.y - oy)));
    rect.Add(PointF(Single(next.x + ox), Single(next.y + oy)));
    rects.Add(rect);
  }
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const PointF p(static_cast<float>(x), static_cast<float>(y));
      bool hit = false;
      for (int r = 0; r < rects.GetSize() && !hit; ++r) hit = IsPointInside(rects[r], p);
      for (int i = 0; i < count && !hit; ++i) {
        if ((i == 0 || i == count - 1) && cap == 2) continue;
        const PointF c = path.GetAt(i);
        const float ddx = Single(static_cast<double>(p.x) - c.x);
        const float ddy = Single(static_cast<double>(p.y) - c.y);
        const float dist = Single(std::sqrt(static_cast<double>(Single(static_cast<double>(ddx) * ddx + static_cast<double>(ddy) * ddy))));
        hit = half >= dist;
      }
      if (hit) paint(x, y);
    }
  }
}

}  // namespace zel_erase_reference

#endif  // ZELUTILITY_SRC_IMAGE_DELETE_DIB_REFERENCE_H_
