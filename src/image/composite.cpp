// CompositeDibInBM and GetAutoCalClipRect.
#include <zelutility/composite.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

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

// Products of each channel with its weight, so that a sum of table entries rounds exactly like
// green * 0.587 + red * 0.299 + blue * 0.114 evaluated left to right.
struct GrayWeights {
  double green[256];
  double red[256];
  double blue[256];
  GrayWeights() {
    for (int i = 0; i < 256; ++i) {
      green[i] = i * 0.587;
      red[i] = i * 0.299;
      blue[i] = i * 0.114;
    }
  }
};

inline unsigned char GrayOf(const GrayWeights& k, unsigned b, unsigned g, unsigned r) {
  return static_cast<unsigned char>(static_cast<int>(k.green[g] + k.red[r] + k.blue[b]));
}

inline std::uint64_t Load64(const unsigned char* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline std::uint32_t Load32(const unsigned char* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Words that keep the B, G, R bytes of one or two pixels and clear the fourth, whatever the
// machine's byte order (the compiler folds them to constants).
inline std::uint32_t ColourMask32() {
  const unsigned char bytes[4] = {0xFF, 0xFF, 0xFF, 0};
  return Load32(bytes);
}
inline std::uint64_t ColourMask64() {
  const unsigned char bytes[8] = {0xFF, 0xFF, 0xFF, 0, 0xFF, 0xFF, 0xFF, 0};
  return Load64(bytes);
}
// Two copies of one loaded pixel, as a load of two neighbouring pixels holding it would give.
inline std::uint64_t PixelPair(std::uint32_t pixel) {
  unsigned char bytes[8];
  std::memcpy(bytes, &pixel, 4);
  std::memcpy(bytes + 4, &pixel, 4);
  return Load64(bytes);
}

// Gray of one row of B, G, R, X pixels. Pages are mostly runs of one colour, so a block of
// eight pixels equal to the last one converted reuses its gray value. Answers the gray level
// when the whole row is one colour, else -1.
int GrayRow(const GrayWeights& k, const unsigned char* pixels, int w, unsigned char* out) {
  const std::uint64_t colourBits = ColourMask64();
  const std::uint32_t colourMask = ColourMask32();
  const std::uint32_t first = Load32(pixels) & colourMask;
  std::uint32_t last = first;
  unsigned char lastGray = GrayOf(k, pixels[0], pixels[1], pixels[2]);
  const unsigned char firstGray = lastGray;
  bool uniform = true;
  int x = 0;
  for (; x + 8 <= w; x += 8) {
    const unsigned char* p = pixels + static_cast<ptrdiff_t>(x) * 4;
    const std::uint64_t pair = PixelPair(last);
    if (((Load64(p) & colourBits) == pair) & ((Load64(p + 8) & colourBits) == pair) &
        ((Load64(p + 16) & colourBits) == pair) & ((Load64(p + 24) & colourBits) == pair)) {
      const std::uint64_t eight = lastGray * 0x0101010101010101ull;
      std::memcpy(out + x, &eight, sizeof eight);
      continue;
    }
    uniform = false;
    for (int i = 0; i < 8; ++i) {
      const std::uint32_t colour = Load32(p + i * 4) & colourMask;
      if (colour != last) {
        last = colour;
        lastGray = GrayOf(k, p[i * 4], p[i * 4 + 1], p[i * 4 + 2]);
      }
      out[x + i] = lastGray;
    }
  }
  for (; x < w; ++x) {
    const unsigned char* p = pixels + static_cast<ptrdiff_t>(x) * 4;
    uniform &= (Load32(p) & colourMask) == first;
    out[x] = GrayOf(k, p[0], p[1], p[2]);
  }
  return uniform && last == first ? firstGray : -1;
}

struct RowFlags {
  bool middle = false;   // holds a value between the thresholds
  bool nonzero = false;  // holds anything but 0
};

// Eight lanes at a time through the compiler's vector types, so SSE2 and NEON builds alike run
// the gradient without intrinsics.
using Bytes8 = unsigned char __attribute__((vector_size(8)));
using Shorts8 = std::int16_t __attribute__((vector_size(16)));

inline Shorts8 Load8(const unsigned char* p) {
  Bytes8 v;
  std::memcpy(&v, p, sizeof v);
  return __builtin_convertvector(v, Shorts8);
}

// Gradient magnitude of the middle row, clamped to 255 and put through both thresholds. The
// first and last columns stay 0.
RowFlags EdgeRow(const unsigned char* top, const unsigned char* mid, const unsigned char* bottom, int w,
                 unsigned char* out) {
  const Shorts8 zero = {}, strong = zero + 255, high = zero + 100, low = zero + 30;
  Shorts8 anyMiddle = zero, anyValue = zero;
  int x = 1;
  for (; x + 8 <= w - 1; x += 8) {
    // Ten equal bytes in each of the three rows: no gradient in these eight pixels.
    const std::uint64_t flat = Load64(mid + x - 1);
    if ((flat == (flat & 0xFF) * 0x0101010101010101ull) & (Load64(mid + x + 1) == flat) &
        (Load64(top + x - 1) == flat) & (Load64(top + x + 1) == flat) & (Load64(bottom + x - 1) == flat) &
        (Load64(bottom + x + 1) == flat)) {
      std::memset(out + x, 0, 8);
      continue;
    }
    const Shorts8 tl = Load8(top + x - 1), t = Load8(top + x), tr = Load8(top + x + 1);
    const Shorts8 l = Load8(mid + x - 1), r = Load8(mid + x + 1);
    const Shorts8 bl = Load8(bottom + x - 1), b = Load8(bottom + x), br = Load8(bottom + x + 1);
    const Shorts8 gx = (tr - tl) + 2 * (r - l) + (br - bl);
    const Shorts8 gy = (bl + 2 * b + br) - (tl + 2 * t + tr);
    Shorts8 magnitude = (gx < 0 ? -gx : gx) + (gy < 0 ? -gy : gy);
    magnitude = magnitude >= high ? strong : (magnitude < low ? zero : magnitude);
    anyMiddle |= magnitude != zero && magnitude != strong;
    anyValue |= magnitude;
    const Bytes8 packed = __builtin_convertvector(magnitude, Bytes8);
    std::memcpy(out + x, &packed, sizeof packed);
  }
  bool middle = false, value = false;
  for (int i = 0; i < 8; ++i) {
    middle |= anyMiddle[i] != 0;
    value |= anyValue[i] != 0;
  }
  for (; x < w - 1; ++x) {
    const int gx = (top[x + 1] - top[x - 1]) + 2 * (mid[x + 1] - mid[x - 1]) + (bottom[x + 1] - bottom[x - 1]);
    const int gy = (bottom[x - 1] + 2 * bottom[x] + bottom[x + 1]) - (top[x - 1] + 2 * top[x] + top[x + 1]);
    const int magnitude = std::min(std::abs(gx) + std::abs(gy), 255);
    const unsigned char v = static_cast<unsigned char>(magnitude >= 100 ? 255 : (magnitude < 30 ? 0 : magnitude));
    out[x] = v;
    middle |= v != 0 && v != 255;
    value |= v != 0;
  }
  out[0] = 0;
  out[w - 1] = 0;
  return {middle, value};
}

// Settles the middle values of a row in scan order: the row above is final, the row below is
// still only thresholded, and a pixel raised here counts for the next one to its right.
void LinkRow(const unsigned char* up, unsigned char* cur, const unsigned char* down, int w) {
  int x = 1;
  while (x < w - 1) {
    if (x + 8 <= w - 1) {
      const std::uint64_t word = Load64(cur + x);
      if (word == 0 || word == ~0ull) {
        x += 8;
        continue;
      }
    }
    const unsigned char v = cur[x];
    if (v != 0 && v != 255) {
      const bool strong = up[x - 1] == 255 || up[x] == 255 || up[x + 1] == 255 || cur[x - 1] == 255 ||
                          cur[x + 1] == 255 || down[x - 1] == 255 || down[x] == 255 || down[x + 1] == 255;
      cur[x] = strong ? 255 : 0;
    }
    ++x;
  }
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
  const int w = bitmap->GetWidth();
  const int h = bitmap->GetHeight();
  // Only three rows of gray and of edges are alive at a time; they rotate through these bitmaps.
  std::unique_ptr<CCA_Dib> grayRows(new CCA_Dib);
  if (!grayRows->Create(w, 3, CA_DIB_8bpp, nullptr)) return false;
  std::unique_ptr<CCA_Dib> edgeRows(new CCA_Dib);
  if (!edgeRows->Create(w, 3, CA_DIB_8bpp, nullptr)) return false;
  if (w < 3 || h < 3) return false;  // no interior: every gradient is 0

  static const GrayWeights weights;
  const unsigned char* pixels = bitmap->GetBuffer();
  const ptrdiff_t pitch = bitmap->GetPitch();
  auto gray = [&](int y) { return grayRows->GetScanline(y % 3); };
  auto edges = [&](int y) { return edgeRows->GetScanline(y % 3); };
  RowFlags flags[3];
  int level[3];  // gray level of a row of one colour, else -1
  // Three rows of one and the same colour have no gradient at all.
  auto edgeRow = [&](int y) {
    const int l = level[y % 3];
    if (l >= 0 && level[(y + 2) % 3] == l && level[(y + 1) % 3] == l) {
      std::memset(edges(y), 0, static_cast<size_t>(w));
      return RowFlags();
    }
    return EdgeRow(gray(y - 1), gray(y), gray(y + 1), w, edges(y));
  };

  for (int y = 0; y < 3; ++y) level[y] = GrayRow(weights, pixels + y * pitch, w, gray(y));
  std::memset(edges(0), 0, static_cast<size_t>(w));
  flags[0] = RowFlags();
  flags[1] = edgeRow(1);

  int left = w, top = h, right = 0, bottom = 0;
  for (int y = 1; y <= h - 2; ++y) {
    const int next = y + 1;
    if (next <= h - 2) {
      level[(next + 1) % 3] = GrayRow(weights, pixels + (next + 1) * pitch, w, gray(next + 1));
      flags[next % 3] = edgeRow(next);
    } else {
      std::memset(edges(next), 0, static_cast<size_t>(w));
      flags[next % 3] = RowFlags();
    }
    const RowFlags& row = flags[y % 3];
    if (row.middle) LinkRow(edges(y - 1), edges(y), edges(next), w);
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
