#include <mrlbase/byte_string_converter.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "core/byte_string_converter_internal.h"
#include "core/utf8_blocks.h"
#include "platform/platform.h"

namespace {

static_assert(sizeof(wchar_t) == 4, "wide text holds one code point a unit");

constexpr wchar_t kReplacement = 0xFFFD;
constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

size_t CheckedLength(size_t length) {
  if (length > static_cast<size_t>(INT_MAX - 1)) throw std::bad_alloc();
  return length;
}

size_t ByteLength(const char* text, int length) {
  if (!text) return 0;
  return length < 0 ? std::strlen(text) : static_cast<size_t>(length);
}

size_t WideLength(const wchar_t* text, int length) {
  if (!text) return 0;
  return length < 0 ? std::wcslen(text) : static_cast<size_t>(length);
}

unsigned LowestBit(unsigned mask) noexcept { return static_cast<unsigned>(__builtin_ctz(mask)); }

bool IsContinuation(unsigned char byte) noexcept { return (byte & 0xC0) == 0x80; }

// The UTF-8 size of one unit. Surrogates and values above U+10FFFF take three bytes, as their
// U+FFFD does.
size_t Utf8UnitSize(wchar_t unit) noexcept {
  const auto cp = static_cast<uint32_t>(unit);
  return 1u + (cp >= 0x80) + (cp >= 0x800) + (cp >= 0x10000 && cp <= 0x10FFFF);
}

// A value from a three-byte sequence that is neither overlong nor a surrogate.
bool IsThreeByteScalar(uint32_t cp) noexcept { return cp >= 0x800 && cp - 0xD800 >= 0x800; }

uint64_t LoadLittle64(const unsigned char* in) noexcept {
  uint64_t word;
  std::memcpy(&word, in, sizeof word);
  if constexpr (!kLittleEndian) word = __builtin_bswap64(word);
  return word;
}

// Sixteen-unit blocks for the ASCII runs, and the two counting passes that size the results.
// SSE2 is part of every x86-64; other targets get plain loops that their compilers vectorise.
#if defined(__SSE2__)

// Writes the 16 bytes at `in` widened to 16 units at `out`. Returns a mask with bit k set when
// byte k is not ASCII; the units from the lowest such bit on are left for the caller to overwrite.
unsigned WidenBlock(const unsigned char* in, wchar_t* out) noexcept {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
  const __m128i zero = _mm_setzero_si128();
  const __m128i low = _mm_unpacklo_epi8(bytes, zero);
  const __m128i high = _mm_unpackhi_epi8(bytes, zero);
  auto* units = reinterpret_cast<__m128i*>(out);
  _mm_storeu_si128(units, _mm_unpacklo_epi16(low, zero));
  _mm_storeu_si128(units + 1, _mm_unpackhi_epi16(low, zero));
  _mm_storeu_si128(units + 2, _mm_unpacklo_epi16(high, zero));
  _mm_storeu_si128(units + 3, _mm_unpackhi_epi16(high, zero));
  return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}

// Writes the 16 units at `in` narrowed to 16 bytes at `out` when all of them are ASCII; otherwise
// writes nothing and returns false. (Runs of ASCII between other characters are mostly short, and
// there a partial block costs more than the plain loop.)
bool NarrowAsciiBlock(const wchar_t* in, unsigned char* out) noexcept {
  const auto* units = reinterpret_cast<const __m128i*>(in);
  const __m128i a = _mm_loadu_si128(units);
  const __m128i b = _mm_loadu_si128(units + 1);
  const __m128i c = _mm_loadu_si128(units + 2);
  const __m128i d = _mm_loadu_si128(units + 3);
  const __m128i any = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
  const __m128i high = _mm_and_si128(any, _mm_set1_epi32(~0x7F));
  if (_mm_movemask_epi8(_mm_cmpeq_epi32(high, _mm_setzero_si128())) != 0xFFFF) return false;
  // Saturating packs keep ASCII values as they are.
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d)));
  return true;
}

