#ifndef ZELUTILITY_SRC_IMAGE_AUTO_CLIP_REFERENCE_H_
#define ZELUTILITY_SRC_IMAGE_AUTO_CLIP_REFERENCE_H_

// The content-bounds search written pass by pass over two whole work bitmaps, exactly as the
// method is stated. Tests compare GetAutoCalClipRect with it and the benchmark times both.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include <mrlbase/device_rect.h>
#include <mrlbase/dib.h>

inline bool ReferenceAutoCalClipRect(const CCA_Dib* bitmap, CMRL_DeviceRectTemplate<int>& rect) {
  const int w = bitmap->GetWidth();
  const int h = bitmap->GetHeight();
  std::unique_ptr<CCA_Dib> gray(new CCA_Dib);
  if (!gray->Create(w, h, CA_DIB_8bpp, nullptr)) return false;
  for (int y = 0; y < h; ++y) {
    const unsigned char* from = bitmap->GetBuffer() + static_cast<ptrdiff_t>(y) * bitmap->GetPitch();
    unsigned char* to = gray->GetBuffer() + static_cast<ptrdiff_t>(y) * gray->GetPitch();
    for (int x = 0; x < w; ++x) {
      const unsigned char* p = from + x * 4;
      to[x] = static_cast<unsigned char>(static_cast<int>(p[1] * 0.587 + p[2] * 0.299 + p[0] * 0.114));
    }
  }
  std::unique_ptr<CCA_Dib> edges(new CCA_Dib);
  if (!edges->Create(w, h, CA_DIB_8bpp, nullptr)) return false;
  const int gp = gray->GetPitch();
  const int ep = edges->GetPitch();
  const unsigned char* g = gray->GetBuffer();
  unsigned char* e = edges->GetBuffer();
  for (int y = 1; y < h - 1; ++y) {
    for (int x = 1; x < w - 1; ++x) {
      const unsigned char* c = g + y * gp + x;
      const int tl = c[-gp - 1], t = c[-gp], tr = c[-gp + 1];
      const int l = c[-1], r = c[1];
      const int bl = c[gp - 1], b = c[gp], br = c[gp + 1];
      const int gx = (tr - tl) + 2 * (r - l) + (br - bl);
      const int gy = (bl + 2 * b + br) - (tl + 2 * t + tr);
      e[y * ep + x] = static_cast<unsigned char>(std::min(std::abs(gx) + std::abs(gy), 255));
    }
  }
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      unsigned char& v = e[y * ep + x];
      if (v >= 100) v = 255;
      else if (v < 30) v = 0;
    }
  for (int y = 1; y < h - 1; ++y)
    for (int x = 1; x < w - 1; ++x) {
      unsigned char* c = e + y * ep + x;
      if (*c == 0 || *c == 255) continue;
      const bool strong = c[-ep - 1] == 255 || c[-ep] == 255 || c[-ep + 1] == 255 || c[-1] == 255 ||
                          c[1] == 255 || c[ep - 1] == 255 || c[ep] == 255 || c[ep + 1] == 255;
      *c = strong ? 255 : 0;
    }
  int left = w, top = h, right = 0, bottom = 0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      if (e[y * ep + x] != 0) {
        left = std::min(left, x);
        top = std::min(top, y);
        right = std::max(right, x);
        bottom = std::max(bottom, y);
      }
  if (left > right || top > bottom) return false;
  rect = CMRL_DeviceRectTemplate<int>(left - 1, top - 1, right + 1, bottom + 1);
  return true;
}

#endif  // ZELUTILITY_SRC_IMAGE_AUTO_CLIP_REFERENCE_H_
