#include "core/utf8_blocks.h"

#include <cstdint>

// AVX-512 kernels with byte permutes and byte compression (VBMI, VBMI2), compiled for that target
// function by function and offered only when the processor has it, so the library still runs on
// any x86-64. Other processors get no kernels from this file.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))

// GCC 12 reports the deliberately undefined vectors inside its AVX-512 intrinsics as
// uninitialized wherever they are inlined; the reports point into the header.
#pragma GCC diagnostic push
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

#define MRL_UTF8_BLOCKS_TARGET \
  __attribute__((target("avx512f,avx512bw,avx512vl,avx512cd,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt,lzcnt")))

namespace mrl_core {

namespace {

static_assert(sizeof(wchar_t) == 4, "wide text holds one code point a unit");

// The low `count` bits set, for count up to 64.
MRL_UTF8_BLOCKS_TARGET uint64_t LowBits(unsigned count) noexcept { return _bzhi_u64(~uint64_t{0}, count); }

// Byte indices for the byte permute, 64 at a time.
struct alignas(64) ByteIndex {
  uint8_t index[64];
};

// A 32-bit lane of the decoder holds the four bytes from its position on, lead byte on top:
// lane p is in[p] << 24 | in[p + 1] << 16 | in[p + 2] << 8 | in[p + 3], for p from `first` on.
constexpr ByteIndex MakeDecodeGather(int first) {
  ByteIndex gather{};
  for (int p = 0; p < 16; ++p) {
    for (int k = 0; k < 4; ++k) gather.index[4 * p + k] = static_cast<uint8_t>(first + p + 3 - k);
  }
  return gather;
}
constexpr ByteIndex kGatherLow = MakeDecodeGather(0);
constexpr ByteIndex kGatherHigh = MakeDecodeGather(16);

// Lane k holds the bytes of the k-th three-byte character, last to first, under a zero byte
// (the byte permute zeroes byte 3 of each lane).
constexpr ByteIndex MakeThreeByteGather() {
  ByteIndex gather{};
  for (int k = 0; k < 16; ++k) {
    for (int b = 0; b < 4; ++b) gather.index[4 * k + b] = static_cast<uint8_t>(b < 3 ? 3 * k + 2 - b : 0);
  }
  return gather;
}
constexpr ByteIndex kThreeByteGather = MakeThreeByteGather();

MRL_UTF8_BLOCKS_TARGET __m512i Load(const ByteIndex& table) noexcept { return _mm512_load_si512(table.index); }

// Tables indexed by the leading one bits of a lane (0 for ASCII, 2 to 4 for leads, 5 to 8 for
// bytes that never lead): the payload bits of the four bytes, the shift that drops the bytes
// beyond the character, and the least value that is not overlong (above every value for the
// bytes that never lead).
MRL_UTF8_BLOCKS_TARGET __m512i PayloadMasks() noexcept {
  return _mm512_setr_epi32(0x7F3F3F3F, 0, 0x1F3F3F3F, 0x0F3F3F3F, 0x073F3F3F, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
}
MRL_UTF8_BLOCKS_TARGET __m512i PayloadShifts() noexcept {
  return _mm512_setr_epi32(18, 0, 12, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
}
MRL_UTF8_BLOCKS_TARGET __m512i LeastValues() noexcept {
  return _mm512_setr_epi32(0, 0, 0x80, 0x800, 0x10000, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
}

MRL_UTF8_BLOCKS_TARGET size_t CountLeads(const unsigned char* in, size_t length) noexcept {
  const __m512i firstLead = _mm512_set1_epi8(static_cast<char>(0xC0));  // signed: ASCII and leads are not below
  size_t count = 0;
  for (size_t i = 0; i < length; i += 64) {
    const __mmask64 valid = length - i >= 64 ? ~uint64_t{0} : LowBits(static_cast<unsigned>(length - i));
    const __m512i bytes = _mm512_maskz_loadu_epi8(valid, in + i);
    count += static_cast<size_t>(_mm_popcnt_u64(_mm512_mask_cmpge_epi8_mask(valid, bytes, firstLead)));
  }
  return count;
}

struct DecodeTables {
  __m512i payloadMasks, payloadShifts, leastValues;
};

// The characters that would start at the sixteen positions of `lanes` (see MakeDecodeGather), and in
// `bad` the lanes whose value is overlong, a surrogate, beyond U+10FFFF or from a byte that never
// leads.
MRL_UTF8_BLOCKS_TARGET __m512i DecodeLanes(__m512i lanes, const DecodeTables& t, __mmask16& bad) noexcept {
  // Leading ones of the lead byte; bit 23 stops the count at 8.
  const __m512i ones = _mm512_lzcnt_epi32(_mm512_ternarylogic_epi32(lanes, _mm512_set1_epi32(0x00800000), lanes, 0xCF));
  const __m512i payload = _mm512_and_si512(lanes, _mm512_permutexvar_epi32(ones, t.payloadMasks));
  const __m512i fields =
      _mm512_madd_epi16(_mm512_maddubs_epi16(payload, _mm512_set1_epi16(0x4001)), _mm512_set1_epi32(0x10000001));
  const __m512i value = _mm512_srlv_epi32(fields, _mm512_permutexvar_epi32(ones, t.payloadShifts));
  bad = _mm512_cmplt_epu32_mask(value, _mm512_permutexvar_epi32(ones, t.leastValues)) |
        _mm512_cmpgt_epu32_mask(value, _mm512_set1_epi32(0x10FFFF)) |
        _mm512_cmpeq_epi32_mask(_mm512_and_si512(value, _mm512_set1_epi32(~0x7FF)), _mm512_set1_epi32(0xD800));
  return value;
}

// Decodes sixteen three-byte characters from the first 48 of `bytes`, whose lead bytes are E0 to
// EF at every third position and the others continuation bytes, into sixteen units at `out`.
// Returns false, writing nothing, when one of them is overlong or a surrogate.
MRL_UTF8_BLOCKS_TARGET bool DecodeThreeByteRun(__m512i bytes, __m512i gather, wchar_t* out) noexcept {
  const __m512i lanes = _mm512_maskz_permutexvar_epi8(0x7777777777777777, gather, bytes);
  const __m512i payload = _mm512_and_si512(lanes, _mm512_set1_epi32(0x000F3F3F));
  const __m512i value =
      _mm512_madd_epi16(_mm512_maddubs_epi16(payload, _mm512_set1_epi16(0x4001)), _mm512_set1_epi32(0x10000001));
  const __mmask16 bad =
      _mm512_cmplt_epu32_mask(value, _mm512_set1_epi32(0x800)) |
      _mm512_cmpeq_epi32_mask(_mm512_and_si512(value, _mm512_set1_epi32(~0x7FF)), _mm512_set1_epi32(0xD800));
  if (bad != 0) return false;
  _mm512_storeu_si512(out, value);
  return true;
}

// 32 positions a step, in two halves of sixteen lanes. Each lane decodes the character that would
// start at its position; the lanes of lead bytes are kept. A step is well-formed when the
// continuation bytes are exactly those its leads claim (plus those the previous step's last
// character claimed), and no lead gives a bad value.
// Writes only the units it decodes, so it needs no check of the room: every lead byte has one.
MRL_UTF8_BLOCKS_TARGET void Decode(const unsigned char* in, size_t length, wchar_t* out, size_t /*room*/,
                                   size_t& inPos, size_t& outPos) noexcept {
  const __m512i gatherLow = Load(kGatherLow);
  const __m512i gatherHigh = Load(kGatherHigh);
  const __m512i threeByteGather = Load(kThreeByteGather);
  const DecodeTables tables{PayloadMasks(), PayloadShifts(), LeastValues()};
  const __m512i firstLead = _mm512_set1_epi8(static_cast<char>(0xC0));
  size_t i = inPos;
  size_t o = outPos;
  uint64_t carried = 0;  // continuation bytes at the step's start, claimed by the step before
  while (i < length) {
    const size_t left = length - i;
    // Bytes beyond the text read as zero: ASCII, so a character cut off by the end fails its claim.
    const __mmask64 valid = left >= 64 ? ~__mmask64{0} : LowBits(static_cast<unsigned>(left));
    const __m512i bytes = _mm512_maskz_loadu_epi8(valid, in + i);
    const uint64_t ascii = _mm512_cmpge_epi8_mask(bytes, _mm512_setzero_si512());
    if (ascii == ~uint64_t{0} && left >= 64) {
      _mm512_storeu_si512(out + o, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 0)));
      _mm512_storeu_si512(out + o + 16, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 1)));
      _mm512_storeu_si512(out + o + 32, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 2)));
      _mm512_storeu_si512(out + o + 48, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 3)));
      i += 64;
      o += 64;
      continue;
    }
    const uint64_t leadBytes = _mm512_cmpge_epu8_mask(bytes, firstLead);
    const uint64_t continuation = ~ascii & ~leadBytes;
    const uint64_t lead3 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xE0)));
    const uint64_t lead4 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xF0)));
    // Sixteen three-byte characters in a row (CJK text), followed by a new character.
    constexpr uint64_t kEveryThird = 0x249249249249;
    if (carried == 0 && (continuation & LowBits(49)) == 0xDB6DB6DB6DB6 && (lead3 & kEveryThird) == kEveryThird &&
        (lead4 & kEveryThird) == 0 && DecodeThreeByteRun(bytes, threeByteGather, out + o)) {
      i += 48;
      o += 16;
      continue;
    }
    constexpr uint64_t kStep = 0xFFFFFFFF;
    const uint64_t claimed = ((leadBytes & kStep) << 1) | ((lead3 & kStep) << 2) | ((lead4 & kStep) << 3);
    const uint64_t step = left >= 32 ? kStep : LowBits(static_cast<unsigned>(left));
    const uint64_t leads = ~continuation & step;
    if ((((claimed | carried) ^ continuation) & kStep) != 0 || (claimed & ~continuation) != 0) break;

    __mmask16 badLow, badHigh;
    const __m512i low = DecodeLanes(_mm512_permutexvar_epi8(gatherLow, bytes), tables, badLow);
    const __m512i high = DecodeLanes(_mm512_permutexvar_epi8(gatherHigh, bytes), tables, badHigh);
    if (((badLow | (uint64_t{badHigh} << 16)) & leads) != 0) break;
    const auto leadsLow = static_cast<__mmask16>(leads);
    const auto leadsHigh = static_cast<__mmask16>(leads >> 16);
    const auto countLow = static_cast<unsigned>(_mm_popcnt_u32(leadsLow));
    const auto countHigh = static_cast<unsigned>(_mm_popcnt_u32(leadsHigh));
    _mm512_mask_storeu_epi32(out + o, static_cast<__mmask16>(LowBits(countLow)), _mm512_maskz_compress_epi32(leadsLow, low));
    _mm512_mask_storeu_epi32(out + o + countLow, static_cast<__mmask16>(LowBits(countHigh)),
                             _mm512_maskz_compress_epi32(leadsHigh, high));
    o += countLow + countHigh;
    carried = claimed >> 32;
    i += left >= 32 ? 32 : left;
  }
  // The last character decoded may reach into the step that stopped the loop.
  inPos = i + static_cast<size_t>(_mm_popcnt_u64(carried));
  outPos = o;
}

