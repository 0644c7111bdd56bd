#ifndef ZELUTILITY_TEXT_ENCODING_H_
#define ZELUTILITY_TEXT_ENCODING_H_

// Conversions between the local multi-byte encoding, UTF-8 and wide text, as standard strings.
//
// The names read source, "2", target. Every function takes the source text and its length in
// units (bytes or wide characters); a length of -1 reads up to the terminator. The result stops
// at the first zero unit of the converted text, even when an explicit length covered more.
// Nothing is ever reported: bytes that cannot be decoded become U+FFFD, characters that the
// target cannot hold become "?", and an empty or null source gives an empty result.
//
//   std::wstring wide = Utf82Unicode("Gr\xC3\xBC\xC3\x9F" "e", -1);   // L"Grüße"
//   std::string utf8 = Unicode2Utf8(wide.c_str(), -1);              // the same bytes again
//
// Wide text is the platform's wchar_t: one code point per unit on Linux.
//
// Threads: no state; any number of calls at once. The local encoding is read from the LC_CTYPE
// locale at each call: a thread that changes the process's locale (setlocale) while others
// convert makes their results depend on timing, as it does for the C library itself.

#include <string>

#include <zelutility/export.h>

// Local encoding to wide text.
ZEL_API std::wstring Local2Unicode(const char* text, int length);

// Local encoding to UTF-8, through wide text: a zero byte inside the length ends the text.
ZEL_API std::string Local2Utf8(const char* text, int length);

// Wide text to the local encoding; characters it cannot hold become "?".
ZEL_API std::string Unicode2Local(const wchar_t* text, int length);

// Wide text to UTF-8.
ZEL_API std::string Unicode2Utf8(const wchar_t* text, int length);

// UTF-8 to the local encoding, through wide text: a zero byte inside the length ends the text.
ZEL_API std::string Utf82Local(const char* text, int length);

// UTF-8 to wide text; each maximal ill-formed byte sequence becomes one U+FFFD.
ZEL_API std::wstring Utf82Unicode(const char* text, int length);

#endif  // ZELUTILITY_TEXT_ENCODING_H_
