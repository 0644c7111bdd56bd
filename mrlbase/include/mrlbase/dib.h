#ifndef MRLBASE_DIB_H_
#define MRLBASE_DIB_H_

#include <vector>

#include <mrlbase/device_rect.h>
#include <mrlbase/enums.h>
#include <mrlbase/export.h>
#include <mrlbase/object.h>
#include <mrlbase/psv_template.h>

// Clip region of CCA_Dib::CompositeBitmap; only null is ever passed.
class CCA_Region;

// A device-independent bitmap: width x height pixels of one CA_DibFormat, rows pitch bytes
// apart, row y starting pitch * y bytes into the buffer.
//
// Byte order in memory: 24 bpp B,G,R; 32 bpp B,G,R,X (Rgb32) or B,G,R,A (Argb); 1 bpp packs
// the leftmost pixel into the most significant bit. 1 bpp and 8 bpp (CA_DIB_8bpp) carry a
// palette, by default the black..white ramp; CA_DIB_8bppMask is a bare alpha plane.
//
// Pixel values of GetPixel/SetPixel: 0xAARRGGBB for 32 bpp (for Rgb32 the fourth byte is stored
// and read back as it is), 0x00RRGGBB for 24 bpp, the index or level in bits 7-0 for 8 bpp, bit 0
// for 1 bpp.
//
// Threads: a bitmap is for one thread at a time while anyone changes it; several threads may read
// one (GetPixel, GetScanline, as a composite source or an encoder's input) while nobody changes it.
//
//   CCA_Dib dib;
//   if (dib.Create(640, 480, CA_DIB_Rgb)) dib.SetPixel(CMRL_PSVTemplate<int>(3, 4), 0xFF0000);
//
// Private data: the geometry (m_width, m_height, m_pitch, m_bpp, m_format), the pixel buffer
// (m_buffer, freed by the destructor only when m_ownsBuffer) and the palette (m_palette, empty
// for formats without one). A CCA_Dib is neither copyable nor movable; Clone makes a deep copy.
class MRL_API CCA_Dib : public CCA_Object {
 public:
  CCA_Dib() noexcept = default;
  ~CCA_Dib() override;
  CCA_Dib(const CCA_Dib&) = delete;
  CCA_Dib& operator=(const CCA_Dib&) = delete;

  // Makes the bitmap width x height of the format. Null buffer: an own, zero-filled buffer;
  // otherwise the caller's buffer, which must outlive the bitmap. Pitch 0: the row length in
  // bytes rounded up to 4. False (and the bitmap left empty) for a non-positive size, an unknown
  // format, a pitch shorter than a row, or a failed allocation. Any earlier content is dropped.
  bool Create(int width, int height, CA_DibFormat format, unsigned char* buffer = nullptr, int pitch = 0);

  // Geometry; all 0 (and CA_DIB_Invalid) before a successful Create.
  int GetWidth() const noexcept { return m_width; }
  int GetHeight() const noexcept { return m_height; }
  int GetPitch() const noexcept { return m_pitch; }
  int GetBPP() const noexcept { return m_bpp; }
  CA_DibFormat GetFormat() const noexcept { return m_format; }
  // The pixel buffer, null before Create.
  unsigned char* GetBuffer() const noexcept { return m_buffer; }
  // Start of row y; null when y is outside 0..height-1.
  unsigned char* GetScanline(int y) const noexcept;

  // The pixel value at p (see above); 0 outside the bitmap.
  unsigned GetPixel(const CMRL_PSVTemplate<int>& p) const noexcept;
  // Stores the value at p (the bits the format keeps); no effect outside the bitmap.
  void SetPixel(const CMRL_PSVTemplate<int>& p, unsigned value) noexcept;

  // Palette: 2 entries for 1 bpp, 256 for CA_DIB_8bpp (unless SetPalette gave fewer), 0 otherwise.
  // An entry is 0x00RRGGBB; an index outside the palette reads 0.
  int GetPaletteSize() const noexcept { return static_cast<int>(m_palette.size()); }
  unsigned GetPaletteEntry(int index) const noexcept;
  // The palette itself (GetPaletteSize() entries), null when there is none.
  const unsigned* GetPaletteData() const noexcept { return m_palette.empty() ? nullptr : m_palette.data(); }
  // Replaces the palette: 1 to 2 entries for 1 bpp, 1 to 256 for CA_DIB_8bpp. False (palette kept)
  // for a null list, a count out of range or a format without palette. Bits 31-24 are dropped.
  bool SetPalette(const unsigned* entries, int count);

  // A new bitmap of the same size, format, palette and pixels, with its own buffer (pitch kept).
  // Null when this bitmap is empty or allocation fails. The caller deletes it.
  CCA_Dib* Clone() const;

  // Alpha and compositing (implemented in dib_composite.cpp).
  // True when the pixels carry an alpha channel.
  bool HasAlpha() const;
  // A new CA_DIB_8bppMask holding the alpha of rect (null: the whole bitmap); the caller deletes it.
  CCA_Dib* GetAlpha(const CMRL_DeviceRectTemplate<int>* rect) const;
  // Multiplies this bitmap's alpha by the mask's levels; false when it cannot.
  bool MultiplyAlpha(const CCA_Dib* mask);
  // Blends source, from sourcePoint on, into rect of this bitmap with the blend mode; non-zero: done.
  int CompositeBitmap(const CMRL_DeviceRectTemplate<int>& rect, const CCA_Dib* source,
                      const CMRL_PSVTemplate<int>& sourcePoint, CA_BlendMode mode, const CCA_Region* clip);

 private:
  void Reset() noexcept;

  int m_width = 0;
  int m_height = 0;
  int m_pitch = 0;
  int m_bpp = 0;
  CA_DibFormat m_format = CA_DIB_Invalid;
  unsigned char* m_buffer = nullptr;
  bool m_ownsBuffer = false;
  std::vector<unsigned> m_palette;
};

// Hue and saturation of source with the brightness of backdrop (colour words) into *result.
MRL_API bool CompositeHSBColor(unsigned source, unsigned backdrop, unsigned* result);

#endif  // MRLBASE_DIB_H_
