// What only the wide string does; the behaviour it shares with CMRL_ByteString is tested over both
// classes in byte_string_test.cpp.

#include <mrlbase/wide_string.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(WideStringTest, OneUnitPerCodePointComparedAsUnsigned) {
  // wchar_t is signed on Linux; a unit with the top bit set must still sort after every code point.
  const wchar_t high[] = {static_cast<wchar_t>(0x80000000u), 0};
  const wchar_t negativeOne[] = {static_cast<wchar_t>(-1), 0};
  EXPECT_TRUE(CMRL_WideString(L"\U0010FFFF") < CMRL_WideString(high));
  EXPECT_FALSE(CMRL_WideString(high) < CMRL_WideString(L"a"));
  EXPECT_TRUE(CMRL_WideString(high) < CMRL_WideString(negativeOne));
  EXPECT_TRUE(CMRL_WideString(L"\xFFFF") < CMRL_WideString(L"\U00010000"));

  CMRL_WideString s(L"a\U0001F600b");
  EXPECT_EQ(3, s.GetLength());
  EXPECT_EQ(static_cast<wchar_t>(0x1F600), s[1]);
  s.SetAt(1, L'\x4E2D');
  EXPECT_EQ(std::wstring(L"a\x4E2D" L"b"), s.c_str());
  s.MakeUpper();
  EXPECT_TRUE(s == L"A\x4E2D" L"B");
}

}  // namespace
