#ifndef ZELUTILITY_SRC_BASE_COLOR_WORD_H_
#define ZELUTILITY_SRC_BASE_COLOR_WORD_H_

#include <cstdint>

// Packing of a colour word, shared by the colour strings and the JSON colour arrays so that
// both read and write the same bytes. Components are taken as they come, never masked to a
// byte: a value above 255 or below 0 spills into the neighbouring bytes through the OR, and
// bits shifted past bit 31 are lost.

// Gray: the level in each of the three low bytes.
constexpr uint32_t PackGrayWord(int level) noexcept {
  const auto g = static_cast<uint32_t>(level);
  return (((g << 8) | g) << 8) | g;
}

// RGB: red in bits 7-0, green in 15-8, blue in 23-16.
constexpr uint32_t PackRgbWord(int red, int green, int blue) noexcept {
  return (((static_cast<uint32_t>(blue) << 8) | static_cast<uint32_t>(green)) << 8) |
         static_cast<uint32_t>(red);
}

// Four components in text order, the first in the highest byte.
constexpr uint32_t PackArgbWord(int first, int second, int third, int fourth) noexcept {
  return (((((static_cast<uint32_t>(first) << 8) | static_cast<uint32_t>(second)) << 8) |
           static_cast<uint32_t>(third))
          << 8) |
         static_cast<uint32_t>(fourth);
}

// Byte n of a word, n = 0 for bits 7-0 up to n = 3 for bits 31-24.
constexpr int ColorWordByte(uint32_t word, int n) noexcept {
  return static_cast<int>((word >> (8 * n)) & 0xFFu);
}

#endif  // ZELUTILITY_SRC_BASE_COLOR_WORD_H_
