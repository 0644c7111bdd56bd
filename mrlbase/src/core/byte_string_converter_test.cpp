#include <mrlbase/byte_string_converter.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/byte_string_converter_internal.h"
#include "platform/platform.h"

namespace {

using Conv = CMRL_ByteStringConverter;

std::wstring Wide(const CMRL_WideString& s) { return std::wstring(s.c_str(), static_cast<size_t>(s.GetLength())); }
std::string Bytes(const CMRL_ByteString& s) { return std::string(s.c_str(), static_cast<size_t>(s.GetLength())); }

using mrl_core::Utf8Kernels;

// Through the public converter, after checking that the other paths agree with it (on machines
// with vector kernels they differ from the portable code).
std::wstring FromUtf8(const std::string& bytes) {
  const std::wstring result = Wide(Conv::utf8_to_unicode(bytes.data(), static_cast<int>(bytes.size())));
  for (const Utf8Kernels kernels : {Utf8Kernels::kPortable, Utf8Kernels::kAvx2}) {
    EXPECT_TRUE(result == Wide(mrl_core::Utf8ToWide(bytes.data(), bytes.size(), kernels)))
        << static_cast<int>(kernels) << " " << testing::PrintToString(bytes);
  }
  return result;
}
std::string ToUtf8(const std::wstring& units) {
  const std::string result = Bytes(Conv::unicode_to_utf8(units.data(), static_cast<int>(units.size())));
  for (const Utf8Kernels kernels : {Utf8Kernels::kPortable, Utf8Kernels::kAvx2}) {
    EXPECT_TRUE(result == Bytes(mrl_core::WideToUtf8(units.data(), units.size(), kernels))) << static_cast<int>(kernels);
  }
  return result;
}

constexpr wchar_t R = 0xFFFD;

// Uniform picks from a fixed seed, so that a failing input comes back on every run.
struct Picker {
  std::mt19937 engine;
  uint32_t operator()(uint32_t low, uint32_t high) { return std::uniform_int_distribution<uint32_t>(low, high)(engine); }
};

// Encodes one scalar value the long way, independently of the converter.
std::string EncodeOne(uint32_t cp) {
  if (cp < 0x80) return std::string(1, static_cast<char>(cp));
  const int trail = cp < 0x800 ? 1 : cp < 0x10000 ? 2 : 3;
  static const unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
  std::string out(1, static_cast<char>(kLead[trail] | (cp >> (6 * trail))));
  for (int k = trail - 1; k >= 0; --k) out += static_cast<char>(0x80 | ((cp >> (6 * k)) & 0x3F));
  return out;
}

TEST(ByteStringConverterTest, EveryScalarValueRoundTrips) {
  std::wstring all;
  std::string expected;
  for (uint32_t cp = 1; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    all += static_cast<wchar_t>(cp);
    expected += EncodeOne(cp);
  }
  const std::string utf8 = ToUtf8(all);
  ASSERT_TRUE(expected == utf8);
  EXPECT_TRUE(all == FromUtf8(utf8));
  // The system's own converter agrees on valid text.
  EXPECT_TRUE(all == Wide(mrl_core::DecodeCodeset("UTF-8", utf8.data(), utf8.size())));
}

TEST(ByteStringConverterTest, IllFormedUtf8GivesOneReplacementPerMaximalSubpart) {
  struct Case { std::string in; std::wstring out; };
  const std::vector<Case> cases = {
      {"\xC0\xAF", {R, R}},                      // overlong lead, then a stray continuation
      {"\xE2\x82\x41", {R, L'A'}},               // truncated three-byte sequence
      {"\xED\xA0\x80", {R, R, R}},               // a surrogate
      {"\xF4\x90\x80\x80", {R, R, R, R}},        // above U+10FFFF
      {"\xF0\x9F\x98", {R}},                     // truncated at the end: one
      {"\xF0\x9F\xC3\xA9", {R, 0xE9}},           // a new lead ends the old sequence
      {std::string("a\xF1\x80\x80\xE1\x80\xC2" "b\x80" "c\x80\xBF" "d"), {L'a', R, R, R, L'b', R, L'c', R, R, L'd'}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.in));
    EXPECT_EQ(c.out, FromUtf8(c.in));
    // At every offset of the ASCII blocks (16 and 64 bytes) and of the 32-byte steps.
    for (size_t pad = 0; pad < 100; ++pad) {
      EXPECT_EQ(std::wstring(pad, L'x') + c.out + std::wstring(101 - pad, L'y'),
                FromUtf8(std::string(pad, 'x') + c.in + std::string(101 - pad, 'y'))) << pad;
    }
    // Amid runs of three-byte characters, which are decoded two, eight or sixteen at a time.
    std::string cjk;
    for (size_t count = 0; count < 40; ++count, cjk += "\xE4\xB8\xAD") {
      const std::wstring wide(count, 0x4E2D);
      EXPECT_EQ(wide + c.out + wide, FromUtf8(cjk + c.in + cjk)) << "characters " << count;
    }
  }
}

