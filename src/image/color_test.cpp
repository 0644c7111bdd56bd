#include <zelutility/color.h>

#include <gtest/gtest.h>

namespace {

// Sentinels that no parse below produces, so an untouched output is visible.
constexpr unsigned int kUntouchedWord = 0xDEADBEEFu;
constexpr CA_ColorSpace kUntouchedSpace = static_cast<CA_ColorSpace>(77);

struct Parsed {
  bool ok;
  unsigned int word;
  CA_ColorSpace space;
};

Parsed Parse(const char* text) {
  Parsed p{false, kUntouchedWord, kUntouchedSpace};
  p.ok = ParseColorString(text, p.word, p.space);
  return p;
}

void ExpectRefused(const char* text) {
  const Parsed p = Parse(text);
  EXPECT_FALSE(p.ok) << "\"" << text << "\"";
  EXPECT_EQ(p.word, kUntouchedWord) << "\"" << text << "\"";
  EXPECT_EQ(p.space, kUntouchedSpace) << "\"" << text << "\"";
}

void ExpectColor(const char* text, CA_ColorSpace space, unsigned int word) {
  const Parsed p = Parse(text);
  EXPECT_TRUE(p.ok) << "\"" << text << "\"";
  EXPECT_EQ(p.space, space) << "\"" << text << "\"";
  EXPECT_EQ(p.word, word) << std::hex << "\"" << text << "\" gave 0x" << p.word;
}

TEST(ParseColorStringTest, HexadecimalPacksPairsByColorSpaceOrRefuses) {
  ExpectColor("#FF0000", CA_COLORSPACE_Rgb, 0x000000FFu);  // red is the lowest byte
  ExpectColor("#123456", CA_COLORSPACE_Rgb, 0x00563412u);
  ExpectColor("#aBcDEf", CA_COLORSPACE_Rgb, 0x00EFCDABu);
  ExpectColor("#80", CA_COLORSPACE_Gray, 0x00808080u);
  ExpectColor("#80402010", CA_COLORSPACE_Argb, 0x80402010u);  // first pair is the highest byte
  // Wrong lengths, then a character outside the digits in any pair, high or low position.
  for (const char* text : {"#", "#1", "#123", "#1234", "#12345", "#1234567", "#123456789", "#FF0000 ", "#1 2 3",
                           "#G0", "#0G", "#12345Z", "#Z23456", "#12 456", "#-1", "#1234567x"}) {
    ExpectRefused(text);
  }
}

TEST(ParseColorStringTest, DecimalCountsDecideColorSpaceAndNumbersSpill) {
  ExpectColor("128", CA_COLORSPACE_Gray, 0x00808080u);
  ExpectColor("1 2 3", CA_COLORSPACE_Rgb, 0x00030201u);
  ExpectColor("1 2 3 4", CA_COLORSPACE_Argb, 0x01020304u);
  for (const char* text : {"1 2", "1 2 3 4 5", "1 2 3 4 5 6 7 8 9", "", "   ", " \t\r\n\v\f"}) {
    ExpectRefused(text);
  }
  // Numbers past a byte spill into the neighbouring bytes.
  ExpectColor("300", CA_COLORSPACE_Gray, 0x012D2D2Cu);
  ExpectColor("-1", CA_COLORSPACE_Gray, 0xFFFFFFFFu);
  ExpectColor("256 0 0", CA_COLORSPACE_Rgb, 0x00000100u);  // carries into green
  ExpectColor("0 0 256", CA_COLORSPACE_Rgb, 0x01000000u);  // into the top byte
  ExpectColor("0 -1 0", CA_COLORSPACE_Rgb, 0xFFFFFF00u);
  ExpectColor("256 0 0 0", CA_COLORSPACE_Argb, 0u);  // shifted past bit 31
}

TEST(ParseColorStringTest, TokensAndSeparators) {
  ExpectColor("abc", CA_COLORSPACE_Gray, 0u);  // letters: one token, the number 0
  ExpectColor("12abc", CA_COLORSPACE_Gray, 0x000C0C0Cu);
  ExpectColor("1,2,3", CA_COLORSPACE_Gray, 0x00010101u);  // commas do not separate
  ExpectColor("1, 2, 3", CA_COLORSPACE_Rgb, 0x00030201u);
  ExpectColor("+5 x 7", CA_COLORSPACE_Rgb, 0x00070005u);
  ExpectColor("1\t2\t3", CA_COLORSPACE_Gray, 0x00010101u);  // a tab is no separator
  ExpectColor("\t\r\n 7", CA_COLORSPACE_Gray, 0x00070707u);
  ExpectColor(" #FF0000", CA_COLORSPACE_Gray, 0u);  // "#" behind white space is a token
  ExpectColor("1 \t2 3", CA_COLORSPACE_Rgb, 0x00030201u);  // atoi skips the tab after a blank
  ExpectColor("1 2 3\t", CA_COLORSPACE_Rgb, 0x00030201u);  // the tab ends the last token
}

TEST(ParseColorByteTest, WritesRgbOnlyAndRoundTrips) {
  CMRL_ByteString text;
  ASSERT_TRUE(ParseColorByte(0xAA112233u, CA_COLORSPACE_Rgb, text));
  EXPECT_STREQ(text.c_str(), "#332211");  // red first, top byte ignored
  ASSERT_TRUE(ParseColorByte(0x00ABCDEFu, CA_COLORSPACE_Rgb, text));
  EXPECT_STREQ(text.c_str(), "#EFCDAB");  // capital digits
  for (int space : {0, 1, 3, 4, -1}) {
    CMRL_ByteString kept("kept");
    EXPECT_FALSE(ParseColorByte(0x00102030u, static_cast<CA_ColorSpace>(space), kept)) << space;
    EXPECT_STREQ(kept.c_str(), "kept") << space;
  }
  for (unsigned int word : {0u, 0x00010203u, 0x00FFFFFFu, 0x7F00FF01u}) {
    ASSERT_TRUE(ParseColorByte(word, CA_COLORSPACE_Rgb, text));
    const Parsed back = Parse(text.c_str());
    EXPECT_TRUE(back.ok && back.space == CA_COLORSPACE_Rgb) << text.c_str();
    EXPECT_EQ(back.word, word & 0x00FFFFFFu) << text.c_str();
  }
}

}  // namespace
