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
  const double r = Channel(word, 16) / 255.0, g = Channel(word, 8) / 255.0, b = Channel(word, 0) / 255.0;
  const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
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
  EXPECT_FALSE(Make(2, 2, CA_DIB_Rgb32, 0)->HasAlpha());
  EXPECT_FALSE(Make(2, 2, CA_DIB_Rgb, 0)->HasAlpha());
  EXPECT_FALSE(CCA_Dib().HasAlpha());

  std::unique_ptr<CCA_Dib> whole(argb->GetAlpha(nullptr));
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->GetFormat(), CA_DIB_8bppMask);
  EXPECT_EQ(whole->GetWidth(), 6);
  EXPECT_EQ(whole->GetHeight(), 4);
  EXPECT_EQ(whole->GetScanline(1)[2], 0x11);
  EXPECT_EQ(whole->GetScanline(3)[5], 0x80);

  const R part(1, 1, 4, 3);
  std::unique_ptr<CCA_Dib> cut(argb->GetAlpha(&part));
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->GetWidth(), 3);
  EXPECT_EQ(cut->GetHeight(), 2);
  EXPECT_EQ(cut->GetScanline(0)[1], 0x11);
  const R overhang(-3, 2, 100, 100);
  std::unique_ptr<CCA_Dib> clipped(argb->GetAlpha(&overhang));
  ASSERT_TRUE(clipped);
  EXPECT_EQ(clipped->GetWidth(), 6);
  EXPECT_EQ(clipped->GetHeight(), 2);
  const R outside(10, 10, 20, 20);
  EXPECT_EQ(argb->GetAlpha(&outside), nullptr);

  std::unique_ptr<CCA_Dib> opaque(Make(3, 3, CA_DIB_Rgb, 0x123456)->GetAlpha(nullptr));
  ASSERT_TRUE(opaque);
  EXPECT_EQ(opaque->GetScanline(2)[2], 255);
}

TEST(DibAlpha, MultiplyAlphaScalesByTheMask) {
  auto argb = Make(3, 2, CA_DIB_Argb, 0xFF405060);
  auto mask = Make(3, 2, CA_DIB_8bppMask, 0);
  for (int x = 0; x < 3; ++x) {
    mask->GetScanline(0)[x] = static_cast<unsigned char>(x * 127);
    mask->GetScanline(1)[x] = 255;
  }
  argb->SetPixel(P(0, 1), 0x80405060);
  ASSERT_TRUE(argb->MultiplyAlpha(mask.get()));
  EXPECT_EQ(argb->GetPixel(P(0, 0)), 0x00405060u);
  EXPECT_EQ(argb->GetPixel(P(1, 0)), 0x7F405060u);  // colour bytes stay
  EXPECT_EQ(argb->GetPixel(P(2, 0)) >> 24, 254u);
  EXPECT_EQ(argb->GetPixel(P(0, 1)) >> 24, 0x80u);

  auto half = Make(3, 2, CA_DIB_8bppMask, 128);
  ASSERT_TRUE(argb->MultiplyAlpha(half.get()));
  EXPECT_EQ(argb->GetPixel(P(0, 1)) >> 24, 64u);  // 128 * 128 / 255 rounds to 64

  EXPECT_FALSE(argb->MultiplyAlpha(nullptr));
  EXPECT_FALSE(argb->MultiplyAlpha(Make(2, 2, CA_DIB_8bppMask, 0).get()));   // size differs
  EXPECT_FALSE(argb->MultiplyAlpha(Make(3, 2, CA_DIB_Rgb, 0).get()));        // not a mask
  EXPECT_FALSE(Make(3, 2, CA_DIB_Rgb32, 0)->MultiplyAlpha(half.get()));      // nothing to scale
}