// Loads the 64 units at `text` into `parts`; true when all of them are ASCII.
MRL_UTF8_BLOCKS_TARGET bool LoadAsciiRun(const wchar_t* text, __m512i (&parts)[4]) noexcept {
  const auto* run = reinterpret_cast<const __m512i*>(text);
  for (int k = 0; k < 4; ++k) parts[k] = _mm512_loadu_si512(run + k);
  const __m512i any = _mm512_or_si512(_mm512_or_si512(parts[0], parts[1]), _mm512_or_si512(parts[2], parts[3]));
  return _mm512_test_epi32_mask(any, _mm512_set1_epi32(~0x7F)) == 0;
}

// Minus the bytes beyond the first of each lane, summed over 64-bit lanes.
MRL_UTF8_BLOCKS_TARGET int64_t SumLanes(__m512i lanes) noexcept {
  return _mm512_reduce_add_epi64(_mm512_add_epi64(_mm512_cvtepi32_epi64(_mm512_castsi512_si256(lanes)),
                                                  _mm512_cvtepi32_epi64(_mm512_extracti64x4_epi64(lanes, 1))));
}

MRL_UTF8_BLOCKS_TARGET size_t Utf8Size(const wchar_t* text, size_t length) noexcept {
  // Each lane counts minus the bytes beyond the first; lanes beyond the text read as zero and add
  // nothing. A lane loses at most 3 a block, so the lanes are summed every 2^26 blocks.
  constexpr size_t kChunk = size_t{16} << 26;
  const __m512i minusOne = _mm512_set1_epi32(-1);
  int64_t extra = 0;
  for (size_t start = 0; start < length; start += kChunk) {
    const size_t end = length - start > kChunk ? start + kChunk : length;
    __m512i lanes = _mm512_setzero_si512();
    size_t i = start;
    while (i < end) {
      const size_t count = end - i >= 16 ? 16 : end - i;
      const auto valid = static_cast<__mmask16>(LowBits(static_cast<unsigned>(count)));
      const __m512i units = _mm512_maskz_loadu_epi32(valid, text + i);
      i += count;
      const __mmask16 two = _mm512_cmpgt_epu32_mask(units, _mm512_set1_epi32(0x7F));
      if (two == 0) {
        // An ASCII block often starts a long run, which adds nothing: skip it 64 units at a time.
        __m512i parts[4];
        while (end - i >= 64 && LoadAsciiRun(text + i, parts)) i += 64;
        continue;
      }
      const __mmask16 three = _mm512_cmpgt_epu32_mask(units, _mm512_set1_epi32(0x7FF));
      const __mmask16 four = _mm512_mask_cmple_epu32_mask(_mm512_cmpgt_epu32_mask(units, _mm512_set1_epi32(0xFFFF)),
                                                          units, _mm512_set1_epi32(0x10FFFF));
      lanes = _mm512_mask_add_epi32(lanes, two, lanes, minusOne);
      lanes = _mm512_mask_add_epi32(lanes, three, lanes, minusOne);
      lanes = _mm512_mask_add_epi32(lanes, four, lanes, minusOne);
    }
    extra -= SumLanes(lanes);
  }
  return length + static_cast<size_t>(extra);
}

