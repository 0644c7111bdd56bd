#include <zelutility/composite.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "font/lsan_suppressions.h"

#include <dirent.h>

#include <mrlbase/device.h>
#include <mrlbase/font.h>
#include <mrlbase/stream.h>
#include <zelutility/image_codec.h>

#include "image/auto_clip_reference.h"

namespace {

using P = CMRL_PSVTemplate<int>;
using R = CMRL_DeviceRectTemplate<int>;

std::unique_ptr<CCA_Dib> Make(int w, int h, CA_DibFormat format, unsigned value) {
  std::unique_ptr<CCA_Dib> dib(new CCA_Dib);
  EXPECT_TRUE(dib->Create(w, h, format));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) dib->SetPixel(P(x, y), value);
  return dib;
}

// Every pixel a different colour, so a misplaced read shows.
std::unique_ptr<CCA_Dib> Pattern(int w, int h) {
  auto dib = Make(w, h, CA_DIB_Rgb32, 0);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) dib->SetPixel(P(x, y), 0xFF000000u | (40u * x + 7) << 16 | (30u * y + 9) << 8 | 0xA0);
  return dib;
}

std::vector<unsigned char> Bytes(const CCA_Dib& dib) {
  return std::vector<unsigned char>(dib.GetBuffer(), dib.GetBuffer() + dib.GetPitch() * dib.GetHeight());
}

unsigned Hsb(unsigned source, unsigned backdrop) {
  unsigned out = 0;
  CompositeHSBColor(source, backdrop, &out);
  return out;
}

bool SameRect(const R& a, const R& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

TEST(CompositeDibInBM, NullBitmapsAndOtherModes) {
  auto source = Pattern(4, 4);
  auto target = Make(6, 6, CA_DIB_Rgb32, 0xFF808080);
  R rect(1, 1, 3, 3);
  P point(0, 0);
  const auto before = Bytes(*target);
  EXPECT_FALSE(CompositeDibInBM(nullptr, target.get(), CA_BLEND_Normal, rect, point));
  EXPECT_FALSE(CompositeDibInBM(source.get(), nullptr, CA_BLEND_HSB, rect, point));
  EXPECT_EQ(Bytes(*target), before);

  // Other modes go to CompositeBitmap with the rectangle and point as given.
  for (CA_BlendMode mode : {CA_BLEND_Normal, CA_BLEND_Multiply, CA_BLEND_Luminosity}) {
    auto direct = Make(6, 6, CA_DIB_Rgb32, 0xFF808080);
    auto viaCall = Make(6, 6, CA_DIB_Rgb32, 0xFF808080);
    R given(4, 5, 0, 1);  // out of order: handed on untouched
    P at(-1, 1);
    ASSERT_EQ(direct->CompositeBitmap(given, source.get(), at, mode, nullptr), 1);
    EXPECT_TRUE(CompositeDibInBM(source.get(), viaCall.get(), mode, given, at));
    EXPECT_EQ(Bytes(*viaCall), Bytes(*direct)) << mode;
    EXPECT_TRUE(SameRect(given, R(4, 5, 0, 1)));
    EXPECT_EQ(at.x, -1);
    EXPECT_EQ(at.y, 1);
  }
  // A composite the foundation refuses answers false.
  EXPECT_FALSE(CompositeDibInBM(source.get(), target.get(), static_cast<CA_BlendMode>(17), rect, point));
}

TEST(CompositeDibInBM, HsbModeNormalisesAndClipsTheRectangleInPlace) {
  auto source = Pattern(5, 5);
  {
    auto target = Make(8, 8, CA_DIB_Rgb32, 0xFF406080);
    R rect(3, 4, 1, 2);
    P point(0, 0);
    ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, rect, point));
    EXPECT_TRUE(SameRect(rect, R(1, 2, 3, 4)));
    // Inclusive bounds: columns 1..3 and rows 2..4 take source 0..2.
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) {
        const bool inside = x >= 1 && x <= 3 && y >= 2 && y <= 4;
        const unsigned expected = inside ? Hsb(source->GetPixel(P(x - 1, y - 2)), 0xFF406080) : 0xFF406080;
        EXPECT_EQ(target->GetPixel(P(x, y)), expected) << x << "," << y;
      }
  }
  {
    // Wholly to the right of the target: nothing to do, and that is a success.
    auto target = Make(8, 8, CA_DIB_Rgb32, 0xFF406080);
    const auto before = Bytes(*target);
    R rect(9, 0, 12, 3);
    P point(0, 0);
    EXPECT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, rect, point));
    EXPECT_EQ(Bytes(*target), before);
    R above(0, -9, 3, -1);
    EXPECT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, above, point));
    P beyond(6, 0);  // starts past the source's width
    R inside(0, 0, 2, 2);
    EXPECT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, inside, beyond));
    EXPECT_EQ(Bytes(*target), before);
  }
  {
    // Sticking out: clipped to the target's width and height, which the caller sees.
    auto target = Make(8, 8, CA_DIB_Rgb32, 0xFF406080);
    R rect(-5, -2, 20, 30);
    P point(0, 0);
    ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, rect, point));
    EXPECT_TRUE(SameRect(rect, R(0, 0, 8, 8)));
    // Left -5 with point 0 starts at target 0 and source 0: no source column is skipped.
    EXPECT_EQ(target->GetPixel(P(0, 0)), Hsb(source->GetPixel(P(0, 0)), 0xFF406080));
    EXPECT_EQ(target->GetPixel(P(4, 4)), Hsb(source->GetPixel(P(4, 4)), 0xFF406080));
    EXPECT_EQ(target->GetPixel(P(5, 2)), 0xFF406080u);  // past the source
    EXPECT_EQ(target->GetPixel(P(2, 5)), 0xFF406080u);
  }
  {
    // One column when left equals right; a negative point shifts the source against the target.
    auto target = Make(8, 8, CA_DIB_Rgb32, 0xFF406080);
    R empty(2, 1, 2, 6);
    P point(-2, -1);  // the area would end at source x -2 - 2 + 2 = -2: nothing to do
    const auto before = Bytes(*target);
    ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, empty, point));
    EXPECT_EQ(Bytes(*target), before);
    // Target columns 2..6 with the area from source x -2: clipping the start to 0 does not move
    // the target, so target column 2 takes source column 0.
    R shifted(2, 1, 6, 2);
    P negative(-2, -1);
    ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, shifted, negative));
    EXPECT_EQ(target->GetPixel(P(2, 1)), Hsb(source->GetPixel(P(0, 0)), 0xFF406080));
    EXPECT_EQ(target->GetPixel(P(4, 1)), Hsb(source->GetPixel(P(2, 0)), 0xFF406080));
    EXPECT_EQ(target->GetPixel(P(5, 1)), 0xFF406080u);  // past the area's far x of 2
    EXPECT_EQ(target->GetPixel(P(2, 2)), 0xFF406080u);  // past its far y of -1 - 1 + 2 = 0
    target = Make(8, 8, CA_DIB_Rgb32, 0xFF406080);
    R column(2, 1, 2, 6);
    P origin(1, 0);
    ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, column, origin));
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) {
        const bool inside = x == 2 && y >= 1 && y <= 5;  // source rows 0..4 exist, row 5 does not
        const unsigned expected = inside ? Hsb(source->GetPixel(P(1, y - 1)), 0xFF406080) : 0xFF406080;
        EXPECT_EQ(target->GetPixel(P(x, y)), expected) << x << "," << y;
      }
  }
}

