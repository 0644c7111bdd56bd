#include <zelutility/dib_edit.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "image/delete_dib_internal.h"

using zel_geometry::PointF;
using zel_geometry::Single;

namespace zel_erase {

namespace {

using Span = std::pair<int, int>;  // first and last column, inclusive

// The first x in [begin, end) where the monotone predicate turns true; end when it never does.
template <class Predicate>
int FirstTrue(int begin, int end, Predicate&& isTrue) {
  while (begin < end) {
    const int middle = begin + (end - begin) / 2;
    if (isTrue(middle)) {
      end = middle;
    } else {
      begin = middle + 1;
    }
  }
  return begin;
}

// v clamped to [low, high]; NaN gives low.
int ClampToInt(double v, int low, int high) {
  if (!(v >= low)) return low;
  if (v > high) return high;
  return static_cast<int>(v);
}

bool IsFinite(const PointF& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

float Column(int x) { return static_cast<float>(x); }

struct RectShape {
  std::array<PointF, 4> corners;
  bool finite;
  int firstRow;
  int lastRow;
};

struct DiscShape {
  PointF center;
  int firstRow;
  int lastRow;
};

// Appends the runs of columns in [first, last] where inside(x) holds.
template <class Inside>
void AddRunsByTesting(int first, int last, Inside&& inside, std::vector<Span>& spans) {
  int runStart = -1;
  for (int x = first; x <= last; ++x) {
    if (inside(x)) {
      if (runStart < 0) runStart = x;
    } else if (runStart >= 0) {
      spans.emplace_back(runStart, x - 1);
      runStart = -1;
    }
  }
  if (runStart >= 0) spans.emplace_back(runStart, last);
}

// Spans of row y inside a rectangle. Along a row, an edge's vote in the inside count depends on
// x only through two monotone quantities: whether x is left of the edge's right end, and the sign
// class of the edge's side value, which never decreases with x. So the columns split into at most
// a few pieces on which the whole count is constant; one test per piece decides it exactly.
void RectRowSpans(const RectShape& rect, int y, int width, std::vector<Span>& spans,
                  std::vector<int>& breaks) {
  const float py = static_cast<float>(y);
  const auto inside = [&rect, py](int x) {
    return zel_geometry::PointInside(4, [&rect](int i) { return rect.corners[static_cast<size_t>(i)]; },
                                     PointF(Column(x), py));
  };
  breaks.clear();
  breaks.push_back(0);
  bool anyActive = false;
  for (size_t i = 0; i < 4; ++i) {
    PointF low = rect.corners[i];
    PointF high = rect.corners[(i + 1) % 4];
    zel_geometry::OrderEdge(low, high);
    if (!zel_geometry::EdgeSpansLevel(low, high, py)) continue;
    anyActive = true;
    if (!rect.finite) break;
    const float rightEnd = std::max(low.x, high.x);
    breaks.push_back(FirstTrue(0, width, [rightEnd](int x) { return Column(x) > rightEnd; }));
    const auto side = [&low, &high, py](int x) { return zel_geometry::SideOf(low, high, PointF(Column(x), py)); };
    constexpr float kInf = std::numeric_limits<float>::infinity();
    breaks.push_back(FirstTrue(0, width, [&side](int x) { return side(x) > -kInf; }));
    breaks.push_back(FirstTrue(0, width, [&side](int x) { return side(x) >= 0; }));
    breaks.push_back(FirstTrue(0, width, [&side](int x) { return side(x) > 0; }));
    breaks.push_back(FirstTrue(0, width, [&side](int x) { return side(x) >= kInf; }));
  }
  if (!anyActive) return;
  if (!rect.finite) {
    // Infinite corners void the monotone argument; such shapes are rare, so test every column.
    AddRunsByTesting(0, width - 1, inside, spans);
    return;
  }
  std::sort(breaks.begin(), breaks.end());
  breaks.erase(std::unique(breaks.begin(), breaks.end()), breaks.end());
  while (!breaks.empty() && breaks.back() >= width) breaks.pop_back();
  for (size_t i = 0; i < breaks.size(); ++i) {
    const int last = i + 1 < breaks.size() ? breaks[i + 1] - 1 : width - 1;
    if (inside(breaks[i])) spans.emplace_back(breaks[i], last);
  }
}

// Spans of row y within a disc. Along a row the distance never grows towards the centre's column
// from either side, so the covered columns form one run, found by bisection on each side.
void DiscRowSpans(const DiscShape& disc, float halfWidth, int y, int width, std::vector<Span>& spans) {
  const float py = static_cast<float>(y);
  const auto covers = [&disc, halfWidth, py](int x) { return DiscCovers(disc.center, halfWidth, Column(x), py); };
  if (!IsFinite(disc.center)) {
    // An infinite or undefined centre gives the same distance for every column.
    if (covers(0)) spans.emplace_back(0, width - 1);
    return;
  }
  const double floorX = std::floor(static_cast<double>(disc.center.x));
  const double ceilX = std::ceil(static_cast<double>(disc.center.x));
  if (floorX >= 0) {
    const int last = ClampToInt(floorX, 0, width - 1);
    if (covers(last)) spans.emplace_back(FirstTrue(0, last, covers), last);
  }
  if (ceilX <= width - 1) {
    const int first = ClampToInt(ceilX, 0, width - 1);
    if (covers(first)) {
      spans.emplace_back(first, FirstTrue(first, width, [&covers](int x) { return !covers(x); }) - 1);
    }
  }
}

// Rows [first, last] that can hold a pixel within halfWidth of coordinate c; a safe over-estimate.
std::pair<int, int> DiscRows(float c, float halfWidth, int height) {
  const double reach = static_cast<double>(halfWidth) * (1 + 1e-6) + 2;
  if (!std::isfinite(c) || !std::isfinite(reach)) return {0, height - 1};
  return {ClampToInt(std::ceil(c - reach), 0, height), ClampToInt(std::floor(c + reach), -1, height - 1)};
}

}  // namespace

std::array<PointF, 4> SegmentCorners(const PointF& from, const PointF& to, float halfWidth) noexcept {
  const float dx = Single(static_cast<double>(to.x) - from.x);
  const float dy = Single(static_cast<double>(to.y) - from.y);
  const float length = Single(std::sqrt(static_cast<double>(Single(static_cast<double>(dx) * dx +
                                                                   static_cast<double>(dy) * dy))));
  const float nx = Single(-static_cast<double>(dy) / length);
  const float ny = Single(static_cast<double>(dx) / length);
  const double ox = static_cast<double>(nx) * halfWidth;
  const double oy = static_cast<double>(halfWidth) * ny;
  return {PointF(Single(from.x + ox), Single(from.y + oy)), PointF(Single(from.x - ox), Single(from.y - oy)),
          PointF(Single(to.x - ox), Single(to.y - oy)), PointF(Single(to.x + ox), Single(to.y + oy))};
}

bool DiscCovers(const PointF& center, float halfWidth, float x, float y) noexcept {
  const float ddx = Single(static_cast<double>(x) - center.x);
  const float ddy = Single(static_cast<double>(y) - center.y);
  const float dist = Single(std::sqrt(static_cast<double>(Single(static_cast<double>(ddx) * ddx +
                                                                 static_cast<double>(ddy) * ddy))));
  return halfWidth >= dist;
}

void ScanStroke(const Stroke& stroke, int width, int height, const std::function<void(int, int)>& paint) {
  if (width <= 0 || height <= 0) return;
  const size_t count = stroke.points.size();
  std::vector<RectShape> rects;
  std::vector<DiscShape> discs;
  for (size_t i = 0; i + 1 < count; ++i) {
    RectShape rect{SegmentCorners(stroke.points[i], stroke.points[i + 1], stroke.halfWidth), true, 0, height - 1};
    float top = rect.corners[0].y;
    float bottom = rect.corners[0].y;
    for (const PointF& c : rect.corners) {
      rect.finite = rect.finite && IsFinite(c);
      top = std::min(top, c.y);
      bottom = std::max(bottom, c.y);
    }
    if (rect.finite) {
      // Only rows level with [top, bottom) meet an edge that counts; one row of slack each way.
      rect.firstRow = ClampToInt(std::floor(static_cast<double>(top)) - 1, 0, height);
      rect.lastRow = ClampToInt(std::ceil(static_cast<double>(bottom)) + 1, -1, height - 1);
    }
    rects.push_back(rect);
  }
  // A negative or undefined half width reaches no pixel, not even the centre.
  if (stroke.halfWidth >= 0) {
    for (size_t i = 0; i < count; ++i) {
      if (!stroke.roundEnds && (i == 0 || i + 1 == count)) continue;
      const PointF& c = stroke.points[i];
      const auto rows = IsFinite(c) ? DiscRows(c.y, stroke.halfWidth, height) : std::make_pair(0, height - 1);
      discs.push_back({c, rows.first, rows.second});
    }
  }
  int firstRow = height;
  int lastRow = -1;
  for (const RectShape& r : rects) firstRow = std::min(firstRow, r.firstRow), lastRow = std::max(lastRow, r.lastRow);
  for (const DiscShape& d : discs) firstRow = std::min(firstRow, d.firstRow), lastRow = std::max(lastRow, d.lastRow);

  std::vector<Span> spans;
  std::vector<int> breaks;
  for (int y = firstRow; y <= lastRow; ++y) {
    spans.clear();
    for (const RectShape& r : rects) {
      if (y >= r.firstRow && y <= r.lastRow) RectRowSpans(r, y, width, spans, breaks);
    }
    for (const DiscShape& d : discs) {
      if (y >= d.firstRow && y <= d.lastRow) DiscRowSpans(d, stroke.halfWidth, y, width, spans);
    }
    if (spans.empty()) continue;
    // A pixel covered by several shapes is painted once, in column order.
    std::sort(spans.begin(), spans.end());
    int next = 0;
    for (const Span& s : spans) {
      for (int x = std::max(s.first, next); x <= s.second; ++x) paint(x, y);
      next = std::max(next, s.second + 1);
    }
  }
}

}  // namespace zel_erase

bool DeleteRectDib(CCA_Dib* dib, CMRL_DeviceRectTemplate<int> rect, std::shared_ptr<const ZELJson> description) {
  if (dib == nullptr || !(rect.right > rect.left) || !(rect.bottom > rect.top)) return false;
  int64_t left = std::max(rect.left, 0);
  int64_t top = std::max(rect.top, 0);
  int64_t right = std::max(rect.right, 0);
  int64_t bottom = std::max(rect.bottom, 0);

  const int64_t pitch = dib->GetPitch();
  const int64_t bytesPerPixel = dib->GetBPP() / 8;
  if (bytesPerPixel > 0) {
    // The row limit is the pitch, not the width: spare bytes at a row's end may be overwritten.
    if (left * bytesPerPixel > pitch) {
      left = right = pitch / bytesPerPixel;
    } else if (right * bytesPerPixel > pitch) {
      right = pitch / bytesPerPixel;
    }
  }
  const int64_t height = dib->GetHeight();
  if (top > height) {
    top = bottom = height;
  } else {
    bottom = std::min(bottom, height);
  }

  if (description) {
    const unsigned color = description->GetUint("ColorValue", 0xFFFFFFu);
    // SetPixel ignores columns past the width, so the loop need not visit them.
    const int64_t end = std::min<int64_t>(right, dib->GetWidth());
    for (int64_t y = top; y < bottom; ++y) {
      for (int64_t x = left; x < end; ++x) {
        dib->SetPixel(CMRL_PSVTemplate<int>(static_cast<int>(x), static_cast<int>(y)), color);
      }
    }
    return true;
  }

  unsigned char* buffer = dib->GetBuffer();
  if (buffer == nullptr) return true;
  int fill = 255;
  if (dib->GetPaletteSize() > 0) {
    unsigned lightest = 0;
    for (int i = 0; i < dib->GetPaletteSize(); ++i) {
      const unsigned entry = dib->GetPaletteEntry(i);
      const unsigned lightness = (entry & 0xFFu) + ((entry >> 8) & 0xFFu) + ((entry >> 16) & 0xFFu);
      if (i == 0 || lightness >= lightest) {
        lightest = lightness;
        fill = i;
      }
    }
  }
  int64_t firstByte = left * bytesPerPixel;
  int64_t endByte = right * bytesPerPixel;
  if (bytesPerPixel == 0) {
    // Packed rows: only bytes the rectangle covers whole are cleared, and never past the row.
    firstByte = left / 8;
    endByte = std::min(right / 8, pitch);
    fill = 0;
  }
  if (endByte <= firstByte) return true;
  for (int64_t y = top; y < bottom; ++y) {
    std::memset(buffer + y * pitch + firstByte, fill, static_cast<size_t>(endByte - firstByte));
  }
  return true;
}

bool DeletePathDib(CCA_Dib* dib, const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>>& points,
                   std::shared_ptr<const ZELJson> description) {
  const int count = points.GetSize();
  if (dib == nullptr || count < 2 || !description) return false;
  zel_erase::Stroke stroke;
  stroke.points.reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) stroke.points.push_back(points.GetAt(i));
  stroke.halfWidth = Single(static_cast<double>(description->GetFloat("LineWidth", 2.0f)) * 0.5);
  const unsigned color = description->GetUint("ColorValue", 0xFFFFFFu);
  stroke.roundEnds = description->GetInt("Cap", 2) != 2;
  zel_erase::ScanStroke(stroke, dib->GetWidth(), dib->GetHeight(), [dib, color](int x, int y) {
    dib->SetPixel(CMRL_PSVTemplate<int>(x, y), color);
  });
  return true;
}