// Tables of the encoder, indexed by the leading zero bits of a scalar value (11 to 32, read modulo
// 32): the length of its UTF-8 form in each byte of a lane, the payload bits of the spread value,
// the shift that drops the bytes a shorter form does not use, and the marker bits.
struct alignas(64) EncodeTables {
  int32_t length[32], keep[32], shift[32], mark[32];
};

constexpr EncodeTables MakeEncodeTables() {
  EncodeTables t{};
  constexpr int32_t kKeep[] = {0x7F000000, 0x3F3F0000, 0x3F3F3F00, 0x3F3F3F07};
  constexpr int32_t kMark[] = {0, 0x80C0, 0x8080E0, static_cast<int32_t>(0x808080F0)};
  for (int zeros = 0; zeros < 32; ++zeros) {
    const int bits = zeros == 0 ? 0 : 32 - zeros;
    const int n = bits <= 7 ? 1 : bits <= 11 ? 2 : bits <= 16 ? 3 : 4;
    t.length[zeros] = n * 0x01010101;
    t.keep[zeros] = kKeep[n - 1];
    t.shift[zeros] = 8 * (4 - n);
    t.mark[zeros] = kMark[n - 1];
  }
  return t;
}
constexpr EncodeTables kEncodeTables = MakeEncodeTables();

