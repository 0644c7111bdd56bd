#include "core/utf8_blocks.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

// AVX2 kernels for the processors without AVX-512, compiled for that target function by function
// and offered only when the processor has it. Other processors get no kernels from this file.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))

#include <immintrin.h>

#define MRL_UTF8_AVX2_TARGET __attribute__((target("avx2,bmi,bmi2,popcnt")))

namespace mrl_core {

namespace {

static_assert(sizeof(wchar_t) == 4, "wide text holds one code point a unit");

// For each 8-bit mask, the positions of its set bits, lowest first, a byte each: the lane order
// that packs the selected lanes of eight together.
struct PackLanes {
  uint8_t lane[8];
};
constexpr std::array<PackLanes, 256> MakePackLanes() {
  std::array<PackLanes, 256> table{};
  for (unsigned mask = 0; mask < 256; ++mask) {
    unsigned next = 0;
    for (unsigned lane = 0; lane < 8; ++lane) {
      if (mask & (1u << lane)) table[mask].lane[next++] = static_cast<uint8_t>(lane);
    }
  }
  return table;
}
constexpr std::array<PackLanes, 256> kPackLanes = MakePackLanes();

// For four units with UTF-8 lengths n0..n3, indexed by (n0 - 1) | (n1 - 1) << 2 | ..., the byte
// shuffle that packs the first nk bytes of each 32-bit lane together, and their total.
struct PackBytes {
  alignas(16) uint8_t shuffle[16];
  uint32_t length;
};
constexpr std::array<PackBytes, 256> MakePackBytes() {
  std::array<PackBytes, 256> table{};
  for (unsigned index = 0; index < 256; ++index) {
    PackBytes& entry = table[index];
    unsigned out = 0;
    for (unsigned lane = 0; lane < 4; ++lane) {
      const unsigned n = ((index >> (2 * lane)) & 3) + 1;
      for (unsigned k = 0; k < n; ++k) entry.shuffle[out++] = static_cast<uint8_t>(4 * lane + k);
    }
    entry.length = out;
    for (; out < 16; ++out) entry.shuffle[out] = 0x80;
  }
  return table;
}
constexpr std::array<PackBytes, 256> kPackBytes = MakePackBytes();

// Bit k of a 4-bit mask moved to bit 2k.
constexpr uint8_t kEvenBits[16] = {0x00, 0x01, 0x04, 0x05, 0x10, 0x11, 0x14, 0x15,
                                   0x40, 0x41, 0x44, 0x45, 0x50, 0x51, 0x54, 0x55};

MRL_UTF8_AVX2_TARGET size_t CountLeads(const unsigned char* in, size_t length) noexcept {
  const __m256i lastContinuation = _mm256_set1_epi8(static_cast<char>(0xBF));  // signed: every byte above is not one
  size_t count = 0;
  size_t i = 0;
  for (; length - i >= 32; i += 32) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    count += static_cast<size_t>(
        _mm_popcnt_u32(static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(bytes, lastContinuation)))));
  }
  for (; i < length; ++i) count += (in[i] & 0xC0) != 0x80;
  return count;
}

// Bit k set when 32-bit lane k of `mask` is all ones.
MRL_UTF8_AVX2_TARGET unsigned LaneBits(__m256i mask) noexcept {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(mask)));
}

// The characters that would start at the eight positions of `lanes` (lane k holds the four bytes
// from its position on, lead byte on top), for well-formed leads; other lanes hold anything.
MRL_UTF8_AVX2_TARGET __m256i DecodeLanes(__m256i lanes) noexcept {
  // Per lane, the high nibble of the lead byte indexes byte tables; the other bytes of the index
  // have their top bit set, so their lookups give zero.
  const __m256i nibble = _mm256_or_si256(_mm256_srli_epi32(lanes, 28), _mm256_set1_epi32(static_cast<int>(0x80808000)));
  // Payload bits of the lead byte; 8 to B never lead.
  const __m256i leadMasks = _mm256_setr_epi8(
      0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0, 0, 0, 0, 0x1F, 0x1F, 0x0F, 0x07,   // low half
      0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0, 0, 0, 0, 0x1F, 0x1F, 0x0F, 0x07);  // high half
  // The shift that drops the bytes beyond the character.
  const __m256i shifts = _mm256_setr_epi8(18, 18, 18, 18, 18, 18, 18, 18, 0, 0, 0, 0, 12, 12, 6, 0,
                                          18, 18, 18, 18, 18, 18, 18, 18, 0, 0, 0, 0, 12, 12, 6, 0);
  const __m256i leadMask = _mm256_slli_epi32(_mm256_shuffle_epi8(leadMasks, nibble), 24);
  const __m256i payload = _mm256_and_si256(lanes, _mm256_or_si256(leadMask, _mm256_set1_epi32(0x003F3F3F)));
  const __m256i fields =
      _mm256_madd_epi16(_mm256_maddubs_epi16(payload, _mm256_set1_epi16(0x4001)), _mm256_set1_epi32(0x10000001));
  return _mm256_srlv_epi32(fields, _mm256_shuffle_epi8(shifts, nibble));
}