// The number of bytes that are not continuation bytes (10xxxxxx).
size_t CountNonContinuation(const unsigned char* in, size_t length) noexcept {
  const __m128i zero = _mm_setzero_si128();
  const __m128i lastContinuation = _mm_set1_epi8(static_cast<char>(0xBF));  // signed: every byte above is not one
  size_t count = 0;
  size_t i = 0;
  while (i + 16 <= length) {
    // Per-byte counters take at most 255 blocks before they are summed.
    const size_t blocks = std::min<size_t>((length - i) / 16, 255);
    __m128i counters = zero;
    for (size_t k = 0; k < blocks; ++k, i += 16) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
      counters = _mm_sub_epi8(counters, _mm_cmpgt_epi8(bytes, lastContinuation));
    }
    const __m128i sums = _mm_sad_epu8(counters, zero);
    count += static_cast<size_t>(_mm_cvtsi128_si32(sums)) + static_cast<size_t>(_mm_extract_epi16(sums, 4));
  }
  for (; i < length; ++i) count += !IsContinuation(in[i]);
  return count;
}

// Minus the bytes beyond the first that each of the four units of `v` takes in UTF-8.
__m128i NegativeExtraBytes(__m128i v) noexcept {
  // Unsigned comparisons through signed ones: flip the sign bit of both sides.
  const auto flipped = [](uint32_t bound) { return _mm_set1_epi32(static_cast<int>(bound ^ 0x80000000u)); };
  v = _mm_xor_si128(v, flipped(0));
  const __m128i twoOrThree = _mm_add_epi32(_mm_cmpgt_epi32(v, flipped(0x7F)), _mm_cmpgt_epi32(v, flipped(0x7FF)));
  const __m128i four = _mm_sub_epi32(_mm_cmpgt_epi32(v, flipped(0xFFFF)), _mm_cmpgt_epi32(v, flipped(0x10FFFF)));
  return _mm_add_epi32(twoOrThree, four);
}

// The UTF-8 size of the text (see Utf8UnitSize). Groups of eight units below U+10000 are counted
// in 16-bit lanes, which halves the work for nearly all text; other groups the exact 32-bit way.
size_t Utf8Size(const wchar_t* text, size_t length) noexcept {
  const __m128i zero = _mm_setzero_si128();
  const __m128i highHalf = _mm_set1_epi32(static_cast<int>(0xFFFF0000u));
  const __m128i above7F = _mm_set1_epi16(0x7F);
  const __m128i above7FF = _mm_set1_epi16(0x7FF);
  size_t total = length;
  size_t i = 0;
  while (i + 8 <= length) {
    // 16-bit lanes lose at most 2 a group: sum them up before they could wrap.
    const size_t end = i + std::min<size_t>((length - i) & ~size_t{7}, size_t{8} << 13);
    __m128i small = zero;  // 16-bit lanes
    __m128i large = zero;  // 32-bit lanes
    for (; i < end; i += 8) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i + 4));
      if (_mm_movemask_epi8(_mm_cmpeq_epi32(_mm_and_si128(_mm_or_si128(a, b), highHalf), zero)) != 0xFFFF) {
        large = _mm_add_epi32(large, _mm_add_epi32(NegativeExtraBytes(a), NegativeExtraBytes(b)));
        continue;
      }
      // Units from 0x8000 on saturate to 0x7FFF, which still counts as three bytes.
      const __m128i units = _mm_packs_epi32(a, b);
      small = _mm_add_epi16(small, _mm_add_epi16(_mm_cmpgt_epi16(units, above7F), _mm_cmpgt_epi16(units, above7FF)));
    }
    __m128i sums = _mm_add_epi32(large, _mm_madd_epi16(small, _mm_set1_epi16(1)));
    sums = _mm_add_epi32(sums, _mm_shuffle_epi32(sums, _MM_SHUFFLE(1, 0, 3, 2)));
    sums = _mm_add_epi32(sums, _mm_shuffle_epi32(sums, _MM_SHUFFLE(2, 3, 0, 1)));
    total += static_cast<uint32_t>(-_mm_cvtsi128_si32(sums));
  }
  for (; i < length; ++i) total += Utf8UnitSize(text[i]) - 1;
  return total;
}

#else

unsigned WidenBlock(const unsigned char* in, wchar_t* out) noexcept {
  unsigned mask = 0;
  for (unsigned k = 0; k < 16; ++k) {
    out[k] = static_cast<wchar_t>(in[k]);
    mask |= static_cast<unsigned>(in[k] >> 7) << k;
  }
  return mask;
}

