#ifndef ZELUTILITY_SRC_IMAGE_DELETE_DIB_INTERNAL_H_
#define ZELUTILITY_SRC_IMAGE_DELETE_DIB_INTERNAL_H_

// The pixel set of a thick polyline, found without testing every pixel of the bitmap.

#include <array>
#include <functional>
#include <vector>

#include "image/geometry_internal.h"

namespace zel_erase {

using zel_geometry::PointF;

// A polyline as DeletePathDib paints it.
struct Stroke {
  std::vector<PointF> points;
  float halfWidth = 1.0f;
  bool roundEnds = false;  // discs at the first and the last point too
};

// The four corners of the rectangle around segment from->to, in drawing order. A segment of no
// length gives corners that are not numbers, which no point lies inside.
std::array<PointF, 4> SegmentCorners(const PointF& from, const PointF& to, float halfWidth) noexcept;

// True when (x, y) lies within halfWidth of center, by the stroke's rounding rules.
bool DiscCovers(const PointF& center, float halfWidth, float x, float y) noexcept;

// Calls paint(x, y) once for every pixel of a width x height grid that the stroke covers, rows
// from the top and x rising within a row: the same pixels, in the same order, as testing every
// pixel against every rectangle and disc, but only pixels near a shape's edges are tested.
void ScanStroke(const Stroke& stroke, int width, int height, const std::function<void(int, int)>& paint);

}  // namespace zel_erase

#endif  // ZELUTILITY_SRC_IMAGE_DELETE_DIB_INTERNAL_H_