// Stores the lanes of `value` selected by `mask` packed together at `out`; writes eight units.
// Returns how many were selected.
MRL_UTF8_AVX2_TARGET unsigned StorePacked(wchar_t* out, __m256i value, unsigned mask) noexcept {
  const __m256i order = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(kPackLanes[mask].lane)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_permutevar8x32_epi32(value, order));
  return static_cast<unsigned>(_mm_popcnt_u32(mask));
}

// Bit k set when byte k is above `bound` (0x80 to 0xFE); `high` has the bits of the bytes from
// 0x80 on. (The compare is signed, so ASCII bytes pass it and are masked off.)
MRL_UTF8_AVX2_TARGET uint32_t BytesAbove(__m256i bytes, int bound, uint32_t high) noexcept {
  const __m256i limit = _mm256_set1_epi8(static_cast<char>(bound));
  return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(bytes, limit))) & high;
}

// All ones in the bytes of `v` that equal `byte`.
MRL_UTF8_AVX2_TARGET __m256i ByteIs(__m256i v, int byte) noexcept {
  return _mm256_cmpeq_epi8(v, _mm256_set1_epi8(static_cast<char>(byte)));
}

// Bit k set when byte k of `mask` is all ones.
MRL_UTF8_AVX2_TARGET uint32_t ByteBits(__m256i mask) noexcept { return static_cast<uint32_t>(_mm256_movemask_epi8(mask)); }

// Bit k set when byte k of `bytes`, if it leads a character, starts one that is overlong, a
// surrogate or beyond U+10FFFF, or never leads one. These are decided by the lead byte and the
// byte after it (`next`), which the caller checked to be a continuation byte.
MRL_UTF8_AVX2_TARGET uint32_t BadLeads(__m256i bytes, __m256i next, uint32_t high) noexcept {
  // Signed compares of continuation bytes (0x80 to 0xBF are -128 to -65).
  const __m256i nextBelowA0 = _mm256_cmpgt_epi8(_mm256_set1_epi8(static_cast<char>(0xA0)), next);
  const __m256i nextBelow90 = _mm256_cmpgt_epi8(_mm256_set1_epi8(static_cast<char>(0x90)), next);
  const __m256i pairs = _mm256_or_si256(
      _mm256_or_si256(_mm256_and_si256(ByteIs(bytes, 0xE0), nextBelowA0),       // overlong, three bytes
                      _mm256_andnot_si256(nextBelowA0, ByteIs(bytes, 0xED))),    // surrogates
      _mm256_or_si256(_mm256_and_si256(ByteIs(bytes, 0xF0), nextBelow90),       // overlong, four bytes
                      _mm256_andnot_si256(nextBelow90, ByteIs(bytes, 0xF4))));   // beyond U+10FFFF
  const __m256i overlongTwo = ByteIs(_mm256_and_si256(bytes, _mm256_set1_epi8(static_cast<char>(0xFE))), 0xC0);
  return ByteBits(_mm256_or_si256(pairs, overlongTwo)) | BytesAbove(bytes, 0xF4, high);
}

