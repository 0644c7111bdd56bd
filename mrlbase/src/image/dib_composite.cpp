// Alpha planes and blending of CCA_Dib: the separable and non-separable blend modes of the
// usual transparency model, colours taken as 0..1 and alpha as non-premultiplied.
#include <mrlbase/dib.h>

#include <algorithm>
#include <cmath>

namespace {

struct Rgba {
  double r, g, b, a;
};

double Clamp01(double v) { return v < 0 ? 0 : (v > 1 ? 1 : v); }

unsigned char ToByte(double v) { return static_cast<unsigned char>(std::lround(Clamp01(v) * 255.0)); }

double HardLight(double cb, double cs) {
  if (cs <= 0.5) return cb * 2 * cs;
  const double s = 2 * cs - 1;
  return cb + s - cb * s;
}

double SoftLight(double cb, double cs) {
  if (cs <= 0.5) return cb - (1 - 2 * cs) * cb * (1 - cb);
  const double d = cb <= 0.25 ? ((16 * cb - 12) * cb + 4) * cb : std::sqrt(cb);
  return cb + (2 * cs - 1) * (d - cb);
}

double BlendSeparable(CA_BlendMode mode, double cb, double cs) {
  switch (mode) {
    case CA_BLEND_Normal: return cs;
    case CA_BLEND_Multiply: return cb * cs;
    case CA_BLEND_Screen: return cb + cs - cb * cs;
    case CA_BLEND_Overlay: return HardLight(cs, cb);
    case CA_BLEND_Darken: return std::min(cb, cs);
    case CA_BLEND_Lighten: return std::max(cb, cs);
    case CA_BLEND_ColorDodge:
      if (cb <= 0) return 0;
      return cs >= 1 ? 1 : std::min(1.0, cb / (1 - cs));
    case CA_BLEND_ColorBurn:
      if (cb >= 1) return 1;
      return cs <= 0 ? 0 : 1 - std::min(1.0, (1 - cb) / cs);
    case CA_BLEND_HardLight: return HardLight(cb, cs);
    case CA_BLEND_SoftLight: return SoftLight(cb, cs);
    case CA_BLEND_Difference: return std::fabs(cb - cs);
    case CA_BLEND_Exclusion: return cb + cs - 2 * cb * cs;
    default: return cs;
  }
}

double Lum(const Rgba& c) { return 0.3 * c.r + 0.59 * c.g + 0.11 * c.b; }

Rgba ClipColor(Rgba c) {
  const double l = Lum(c);
  const double n = std::min({c.r, c.g, c.b});
  const double x = std::max({c.r, c.g, c.b});
  for (double* v : {&c.r, &c.g, &c.b}) {
    if (n < 0) *v = l + (*v - l) * l / (l - n);
    if (x > 1) *v = l + (*v - l) * (1 - l) / (x - l);
  }
  return c;
}

Rgba SetLum(Rgba c, double l) {
  const double d = l - Lum(c);
  c.r += d;
  c.g += d;
  c.b += d;
  return ClipColor(c);
}

double Sat(const Rgba& c) { return std::max({c.r, c.g, c.b}) - std::min({c.r, c.g, c.b}); }

Rgba SetSat(Rgba c, double s) {
  double* v[3] = {&c.r, &c.g, &c.b};
  std::sort(v, v + 3, [](const double* x, const double* y) { return *x < *y; });
  double& mn = *v[0];
  double& mid = *v[1];
  double& mx = *v[2];
  if (mx > mn) {
    mid = (mid - mn) * s / (mx - mn);
    mx = s;
  } else {
    mid = mx = 0;
  }
  mn = 0;
  return c;
}

bool IsSeparable(CA_BlendMode mode) { return mode >= CA_BLEND_Normal && mode <= CA_BLEND_Exclusion; }

bool IsKnownMode(CA_BlendMode mode) {
  return IsSeparable(mode) || (mode >= CA_BLEND_Hue && mode <= CA_BLEND_Luminosity) || mode == CA_BLEND_HSB;
}

unsigned PackRgb(const Rgba& c) {
  return (static_cast<unsigned>(ToByte(c.r)) << 16) | (static_cast<unsigned>(ToByte(c.g)) << 8) | ToByte(c.b);
}

Rgba UnpackRgb(unsigned word, double alpha) {
  return {((word >> 16) & 0xFF) / 255.0, ((word >> 8) & 0xFF) / 255.0, (word & 0xFF) / 255.0, alpha};
}

// B(cb, cs) of the mode, colour only.
Rgba Blend(CA_BlendMode mode, const Rgba& cb, const Rgba& cs) {
  if (IsSeparable(mode))
    return {BlendSeparable(mode, cb.r, cs.r), BlendSeparable(mode, cb.g, cs.g), BlendSeparable(mode, cb.b, cs.b), 1};
  switch (mode) {
    case CA_BLEND_Hue: return SetLum(SetSat(cs, Sat(cb)), Lum(cb));
    case CA_BLEND_Saturation: return SetLum(SetSat(cb, Sat(cs)), Lum(cb));
    case CA_BLEND_Color: return SetLum(cs, Lum(cb));
    case CA_BLEND_Luminosity: return SetLum(cb, Lum(cs));
    default: {
      unsigned out = 0;
      CompositeHSBColor(PackRgb(cs), PackRgb(cb), &out);
      return UnpackRgb(out, 1);
    }
  }
}

// Colour and alpha of a source pixel in any format.
Rgba ReadSource(const CCA_Dib& dib, int x, int y) {
  const unsigned char* row = dib.GetScanline(y);
  switch (dib.GetFormat()) {
    case CA_DIB_Rgb: {
      const unsigned char* p = row + x * 3;
      return {p[2] / 255.0, p[1] / 255.0, p[0] / 255.0, 1};
    }
    case CA_DIB_Rgb32:
    case CA_DIB_Argb: {
      const unsigned char* p = row + x * 4;
      return {p[2] / 255.0, p[1] / 255.0, p[0] / 255.0, dib.GetFormat() == CA_DIB_Argb ? p[3] / 255.0 : 1};
    }
    case CA_DIB_8bppMask: {
      const double level = row[x] / 255.0;
      return {level, level, level, 1};
    }
    default: {
      const unsigned index = dib.GetPixel(CMRL_PSVTemplate<int>(x, y));
      return UnpackRgb(dib.GetPaletteSize() > 0 ? dib.GetPaletteEntry(static_cast<int>(index)) : index, 1);
    }
  }
}

}  // namespace