TEST(DibComposite, SeparableModesFollowTheirFormulas) {
  // One backdrop pixel per test colour; the source is opaque.
  const unsigned backdrops[] = {0x000000, 0xFFFFFF, 0x406080, 0xC0A020, 0x10F080};
  const unsigned sources[] = {0x000000, 0xFFFFFF, 0x808080, 0x20C0E0};
  for (unsigned cb : backdrops)
    for (unsigned cs : sources) {
      auto target = Make(1, 1, CA_DIB_Rgb, cb);
      auto source = Make(1, 1, CA_DIB_Rgb, cs);
      auto run = [&](CA_BlendMode mode) {
        target->SetPixel(P(0, 0), cb);
        EXPECT_EQ(target->CompositeBitmap(R(0, 0, 1, 1), source.get(), P(0, 0), mode, nullptr), 1);
        return target->GetPixel(P(0, 0));
      };
      const unsigned normal = run(CA_BLEND_Normal), multiply = run(CA_BLEND_Multiply),
                     screen = run(CA_BLEND_Screen), darken = run(CA_BLEND_Darken), lighten = run(CA_BLEND_Lighten),
                     difference = run(CA_BLEND_Difference), exclusion = run(CA_BLEND_Exclusion),
                     overlay = run(CA_BLEND_Overlay), hard = run(CA_BLEND_HardLight);
      EXPECT_EQ(normal, cs);
      for (int s : {0, 8, 16}) {
        const int b = Channel(cb, s), c = Channel(cs, s);
        EXPECT_NEAR(Channel(multiply, s), b * c / 255.0, 0.51);
        EXPECT_NEAR(Channel(screen, s), b + c - b * c / 255.0, 0.51);
        EXPECT_EQ(Channel(darken, s), std::min(b, c));
        EXPECT_EQ(Channel(lighten, s), std::max(b, c));
        EXPECT_EQ(Channel(difference, s), std::abs(b - c));
        EXPECT_NEAR(Channel(exclusion, s), b + c - 2.0 * b * c / 255.0, 0.51);
        // Overlay is hard light with the roles swapped.
        target->SetPixel(P(0, 0), cs);
        auto swapped = Make(1, 1, CA_DIB_Rgb, cb);
        target->CompositeBitmap(R(0, 0, 1, 1), swapped.get(), P(0, 0), CA_BLEND_HardLight, nullptr);
        EXPECT_EQ(Channel(overlay, s), Channel(target->GetPixel(P(0, 0)), s));
        // Hard light below the middle multiplies by twice the source.
        if (c <= 127) {
          EXPECT_NEAR(Channel(hard, s), b * 2.0 * c / 255.0, 0.51);
        }
      }
      // Dodge and burn keep the extremes of the backdrop.
      if (cb == 0) {
        EXPECT_EQ(run(CA_BLEND_ColorDodge), 0u);
      }
      if (cb == 0xFFFFFF) {
        EXPECT_EQ(run(CA_BLEND_ColorBurn), 0xFFFFFFu);
      }
      if (cs == 0x808080) {  // middle gray: soft light changes almost nothing
        EXPECT_NEAR(Channel(run(CA_BLEND_SoftLight), 8), Channel(cb, 8), 1);
      }
    }
}

TEST(DibComposite, NonSeparableModesMixHueSaturationAndLuminosity) {
  auto lum = [](unsigned w) { return 0.3 * Channel(w, 16) + 0.59 * Channel(w, 8) + 0.11 * Channel(w, 0); };
  const unsigned cb = 0x3070B0, cs = 0xE04010;
  auto blend = [&](CA_BlendMode mode) {
    auto target = Make(1, 1, CA_DIB_Rgb32, cb);
    auto source = Make(1, 1, CA_DIB_Rgb32, cs);
    EXPECT_EQ(target->CompositeBitmap(R(0, 0, 1, 1), source.get(), P(0, 0), mode, nullptr), 1);
    return target->GetPixel(P(0, 0)) & 0xFFFFFF;
  };
  EXPECT_NEAR(lum(blend(CA_BLEND_Luminosity)), lum(cs), 1.5);
  EXPECT_NEAR(lum(blend(CA_BLEND_Color)), lum(cb), 1.5);
  EXPECT_NEAR(lum(blend(CA_BLEND_Hue)), lum(cb), 1.5);
  EXPECT_NEAR(lum(blend(CA_BLEND_Saturation)), lum(cb), 1.5);
  EXPECT_NEAR(ToHsb(blend(CA_BLEND_Color)).hue, ToHsb(cs).hue, 3);
  EXPECT_NEAR(ToHsb(blend(CA_BLEND_Hue)).hue, ToHsb(cs).hue, 3);
  EXPECT_NEAR(ToHsb(blend(CA_BLEND_Luminosity)).hue, ToHsb(cb).hue, 3);
  // A gray source takes all saturation out.
  auto target = Make(1, 1, CA_DIB_Rgb, cb);
  auto gray = Make(1, 1, CA_DIB_Rgb, 0x808080);
  target->CompositeBitmap(R(0, 0, 1, 1), gray.get(), P(0, 0), CA_BLEND_Saturation, nullptr);
  const unsigned flat = target->GetPixel(P(0, 0));
  EXPECT_EQ(Channel(flat, 0), Channel(flat, 8));
  EXPECT_EQ(Channel(flat, 8), Channel(flat, 16));
}

