// Files written by another program (Python's PIL) must decode to the pixels that were saved.
// The fixtures and their RGBA dumps come from testdata/pil/make_fixtures.py.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

constexpr int kWidth = 17, kHeight = 13;

std::string FixtureDir() { return std::string(ZEL_SOURCE_DIR) + "/mrlbase/src/codec/testdata/pil/"; }

// Compares a decoded page with its dump (NAME.rgba, NAME.pageN.rgba past the first), colour included
// where alpha is 0 (a palette entry made transparent keeps its colour).
void ExpectPixels(const std::string& name, int frame, int tolerance, CA_DibFormat expectedFormat) {
  SCOPED_TRACE(name + " frame " + std::to_string(frame));
  Bytes file, dump;
  ASSERT_TRUE(ReadFileBytes(FixtureDir() + name, file));
  const std::string page = frame ? ".page" + std::to_string(frame) : "";
  ASSERT_TRUE(ReadFileBytes(FixtureDir() + name + page + ".rgba", dump));
  ASSERT_EQ(dump.size(), static_cast<size_t>(kWidth * kHeight * 4));
  std::unique_ptr<CCA_Dib> dib = Decode(file, frame);
  ASSERT_NE(dib, nullptr);
  ASSERT_EQ(dib->GetWidth(), kWidth);
  ASSERT_EQ(dib->GetHeight(), kHeight);
  EXPECT_EQ(dib->GetFormat(), expectedFormat);
  int worst = 0;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const uint32_t got = Argb(*dib, x, y), want = RgbaAt(dump, kWidth, x, y);
      // A layout without alpha shows every pixel opaque, whatever the file kept beside the colour.
      const uint32_t wantAlpha = expectedFormat == CA_DIB_Argb ? want >> 24 : 0xFF;
      ASSERT_EQ(got >> 24, wantAlpha) << "alpha at " << x << "," << y;
      for (int s = 0; s < 24; s += 8) worst = std::max(worst, std::abs(static_cast<int>((got >> s) & 0xFF) - static_cast<int>((want >> s) & 0xFF)));
    }
  }
  EXPECT_LE(worst, tolerance);
}

TEST(PilFiles, FilesGiveTheSavedPixels) {
  const struct {
    const char* name;
    int frame;
    int tolerance;
    CA_DibFormat format;
  } cases[] = {
      {"palette_trns.png", 0, 0, CA_DIB_Argb},
      {"transparent.gif", 0, 0, CA_DIB_Argb},
      {"lzw.tif", 0, 0, CA_DIB_Rgb},
      {"gray16.png", 0, 0, CA_DIB_8bpp},
      {"gray16.tif", 0, 0, CA_DIB_8bpp},
      {"gray_alpha.tif", 0, 0, CA_DIB_Argb},
      {"group4.tif", 0, 0, CA_DIB_1bpp},
      {"palette8.bmp", 0, 0, CA_DIB_8bpp},
      {"rgba32.bmp", 0, 0, CA_DIB_Rgb},   // plain header: the fourth bytes are not alpha
      {"lossless.jp2", 0, 0, CA_DIB_Rgb},
      {"multipage.tif", 0, 0, CA_DIB_Rgb},
      {"multipage.tif", 1, 0, CA_DIB_8bpp},
      // Same library underneath, so only the rounding of the colour conversion may differ.
      {"baseline.jpg", 0, 2, CA_DIB_Rgb},
      {"progressive.jpg", 0, 2, CA_DIB_Rgb},
  };
  for (const auto& c : cases) ExpectPixels(c.name, c.frame, c.tolerance, c.format);
  Bytes file;
  ASSERT_TRUE(ReadFileBytes(FixtureDir() + "multipage.tif", file));
  EXPECT_EQ(Decode(file, 2), nullptr);
}

}  // namespace