TEST(CompositeDibInBM, TargetAlphaIsTakenFirstAndMultipliedBack) {
  auto source = Pattern(3, 3);
  // With alpha: the whole target's alpha is multiplied by its own earlier value, in every mode.
  for (CA_BlendMode mode : {CA_BLEND_HSB, CA_BLEND_Normal}) {
    auto target = Make(6, 4, CA_DIB_Argb, 0x80406080);
    R rect(0, 0, 2, 2);
    P point(0, 0);
    ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), mode, rect, point));
    EXPECT_EQ(target->GetPixel(P(5, 3)), 0x40406080u) << mode;  // outside the rectangle too
    if (mode == CA_BLEND_HSB) {
      EXPECT_EQ(target->GetPixel(P(1, 1)), (Hsb(source->GetPixel(P(1, 1)), 0x80406080) & 0xFFFFFF) | 0x40000000u);
    }
  }
  // Mode 30 with nothing to do leaves even the alpha alone: the mask is not multiplied back.
  {
    auto target = Make(6, 4, CA_DIB_Argb, 0x80406080);
    const auto before = Bytes(*target);
    R outside(7, 0, 9, 2);
    P point(0, 0);
    EXPECT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, outside, point));
    R inside(0, 0, 2, 2);
    P pastSource(4, 0);
    EXPECT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, inside, pastSource));
    EXPECT_EQ(Bytes(*target), before);
  }
  // Without alpha no mask is made: the fourth byte of Rgb32 stays as it was.
  auto target = Make(4, 4, CA_DIB_Rgb32, 0x80406080);
  R rect(0, 0, 3, 3);
  P point(0, 0);
  ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, rect, point));
  EXPECT_EQ(target->GetPixel(P(3, 3)), 0x80406080u);
  EXPECT_EQ(target->GetPixel(P(0, 0)) >> 24, 0x80u);
}