bool NarrowAsciiBlock(const wchar_t* in, unsigned char* out) noexcept {
  uint32_t any = 0;
  for (unsigned k = 0; k < 16; ++k) any |= static_cast<uint32_t>(in[k]);
  if (any > 0x7F) return false;
  for (unsigned k = 0; k < 16; ++k) out[k] = static_cast<unsigned char>(in[k]);
  return true;
}

size_t CountNonContinuation(const unsigned char* in, size_t length) noexcept {
  size_t count = 0;
  for (size_t i = 0; i < length; ++i) count += !IsContinuation(in[i]);
  return count;
}

size_t Utf8Size(const wchar_t* text, size_t length) noexcept {
  size_t total = 0;
  for (size_t i = 0; i < length; ++i) total += Utf8UnitSize(text[i]);
  return total;
}

#endif

// Decodes UTF-8 from in[i] on into out[o] on, advancing both. Each maximal subpart of an
// ill-formed sequence becomes one U+FFFD: the lead byte plus the continuation bytes that were
// still allowed after it.
//
// `out` has `room` units. Every character and every subpart that starts with a non-continuation
// byte takes one unit, and the caller made room for one unit per such byte; a stray continuation
// byte takes one of the `spare` units beyond that. Returns false, having written nothing for it,
// at a stray byte that finds no spare unit left.
bool DecodeUtf8(const unsigned char* in, size_t length, wchar_t* out, size_t room, size_t& spare,
                size_t& inPos, size_t& outPos) noexcept {
  // Local copies, so that the positions stay in registers.
  size_t i = inPos;
  size_t o = outPos;
  const auto stop = [&](bool finished) {
    inPos = i;
    outPos = o;
    return finished;
  };
  while (i < length) {
    unsigned lead = in[i];
    if (lead < 0x80) {
      while (i + 16 <= length && o + 16 <= room) {
        const unsigned mask = WidenBlock(in + i, out + o);
        if (mask != 0) {
          const unsigned ascii = LowestBit(mask);
          i += ascii;
          o += ascii;
          break;
        }
        i += 16;
        o += 16;
      }
      while (i < length && in[i] < 0x80) out[o++] = static_cast<wchar_t>(in[i++]);
      if (i >= length) break;
      lead = in[i];
    }

    // ASCII blocks and well-formed characters one after another, until an ill-formed byte or the
    // last few bytes. Plain branches: on real text they are well predicted.
    for (;;) {
      if (lead < 0x80) {
        if (i + 16 > length || o + 16 > room) break;
        const unsigned mask = WidenBlock(in + i, out + o);
        const unsigned ascii = mask != 0 ? LowestBit(mask) : 16;
        i += ascii;
        o += ascii;
      } else if (lead - 0xE0u < 0x10u) {
        // Two at a time while the next six bytes hold two three-byte characters.
        while (i + 8 <= length) {
          const uint64_t pair = LoadLittle64(in + i);
          if ((pair & 0xC0C0F0C0C0F0u) != 0x8080E08080E0u) break;
          const auto first = static_cast<uint32_t>(((pair & 0x0F) << 12) | ((pair >> 2) & 0xFC0) | ((pair >> 16) & 0x3F));
          const auto second =
              static_cast<uint32_t>(((pair >> 12) & 0xF000) | ((pair >> 26) & 0xFC0) | ((pair >> 40) & 0x3F));
          if (!IsThreeByteScalar(first) || !IsThreeByteScalar(second)) break;
          out[o] = static_cast<wchar_t>(first);
          out[o + 1] = static_cast<wchar_t>(second);
          o += 2;
          i += 6;
        }
        if (i >= length) return stop(true);
        lead = in[i];
        if (lead - 0xE0u >= 0x10u) continue;
        if (i + 2 >= length || !IsContinuation(in[i + 1]) || !IsContinuation(in[i + 2])) break;
        const uint32_t cp = ((lead & 0x0Fu) << 12) | ((in[i + 1] & 0x3Fu) << 6) | (in[i + 2] & 0x3Fu);
        if (!IsThreeByteScalar(cp)) break;
        out[o++] = static_cast<wchar_t>(cp);
        i += 3;
      } else if (lead - 0xC2u < 0x1Eu) {
        if (i + 1 >= length || !IsContinuation(in[i + 1])) break;
        out[o++] = static_cast<wchar_t>(((lead & 0x1Fu) << 6) | (in[i + 1] & 0x3Fu));
        i += 2;
      } else if (lead - 0xF0u < 0x05u) {
        if (i + 3 >= length || !IsContinuation(in[i + 1]) || !IsContinuation(in[i + 2]) ||
            !IsContinuation(in[i + 3]))
          break;
        const uint32_t cp = ((lead & 0x07u) << 18) | ((in[i + 1] & 0x3Fu) << 12) | ((in[i + 2] & 0x3Fu) << 6) |
                            (in[i + 3] & 0x3Fu);
        if (cp < 0x10000 || cp > 0x10FFFF) break;
        out[o++] = static_cast<wchar_t>(cp);
        i += 4;
      } else {
        break;
      }
      if (i >= length) return stop(true);
      lead = in[i];
    }
    if (lead < 0x80) continue;

    // One ill-formed subpart (or a character cut off by the end of the text), the careful way.
    if (lead < 0xC2 || lead > 0xF4) {  // stray continuation, overlong 2-byte lead, or beyond U+10FFFF
      if (lead < 0xC0) {
        if (spare == 0) return stop(false);
        --spare;
      }
      out[o++] = kReplacement;
      ++i;
      continue;
    }
    int trail;
    uint32_t cp;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead < 0xE0) {
      trail = 1;
      cp = lead & 0x1F;
    } else if (lead < 0xF0) {
      trail = 2;
      cp = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;         // overlong
      else if (lead == 0xED) high = 0x9F;   // surrogates
    } else {
      trail = 3;
      cp = lead & 0x07;
      if (lead == 0xF0) low = 0x90;         // overlong
      else if (lead == 0xF4) high = 0x8F;   // beyond U+10FFFF
    }
    size_t j = i + 1;
    bool complete = true;
    for (int k = 0; k < trail; ++k, ++j) {
      if (j >= length) {
        complete = false;
        break;
      }
      const unsigned next = in[j];
      if (next < low || next > high) {
        complete = false;
        break;
      }
      cp = (cp << 6) | (next & 0x3F);
      low = 0x80;
      high = 0xBF;
    }
    out[o++] = complete ? static_cast<wchar_t>(cp) : kReplacement;
    i = j;
  }
  return stop(true);
}

