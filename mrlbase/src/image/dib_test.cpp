#include <mrlbase/dib.h>

#include <cstring>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Point = CMRL_PSVTemplate<int>;

TEST(CCA_Dib, CreateRefusesBadGeometryAndLeavesTheBitmapEmpty) {
  CCA_Dib dib;
  EXPECT_EQ(dib.GetBuffer(), nullptr);
  EXPECT_EQ(dib.GetFormat(), CA_DIB_Invalid);
  ASSERT_TRUE(dib.Create(4, 4, CA_DIB_8bpp));
  EXPECT_FALSE(dib.Create(0, 4, CA_DIB_Rgb));
  EXPECT_EQ(dib.GetBuffer(), nullptr) << "a failed Create drops the earlier bitmap";
  EXPECT_EQ(dib.GetWidth(), 0);
  EXPECT_EQ(dib.GetPaletteSize(), 0);
  for (int format : {static_cast<int>(CA_DIB_Invalid), 8, -1}) {
    EXPECT_FALSE(dib.Create(4, 4, static_cast<CA_DibFormat>(format))) << format;
  }
  EXPECT_FALSE(dib.Create(4, -1, CA_DIB_Rgb));
  unsigned char buffer[64] = {};
  EXPECT_FALSE(dib.Create(4, 2, CA_DIB_Rgb, buffer, 11)) << "pitch shorter than a row";
  EXPECT_FALSE(dib.Create(4, 2, CA_DIB_Rgb, buffer, -12));
  EXPECT_FALSE(dib.Create(1 << 30, 1 << 30, CA_DIB_Argb)) << "pitch beyond int";
  EXPECT_EQ(dib.GetScanline(0), nullptr);
  EXPECT_EQ(dib.GetPixel(Point(0, 0)), 0u);
  dib.SetPixel(Point(0, 0), 1);  // no bitmap, no effect, no crash
}

TEST(CCA_Dib, PitchIsTheRowRoundedUpToFourBytes) {
  struct Case {
    CA_DibFormat format;
    int width;
    int bpp;
    int pitch;
  };
  const Case cases[] = {{CA_DIB_1bpp, 1, 1, 4},      {CA_DIB_1bpp, 32, 1, 4},    {CA_DIB_1bpp, 33, 1, 8},
                        {CA_DIB_8bppMask, 5, 8, 8},  {CA_DIB_8bpp, 4, 8, 4},     {CA_DIB_Rgb, 1, 24, 4},
                        {CA_DIB_Rgb, 5, 24, 16},     {CA_DIB_Rgb, 4, 24, 12},    {CA_DIB_Rgb32, 3, 32, 12},
                        {CA_DIB_Argb, 7, 32, 28}};
  for (const Case& c : cases) {
    CCA_Dib dib;
    ASSERT_TRUE(dib.Create(c.width, 3, c.format));
    EXPECT_EQ(dib.GetBPP(), c.bpp) << c.format;
    EXPECT_EQ(dib.GetPitch(), c.pitch) << c.format << " width " << c.width;
    EXPECT_EQ(dib.GetScanline(2), dib.GetBuffer() + 2 * c.pitch);
    EXPECT_EQ(dib.GetScanline(3), nullptr);
    EXPECT_EQ(dib.GetScanline(-1), nullptr);
    const std::vector<unsigned char> zeros(static_cast<size_t>(c.pitch) * 3, 0);
    EXPECT_EQ(std::memcmp(dib.GetBuffer(), zeros.data(), zeros.size()), 0) << "a new bitmap is zero";
  }
}

TEST(CCA_Dib, PixelValuesMapOntoTheByteLayout) {
  CCA_Dib rgb;
  ASSERT_TRUE(rgb.Create(3, 2, CA_DIB_Rgb));
  rgb.SetPixel(Point(1, 1), 0xAB123456);
  const unsigned char* px = rgb.GetScanline(1);
  EXPECT_EQ(std::vector<unsigned char>(px + 2, px + 7), (std::vector<unsigned char>{0, 0x56, 0x34, 0x12, 0}));
  EXPECT_EQ(rgb.GetPixel(Point(1, 1)), 0x123456u) << "24 bpp keeps no alpha";

  for (CA_DibFormat format : {CA_DIB_Rgb32, CA_DIB_Argb}) {
    CCA_Dib dib;
    ASSERT_TRUE(dib.Create(2, 2, format));
    dib.SetPixel(Point(1, 0), 0x80102030);
    const unsigned char* p = dib.GetScanline(0) + 4;
    EXPECT_EQ(std::vector<unsigned char>(p, p + 4), (std::vector<unsigned char>{0x30, 0x20, 0x10, 0x80}));
    EXPECT_EQ(dib.GetPixel(Point(1, 0)), 0x80102030u);
  }

  for (CA_DibFormat format : {CA_DIB_8bpp, CA_DIB_8bppMask}) {
    CCA_Dib dib;
    ASSERT_TRUE(dib.Create(2, 2, format));
    dib.SetPixel(Point(0, 1), 0x1234C7);
    EXPECT_EQ(dib.GetScanline(1)[0], 0xC7);
    EXPECT_EQ(dib.GetPixel(Point(0, 1)), 0xC7u);
  }

  CCA_Dib bits;
  ASSERT_TRUE(bits.Create(10, 1, CA_DIB_1bpp));
  bits.SetPixel(Point(0, 0), 1);
  bits.SetPixel(Point(9, 0), 3);  // only bit 0 counts
  bits.SetPixel(Point(4, 0), 2);  // bit 0 clear
  EXPECT_EQ(bits.GetBuffer()[0], 0x80) << "leftmost pixel in the top bit";
  EXPECT_EQ(bits.GetBuffer()[1], 0x40);
  EXPECT_EQ(bits.GetPixel(Point(9, 0)), 1u);
  bits.SetPixel(Point(0, 0), 0);
  EXPECT_EQ(bits.GetBuffer()[0], 0x00);
  EXPECT_EQ(bits.GetPixel(Point(8, 0)), 0u);
}

