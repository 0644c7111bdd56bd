#include <zelutility/base64.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace {

constexpr char kAlphabetText[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';

// The alphabet as the library's one self-built object: made when the library loads, gone when
// it unloads. The tables below are compile-time images of the same text for the bulk loops.
const std::string kAlphabet(kAlphabetText, 64);

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// Marks a byte that ends decoding: the pad and everything outside the alphabet.
constexpr std::uint8_t kStop = 0xFF;

// Value of every byte: its position in the alphabet, or kStop.
constexpr std::array<std::uint8_t, 256> kValues = [] {
  std::array<std::uint8_t, 256> values{};
  for (auto& v : values) v = kStop;
  for (int i = 0; i < 64; ++i) values[static_cast<unsigned char>(kAlphabetText[i])] = static_cast<std::uint8_t>(i);
  return values;
}();

// Two characters for every 12-bit value, so one lookup encodes half a group.
constexpr std::array<std::array<char, 2>, 4096> kPairs = [] {
  std::array<std::array<char, 2>, 4096> pairs{};
  for (int i = 0; i < 4096; ++i) pairs[i] = {kAlphabetText[i >> 6], kAlphabetText[i & 63]};
  return pairs;
}();

// A 32-bit word whose first three bytes in memory are b0, b1, b2 and whose fourth is b3.
constexpr std::uint32_t InMemoryOrder(std::uint32_t b0, std::uint32_t b1, std::uint32_t b2, std::uint32_t b3) {
  return kLittleEndian ? (b0 | b1 << 8 | b2 << 16 | b3 << 24) : (b0 << 24 | b1 << 16 | b2 << 8 | b3);
}

constexpr std::uint32_t kStopWord = InMemoryOrder(0xFF, 0xFF, 0xFF, 0xFF);
constexpr std::uint32_t kFourthByte = InMemoryOrder(0, 0, 0, 0xFF);

// For each position in a group of four characters, the value of every byte already moved to the
// bits it fills in the three output bytes, so a group decodes with four lookups and three ORs.
// A stopping byte maps to all ones, which shows in the otherwise unused fourth byte.
using PlacedTable = std::array<std::uint32_t, 256>;
constexpr std::array<PlacedTable, 4> kPlaced = [] {
  std::array<PlacedTable, 4> tables{};
  for (int c = 0; c < 256; ++c) {
    const std::uint32_t v = kValues[c];
    if (v == kStop) {
      for (auto& t : tables) t[c] = kStopWord;
      continue;
    }
    tables[0][c] = InMemoryOrder(v << 2, 0, 0, 0);
    tables[1][c] = InMemoryOrder(v >> 4, (v & 15) << 4, 0, 0);
    tables[2][c] = InMemoryOrder(0, v >> 2, (v & 3) << 6, 0);
    tables[3][c] = InMemoryOrder(0, 0, v, 0);
  }
  return tables;
}();

inline std::uint64_t LoadBigEndian64(const unsigned char* p) noexcept {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  if constexpr (kLittleEndian) v = __builtin_bswap64(v);
  return v;
}

inline void PutPair(char* out, std::uint32_t twelveBits) noexcept {
  std::memcpy(out, kPairs[twelveBits].data(), 2);
}

inline std::uint32_t PlaceGroup(const unsigned char* s) noexcept {
  return kPlaced[0][s[0]] | kPlaced[1][s[1]] | kPlaced[2][s[2]] | kPlaced[3][s[3]];
}

}  // namespace

