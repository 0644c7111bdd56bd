#include <mrlbase/dib.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

#include <gtest/gtest.h>

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

int Channel(unsigned word, int shift) { return static_cast<int>((word >> shift) & 0xFF); }

// Brightness, hue (degrees) and saturation of an RGB word, for checking CompositeHSBColor.
struct Hsb {
  double hue, saturation, brightness;
};
Hsb ToHsb(unsigned word) {
  const double r = Channel(word, 16) / 255.0, g = Channel(word, 8) / 255.0, b = Channel(word, 0) / 255.0,
               mx = std::max({r, g, b}), mn = std::min({r, g, b});
  Hsb out{0, mx > 0 ? (mx - mn) / mx : 0, mx};
  if (mx > mn) {
    if (mx == r) out.hue = 60 * std::fmod((g - b) / (mx - mn) + 6, 6);
    else if (mx == g) out.hue = 60 * ((b - r) / (mx - mn) + 2);
    else out.hue = 60 * ((r - g) / (mx - mn) + 4);
  }
  return out;
}

TEST(DibAlpha, MasksComeFromTheAlphaChannel) {
  auto argb = Make(6, 4, CA_DIB_Argb, 0x80102030);
  argb->SetPixel(P(2, 1), 0x11FFFFFF);
  EXPECT_TRUE(argb->HasAlpha());
  EXPECT_FALSE(Make(2, 2, CA_DIB_Rgb32, 0)->HasAlpha() || CCA_Dib().HasAlpha());

  std::unique_ptr<CCA_Dib> whole(argb->GetAlpha(nullptr));
  ASSERT_TRUE(whole);
  EXPECT_TRUE(whole->GetFormat() == CA_DIB_8bppMask && whole->GetWidth() == 6 && whole->GetHeight() == 4);
  EXPECT_TRUE(whole->GetScanline(1)[2] == 0x11 && whole->GetScanline(3)[5] == 0x80);
  // A rectangle cuts out part of the mask and is clipped to the bitmap.
  const R part(1, 1, 4, 3), overhang(-3, 2, 100, 100), outside(10, 10, 20, 20);
  std::unique_ptr<CCA_Dib> cut(argb->GetAlpha(&part)), clipped(argb->GetAlpha(&overhang));
  ASSERT_TRUE(cut && clipped);
  EXPECT_TRUE(cut->GetWidth() == 3 && cut->GetHeight() == 2 && cut->GetScanline(0)[1] == 0x11);
  EXPECT_TRUE(clipped->GetWidth() == 6 && clipped->GetHeight() == 2);
  EXPECT_EQ(argb->GetAlpha(&outside), nullptr);
  // Without an alpha channel everything is opaque.
  std::unique_ptr<CCA_Dib> opaque(Make(3, 3, CA_DIB_Rgb, 0x123456)->GetAlpha(nullptr));
  EXPECT_TRUE(opaque && opaque->GetScanline(2)[2] == 255);
}

TEST(DibAlpha, MultiplyAlphaScalesByTheMask) {
  auto argb = Make(3, 2, CA_DIB_Argb, 0xFF405060);
  auto mask = Make(3, 2, CA_DIB_8bppMask, 255);
  for (int x = 0; x < 3; ++x) mask->GetScanline(0)[x] = static_cast<unsigned char>(x * 127);
  argb->SetPixel(P(0, 1), 0x80405060);
  ASSERT_TRUE(argb->MultiplyAlpha(mask.get()));
  EXPECT_EQ(argb->GetPixel(P(1, 0)), 0x7F405060u);  // colour bytes stay
  EXPECT_EQ(argb->GetPixel(P(2, 0)) >> 24, 254u);
  auto half = Make(3, 2, CA_DIB_8bppMask, 128);
  ASSERT_TRUE(argb->MultiplyAlpha(half.get()));
  EXPECT_EQ(argb->GetPixel(P(0, 1)) >> 24, 64u);  // 128 * 128 / 255 rounds to 64

  EXPECT_FALSE(argb->MultiplyAlpha(Make(2, 2, CA_DIB_8bppMask, 0).get()));  // size differs
  EXPECT_FALSE(argb->MultiplyAlpha(Make(3, 2, CA_DIB_Rgb, 0).get()));       // not a mask
  EXPECT_FALSE(Make(3, 2, CA_DIB_Rgb32, 0)->MultiplyAlpha(half.get()));     // nothing to scale
}

