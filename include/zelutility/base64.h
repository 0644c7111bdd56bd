#ifndef ZELUTILITY_BASE64_H_
#define ZELUTILITY_BASE64_H_

// Base64 with the standard alphabet (A-Z a-z 0-9 + /) and "=" padding, in one block without
// line breaks.
//
//   CMRL_ByteString text = Base64Encode(reinterpret_cast<const unsigned char*>("abc"), 3);  // "YWJj"
//   CMRL_ByteString bytes = Base64Decode(text.c_str(), -1);                                 // "abc"
//
// The decoder never fails: it decodes as far as the text makes sense and returns that.
//
// Threads: no state; any number of calls at once, on shared input too.

#include <mrlbase/byte_string.h>
#include <zelutility/export.h>

// Encodes `length` bytes (0 or more; with 0, `data` is not read) into Base64 text, the last group
// padded with "=" to four characters. An input whose text would not fit a string gives "".
ZEL_API CMRL_ByteString Base64Encode(const unsigned char* data, int length);

// Decodes `length` characters of `text` (0 or more, or -1 for up to the terminator) into bytes.
// Decoding stops at the first "=" or at the first byte outside the alphabet (a line break, a
// blank and a zero byte included); nothing behind it is read. The bytes of an incomplete last
// group are kept: two characters give one byte, three give two, one gives none.
ZEL_API CMRL_ByteString Base64Decode(const char* text, int length);

#endif  // ZELUTILITY_BASE64_H_
