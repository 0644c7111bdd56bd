#ifndef MRLBASE_BYTE_STRING_CONVERTER_H_
#define MRLBASE_BYTE_STRING_CONVERTER_H_

#include <mrlbase/byte_string.h>
#include <mrlbase/export.h>
#include <mrlbase/wide_string.h>

// Converts between byte texts (UTF-8 or the local encoding) and wide texts (one code point a unit).
//
// A length < 0 reads up to the terminator; an explicit length converts that many bytes or units,
// zero values included. A null text gives the empty string. Nothing is ever refused:
//  - bytes that do not decode become U+FFFD, one per maximal subpart of an ill-formed sequence
//    (C0 AF gives two, E2 82 41 gives one and then "A", ED A0 80 gives three);
//  - wide units that are not Unicode scalar values (surrogates D800..DFFF, negative values and
//    values above 10FFFF) become U+FFFD in UTF-8 and "?" in the local encoding;
//  - characters that the local encoding cannot hold become "?".
// The local encoding is the codeset of the current LC_CTYPE locale; plain ASCII counts as UTF-8.
//
// Threads: no state; any number of conversions at once. Each conversion through the local
// encoding opens its own converter. The locale is read at each call, so a setlocale on another
// thread meanwhile makes the result depend on timing.
//
//   CMRL_WideString w = CMRL_ByteStringConverter::utf8_to_unicode("caf\xC3\xA9", -1);   // L"café"
//   CMRL_ByteString b = CMRL_ByteStringConverter::unicode_to_utf8(w.c_str(), w.GetLength());
class MRL_API CMRL_ByteStringConverter {
 public:
  CMRL_ByteStringConverter() = delete;

  static CMRL_WideString utf8_to_unicode(const char* text, int length);
  static CMRL_WideString local_to_unicode(const char* text, int length);
  static CMRL_ByteString unicode_to_utf8(const wchar_t* text, int length);
  static CMRL_ByteString unicode_to_local(const wchar_t* text, int length);
};

#endif  // MRLBASE_BYTE_STRING_CONVERTER_H_