// A plain decoder after the table of well-formed byte sequences, to check the fast paths against:
// each position either starts a well-formed sequence or gives one U+FFFD for the lead byte plus the
// trail bytes that were still in range.
std::wstring ReferenceDecode(const std::string& bytes) {
  struct Ranges { int trail; unsigned char firstLow, firstHigh; };
  const auto ranges = [](unsigned char lead) -> Ranges {
    if (lead >= 0xC2 && lead <= 0xDF) return {1, 0x80, 0xBF};
    if (lead == 0xE0) return {2, 0xA0, 0xBF};
    if (lead == 0xED) return {2, 0x80, 0x9F};
    if (lead >= 0xE1 && lead <= 0xEF) return {2, 0x80, 0xBF};
    if (lead == 0xF0) return {3, 0x90, 0xBF};
    if (lead == 0xF4) return {3, 0x80, 0x8F};
    if (lead >= 0xF1 && lead <= 0xF3) return {3, 0x80, 0xBF};
    return {0, 0, 0};
  };
  std::wstring out;
  size_t i = 0;
  while (i < bytes.size()) {
    const auto lead = static_cast<unsigned char>(bytes[i]);
    const Ranges r = lead < 0x80 ? Ranges{0, 0, 0} : ranges(lead);
    uint32_t cp = lead & (0x3F >> r.trail);
    size_t taken = 1;
    for (int k = 0; k < r.trail && i + taken < bytes.size(); ++k) {
      const auto b = static_cast<unsigned char>(bytes[i + taken]);
      const unsigned char low = k == 0 ? r.firstLow : 0x80;
      const unsigned char high = k == 0 ? r.firstHigh : 0xBF;
      if (b < low || b > high) break;
      cp = (cp << 6) | (b & 0x3F);
      ++taken;
    }
    const bool whole = lead < 0x80 || (r.trail > 0 && taken == static_cast<size_t>(r.trail) + 1);
    out += whole ? static_cast<wchar_t>(lead < 0x80 ? lead : cp) : R;
    i += taken;
  }
  return out;
}

// Random text built from pieces that each path cares about: ASCII runs of every length, characters
// of each size, cut-off characters, stray continuation bytes and arbitrary bytes.
TEST(ByteStringConverterTest, RandomTextDecodesLikeThePlainDecoder) {
  Picker pick{std::mt19937(20261123)};
  for (int round = 0; round < 4000; ++round) {
    std::string text;
    const uint32_t pieces = pick(1, 30);
    for (uint32_t p = 0; p < pieces; ++p) {
      switch (pick(0, 5)) {
        case 0: text += std::string(pick(0, 40), static_cast<char>(pick(0x20, 0x7E))); break;
        case 1: for (uint32_t k = pick(1, 40); k > 0; --k) text += EncodeOne(pick(0x4E00, 0x9FFF)); break;
        case 2:  // characters of every size mixed, as in most text
          for (uint32_t k = pick(1, 40); k > 0; --k) {
            static const uint32_t kSizes[][2] = {{0x20, 0x7E}, {0x80, 0x7FF}, {0x800, 0xD7FF}, {0x10000, 0x10FFFF}};
            const auto& size = kSizes[pick(0, 3)];
            text += EncodeOne(pick(size[0], size[1]));
          }
          break;
        case 3: text += EncodeOne(pick(0x800, 0x10FFFF)).substr(0, pick(1, 2)); break;
        // Runs of stray continuation bytes yield more units than the other bytes, so the result must
        // grow past its first size.
        case 4: text += std::string(pick(1, 64), static_cast<char>(pick(0x80, 0xBF))); break;
        default: text += static_cast<char>(pick(0, 255)); break;
      }
    }
    ASSERT_EQ(ReferenceDecode(text), FromUtf8(text)) << testing::PrintToString(text);
  }
}

