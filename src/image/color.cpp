#include <zelutility/color.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/color_word.h"

namespace {

int HexDigitValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "#" followed by 2, 6 or 8 digits. `digits` points behind the "#".
bool ParseHexColor(const char* digits, unsigned int& color, CA_ColorSpace& colorSpace) {
  const size_t count = std::strlen(digits);
  if (count != 2 && count != 6 && count != 8) return false;
  int pairs[4] = {0, 0, 0, 0};
  for (size_t i = 0; i < count / 2; ++i) {
    const int high = HexDigitValue(digits[2 * i]);
    const int low = HexDigitValue(digits[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    pairs[i] = high * 16 + low;
  }
  switch (count) {
    case 2:
      color = PackGrayWord(pairs[0]);
      colorSpace = CA_COLORSPACE_Gray;
      break;
    case 6:
      color = PackRgbWord(pairs[0], pairs[1], pairs[2]);
      colorSpace = CA_COLORSPACE_Rgb;
      break;
    default:
      color = PackArgbWord(pairs[0], pairs[1], pairs[2], pairs[3]);
      colorSpace = CA_COLORSPACE_Argb;
      break;
  }
  return true;
}

bool ParseDecimalColor(const char* text, unsigned int& color, CA_ColorSpace& colorSpace) {
  const char* p = text;
  while (*p != '\0' && std::isspace(static_cast<unsigned char>(*p))) ++p;
  if (*p == '\0') return false;

  // Only the first four numbers matter; more than four refuses, so counting is enough.
  int numbers[4] = {0, 0, 0, 0};
  int count = 0;
  while (true) {
    const int value = std::atoi(p);
    if (count < 4) numbers[count] = value;
    ++count;
    while (*p != '\0' && *p != ' ') ++p;
    while (*p == ' ') ++p;
    if (*p == '\0') break;
  }

  switch (count) {
    case 1:
      color = PackGrayWord(numbers[0]);
      colorSpace = CA_COLORSPACE_Gray;
      return true;
    case 3:
      color = PackRgbWord(numbers[0], numbers[1], numbers[2]);
      colorSpace = CA_COLORSPACE_Rgb;
      return true;
    case 4:
      color = PackArgbWord(numbers[0], numbers[1], numbers[2], numbers[3]);
      colorSpace = CA_COLORSPACE_Argb;
      return true;
    default:
      return false;
  }
}

}  // namespace

bool ParseColorString(const char* text, unsigned int& color, CA_ColorSpace& colorSpace) {
  if (text == nullptr) return false;
  if (text[0] == '#') return ParseHexColor(text + 1, color, colorSpace);
  return ParseDecimalColor(text, color, colorSpace);
}

bool ParseColorByte(unsigned int color, CA_ColorSpace colorSpace, CMRL_ByteString& text) {
  if (colorSpace != CA_COLORSPACE_Rgb) return false;
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "#%02X%02X%02X", ColorWordByte(color, 0),
                ColorWordByte(color, 1), ColorWordByte(color, 2));
  text = buffer;
  return true;
}
