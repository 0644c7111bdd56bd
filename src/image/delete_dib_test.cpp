#include <zelutility/dib_edit.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zelutility/json_factory.h>

#include "image/delete_dib_internal.h"
#include "image/delete_dib_reference.h"

namespace {

using PointF = CMRL_PSVTemplate<float>;
using PointArray = CMRL_TSArrayTemplate<CMRL_ObjectArray, PointF>;
using Pixel = std::pair<int, int>;  // x, y
using Rect = CMRL_DeviceRectTemplate<int>;

constexpr CA_DibFormat kFormats[] = {CA_DIB_1bpp, CA_DIB_8bppMask, CA_DIB_8bpp, CA_DIB_Rgb, CA_DIB_Rgb32, CA_DIB_Argb};

std::shared_ptr<const ZELJson> Describe(const std::string& json) {
  std::shared_ptr<const ZELJson> node = ZELJsonFactory::ParseJsonString(json.c_str());
  EXPECT_NE(node, nullptr) << json;
  return node;
}

PointArray MakePath(std::initializer_list<PointF> points) {
  PointArray path;
  for (const PointF& p : points) path.Add(p);
  return path;
}

std::vector<unsigned char> Bytes(const CCA_Dib& dib) {
  return std::vector<unsigned char>(dib.GetBuffer(), dib.GetBuffer() + dib.GetPitch() * dib.GetHeight());
}

// Pixels of a bitmap that differ from 0.
std::set<Pixel> Painted(const CCA_Dib& dib) {
  std::set<Pixel> out;
  for (int y = 0; y < dib.GetHeight(); ++y)
    for (int x = 0; x < dib.GetWidth(); ++x)
      if (dib.GetPixel(CMRL_PSVTemplate<int>(x, y)) != 0) out.insert({x, y});
  return out;
}

std::set<Pixel> PaintPath(const PointArray& path, const std::string& json, int width = 20, int height = 20) {
  CCA_Dib dib;
  EXPECT_TRUE(dib.Create(width, height, CA_DIB_Rgb));
  EXPECT_TRUE(DeletePathDib(&dib, path, Describe(json)));
  return Painted(dib);
}

std::set<Pixel> Block(int x0, int x1, int y0, int y1) {
  std::set<Pixel> out;
  for (int y = y0; y <= y1; ++y)
    for (int x = x0; x <= x1; ++x) out.insert({x, y});
  return out;
}

// A bitmap over a caller buffer with guard bytes on both sides, to see writes outside the pixels.
struct GuardedDib {
  static constexpr size_t kGuard = 64;
  std::vector<unsigned char> storage;
  CCA_Dib dib;
  GuardedDib(int width, int height, CA_DibFormat format, int pitch)
      : storage(kGuard * 2 + static_cast<size_t>(pitch) * height, 0xA5) {
    std::fill(storage.begin() + kGuard, storage.end() - kGuard, 0x11);
    EXPECT_TRUE(dib.Create(width, height, format, storage.data() + kGuard, pitch));
  }
  bool GuardsIntact() const {
    return std::count(storage.begin(), storage.begin() + kGuard, 0xA5) +
               std::count(storage.end() - kGuard, storage.end(), 0xA5) ==
           2 * kGuard;
  }
};

TEST(DeleteRectDib, RefusalsLeaveTheBitmapAlone) {
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(8, 8, CA_DIB_Rgb));
  const auto before = Bytes(dib);
  const auto description = Describe("{}");
  EXPECT_FALSE(DeleteRectDib(nullptr, Rect(0, 0, 4, 4), description));
  // Empty rectangles, even outside the bitmap, with or without a description.
  for (const Rect& empty : {Rect(50, 50, 50, 60), Rect(5, 0, 4, 10), Rect(0, 3, 4, 3)})
    EXPECT_FALSE(DeleteRectDib(&dib, empty, description) || DeleteRectDib(&dib, empty, nullptr));
  // Wholly outside: done, nothing to paint.
  EXPECT_TRUE(DeleteRectDib(&dib, Rect(0, 20, 8, 30), nullptr) &&
              DeleteRectDib(&dib, Rect(-9, -9, -1, -1), description));
  EXPECT_EQ(Bytes(dib), before);
}