bool CCA_Dib::HasAlpha() const { return m_format == CA_DIB_Argb && m_buffer != nullptr; }

CCA_Dib* CCA_Dib::GetAlpha(const CMRL_DeviceRectTemplate<int>* rect) const {
  if (!m_buffer) return nullptr;
  int left = 0, top = 0, right = m_width, bottom = m_height;
  if (rect) {
    left = std::max(std::min(rect->left, rect->right), 0);
    top = std::max(std::min(rect->top, rect->bottom), 0);
    right = std::min(std::max(rect->left, rect->right), m_width);
    bottom = std::min(std::max(rect->top, rect->bottom), m_height);
  }
  if (left >= right || top >= bottom) return nullptr;
  CCA_Dib* mask = new CCA_Dib;
  if (!mask->Create(right - left, bottom - top, CA_DIB_8bppMask)) {
    delete mask;
    return nullptr;
  }
  for (int y = top; y < bottom; ++y) {
    const unsigned char* from = GetScanline(y);
    unsigned char* to = mask->GetScanline(y - top);
    for (int x = left; x < right; ++x) {
      unsigned char a = 255;  // a bitmap without an alpha channel is opaque
      if (m_format == CA_DIB_Argb) a = from[x * 4 + 3];
      else if (m_format == CA_DIB_8bppMask) a = from[x];
      to[x - left] = a;
    }
  }
  return mask;
}

bool CCA_Dib::MultiplyAlpha(const CCA_Dib* mask) {
  if (!mask || !m_buffer || !mask->GetBuffer() || mask->GetWidth() != m_width || mask->GetHeight() != m_height)
    return false;
  if (mask->GetFormat() != CA_DIB_8bppMask && mask->GetFormat() != CA_DIB_8bpp) return false;
  int step = 0, offset = 0;
  if (m_format == CA_DIB_Argb) {
    step = 4;
    offset = 3;
  } else if (m_format == CA_DIB_8bppMask) {
    step = 1;
  } else {
    return false;
  }
  for (int y = 0; y < m_height; ++y) {
    unsigned char* row = GetScanline(y) + offset;
    const unsigned char* levels = mask->GetScanline(y);
    for (int x = 0; x < m_width; ++x) {
      const unsigned t = row[x * step] * levels[x] + 128;
      row[x * step] = static_cast<unsigned char>((t + (t >> 8)) >> 8);
    }
  }
  return true;
}

