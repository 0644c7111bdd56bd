#ifndef ZELUTILITY_SRC_IMAGE_CONTENT_BOUNDS_KERNELS_H_
#define ZELUTILITY_SRC_IMAGE_CONTENT_BOUNDS_KERNELS_H_

// Row kernels of the content-bounds search (gray, thresholded gradient, linking), one set per
// instruction set, chosen once at run time. Every set gives the same bytes as the plain passes of
// auto_clip_reference.h; the scalar helpers below are the shared definition they all fall back on.
#include <cstddef>
#include <cstdlib>

#include <mrlbase/device_rect.h>
#include <mrlbase/dib.h>

// Which row kernels FindContentBounds runs: the widest is what GetAutoCalClipRect uses; the
// others exist so that tests and benchmarks can run every path on one machine.
enum class ContentBoundsKernels { kPortable, kSse2, kAvx2, kWidest };

// True when this build and processor can run `kernels` (kPortable and kWidest always can).
bool ContentBoundsKernelsAvailable(ContentBoundsKernels kernels) noexcept;

// GetAutoCalClipRect with the given row kernels. Same contract: true and the rectangle of the
// content with a margin of one when there is any, false and `rect` untouched otherwise.
// Kernels that are not available fall back to the portable ones.
bool FindContentBounds(const CCA_Dib* bitmap, CMRL_DeviceRectTemplate<int>& rect, ContentBoundsKernels kernels);

namespace content_bounds {

struct EdgeFlags {
  bool middle = false;   // the row holds a value between the thresholds
  bool nonzero = false;  // the row holds anything but 0
};

struct RowKernels {
  // Gray of `w` B, G, R, X pixels into out[0..w). Answers the gray level when all pixels have one
  // colour (the fourth byte aside), else -1. w >= 1.
  int (*gray)(const unsigned char* pixels, int w, unsigned char* out) noexcept;

  // Gradient magnitude of the middle row, clamped to 255 and through both thresholds, into
  // out[1..w-2]; out[0] and out[w-1] become 0. w >= 3.
  EdgeFlags (*edges)(const unsigned char* top, const unsigned char* mid, const unsigned char* bottom, int w,
                     unsigned char* out) noexcept;

  // Settles the middle values of `cur` in scan order against the final row above and the
  // thresholded row below; a pixel raised counts for the next one to its right. w >= 3.
  void (*link)(const unsigned char* up, unsigned char* cur, const unsigned char* down, int w) noexcept;
};

const RowKernels& PortableRowKernels() noexcept;

// SSE2 kernels; null when the build is not for x86-64.
const RowKernels* Sse2RowKernels() noexcept;

// AVX2 kernels; null when the build or the processor lacks AVX2.
const RowKernels* Avx2RowKernels() noexcept;

// The widest kernels this processor runs.
const RowKernels& BestRowKernels() noexcept;

// The gray of one pixel as the plain pass computes it: weighted in double precision, summed in
// this order, cut towards zero.
inline unsigned char GrayOf(unsigned b, unsigned g, unsigned r) noexcept {
  return static_cast<unsigned char>(static_cast<int>(g * 0.587 + r * 0.299 + b * 0.114));
}

// Thresholded gradient at column x of the middle row.
inline unsigned char EdgeAt(const unsigned char* top, const unsigned char* mid, const unsigned char* bottom,
                            int x) noexcept {
  const int gx = (top[x + 1] - top[x - 1]) + 2 * (mid[x + 1] - mid[x - 1]) + (bottom[x + 1] - bottom[x - 1]);
  const int gy = (bottom[x - 1] + 2 * bottom[x] + bottom[x + 1]) - (top[x - 1] + 2 * top[x] + top[x + 1]);
  const int magnitude = std::abs(gx) + std::abs(gy);
  return static_cast<unsigned char>(magnitude >= 100 ? 255 : (magnitude < 30 ? 0 : magnitude));
}

// Gray of pixels x..w-1 one by one; answers the row's one gray level when `uniform` holds after
// them too, else -1.
inline int FinishGrayRow(const unsigned char* pixels, int x, int w, unsigned char* out, bool uniform,
                         unsigned char firstGray) noexcept {
  for (; x < w; ++x) {
    const unsigned char* p = pixels + static_cast<ptrdiff_t>(x) * 4;
    uniform &= p[0] == pixels[0] && p[1] == pixels[1] && p[2] == pixels[2];
    out[x] = GrayOf(p[0], p[1], p[2]);
  }
  return uniform ? firstGray : -1;
}

// Edge columns x..w-2 one by one, then the zero border columns; `flags` gains what they hold.
inline void FinishEdgeRow(const unsigned char* top, const unsigned char* mid, const unsigned char* bottom,
                          unsigned char* out, int x, int w, EdgeFlags& flags) noexcept {
  for (; x < w - 1; ++x) {
    const unsigned char v = EdgeAt(top, mid, bottom, x);
    out[x] = v;
    flags.middle |= v != 0 && v != 255;
    flags.nonzero |= v != 0;
  }
  out[0] = 0;
  out[w - 1] = 0;
}

// Links columns x..w-2 of `cur` one by one.
inline void LinkFrom(const unsigned char* up, unsigned char* cur, const unsigned char* down, int x,
                     int w) noexcept {
  for (; x < w - 1; ++x) {
    const unsigned char v = cur[x];
    if (v == 0 || v == 255) continue;
    const bool strong = up[x - 1] == 255 || up[x] == 255 || up[x + 1] == 255 || cur[x - 1] == 255 ||
                        cur[x + 1] == 255 || down[x - 1] == 255 || down[x] == 255 || down[x + 1] == 255;
    cur[x] = strong ? 255 : 0;
  }
}

// Within a run of middle values a raised pixel raises every later one, so the final state of a
// block follows from two masks (bit i for column i): `middle`, and `seeds`, the middle columns
// that see a 255 among their neighbours before any of this block changes (the column left of
// the block already settled). Adding the seeds to the middle bits carries through each run from
// its first seed to its end; the answer is the middle columns that end up 255.
inline unsigned long long RaisedColumns(unsigned long long middle, unsigned long long seeds) noexcept {
  return (middle & ~(middle + seeds)) | seeds;
}

}  // namespace content_bounds

#endif  // ZELUTILITY_SRC_IMAGE_CONTENT_BOUNDS_KERNELS_H_
