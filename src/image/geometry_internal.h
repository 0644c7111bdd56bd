#ifndef ZELUTILITY_SRC_IMAGE_GEOMETRY_INTERNAL_H_
#define ZELUTILITY_SRC_IMAGE_GEOMETRY_INTERNAL_H_

// The arithmetic behind IsLineCross and IsPointInside, shared with the erasing code so that its
// fast path decides every pixel with exactly the same operations as the public functions.

#include <algorithm>
#include <cfloat>

#include <mrlbase/psv_template.h>

namespace zel_geometry {

using PointF = CMRL_PSVTemplate<float>;

// A double rounded to float; beyond the float range it becomes an infinity of the same sign.
inline float Single(double value) noexcept { return static_cast<float>(value); }

// Which side of the line a->b the point c lies on, scaled: the sign is what matters.
inline float SideOf(const PointF& a, const PointF& b, const PointF& c) noexcept {
  const double i = static_cast<double>(b.y) - a.y;
  const double j = static_cast<double>(b.x) - a.x;
  return Single((static_cast<double>(c.x) - a.x) * i - (static_cast<double>(c.y) - a.y) * j);
}

// A pair of side values separates when their product is negative or not a number, or both are 0.
inline bool Separates(float first, float second) noexcept {
  const double product = static_cast<double>(first) * second;
  return !(product >= 0) || (first == 0 && second == 0);
}

inline bool LineCross(const PointF& a, const PointF& b, const PointF& c, const PointF& d) noexcept {
  if (std::min(c.x, d.x) > std::max(a.x, b.x)) return false;
  if (std::min(a.x, b.x) > std::max(c.x, d.x)) return false;
  if (std::min(c.y, d.y) > std::max(a.y, b.y)) return false;
  if (std::min(a.y, b.y) > std::max(c.y, d.y)) return false;
  const double e = static_cast<double>(d.y) - c.y;
  const double f = static_cast<double>(d.x) - c.x;
  const float g = Single((static_cast<double>(a.x) - c.x) * e - (static_cast<double>(a.y) - c.y) * f);
  const float h = Single(e * (static_cast<double>(b.x) - c.x) - f * (static_cast<double>(b.y) - c.y));
  if (!Separates(g, h)) return false;
  return Separates(SideOf(a, b, c), SideOf(a, b, d));
}

// The far end of the inside ray: the largest finite float, level with the point.
inline PointF RayEnd(const PointF& point) noexcept { return PointF(FLT_MAX, point.y); }

// The ends of edge p-q, lower y first; a tie keeps the order.
inline void OrderEdge(PointF& p, PointF& q) noexcept {
  if (p.y > q.y) std::swap(p, q);
}

// An edge takes part in the count only when the point's level lies in [low.y, high.y).
inline bool EdgeSpansLevel(const PointF& low, const PointF& high, float y) noexcept {
  return y >= low.y && high.y > y;
}

// Even-odd count over a polygon of count vertices, vertexAt(i) giving vertex i.
template <class VertexAt>
bool PointInside(int count, VertexAt&& vertexAt, const PointF& point) {
  if (count <= 0) return false;
  const PointF far = RayEnd(point);
  bool inside = false;
  PointF current = vertexAt(0);
  const PointF first = current;
  for (int i = 0; i < count; ++i) {
    const PointF next = i + 1 < count ? vertexAt(i + 1) : first;
    PointF low = current;
    PointF high = next;
    OrderEdge(low, high);
    if (EdgeSpansLevel(low, high, point.y) && LineCross(low, high, point, far)) inside = !inside;
    current = next;
  }
  return inside;
}

}  // namespace zel_geometry

#endif  // ZELUTILITY_SRC_IMAGE_GEOMETRY_INTERNAL_H_