int CCA_Dib::CompositeBitmap(const CMRL_DeviceRectTemplate<int>& rect, const CCA_Dib* source,
                             const CMRL_PSVTemplate<int>& sourcePoint, CA_BlendMode mode, const CCA_Region* clip) {
  (void)clip;  // regions are not supported; callers pass null
  if (!source || !source->GetBuffer() || !m_buffer || !IsKnownMode(mode)) return 0;
  if (m_format != CA_DIB_Rgb && m_format != CA_DIB_Rgb32 && m_format != CA_DIB_Argb) return 0;
  const int left = std::min(rect.left, rect.right);
  const int top = std::min(rect.top, rect.bottom);
  const int right = std::max(rect.left, rect.right);
  const int bottom = std::max(rect.top, rect.bottom);
  // Target x maps to source x - left + sourcePoint.x; keep both inside their bitmaps.
  const long long dx = static_cast<long long>(sourcePoint.x) - left;
  const long long dy = static_cast<long long>(sourcePoint.y) - top;
  const long long x0 = std::max<long long>({left, 0, -dx});
  const long long y0 = std::max<long long>({top, 0, -dy});
  const long long x1 = std::min<long long>({right, m_width, source->GetWidth() - dx});
  const long long y1 = std::min<long long>({bottom, m_height, source->GetHeight() - dy});
  const int bytes = m_bpp / 8;
  const bool targetAlpha = m_format == CA_DIB_Argb;
  for (long long y = y0; y < y1; ++y) {
    unsigned char* row = GetScanline(static_cast<int>(y));
    for (long long x = x0; x < x1; ++x) {
      const Rgba cs = ReadSource(*source, static_cast<int>(x + dx), static_cast<int>(y + dy));
      if (cs.a <= 0) continue;
      unsigned char* p = row + x * bytes;
      const Rgba cb{p[2] / 255.0, p[1] / 255.0, p[0] / 255.0, targetAlpha ? p[3] / 255.0 : 1};
      const double ar = cb.a + cs.a - cb.a * cs.a;
      const Rgba mixed = Blend(mode, cb, cs);
      const double t = cs.a / ar;
      const double cr[3] = {(1 - t) * cb.b + t * ((1 - cb.a) * cs.b + cb.a * mixed.b),
                            (1 - t) * cb.g + t * ((1 - cb.a) * cs.g + cb.a * mixed.g),
                            (1 - t) * cb.r + t * ((1 - cb.a) * cs.r + cb.a * mixed.r)};
      for (int i = 0; i < 3; ++i) p[i] = ToByte(cr[i]);
      if (targetAlpha) p[3] = ToByte(ar);
    }
  }
  return 1;
}

bool CompositeHSBColor(unsigned source, unsigned backdrop, unsigned* result) {
  if (!result) return false;
  const int sr = (source >> 16) & 0xFF, sg = (source >> 8) & 0xFF, sb = source & 0xFF;
  const int smax = std::max({sr, sg, sb});
  const int smin = std::min({sr, sg, sb});
  const int bmax = std::max({(backdrop >> 16) & 0xFFu, (backdrop >> 8) & 0xFFu, backdrop & 0xFFu});
  const double value = bmax / 255.0;
  const double saturation = smax == 0 ? 0 : static_cast<double>(smax - smin) / smax;
  double hue = 0;  // in sixths of the circle, 0..6
  if (smax != smin) {
    const double span = smax - smin;
    if (smax == sr) hue = (sg - sb) / span;
    else if (smax == sg) hue = 2 + (sb - sr) / span;
    else hue = 4 + (sr - sg) / span;
    if (hue < 0) hue += 6;
  }
  const int sector = static_cast<int>(hue) % 6;
  const double f = hue - std::floor(hue);
  const double p = value * (1 - saturation);
  const double q = value * (1 - saturation * f);
  const double t = value * (1 - saturation * (1 - f));
  Rgba c{0, 0, 0, 1};
  switch (sector) {
    case 0: c = {value, t, p, 1}; break;
    case 1: c = {q, value, p, 1}; break;
    case 2: c = {p, value, t, 1}; break;
    case 3: c = {p, q, value, 1}; break;
    case 4: c = {t, p, value, 1}; break;
    default: c = {value, p, q, 1}; break;
  }
  *result = (backdrop & 0xFF000000u) | PackRgb(c);
  return true;
}
