#ifndef ZELUTILITY_COLOR_H_
#define ZELUTILITY_COLOR_H_

// Colour strings: a colour word with its colour space, read from and written to text.
//
// Word packing by colour space (bits 31-24 | 23-16 | 15-8 | 7-0):
//   gray (1):  0     | level  | level  | level
//   RGB  (2):  0     | blue   | green  | red
//   ARGB (3):  first | second | third  | fourth   (components in text order)
//
//   unsigned int word = 0;
//   CA_ColorSpace space = CA_COLORSPACE_Gray;
//   ParseColorString("#FF8000", word, space);      // true: space 2, word 0x000080FF
//   ParseColorString("255 128 0", word, space);    // true: the same colour
//   CMRL_ByteString text;
//   ParseColorByte(word, space, text);             // true: text "#FF8000"
//
// Threads: no state; any number of calls at once, each with its own output variables.

#include <mrlbase/byte_string.h>
#include <mrlbase/enums.h>
#include <zelutility/export.h>

// Reads a colour from a NUL-terminated text (never null). Two grammars, chosen by the first byte:
//  - "#" and 2, 6 or 8 hexadecimal digits (either case): gray, RGB or ARGB, pairs in text order;
//    any other count, or a character outside the hexadecimal digits, refuses.
//  - anything else: leading white space skipped, then numbers read with atoi and separated by
//    blanks (0x20) only; 1, 3 or 4 numbers give gray, RGB or ARGB. Numbers are not masked, so
//    300 or -1 spill into the neighbouring bytes; a token that is no number reads as 0.
// Returns true and writes both outputs, or returns false and leaves both untouched.
ZEL_API bool ParseColorString(const char* text, unsigned int& color, CA_ColorSpace& colorSpace);

// Writes an RGB word as "#RRGGBB" (capital digits, red from bits 7-0, bits 31-24 ignored).
// Returns true with `text` written; false for any colour space but RGB, `text` untouched.
ZEL_API bool ParseColorByte(unsigned int color, CA_ColorSpace colorSpace, CMRL_ByteString& text);

#endif  // ZELUTILITY_COLOR_H_
