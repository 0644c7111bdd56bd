// Portable row kernels of the content-bounds search, and the choice among the kernel sets.
#include "image/content_bounds_kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace content_bounds {

namespace {

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

// Pages are mostly runs of one colour, so a block of eight pixels equal to the last one
// converted reuses its gray value.
int GrayRow(const unsigned char* pixels, int w, unsigned char* out) noexcept {
  static const GrayWeights k;
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

// Eight lanes at a time through the compiler's vector types, so that any target vectorises the
// gradient without intrinsics.
using Bytes8 = unsigned char __attribute__((vector_size(8)));
using Shorts8 = std::int16_t __attribute__((vector_size(16)));

inline Shorts8 Load8(const unsigned char* p) {
  Bytes8 v;
  std::memcpy(&v, p, sizeof v);
  return __builtin_convertvector(v, Shorts8);
}

EdgeFlags EdgeRow(const unsigned char* top, const unsigned char* mid, const unsigned char* bottom, int w,
                  unsigned char* out) noexcept {
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
  EdgeFlags flags;
  for (int i = 0; i < 8; ++i) {
    flags.middle |= anyMiddle[i] != 0;
    flags.nonzero |= anyValue[i] != 0;
  }
  FinishEdgeRow(top, mid, bottom, out, x, w, flags);
  return flags;
}

void LinkRow(const unsigned char* up, unsigned char* cur, const unsigned char* down, int w) noexcept {
  int x = 1;
  while (x < w - 1) {
    if (x + 8 <= w - 1) {
      const std::uint64_t word = Load64(cur + x);
      if (word == 0 || word == ~0ull) {
        x += 8;
        continue;
      }
    }
    LinkFrom(up, cur, down, x, x + 2);  // the one column x
    ++x;
  }
}

constexpr RowKernels kPortable = {GrayRow, EdgeRow, LinkRow};

}  // namespace

const RowKernels& PortableRowKernels() noexcept { return kPortable; }

const RowKernels& BestRowKernels() noexcept {
  static const RowKernels* const best = [] {
    if (const RowKernels* avx2 = Avx2RowKernels()) return avx2;
    if (const RowKernels* sse2 = Sse2RowKernels()) return sse2;
    return &kPortable;
  }();
  return *best;
}

}  // namespace content_bounds

bool ContentBoundsKernelsAvailable(ContentBoundsKernels kernels) noexcept {
  switch (kernels) {
    case ContentBoundsKernels::kSse2: return content_bounds::Sse2RowKernels() != nullptr;
    case ContentBoundsKernels::kAvx2: return content_bounds::Avx2RowKernels() != nullptr;
    case ContentBoundsKernels::kPortable:
    case ContentBoundsKernels::kWidest: return true;
  }
  return false;
}