// Room beyond one unit per non-continuation byte, for a few stray continuation bytes.
constexpr size_t kSpareUnits = 16;

// DecodeUtf8 with the well-formed stretches taken by the block kernels. The careful code gets the
// stretches the kernels stop at, ended at a byte that cannot continue a character, so it judges
// each sequence exactly as it would on the whole text.
bool DecodeUtf8WithBlocks(const mrl_core::Utf8BlockKernels& kernels, const unsigned char* in, size_t length,
                          wchar_t* out, size_t room, size_t& spare, size_t& inPos, size_t& outPos) noexcept {
  constexpr size_t kCarefulStretch = 32;
  while (inPos < length) {
    kernels.decode(in, length, out, room, inPos, outPos);
    if (inPos >= length) break;
    size_t end = std::min(length, inPos + kCarefulStretch);
    while (end < length && IsContinuation(in[end])) ++end;
    if (!DecodeUtf8(in, end, out, room, spare, inPos, outPos)) return false;
  }
  return true;
}

const mrl_core::Utf8BlockKernels* KernelsFor(mrl_core::Utf8Kernels choice) noexcept {
  switch (choice) {
    case mrl_core::Utf8Kernels::kAvx2: return mrl_core::Avx2Utf8BlockKernels();
    case mrl_core::Utf8Kernels::kWidest: return mrl_core::BestUtf8BlockKernels();
    case mrl_core::Utf8Kernels::kPortable: break;
  }
  return nullptr;
}

// Room EncodeUtf8 needs beyond the UTF-8 size.
constexpr size_t kEncodeSlack = 8;

// Stores the three bytes of `cp` (below U+10000); may write four.
void StoreThree(unsigned char* out, uint32_t cp) noexcept {
  const uint32_t b0 = 0xE0 | (cp >> 12);
  const uint32_t b1 = 0x80 | ((cp >> 6) & 0x3F);
  const uint32_t b2 = 0x80 | (cp & 0x3F);
  if constexpr (kLittleEndian) {
    const uint32_t word = b0 | (b1 << 8) | (b2 << 16);
    std::memcpy(out, &word, sizeof word);
  } else {
    out[0] = static_cast<unsigned char>(b0);
    out[1] = static_cast<unsigned char>(b1);
    out[2] = static_cast<unsigned char>(b2);
  }
}