// One opaque source pixel over one backdrop pixel; the colour bits of the result.
unsigned Blend(unsigned cb, unsigned cs, CA_BlendMode mode, CA_DibFormat format = CA_DIB_Rgb) {
  auto target = Make(1, 1, format, cb);
  auto source = Make(1, 1, format, cs);
  EXPECT_EQ(target->CompositeBitmap(R(0, 0, 1, 1), source.get(), P(0, 0), mode, nullptr), 1);
  return target->GetPixel(P(0, 0)) & 0xFFFFFF;
}

TEST(DibComposite, SeparableModesFollowTheirFormulas) {
  for (unsigned cb : {0x000000u, 0xFFFFFFu, 0x406080u, 0x10F080u})
    for (unsigned cs : {0x000000u, 0xFFFFFFu, 0x808080u, 0x20C0E0u}) {
      EXPECT_EQ(Blend(cb, cs, CA_BLEND_Normal), cs);
      // Overlay is hard light with the roles swapped.
      EXPECT_EQ(Blend(cb, cs, CA_BLEND_Overlay), Blend(cs, cb, CA_BLEND_HardLight));
      for (int s : {0, 8, 16}) {
        const int b = Channel(cb, s), c = Channel(cs, s);
        const auto at = [&](CA_BlendMode mode) { return Channel(Blend(cb, cs, mode), s); };
        EXPECT_NEAR(at(CA_BLEND_Multiply), b * c / 255.0, 0.51);
        EXPECT_NEAR(at(CA_BLEND_Screen), b + c - b * c / 255.0, 0.51);
        EXPECT_TRUE(at(CA_BLEND_Darken) == std::min(b, c) && at(CA_BLEND_Lighten) == std::max(b, c));
        EXPECT_EQ(at(CA_BLEND_Difference), std::abs(b - c));
        EXPECT_NEAR(at(CA_BLEND_Exclusion), b + c - 2.0 * b * c / 255.0, 0.51);
        // Hard light multiplies below the middle.
        if (c <= 127) { EXPECT_NEAR(at(CA_BLEND_HardLight), b * 2.0 * c / 255.0, 0.51); }
      }
      // Dodge and burn keep the extremes of the backdrop; a middle gray soft light changes almost nothing.
      EXPECT_TRUE(cb != 0 || Blend(cb, cs, CA_BLEND_ColorDodge) == 0) << std::hex << cs;
      EXPECT_TRUE(cb != 0xFFFFFF || Blend(cb, cs, CA_BLEND_ColorBurn) == 0xFFFFFF) << std::hex << cs;
      EXPECT_TRUE(cs != 0x808080 || std::abs(Channel(Blend(cb, cs, CA_BLEND_SoftLight), 8) - Channel(cb, 8)) <= 1);
    }
}

TEST(DibComposite, NonSeparableModesMixHueSaturationAndLuminosity) {
  auto lum = [](unsigned w) { return 0.3 * Channel(w, 16) + 0.59 * Channel(w, 8) + 0.11 * Channel(w, 0); };
  const unsigned cb = 0x3070B0, cs = 0xE04010;
  const auto blend = [&](CA_BlendMode mode) { return Blend(cb, cs, mode, CA_DIB_Rgb32); };
  EXPECT_NEAR(lum(blend(CA_BLEND_Luminosity)), lum(cs), 1.5);
  for (CA_BlendMode mode : {CA_BLEND_Color, CA_BLEND_Hue, CA_BLEND_Saturation})
    EXPECT_NEAR(lum(blend(mode)), lum(cb), 1.5) << mode;
  EXPECT_NEAR(ToHsb(blend(CA_BLEND_Hue)).hue, ToHsb(cs).hue, 3);
  EXPECT_NEAR(ToHsb(blend(CA_BLEND_Luminosity)).hue, ToHsb(cb).hue, 3);
  // A gray source takes all saturation out.
  const unsigned flat = Blend(cb, 0x808080, CA_BLEND_Saturation);
  EXPECT_TRUE(Channel(flat, 0) == Channel(flat, 8) && Channel(flat, 8) == Channel(flat, 16)) << std::hex << flat;
}