// Looks up a table of 32 entries by the low five bits of each lane of `index`.
MRL_UTF8_BLOCKS_TARGET __m512i Lookup32(const int32_t (&table)[32], __m512i index) noexcept {
  return _mm512_permutex2var_epi32(_mm512_load_si512(table), index, _mm512_load_si512(table + 16));
}

// Each lane spreads its value into four six-bit fields, lead field on the low byte, shifts out the
// fields its form does not use, adds the marker bits, and the lanes' used bytes are packed together.
// Writes only the bytes it encodes, all the units: the capacity is the UTF-8 size at least.
MRL_UTF8_BLOCKS_TARGET void Encode(const wchar_t* text, size_t length, unsigned char* out, size_t /*capacity*/,
                                   size_t& inPos, size_t& outPos) noexcept {
  const EncodeTables& t = kEncodeTables;
  // Byte k of a 64-bit pair of lanes takes bits 18, 12, 6 and 0 of its lane, in that order.
  const __m512i spreadControl = _mm512_set1_epi64(0x20262C3200060C12);
  const __m512i byteInLane = _mm512_set1_epi32(0x03020100);
  size_t i = inPos;
  size_t o = outPos;
  while (i < length) {
    const size_t left = length - i;
    const unsigned count = left >= 16 ? 16u : static_cast<unsigned>(left);
    const auto valid = static_cast<__mmask16>(LowBits(count));
    __m512i units = _mm512_maskz_loadu_epi32(valid, text + i);
    if (_mm512_test_epi32_mask(units, _mm512_set1_epi32(~0x7F)) == 0) {
      _mm_mask_storeu_epi8(out + o, valid, _mm512_cvtepi32_epi8(units));
      i += count;
      o += count;
      // An ASCII block often starts a long run: go on 64 units at a time.
      __m512i parts[4];
      while (length - i >= 64 && LoadAsciiRun(text + i, parts)) {
        auto* bytes = reinterpret_cast<__m128i*>(out + o);
        for (int k = 0; k < 4; ++k) _mm_storeu_si128(bytes + k, _mm512_cvtepi32_epi8(parts[k]));
        i += 64;
        o += 64;
      }
      continue;
    }
    const __mmask16 notScalar =
        _mm512_cmpgt_epu32_mask(units, _mm512_set1_epi32(0x10FFFF)) |
        _mm512_cmpeq_epi32_mask(_mm512_and_si512(units, _mm512_set1_epi32(~0x7FF)), _mm512_set1_epi32(0xD800));
    units = _mm512_mask_mov_epi32(units, notScalar, _mm512_set1_epi32(0xFFFD));
    const __m512i zeros = _mm512_lzcnt_epi32(units);
    const __m512i spread = _mm512_multishift_epi64_epi8(spreadControl, units);
    __m512i bytes = _mm512_and_si512(spread, Lookup32(t.keep, zeros));
    bytes = _mm512_srlv_epi32(bytes, Lookup32(t.shift, zeros));
    bytes = _mm512_or_si512(bytes, Lookup32(t.mark, zeros));
    // Lanes beyond the text get length 0 and give no bytes.
    const __m512i lengths = _mm512_maskz_mov_epi32(valid, Lookup32(t.length, zeros));
    const __mmask64 used = _mm512_cmplt_epu8_mask(byteInLane, lengths);
    const auto written = static_cast<unsigned>(_mm_popcnt_u64(used));
    _mm512_mask_storeu_epi8(out + o, LowBits(written), _mm512_maskz_compress_epi8(used, bytes));
    i += count;
    o += written;
  }
  inPos = i;
  outPos = o;
}

constexpr Utf8BlockKernels kKernels{CountLeads, Decode, Utf8Size, Encode};

}  // namespace

const Utf8BlockKernels* Avx512Utf8BlockKernels() noexcept {
  static const bool available = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                                __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512cd") &&
                                __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2") &&
                                __builtin_cpu_supports("bmi2");
  return available ? &kKernels : nullptr;
}

}  // namespace mrl_core

#else

namespace mrl_core {

const Utf8BlockKernels* Avx512Utf8BlockKernels() noexcept { return nullptr; }

}  // namespace mrl_core

#endif