// Stores the six bytes of two values below U+10000 that take three bytes each; may write up to
// eight bytes.
void StoreSix(unsigned char* out, uint32_t first, uint32_t second) noexcept {
  if constexpr (kLittleEndian) {
    const auto three = [](uint64_t cp) {
      return (0xE0 | (cp >> 12)) | ((0x80 | ((cp >> 6) & 0x3F)) << 8) | ((0x80 | (cp & 0x3F)) << 16);
    };
    const uint64_t word = three(first) | (three(second) << 24);
    std::memcpy(out, &word, sizeof word);
  } else {
    StoreThree(out, first);
    StoreThree(out + 3, second);
  }
}

// Encodes the units as UTF-8 into `out`, which holds their Utf8Size plus kEncodeSlack bytes (the
// stores of three-byte characters write a little beyond them); returns the bytes written. Units
// that are not scalar values become U+FFFD.
size_t EncodeUtf8(const wchar_t* text, size_t length, unsigned char* out, size_t total) noexcept {
  size_t o = 0;
  size_t i = 0;
  while (i < length) {
    uint32_t cp = static_cast<uint32_t>(text[i]);
    if (cp < 0x80) {
      // Runs between other characters are mostly short: the first units go one by one, and only a
      // run that goes on is taken sixteen units at a time.
      const size_t shortEnd = std::min(length, i + 8);
      while (i < shortEnd && static_cast<uint32_t>(text[i]) < 0x80) out[o++] = static_cast<unsigned char>(text[i++]);
      if (i == shortEnd) {
        while (i + 16 <= length && o + 16 <= total && NarrowAsciiBlock(text + i, out + o)) {
          i += 16;
          o += 16;
        }
        while (i < length && static_cast<uint32_t>(text[i]) < 0x80) out[o++] = static_cast<unsigned char>(text[i++]);
      }
      if (i >= length) break;
      cp = static_cast<uint32_t>(text[i]);
    }
    // A run of non-ASCII units; three-byte ones (most CJK) two at a time when they come in pairs.
    for (;;) {
      if (IsThreeByteScalar(cp) && cp < 0x10000) {
        if (i + 1 < length && IsThreeByteScalar(static_cast<uint32_t>(text[i + 1])) &&
            static_cast<uint32_t>(text[i + 1]) < 0x10000) {
          StoreSix(out + o, cp, static_cast<uint32_t>(text[i + 1]));
          o += 6;
          i += 2;
        } else {
          StoreThree(out + o, cp);
          o += 3;
          ++i;
        }
      } else if (cp < 0x800) {
        out[o] = static_cast<unsigned char>(0xC0 | (cp >> 6));
        out[o + 1] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        o += 2;
        ++i;
      } else if (cp - 0x10000 < 0x100000) {
        out[o] = static_cast<unsigned char>(0xF0 | (cp >> 18));
        out[o + 1] = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
        out[o + 2] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
        out[o + 3] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        o += 4;
        ++i;
      } else {
        StoreThree(out + o, 0xFFFD);  // a surrogate or beyond Unicode (negative values included)
        o += 3;
        ++i;
      }
      if (i >= length) break;
      cp = static_cast<uint32_t>(text[i]);
      if (cp < 0x80) break;
    }
  }
  return o;
}

using mrl_platform::CodesetConverter;
using Status = CodesetConverter::Status;

// Converts `bytes` alone, from the initial state.
Status Probe(CodesetConverter& converter, const std::string& bytes) {
  converter.Reset();
  wchar_t scratch[8];
  const char* in = bytes.data();
  size_t inLeft = bytes.size();
  char* out = reinterpret_cast<char*>(scratch);
  size_t outLeft = sizeof scratch;
  return converter.Convert(in, inLeft, out, outLeft);
}

// Bytes tried as continuations of a partial character: the trail ranges of the multi-byte codesets
// used as locale encodings (GB18030, GBK, Big5, EUC-*, Shift_JIS).
constexpr unsigned char kTrailProbes[] = {0x30, 0x31, 0x39, 0x40, 0x41, 0x5C, 0x7E, 0x80,
                                          0x81, 0xA1, 0xA2, 0xB0, 0xC0, 0xFE};