TEST(DibComposite, PlacesClipsAndWeighsBySourceAlpha) {
  auto source = Make(4, 4, CA_DIB_Rgb32, 0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) source->SetPixel(P(x, y), 0xFF000000u | (x << 16) | (y << 8) | 0x80);
  // The rectangle's corner reads the source point; whatever falls off either bitmap is skipped.
  // A negative point shifts the source: target (0, 0) would read source (-2, -1).
  for (CA_DibFormat format : {CA_DIB_Rgb32, CA_DIB_Rgb})
    for (const auto& placed : {std::make_pair(R(6, 4, 12, 12), P(1, 2)), std::make_pair(R(0, 0, 8, 6), P(-2, -1))}) {
      const R& rect = placed.first;
      auto target = Make(8, 6, format, 0xFF000000);
      ASSERT_EQ(target->CompositeBitmap(rect, source.get(), placed.second, CA_BLEND_Normal, nullptr), 1);
      for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 8; ++x) {
          const int sx = x - rect.left + placed.second.x, sy = y - rect.top + placed.second.y;
          const bool inside = x >= rect.left && y >= rect.top && sx >= 0 && sx < 4 && sy >= 0 && sy < 4;
          EXPECT_EQ(target->GetPixel(P(x, y)) & 0xFFFFFF, inside ? source->GetPixel(P(sx, sy)) & 0xFFFFFF : 0u)
              << format << " " << rect.left << ": " << x << "," << y;
        }
    }

  // Half-transparent white over black gives half gray; on a clear Argb target the source shows as it is.
  auto white = Make(2, 2, CA_DIB_Argb, 0x80FFFFFF);
  auto opaque = Make(2, 2, CA_DIB_Rgb, 0), clear = Make(2, 2, CA_DIB_Argb, 0);
  opaque->CompositeBitmap(R(0, 0, 2, 2), white.get(), P(0, 0), CA_BLEND_Normal, nullptr);
  clear->CompositeBitmap(R(0, 0, 2, 2), white.get(), P(0, 0), CA_BLEND_Multiply, nullptr);
  EXPECT_TRUE(opaque->GetPixel(P(1, 1)) == 0x808080u && clear->GetPixel(P(0, 0)) == 0x80FFFFFFu);

  // Refusals leave the target alone: no source, an unknown mode, a palette target.
  auto target = Make(2, 2, CA_DIB_Rgb32, 0xFF000000);
  EXPECT_EQ(target->CompositeBitmap(R(0, 0, 2, 2), source.get(), P(0, 0), static_cast<CA_BlendMode>(15), nullptr), 0);
  auto gray = Make(4, 4, CA_DIB_8bpp, 7);
  EXPECT_EQ(gray->CompositeBitmap(R(0, 0, 2, 2), source.get(), P(0, 0), CA_BLEND_Normal, nullptr), 0);
  EXPECT_TRUE(target->GetPixel(P(0, 0)) == 0xFF000000u && gray->GetPixel(P(0, 0)) == 7u);
  // A palette source is read through its palette.
  auto indexed = Make(2, 2, CA_DIB_8bpp, 1);
  const unsigned palette[2] = {0x000000, 0x3366CC};
  ASSERT_TRUE(indexed->SetPalette(palette, 2));
  auto onto = Make(2, 2, CA_DIB_Rgb, 0);
  onto->CompositeBitmap(R(0, 0, 2, 2), indexed.get(), P(0, 0), CA_BLEND_Normal, nullptr);
  EXPECT_EQ(onto->GetPixel(P(0, 0)), 0x3366CCu);
}

TEST(CompositeHSBColor, TakesHueAndSaturationOfSourceAndBrightnessOfBackdrop) {
  EXPECT_FALSE(CompositeHSBColor(0xFF0000, 0x808080, nullptr));
  // A gray source gives a gray as bright as the backdrop; black stays black, with its top byte.
  const unsigned cases[][3] = {
      {0xFF0000, 0x808080, 0x800000}, {0x404040, 0x00C000, 0xC0C0C0}, {0x00FF00, 0, 0},
      {0x123456, 0xAB000000, 0xAB000000}};
  unsigned out = 0;
  for (const auto& c : cases) EXPECT_TRUE(CompositeHSBColor(c[0], c[1], &out) && out == c[2]) << std::hex << c[0];

  std::mt19937 random(7);
  for (int i = 0; i < 1000; ++i) {
    const unsigned source = random() & 0xFFFFFF, backdrop = random();
    ASSERT_TRUE(CompositeHSBColor(source, backdrop, &out));
    EXPECT_EQ(out >> 24, backdrop >> 24);
    const Hsb s = ToHsb(source), b = ToHsb(backdrop), r = ToHsb(out);
    EXPECT_NEAR(r.brightness, b.brightness, 0.5 / 255);
    if (b.brightness > 0.25) {  // rounding to bytes blurs hue and saturation of dark colours
      EXPECT_NEAR(r.saturation, s.saturation, 0.02) << std::hex << source << " " << backdrop;
      const double d = std::fabs(r.hue - s.hue);
      if (s.saturation > 0.2) { EXPECT_LT(std::min(d, 360 - d), 3.0) << std::hex << source << " " << backdrop; }
    }
  }
}

}  // namespace
