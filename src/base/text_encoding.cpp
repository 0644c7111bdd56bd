#include <zelutility/text_encoding.h>

#include <string>
#include <string_view>

#include <mrlbase/byte_string.h>
#include <mrlbase/byte_string_converter.h>
#include <mrlbase/wide_string.h>

namespace {

// Whether an explicit length covers a zero unit of the source. The converter maps a zero unit,
// and only a zero unit, to a zero unit, so a source without one needs no scan of the result.
template <class Char>
bool SourceHoldsZero(const Char* text, int length) noexcept {
  return length > 0 && std::char_traits<Char>::find(text, static_cast<std::size_t>(length), Char()) != nullptr;
}

// The converter's length may cover zero units; callers get the text only up to the first one.
template <class String>
auto UpToFirstZero(const String& converted, bool mayHoldZero) {
  const auto all = converted.AsStringView();
  using Result = std::basic_string<typename decltype(all)::value_type>;
  return mayHoldZero ? Result(all.substr(0, all.find(typename Result::value_type()))) : Result(all);
}

}  // namespace

std::wstring Local2Unicode(const char* text, int length) {
  if (text == nullptr) return {};
  return UpToFirstZero(CMRL_ByteStringConverter::local_to_unicode(text, length), SourceHoldsZero(text, length));
}

std::string Local2Utf8(const char* text, int length) {
  if (text == nullptr) return {};
  const CMRL_WideString wide = CMRL_ByteStringConverter::local_to_unicode(text, length);
  if (wide.IsEmpty()) return {};
  // The second step reads to the terminator, so an embedded zero already ends the text here.
  return UpToFirstZero(CMRL_ByteStringConverter::unicode_to_utf8(wide.c_str(), -1), false);
}

std::string Unicode2Local(const wchar_t* text, int length) {
  if (text == nullptr) return {};
  return UpToFirstZero(CMRL_ByteStringConverter::unicode_to_local(text, length), SourceHoldsZero(text, length));
}

std::string Unicode2Utf8(const wchar_t* text, int length) {
  if (text == nullptr) return {};
  return UpToFirstZero(CMRL_ByteStringConverter::unicode_to_utf8(text, length), SourceHoldsZero(text, length));
}

std::string Utf82Local(const char* text, int length) {
  if (text == nullptr) return {};
  const CMRL_WideString wide = CMRL_ByteStringConverter::utf8_to_unicode(text, length);
  if (wide.IsEmpty()) return {};
  return UpToFirstZero(CMRL_ByteStringConverter::unicode_to_local(wide.c_str(), -1), false);
}

std::wstring Utf82Unicode(const char* text, int length) {
  if (text == nullptr) return {};
  return UpToFirstZero(CMRL_ByteStringConverter::utf8_to_unicode(text, length), SourceHoldsZero(text, length));
}