// Every text length up to a few blocks, so that each block size meets the end of the text at each
// of its offsets, in runs of ASCII and after a character of each size.
TEST(ByteStringConverterTest, EveryLengthEndsWhereTheTextEnds) {
  for (const char* before : {"", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80"}) {
    const std::wstring head = ReferenceDecode(before);
    for (size_t length = 0; length < 140; ++length) {
      std::string text(before);
      std::wstring expected(head);
      for (size_t k = 0; k < length; ++k) {
        text += static_cast<char>('a' + k % 26);
        expected += static_cast<wchar_t>('a' + k % 26);
      }
      ASSERT_EQ(expected, FromUtf8(text)) << length;
      ASSERT_EQ(text, ToUtf8(expected)) << length;
    }
  }
}

TEST(ByteStringConverterTest, LengthsNullsAndEmbeddedZeros) {
  EXPECT_EQ(0, Conv::utf8_to_unicode(nullptr, 5).GetLength() + Conv::unicode_to_utf8(nullptr, 5).GetLength() +
                   Conv::local_to_unicode(nullptr, -1).GetLength() + Conv::unicode_to_local(nullptr, -1).GetLength() +
                   Conv::utf8_to_unicode("abc", 0).GetLength());

  EXPECT_EQ(std::wstring(L"a\xE9"), Wide(Conv::utf8_to_unicode("a\xC3\xA9\0zz", -1)));
  EXPECT_EQ(std::wstring(L"a\xE9\0zz", 5), Wide(Conv::utf8_to_unicode("a\xC3\xA9\0zz", 6)));
  EXPECT_EQ(std::wstring({L'a', R}), Wide(Conv::utf8_to_unicode("a\xC3\xA9", 2)));  // cut mid-character
  EXPECT_EQ(std::string("\0\xE2\x82\xAC\0", 5), Bytes(Conv::unicode_to_utf8(L"\0\x20AC\0", 3)));
  EXPECT_EQ(std::string("\xE2\x82\xAC"), Bytes(Conv::unicode_to_utf8(L"\x20AC\0\x20AC", -1)));
}

TEST(ByteStringConverterTest, WideUnitsThatAreNotScalarValuesBecomeReplacement) {
  const std::string replacement = "\xEF\xBF\xBD";
  // A high and a low surrogate do not pair up in UTF-32.
  EXPECT_EQ(replacement + replacement, ToUtf8(std::wstring({0xD83D, 0xDE00})));
  // Offsets of the ASCII blocks (16 and 64 units), amid ASCII and CJK.

  const std::string cjk = "\xE4\xB8\xAD";
  for (uint32_t value : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu, 0x80u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
    const auto unit = static_cast<wchar_t>(value);
    const bool scalar = value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
    const std::string encoded = scalar ? EncodeOne(value) : replacement;
    for (size_t pad : {0, 15, 16, 17, 63, 64, 65, 100, 149}) {
      std::wstring ascii(160, L'q'), wide(160, 0x4E2D);
      ascii[pad] = wide[pad] = unit;
      EXPECT_EQ(std::string(pad, 'q') + encoded + std::string(159 - pad, 'q'), ToUtf8(ascii)) << value << "@" << pad;
      std::string expected;
      for (size_t k = 0; k < 160; ++k) expected += k == pad ? encoded : cjk;
      EXPECT_EQ(expected, ToUtf8(wide)) << value << "@" << pad;
    }
  }
}

// Random mixes of every kind of unit against a plain per-unit encoding, and back.
TEST(ByteStringConverterTest, RandomUnitsEncodeLikeThePlainEncoder) {
  Picker pick{std::mt19937(112358)};
  for (int round = 0; round < 2000; ++round) {
    std::wstring units;
    std::string expected;
    bool scalarOnly = true;
    for (uint32_t count = pick(0, 80); count > 0; --count) {
      static const uint32_t kRanges[][2] = {{0, 0x7F},          {0, 0x7F},          {0x80, 0x7FF},
                                            {0x800, 0xFFFF},    {0x10000, 0x10FFFF}, {0xD800, 0xDFFF},
                                            {0x110000, 0xFFFFFFFF}};
      const auto& range = kRanges[pick(0, 6)];
      const uint32_t unit = pick(range[0], range[1]);
      units += static_cast<wchar_t>(unit);
      const bool scalar = unit <= 0x10FFFF && (unit < 0xD800 || unit > 0xDFFF);
      expected += EncodeOne(scalar ? unit : 0xFFFD);
      scalarOnly = scalarOnly && scalar;
    }
    const std::string utf8 = ToUtf8(units);
    ASSERT_EQ(expected, utf8) << round;
    if (scalarOnly) {
      ASSERT_TRUE(units == FromUtf8(utf8)) << round;
    }
  }
}

TEST(ByteStringConverterTest, LocalEncodingInUtf8AndAsciiLocalesIsUtf8) {
  const std::string saved = std::setlocale(LC_CTYPE, nullptr);
  const std::string text = "Gr\xC3\xBC\xC3\x9F \xE4\xB8\xAD \xF0\x9F\x98\x80 \xC0";
  for (const char* name : {"C", "POSIX", "C.UTF-8"}) {
    if (!std::setlocale(LC_CTYPE, name)) continue;
    SCOPED_TRACE(name);
    const std::wstring wide = Wide(Conv::local_to_unicode(text.data(), static_cast<int>(text.size())));
    EXPECT_EQ(FromUtf8(text), wide);
    EXPECT_EQ(ToUtf8(wide), Bytes(Conv::unicode_to_local(wide.data(), static_cast<int>(wide.size()))));
  }
  std::setlocale(LC_CTYPE, saved.c_str());
}

TEST(ByteStringConverterTest, CodesetNamesReadAsUtf8) {
  for (const char* name : {"utf8", "UTF_8", "ANSI_X3.4-1968", "", static_cast<const char*>(nullptr)}) EXPECT_TRUE(mrl_platform::IsUtf8Codeset(name));
  for (const char* name : {"ISO-8859-1", "UTF-16", "UTF-8-EXTRA-LONG-NAME"}) EXPECT_FALSE(mrl_platform::IsUtf8Codeset(name)) << name;
}

// The named-codeset paths run through the system converter, so they can be checked without a
// matching locale installed.
TEST(ByteStringConverterTest, NamedCodesets) {
  using mrl_core::DecodeCodeset;
  using mrl_core::EncodeCodeset;
  std::string latin1;
  std::wstring latin1Wide;
  for (int b = 0; b < 256; ++b) latin1 += static_cast<char>(b), latin1Wide += static_cast<wchar_t>(b);
  EXPECT_EQ(latin1Wide, Wide(DecodeCodeset("ISO-8859-1", latin1.data(), latin1.size())));
  EXPECT_EQ(latin1, Bytes(EncodeCodeset("ISO-8859-1", latin1Wide.data(), latin1Wide.size())));

  // Characters the codeset cannot hold, and non-scalar units, become "?" one each.
  const std::wstring mixed = {L'a', 0x20AC, L'b', 0xD800, 0x1F600, 0x110000, L'c'};
  EXPECT_EQ("a?b???c", Bytes(EncodeCodeset("ISO-8859-1", mixed.data(), mixed.size())));

  // EUC-JP: a two-byte character.
  EXPECT_EQ(std::wstring(L"\x3042" L"A"), Wide(DecodeCodeset("EUC-JP", "\xA4\xA2" "A", 3)));

  // GB18030: a broken four-byte sequence, then a truncated end.
  EXPECT_EQ(std::wstring({R, R, L'0'}), Wide(DecodeCodeset("GB18030", "\x81\x30\xFF\x30", 4)));
  EXPECT_EQ(std::wstring({L'1', R}), Wide(DecodeCodeset("GB18030", "1\x81\x30\x81", 4)));  // truncated end

  // A stateful codeset returns to its initial state before "?" and at the end.
  const std::wstring japanese = {0x3042, 0x20AC, L'z', 0x3044};
  const CMRL_ByteString jis = EncodeCodeset("ISO-2022-JP", japanese.data(), japanese.size());
  EXPECT_EQ(std::wstring({0x3042, L'?', L'z', 0x3044}), Wide(DecodeCodeset("ISO-2022-JP", jis.c_str(), jis.GetLength())));
  EXPECT_EQ("\x1B(B", Bytes(jis).substr(Bytes(jis).size() - 3));

  // An unknown codeset falls back to UTF-8 rather than losing the text.
  EXPECT_EQ(std::wstring(L"\xE9"), Wide(DecodeCodeset("NO-SUCH-CODESET", "\xC3\xA9", 2)));
}

}  // namespace