// Decodes the 24 bytes at `in` (28 are read), whose lead bytes are E0 to EF at every third
// position, the others continuation bytes, into eight units at `out`. Returns false, writing
// nothing, when one of them is overlong or a surrogate.
MRL_UTF8_AVX2_TARGET bool DecodeThreeByteRun(const unsigned char* in, wchar_t* out) noexcept {
  // Lane k of each half: its character's bytes last to first, then a zero byte.
  const __m256i order = _mm256_setr_epi8(2, 1, 0, -128, 5, 4, 3, -128, 8, 7, 6, -128, 11, 10, 9, -128,
                                         2, 1, 0, -128, 5, 4, 3, -128, 8, 7, 6, -128, 11, 10, 9, -128);
  const __m256i bytes = _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in))),
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 12)), 1);
  const __m256i payload = _mm256_and_si256(_mm256_shuffle_epi8(bytes, order), _mm256_set1_epi32(0x000F3F3F));
  const __m256i value =
      _mm256_madd_epi16(_mm256_maddubs_epi16(payload, _mm256_set1_epi16(0x4001)), _mm256_set1_epi32(0x10000001));
  const __m256i wrong = _mm256_or_si256(
      _mm256_cmpgt_epi32(_mm256_set1_epi32(0x800), value),
      _mm256_cmpeq_epi32(_mm256_and_si256(value, _mm256_set1_epi32(~0x7FF)), _mm256_set1_epi32(0xD800)));
  if (!_mm256_testz_si256(wrong, wrong)) return false;
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), value);
  return true;
}

// 32 positions a step, as the wider kernel does: lanes of four-byte windows (four groups of eight),
// continuation bytes checked against what the leads claim, lead lanes packed together; the lead
// and the byte after it are checked for the rest. Reads 44 bytes a step and writes up to 32 units,
// so it stops that far from the end of the text and of the room.
MRL_UTF8_AVX2_TARGET void Decode(const unsigned char* in, size_t length, wchar_t* out, size_t room, size_t& inPos,
                                 size_t& outPos) noexcept {
  const __m256i window = _mm256_setr_epi8(3, 2, 1, 0, 4, 3, 2, 1, 5, 4, 3, 2, 6, 5, 4, 3,
                                          3, 2, 1, 0, 4, 3, 2, 1, 5, 4, 3, 2, 6, 5, 4, 3);
  size_t i = inPos;
  size_t o = outPos;
  uint64_t carried = 0;  // continuation bytes at the step's start, claimed by the step before
  while (length - i >= 44 && room - o >= 32) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    const uint32_t high = ByteBits(bytes);
    if (high == 0) {
      auto* units = reinterpret_cast<__m256i*>(out + o);
      const __m128i low = _mm256_castsi256_si128(bytes);
      const __m128i top = _mm256_extracti128_si256(bytes, 1);
      _mm256_storeu_si256(units, _mm256_cvtepu8_epi32(low));
      _mm256_storeu_si256(units + 1, _mm256_cvtepu8_epi32(_mm_srli_si128(low, 8)));
      _mm256_storeu_si256(units + 2, _mm256_cvtepu8_epi32(top));
      _mm256_storeu_si256(units + 3, _mm256_cvtepu8_epi32(_mm_srli_si128(top, 8)));
      i += 32;
      o += 32;
      continue;
    }
    const uint32_t leadBytes = BytesAbove(bytes, 0xBF, high);
    const uint32_t continuation = high & ~leadBytes;
    const uint32_t lead3 = BytesAbove(bytes, 0xDF, high);
    const uint32_t lead4 = BytesAbove(bytes, 0xEF, high);
    // Eight three-byte characters in a row (CJK text), followed by a new character.
    constexpr uint32_t kEveryThird = 0x249249;
    if (carried == 0 && (continuation & 0x1FFFFFF) == 0xDB6DB6 && (lead3 & kEveryThird) == kEveryThird &&
        (lead4 & kEveryThird) == 0 && DecodeThreeByteRun(in + i, out + o)) {
      i += 24;
      o += 8;
      continue;
    }
    // The three bytes after the step, for the claims of its last characters.
    uint32_t after;
    std::memcpy(&after, in + i + 32, sizeof after);
    const __m128i afterBytes = _mm_cvtsi32_si128(static_cast<int>(after));
    const auto continuationAfter = static_cast<uint64_t>(
        _mm_movemask_epi8(_mm_cmplt_epi8(afterBytes, _mm_set1_epi8(static_cast<char>(0xC0)))) & 7);
    const uint64_t allContinuation = continuation | (continuationAfter << 32);
    const uint64_t claimed = (uint64_t{leadBytes} << 1) | (uint64_t{lead3} << 2) | (uint64_t{lead4} << 3);
    const uint32_t leads = ~continuation;
    if (static_cast<uint32_t>((claimed | carried) ^ allContinuation) != 0 || (claimed & ~allContinuation) != 0) break;
    const __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i + 1));
    if ((BadLeads(bytes, next, high) & leads) != 0) break;

    for (size_t group = 0; group < 32; group += 8) {
      const __m256i lanes = _mm256_shuffle_epi8(
          _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + group))),
                                  _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + group + 4)), 1),
          window);
      o += StorePacked(out + o, DecodeLanes(lanes), (leads >> group) & 0xFF);
    }
    carried = claimed >> 32;
    i += 32;
  }
  // The last character decoded may reach into the step that stopped the loop.
  inPos = i + static_cast<size_t>(_mm_popcnt_u64(carried));
  outPos = o;
}

