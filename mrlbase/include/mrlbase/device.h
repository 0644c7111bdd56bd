#ifndef MRLBASE_DEVICE_H_
#define MRLBASE_DEVICE_H_

#include <mrlbase/export.h>
#include <mrlbase/matrix.h>

class CCA_Dib;
class CCA_Font;

// A drawing surface. The order of the virtual members is part of the binary interface and
// stays as it is: FinishStepOne, FinishStepTwo, then DrawTextRun.
class MRL_API ICA_Device {
 public:
  virtual ~ICA_Device();
  // Flushes what is pending; non-zero: done.
  virtual int FinishStepOne() = 0;
  // Completes the page; non-zero: done.
  virtual int FinishStepTwo() = 0;
  // Draws count characters of text with font at sizeInPixels. The matrix maps text space
  // (pixels, y down) to the device; its e, f are the baseline origin in device pixels. argb is
  // 0xAARRGGBB. Non-zero when the run was drawn; 0 for a null text or font, or count <= 0.
  virtual int DrawTextRun(const wchar_t* text, int count, CCA_Font* font, float sizeInPixels,
                          const CMRL_Matrix* matrix, unsigned argb) = 0;
};

// Draws on a CCA_Dib of 24 or 32 bits per pixel: glyphs anti-aliased, kerned where the face
// has kerning, blended in the given colour (source over; alpha kept up to date for CA_DIB_Argb).
// The bitmap belongs to the caller and must outlive the device.
//
// Threads: a device and its bitmap are for one thread at a time; devices on different bitmaps may
// draw at once.
//
//   CCA_Dib page;  page.Create(400, 100, CA_DIB_Rgb32);
//   CCA_DibDevice device(&page);
//   CCA_Font font(nullptr);  font.LoadFont(L"DejaVu Sans", L"DejaVu Sans", 0, 400, 0);
//   CMRL_Matrix m(1, 0, 0, 1, 10, 60);
//   device.DrawTextRun(L"Hello", 5, &font, 32.0f, &m, 0xFF000000);
class MRL_API CCA_DibDevice : public ICA_Device {
 public:
  // target may be null or of another format: every run then draws nothing and answers 0.
  explicit CCA_DibDevice(CCA_Dib* target) noexcept;
  ~CCA_DibDevice() override;

  // Nothing is buffered: both answer 1.
  int FinishStepOne() override;
  int FinishStepTwo() override;
  // A null matrix counts as the identity. 0 when the target cannot be drawn on or the font is not loaded.
  int DrawTextRun(const wchar_t* text, int count, CCA_Font* font, float sizeInPixels,
                  const CMRL_Matrix* matrix, unsigned argb) override;

 private:
  CCA_Dib* m_target;
};

#endif  // MRLBASE_DEVICE_H_
