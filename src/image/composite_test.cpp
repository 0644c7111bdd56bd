#include <zelutility/composite.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include <dirent.h>
#include <gtest/gtest.h>

#include "font/lsan_suppressions.h"

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

std::string Str(const R& r) {
  return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
         std::to_string(r.bottom);
}

TEST(CompositeDibInBM, RefusalsAndOtherModesGoToCompositeBitmapUnchanged) {
  auto source = Pattern(4, 4);
  auto target = Make(6, 6, CA_DIB_Rgb32, 0xFF808080);
  const auto before = Bytes(*target);
  R rect(1, 1, 3, 3);
  P point(0, 0);
  EXPECT_FALSE(CompositeDibInBM(source.get(), nullptr, CA_BLEND_HSB, rect, point));
  EXPECT_FALSE(CompositeDibInBM(source.get(), target.get(), static_cast<CA_BlendMode>(17), rect, point));
  EXPECT_EQ(Bytes(*target), before);
  for (CA_BlendMode mode : {CA_BLEND_Normal, CA_BLEND_Multiply, CA_BLEND_Luminosity}) {
    auto direct = Make(6, 6, CA_DIB_Rgb32, 0xFF808080);
    R given(4, 5, 0, 1);  // out of order: handed on untouched
    P at(-1, 1);
    ASSERT_EQ(direct->CompositeBitmap(given, source.get(), at, mode, nullptr), 1);
    auto viaCall = Make(6, 6, CA_DIB_Rgb32, 0xFF808080);
    EXPECT_TRUE(CompositeDibInBM(source.get(), viaCall.get(), mode, given, at));
    EXPECT_EQ(Bytes(*viaCall), Bytes(*direct)) << mode;
    EXPECT_TRUE(Str(given) == "4,5,0,1" && at.x == -1 && at.y == 1);
  }
}

TEST(CompositeDibInBM, HsbModeNormalisesAndClipsTheRectangleInPlace) {
  // On an 8 x 8 target, target pixels x0..x1, y0..y1 take source (x + dx, y + dy); x0 > x1 when
  // nothing changes. Bounds are inclusive, and a clipped start moves the source, not the target.
  struct Case { R rect; P point; const char* after; int x0, y0, x1, y1, dx, dy; } cases[] = {
      {R(3, 4, 1, 2), P(0, 0), "1,2,3,4", 1, 2, 3, 4, -1, -2},    // put in order, seen by the caller
      {R(-5, -2, 20, 30), P(0, 0), "0,0,8,8", 0, 0, 4, 4, 0, 0},  // clipped; no source column skipped
      {R(9, 0, 12, 3), P(0, 0), nullptr, 1, 0, 0, 0, 0, 0},       // right of the target
      {R(0, 0, 2, 2), P(6, 0), nullptr, 1, 0, 0, 0, 0, 0},        // past the source's width
      {R(2, 1, 6, 2), P(-2, -1), nullptr, 2, 1, 4, 1, -2, -1},    // far corner at source (2, 0)
      {R(2, 1, 2, 6), P(1, 0), nullptr, 2, 1, 2, 5, -1, -1},      // one column; source has 5 rows
  };
  auto source = Pattern(5, 5);
  const unsigned background = 0x80406080;
  for (CA_DibFormat format : {CA_DIB_Rgb32, CA_DIB_Argb})
    for (const Case& c : cases) {
      auto target = Make(8, 8, format, background);
      R rect = c.rect;
      P point = c.point;
      unsigned hsb = 0;
      ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_HSB, rect, point));
      if (c.after) { EXPECT_EQ(Str(rect), c.after); }
      // A target with alpha has all of it multiplied by itself, unless nothing was drawn; without
      // alpha the fourth byte is left as it was.
      const unsigned alpha = format == CA_DIB_Argb && c.x0 <= c.x1 ? 0x40000000u : 0x80000000u;
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
          const bool inside = x >= c.x0 && x <= c.x1 && y >= c.y0 && y <= c.y1;
          if (inside) CompositeHSBColor(source->GetPixel(P(x + c.dx, y + c.dy)), background, &hsb);
          const unsigned colour = inside ? hsb : background;
          EXPECT_EQ(target->GetPixel(P(x, y)), (colour & 0xFFFFFF) | alpha)
              << format << ": " << Str(c.rect) << " at " << x << "," << y;
        }
    }
  // Other modes multiply the alpha back too.
  auto target = Make(6, 4, CA_DIB_Argb, background);
  R rect(0, 0, 2, 2);
  P point(0, 0);
  ASSERT_TRUE(CompositeDibInBM(source.get(), target.get(), CA_BLEND_Normal, rect, point));
  EXPECT_EQ(target->GetPixel(P(5, 3)), 0x40406080u);
}

// Fills a block with inclusive bounds.
void Block(CCA_Dib& dib, int x0, int y0, int x1, int y1, unsigned colour) {
  for (int y = y0; y <= y1; ++y)
    for (int x = x0; x <= x1; ++x) dib.SetPixel(P(x, y), colour);
}

