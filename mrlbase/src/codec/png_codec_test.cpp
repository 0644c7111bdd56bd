#include <gtest/gtest.h>
#include <png.h>

#include <csetjmp>
#include <cstring>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

struct Input {
  const Bytes* bytes;
  size_t pos;
};

void ReadInput(png_structp png, png_bytep out, png_size_t n) {
  auto* in = static_cast<Input*>(png_get_io_ptr(png));
  if (n > in->bytes->size() - in->pos) png_error(png, "eof");
  std::memcpy(out, in->bytes->data() + in->pos, n);
  in->pos += n;
}

// libpng on its own, every file expanded to 8-bit RGBA: the samples the codec must give.
bool ReferenceDecode(const Bytes& bytes, int& width, int& height, Bytes& rgba) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, [](png_structp, png_const_charp) {});
  png_infop info = png_create_info_struct(png);
  Input input{&bytes, 0};
  std::vector<png_bytep> rows;
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    return false;
  }
  png_set_read_fn(png, &input, ReadInput);
  png_read_info(png, info);
  png_set_expand(png);
  png_set_strip_16(png);
  png_set_gray_to_rgb(png);
  png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  width = static_cast<int>(png_get_image_width(png, info));
  height = static_cast<int>(png_get_image_height(png, info));
  rgba.assign(static_cast<size_t>(width) * height * 4, 0);
  for (int y = 0; y < height; ++y) rows.push_back(&rgba[static_cast<size_t>(y) * width * 4]);
  png_read_image(png, rows.data());
  png_destroy_read_struct(&png, &info, nullptr);
  return true;
}

std::string SuiteDir() { return TestDataDir() + "/pngsuite"; }

TEST(PngCodec, EverySuiteFileDecodesToItsSamplesOrIsRefused) {
  const auto names = ListFiles(SuiteDir(), ".png");
  if (names.empty()) GTEST_SKIP() << "no PngSuite at " << SuiteDir();
  int decoded = 0, refused = 0;
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    Bytes bytes, rgba;
    ASSERT_TRUE(ReadFileBytes(SuiteDir() + "/" + name, bytes));
    auto dib = Decode(bytes);
    if (name[0] == 'x') {
      EXPECT_EQ(dib, nullptr) << "a corrupt file was accepted";
      ++refused;
      continue;
    }
    ASSERT_NE(dib, nullptr);
    int width = 0, height = 0;
    ASSERT_TRUE(ReferenceDecode(bytes, width, height, rgba));
    ASSERT_EQ(dib->GetWidth(), width);
    ASSERT_EQ(dib->GetHeight(), height);
    int bad = 0;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) bad += Argb(*dib, x, y) != RgbaAt(rgba, width, x, y);
    }
    EXPECT_EQ(bad, 0);
    EXPECT_TRUE(SameBytesOverReusedMemory(bytes));
    ++decoded;
    // A spread of cuts over header and data refuses the file; one inside the final IEND chunk,
    // after every row, does not.
    for (size_t cut : {size_t{0}, size_t{7}, size_t{8}, size_t{33}, bytes.size() / 3, bytes.size() / 2}) {
      EXPECT_EQ(Decode(Head(bytes, cut)), nullptr) << "cut at " << cut;
    }
    auto noEnd = Decode(Head(bytes, bytes.size() - 1));
    ASSERT_NE(noEnd, nullptr);
    EXPECT_EQ(CountDifferences(*noEnd, *dib), 0);
  }
  EXPECT_GT(decoded, 100);
  EXPECT_GT(refused, 5);
}

TEST(PngCodec, LayoutFollowsTheFile) {
  const std::pair<const char*, CA_DibFormat> cases[] = {
      {"basn0g01.png", CA_DIB_1bpp},   // bilevel gray
      {"basn0g04.png", CA_DIB_8bpp},   // gray widened to 8 bits
      {"basn0g16.png", CA_DIB_8bpp},   // 16-bit gray narrowed
      {"basn2c16.png", CA_DIB_Rgb},    // 16-bit colour narrowed
      {"basn3p02.png", CA_DIB_8bpp},   // 2-bit palette unpacked
      {"basn3p01.png", CA_DIB_1bpp},   // 1-bit palette of two colours
      {"basn4a08.png", CA_DIB_Argb},   // gray + alpha
      {"basi6a16.png", CA_DIB_Argb},   // interlaced 16-bit RGBA
      {"tbbn0g04.png", CA_DIB_Argb},   // gray with a tRNS key
      {"tbrn2c08.png", CA_DIB_Argb},   // RGB with a tRNS key
      {"tp1n3p08.png", CA_DIB_Argb},   // palette with tRNS
      {"basn3p08.png", CA_DIB_8bpp},   // 8-bit palette: checked below to be the PLTE, not a ramp
  };
  Bytes bytes;
  if (!ReadFileBytes(SuiteDir() + "/basn0g01.png", bytes)) GTEST_SKIP() << "no PngSuite";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    ASSERT_TRUE(ReadFileBytes(SuiteDir() + "/" + c.first, bytes));
    auto dib = Decode(bytes);
    ASSERT_NE(dib, nullptr);
    ASSERT_EQ(dib->GetFormat(), c.second);
    if (c.second == CA_DIB_8bpp && c.first[4] == '3') {
      bool ramp = true;
      for (int i = 0; i < dib->GetPaletteSize(); ++i) ramp = ramp && dib->GetPaletteEntry(i) == i * 0x010101u;
      EXPECT_FALSE(ramp);
    }
  }
}

