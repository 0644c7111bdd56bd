#include <mrlbase/device.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "font/lsan_suppressions.h"

#include <mrlbase/dib.h>
#include <mrlbase/font.h>

namespace {

using P = CMRL_PSVTemplate<int>;

struct Box {
  int left, top, right, bottom;  // inclusive; left > right when empty
};

void Fill(CCA_Dib& dib, unsigned value) {
  for (int y = 0; y < dib.GetHeight(); ++y)
    for (int x = 0; x < dib.GetWidth(); ++x) dib.SetPixel(P(x, y), value);
}

// Pixels whose colour bits differ from the background.
Box InkBox(const CCA_Dib& dib, unsigned background) {
  Box box{dib.GetWidth(), dib.GetHeight(), -1, -1};
  for (int y = 0; y < dib.GetHeight(); ++y)
    for (int x = 0; x < dib.GetWidth(); ++x)
      if ((dib.GetPixel(P(x, y)) ^ background) & 0xFFFFFF) {
        box.left = std::min(box.left, x);
        box.top = std::min(box.top, y);
        box.right = std::max(box.right, x);
        box.bottom = std::max(box.bottom, y);
      }
  return box;
}

std::vector<unsigned char> Bytes(const CCA_Dib& dib) {
  return std::vector<unsigned char>(dib.GetBuffer(), dib.GetBuffer() + dib.GetPitch() * dib.GetHeight());
}

class DibDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(font.LoadFont(L"DejaVu Sans", L"", 0, 400, 0)); }
  CCA_Font font{nullptr};
};

TEST_F(DibDeviceTest, DrawsOnEveryTrueColourFormatAroundTheBaseline) {
  for (CA_DibFormat format : {CA_DIB_Rgb, CA_DIB_Rgb32, CA_DIB_Argb}) {
    CCA_Dib dib;
    ASSERT_TRUE(dib.Create(200, 80, format));
    Fill(dib, 0xFFFFFFFF);
    CCA_DibDevice device(&dib);
    const CMRL_Matrix m(1, 0, 0, 1, 20, 50);
    EXPECT_EQ(device.DrawTextRun(L"Hxg", 3, &font, 30, &m, 0xFF000000), 1) << format;
    const Box box = InkBox(dib, 0xFFFFFF);
    ASSERT_LE(box.left, box.right) << format;
    EXPECT_GE(box.left, 20);
    EXPECT_LE(box.left, 24);
    EXPECT_LT(box.top, 50 - 18);   // capital height of a 30 px face
    EXPECT_GT(box.bottom, 50 + 2); // the descender of g
    EXPECT_LT(box.bottom, 50 + 12);
    EXPECT_EQ(device.FinishStepOne(), 1);
    EXPECT_EQ(device.FinishStepTwo(), 1);
  }
}

TEST_F(DibDeviceTest, BlendsTheColourByCoverage) {
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(120, 60, CA_DIB_Rgb32));
  Fill(dib, 0xFF204060);
  CCA_DibDevice device(&dib);
  const CMRL_Matrix m(1, 0, 0, 1, 5, 45);
  ASSERT_EQ(device.DrawTextRun(L"\x2588", 1, &font, 40, &m, 0xFFC08010), 1);  // full block: solid core
  bool sawSolid = false;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 120; ++x) {
      const unsigned p = dib.GetPixel(P(x, y)) & 0xFFFFFF;
      sawSolid |= p == 0xC08010;
      // Every pixel lies between the background and the text colour, channel by channel.
      for (int shift : {0, 8, 16}) {
        const int v = (p >> shift) & 0xFF, lo = (0x204060 >> shift) & 0xFF, hi = (0xC08010 >> shift) & 0xFF;
        EXPECT_GE(v, std::min(lo, hi));
        EXPECT_LE(v, std::max(lo, hi));
      }
    }
  EXPECT_TRUE(sawSolid);

  // Fully transparent colour leaves the bitmap alone; half alpha lands half way.
  const std::vector<unsigned char> before = Bytes(dib);
  EXPECT_EQ(device.DrawTextRun(L"W", 1, &font, 40, &m, 0x00000000), 1);
  EXPECT_EQ(Bytes(dib), before);

  CCA_Dib half;
  ASSERT_TRUE(half.Create(60, 60, CA_DIB_Rgb));
  Fill(half, 0xFFFFFF);
  CCA_DibDevice halfDevice(&half);
  ASSERT_EQ(halfDevice.DrawTextRun(L"\x2588", 1, &font, 40, &m, 0x80000000), 1);
  unsigned darkest = 0xFF;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 60; ++x) darkest = std::min(darkest, half.GetPixel(P(x, y)) & 0xFF);
  EXPECT_NEAR(static_cast<int>(darkest), 0x7F, 1);
}

TEST_F(DibDeviceTest, KeepsAlphaUpToDateOnTransparentBitmaps) {
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(60, 60, CA_DIB_Argb));  // zero: transparent black
  CCA_DibDevice device(&dib);
  const CMRL_Matrix m(1, 0, 0, 1, 5, 45);
  ASSERT_EQ(device.DrawTextRun(L"\x2588", 1, &font, 40, &m, 0xFF3366CC), 1);
  int solid = 0;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 60; ++x) {
      const unsigned p = dib.GetPixel(P(x, y));
      if (p >> 24 == 0xFF) {
        EXPECT_EQ(p, 0xFF3366CCu);
        ++solid;
      } else if (p >> 24) {
        EXPECT_EQ(p & 0xFFFFFF, 0x3366CCu) << "colour of a partly covered pixel is not darkened";
      } else {
        EXPECT_EQ(p, 0u);
      }
    }
  EXPECT_GT(solid, 100);
}

