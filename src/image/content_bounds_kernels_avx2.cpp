// AVX2 row kernels of the content-bounds search, compiled for that target function by function
// and offered only when the processor has it.
#include "image/content_bounds_kernels.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))

#include <immintrin.h>

#include <cstdint>
#include <cstring>

#define ZEL_CONTENT_BOUNDS_AVX2 __attribute__((target("avx2")))

namespace content_bounds {

namespace {

// 114 b + 587 g + 299 r for eight pixels, in order: exactly 1000 times the weighted sum.
ZEL_CONTENT_BOUNDS_AVX2 inline __m256i Sums8(__m256i pixels) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i weights = _mm256_setr_epi16(114, 587, 299, 0, 114, 587, 299, 0, 114, 587, 299, 0, 114, 587, 299, 0);
  const __m256i a = _mm256_madd_epi16(_mm256_unpacklo_epi8(pixels, zero), weights);  // pixels 0, 1 | 4, 5
  const __m256i b = _mm256_madd_epi16(_mm256_unpackhi_epi8(pixels, zero), weights);  // pixels 2, 3 | 6, 7
  return _mm256_hadd_epi32(a, b);
}

// The gray of four pixels in double precision, as the plain pass computes it.
ZEL_CONTENT_BOUNDS_AVX2 inline __m128i ExactGray4(__m128i pixels) {
  const __m128i byte = _mm_set1_epi32(0xFF);
  const __m256d b = _mm256_cvtepi32_pd(_mm_and_si128(pixels, byte));
  const __m256d g = _mm256_cvtepi32_pd(_mm_and_si128(_mm_srli_epi32(pixels, 8), byte));
  const __m256d r = _mm256_cvtepi32_pd(_mm_and_si128(_mm_srli_epi32(pixels, 16), byte));
  const __m256d sum = _mm256_add_pd(
      _mm256_add_pd(_mm256_mul_pd(g, _mm256_set1_pd(0.587)), _mm256_mul_pd(r, _mm256_set1_pd(0.299))),
      _mm256_mul_pd(b, _mm256_set1_pd(0.114)));
  return _mm256_cvttpd_epi32(sum);
}

// Neutral colours (b = g = r = v) sum to exactly 1000 v, and for some v the double sum falls a
// hair below v, so their gray is v - 1. Bit v of these 32 bytes is set for those v.
struct NeutralDips {
  unsigned char bits[32] = {};
  NeutralDips() {
    for (unsigned v = 0; v < 256; ++v)
      if (GrayOf(v, v, v) != v) bits[v >> 3] = static_cast<unsigned char>(bits[v >> 3] | 1u << (v & 7));
  }
};

// 1 in the bytes whose value v has its bit set in the table (`low` and `high` are its halves).
ZEL_CONTENT_BOUNDS_AVX2 inline __m128i Dips(__m128i v, __m128i low, __m128i high) {
  const __m128i index = _mm_and_si128(_mm_srli_epi16(v, 3), _mm_set1_epi8(0x0F));
  const __m128i byte = _mm_blendv_epi8(_mm_shuffle_epi8(low, index), _mm_shuffle_epi8(high, index), v);
  const __m128i bit = _mm_shuffle_epi8(_mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 1, 2, 4, 8, 16, 32, 64, -128),
                                       _mm_and_si128(v, _mm_set1_epi8(7)));
  return _mm_min_epu8(_mm_and_si128(byte, bit), _mm_set1_epi8(1));
}

// The bytes of a vector of sixteen 16-bit lanes in the quarter order below, put in pixel order.
ZEL_CONTENT_BOUNDS_AVX2 inline __m128i Ordered(__m256i lanes, bool saturateUnsigned) {
  const __m256i ordered = _mm256_permute4x64_epi64(lanes, _MM_SHUFFLE(3, 1, 2, 0));
  const __m128i a = _mm256_castsi256_si128(ordered), b = _mm256_extracti128_si256(ordered, 1);
  return saturateUnsigned ? _mm_packus_epi16(a, b) : _mm_packs_epi16(a, b);
}

