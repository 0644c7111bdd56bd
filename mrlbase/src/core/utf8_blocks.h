#ifndef MRLBASE_SRC_CORE_UTF8_BLOCKS_H_
#define MRLBASE_SRC_CORE_UTF8_BLOCKS_H_

// Vector kernels for the UTF-8 <-> wide conversions, one set per instruction set, chosen at run
// time. They take the well-formed bulk of a text many bytes at a time and leave everything else
// (ill-formed bytes, the last few bytes or units) to the careful per-character code, which stays
// the reference.

#include <cstddef>

namespace mrl_core {

struct Utf8BlockKernels {
  // The number of bytes of `in` that are not UTF-8 continuation bytes (10xxxxxx).
  size_t (*countLeads)(const unsigned char* in, size_t length) noexcept;

  // Decodes well-formed UTF-8 from in[inPos] on, which must be the start of a character, into
  // out[outPos] on, advancing both; `out` has `room` units. Stops at the end of the text, near it,
  // near the end of the room, or at the first block holding anything ill-formed or cut off; inPos
  // is then again the start of a character and every byte before it became one unit.
  void (*decode)(const unsigned char* in, size_t length, wchar_t* out, size_t room, size_t& inPos,
                 size_t& outPos) noexcept;

  // The UTF-8 size of the units: one to four bytes each, three for a non-scalar unit (its U+FFFD).
  size_t (*utf8Size)(const wchar_t* text, size_t length) noexcept;

  // Encodes units from text[inPos] on into out[outPos] on, non-scalar units as U+FFFD, advancing
  // both; `out` has `capacity` bytes. May stop before the end of the text, near the end of it or
  // of the capacity; the caller encodes the rest.
  void (*encode)(const wchar_t* text, size_t length, unsigned char* out, size_t capacity, size_t& inPos,
                 size_t& outPos) noexcept;
};

// AVX2 kernels, 16 bytes or 8 units a step; null when the processor lacks AVX2 or BMI2.
const Utf8BlockKernels* Avx2Utf8BlockKernels() noexcept;

// AVX-512 kernels (with VBMI2), 32 bytes or 16 units a step; null when the processor lacks them.
const Utf8BlockKernels* Avx512Utf8BlockKernels() noexcept;

// The widest kernels this processor runs, or null.
const Utf8BlockKernels* BestUtf8BlockKernels() noexcept;

}  // namespace mrl_core

#endif  // MRLBASE_SRC_CORE_UTF8_BLOCKS_H_