TEST_F(DibDeviceTest, AppliesKerningBetweenGlyphs) {
  const float size = 60;
  CCA_Dib run, manual;
  ASSERT_TRUE(run.Create(200, 80, CA_DIB_Rgb));
  ASSERT_TRUE(manual.Create(200, 80, CA_DIB_Rgb));
  Fill(run, 0xFFFFFF);
  Fill(manual, 0xFFFFFF);
  const CMRL_Matrix m(1, 0, 0, 1, 10, 65);
  CCA_DibDevice(&run).DrawTextRun(L"AV", 2, &font, size, &m, 0xFF000000);

  // The same two glyphs placed by hand: A's advance plus the pair's kerning.
  CCA_DibDevice device(&manual);
  device.DrawTextRun(L"A", 1, &font, size, &m, 0xFF000000);
  CA_GlyphImage glyph;
  float advance = 0;
  ASSERT_TRUE(font.RenderGlyph(L'A', size, m, 10, 65, glyph, advance));
  const float kern = font.GetKerning(L'A', L'V', size);
  ASSERT_LT(kern, 0);
  const CMRL_Matrix second(1, 0, 0, 1, 10 + advance + kern, 65);
  device.DrawTextRun(L"V", 1, &font, size, &second, 0xFF000000);
  EXPECT_EQ(Bytes(run), Bytes(manual));

  // Without the kerning the V would sit elsewhere.
  CCA_Dib unkerned;
  ASSERT_TRUE(unkerned.Create(200, 80, CA_DIB_Rgb));
  Fill(unkerned, 0xFFFFFF);
  CCA_DibDevice other(&unkerned);
  other.DrawTextRun(L"A", 1, &font, size, &m, 0xFF000000);
  const CMRL_Matrix plain(1, 0, 0, 1, 10 + advance, 65);
  other.DrawTextRun(L"V", 1, &font, size, &plain, 0xFF000000);
  EXPECT_NE(Bytes(run), Bytes(unkerned));
}

TEST_F(DibDeviceTest, RefusesWhatItCannotDrawAndClipsTheRest) {
  CCA_Dib gray;
  ASSERT_TRUE(gray.Create(40, 40, CA_DIB_8bpp));
  const std::vector<unsigned char> grayBefore = Bytes(gray);
  const CMRL_Matrix m(1, 0, 0, 1, 2, 30);
  EXPECT_EQ(CCA_DibDevice(&gray).DrawTextRun(L"A", 1, &font, 30, &m, 0xFFFFFFFF), 0);
  EXPECT_EQ(Bytes(gray), grayBefore);
  EXPECT_EQ(CCA_DibDevice(nullptr).DrawTextRun(L"A", 1, &font, 30, &m, 0xFF000000), 0);
  CCA_Dib empty;
  EXPECT_EQ(CCA_DibDevice(&empty).DrawTextRun(L"A", 1, &font, 30, &m, 0xFF000000), 0);

  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(40, 40, CA_DIB_Rgb32));
  CCA_DibDevice device(&dib);
  CCA_Font unloaded(nullptr);
  EXPECT_EQ(device.DrawTextRun(L"A", 1, &unloaded, 30, &m, 0xFF000000), 0);
  EXPECT_EQ(device.DrawTextRun(L"A", 1, nullptr, 30, &m, 0xFF000000), 0);
  EXPECT_EQ(device.DrawTextRun(nullptr, 1, &font, 30, &m, 0xFF000000), 0);
  EXPECT_EQ(device.DrawTextRun(L"A", 0, &font, 30, &m, 0xFF000000), 0);

  // Runs that hang over every edge are clipped (the sanitizers watch the writes).
  Fill(dib, 0xFFFFFFFF);
  for (const CMRL_Matrix& at : {CMRL_Matrix(1, 0, 0, 1, -25, 10), CMRL_Matrix(1, 0, 0, 1, 30, 60),
                                CMRL_Matrix(2, 0, 0, 2, -1e4f, -1e4f), CMRL_Matrix(1, 0, 0, 1, 3e9f, -3e9f), CMRL_Matrix(-1, 0, 0, -1, 5, 5)})
    EXPECT_EQ(device.DrawTextRun(L"WWWWWW", 6, &font, 50, &at, 0xFF000000), 1);
  EXPECT_EQ(device.DrawTextRun(L"A", 1, &font, 30, nullptr, 0xFF000000), 1);  // identity

  // Control characters take no room: "A\nB" lays out like "AB".
  CCA_Dib a, b;
  ASSERT_TRUE(a.Create(100, 40, CA_DIB_Rgb));
  ASSERT_TRUE(b.Create(100, 40, CA_DIB_Rgb));
  CCA_DibDevice(&a).DrawTextRun(L"A\nB", 3, &font, 24, &m, 0xFFFFFFFF);
  CCA_DibDevice(&b).DrawTextRun(L"AB", 2, &font, 24, &m, 0xFFFFFFFF);
  EXPECT_EQ(Bytes(a), Bytes(b));
}

}  // namespace