CMRL_ByteString Base64Encode(const unsigned char* data, int length) {
  if (length <= 0) return {};
  // The text of `length` bytes is 4 * ceil(length / 3) characters; refuse what an int cannot count.
  const std::int64_t textLength = (static_cast<std::int64_t>(length) + 2) / 3 * 4;
  const std::int64_t room = static_cast<std::int64_t>(length) + length / 3 + 20;
  if (room > std::numeric_limits<int>::max() - 1) return {};

  CMRL_ByteString result;
  char* out = result.GetBuffer(static_cast<int>(room));
  const unsigned char* in = data;
  const unsigned char* const end = data + length;

  // Six bytes a step from one 8-byte load: 48 bits, four 12-bit halves of two groups.
  while (end - in >= 14) {
    const std::uint64_t a = LoadBigEndian64(in);
    const std::uint64_t b = LoadBigEndian64(in + 6);
    PutPair(out, static_cast<std::uint32_t>(a >> 52));
    PutPair(out + 2, static_cast<std::uint32_t>(a >> 40) & 0xFFF);
    PutPair(out + 4, static_cast<std::uint32_t>(a >> 28) & 0xFFF);
    PutPair(out + 6, static_cast<std::uint32_t>(a >> 16) & 0xFFF);
    PutPair(out + 8, static_cast<std::uint32_t>(b >> 52));
    PutPair(out + 10, static_cast<std::uint32_t>(b >> 40) & 0xFFF);
    PutPair(out + 12, static_cast<std::uint32_t>(b >> 28) & 0xFFF);
    PutPair(out + 14, static_cast<std::uint32_t>(b >> 16) & 0xFFF);
    in += 12;
    out += 16;
  }

  const char* const alphabet = kAlphabet.data();
  for (; end - in >= 3; in += 3, out += 4) {
    const unsigned b0 = in[0], b1 = in[1], b2 = in[2];
    out[0] = alphabet[b0 >> 2];
    out[1] = alphabet[((b0 & 3) << 4) | (b1 >> 4)];
    out[2] = alphabet[((b1 & 15) << 2) | (b2 >> 6)];
    out[3] = alphabet[b2 & 63];
  }
  if (end - in > 0) {
    const unsigned b0 = in[0];
    const unsigned b1 = end - in > 1 ? in[1] : 0;
    out[0] = alphabet[b0 >> 2];
    out[1] = alphabet[((b0 & 3) << 4) | (b1 >> 4)];
    out[2] = end - in > 1 ? alphabet[(b1 & 15) << 2] : kPad;
    out[3] = kPad;
    out += 4;
  }
  result.ReleaseBuffer(static_cast<int>(textLength));
  return result;
}

CMRL_ByteString Base64Decode(const char* text, int length) {
  if (text == nullptr) return {};
  if (length == -1) {
    const std::size_t measured = std::strlen(text);
    if (measured > static_cast<std::size_t>(std::numeric_limits<int>::max())) return {};
    length = static_cast<int>(measured);
  }
  if (length <= 0) return {};

  const int room = length - length / 4;
  CMRL_ByteString result;
  // Four spare bytes: the bulk loop stores whole words of which only three bytes count.
  char* const start = result.GetBuffer(room + 4);
  char* out = start;
  const auto* in = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* const end = in + length;

  // Two groups a step while every byte is in the alphabet; the first stop falls to the exact loop.
  while (end - in >= 8) {
    const std::uint32_t first = PlaceGroup(in);
    const std::uint32_t second = PlaceGroup(in + 4);
    if ((first | second) & kFourthByte) break;
    std::memcpy(out, &first, 4);
    std::memcpy(out + 3, &second, 4);
    in += 8;
    out += 6;
  }

  std::uint8_t group[4];
  int held = 0;
  for (; in != end; ++in) {
    const std::uint8_t value = kValues[*in];
    if (value == kStop) break;
    group[held++] = value;
    if (held == 4) {
      *out++ = static_cast<char>(group[0] << 2 | group[1] >> 4);
      *out++ = static_cast<char>(group[1] << 4 | group[2] >> 2);
      *out++ = static_cast<char>(group[2] << 6 | group[3]);
      held = 0;
    }
  }
  // An incomplete group keeps what its characters fill: n characters give n - 1 bytes.
  if (held >= 2) *out++ = static_cast<char>(group[0] << 2 | group[1] >> 4);
  if (held == 3) *out++ = static_cast<char>(group[1] << 4 | group[2] >> 2);

  result.ReleaseBuffer(static_cast<int>(out - start));
  return result;
}