TEST(DibComposite, PlacesClipsAndWeighsBySourceAlpha) {
  auto target = Make(8, 6, CA_DIB_Rgb32, 0xFF000000);
  auto source = Make(4, 4, CA_DIB_Rgb32, 0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) source->SetPixel(P(x, y), 0xFF000000u | (x << 16) | (y << 8) | 0x80);
  // Source point (1, 2) lands on target (6, 4); the rest of the rectangle runs off both bitmaps.
  ASSERT_EQ(target->CompositeBitmap(R(6, 4, 12, 12), source.get(), P(1, 2), CA_BLEND_Normal, nullptr), 1);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 8; ++x) {
      const unsigned expected = (x >= 6 && y >= 4) ? source->GetPixel(P(x - 5, y - 2)) : 0xFF000000u;
      EXPECT_EQ(target->GetPixel(P(x, y)), expected) << x << "," << y;
    }
  // A negative source point shifts the source: target (0, 0) would read source (-2, -1).
  auto second = Make(8, 6, CA_DIB_Rgb, 0);
  ASSERT_EQ(second->CompositeBitmap(R(0, 0, 8, 6), source.get(), P(-2, -1), CA_BLEND_Normal, nullptr), 1);
  EXPECT_EQ(second->GetPixel(P(1, 0)), 0u);
  EXPECT_EQ(second->GetPixel(P(2, 1)), source->GetPixel(P(0, 0)) & 0xFFFFFF);
  EXPECT_EQ(second->GetPixel(P(5, 4)), source->GetPixel(P(3, 3)) & 0xFFFFFF);
  EXPECT_EQ(second->GetPixel(P(6, 4)), 0u);

  // Half-transparent white over black gives half gray, and alpha builds up on an Argb target.
  auto white = Make(2, 2, CA_DIB_Argb, 0x80FFFFFF);
  auto opaque = Make(2, 2, CA_DIB_Rgb, 0);
  opaque->CompositeBitmap(R(0, 0, 2, 2), white.get(), P(0, 0), CA_BLEND_Normal, nullptr);
  EXPECT_EQ(opaque->GetPixel(P(1, 1)), 0x808080u);
  auto clear = Make(2, 2, CA_DIB_Argb, 0x00000000);
  clear->CompositeBitmap(R(0, 0, 2, 2), white.get(), P(0, 0), CA_BLEND_Multiply, nullptr);
  EXPECT_EQ(clear->GetPixel(P(0, 0)), 0x80FFFFFFu);  // nothing beneath: the source shows as it is

  // Refusals leave the target alone.
  const unsigned before = target->GetPixel(P(0, 0));
  EXPECT_EQ(target->CompositeBitmap(R(0, 0, 2, 2), nullptr, P(0, 0), CA_BLEND_Normal, nullptr), 0);
  EXPECT_EQ(target->CompositeBitmap(R(0, 0, 2, 2), source.get(), P(0, 0), static_cast<CA_BlendMode>(15), nullptr), 0);
  auto gray = Make(4, 4, CA_DIB_8bpp, 7);
  EXPECT_EQ(gray->CompositeBitmap(R(0, 0, 2, 2), source.get(), P(0, 0), CA_BLEND_Normal, nullptr), 0);
  EXPECT_EQ(gray->GetPixel(P(0, 0)), 7u);
  EXPECT_EQ(target->GetPixel(P(0, 0)), before);
  // A palette source is read through its palette.
  auto indexed = Make(2, 2, CA_DIB_8bpp, 1);
  const unsigned palette[2] = {0x000000, 0x3366CC};
  ASSERT_TRUE(indexed->SetPalette(palette, 2));
  auto onto = Make(2, 2, CA_DIB_Rgb, 0);
  onto->CompositeBitmap(R(0, 0, 2, 2), indexed.get(), P(0, 0), CA_BLEND_Normal, nullptr);
  EXPECT_EQ(onto->GetPixel(P(0, 0)), 0x3366CCu);
}

TEST(CompositeHSBColor, TakesHueAndSaturationOfSourceAndBrightnessOfBackdrop) {
  unsigned out = 0;
  EXPECT_FALSE(CompositeHSBColor(0xFF0000, 0x808080, nullptr));
  ASSERT_TRUE(CompositeHSBColor(0xFF0000, 0x808080, &out));
  EXPECT_EQ(out, 0x800000u);
  ASSERT_TRUE(CompositeHSBColor(0x404040, 0x00C000, &out));  // gray source: a gray as bright as the backdrop
  EXPECT_EQ(out, 0xC0C0C0u);
  ASSERT_TRUE(CompositeHSBColor(0x00FF00, 0x000000, &out));  // black backdrop stays black
  EXPECT_EQ(out, 0u);
  ASSERT_TRUE(CompositeHSBColor(0x123456, 0xAB000000, &out));  // the backdrop's top byte is kept
  EXPECT_EQ(out, 0xAB000000u);

  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    const unsigned source = random() & 0xFFFFFF, backdrop = random();
    ASSERT_TRUE(CompositeHSBColor(source, backdrop, &out));
    EXPECT_EQ(out >> 24, backdrop >> 24);
    const Hsb s = ToHsb(source), b = ToHsb(backdrop), r = ToHsb(out);
    EXPECT_NEAR(r.brightness, b.brightness, 0.5 / 255);
    if (b.brightness > 0.25) {  // rounding to bytes blurs hue and saturation of dark colours
      EXPECT_NEAR(r.saturation, s.saturation, 0.02) << std::hex << source << " " << backdrop;
      if (s.saturation > 0.2) {
        const double d = std::fabs(r.hue - s.hue);
        EXPECT_LT(std::min(d, 360 - d), 3.0) << std::hex << source << " " << backdrop;
      }
    }
  }
}

}  // namespace