// Loads the 32 units at `text` into `parts`; true when all of them are ASCII.
MRL_UTF8_AVX2_TARGET bool LoadAsciiRun(const wchar_t* text, __m256i (&parts)[4]) noexcept {
  const auto* run = reinterpret_cast<const __m256i*>(text);
  for (int k = 0; k < 4; ++k) parts[k] = _mm256_loadu_si256(run + k);
  const __m256i any = _mm256_or_si256(_mm256_or_si256(parts[0], parts[1]), _mm256_or_si256(parts[2], parts[3]));
  return _mm256_testz_si256(any, _mm256_set1_epi32(~0x7F)) != 0;
}

MRL_UTF8_AVX2_TARGET size_t Utf8Size(const wchar_t* text, size_t length) noexcept {
  // Each lane counts minus the bytes beyond the first; a lane loses at most 3 a step, so the lanes
  // are summed every 2^26 steps.
  constexpr size_t kChunk = size_t{8} << 26;
  int64_t extra = 0;
  size_t i = 0;
  while (length - i >= 8) {
    const size_t end = i + std::min(kChunk, (length - i) & ~size_t{7});
    __m256i lanes = _mm256_setzero_si256();
    while (i < end) {
      // Values above U+10FFFF (negative ones included) take three bytes, as their U+FFFD does.
      const __m256i units = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + i));
      i += 8;
      if (_mm256_testz_si256(units, _mm256_set1_epi32(~0x7F))) {
        // An ASCII block often starts a long run, which adds nothing: skip it 32 units at a time.
        __m256i parts[4];
        while (end - i >= 32 && LoadAsciiRun(text + i, parts)) i += 32;
        continue;
      }
      const __m256i beyond = _mm256_cmpeq_epi32(_mm256_max_epu32(units, _mm256_set1_epi32(0x110000)), units);
      const __m256i capped = _mm256_blendv_epi8(units, _mm256_set1_epi32(0xFFFF), beyond);
      lanes = _mm256_add_epi32(lanes, _mm256_cmpgt_epi32(capped, _mm256_set1_epi32(0x7F)));
      lanes = _mm256_add_epi32(lanes, _mm256_cmpgt_epi32(capped, _mm256_set1_epi32(0x7FF)));
      lanes = _mm256_add_epi32(lanes, _mm256_cmpgt_epi32(capped, _mm256_set1_epi32(0xFFFF)));
    }
    alignas(32) int32_t sums[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(sums), lanes);
    for (int32_t sum : sums) extra -= sum;
  }
  for (; i < length; ++i) {
    const auto cp = static_cast<uint32_t>(text[i]);
    extra += (cp >= 0x80) + (cp >= 0x800) + (cp >= 0x10000 && cp <= 0x10FFFF);
  }
  return length + static_cast<size_t>(extra);
}

