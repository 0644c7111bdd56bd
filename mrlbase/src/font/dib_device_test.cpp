#include <mrlbase/device.h>

#include <algorithm>
#include <cwchar>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "font/lsan_suppressions.h"

#include <mrlbase/dib.h>
#include <mrlbase/font.h>

namespace {

using P = CMRL_PSVTemplate<int>;

std::unique_ptr<CCA_Dib> Filled(int w, int h, CA_DibFormat format, unsigned value) {
  auto dib = std::make_unique<CCA_Dib>();
  EXPECT_TRUE(dib->Create(w, h, format));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) dib->SetPixel(P(x, y), value);
  return dib;
}

std::vector<unsigned char> Bytes(const CCA_Dib& dib) {
  return std::vector<unsigned char>(dib.GetBuffer(), dib.GetBuffer() + dib.GetPitch() * dib.GetHeight());
}

CMRL_Matrix At(float x, float y) { return CMRL_Matrix(1, 0, 0, 1, x, y); }

class DibDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(font.LoadFont(L"DejaVu Sans", L"", 0, 400, 0)); }
  int Draw(CCA_Dib* dib, const wchar_t* text, float size, const CMRL_Matrix& m, unsigned argb) {
    return CCA_DibDevice(dib).DrawTextRun(text, static_cast<int>(wcslen(text)), &font, size, &m, argb);
  }
  CCA_Font font{nullptr};
};

TEST_F(DibDeviceTest, DrawsOnEveryTrueColourFormatAroundTheBaseline) {
  for (CA_DibFormat format : {CA_DIB_Rgb, CA_DIB_Rgb32, CA_DIB_Argb}) {
    auto dib = Filled(200, 80, format, 0xFFFFFFFF);
    CCA_DibDevice device(dib.get());
    const CMRL_Matrix m = At(20, 50);
    EXPECT_EQ(device.DrawTextRun(L"Hxg", 3, &font, 30, &m, 0xFF000000), 1) << format;
    EXPECT_EQ(device.FinishStepOne(), 1);
    EXPECT_EQ(device.FinishStepTwo(), 1);
    int left = 200, top = 80, bottom = -1;  // of the pixels whose colour changed
    for (int y = 0; y < 80; ++y)
      for (int x = 0; x < 200; ++x)
        if ((dib->GetPixel(P(x, y)) & 0xFFFFFF) != 0xFFFFFF) {
          left = std::min(left, x);
          top = std::min(top, y);
          bottom = std::max(bottom, y);
        }
    EXPECT_TRUE(left >= 20 && left <= 24) << format << ": " << left;
    EXPECT_LT(top, 50 - 18) << format;  // capital height of a 30 px face
    EXPECT_TRUE(bottom > 50 + 2 && bottom < 50 + 12) << format << ": " << bottom;  // the descender of g
  }
}

TEST_F(DibDeviceTest, BlendsTheColourByCoverageAndAlpha) {
  auto dib = Filled(120, 60, CA_DIB_Rgb32, 0xFF204060);
  ASSERT_EQ(Draw(dib.get(), L"\x2588", 40, At(5, 45), 0xFFC08010), 1);  // full block: solid core
  bool sawSolid = false;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 120; ++x) {
      const unsigned p = dib->GetPixel(P(x, y)) & 0xFFFFFF;
      sawSolid |= p == 0xC08010;
      // Every pixel lies between the background and the text colour, channel by channel.
      for (int shift : {0, 8, 16}) {
        const int v = (p >> shift) & 0xFF, lo = (0x204060 >> shift) & 0xFF, hi = (0xC08010 >> shift) & 0xFF;
        EXPECT_TRUE(v >= std::min(lo, hi) && v <= std::max(lo, hi)) << x << "," << y;
      }
    }
  EXPECT_TRUE(sawSolid);

  // Fully transparent colour leaves the bitmap alone; half alpha lands half way.
  const std::vector<unsigned char> before = Bytes(*dib);
  EXPECT_EQ(Draw(dib.get(), L"W", 40, At(5, 45), 0x00000000), 1);
  EXPECT_EQ(Bytes(*dib), before);
  auto half = Filled(60, 60, CA_DIB_Rgb, 0xFFFFFF);
  ASSERT_EQ(Draw(half.get(), L"\x2588", 40, At(5, 45), 0x80000000), 1);
  unsigned darkest = 0xFF;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 60; ++x) darkest = std::min(darkest, half->GetPixel(P(x, y)) & 0xFF);
  EXPECT_NEAR(static_cast<int>(darkest), 0x7F, 1);

  // On a transparent bitmap alpha follows coverage and the colour is not darkened.
  auto clear = Filled(60, 60, CA_DIB_Argb, 0);
  ASSERT_EQ(Draw(clear.get(), L"\x2588", 40, At(5, 45), 0xFF3366CC), 1);
  int solid = 0;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 60; ++x) {
      const unsigned p = clear->GetPixel(P(x, y));
      solid += p >> 24 == 0xFF;
      EXPECT_EQ(p, p >> 24 ? (p & 0xFF000000) | 0x3366CC : 0u) << x << "," << y;
    }
  EXPECT_GT(solid, 100);
}

