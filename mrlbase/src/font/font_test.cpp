#include <mrlbase/font.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "font/lsan_suppressions.h"

namespace {

struct Rendered {
  CA_GlyphImage image;
  std::vector<unsigned char> coverage;
  float advance = 0;
  long Ink() const {
    long sum = 0;
    for (unsigned char c : coverage) sum += c;
    return sum;
  }
};

Rendered Render(CCA_Font& font, wchar_t ch, float size, const CMRL_Matrix& m = CMRL_Matrix(), float x = 0,
                float y = 0) {
  Rendered r;
  EXPECT_TRUE(font.RenderGlyph(ch, size, m, x, y, r.image, r.advance));
  for (int row = 0; row < r.image.height; ++row)
    r.coverage.insert(r.coverage.end(), r.image.coverage + row * r.image.pitch,
                      r.image.coverage + row * r.image.pitch + r.image.width);
  return r;
}

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

TEST(CCA_Font, LoadsInstalledFamiliesByWeightAndSlant) {
  CCA_Font regular(nullptr), bold(nullptr), italic(nullptr);
  ASSERT_TRUE(regular.LoadFont(L"DejaVu Sans", L"DejaVu Sans", 0, 400, 0));
  ASSERT_TRUE(bold.LoadFont(L"dejavu sans", L"", 0, 700, 0));  // family names compare without case
  ASSERT_TRUE(italic.LoadFont(L"DejaVu Serif", L"DejaVu Serif", 0, 400, 1));
  EXPECT_TRUE(regular.IsLoaded() && regular.IsExactMatch() && bold.IsExactMatch());
  EXPECT_STREQ(regular.GetFamilyName(), "DejaVu Sans");
  EXPECT_TRUE(EndsWith(regular.GetFilePath(), "/DejaVuSans.ttf")) << regular.GetFilePath();
  EXPECT_TRUE(EndsWith(bold.GetFilePath(), "/DejaVuSans-Bold.ttf")) << bold.GetFilePath();
  EXPECT_TRUE(EndsWith(italic.GetFilePath(), "/DejaVuSerif-Italic.ttf")) << italic.GetFilePath();
  EXPECT_TRUE(italic.GetWeight() == 400 && italic.GetItalic() == 1);
}

TEST(CCA_Font, MissingFamiliesFallBack) {
  CCA_Font unloaded(nullptr);
  EXPECT_FALSE(unloaded.IsLoaded());
  EXPECT_STREQ(unloaded.GetFamilyName(), "");
  CA_GlyphImage image;
  float advance = 1;
  EXPECT_FALSE(unloaded.RenderGlyph(L'A', 20, CMRL_Matrix(), 0, 0, image, advance));
  EXPECT_EQ(advance, 0);

  // The second family stands in for the first.
  CCA_Font second(nullptr);
  ASSERT_TRUE(second.LoadFont(L"No Such Family 7f3a", L"DejaVu Serif", 0, 400, 0));
  EXPECT_FALSE(second.IsExactMatch());
  EXPECT_STREQ(second.GetFamilyName(), "DejaVu Serif");

  // Neither installed, Chinese charset: a face that draws Chinese, not a missing-glyph box.
  CCA_Font simsun(nullptr);
  ASSERT_TRUE(simsun.LoadFont(L"SimSun", L"SimSun", 3, 400, 0));
  EXPECT_FALSE(simsun.IsExactMatch());
  EXPECT_STREQ(simsun.GetRequestedFamily(), "SimSun");
  CCA_Font cjk(nullptr);
  ASSERT_TRUE(cjk.LoadFont(L"WenQuanYi Micro Hei", L"", 0, 400, 0));
  EXPECT_EQ(Render(simsun, L'\x4E2D', 24).coverage, Render(cjk, L'\x4E2D', 24).coverage);

  // A Latin face borrows the Chinese glyph from a covering font.
  CCA_Font latin(nullptr);
  ASSERT_TRUE(latin.LoadFont(L"DejaVu Sans", L"", 0, 400, 0));
  const Rendered borrowed = Render(latin, L'\x6587', 30);
  EXPECT_EQ(borrowed.coverage, Render(cjk, L'\x6587', 30).coverage);
  EXPECT_NE(borrowed.coverage, Render(latin, L'\xE000', 30).coverage);  // not the missing-glyph box
}

TEST(CCA_Font, RendersWithSizeMatrixPlacementAndKerning) {
  CCA_FontMgr manager;
  ASSERT_TRUE(manager.IsReady());
  CCA_Font font(&manager);
  ASSERT_TRUE(font.LoadFont(L"DejaVu Sans", L"", 0, 400, 0));

  const Rendered small = Render(font, L'H', 20);
  const Rendered large = Render(font, L'H', 40);
  EXPECT_NEAR(large.advance, 2 * small.advance, 0.01);
  EXPECT_NEAR(large.image.height, 2 * small.image.height, 2);
  // The glyph stands on the baseline through the origin: it spans rows above y, none below.
  EXPECT_TRUE(small.image.top < 0 && small.image.top + small.image.height <= 1) << small.image.top;
  EXPECT_GT(small.image.left + small.image.width, 0);

  // Moving the origin by whole pixels moves the image and nothing else.
  const Rendered moved = Render(font, L'H', 20, CMRL_Matrix(), 13, 57);
  EXPECT_TRUE(moved.image.left == small.image.left + 13 && moved.image.top == small.image.top + 57);
  EXPECT_EQ(moved.coverage, small.coverage);

  // A quarter turn (text x runs down the device) swaps the extents.
  const Rendered turned = Render(font, L'H', 40, CMRL_Matrix(0, 1, -1, 0, 0, 0));
  EXPECT_NEAR(turned.image.width, large.image.height, 2);
  EXPECT_NEAR(turned.image.height, large.image.width, 2);
  EXPECT_NEAR(turned.advance, large.advance, 0.01);  // the advance stays in text space

  // Synthetic bold for a face without a bold style inks more.
  CCA_Font cjk(nullptr), cjkBold(nullptr);
  ASSERT_TRUE(cjk.LoadFont(L"WenQuanYi Micro Hei", L"", 3, 400, 0));
  ASSERT_TRUE(cjkBold.LoadFont(L"WenQuanYi Micro Hei", L"", 3, 700, 0));
  EXPECT_GT(Render(cjkBold, L'\x4E2D', 32).Ink(), Render(cjk, L'\x4E2D', 32).Ink() * 11 / 10);

  // A space has an advance but no ink.
  const Rendered space = Render(font, L' ', 20);
  EXPECT_TRUE(space.advance > 0 && space.Ink() == 0);

  // Kerning scales with the size and pairs only glyphs of one face.
  const float av = font.GetKerning(L'A', L'V', 40);
  EXPECT_LT(av, 0);
  EXPECT_NEAR(font.GetKerning(L'A', L'V', 80), 2 * av, 0.05);
  EXPECT_EQ(font.GetKerning(L'H', L'H', 40), 0);
  EXPECT_EQ(font.GetKerning(L'A', L'\x4E2D', 40), 0);
  EXPECT_EQ(font.GetKerning(L'A', L'V', 0), 0);
}

}  // namespace
