// CompositeDibInBM and GetAutoCalClipRect.
#include <zelutility/composite.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "image/content_bounds_kernels.h"

namespace {

using Point = CMRL_PSVTemplate<int>;

// Mode 30 over the inclusive rectangle, reading and writing through the bitmap's pixel calls.
// False when the rectangle or the source area lies wholly outside its bitmap: no pixel was visited.
bool CompositeHsbArea(const CCA_Dib& source, CCA_Dib& target, CMRL_DeviceRectTemplate<int>& rect, const Point& point) {
  const int tw = target.GetWidth();
  const int th = target.GetHeight();
  const int sw = source.GetWidth();
  const int sh = source.GetHeight();
  if (rect.left > rect.right) std::swap(rect.left, rect.right);
  if (rect.top > rect.bottom) std::swap(rect.top, rect.bottom);
  if (rect.left > tw || rect.top > th || rect.right < 0 || rect.bottom < 0) return false;
  rect.left = std::max(rect.left, 0);
  rect.top = std::max(rect.top, 0);
  rect.right = std::min(rect.right, tw);
  rect.bottom = std::min(rect.bottom, th);

  // The source area keeps its start when the rectangle is clipped; its far corner follows the clip.
  long long farX = static_cast<long long>(point.x) - rect.left + rect.right;
  long long farY = static_cast<long long>(point.y) - rect.top + rect.bottom;
  if (point.x > sw || point.y > sh || farX < 0 || farY < 0) return false;
  farX = std::min<long long>(farX, sw);
  farY = std::min<long long>(farY, sh);
  const int startX = std::max(point.x, 0);
  const int startY = std::max(point.y, 0);

  for (long long x = rect.left, sx = startX; x <= rect.right && sx <= farX; ++x, ++sx) {
    if (x >= tw || sx >= sw) continue;
    for (long long y = rect.top, sy = startY; y <= rect.bottom && sy <= farY; ++y, ++sy) {
      if (y >= th || sy >= sh) continue;
      const Point at(static_cast<int>(x), static_cast<int>(y));
      const unsigned backdrop = target.GetPixel(at);
      const unsigned colour = source.GetPixel(Point(static_cast<int>(sx), static_cast<int>(sy)));
      unsigned out = 0;
      CompositeHSBColor(colour, backdrop, &out);
      target.SetPixel(at, out);
    }
  }
  return true;
}

inline std::uint64_t Load64(const unsigned char* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

const content_bounds::RowKernels& KernelsFor(ContentBoundsKernels choice) noexcept {
  const content_bounds::RowKernels* kernels = nullptr;
  switch (choice) {
    case ContentBoundsKernels::kPortable: break;
    case ContentBoundsKernels::kSse2: kernels = content_bounds::Sse2RowKernels(); break;
    case ContentBoundsKernels::kAvx2: kernels = content_bounds::Avx2RowKernels(); break;
    case ContentBoundsKernels::kWidest: return content_bounds::BestRowKernels();
  }
  return kernels ? *kernels : content_bounds::PortableRowKernels();
}

// First and last non-zero column of a row; false when the row is all zero.
bool RowExtent(const unsigned char* row, int w, int& first, int& last) {
  int x = 0;
  while (x + 8 <= w && Load64(row + x) == 0) x += 8;
  while (x < w && row[x] == 0) ++x;
  if (x == w) return false;
  first = x;
  int y = w;
  while (y - 8 > x && Load64(row + y - 8) == 0) y -= 8;
  while (row[y - 1] == 0) --y;
  last = y - 1;
  return true;
}

}  // namespace

bool CompositeDibInBM(CCA_Dib* source, CCA_Dib* target, CA_BlendMode mode, CMRL_DeviceRectTemplate<int>& rect,
                      CMRL_PSVTemplate<int>& point) {
  if (!source || !target) return false;
  std::unique_ptr<CCA_Dib> mask(target->HasAlpha() ? target->GetAlpha(nullptr) : nullptr);
  if (mode != CA_BLEND_HSB) {
    const bool done = target->CompositeBitmap(rect, source, point, mode, nullptr) != 0;
    if (mask) target->MultiplyAlpha(mask.get());
    return done;
  }
  // With nothing to do the target stays exactly as it was: its alpha is not multiplied either.
  if (CompositeHsbArea(*source, *target, rect, point) && mask) target->MultiplyAlpha(mask.get());
  return true;
}

bool GetAutoCalClipRect(const CCA_Dib* bitmap, CMRL_DeviceRectTemplate<int>& rect) {
  return FindContentBounds(bitmap, rect, ContentBoundsKernels::kWidest);
}

bool FindContentBounds(const CCA_Dib* bitmap, CMRL_DeviceRectTemplate<int>& rect, ContentBoundsKernels choice) {
  using content_bounds::EdgeFlags;
  const content_bounds::RowKernels& kernels = KernelsFor(choice);
  const int w = bitmap->GetWidth();
  const int h = bitmap->GetHeight();
  // Only three rows of gray and of edges are alive at a time; they rotate through these bitmaps.
  std::unique_ptr<CCA_Dib> grayRows(new CCA_Dib);
  if (!grayRows->Create(w, 3, CA_DIB_8bpp, nullptr)) return false;
  std::unique_ptr<CCA_Dib> edgeRows(new CCA_Dib);
  if (!edgeRows->Create(w, 3, CA_DIB_8bpp, nullptr)) return false;
  if (w < 3 || h < 3) return false;  // no interior: every gradient is 0

  const unsigned char* pixels = bitmap->GetBuffer();
  const ptrdiff_t pitch = bitmap->GetPitch();
  auto gray = [&](int y) { return grayRows->GetScanline(y % 3); };
  auto edges = [&](int y) { return edgeRows->GetScanline(y % 3); };
  EdgeFlags flags[3];
  int level[3];  // gray level of a row of one colour, else -1
  // Three rows of one and the same colour have no gradient at all.
  auto edgeRow = [&](int y) {
    const int l = level[y % 3];
    if (l >= 0 && level[(y + 2) % 3] == l && level[(y + 1) % 3] == l) {
      std::memset(edges(y), 0, static_cast<size_t>(w));
      return EdgeFlags();
    }
    return kernels.edges(gray(y - 1), gray(y), gray(y + 1), w, edges(y));
  };

  for (int y = 0; y < 3; ++y) level[y] = kernels.gray(pixels + y * pitch, w, gray(y));
  std::memset(edges(0), 0, static_cast<size_t>(w));
  flags[0] = EdgeFlags();
  flags[1] = edgeRow(1);

  int left = w, top = h, right = 0, bottom = 0;
  for (int y = 1; y <= h - 2; ++y) {
    const int next = y + 1;
    if (next <= h - 2) {
      level[(next + 1) % 3] = kernels.gray(pixels + (next + 1) * pitch, w, gray(next + 1));
      flags[next % 3] = edgeRow(next);
    } else {
      std::memset(edges(next), 0, static_cast<size_t>(w));
      flags[next % 3] = EdgeFlags();
    }
    const EdgeFlags& row = flags[y % 3];
    if (row.middle) kernels.link(edges(y - 1), edges(y), edges(next), w);
    int first = 0, last = 0;
    if (row.nonzero && RowExtent(edges(y), w, first, last)) {
      left = std::min(left, first);
      right = std::max(right, last);
      top = std::min(top, y);
      bottom = y;
    }
  }
  if (left > right || top > bottom) return false;
  rect = CMRL_DeviceRectTemplate<int>(left - 1, top - 1, right + 1, bottom + 1);
  return true;
}
