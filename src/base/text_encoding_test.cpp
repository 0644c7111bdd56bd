#include <zelutility/text_encoding.h>

#include <gtest/gtest.h>

#include <clocale>
#include <random>
#include <string>

namespace {

// "Grüße, 世界 🙂" in UTF-8 and as code points.
const char kUtf8[] = "Gr\xC3\xBC\xC3\x9F" "e, \xE4\xB8\x96\xE7\x95\x8C \xF0\x9F\x99\x82";
const wchar_t kWide[] = L"Gr\u00FC\u00DFe, \u4E16\u754C \U0001F642";

TEST(TextEncodingTest, ConvertsBetweenUtf8AndWide) {
  EXPECT_EQ(Utf82Unicode(kUtf8, -1), kWide);
  EXPECT_EQ(Unicode2Utf8(kWide, -1), kUtf8);
  // An explicit length counts source units: 3 bytes end in the middle of "ü".
  EXPECT_EQ(Utf82Unicode(kUtf8, 3), L"Gr\uFFFD");
  EXPECT_EQ(Unicode2Utf8(kWide, 3), "Gr\xC3\xBC");
  // In the process's default "C" locale the local encoding is taken as UTF-8.
  ASSERT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
  EXPECT_EQ(Local2Unicode(kUtf8, -1), kWide);
  EXPECT_EQ(Unicode2Local(kWide, -1), kUtf8);
  EXPECT_EQ(Utf82Local(kUtf8, -1), kUtf8);
  EXPECT_EQ(Local2Utf8(kUtf8, -1), kUtf8);
}

TEST(TextEncodingTest, EmptyNullZeroLengthAndEmbeddedZero) {
  EXPECT_EQ(Utf82Unicode("abc", 0), L"");
  EXPECT_EQ(Unicode2Utf8(L"abc", 0), "");
  EXPECT_EQ(Local2Unicode("abc", 0), L"");
  EXPECT_EQ(Unicode2Local(L"abc", 0), "");
  EXPECT_EQ(Utf82Local("abc", 0), "");
  EXPECT_EQ(Local2Utf8("abc", 0), "");
  EXPECT_EQ(Utf82Unicode(nullptr, -1), L"");
  EXPECT_EQ(Unicode2Utf8(nullptr, 5), "");
  EXPECT_EQ(Local2Utf8(nullptr, -1), "");
  // The result ends at the first zero unit, even inside an explicit length.
  EXPECT_EQ(Utf82Unicode("a\0b", 3), L"a");
  EXPECT_EQ(Unicode2Utf8(L"a\0b", 3), "a");
  EXPECT_EQ(Utf82Local("x\0yz", 4), "x");
  EXPECT_EQ(Local2Utf8("x\0yz", 4), "x");
  EXPECT_EQ(Local2Unicode("\0yz", 3), L"");
  EXPECT_EQ(Unicode2Local(L"q\0r", 3), "q");
}

TEST(TextEncodingTest, IllFormedInputIsSubstitutedNotRefused) {
  EXPECT_EQ(Utf82Unicode("a\xC0\xAF" "b", -1), L"a\uFFFD\uFFFDb");
  EXPECT_EQ(Utf82Unicode("\xE2\x82" "A", -1), L"\uFFFDA");
  // A wide unit that is no Unicode scalar value cannot be written as UTF-8.
  const wchar_t surrogate[] = {L'x', static_cast<wchar_t>(0xD800), L'y', 0};
  EXPECT_EQ(Unicode2Utf8(surrogate, -1), "x\xEF\xBF\xBDy");
}

TEST(TextEncodingTest, RoundTripsRandomScalarValues) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> plane(0, 3);
  for (int round = 0; round < 200; ++round) {
    std::wstring text;
    for (int i = 0; i < 64; ++i) {
      const int p = plane(rng);
      const unsigned limit = p == 0 ? 0x7F : p == 1 ? 0x7FF : p == 2 ? 0xFFFF : 0x10FFFF;
      unsigned cp = std::uniform_int_distribution<unsigned>(1, limit)(rng);
      if (cp >= 0xD800 && cp <= 0xDFFF) cp = 0xE000;
      text += static_cast<wchar_t>(cp);
    }
    const std::string utf8 = Unicode2Utf8(text.c_str(), -1);
    ASSERT_EQ(Utf82Unicode(utf8.c_str(), -1), text);
    ASSERT_EQ(Utf82Unicode(utf8.data(), static_cast<int>(utf8.size())), text);
  }
}

}  // namespace
