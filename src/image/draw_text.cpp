// DrawTextOnDevice: turns a JSON text description into one text run on a device.
#include <zelutility/draw_text.h>

#include <mrlbase/byte_string_converter.h>
#include <mrlbase/font.h>
#include <mrlbase/matrix.h>
#include <mrlbase/wide_string.h>
#include <zelutility/color.h>

namespace {

constexpr int kDefaultFontSize = 26;
constexpr const char* kDefaultFontName = "SimSun";
constexpr const char* kDefaultColor = "#000000";
constexpr int kChineseCharset = 3;

// The device word is 0xAARRGGBB; the colour word keeps red in its low byte.
unsigned DeviceColorFromWord(unsigned word) {
  return 0xFF000000u | ((word & 0xFFu) << 16) | (word & 0xFF00u) | ((word >> 16) & 0xFFu);
}

}  // namespace

int DrawTextOnDevice(ICA_Device* device, std::shared_ptr<const ZELJson> description) {
  if (!device || !description) return 0;
  const char* content = description->GetString("Content", "");
  if (!content || !*content) return 0;

  int fontSize = kDefaultFontSize;
  const char* fontName = kDefaultFontName;
  bool bold = false;
  bool italic = false;
  const char* colorText = kDefaultColor;
  if (std::shared_ptr<const ZELJson> font = description->GetChild("Font")) {
    fontSize = font->GetInt("FontSize", kDefaultFontSize);
    if (fontSize <= 0) fontSize = kDefaultFontSize;
    fontName = font->GetString("FontName", kDefaultFontName);
    if (font->HasKey("Bold")) bold = font->GetBool("Bold", false);
    if (font->HasKey("Italic")) italic = font->GetBool("Italic", false);
    colorText = font->GetString("Color", kDefaultColor);
    if (!colorText || !*colorText) colorText = kDefaultColor;
  }
  const float deltaX = description->GetFloat("DeltaX", 0.0f);
  const float deltaY = description->GetFloat("DeltaY", 0.0f);

  const CMRL_WideString family = CMRL_ByteStringConverter::utf8_to_unicode(
      fontName && *fontName ? fontName : kDefaultFontName, -1);
  const CMRL_WideString text = CMRL_ByteStringConverter::utf8_to_unicode(content, -1);
  if (text.IsEmpty()) return 0;

  unsigned colorWord = 0;
  CA_ColorSpace colorSpace = CA_COLORSPACE_Rgb;
  ParseColorString(colorText, colorWord, colorSpace);  // a refused text leaves black
  const unsigned deviceColor = DeviceColorFromWord(colorWord);

  CCA_Font font(nullptr);
  font.LoadFont(family, family, kChineseCharset, bold ? 700 : 400, italic ? 1 : 0);

  // The baseline sits one font size (in points) below the origin.
  const CMRL_Matrix matrix(1.0f, 0.0f, 0.0f, 1.0f, deltaX, static_cast<float>(fontSize) + deltaY);
  const float sizeInPixels = static_cast<float>(fontSize / 72.0 * 96.0);

  device->DrawTextRun(text.c_str(), text.GetLength(), &font, sizeInPixels, &matrix, deviceColor);
  device->FinishStepOne();
  device->FinishStepTwo();
  return 1;
}