// Whether some continuation of `prefix` of at most `depth` more bytes is a complete character.
bool CanComplete(CodesetConverter& converter, std::string& prefix, int depth) {
  for (unsigned char b : kTrailProbes) {
    prefix.push_back(static_cast<char>(b));
    const Status status = Probe(converter, prefix);
    const bool complete = status == Status::kDone ||
                          (status == Status::kIncomplete && depth > 1 && CanComplete(converter, prefix, depth - 1));
    prefix.pop_back();
    if (complete) return true;
  }
  return false;
}

// The length of the maximal subpart at `in`: the longest prefix that is still the start of some
// character; at least one byte. Many decoders only judge a sequence once all its bytes are there,
// so "unfinished" alone is not enough: the prefix must also be completable.
size_t MaximalSubpart(CodesetConverter& converter, const char* in, size_t left) {
  constexpr size_t kLongestCharacter = 4;
  size_t best = 1;
  std::string prefix(in, 1);
  for (size_t k = 2; k <= left && k < kLongestCharacter; ++k) {
    prefix.push_back(in[k - 1]);
    if (Probe(converter, prefix) != Status::kIncomplete) break;
    if (!CanComplete(converter, prefix, static_cast<int>(kLongestCharacter - k))) break;
    best = k;
  }
  converter.Reset();
  return best;
}

// Appends room for at least `more` units to `buffer` and points out/outLeft at the free part.
template <class Unit>
void Widen(std::basic_string<Unit>& buffer, size_t used, size_t more, char*& out, size_t& outLeft) {
  buffer.resize(used + more);
  out = reinterpret_cast<char*>(&buffer[0] + used);
  outLeft = more * sizeof(Unit);
}

}  // namespace