// NeverWritesOutsideTheBuffer holds the description form against SetPixel over the clipped
// rectangle on every format; here only the colour it takes.
TEST(DeleteRectDib, DescriptionColourAndItsDefault) {
  // A description of another kind, or a value of another type, still paints, with 0xFFFFFF.
  const std::pair<const char*, unsigned> rows[] = {
      {"{\"ColorValue\": 1193046}", 0x123456u}, {"[1193046]", 0xFFFFFFu}, {"{\"ColorValue\": \"1193046\"}", 0xFFFFFFu}};
  for (const auto& [json, color] : rows) {
    CCA_Dib dib;
    ASSERT_TRUE(dib.Create(2, 1, CA_DIB_Rgb));
    ASSERT_TRUE(DeleteRectDib(&dib, Rect(1, -5, 2, 1), Describe(json))) << json;
    EXPECT_TRUE(dib.GetPixel(CMRL_PSVTemplate<int>(1, 0)) == color && dib.GetPixel(CMRL_PSVTemplate<int>(0, 0)) == 0)
        << json;
  }
}

TEST(DeleteRectDib, DirectFillChoosesTheLightestPaletteIndex) {
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(4, 2, CA_DIB_8bpp));
  const unsigned palette[] = {0x000000, 0xFFFFFF, 0xFFFFFF};
  ASSERT_TRUE(dib.SetPalette(palette, 3));
  ASSERT_TRUE(DeleteRectDib(&dib, Rect(1, 0, 3, 1), nullptr));
  EXPECT_EQ(Bytes(dib), (std::vector<unsigned char>{0, 2, 2, 0, 0, 0, 0, 0}));  // the last of equals
  // Lightness is the plain sum of the three bytes: 0x0000FF (255) beats 0x7F7F00 (254).
  const unsigned sums[] = {0x7F7F00, 0x0000FF, 0x010000};
  ASSERT_TRUE(dib.SetPalette(sums, 3));
  ASSERT_TRUE(DeleteRectDib(&dib, Rect(0, 1, 1, 2), nullptr));
  EXPECT_EQ(dib.GetPixel(CMRL_PSVTemplate<int>(0, 1)), 1u);

  // No palette: every byte of the pixel becomes 255, alpha included.
  CCA_Dib argb;
  ASSERT_TRUE(argb.Create(3, 2, CA_DIB_Argb));
  ASSERT_TRUE(DeleteRectDib(&argb, Rect(1, 1, 2, 2), nullptr));
  EXPECT_EQ(Bytes(argb), (std::vector<unsigned char>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                                     0, 0, 0, 0, 255, 255, 255, 255, 0, 0, 0, 0}));
}

TEST(DeleteRectDib, DirectFillClipsToThePitchNotTheWidth) {
  // 3 pixels of 24 bits in a 16-byte row: columns up to 16 / 3 = 5 may be written.
  GuardedDib g(3, 2, CA_DIB_Rgb, 16);
  ASSERT_TRUE(DeleteRectDib(&g.dib, Rect(1, 0, 1000, 1), nullptr));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(g.dib.GetScanline(0)[i], i < 3 || i >= 15 ? 0x11 : 0xFF) << i;
  EXPECT_EQ(g.dib.GetScanline(1)[3], 0x11);
  // A left edge past the pitch leaves nothing to do.
  ASSERT_TRUE(DeleteRectDib(&g.dib, Rect(6, 1, 9, 2), nullptr));
  EXPECT_EQ(g.dib.GetScanline(1)[15], 0x11);
  EXPECT_TRUE(g.GuardsIntact());
}