// Gray of sixteen pixels. As in the SSE2 kernel, the integer sum over 1000 rounded down, except
// where a sum is a non-zero multiple of 1000: neutral pixels there take the table of dips, and
// a block with any other such pixel takes the double path.
ZEL_CONTENT_BOUNDS_AVX2 inline __m128i Gray16(__m256i p0, __m256i p1, __m128i dipsLow, __m128i dipsHigh) {
  const __m256i s0 = Sums8(p0), s1 = Sums8(p1);
  // 64-bit quarters: pixels 0-3, 8-11, 4-7, 12-15.
  const __m256i eighths = _mm256_packs_epi32(_mm256_srli_epi32(s0, 3), _mm256_srli_epi32(s1, 3));
  const __m256i q =
      _mm256_srli_epi16(_mm256_mulhi_epu16(eighths, _mm256_set1_epi16(static_cast<short>(33555))), 6);
  const __m256i seven = _mm256_set1_epi32(7), zero = _mm256_setzero_si256();
  const __m256i low = _mm256_packs_epi32(_mm256_and_si256(s0, seven), _mm256_and_si256(s1, seven));
  const __m256i whole = _mm256_andnot_si256(
      _mm256_cmpeq_epi16(eighths, zero),
      _mm256_and_si256(_mm256_cmpeq_epi16(low, zero),
                       _mm256_cmpeq_epi16(_mm256_mullo_epi16(q, _mm256_set1_epi16(125)), eighths)));
  const __m128i gray = Ordered(q, true);
  if (_mm256_testz_si256(whole, whole)) return gray;
  // b ^ g and g ^ r both zero, in the same lanes as `whole`.
  const __m256i pair = _mm256_set1_epi32(0xFFFF);
  const __m256i neutral = _mm256_packs_epi32(
      _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_xor_si256(p0, _mm256_srli_epi32(p0, 8)), pair), zero),
      _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_xor_si256(p1, _mm256_srli_epi32(p1, 8)), pair), zero));
  if (_mm256_testc_si256(neutral, whole))  // every whole sum is a neutral pixel's: its q is its v
    return _mm_sub_epi8(gray, _mm_and_si128(Ordered(whole, false), Dips(gray, dipsLow, dipsHigh)));
  const __m128i a = _mm_packs_epi32(ExactGray4(_mm256_castsi256_si128(p0)), ExactGray4(_mm256_extracti128_si256(p0, 1)));
  const __m128i b = _mm_packs_epi32(ExactGray4(_mm256_castsi256_si128(p1)), ExactGray4(_mm256_extracti128_si256(p1, 1)));
  return _mm_packus_epi16(a, b);
}

ZEL_CONTENT_BOUNDS_AVX2 int GrayRow(const unsigned char* pixels, int w, unsigned char* out) noexcept {
  const __m256i colourMask = _mm256_set1_epi32(0x00FFFFFF);
  std::uint32_t firstPixel;
  std::memcpy(&firstPixel, pixels, 4);
  const unsigned char firstGray = GrayOf(pixels[0], pixels[1], pixels[2]);
  // Pages are mostly runs of one colour: a block equal to the last pixel converted reuses its gray.
  __m256i last = _mm256_and_si256(_mm256_set1_epi32(static_cast<int>(firstPixel)), colourMask);
  unsigned char lastGray = firstGray;
  bool uniform = true;
  static const NeutralDips dips;
  const __m128i dipsLow = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dips.bits));
  const __m128i dipsHigh = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dips.bits + 16));
  int x = 0;
  for (; x + 16 <= w; x += 16) {
    const unsigned char* p = pixels + static_cast<ptrdiff_t>(x) * 4;
    const __m256i p0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i p1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32));
    const __m256i differ = _mm256_or_si256(_mm256_xor_si256(_mm256_and_si256(p0, colourMask), last),
                                           _mm256_xor_si256(_mm256_and_si256(p1, colourMask), last));
    if (_mm256_testz_si256(differ, differ)) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), _mm_set1_epi8(static_cast<char>(lastGray)));
      continue;
    }
    uniform = false;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), Gray16(p0, p1, dipsLow, dipsHigh));
    last = _mm256_and_si256(_mm256_permutevar8x32_epi32(p1, _mm256_set1_epi32(7)), colourMask);
    lastGray = out[x + 15];
  }
  return FinishGrayRow(pixels, x, w, out, uniform, firstGray);
}