// A white page of w x h with a filled block (inclusive bounds).
std::unique_ptr<CCA_Dib> Page(int w, int h, unsigned background = 0xFFFFFFFF) { return Make(w, h, CA_DIB_Rgb32, background); }
void Block(CCA_Dib& dib, int x0, int y0, int x1, int y1, unsigned colour) {
  for (int y = y0; y <= y1; ++y)
    for (int x = x0; x <= x1; ++x) dib.SetPixel(P(x, y), colour);
}

void ExpectSameAsReference(const CCA_Dib& dib, const char* what) {
  R fast(-7, -7, -7, -7), slow(-7, -7, -7, -7);
  const bool fastFound = GetAutoCalClipRect(&dib, fast);
  const bool slowFound = ReferenceAutoCalClipRect(&dib, slow);
  EXPECT_EQ(fastFound, slowFound) << what;
  EXPECT_TRUE(SameRect(fast, slow)) << what << ": " << fast.left << "," << fast.top << "," << fast.right << ","
                                    << fast.bottom << " vs " << slow.left << "," << slow.top << "," << slow.right
                                    << "," << slow.bottom;
}

TEST(GetAutoCalClipRect, FindsStrongEdgesWithAMarginOfOne) {
  R rect(1, 2, 3, 4);
  auto page = Page(20, 16);
  EXPECT_FALSE(GetAutoCalClipRect(page.get(), rect));  // flat: every gradient is 0
  EXPECT_TRUE(SameRect(rect, R(1, 2, 3, 4)));

  Block(*page, 8, 6, 11, 8, 0xFF000000);
  ASSERT_TRUE(GetAutoCalClipRect(page.get(), rect));  // the rectangle given in is not read
  EXPECT_TRUE(SameRect(rect, R(6, 4, 13, 10)));

  auto band = Page(20, 16);
  Block(*band, 0, 6, 19, 8, 0xFF000000);
  ASSERT_TRUE(GetAutoCalClipRect(band.get(), rect));
  EXPECT_TRUE(SameRect(rect, R(0, 4, 19, 10)));

  // Light gray: gradients stay below the upper threshold, and linking clears them.
  auto faint = Page(20, 16);
  Block(*faint, 8, 6, 11, 8, 0xFFF0F0F0);
  rect = R(9, 9, 9, 9);
  EXPECT_FALSE(GetAutoCalClipRect(faint.get(), rect));
  EXPECT_TRUE(SameRect(rect, R(9, 9, 9, 9)));

  // The fourth byte is not read, and content in a corner reaches the last row and column.
  auto corner = Page(20, 16, 0x00FFFFFF);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 20; ++x) corner->GetScanline(y)[x * 4 + 3] = static_cast<unsigned char>(x * 13 + y * 7);
  Block(*corner, 17, 13, 19, 15, 0x12000000);
  ASSERT_TRUE(GetAutoCalClipRect(corner.get(), rect));
  EXPECT_TRUE(SameRect(rect, R(15, 11, 19, 15)));
}

TEST(GetAutoCalClipRect, TooSmallBitmapsHaveNoInterior) {
  for (auto size : {std::pair<int, int>(2, 40), std::pair<int, int>(40, 2), std::pair<int, int>(1, 1)}) {
    auto page = Page(size.first, size.second);
    Block(*page, 0, 0, 0, 0, 0xFF000000);
    R rect(5, 5, 5, 5);
    EXPECT_FALSE(GetAutoCalClipRect(page.get(), rect));
    EXPECT_TRUE(SameRect(rect, R(5, 5, 5, 5)));
  }
  auto three = Page(3, 3);
  Block(*three, 0, 0, 0, 2, 0xFF000000);
  R rect;
  ASSERT_TRUE(GetAutoCalClipRect(three.get(), rect));
  EXPECT_TRUE(SameRect(rect, R(0, 0, 2, 2)));
}

TEST(GetAutoCalClipRect, GrayIsTruncatedFromTheWeightedSum) {
  // (1, 1, 1) weighs in just under 1 and turns 0; against a block of 25 the step is exactly 25,
  // a gradient of 100: strong. Rounding the gray to 1 would leave 96, a middle value that dies.
  auto page = Page(24, 24, 0xFF010101);
  Block(*page, 10, 0, 23, 23, 0xFF191919);
  R rect;
  ASSERT_TRUE(GetAutoCalClipRect(page.get(), rect));
  EXPECT_TRUE(SameRect(rect, R(8, 0, 11, 23)));
  ExpectSameAsReference(*page, "gray step");
}

