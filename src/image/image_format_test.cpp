#include <zelutility/image_format.h>

#include <gtest/gtest.h>

namespace {

CA_ImageFormat FromExt(const char* ext) { return getImageFormatFromExt(CMRL_ByteString(ext)); }
CA_ImageFormat FromType(const char* type) { return getImageFormatFromType(CMRL_ByteString(type)); }

TEST(ImageFormatTest, NumberToWords) {
  const struct {
    CA_ImageFormat format;
    const char* ext;
    const char* type;
  } rows[] = {
      {CA_IMAGE_Bmp, ".bmp", "BMP"},       {CA_IMAGE_Gif, ".gif", "GIF"},
      {CA_IMAGE_Jpeg, ".jpg", "JPEG"},     {CA_IMAGE_Jpeg2000, ".jp2", "JPEG2000"},
      {CA_IMAGE_Jb2, ".jb2", "JB2"},       {CA_IMAGE_Png, ".png", "PNG"},
      {CA_IMAGE_Tif, ".tiff", "TIF"},
  };
  for (const auto& row : rows) {
    EXPECT_STREQ(getExtFromImageFormat(row.format).c_str(), row.ext) << row.format;
    EXPECT_STREQ(getTypeFromImageFormat(row.format).c_str(), row.type) << row.format;
  }
  for (int outside : {0, 8, -1, 100}) {
    EXPECT_TRUE(getExtFromImageFormat(static_cast<CA_ImageFormat>(outside)).IsEmpty()) << outside;
    EXPECT_TRUE(getTypeFromImageFormat(static_cast<CA_ImageFormat>(outside)).IsEmpty()) << outside;
  }
}

TEST(ImageFormatTest, AcceptedExtensionsInAnyCaseAndWholly) {
  const struct {
    const char* ext;
    CA_ImageFormat format;
  } rows[] = {
      {".bmp", CA_IMAGE_Bmp},      {".gif", CA_IMAGE_Gif},       {".jpeg", CA_IMAGE_Jpeg},
      {".jpe", CA_IMAGE_Jpeg},     {".jpg", CA_IMAGE_Jpeg},      {".jp2000", CA_IMAGE_Jpeg2000},
      {".j2k", CA_IMAGE_Jpeg2000}, {".jp2", CA_IMAGE_Jpeg2000},  {".jb2", CA_IMAGE_Jb2},
      {".png", CA_IMAGE_Png},      {".tiff", CA_IMAGE_Tif},      {".tif", CA_IMAGE_Tif},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(FromExt(row.ext), row.format) << row.ext;
    CMRL_ByteString upper(row.ext);
    upper.MakeUpper();
    EXPECT_EQ(getImageFormatFromExt(upper), row.format) << upper.c_str();
  }
  EXPECT_EQ(FromExt(".JpEg"), CA_IMAGE_Jpeg);
  // Only whole words count.
  for (const char* ext : {"jpg", "JPEG", "", ".", ".jpeg2000", ".jpgx", ".jp", " .jpg", ".jpg ",
                          ".tiff.", "png", ".PNG.bak"}) {
    EXPECT_EQ(FromExt(ext), CA_IMAGE_None) << "\"" << ext << "\"";
  }
  // A zero byte inside the text is part of it: ".png" followed by more bytes is another word.
  EXPECT_EQ(getImageFormatFromExt(CMRL_ByteString(".png\0x", 6)), CA_IMAGE_None);
  EXPECT_EQ(getImageFormatFromExt(CMRL_ByteString(".png\0", 5)), CA_IMAGE_None);
}

TEST(ImageFormatTest, TypeWordsInAnyCase) {
  EXPECT_EQ(FromType("jpeg2000"), CA_IMAGE_Jpeg2000);
  EXPECT_EQ(FromType("Gif"), CA_IMAGE_Gif);
  EXPECT_EQ(FromType("jB2"), CA_IMAGE_Jb2);
  EXPECT_EQ(FromType("tif"), CA_IMAGE_Tif);
  for (const char* type : {"JPG", "TIFF", ".png", "", "PNG ", "JPEG200", "J"}) {
    EXPECT_EQ(FromType(type), CA_IMAGE_None) << "\"" << type << "\"";
  }
  // Every format's own type word reads back, but the extension vocabulary differs for TIF.
  for (int n = 1; n <= 7; ++n) {
    const auto format = static_cast<CA_ImageFormat>(n);
    EXPECT_EQ(getImageFormatFromType(getTypeFromImageFormat(format)), format);
  }
  EXPECT_EQ(getImageFormatFromType(getExtFromImageFormat(CA_IMAGE_Tif)), CA_IMAGE_None);
}

TEST(ImageFormatTest, CallerStringIsNotFolded) {
  const CMRL_ByteString ext(".JPG");
  const CMRL_ByteString shared = ext;  // shares the buffer
  EXPECT_EQ(getImageFormatFromExt(shared), CA_IMAGE_Jpeg);
  EXPECT_STREQ(ext.c_str(), ".JPG");
  EXPECT_STREQ(shared.c_str(), ".JPG");

  const CMRL_ByteString type("png");
  EXPECT_EQ(getImageFormatFromType(type), CA_IMAGE_Png);
  EXPECT_STREQ(type.c_str(), "png");
}

}  // namespace