ZEL_CONTENT_BOUNDS_AVX2 inline __m256i Widen16(const unsigned char* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

ZEL_CONTENT_BOUNDS_AVX2 EdgeFlags EdgeRow(const unsigned char* top, const unsigned char* mid,
                                          const unsigned char* bottom, int w, unsigned char* out) noexcept {
  const __m128i zero = _mm_setzero_si128(), strong = _mm_set1_epi8(-1);
  __m128i anyMiddle = zero, anyValue = zero;
  int x = 1;
  for (; x + 16 <= w - 1; x += 16) {
    const __m256i tl = Widen16(top + x - 1), t = Widen16(top + x), tr = Widen16(top + x + 1);
    const __m256i l = Widen16(mid + x - 1), r = Widen16(mid + x + 1);
    const __m256i bl = Widen16(bottom + x - 1), b = Widen16(bottom + x), br = Widen16(bottom + x + 1);
    const __m256i gx = _mm256_add_epi16(_mm256_add_epi16(_mm256_sub_epi16(tr, tl), _mm256_sub_epi16(br, bl)),
                                        _mm256_slli_epi16(_mm256_sub_epi16(r, l), 1));
    const __m256i gy = _mm256_sub_epi16(_mm256_add_epi16(_mm256_add_epi16(bl, br), _mm256_slli_epi16(b, 1)),
                                        _mm256_add_epi16(_mm256_add_epi16(tl, tr), _mm256_slli_epi16(t, 1)));
    const __m256i magnitude = _mm256_add_epi16(_mm256_abs_epi16(gx), _mm256_abs_epi16(gy));
    // Saturating to bytes is the clamp to 255.
    __m128i v = _mm_packus_epi16(_mm256_castsi256_si128(magnitude), _mm256_extracti128_si256(magnitude, 1));
    const __m128i high = _mm_cmpeq_epi8(_mm_max_epu8(v, _mm_set1_epi8(100)), v);
    const __m128i low = _mm_cmpeq_epi8(_mm_max_epu8(v, _mm_set1_epi8(30)), v);  // v >= 30
    v = _mm_and_si128(_mm_or_si128(v, high), low);
    anyValue = _mm_or_si128(anyValue, v);
    anyMiddle = _mm_or_si128(anyMiddle, _mm_andnot_si128(_mm_or_si128(_mm_cmpeq_epi8(v, zero), _mm_cmpeq_epi8(v, strong)),
                                                         strong));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), v);
  }
  EdgeFlags flags;
  flags.middle = !_mm_testz_si128(anyMiddle, anyMiddle);
  flags.nonzero = !_mm_testz_si128(anyValue, anyValue);
  FinishEdgeRow(top, mid, bottom, out, x, w, flags);
  return flags;
}

// 0xFF in byte i where bit i of `bits` is set.
ZEL_CONTENT_BOUNDS_AVX2 inline __m256i BitsToBytes(std::uint32_t bits) {
  const __m256i spread = _mm256_shuffle_epi8(
      _mm256_set1_epi32(static_cast<int>(bits)),
      _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3));
  const __m256i select = _mm256_set1_epi64x(static_cast<long long>(0x8040201008040201ull));
  return _mm256_cmpeq_epi8(_mm256_and_si256(spread, select), select);
}

ZEL_CONTENT_BOUNDS_AVX2 inline __m256i Load32(const unsigned char* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

ZEL_CONTENT_BOUNDS_AVX2 inline __m256i Is255(const unsigned char* p) {
  return _mm256_cmpeq_epi8(Load32(p), _mm256_set1_epi8(-1));
}

ZEL_CONTENT_BOUNDS_AVX2 void LinkRow(const unsigned char* up, unsigned char* cur, const unsigned char* down,
                                     int w) noexcept {
  const __m256i zero = _mm256_setzero_si256(), strong = _mm256_set1_epi8(-1);
  int x = 1;
  for (; x + 32 <= w - 1; x += 32) {
    const __m256i c = Load32(cur + x);
    const __m256i settled = _mm256_or_si256(_mm256_cmpeq_epi8(c, zero), _mm256_cmpeq_epi8(c, strong));
    const std::uint32_t middle = ~static_cast<std::uint32_t>(_mm256_movemask_epi8(settled));
    if (middle == 0) continue;
    const __m256i near = _mm256_or_si256(
        _mm256_or_si256(_mm256_or_si256(Is255(up + x - 1), Is255(up + x)),
                        _mm256_or_si256(Is255(up + x + 1), Is255(cur + x - 1))),
        _mm256_or_si256(_mm256_or_si256(Is255(cur + x + 1), Is255(down + x - 1)),
                        _mm256_or_si256(Is255(down + x), Is255(down + x + 1))));
    const std::uint32_t seeds = middle & static_cast<std::uint32_t>(_mm256_movemask_epi8(near));
    const auto raised = static_cast<std::uint32_t>(RaisedColumns(middle, seeds));
    const __m256i kept = _mm256_andnot_si256(BitsToBytes(middle), c);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(cur + x), _mm256_or_si256(kept, BitsToBytes(raised)));
  }
  LinkFrom(up, cur, down, x, w);
}

constexpr RowKernels kAvx2 = {GrayRow, EdgeRow, LinkRow};

}  // namespace

const RowKernels* Avx2RowKernels() noexcept {
  static const bool available = __builtin_cpu_supports("avx2");
  return available ? &kAvx2 : nullptr;
}

}  // namespace content_bounds

#else

namespace content_bounds {

const RowKernels* Avx2RowKernels() noexcept { return nullptr; }

}  // namespace content_bounds

#endif