TEST(PngCodec, EncoderKeepsGrayLevelAndResolution) {
  // A gray-ramp bitmap is written as gray and comes back with the ramp.
  auto back = Decode(Encode(*Pattern(16, 16, CA_DIB_8bpp, true), CA_IMAGE_Png));
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->GetFormat(), CA_DIB_8bpp);
  EXPECT_EQ(back->GetPaletteEntry(200), 200 * 0x010101u);

  // Level 0 stores, level 9 compresses: a smooth picture must shrink.
  auto rgb = Pattern(200, 100, CA_DIB_Rgb);
  const int level0 = 0, level9 = 9, dpi = 300, dpiY = 150;
  const Bytes stored = Encode(*rgb, CA_IMAGE_Png, &level0), packed = Encode(*rgb, CA_IMAGE_Png, &level9);
  ASSERT_FALSE(packed.empty());
  EXPECT_LT(packed.size() * 2, stored.size());

  // pHYs carries the resolution in pixels per metre, and only when one is given.
  const Bytes withDpi = Encode(*rgb, CA_IMAGE_Png, nullptr, &dpi, &dpiY);
  const size_t at = std::string(withDpi.begin(), withDpi.end()).find("pHYs");
  ASSERT_NE(at, std::string::npos);
  auto be32 = [&](size_t i) { return (uint32_t{withDpi[i]} << 24) | (withDpi[i + 1] << 16) | (withDpi[i + 2] << 8) | withDpi[i + 3]; };
  EXPECT_EQ(be32(at + 4), 11811u);   // 300 dpi
  EXPECT_EQ(be32(at + 8), 5906u);    // 150 dpi
  EXPECT_EQ(withDpi[at + 12], 1);    // unit: metre
  const Bytes noDpi = Encode(*rgb, CA_IMAGE_Png);
  EXPECT_EQ(std::string(noDpi.begin(), noDpi.end()).find("pHYs"), std::string::npos);
  // A resolution past what the field holds is capped rather than wrapped.
  const int huge = 2000000000;
  const Bytes capped = Encode(*rgb, CA_IMAGE_Png, nullptr, &huge, &huge);
  const size_t cappedAt = std::string(capped.begin(), capped.end()).find("pHYs");
  ASSERT_NE(cappedAt, std::string::npos);
  EXPECT_EQ((uint32_t{capped[cappedAt + 4]} << 24) | (capped[cappedAt + 5] << 16) | (capped[cappedAt + 6] << 8) | capped[cappedAt + 7],
            0x7FFFFFFFu);
}

// Files of other writers that the damaged-file rule must not catch, and ones it must.
TEST(PngCodec, CorpusFilesFollowTheDamagedFileRule) {
  const std::string dir = TestDataDir() + "/imagecorpus/files/pillow/";
  Bytes probe;
  if (!ReadFileBytes(dir + "hopper.png", probe)) GTEST_SKIP() << "no corpus at " << dir;
  // A text chunk that inflates without end is dropped, the pixels kept; a second IDAT cut short
  // after a complete image costs nothing either.
  for (const char* name : {"png_decompression_dos.png", "truncated_end_chunk.png"}) {
    Bytes bytes;
    ASSERT_TRUE(ReadFileBytes(dir + name, bytes)) << name;
    EXPECT_NE(Decode(bytes), nullptr) << name;
  }
  for (const char* name : {"broken.png", "broken_data_stream.png", "truncated_image.png"}) {
    Bytes bytes;
    ASSERT_TRUE(ReadFileBytes(dir + name, bytes)) << name;
    EXPECT_EQ(Decode(bytes), nullptr) << name;
  }
}

}  // namespace
