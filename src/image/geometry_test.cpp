#include <zelutility/geometry.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using PointF = CMRL_PSVTemplate<float>;
using Polygon = CMRL_TSArrayTemplate<CMRL_ObjectArray, PointF>;

Polygon MakePolygon(std::initializer_list<PointF> points) {
  Polygon polygon;
  for (const PointF& p : points) polygon.Add(p);
  return polygon;
}

std::vector<PointF> Contents(const Polygon& polygon) {
  std::vector<PointF> out;
  for (int i = 0; i < polygon.GetSize(); ++i) out.push_back(polygon.GetAt(i));
  return out;
}

const Polygon kSquare = MakePolygon({{0, 0}, {10, 0}, {10, 10}, {0, 10}});

TEST(IsLineCross, CrossingTouchingParallelAndFloatRounding) {
  EXPECT_TRUE(IsLineCross({0, 0}, {10, 10}, {0, 10}, {10, 0}));
  EXPECT_FALSE(IsLineCross({0, 0}, {10, 0}, {5, 0}, {5, 5})) << "T junction";
  EXPECT_FALSE(IsLineCross({0, 0}, {1, 1}, {0, 0}, {1, 0})) << "shared end at an angle";
  EXPECT_FALSE(IsLineCross({0, 0}, {10, 0}, {0, 1}, {10, 1})) << "parallels";
  EXPECT_TRUE(IsLineCross({0, 0}, {10, 0}, {10, 0}, {15, 0})) << "collinear, boxes touch";
  EXPECT_FALSE(IsLineCross({0, 0}, {10, 0}, {11, 0}, {15, 0})) << "collinear, boxes apart";
  EXPECT_TRUE(IsLineCross({5, 0}, {5, 0}, {0, 0}, {10, 0})) << "point on the segment";
  // At this scale every side value rounds to float 0, so segments that stay apart report a
  // crossing; the same shape at ordinary scale is apart.
  EXPECT_TRUE(IsLineCross({0, 0}, {4e-25f, 4e-25f}, {3e-25f, 0}, {4e-25f, 1e-25f}));
  EXPECT_FALSE(IsLineCross({0, 0}, {4, 4}, {3, 0}, {4, 1}));
  const float inf = std::numeric_limits<float>::infinity();
  EXPECT_FALSE(IsLineCross({0, 0}, {1, 0}, {inf, 5}, {inf, 6}));
}

TEST(GetCrossPoint, PointsAndRefusals) {
  float x = 42, y = 42;
  EXPECT_FALSE(GetCrossPoint({0, 0}, {10, 0}, {5, 0}, {5, 5}, x, y));
  EXPECT_FALSE(GetCrossPoint({0, 0}, {10, 0}, {5, 0}, {15, 0}, x, y)) << "collinear overlap";
  EXPECT_FALSE(GetCrossPoint({5, 0}, {5, 0}, {0, 0}, {10, 0}, x, y)) << "zero-length segment";
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(42.0f, 42.0f));
  ASSERT_TRUE(GetCrossPoint({0, 0}, {10, 10}, {0, 10}, {10, 0}, x, y));
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(5.0f, 5.0f));
  // Shared ends are checked a-c, a-d, b-c, b-d; collinear segments meeting at a give a exactly.
  ASSERT_TRUE(GetCrossPoint({3, 0}, {8, 0}, {-2, 0}, {3, 0}, x, y));
  EXPECT_EQ(x, 3.0f);
  // An oblique crossing away from the grid lies on both lines to float accuracy.
  ASSERT_TRUE(GetCrossPoint({0.5f, 0.25f}, {7.75f, 9.5f}, {1.0f, 8.0f}, {6.0f, 1.5f}, x, y));
  EXPECT_NEAR((x - 0.5) * (9.5 - 0.25) - (y - 0.25) * (7.75 - 0.5), 0.0, 1e-4);
  EXPECT_NEAR((x - 1.0) * (1.5 - 8.0) - (y - 8.0) * (6.0 - 1.0), 0.0, 1e-4);
}

