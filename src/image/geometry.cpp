#include <zelutility/geometry.h>

#include "image/geometry_internal.h"

using zel_geometry::PointF;
using zel_geometry::Single;
using Polygon = CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>>;

bool IsLineCross(const PointF& a, const PointF& b, const PointF& c, const PointF& d) {
  return zel_geometry::LineCross(a, b, c, d);
}

bool GetCrossPoint(const PointF& a, const PointF& b, const PointF& c, const PointF& d, float& x, float& y) {
  if (!zel_geometry::LineCross(a, b, c, d)) return false;
  if (a == c || a == d) {
    x = a.x;
    y = a.y;
    return true;
  }
  if (b == c || b == d) {
    x = b.x;
    y = b.y;
    return true;
  }
  const float p = Single(static_cast<double>(a.x) - b.x);
  const float q = Single(static_cast<double>(b.y) - a.y);
  const float r = Single(static_cast<double>(c.x) - d.x);
  const float s = Single(static_cast<double>(d.y) - c.y);
  const float t = Single(static_cast<double>(r) * q - static_cast<double>(s) * p);
  // Collinear segments that overlap without a shared end have no single crossing point.
  if (t == 0) return false;
  const float u = Single(static_cast<double>(a.x) * q + static_cast<double>(p) * a.y);
  const float v = Single(static_cast<double>(s) * c.x + static_cast<double>(r) * c.y);
  x = Single((static_cast<double>(u) * r - static_cast<double>(v) * p) / t);
  y = Single((static_cast<double>(q) * v - static_cast<double>(u) * s) / t);
  return true;
}

bool IsPointInside(const Polygon& polygon, PointF point) {
  return zel_geometry::PointInside(polygon.GetSize(), [&polygon](int i) { return polygon.GetAt(i); }, point);
}

bool PolygonIntersect(const Polygon& first, const Polygon& second, Polygon& output) {
  const int firstCount = first.GetSize();
  const int secondCount = second.GetSize();
  if (firstCount < 3 || secondCount < 3) return false;

  for (int i = 0; i < firstCount; ++i) {
    const PointF a = first.GetAt(i);
    const PointF b = first.GetAt((i + 1) % firstCount);
    for (int k = 0; k < secondCount; ++k) {
      const PointF c = second.GetAt(k);
      const PointF d = second.GetAt((k + 1) % secondCount);
      float x = 0;
      float y = 0;
      // A failed append only loses that point; the overlap is still reported from the rest.
      if (GetCrossPoint(a, b, c, d, x, y)) output.Add(PointF(x, y));
    }
  }
  for (int i = 0; i < firstCount; ++i) {
    const PointF vertex = first.GetAt(i);
    if (IsPointInside(second, vertex)) output.Add(vertex);
  }
  for (int i = 0; i < secondCount; ++i) {
    const PointF vertex = second.GetAt(i);
    if (IsPointInside(first, vertex)) output.Add(vertex);
  }
  return output.GetSize() > 0;
}
