#ifndef MRLBASE_SRC_CORE_BYTE_STRING_CONVERTER_INTERNAL_H_
#define MRLBASE_SRC_CORE_BYTE_STRING_CONVERTER_INTERNAL_H_

// The conversions behind CMRL_ByteStringConverter with the codeset named explicitly, so they can be
// used and tested without switching the process locale.

#include <cstddef>

#include <mrlbase/byte_string.h>
#include <mrlbase/wide_string.h>

namespace mrl_core {

// Which code converts UTF-8: kWidest takes the widest vector kernels the processor has, kAvx2 the
// AVX2 ones when it has them, kPortable none. All give the same result; tests compare them.
enum class Utf8Kernels { kPortable, kAvx2, kWidest };

// UTF-8 into wide units: U+FFFD per maximal subpart of an ill-formed sequence.
CMRL_WideString Utf8ToWide(const char* text, size_t length, Utf8Kernels kernels = Utf8Kernels::kWidest);

// Wide units into UTF-8: U+FFFD for units that are not scalar values.
CMRL_ByteString WideToUtf8(const wchar_t* text, size_t length, Utf8Kernels kernels = Utf8Kernels::kWidest);

// Decodes `codeset` text into wide units: U+FFFD per maximal subpart of what does not decode.
// A codeset that the system cannot convert is read as UTF-8.
CMRL_WideString DecodeCodeset(const char* codeset, const char* text, size_t length);

// Encodes wide units into `codeset`: "?" for each unit the codeset cannot hold.
// A codeset that the system cannot convert is written as UTF-8.
CMRL_ByteString EncodeCodeset(const char* codeset, const wchar_t* text, size_t length);

}  // namespace mrl_core

#endif  // MRLBASE_SRC_CORE_BYTE_STRING_CONVERTER_INTERNAL_H_
