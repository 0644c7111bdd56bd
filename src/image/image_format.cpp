#include <zelutility/image_format.h>

#include <cstring>

const char* const ImageFormat_BMP = "BMP";
const char* const ImageFormat_JPEG = "JPEG";
const char* const ImageFormat_JPEG2000 = "JPEG2000";
const char* const ImageFormat_JB2 = "JB2";
const char* const ImageFormat_PNG = "PNG";
const char* const ImageFormat_TIF = "TIF";
const char* const ImageFormat_GIF = "GIF";

namespace {

struct FormatWord {
  const char* word;
  CA_ImageFormat format;
};

constexpr FormatWord kAcceptedExtensions[] = {
    {".bmp", CA_IMAGE_Bmp},  {".jpeg", CA_IMAGE_Jpeg},      {".jpe", CA_IMAGE_Jpeg},
    {".jpg", CA_IMAGE_Jpeg}, {".jp2000", CA_IMAGE_Jpeg2000}, {".j2k", CA_IMAGE_Jpeg2000},
    {".jp2", CA_IMAGE_Jpeg2000}, {".jb2", CA_IMAGE_Jb2},    {".png", CA_IMAGE_Png},
    {".tiff", CA_IMAGE_Tif}, {".tif", CA_IMAGE_Tif},        {".gif", CA_IMAGE_Gif},
};

// Whole-text match: a string with a zero byte inside, or any extra byte, is another word.
bool SameWord(const CMRL_ByteString& text, const char* word) noexcept {
  const size_t length = std::strlen(word);
  return static_cast<size_t>(text.GetLength()) == length &&
         std::memcmp(text.c_str(), word, length) == 0;
}

}  // namespace

CMRL_ByteString getExtFromImageFormat(CA_ImageFormat format) {
  switch (format) {
    case CA_IMAGE_Bmp: return CMRL_ByteString(".bmp");
    case CA_IMAGE_Gif: return CMRL_ByteString(".gif");
    case CA_IMAGE_Jpeg: return CMRL_ByteString(".jpg");
    case CA_IMAGE_Jpeg2000: return CMRL_ByteString(".jp2");
    case CA_IMAGE_Jb2: return CMRL_ByteString(".jb2");
    case CA_IMAGE_Png: return CMRL_ByteString(".png");
    case CA_IMAGE_Tif: return CMRL_ByteString(".tiff");
    default: return CMRL_ByteString();
  }
}

CMRL_ByteString getTypeFromImageFormat(CA_ImageFormat format) {
  switch (format) {
    case CA_IMAGE_Bmp: return CMRL_ByteString(ImageFormat_BMP);
    case CA_IMAGE_Gif: return CMRL_ByteString(ImageFormat_GIF);
    case CA_IMAGE_Jpeg: return CMRL_ByteString(ImageFormat_JPEG);
    case CA_IMAGE_Jpeg2000: return CMRL_ByteString(ImageFormat_JPEG2000);
    case CA_IMAGE_Jb2: return CMRL_ByteString(ImageFormat_JB2);
    case CA_IMAGE_Png: return CMRL_ByteString(ImageFormat_PNG);
    case CA_IMAGE_Tif: return CMRL_ByteString(ImageFormat_TIF);
    default: return CMRL_ByteString();
  }
}

CA_ImageFormat getImageFormatFromExt(const CMRL_ByteString& ext) {
  // The copy shares the caller's buffer until MakeLower writes, which then takes its own.
  CMRL_ByteString folded(ext);
  folded.MakeLower();
  for (const FormatWord& entry : kAcceptedExtensions) {
    if (SameWord(folded, entry.word)) return entry.format;
  }
  return CA_IMAGE_None;
}

CA_ImageFormat getImageFormatFromType(const CMRL_ByteString& type) {
  const FormatWord types[] = {
      {ImageFormat_BMP, CA_IMAGE_Bmp}, {ImageFormat_JPEG, CA_IMAGE_Jpeg},
      {ImageFormat_JPEG2000, CA_IMAGE_Jpeg2000}, {ImageFormat_JB2, CA_IMAGE_Jb2},
      {ImageFormat_PNG, CA_IMAGE_Png}, {ImageFormat_TIF, CA_IMAGE_Tif},
      {ImageFormat_GIF, CA_IMAGE_Gif},
  };
  CMRL_ByteString folded(type);
  folded.MakeUpper();
  for (const FormatWord& entry : types) {
    if (SameWord(folded, entry.word)) return entry.format;
  }
  return CA_IMAGE_None;
}
