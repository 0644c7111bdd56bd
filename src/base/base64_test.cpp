#include <zelutility/base64.h>

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>
#include <vector>

namespace {

std::string Str(const CMRL_ByteString& s) { return std::string(s.AsStringView()); }

std::string Encode(const std::string& bytes) {
  return Str(Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size())));
}

std::string Decode(const std::string& text) { return Str(Base64Decode(text.data(), static_cast<int>(text.size()))); }

// Plain one-character-at-a-time codecs written straight from the definition, to hold the fast
// loops against.
const char kRefAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string ReferenceEncode(const std::string& bytes) {
  std::string out;
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const unsigned b0 = static_cast<unsigned char>(bytes[i]), b1 = static_cast<unsigned char>(bytes[i + 1]),
                   b2 = static_cast<unsigned char>(bytes[i + 2]);
    out += kRefAlphabet[b0 >> 2];
    out += kRefAlphabet[((b0 & 3) << 4) + (b1 >> 4)];
    out += kRefAlphabet[((b1 & 15) << 2) + (b2 >> 6)];
    out += kRefAlphabet[b2 & 63];
  }
  const std::size_t rest = bytes.size() - i;
  if (rest > 0) {
    const unsigned b0 = static_cast<unsigned char>(bytes[i]);
    const unsigned b1 = rest > 1 ? static_cast<unsigned char>(bytes[i + 1]) : 0;
    out += kRefAlphabet[b0 >> 2];
    out += kRefAlphabet[((b0 & 3) << 4) + (b1 >> 4)];
    out += rest > 1 ? kRefAlphabet[(b1 & 15) << 2] : '=';
    out += '=';
  }
  return out;
}

std::string ReferenceDecode(const std::string& text) {
  std::string out;
  int group[4];
  int n = 0;
  for (char ch : text) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c == '=' || !(std::isalnum(c) || c == '+' || c == '/')) break;
    group[n++] = static_cast<int>(std::string(kRefAlphabet).find(static_cast<char>(c)));
    if (n == 4) {
      out += static_cast<char>((group[0] << 2) + (group[1] >> 4));
      out += static_cast<char>((group[1] << 4) + (group[2] >> 2));
      out += static_cast<char>((group[2] << 6) + group[3]);
      n = 0;
    }
  }
  for (int k = n; k < 4; ++k) group[k] = 0;
  const char bytes[3] = {static_cast<char>((group[0] << 2) + (group[1] >> 4)),
                         static_cast<char>((group[1] << 4) + (group[2] >> 2)),
                         static_cast<char>((group[2] << 6) + group[3])};
  if (n > 1) out.append(bytes, static_cast<std::size_t>(n - 1));
  return out;
}

std::string RandomBytes(std::mt19937& rng, std::size_t n) {
  std::uniform_int_distribution<int> byte(0, 255);
  std::string s(n, '\0');
  for (char& c : s) c = static_cast<char>(byte(rng));
  return s;
}

TEST(Base64Test, EncodesGroupsAndPadsTheLastOne) {
  EXPECT_EQ(Encode("abc"), "YWJj");
  EXPECT_EQ(Encode("ab"), "YWI=");
  EXPECT_EQ(Encode("a"), "YQ==");
  EXPECT_EQ(Encode(""), "");
  EXPECT_TRUE(Base64Encode(nullptr, 0).IsEmpty());   // data is not read for length 0
  // Every alphabet character and both high-bit patterns show up.
  EXPECT_EQ(Encode(std::string("\x00\x10\x83\x10\x51\x87\x20\x92\x8b\x30\xd3\x8f\x41\x14\x93\x51\x55\x97"
                               "\x61\x96\x9b\x71\xd7\x9f\x82\x18\xa3\x92\x59\xa7\xa2\x9a\xab\xb2\xdb\xaf"
                               "\xc3\x1c\xb3\xd3\x5d\xb7\xe3\x9e\xbb\xf3\xdf\xbf",
                               48)),
            kRefAlphabet);
}

TEST(Base64Test, DecodesCompleteAndIncompleteGroups) {
  EXPECT_EQ(Decode("YWI"), "ab");
  EXPECT_EQ(Decode("YQ"), "a");
  EXPECT_EQ(Decode("AGEA"), std::string("\0a\0", 3));
  EXPECT_EQ(Decode("Y"), "");         // one leftover character gives nothing
  EXPECT_EQ(Decode("YWJjY"), "abc");
  EXPECT_EQ(Decode(""), "");
  EXPECT_TRUE(Base64Decode(nullptr, -1).IsEmpty());
  EXPECT_EQ(Str(Base64Decode("YWJj", -1)), "abc");
}

TEST(Base64Test, DecodingStopsAtPadOrFirstForeignByte) {
  EXPECT_EQ(Decode("YQ==YWJj"), "a");                 // nothing behind the pad comes in
  EXPECT_EQ(Decode("YWJj\nYWJj"), "abc");             // a line break ends it like a pad
  EXPECT_EQ(Decode("YW-Jj"), "a");                    // URL-safe characters are foreign
  EXPECT_EQ(Decode("YWJjYWJjYWJjYW\xC3\xA9Jj"), "abcabcabca");   // high bytes are foreign
  EXPECT_EQ(Decode("=YWJj"), "");
  // The explicit length bounds the walk, and a zero byte inside it is a foreign byte.
  EXPECT_EQ(Str(Base64Decode("YWJjYWJj", 4)), "abc");
  EXPECT_EQ(Str(Base64Decode("YWJjYWJj", 6)), "abca");
  EXPECT_EQ(Str(Base64Decode("YWJj\0YWJj", 9)), "abc");
  EXPECT_TRUE(Base64Decode("YWJj", 0).IsEmpty());
}

// The bulk loops take 12 bytes and 8 characters a step; sizes around those steps and stops at
// every position within and after them must give exactly what the plain loops give.
TEST(Base64Test, MatchesPlainReferenceOnRandomInput) {
  std::mt19937 rng(20240611);
  for (std::size_t n = 0; n < 80; ++n) {
    const std::string bytes = RandomBytes(rng, n);
    const std::string text = Encode(bytes);
    ASSERT_EQ(text, ReferenceEncode(bytes)) << "length " << n;
    ASSERT_EQ(Decode(text), bytes) << "length " << n;
  }
  const std::string big = RandomBytes(rng, 100003);
  const std::string bigText = Encode(big);
  ASSERT_EQ(bigText, ReferenceEncode(big));
  ASSERT_EQ(Decode(bigText), big);

  // Text that stops early: one foreign byte planted at every position of a 40-character text.
  const std::string text = Encode(RandomBytes(rng, 30));
  const char foreign[] = {'=', '\n', ' ', '-', '_', '\0', '\x80', '\xFF', '.'};
  for (std::size_t pos = 0; pos <= text.size(); ++pos) {
    for (char f : foreign) {
      std::string cut = text;
      cut.insert(pos, 1, f);
      ASSERT_EQ(Decode(cut), ReferenceDecode(cut)) << "stop at " << pos << " byte " << int(f);
    }
  }
  // Random text over the alphabet sprinkled with foreign bytes.
  std::uniform_int_distribution<int> pick(0, 69);
  for (int round = 0; round < 300; ++round) {
    std::string t(static_cast<std::size_t>(pick(rng)) * 3, 'A');
    for (char& c : t) {
      const int k = pick(rng);
      c = k < 64 ? kRefAlphabet[k] : "= \n\t-\x01"[k - 64];
    }
    ASSERT_EQ(Decode(t), ReferenceDecode(t)) << t;
  }
}

}  // namespace