TEST_F(DibDeviceTest, AppliesKerningBetweenGlyphs) {
  const float size = 60;
  auto run = Filled(200, 80, CA_DIB_Rgb, 0xFFFFFF);
  Draw(run.get(), L"AV", size, At(10, 65), 0xFF000000);
  // The same two glyphs placed by hand: equal with A's advance plus the pair's kerning, different without.
  CA_GlyphImage glyph;
  float advance = 0;
  ASSERT_TRUE(font.RenderGlyph(L'A', size, At(10, 65), 10, 65, glyph, advance));
  const float kern = font.GetKerning(L'A', L'V', size);
  ASSERT_LT(kern, 0);
  for (float shift : {kern, 0.0f}) {
    auto manual = Filled(200, 80, CA_DIB_Rgb, 0xFFFFFF);
    Draw(manual.get(), L"A", size, At(10, 65), 0xFF000000);
    Draw(manual.get(), L"V", size, At(10 + advance + shift, 65), 0xFF000000);
    EXPECT_EQ(Bytes(*run) == Bytes(*manual), shift != 0) << shift;
  }
}

TEST_F(DibDeviceTest, RefusesWhatItCannotDrawAndClipsTheRest) {
  const CMRL_Matrix m = At(2, 30);
  auto gray = Filled(40, 40, CA_DIB_8bpp, 0);
  const auto grayBefore = Bytes(*gray);
  EXPECT_EQ(Draw(gray.get(), L"A", 30, m, 0xFFFFFFFF), 0);
  EXPECT_EQ(Bytes(*gray), grayBefore);
  EXPECT_EQ(Draw(nullptr, L"A", 30, m, 0xFF000000), 0);
  CCA_Dib empty;
  EXPECT_EQ(Draw(&empty, L"A", 30, m, 0xFF000000), 0);

  auto dib = Filled(40, 40, CA_DIB_Rgb32, 0xFFFFFFFF);
  CCA_DibDevice device(dib.get());
  CCA_Font unloaded(nullptr);
  EXPECT_EQ(device.DrawTextRun(L"A", 1, &unloaded, 30, &m, 0xFF000000), 0);
  EXPECT_EQ(device.DrawTextRun(L"A", 1, nullptr, 30, &m, 0xFF000000), 0);
  EXPECT_EQ(device.DrawTextRun(nullptr, 1, &font, 30, &m, 0xFF000000), 0);
  EXPECT_EQ(device.DrawTextRun(L"A", 0, &font, 30, &m, 0xFF000000), 0);

  // Runs that hang over every edge are clipped (the sanitizers watch the writes).
  for (const CMRL_Matrix& at : {At(-25, 10), At(30, 60), CMRL_Matrix(2, 0, 0, 2, -1e4f, -1e4f), At(3e9f, -3e9f),
                                CMRL_Matrix(-1, 0, 0, -1, 5, 5)})
    EXPECT_EQ(device.DrawTextRun(L"WWWWWW", 6, &font, 50, &at, 0xFF000000), 1);
  EXPECT_EQ(device.DrawTextRun(L"A", 1, &font, 30, nullptr, 0xFF000000), 1);  // identity

  // Control characters take no room: "A\nB" lays out like "AB".
  auto a = Filled(100, 40, CA_DIB_Rgb, 0), b = Filled(100, 40, CA_DIB_Rgb, 0);
  Draw(a.get(), L"A\nB", 24, m, 0xFFFFFFFF);
  Draw(b.get(), L"AB", 24, m, 0xFFFFFFFF);
  EXPECT_EQ(Bytes(*a), Bytes(*b));
}

}  // namespace
