// CCA_DibDevice: lays out a text run with the font's advances and kerning and blends each
// glyph's coverage onto the bitmap.
#include <mrlbase/device.h>

#include <algorithm>

#include <mrlbase/dib.h>
#include <mrlbase/font.h>

namespace {

// (a * b + 127) / 255 for bytes, exact to rounding.
inline unsigned MulDiv255(unsigned a, unsigned b) {
  const unsigned t = a * b + 128;
  return (t + (t >> 8)) >> 8;
}

// Source-over of one colour at coverage-scaled alpha onto an opaque pixel (B, G, R order).
inline void BlendOpaque(unsigned char* p, const unsigned char bgr[3], unsigned alpha) {
  for (int i = 0; i < 3; ++i) p[i] = static_cast<unsigned char>(MulDiv255(p[i], 255 - alpha) + MulDiv255(bgr[i], alpha));
}

// Source-over onto a pixel with its own (non-premultiplied) alpha in p[3].
inline void BlendWithAlpha(unsigned char* p, const unsigned char bgr[3], unsigned alpha) {
  const unsigned backdrop = MulDiv255(p[3], 255 - alpha);
  const unsigned out = alpha + backdrop;
  if (out == 0) return;
  for (int i = 0; i < 3; ++i) p[i] = static_cast<unsigned char>((bgr[i] * alpha + p[i] * backdrop + out / 2) / out);
  p[3] = static_cast<unsigned char>(out);
}

void BlendGlyph(CCA_Dib& dib, const CA_GlyphImage& glyph, unsigned argb) {
  const int bytes = dib.GetBPP() / 8;
  const bool hasAlpha = dib.GetFormat() == CA_DIB_Argb;
  const unsigned colourAlpha = argb >> 24;
  const unsigned char bgr[3] = {static_cast<unsigned char>(argb), static_cast<unsigned char>(argb >> 8),
                                static_cast<unsigned char>(argb >> 16)};
  const int x0 = std::max(glyph.left, 0);
  const int y0 = std::max(glyph.top, 0);
  const int x1 = std::min(glyph.left + glyph.width, dib.GetWidth());
  const int y1 = std::min(glyph.top + glyph.height, dib.GetHeight());
  for (int y = y0; y < y1; ++y) {
    const unsigned char* cover = glyph.coverage + static_cast<ptrdiff_t>(y - glyph.top) * glyph.pitch - glyph.left;
    unsigned char* row = dib.GetScanline(y);
    for (int x = x0; x < x1; ++x) {
      const unsigned alpha = MulDiv255(cover[x], colourAlpha);
      if (alpha == 0) continue;
      unsigned char* p = row + static_cast<ptrdiff_t>(x) * bytes;
      if (hasAlpha)
        BlendWithAlpha(p, bgr, alpha);
      else
        BlendOpaque(p, bgr, alpha);
    }
  }
}

}  // namespace

CCA_DibDevice::CCA_DibDevice(CCA_Dib* target) noexcept : m_target(target) {}

CCA_DibDevice::~CCA_DibDevice() = default;

int CCA_DibDevice::FinishStepOne() { return 1; }

int CCA_DibDevice::FinishStepTwo() { return 1; }

int CCA_DibDevice::DrawTextRun(const wchar_t* text, int count, CCA_Font* font, float sizeInPixels,
                               const CMRL_Matrix* matrix, unsigned argb) {
  if (!text || count <= 0 || !font || !font->IsLoaded() || !m_target || !m_target->GetBuffer()) return 0;
  const CA_DibFormat format = m_target->GetFormat();
  if (format != CA_DIB_Rgb && format != CA_DIB_Rgb32 && format != CA_DIB_Argb) return 0;
  const CMRL_Matrix m = matrix ? *matrix : CMRL_Matrix();
  float pen = 0;  // along the baseline, in text space
  for (int i = 0; i < count; ++i) {
    const wchar_t ch = text[i];
    if (i > 0) pen += font->GetKerning(text[i - 1], ch, sizeInPixels);
    if (static_cast<unsigned>(ch) < 0x20) continue;  // control characters take no room
    CA_GlyphImage glyph;
    float advance = 0;
    if (!font->RenderGlyph(ch, sizeInPixels, m, m.e + m.a * pen, m.f + m.b * pen, glyph, advance)) return 0;
    if (glyph.coverage) BlendGlyph(*m_target, glyph, argb);
    pen += advance;
  }
  return 1;
}
