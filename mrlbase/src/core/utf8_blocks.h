#ifndef MRLBASE_SRC_CORE_UTF8_BLOCKS_H_
#define MRLBASE_SRC_CORE_UTF8_BLOCKS_H_

// Wide-vector kernels for the UTF-8 <-> wide conversions. They take the well-formed bulk of a text
// sixteen characters at a time and leave everything else (ill-formed bytes, non-scalar units) to
// the careful per-character code, which stays the reference.

#include <cstddef>

namespace mrl_core {

// Whether this processor runs the kernels below; when false they must not be called.
bool Utf8BlocksAvailable() noexcept;

// The number of bytes of `in` that are not UTF-8 continuation bytes (10xxxxxx).
size_t CountUtf8Leads(const unsigned char* in, size_t length) noexcept;

// Decodes well-formed UTF-8 from in[inPos] on, which must be the start of a character, into
// out[outPos] on, advancing both. Stops at the end of the text or at the first block holding
// anything ill-formed or cut off; inPos is then again the start of a character, and every byte
// before it became one unit. Writes only the units it reports.
void DecodeUtf8Blocks(const unsigned char* in, size_t length, wchar_t* out, size_t& inPos, size_t& outPos) noexcept;

// The UTF-8 size of the units: one to four bytes each, three for a non-scalar unit (its U+FFFD).
size_t Utf8SizeOfUnits(const wchar_t* text, size_t length) noexcept;

// Encodes all the units from text[inPos] on into out[outPos] on, non-scalar units as U+FFFD,
// advancing both. `out` must hold their Utf8SizeOfUnits; nothing beyond that is written.
void EncodeUtf8Blocks(const wchar_t* text, size_t length, unsigned char* out, size_t& inPos,
                      size_t& outPos) noexcept;

}  // namespace mrl_core

#endif  // MRLBASE_SRC_CORE_UTF8_BLOCKS_H_