TEST(DeleteRectDib, OneBitRowsClearWholeBytesOnly) {
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(32, 2, CA_DIB_1bpp));
  std::memset(dib.GetBuffer(), 0xFF, 8);
  // Bytes left / 8 up to right / 8: a byte the right edge cuts into keeps its bits; far past the
  // row, cleared up to the pitch with the next row untouched; a white palette entry does not
  // matter, 1-bit rows are cleared to 0.
  const struct { Rect rect; std::vector<unsigned char> bytes; } steps[] = {
      {Rect(1, 0, 7, 2), {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},  // narrower than a byte
      {Rect(3, 0, 24, 1), {0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
      {Rect(16, 0, 1 << 30, 1), {0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}},
      {Rect(24, 1, 32, 2), {0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0x00}},
  };
  const unsigned whiteFirst[] = {0xFFFFFF, 0x000000};
  ASSERT_TRUE(dib.SetPalette(whiteFirst, 2));
  for (const auto& step : steps) {
    ASSERT_TRUE(DeleteRectDib(&dib, step.rect, nullptr));
    EXPECT_EQ(Bytes(dib), step.bytes) << step.rect.left << "," << step.rect.right;
  }
}

TEST(DeleteRectDib, NeverWritesOutsideTheBuffer) {
  // Random rectangles, many far outside or huge, on every format, with spare bytes in the rows.
  std::mt19937 rng(77);
  const int edges[] = {std::numeric_limits<int>::min(), -1, 0, 1, 7, 8, 9, 16, 17, 1 << 29,
                       std::numeric_limits<int>::max()};
  for (CA_DibFormat format : kFormats) {
    for (int round = 0; round < 150; ++round) {
      const int width = 1 + static_cast<int>(rng() % 20), height = 1 + static_cast<int>(rng() % 5);
      CCA_Dib probe;
      ASSERT_TRUE(probe.Create(width, height, format));
      GuardedDib g(width, height, format, probe.GetPitch() + static_cast<int>(rng() % 3));
      const auto pick = [&] { return rng() % 2 ? edges[rng() % std::size(edges)] : static_cast<int>(rng() % 30) - 5; };
      const Rect rect(pick(), pick(), pick(), pick());
      const bool withDescription = rng() % 2;
      const unsigned color = rng() % 0x1000000;
      CCA_Dib expected;
      ASSERT_TRUE(expected.Create(width, height, format, nullptr, g.dib.GetPitch()));
      std::memcpy(expected.GetBuffer(), g.dib.GetBuffer(), static_cast<size_t>(g.dib.GetPitch()) * height);
      const bool done = DeleteRectDib(
          &g.dib, rect, withDescription ? Describe("{\"ColorValue\": " + std::to_string(color) + "}") : nullptr);
      EXPECT_EQ(done, rect.right > rect.left && rect.bottom > rect.top);
      ASSERT_TRUE(g.GuardsIntact()) << "format " << format << " round " << round;
      if (done && withDescription) {
        // The description form is exactly SetPixel over the clipped rectangle.
        for (int y = std::max(rect.top, 0); y < std::min(rect.bottom, height); ++y)
          for (int x = std::max(rect.left, 0); x < std::min(rect.right, width); ++x)
            expected.SetPixel(CMRL_PSVTemplate<int>(x, y), color);
        EXPECT_EQ(
            std::memcmp(expected.GetBuffer(), g.dib.GetBuffer(), static_cast<size_t>(g.dib.GetPitch()) * height), 0);
      }
    }
  }
}

TEST(DeletePathDib, Refusals) {
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(10, 10, CA_DIB_Rgb));
  const auto description = Describe("{}");
  EXPECT_FALSE(DeletePathDib(&dib, MakePath({{5, 5}}), description));
  EXPECT_FALSE(DeletePathDib(&dib, MakePath({{0, 0}, {9, 9}}), nullptr));
  EXPECT_TRUE(DeletePathDib(&dib, MakePath({{50, 50}, {90, 90}}), description)) << "wholly outside";
  EXPECT_TRUE(Painted(dib).empty());
}

TEST(DeletePathDib, StraightStrokeEdgesCapsAndDefaults) {
  const PointArray path = MakePath({{2, 5}, {7, 5}});
  std::set<Pixel> round = Block(3, 7, 4, 5);
  round.insert({{1, 5}, {2, 4}, {2, 5}, {2, 6}, {7, 6}, {8, 5}});
  const struct {
    const char* json;
    std::set<Pixel> pixels;
  } rows[] = {
      // The rectangle's side at the smallest x and its side at the largest y stay out.
      {"{\"LineWidth\": 2, \"Cap\": 2}", Block(3, 7, 4, 5)},
      {"{\"LineWidth\": 2, \"Cap\": 0}", round},
      // Sides that rise by exactly 1 unit follow the other boundary rule.
      {"{\"LineWidth\": 1, \"Cap\": 2}", Block(2, 6, 5, 5)},
      // Defaults: width 2, flat ends. Values of another type fall back to them: a text width is 2,
      // a "Cap" with a fraction is no integer and so counts as 2 (flat), not as 0.
      {"{\"LineWidth\": \"8\", \"Cap\": 0.5}", Block(3, 7, 4, 5)},
      // A negative width builds the same rectangle, corners in another order, and no discs.
      {"{\"LineWidth\": -2, \"Cap\": 0}", Block(3, 7, 4, 5)},
  };
  for (const auto& row : rows) EXPECT_EQ(PaintPath(path, row.json), row.pixels) << row.json;
}

TEST(DeletePathDib, JointsAlwaysRoundEndsOnlyWithCap) {
  const PointArray path = MakePath({{10, 10}, {20, 10}, {20, 20}});
  const char* const flatEnds = "{\"LineWidth\": 6, \"Cap\": 2}";
  const auto flat = PaintPath(path, flatEnds, 30, 30);
  const auto round = PaintPath(path, "{\"LineWidth\": 6, \"Cap\": 1}", 30, 30);
  EXPECT_EQ(flat.count({22, 8}), 1u) << "outer corner of the joint comes from its disc";
  EXPECT_EQ(flat.count({8, 10}) + flat.count({20, 22}), 0u);
  EXPECT_EQ(round.count({8, 10}) + round.count({20, 22}), 2u);
  EXPECT_EQ(PaintPath(path, "{\"LineWidth\": -6, \"Cap\": 1}", 30, 30).count({22, 8}), 0u) << "no discs";

  // A repeated point adds a segment of no length (no pixels) and a second disc at the same place.
  EXPECT_EQ(PaintPath(MakePath({{10, 10}, {10, 10}, {20, 10}}), flatEnds, 30, 30).count({8, 10}), 1u)
      << "the repeated first point is a joint and keeps its disc";

  // Width 0 with round ends: only pixels standing exactly on a path point.
  const PointArray zigzag = MakePath({{1, 1}, {6, 4}, {9, 4}, {9.5f, 7}});
  EXPECT_EQ(PaintPath(zigzag, "{\"LineWidth\": 0, \"Cap\": 0}"), (std::set<Pixel>{{1, 1}, {6, 4}, {9, 4}}));
}

// One random path for the comparison with the full scan: coordinates on the grid, on half and
// quarter steps (which put corners exactly on pixel rows), anywhere, off the bitmap, or wild.
struct RandomStroke {
  PointArray path;
  float lineWidth;
  int cap;  // 2 is flat ends
};

RandomStroke MakeRandomStroke(std::mt19937& rng, int width, int height) {
  const auto coordinate = [&rng](int extent) -> float {
    const unsigned mode = rng() % 100;
    if (mode < 30) return static_cast<float>(static_cast<int>(rng() % static_cast<unsigned>(extent + 10)) - 5);
    if (mode < 60) return static_cast<float>(static_cast<int>(rng() % static_cast<unsigned>(4 * extent + 40)) - 20) / 4;
    if (mode < 96) return std::uniform_real_distribution<float>(-5, static_cast<float>(extent + 5))(rng);
    if (mode < 98) return static_cast<float>(rng() % 2 ? 1e7 : -1e7);
    if (mode < 99) return std::numeric_limits<float>::infinity();
    return std::numeric_limits<float>::quiet_NaN();
  };
  const float widths[] = {0.0f, -0.0f, -2.0f, 0.5f, 1.0f, 2.0f, 2.5f, 1e-3f, 60.0f};
  RandomStroke s;
  const int count = 2 + static_cast<int>(rng() % 5);
  for (int i = 0; i < count; ++i) {
    PointF p(coordinate(width), coordinate(height));
    if (i > 0 && rng() % 12 == 0) p = s.path.GetAt(i - 1);  // repeated point
    if (i > 0 && rng() % 6 == 0) p.y = s.path.GetAt(i - 1).y;  // horizontal segment
    s.path.Add(p);
  }
  const unsigned widthMode = rng() % 10;
  if (widthMode < 6) s.lineWidth = widths[rng() % std::size(widths)];
  else if (widthMode < 9) s.lineWidth = std::uniform_real_distribution<float>(-1, 10)(rng);
  else s.lineWidth = rng() % 2 ? std::numeric_limits<float>::infinity() : std::numeric_limits<float>::quiet_NaN();
  s.cap = rng() % 2 ? 2 : static_cast<int>(rng() % 3);
  return s;
}

std::vector<Pixel> FullScan(const RandomStroke& s, int width, int height) {
  std::vector<Pixel> pixels;
  zel_erase_reference::FullScanStroke(s.path, s.lineWidth, s.cap, width, height,
                                      [&](int x, int y) { pixels.emplace_back(x, y); });
  return pixels;
}

std::vector<Pixel> FastScan(const RandomStroke& s, int width, int height) {
  zel_erase::Stroke stroke;
  for (int i = 0; i < s.path.GetSize(); ++i) stroke.points.push_back(s.path.GetAt(i));
  stroke.halfWidth = static_cast<float>(static_cast<double>(s.lineWidth) * 0.5);
  stroke.roundEnds = s.cap != 2;
  std::vector<Pixel> pixels;
  zel_erase::ScanStroke(stroke, width, height, [&pixels](int x, int y) { pixels.emplace_back(x, y); });
  return pixels;
}

// Shifts the path vertically so that a corner of its first rectangle lies exactly on a pixel row,
// where the boundary rules of the two edges meeting there can differ. False when no shift of a few
// float steps gets there.
bool SnapCornerToRow(RandomStroke& s, std::mt19937& rng) {
  const PointF from = s.path.GetAt(0), to = s.path.GetAt(1);
  const float half = static_cast<float>(static_cast<double>(s.lineWidth) * 0.5);
  const PointF corner = zel_erase::SegmentCorners(from, to, half)[rng() % 4];
  if (!std::isfinite(corner.y)) return false;
  const float shifted = from.y + (std::round(corner.y) - corner.y);
  for (int step = -4; step <= 4; ++step) {
    float y = shifted;
    for (int i = 0; i < std::abs(step); ++i) y = std::nextafter(y, step < 0 ? -1e9f : 1e9f);
    const float delta = y - from.y;
    PointArray moved;
    for (int i = 0; i < s.path.GetSize(); ++i) moved.Add(PointF(s.path.GetAt(i).x, s.path.GetAt(i).y + delta));
    const auto corners = zel_erase::SegmentCorners(moved.GetAt(0), moved.GetAt(1), half);
    if (std::any_of(std::begin(corners), std::end(corners), [](const PointF& c) { return c.y == std::floor(c.y); })) {
      s.path = moved;
      return true;
    }
  }
  return false;
}

// Pixels painted left of every path point by more than the half width.
bool PaintsFarLeft(const RandomStroke& s, const std::vector<Pixel>& pixels) {
  float minX = std::numeric_limits<float>::infinity();
  for (int i = 0; i < s.path.GetSize(); ++i) minX = std::min(minX, s.path.GetAt(i).x - std::fabs(s.lineWidth));
  return std::any_of(pixels.begin(), pixels.end(), [minX](const Pixel& p) { return p.first < minX - 1; });
}

TEST(DeletePathDib, MatchesTheFullScanCallForCallAndOnEveryFormat) {
  // The fast scan gives the full scan's pixels in its order; on whole bitmaps of every format the
  // description form paints exactly those pixels and nothing outside the buffer.
  std::mt19937 rng(20261122);
  int casesPainted = 0;
  for (int round = 0; round < 3000; ++round) {
    const int width = 1 + static_cast<int>(rng() % 28), height = 1 + static_cast<int>(rng() % 28);
    const RandomStroke s = MakeRandomStroke(rng, width, height);
    const std::vector<Pixel> expected = FullScan(s, width, height);
    ASSERT_EQ(FastScan(s, width, height), expected) << "round " << round;
    if (!expected.empty()) ++casesPainted;
    if (round % 5 != 0 || !std::isfinite(s.lineWidth)) continue;  // JSON has no infinity
    const CA_DibFormat format = kFormats[rng() % std::size(kFormats)];
    const unsigned color = static_cast<unsigned>(rng());
    CCA_Dib probe;
    ASSERT_TRUE(probe.Create(width, height, format));
    GuardedDib g(width, height, format, probe.GetPitch());
    CCA_Dib want;
    ASSERT_TRUE(want.Create(width, height, format));
    std::memcpy(want.GetBuffer(), g.dib.GetBuffer(), static_cast<size_t>(probe.GetPitch()) * height);
    for (const Pixel& p : expected) want.SetPixel(CMRL_PSVTemplate<int>(p.first, p.second), color);
    char json[160];
    std::snprintf(json, sizeof json, "{\"LineWidth\": %.9g, \"Cap\": %d, \"ColorValue\": %u}", s.lineWidth, s.cap,
                  color);
    ASSERT_TRUE(DeletePathDib(&g.dib, s.path, Describe(json)));
    ASSERT_TRUE(g.GuardsIntact());
    EXPECT_EQ(std::memcmp(want.GetBuffer(), g.dib.GetBuffer(), static_cast<size_t>(probe.GetPitch()) * height), 0)
        << "round " << round << " format " << format << " " << json;
  }
  EXPECT_GT(casesPainted, 1500);
}

TEST(DeletePathDib, CornersOnPixelRowsMatchTheFullScan) {
  // A sloped rectangle whose lowest corner lies exactly on a row, with one edge from it rising by
  // more than 1 and the other by less: the inside count for that row is odd all the way from the
  // left border, so the full scan paints far outside the stroke. Skipping by bounding boxes loses them.
  RandomStroke s{MakePath({{20.2999992f, 10.3535538f}, {21.2999992f, 11.3535538f}}), 1.0f, 2};
  const std::vector<Pixel> expected = FullScan(s, 40, 30);
  ASSERT_TRUE(PaintsFarLeft(s, expected));
  EXPECT_EQ(FastScan(s, 40, 30), expected);

  std::mt19937 rng(99);
  int farLeft = 0, snapped = 0;
  for (int round = 0; round < 1500; ++round) {
    const int width = 8 + static_cast<int>(rng() % 24), height = 8 + static_cast<int>(rng() % 24);
    RandomStroke r = MakeRandomStroke(rng, width, height);
    r.lineWidth = std::uniform_real_distribution<float>(0.1f, 3.0f)(rng);
    if (!SnapCornerToRow(r, rng)) continue;
    ++snapped;
    const std::vector<Pixel> full = FullScan(r, width, height);
    if (PaintsFarLeft(r, full)) ++farLeft;
    ASSERT_EQ(FastScan(r, width, height), full) << "round " << round;
  }
  EXPECT_GT(snapped, 500);
  EXPECT_GT(farLeft, 5) << "the snapped cases should reach the odd-count rows";
}

}  // namespace