TEST(IsPointInside, EdgesCornersAndBoundaryRules) {
  // Right and bottom edges belong, left and top ones do not; of the corners only (10, 0).
  for (PointF in : {PointF(5, 5), PointF(10, 5), PointF(5, 0), PointF(10, 0)}) EXPECT_TRUE(IsPointInside(kSquare, in));
  for (PointF out : {PointF(11, 5), PointF(0, 5), PointF(5, 10), PointF(0, 0), PointF(10, 10)}) {
    EXPECT_FALSE(IsPointInside(kSquare, out)) << out.x << "," << out.y;
  }
  // Walking the square the other way round changes nothing.
  const Polygon reversed = MakePolygon({{0, 10}, {10, 10}, {10, 0}, {0, 0}});
  for (float y = -1; y <= 11; y += 0.5f)
    for (float x = -1; x <= 11; x += 0.5f) EXPECT_EQ(IsPointInside(reversed, {x, y}), IsPointInside(kSquare, {x, y}));
  // A pentagram's centre is crossed twice, so even-odd leaves it out; a tip is in.
  const Polygon star = MakePolygon({{0, 3}, {10, 3}, {2, 10}, {5, 0}, {8, 10}});
  EXPECT_FALSE(IsPointInside(star, {5, 5}));
  EXPECT_TRUE(IsPointInside(star, {5, 2}));
  // Edges that rise by 1 unit or less flip the boundary rules; just above 1 does not.
  const Polygon unit = MakePolygon({{0, 0}, {4, 0}, {4, 1}, {0, 1}});
  EXPECT_FALSE(IsPointInside(unit, {4, 0.5f}));
  EXPECT_TRUE(IsPointInside(unit, {0, 0.5f}));
  const float above = std::nextafter(1.0f, 2.0f);
  const Polygon taller = MakePolygon({{0, 0}, {4, 0}, {4, above}, {0, above}});
  EXPECT_TRUE(IsPointInside(taller, {4, 0.5f}));
  EXPECT_FALSE(IsPointInside(taller, {0, 0.5f}));
  // Degenerate polygons and NaN.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_FALSE(IsPointInside(Polygon(), {0, 0}));
  EXPECT_FALSE(IsPointInside(MakePolygon({{0, 0}, {10, 10}}), {5, 5}));
  EXPECT_FALSE(IsPointInside(MakePolygon({{nan, nan}, {nan, nan}, {nan, nan}}), {0, 0}));
  EXPECT_FALSE(IsPointInside(kSquare, {nan, 5}));
}

TEST(IsPointInside, AgreesWithExactCountAwayFromEdges) {
  // Away from edges, the even-odd count equals a crossing count in long double on random polygons.
  std::mt19937 rng(1234);
  std::uniform_real_distribution<float> coord(-50, 50);
  for (int round = 0; round < 200; ++round) {
    Polygon polygon;
    const int n = 3 + static_cast<int>(rng() % 9);
    for (int i = 0; i < n; ++i) polygon.Add(PointF(coord(rng), coord(rng)));
    for (int probe = 0; probe < 20; ++probe) {
      const PointF p(coord(rng), coord(rng));
      bool exact = false, nearEdge = false;
      for (int i = 0; i < n; ++i) {
        const PointF a = polygon.GetAt(i), b = polygon.GetAt((i + 1) % n);
        const long double dx = static_cast<long double>(b.x) - a.x, dy = static_cast<long double>(b.y) - a.y;
        if (std::fabs(dx * (p.y - a.y) - dy * (p.x - a.x)) <= 1e-3L * std::hypot(dx, dy) ||
            std::fabs(p.y - a.y) < 1e-3f)
          nearEdge = true;
        if ((a.y > p.y) != (b.y > p.y) && a.x + (static_cast<long double>(p.y) - a.y) * dx / dy > p.x) exact = !exact;
      }
      if (!nearEdge) { EXPECT_EQ(IsPointInside(polygon, p), exact) << "round " << round; }
    }
  }
}

TEST(PolygonIntersect, OverlapsNoOverlapAndAppending) {
  Polygon out;
  ASSERT_TRUE(PolygonIntersect(kSquare, MakePolygon({{5, 5}, {15, 5}, {15, 15}, {5, 15}}), out));
  EXPECT_EQ(Contents(out), (std::vector<PointF>{{10, 5}, {5, 10}, {10, 10}, {5, 5}}));
  const Polygon triangle = MakePolygon({{2, 2}, {3, 2}, {3, 3}});
  Polygon inner;
  ASSERT_TRUE(PolygonIntersect(triangle, kSquare, inner));
  EXPECT_EQ(Contents(inner), Contents(triangle));
  Polygon self;
  ASSERT_TRUE(PolygonIntersect(kSquare, kSquare, self));
  EXPECT_EQ(Contents(self), (std::vector<PointF>{{0, 0}, {10, 0}, {10, 10}, {0, 10}, {10, 0}, {10, 0}}));

  const Polygon far = MakePolygon({{100, 100}, {110, 100}, {105, 110}});
  Polygon none;
  EXPECT_FALSE(PolygonIntersect(kSquare, far, none));
  EXPECT_EQ(none.GetSize(), 0);
  // The output is appended to and its old content makes the answer true.
  none.Add(PointF(-7, -7));
  EXPECT_TRUE(PolygonIntersect(kSquare, far, none));
  // Fewer than 3 vertices on either side: false, output untouched.
  EXPECT_FALSE(PolygonIntersect(MakePolygon({{0, 0}, {20, 20}}), kSquare, none));
  EXPECT_EQ(Contents(none), (std::vector<PointF>{{-7, -7}}));
}

}  // namespace
