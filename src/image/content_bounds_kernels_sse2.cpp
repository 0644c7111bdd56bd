// SSE2 row kernels of the content-bounds search: the baseline of every x86-64 processor.
#include "image/content_bounds_kernels.h"

#if defined(__x86_64__) && defined(__SSE2__)

#include <emmintrin.h>

#include <cstdint>
#include <cstring>

namespace content_bounds {

namespace {

// 114 b + 587 g + 299 r for four pixels: exactly 1000 times the weighted sum of the gray.
inline __m128i Sums4(__m128i pixels) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i weights = _mm_setr_epi16(114, 587, 299, 0, 114, 587, 299, 0);
  const __m128 a = _mm_castsi128_ps(_mm_madd_epi16(_mm_unpacklo_epi8(pixels, zero), weights));
  const __m128 b = _mm_castsi128_ps(_mm_madd_epi16(_mm_unpackhi_epi8(pixels, zero), weights));
  return _mm_add_epi32(_mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0))),
                       _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1))));
}

// The gray of four pixels in double precision, as the plain pass computes it, as four 32-bit
// lanes. Only needed where the integer sum lands on a whole number (see Gray8).
inline __m128i ExactGray4(__m128i pixels) {
  const __m128i byte = _mm_set1_epi32(0xFF);
  const __m128i b = _mm_and_si128(pixels, byte);
  const __m128i g = _mm_and_si128(_mm_srli_epi32(pixels, 8), byte);
  const __m128i r = _mm_and_si128(_mm_srli_epi32(pixels, 16), byte);
  auto two = [](__m128i b2, __m128i g2, __m128i r2) {
    const __m128d sum = _mm_add_pd(_mm_add_pd(_mm_mul_pd(_mm_cvtepi32_pd(g2), _mm_set1_pd(0.587)),
                                              _mm_mul_pd(_mm_cvtepi32_pd(r2), _mm_set1_pd(0.299))),
                                   _mm_mul_pd(_mm_cvtepi32_pd(b2), _mm_set1_pd(0.114)));
    return _mm_cvttpd_epi32(sum);
  };
  const __m128i low = two(b, g, r);
  const __m128i high = two(_mm_srli_si128(b, 8), _mm_srli_si128(g, 8), _mm_srli_si128(r, 8));
  return _mm_unpacklo_epi64(low, high);
}

// Gray of eight pixels in the low eight bytes. The sum over 1000 rounded down is the gray except
// where the sum is a non-zero multiple of 1000: there the double sum may fall a hair below the
// whole number, and those blocks take the double path.
inline __m128i Gray8(__m128i p0, __m128i p1) {
  const __m128i s0 = Sums4(p0), s1 = Sums4(p1);
  // sum / 8 fits 15 bits; x * 33555 >> 22 is x / 125 rounded down for every x below 2^15.
  const __m128i eighths = _mm_packs_epi32(_mm_srli_epi32(s0, 3), _mm_srli_epi32(s1, 3));
  const __m128i q = _mm_srli_epi16(_mm_mulhi_epu16(eighths, _mm_set1_epi16(static_cast<short>(33555))), 6);
  const __m128i seven = _mm_set1_epi32(7), zero = _mm_setzero_si128();
  const __m128i low = _mm_packs_epi32(_mm_and_si128(s0, seven), _mm_and_si128(s1, seven));
  const __m128i whole = _mm_andnot_si128(
      _mm_cmpeq_epi16(eighths, zero),
      _mm_and_si128(_mm_cmpeq_epi16(low, zero), _mm_cmpeq_epi16(_mm_mullo_epi16(q, _mm_set1_epi16(125)), eighths)));
  if (_mm_movemask_epi8(whole) != 0)
    return _mm_packus_epi16(_mm_packs_epi32(ExactGray4(p0), ExactGray4(p1)), zero);
  return _mm_packus_epi16(q, zero);
}

int GrayRow(const unsigned char* pixels, int w, unsigned char* out) noexcept {
  const __m128i colourMask = _mm_set1_epi32(0x00FFFFFF);
  std::uint32_t firstPixel;
  std::memcpy(&firstPixel, pixels, 4);
  const unsigned char firstGray = GrayOf(pixels[0], pixels[1], pixels[2]);
  // Pages are mostly runs of one colour: a block equal to the last pixel converted reuses its gray.
  __m128i last = _mm_and_si128(_mm_set1_epi32(static_cast<int>(firstPixel)), colourMask);
  unsigned char lastGray = firstGray;
  bool uniform = true;
  int x = 0;
  for (; x + 8 <= w; x += 8) {
    const unsigned char* p = pixels + static_cast<ptrdiff_t>(x) * 4;
    const __m128i p0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i p1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16));
    const __m128i same = _mm_and_si128(_mm_cmpeq_epi32(_mm_and_si128(p0, colourMask), last),
                                       _mm_cmpeq_epi32(_mm_and_si128(p1, colourMask), last));
    if (_mm_movemask_epi8(same) == 0xFFFF) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + x), _mm_set1_epi8(static_cast<char>(lastGray)));
      continue;
    }
    uniform = false;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + x), Gray8(p0, p1));
    last = _mm_and_si128(_mm_shuffle_epi32(p1, _MM_SHUFFLE(3, 3, 3, 3)), colourMask);
    lastGray = out[x + 7];
  }
  return FinishGrayRow(pixels, x, w, out, uniform, firstGray);
}

