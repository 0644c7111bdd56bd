// Files written by another program (Python's PIL) must decode to the pixels that were saved.
// The fixtures and their RGBA dumps come from testdata/pil/make_fixtures.py.

#include <gtest/gtest.h>

#include <cstdlib>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

constexpr int kWidth = 17, kHeight = 13;

std::string FixtureDir() { return std::string(ZEL_SOURCE_DIR) + "/mrlbase/src/codec/testdata/pil/"; }

// Compares a decoded page with its dump, colour included where alpha is 0 (a palette entry
// made transparent keeps its colour).
void ExpectPixels(const std::string& name, int frame, const std::string& dumpName, int tolerance,
                  CA_DibFormat expectedFormat) {
  SCOPED_TRACE(name + " frame " + std::to_string(frame));
  Bytes file, dump;
  ASSERT_TRUE(ReadFileBytes(FixtureDir() + name, file));
  ASSERT_TRUE(ReadFileBytes(FixtureDir() + dumpName, dump));
  ASSERT_EQ(dump.size(), static_cast<size_t>(kWidth * kHeight * 4));
  std::unique_ptr<CCA_Dib> dib = Decode(file, frame);
  ASSERT_NE(dib, nullptr);
  ASSERT_EQ(dib->GetWidth(), kWidth);
  ASSERT_EQ(dib->GetHeight(), kHeight);
  EXPECT_EQ(dib->GetFormat(), expectedFormat);
  int worst = 0;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const uint8_t* want = &dump[(static_cast<size_t>(y) * kWidth + x) * 4];
      const uint32_t got = Argb(*dib, x, y);
      const int alpha = static_cast<int>(got >> 24);
      ASSERT_EQ(alpha, want[3]) << "alpha at " << x << "," << y;
      for (int c = 0; c < 3; ++c) {
        const int channel = static_cast<int>((got >> (16 - 8 * c)) & 0xFF);
        const int diff = std::abs(channel - want[c]);
        if (diff > worst) worst = diff;
        if (tolerance == 0) {
          ASSERT_EQ(channel, want[c]) << "channel " << c << " at " << x << "," << y;
        }
      }
    }
  }
  EXPECT_LE(worst, tolerance);
}

TEST(PilFiles, LosslessFormatsGiveTheSavedPixelsExactly) {
  ExpectPixels("palette_trns.png", 0, "palette_trns.png.rgba", 0, CA_DIB_Argb);
  ExpectPixels("transparent.gif", 0, "transparent.gif.rgba", 0, CA_DIB_Argb);
  ExpectPixels("lzw.tif", 0, "lzw.tif.rgba", 0, CA_DIB_Rgb);
  ExpectPixels("gray16.png", 0, "gray16.png.rgba", 0, CA_DIB_8bpp);
  ExpectPixels("gray16.tif", 0, "gray16.tif.rgba", 0, CA_DIB_8bpp);
  ExpectPixels("gray_alpha.tif", 0, "gray_alpha.tif.rgba", 0, CA_DIB_Argb);
  ExpectPixels("group4.tif", 0, "group4.tif.rgba", 0, CA_DIB_1bpp);
  ExpectPixels("palette8.bmp", 0, "palette8.bmp.rgba", 0, CA_DIB_8bpp);
  // The fourth byte of a 32 bpp file that is not all zero is alpha.
  ExpectPixels("rgba32.bmp", 0, "rgba32.bmp.rgba", 0, CA_DIB_Argb);
  ExpectPixels("lossless.jp2", 0, "lossless.jp2.rgba", 0, CA_DIB_Rgb);
}

TEST(PilFiles, MultiPageTiffGivesEachPageByFrameNumber) {
  ExpectPixels("multipage.tif", 0, "multipage.tif.rgba", 0, CA_DIB_Rgb);
  ExpectPixels("multipage.tif", 1, "multipage.tif.page1.rgba", 0, CA_DIB_8bpp);
  Bytes file;
  ASSERT_TRUE(ReadFileBytes(FixtureDir() + "multipage.tif", file));
  EXPECT_EQ(Decode(file, 2), nullptr);
}

TEST(PilFiles, JpegBaselineAndProgressiveMatchWithinRounding) {
  // Same library underneath, so only the rounding of the colour conversion may differ.
  ExpectPixels("baseline.jpg", 0, "baseline.jpg.rgba", 2, CA_DIB_Rgb);
  ExpectPixels("progressive.jpg", 0, "progressive.jpg.rgba", 2, CA_DIB_Rgb);
}

}  // namespace