namespace mrl_core {

CMRL_WideString Utf8ToWide(const char* text, size_t length, Utf8Kernels choice) {
  if (!text || length == 0) return CMRL_WideString();
  CheckedLength(length);
  const Utf8BlockKernels* kernels = KernelsFor(choice);
  const auto* in = reinterpret_cast<const unsigned char*>(text);
  const auto decode = [&](wchar_t* out, size_t room, size_t& spare, size_t& i, size_t& o) {
    return kernels ? DecodeUtf8WithBlocks(*kernels, in, length, out, room, spare, i, o)
                   : DecodeUtf8(in, length, out, room, spare, i, o);
  };
  // Sized once: well-formed text needs exactly one unit per non-continuation byte. Text with more
  // stray continuation bytes than the spare room is decoded on into a buffer of the byte count,
  // which no text can exceed.
  const size_t leads = kernels ? kernels->countLeads(in, length) : CountNonContinuation(in, length);
  size_t room = std::min(leads + kSpareUnits, length);
  size_t spare = room - leads;
  CMRL_WideString result;
  wchar_t* out = result.GetBuffer(static_cast<int>(room));
  size_t i = 0;
  size_t o = 0;
  if (!decode(out, room, spare, i, o)) {
    result.ReleaseBuffer(static_cast<int>(o));
    room = length;
    spare = length - leads;
    out = result.GetBuffer(static_cast<int>(room));
    decode(out, room, spare, i, o);
  }
  result.ReleaseBuffer(static_cast<int>(o));
  return result;
}

CMRL_ByteString WideToUtf8(const wchar_t* text, size_t length, Utf8Kernels choice) {
  if (!text || length == 0) return CMRL_ByteString();
  const Utf8BlockKernels* kernels = KernelsFor(choice);
  const size_t total = kernels ? kernels->utf8Size(text, length) : Utf8Size(text, length);
  CMRL_ByteString result;
  auto* out =
      reinterpret_cast<unsigned char*>(result.GetBuffer(static_cast<int>(CheckedLength(total + kEncodeSlack))));
  size_t read = 0;
  size_t written = 0;
  if (kernels) kernels->encode(text, length, out, total + kEncodeSlack, read, written);
  // The kernels may leave the last few units; they are encoded one by one.
  written += EncodeUtf8(text + read, length - read, out + written, total - written);
  result.ReleaseBuffer(static_cast<int>(written));
  return result;
}

CMRL_WideString DecodeCodeset(const char* codeset, const char* text, size_t length) {
  if (!text || length == 0) return CMRL_WideString();
  auto converter = CodesetConverter::Open(mrl_platform::WideCodeset(), codeset);
  if (!converter) return Utf8ToWide(text, length, Utf8Kernels::kWidest);

  std::wstring buffer;
  size_t used = 0;
  char* out = nullptr;
  size_t outLeft = 0;
  // Every decoded character takes at least one byte, so this room is normally enough.
  Widen(buffer, used, length + 4, out, outLeft);
  const char* in = text;
  size_t inLeft = length;
  while (inLeft > 0) {
    const Status status = converter->Convert(in, inLeft, out, outLeft);
    used = static_cast<size_t>(reinterpret_cast<wchar_t*>(out) - buffer.data());
    if (status == Status::kDone) break;
    if (status == Status::kOutputFull) {
      Widen(buffer, used, inLeft + 16, out, outLeft);
      continue;
    }
    // An ill-formed or truncated sequence: one U+FFFD for its maximal subpart.
    // (A truncated end is judged the same way: it may hold bytes that no character could.)
    const size_t skip = MaximalSubpart(*converter, in, inLeft);
    if (outLeft < sizeof(wchar_t)) Widen(buffer, used, inLeft + 16, out, outLeft);
    buffer[used++] = kReplacement;
    out += sizeof(wchar_t);
    outLeft -= sizeof(wchar_t);
    in += skip;
    inLeft -= skip;
  }
  return CMRL_WideString(buffer.data(), static_cast<int>(CheckedLength(used)));
}

CMRL_ByteString EncodeCodeset(const char* codeset, const wchar_t* text, size_t length) {
  if (!text || length == 0) return CMRL_ByteString();
  auto converter = CodesetConverter::Open(codeset, mrl_platform::WideCodeset());
  if (!converter) return WideToUtf8(text, length, Utf8Kernels::kWidest);

  std::string buffer;
  size_t used = 0;
  char* out = nullptr;
  size_t outLeft = 0;
  Widen(buffer, used, length * 2 + 16, out, outLeft);
  const char* in = reinterpret_cast<const char*>(text);
  size_t inLeft = length * sizeof(wchar_t);
  while (inLeft > 0) {
    const Status status = converter->Convert(in, inLeft, out, outLeft);
    used = static_cast<size_t>(out - buffer.data());
    if (status == Status::kDone) break;
    if (status == Status::kOutputFull) {
      Widen(buffer, used, inLeft + 64, out, outLeft);
      continue;
    }
    // Not representable: return to the initial shift state, then write "?" for this unit.
    if (outLeft < 64) Widen(buffer, used, inLeft + 64, out, outLeft);
    converter->Finish(out, outLeft);
    *out++ = '?';
    --outLeft;
    const size_t skip = inLeft < sizeof(wchar_t) ? inLeft : sizeof(wchar_t);
    in += skip;
    inLeft -= skip;
  }
  // Stateful codesets end in their initial shift state.
  used = static_cast<size_t>(out - buffer.data());
  if (outLeft < 64) Widen(buffer, used, 64, out, outLeft);
  converter->Finish(out, outLeft);
  used = static_cast<size_t>(out - buffer.data());
  return CMRL_ByteString(buffer.data(), static_cast<int>(CheckedLength(used)));
}

}  // namespace mrl_core

CMRL_WideString CMRL_ByteStringConverter::utf8_to_unicode(const char* text, int length) {
  return mrl_core::Utf8ToWide(text, ByteLength(text, length));
}

CMRL_ByteString CMRL_ByteStringConverter::unicode_to_utf8(const wchar_t* text, int length) {
  return mrl_core::WideToUtf8(text, WideLength(text, length));
}

CMRL_WideString CMRL_ByteStringConverter::local_to_unicode(const char* text, int length) {
  const size_t size = ByteLength(text, length);
  if (size == 0) return CMRL_WideString();
  if (mrl_platform::LocalCodesetIsUtf8()) return mrl_core::Utf8ToWide(text, size);
  return mrl_core::DecodeCodeset(mrl_platform::LocalCodeset().c_str(), text, size);
}

CMRL_ByteString CMRL_ByteStringConverter::unicode_to_local(const wchar_t* text, int length) {
  const size_t size = WideLength(text, length);
  if (size == 0) return CMRL_ByteString();
  if (mrl_platform::LocalCodesetIsUtf8()) return mrl_core::WideToUtf8(text, size);
  return mrl_core::EncodeCodeset(mrl_platform::LocalCodeset().c_str(), text, size);
}