inline __m128i Load16(const unsigned char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

inline __m128i Abs16(__m128i v) { return _mm_max_epi16(v, _mm_sub_epi16(_mm_setzero_si128(), v)); }

// |gx| + |gy| of eight columns whose neighbours are given as 16-bit lanes.
inline __m128i Magnitude8(__m128i tl, __m128i t, __m128i tr, __m128i l, __m128i r, __m128i bl, __m128i b,
                          __m128i br) {
  const __m128i gx =
      _mm_add_epi16(_mm_add_epi16(_mm_sub_epi16(tr, tl), _mm_sub_epi16(br, bl)), _mm_slli_epi16(_mm_sub_epi16(r, l), 1));
  const __m128i gy = _mm_sub_epi16(_mm_add_epi16(_mm_add_epi16(bl, br), _mm_slli_epi16(b, 1)),
                                   _mm_add_epi16(_mm_add_epi16(tl, tr), _mm_slli_epi16(t, 1)));
  return _mm_add_epi16(Abs16(gx), Abs16(gy));
}

EdgeFlags EdgeRow(const unsigned char* top, const unsigned char* mid, const unsigned char* bottom, int w,
                  unsigned char* out) noexcept {
  const __m128i zero = _mm_setzero_si128(), strong = _mm_set1_epi8(-1);
  __m128i anyMiddle = zero, anyValue = zero;
  int x = 1;
  for (; x + 16 <= w - 1; x += 16) {
    const __m128i tl = Load16(top + x - 1), t = Load16(top + x), tr = Load16(top + x + 1);
    const __m128i l = Load16(mid + x - 1), r = Load16(mid + x + 1);
    const __m128i bl = Load16(bottom + x - 1), b = Load16(bottom + x), br = Load16(bottom + x + 1);
    auto lo = [zero](__m128i v) { return _mm_unpacklo_epi8(v, zero); };
    auto hi = [zero](__m128i v) { return _mm_unpackhi_epi8(v, zero); };
    // Saturating to bytes is the clamp to 255.
    __m128i v = _mm_packus_epi16(Magnitude8(lo(tl), lo(t), lo(tr), lo(l), lo(r), lo(bl), lo(b), lo(br)),
                                 Magnitude8(hi(tl), hi(t), hi(tr), hi(l), hi(r), hi(bl), hi(b), hi(br)));
    const __m128i high = _mm_cmpeq_epi8(_mm_max_epu8(v, _mm_set1_epi8(100)), v);
    const __m128i low = _mm_cmpeq_epi8(_mm_subs_epu8(_mm_set1_epi8(30), v), zero);  // v >= 30
    v = _mm_and_si128(_mm_or_si128(v, high), low);
    anyValue = _mm_or_si128(anyValue, v);
    anyMiddle = _mm_or_si128(anyMiddle, _mm_andnot_si128(_mm_or_si128(_mm_cmpeq_epi8(v, zero), _mm_cmpeq_epi8(v, strong)),
                                                         strong));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), v);
  }
  EdgeFlags flags;
  flags.middle = _mm_movemask_epi8(anyMiddle) != 0;
  flags.nonzero = _mm_movemask_epi8(_mm_cmpeq_epi8(anyValue, zero)) != 0xFFFF;
  FinishEdgeRow(top, mid, bottom, out, x, w, flags);
  return flags;
}

// 0xFF in byte i where bit i of `bits` is set.
inline __m128i BitsToBytes(unsigned bits) {
  const __m128i select = _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 1, 2, 4, 8, 16, 32, 64, -128);
  const __m128i spread = _mm_unpacklo_epi64(_mm_set1_epi8(static_cast<char>(bits)),
                                            _mm_set1_epi8(static_cast<char>(bits >> 8)));
  return _mm_cmpeq_epi8(_mm_and_si128(spread, select), select);
}

void LinkRow(const unsigned char* up, unsigned char* cur, const unsigned char* down, int w) noexcept {
  const __m128i zero = _mm_setzero_si128(), strong = _mm_set1_epi8(-1);
  int x = 1;
  for (; x + 16 <= w - 1; x += 16) {
    const __m128i c = Load16(cur + x);
    const __m128i settled = _mm_or_si128(_mm_cmpeq_epi8(c, zero), _mm_cmpeq_epi8(c, strong));
    const unsigned middle = ~static_cast<unsigned>(_mm_movemask_epi8(settled)) & 0xFFFF;
    if (middle == 0) continue;
    auto is255 = [strong](const unsigned char* p) { return _mm_cmpeq_epi8(Load16(p), strong); };
    const __m128i near = _mm_or_si128(
        _mm_or_si128(_mm_or_si128(is255(up + x - 1), is255(up + x)), _mm_or_si128(is255(up + x + 1), is255(cur + x - 1))),
        _mm_or_si128(_mm_or_si128(is255(cur + x + 1), is255(down + x - 1)),
                     _mm_or_si128(is255(down + x), is255(down + x + 1))));
    const unsigned seeds = middle & static_cast<unsigned>(_mm_movemask_epi8(near));
    const unsigned raised = static_cast<unsigned>(RaisedColumns(middle, seeds)) & 0xFFFF;
    const __m128i kept = _mm_andnot_si128(BitsToBytes(middle), c);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cur + x), _mm_or_si128(kept, BitsToBytes(raised)));
  }
  LinkFrom(up, cur, down, x, w);
}

constexpr RowKernels kSse2 = {GrayRow, EdgeRow, LinkRow};

}  // namespace

const RowKernels* Sse2RowKernels() noexcept { return &kSse2; }

}  // namespace content_bounds

#else

namespace content_bounds {

const RowKernels* Sse2RowKernels() noexcept { return nullptr; }

}  // namespace content_bounds

#endif