TEST(GetAutoCalClipRect, MatchesThePlainPassesOnRandomAndDrawnPages) {
  std::mt19937 random(2024);
  // Noise of low contrast leaves many middle values, so the scan-order linking does the work.
  for (int round = 0; round < 40; ++round) {
    const int w = 3 + static_cast<int>(random() % 70), h = 3 + static_cast<int>(random() % 50);
    auto page = Page(w, h);
    const int base = static_cast<int>(random() % 200), spread = 8 + static_cast<int>(random() % 40);
    const bool grayOnly = round % 2 == 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const unsigned r = base + random() % spread, g = grayOnly ? r : base + random() % spread,
                       b = grayOnly ? r : base + random() % spread;
        page->SetPixel(P(x, y), static_cast<unsigned>(random()) << 24 | r << 16 | g << 8 | b);
      }
    // Runs of one colour exercise the shortcut for repeated pixels.
    if (round % 3 == 0) Block(*page, 0, 0, w / 2, h - 1, 0xFFFFFFFF);
    ExpectSameAsReference(*page, "noise");
  }
  // Text drawn on a page, with a pitch wider than the rows.
  const int w = 301, h = 180, pitch = w * 4 + 36;
  std::vector<unsigned char> buffer(static_cast<size_t>(pitch) * h, 0xFF);
  CCA_Dib page;
  ASSERT_TRUE(page.Create(w, h, CA_DIB_Rgb32, buffer.data(), pitch));
  CCA_Font font(nullptr);
  ASSERT_TRUE(font.LoadFont(L"DejaVu Sans", L"", 3, 400, 0));
  CCA_DibDevice device(&page);
  const CMRL_Matrix line1(1, 0, 0, 1, 40, 60), line2(1, 0, 0, 1, 55, 120);
  device.DrawTextRun(L"Quarterly report \x62A5\x544A", 19, &font, 22, &line1, 0xFF303030);
  device.DrawTextRun(L"light gray line", 15, &font, 16, &line2, 0xFFD8D8D8);
  ExpectSameAsReference(page, "text page");
  R rect;
  ASSERT_TRUE(GetAutoCalClipRect(&page, rect));
  EXPECT_GE(rect.left, 38);
  EXPECT_LE(rect.left, 42);
  EXPECT_GE(rect.top, 36);
  EXPECT_LE(rect.top, 45);
}

// A decoded file as B, G, R, X pixels, whatever format the decoder gave; null when unreadable.
std::unique_ptr<CCA_Dib> DecodeAs32(const std::string& path) {
  auto stream = CMRL_FileStream::Open(path.c_str(), false);
  if (!stream) return nullptr;
  std::unique_ptr<CCA_Dib> decoded(ImageDecode(stream.get()));
  if (!decoded) return nullptr;
  auto page = Make(decoded->GetWidth(), decoded->GetHeight(), CA_DIB_Rgb32, 0);
  for (int y = 0; y < decoded->GetHeight(); ++y)
    for (int x = 0; x < decoded->GetWidth(); ++x) {
      unsigned v = decoded->GetPixel(P(x, y));
      if (decoded->GetFormat() == CA_DIB_8bppMask) v *= 0x010101u;
      else if (decoded->GetPaletteSize() > 0) v = decoded->GetPaletteEntry(static_cast<int>(v));
      page->SetPixel(P(x, y), v);  // alpha, if any, lands in the byte that is not read
    }
  return page;
}

TEST(GetAutoCalClipRect, MatchesThePlainPassesOnRealImages) {
  auto page = DecodeAs32(std::string(ZEL_SOURCE_DIR) + "/examples/page.png");
  ASSERT_TRUE(page);
  ExpectSameAsReference(*page, "examples/page.png");
  R rect;
  ASSERT_TRUE(GetAutoCalClipRect(page.get(), rect));
  EXPECT_LT(rect.left, 92);    // the text starts at x 90
  EXPECT_GT(rect.bottom, 1040);  // the pen stroke reaches y 1045

  const std::string folder = std::string(ZEL_TESTDATA_DIR) + "/pngsuite";
  std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder.c_str()), closedir);
  if (!dir) GTEST_SKIP() << folder << " is absent";
  int compared = 0;
  while (dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    if (name.size() < 5 || name.compare(name.size() - 4, 4, ".png") != 0 || name[0] == 'x') continue;
    if (auto image = DecodeAs32(folder + "/" + name)) {
      ExpectSameAsReference(*image, name.c_str());
      ++compared;
    }
  }
  EXPECT_GT(compared, 100);
}

}  // namespace