TEST(CCA_Dib, OutsideTheBitmapReadsZeroAndWritesNothing) {
  // 5 pixels of 8 bits in rows of 8: the spare bytes 5..7 are not pixels.
  std::vector<unsigned char> storage(8 * 2 + 2, 0x5A);
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(5, 2, CA_DIB_8bpp, storage.data() + 1, 8));
  EXPECT_EQ(dib.GetBuffer(), storage.data() + 1);
  for (Point p : {Point(-1, 0), Point(5, 0), Point(7, 1), Point(0, 2), Point(0, -1), Point(1 << 30, 0)}) {
    EXPECT_EQ(dib.GetPixel(p), 0u) << p.x << "," << p.y;
    dib.SetPixel(p, 0);
  }
  EXPECT_EQ(storage, std::vector<unsigned char>(8 * 2 + 2, 0x5A));
  EXPECT_EQ(dib.GetPixel(Point(4, 1)), 0x5Au) << "a caller's buffer is used as it is";
}

TEST(CCA_Dib, Palettes) {
  CCA_Dib gray;
  ASSERT_TRUE(gray.Create(2, 2, CA_DIB_8bpp));
  ASSERT_EQ(gray.GetPaletteSize(), 256);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(gray.GetPaletteEntry(i), 0x010101u * i) << "a gray ramp";
  EXPECT_EQ(gray.GetPaletteEntry(256) + gray.GetPaletteEntry(-1), 0u);

  const unsigned three[] = {0xFF123456, 0x00ABCDEF, 0x7F000001};
  ASSERT_TRUE(gray.SetPalette(three, 3));
  EXPECT_EQ(gray.GetPaletteSize(), 3);
  EXPECT_EQ(gray.GetPaletteEntry(0), 0x123456u) << "bits 31-24 are dropped";
  EXPECT_EQ(gray.GetPaletteEntry(2), 0x000001u);
  EXPECT_EQ(gray.GetPaletteEntry(3), 0u);
  std::vector<unsigned> tooMany(257, 0);
  EXPECT_FALSE(gray.SetPalette(tooMany.data(), 257) || gray.SetPalette(three, 0) || gray.SetPalette(nullptr, 2));
  EXPECT_EQ(gray.GetPaletteSize(), 3) << "a refused palette keeps the old one";

  CCA_Dib bits;
  ASSERT_TRUE(bits.Create(2, 2, CA_DIB_1bpp));
  ASSERT_EQ(bits.GetPaletteSize(), 2);
  EXPECT_EQ(bits.GetPaletteEntry(1), 0xFFFFFFu);
  EXPECT_FALSE(bits.SetPalette(three, 3));
  EXPECT_TRUE(bits.SetPalette(three + 1, 2));
  EXPECT_EQ(bits.GetPaletteEntry(0), 0xABCDEFu);

  for (CA_DibFormat format : {CA_DIB_8bppMask, CA_DIB_Rgb, CA_DIB_Rgb32, CA_DIB_Argb}) {
    CCA_Dib dib;
    ASSERT_TRUE(dib.Create(2, 2, format));
    EXPECT_EQ(dib.GetPaletteSize(), 0) << format;
    EXPECT_EQ(dib.GetPaletteData(), nullptr);
    EXPECT_FALSE(dib.SetPalette(three, 1)) << format;
  }
}

TEST(CCA_Dib, CloneIsDeepAndHeapObjectsComeFromTheLibrary) {
  std::vector<unsigned char> pixels(16 * 3, 0);
  CCA_Dib source;
  ASSERT_TRUE(source.Create(2, 3, CA_DIB_8bpp, pixels.data(), 16));
  const unsigned palette[] = {0x010203, 0x040506};
  ASSERT_TRUE(source.SetPalette(palette, 2));
  source.SetPixel(Point(1, 2), 1);
  std::unique_ptr<CCA_Dib> copy(source.Clone());
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy->GetBuffer(), source.GetBuffer());
  EXPECT_EQ(copy->GetPitch(), 16);
  EXPECT_EQ(copy->GetPaletteSize(), 2);
  EXPECT_EQ(copy->GetPaletteEntry(1), 0x040506u);
  EXPECT_EQ(copy->GetPixel(Point(1, 2)), 1u);
  copy->SetPixel(Point(0, 0), 9);
  EXPECT_EQ(source.GetPixel(Point(0, 0)), 0u);
  EXPECT_EQ(CCA_Dib().Clone(), nullptr);

  CCA_Dib* many = new CCA_Dib[3];
  EXPECT_TRUE(many[2].Create(1, 1, CA_DIB_Argb));
  delete[] many;
  CCA_Object* object = new (std::nothrow) CCA_Dib;
  ASSERT_NE(object, nullptr);
  delete object;  // virtual destructor through the base
}

}  // namespace