void ExpectSameAsReference(const CCA_Dib& dib, const char* what) {
  R fast(-7, -7, -7, -7), slow(-7, -7, -7, -7);
  EXPECT_EQ(GetAutoCalClipRect(&dib, fast), ReferenceAutoCalClipRect(&dib, slow)) << what;
  EXPECT_EQ(Str(fast), Str(slow)) << what;
}

TEST(GetAutoCalClipRect, FindsStrongEdgesWithAMarginOfOne) {
  // A page with a block (x0 > x1 for none); the rectangle found, null for none.
  struct Case {
    const char* what;
    int w, h;
    unsigned background;
    int x0, y0, x1, y1;
    unsigned colour;
    const char* expected;
  } cases[] = {
      {"flat: every gradient is 0", 20, 16, 0xFFFFFFFF, 1, 0, 0, 0, 0, nullptr},
      {"black block", 20, 16, 0xFFFFFFFF, 8, 6, 11, 8, 0xFF000000, "6,4,13,10"},
      {"light gray: only middle values, cleared by linking", 20, 16, 0xFFFFFFFF, 8, 6, 11, 8, 0xFFF0F0F0, nullptr},
      {"corner reaches the last row and column", 20, 16, 0x00FFFFFF, 17, 13, 19, 15, 0x12000000, "15,11,19,15"},
      {"2 wide: no interior", 2, 40, 0xFFFFFFFF, 0, 0, 0, 0, 0xFF000000, nullptr},
      {"3 x 3", 3, 3, 0xFFFFFFFF, 0, 0, 0, 2, 0xFF000000, "0,0,2,2"},
      // (1, 1, 1) weighs in just under 1 and truncates to 0, so the step to 25 is a strong 100;
      // rounding the gray to 1 would leave a middle 96 that dies.
      {"gray truncated", 24, 24, 0xFF010101, 10, 0, 23, 23, 0xFF191919, "8,0,11,23"},
  };
  for (const Case& c : cases) {
    auto page = Make(c.w, c.h, CA_DIB_Rgb32, c.background);
    Block(*page, c.x0, c.y0, c.x1, c.y1, c.colour);
    // The fourth byte is not read.
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < c.w; ++x) page->GetScanline(y)[x * 4 + 3] = static_cast<unsigned char>(x * 13 + y * 7);
    R rect(5, 5, 5, 5);  // not read; left alone on a refusal
    EXPECT_EQ(GetAutoCalClipRect(page.get(), rect), c.expected != nullptr) << c.what;
    EXPECT_EQ(Str(rect), c.expected ? c.expected : "5,5,5,5") << c.what;
    ExpectSameAsReference(*page, c.what);
  }
}

TEST(GetAutoCalClipRect, MatchesThePlainPassesOnRandomAndDrawnPages) {
  std::mt19937 random(2024);
  // Noise of low contrast leaves many middle values, so the scan-order linking does the work.
  for (int round = 0; round < 40; ++round) {
    const int w = 3 + static_cast<int>(random() % 70), h = 3 + static_cast<int>(random() % 50);
    const bool grayOnly = round % 2 == 0;
    auto page = Make(w, h, CA_DIB_Rgb32, 0xFFFFFFFF);
    const int base = static_cast<int>(random() % 200), spread = 8 + static_cast<int>(random() % 40);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const unsigned r = base + random() % spread, g = grayOnly ? r : base + random() % spread,
                       b = grayOnly ? r : base + random() % spread;
        page->SetPixel(P(x, y), static_cast<unsigned>(random()) << 24 | r << 16 | g << 8 | b);
      }
    // Runs of one colour exercise the shortcut for repeated pixels; in the second kind only the
    // unread fourth byte varies along the run, and the shortcut must still take it as one colour.
    if (round % 3 == 0) Block(*page, 0, 0, w / 2, h - 1, 0xFFFFFFFF);
    if (round % 3 == 1) {
      const unsigned colour = static_cast<unsigned>(random()) & 0xFFFFFF;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w / 2; ++x) page->SetPixel(P(x, y), static_cast<unsigned>(random()) << 24 | colour);
    }
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
  EXPECT_TRUE(rect.left >= 38 && rect.left <= 42 && rect.top >= 36 && rect.top <= 45) << rect.left << "," << rect.top;
}

// A decoded file as B, G, R, X pixels, whatever format the decoder gave; null when unreadable.
std::unique_ptr<CCA_Dib> DecodeAs32(const std::string& path) {
  auto stream = CMRL_FileStream::Open(path.c_str(), false);
  std::unique_ptr<CCA_Dib> decoded(stream ? ImageDecode(stream.get()) : nullptr);
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
  EXPECT_TRUE(rect.left < 92 && rect.bottom > 1040);  // text starts at x 90, the pen stroke reaches y 1045

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
