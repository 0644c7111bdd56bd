// Converts arbitrary bytes between UTF-8 and wide text with each set of vector kernels and with the
// portable code, which must agree, and checks that decoding what was encoded changes nothing.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/byte_string_converter_internal.h"

namespace {

using mrl_core::Utf8Kernels;

bool Same(const CMRL_WideString& a, const CMRL_WideString& b) {
  return a.GetLength() == b.GetLength() &&
         std::memcmp(a.c_str(), b.c_str(), static_cast<size_t>(a.GetLength()) * sizeof(wchar_t)) == 0;
}

bool Same(const CMRL_ByteString& a, const CMRL_ByteString& b) {
  return a.GetLength() == b.GetLength() && std::memcmp(a.c_str(), b.c_str(), static_cast<size_t>(a.GetLength())) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto* text = reinterpret_cast<const char*>(data);
  const CMRL_WideString wide = mrl_core::Utf8ToWide(text, size, Utf8Kernels::kWidest);
  if (!Same(wide, mrl_core::Utf8ToWide(text, size, Utf8Kernels::kPortable))) __builtin_trap();
  if (!Same(wide, mrl_core::Utf8ToWide(text, size, Utf8Kernels::kAvx2))) __builtin_trap();

  // The decoded text holds scalar values and U+FFFD only, so it survives a round trip.
  const CMRL_ByteString utf8 = mrl_core::WideToUtf8(wide.c_str(), static_cast<size_t>(wide.GetLength()));
  for (const Utf8Kernels kernels : {Utf8Kernels::kPortable, Utf8Kernels::kAvx2}) {
    if (!Same(utf8, mrl_core::WideToUtf8(wide.c_str(), static_cast<size_t>(wide.GetLength()), kernels)))
      __builtin_trap();
  }
  if (!Same(wide, mrl_core::Utf8ToWide(utf8.c_str(), static_cast<size_t>(utf8.GetLength()))))
    __builtin_trap();

  // The same bytes read as wide units, surrogates and values beyond Unicode included.
  const size_t count = size / sizeof(wchar_t);
  if (count > 0) {
    std::vector<wchar_t> units(count);
    std::memcpy(units.data(), data, count * sizeof(wchar_t));
    const CMRL_ByteString fast = mrl_core::WideToUtf8(units.data(), count, Utf8Kernels::kWidest);
    if (!Same(fast, mrl_core::WideToUtf8(units.data(), count, Utf8Kernels::kPortable))) __builtin_trap();
    if (!Same(fast, mrl_core::WideToUtf8(units.data(), count, Utf8Kernels::kAvx2))) __builtin_trap();
  }
  return 0;
}
