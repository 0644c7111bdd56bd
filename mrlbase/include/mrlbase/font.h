#ifndef MRLBASE_FONT_H_
#define MRLBASE_FONT_H_

#include <memory>

#include <mrlbase/export.h>
#include <mrlbase/matrix.h>
#include <mrlbase/wide_string.h>

// A font lookup over fontconfig and FreeType. Fonts made with the same manager share its
// FreeType library; the manager must outlive them and serialises their use of it.
//
// Threads: a font is for one thread at a time. A font made without a manager has a FreeType
// library of its own and runs beside any other; fonts sharing a manager may be used from different
// threads, taking turns on its lock. fontconfig's configuration is loaded once, by the first
// lookup of the process.
//
//   CCA_FontMgr manager;
//   CCA_Font font(&manager);
//   font.LoadFont(L"DejaVu Sans", L"DejaVu Sans", 0, 400, 0);
class MRL_API CCA_FontMgr {
 public:
  // Starts a FreeType library; IsReady() tells whether that worked.
  CCA_FontMgr();
  ~CCA_FontMgr();
  CCA_FontMgr(const CCA_FontMgr&) = delete;
  CCA_FontMgr& operator=(const CCA_FontMgr&) = delete;

  // True when the manager can load fonts.
  bool IsReady() const noexcept;

 private:
  friend class CCA_Font;
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// The coverage of one rendered glyph, placed in device pixels.
struct CA_GlyphImage {
  int left = 0;    // device x of the first coverage column
  int top = 0;     // device y of the first coverage row
  int width = 0;
  int height = 0;
  int pitch = 0;   // bytes from one coverage row to the next
  const unsigned char* coverage = nullptr;  // 0..255 per pixel; valid until the next call on the font
};

// One font family at one weight and slant, with fallback faces for characters it lacks.
//
// LoadFont looks the family up through fontconfig. A family that is not installed ("SimSun" on
// most Linux systems) falls back to the fallback family, then to the installed font that best
// suits the charset (charset 3 asks for a Chinese font). While drawing, a character that the
// loaded face lacks is taken from an installed font that covers it.
//
//   CCA_Font font(nullptr);
//   if (font.LoadFont(L"SimSun", L"SimSun", 3, 700, 0)) { /* hand &font to a device */ }
class MRL_API CCA_Font {
 public:
  // manager null: the font keeps a FreeType library of its own.
  explicit CCA_Font(CCA_FontMgr* manager);
  ~CCA_Font();
  CCA_Font(const CCA_Font&) = delete;
  CCA_Font& operator=(const CCA_Font&) = delete;

  // Loads family (UTF-32), else fallbackFamily, else the best installed match for charset
  // (3: Chinese GB, anything else: no preference). weight is 400 (regular) or 700 (bold),
  // italic 0 or 1; a style the font lacks is synthesised. False when no font could be loaded.
  bool LoadFont(const CMRL_WideString& family, const CMRL_WideString& fallbackFamily,
                int charset, int weight, int italic);

  // True after a successful LoadFont.
  bool IsLoaded() const noexcept;
  // True when the loaded face is the family asked for (not a fallback).
  bool IsExactMatch() const noexcept;
  // What the last LoadFont asked for: family (UTF-8), charset, weight and italic flag.
  const char* GetRequestedFamily() const noexcept;
  int GetCharset() const noexcept;
  int GetWeight() const noexcept;
  int GetItalic() const noexcept;
  // Family name (UTF-8) and file of the loaded face; empty before LoadFont.
  const char* GetFamilyName() const noexcept;
  const char* GetFilePath() const noexcept;

  // Horizontal kerning in pixels between two characters at the size, in text space;
  // 0 when they come from different faces or the face has no kerning.
  float GetKerning(wchar_t left, wchar_t right, float sizeInPixels);

  // Renders ch anti-aliased at the size, with the linear part (a, b, c, d) of matrix, for a pen
  // at device point (originX, originY) on the baseline. The image is placed in device pixels;
  // advance is the pen's advance in text space (pixels). A character that no installed face has
  // renders as the loaded face's missing-glyph box. False when no font is loaded.
  bool RenderGlyph(wchar_t ch, float sizeInPixels, const CMRL_Matrix& matrix, float originX,
                   float originY, CA_GlyphImage& image, float& advance);

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

#endif  // MRLBASE_FONT_H_