// Eight units a step: each unit spread into its UTF-8 bytes in a 32-bit lane, then the used bytes
// of each half packed by a byte shuffle. Writes up to 32 bytes a step.
MRL_UTF8_AVX2_TARGET void Encode(const wchar_t* text, size_t length, unsigned char* out, size_t capacity,
                                 size_t& inPos, size_t& outPos) noexcept {
  // Indexed by the length minus one: the payload bits of the spread value, the shift that drops
  // the bytes a shorter form does not use, and the marker bits.
  const __m256i keep = _mm256_setr_epi32(0x7F000000, 0x3F3F0000, 0x3F3F3F00, 0x3F3F3F07, 0, 0, 0, 0);
  const __m256i shift = _mm256_setr_epi32(24, 16, 8, 0, 0, 0, 0, 0);
  const __m256i mark = _mm256_setr_epi32(0, 0x80C0, 0x8080E0, static_cast<int>(0x808080F0), 0, 0, 0, 0);
  size_t i = inPos;
  size_t o = outPos;
  while (length - i >= 8 && capacity - o >= 32) {
    __m256i units = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + i));
    if (_mm256_testz_si256(units, _mm256_set1_epi32(~0x7F))) {
      const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(units), _mm256_extracti128_si256(units, 1));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + o), _mm_packus_epi16(words, words));
      i += 8;
      o += 8;
      // An ASCII block often starts a long run: go on 32 units at a time.
      __m256i parts[4];
      while (length - i >= 32 && capacity - o >= 32 && LoadAsciiRun(text + i, parts)) {
        // The packs work within 128-bit halves; the final permute puts the bytes back in order.
        const __m256i words = _mm256_packs_epi32(parts[0], parts[1]);
        const __m256i words2 = _mm256_packs_epi32(parts[2], parts[3]);
        const __m256i packed = _mm256_packus_epi16(words, words2);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + o),
                            _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
        i += 32;
        o += 32;
      }
      continue;
    }
    const __m256i beyond = _mm256_cmpeq_epi32(_mm256_max_epu32(units, _mm256_set1_epi32(0x110000)), units);
    const __m256i surrogate =
        _mm256_cmpeq_epi32(_mm256_and_si256(units, _mm256_set1_epi32(~0x7FF)), _mm256_set1_epi32(0xD800));
    units = _mm256_blendv_epi8(units, _mm256_set1_epi32(0xFFFD), _mm256_or_si256(beyond, surrogate));
    const __m256i two = _mm256_cmpgt_epi32(units, _mm256_set1_epi32(0x7F));
    const __m256i three = _mm256_cmpgt_epi32(units, _mm256_set1_epi32(0x7FF));
    const __m256i four = _mm256_cmpgt_epi32(units, _mm256_set1_epi32(0xFFFF));
    const __m256i lengthLess1 =
        _mm256_sub_epi32(_mm256_setzero_si256(), _mm256_add_epi32(_mm256_add_epi32(two, three), four));
    // Lead field (bits 18 on) in byte 0, then bits 12, 6 and 0 (the last with seven bits, for ASCII).
    const __m256i byte1 = _mm256_and_si256(_mm256_srli_epi32(units, 4), _mm256_set1_epi32(0x3F00));
    const __m256i byte2 = _mm256_and_si256(_mm256_slli_epi32(units, 10), _mm256_set1_epi32(0x3F0000));
    const __m256i byte3 = _mm256_and_si256(_mm256_slli_epi32(units, 24), _mm256_set1_epi32(0x7F000000));
    const __m256i spread =
        _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(units, 18), byte1), _mm256_or_si256(byte2, byte3));
    const __m256i bytes = _mm256_or_si256(
        _mm256_srlv_epi32(_mm256_and_si256(spread, _mm256_permutevar8x32_epi32(keep, lengthLess1)),
                          _mm256_permutevar8x32_epi32(shift, lengthLess1)),
        _mm256_permutevar8x32_epi32(mark, lengthLess1));
    const unsigned m2 = LaneBits(two), m3 = LaneBits(three), m4 = LaneBits(four);
    const unsigned lowIndex = kEvenBits[m2 & 15] + kEvenBits[m3 & 15] + kEvenBits[m4 & 15];
    const unsigned highIndex = kEvenBits[m2 >> 4] + kEvenBits[m3 >> 4] + kEvenBits[m4 >> 4];
    const PackBytes& lowPack = kPackBytes[lowIndex];
    const PackBytes& highPack = kPackBytes[highIndex];
    const __m256i order = _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(lowPack.shuffle))),
        _mm_load_si128(reinterpret_cast<const __m128i*>(highPack.shuffle)), 1);
    const __m256i packed = _mm256_shuffle_epi8(bytes, order);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + o), _mm256_castsi256_si128(packed));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + o + lowPack.length), _mm256_extracti128_si256(packed, 1));
    o += lowPack.length + highPack.length;
    i += 8;
  }
  inPos = i;
  outPos = o;
}

constexpr Utf8BlockKernels kKernels{CountLeads, Decode, Utf8Size, Encode};

}  // namespace

const Utf8BlockKernels* Avx2Utf8BlockKernels() noexcept {
  static const bool available = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2");
  return available ? &kKernels : nullptr;
}

}  // namespace mrl_core

#else

namespace mrl_core {

const Utf8BlockKernels* Avx2Utf8BlockKernels() noexcept { return nullptr; }

}  // namespace mrl_core

#endif
