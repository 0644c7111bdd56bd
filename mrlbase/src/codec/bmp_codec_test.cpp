#include <gtest/gtest.h>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

void Put16(Bytes& v, uint32_t x) {
  v.push_back(static_cast<uint8_t>(x));
  v.push_back(static_cast<uint8_t>(x >> 8));
}
void Put32(Bytes& v, uint32_t x) {
  Put16(v, x & 0xFFFF);
  Put16(v, x >> 16);
}

// A BMP with a 40-byte info header (or the 12-byte core header), optional masks after it,
// the palette and the pixel bytes as given.
Bytes MakeBmp(int w, int h, int bpp, uint32_t compression, const std::vector<uint32_t>& palette,
              const Bytes& pixels, const std::vector<uint32_t>& masks = {}, bool core = false) {
  Bytes v;
  const uint32_t header = core ? 12 : 40;
  const uint32_t entry = core ? 3 : 4;
  const uint32_t off = 14 + header + 4 * static_cast<uint32_t>(masks.size()) + entry * static_cast<uint32_t>(palette.size());
  v.push_back('B');
  v.push_back('M');
  Put32(v, off + static_cast<uint32_t>(pixels.size()));
  Put32(v, 0);
  Put32(v, off);
  Put32(v, header);
  if (core) {
    Put16(v, w);
    Put16(v, h);
    Put16(v, 1);
    Put16(v, bpp);
  } else {
    Put32(v, static_cast<uint32_t>(w));
    Put32(v, static_cast<uint32_t>(h));
    Put16(v, 1);
    Put16(v, bpp);
    Put32(v, compression);
    Put32(v, static_cast<uint32_t>(pixels.size()));
    Put32(v, 2835);
    Put32(v, 2835);
    Put32(v, static_cast<uint32_t>(palette.size()));
    Put32(v, 0);
  }
  for (uint32_t m : masks) Put32(v, m);
  for (uint32_t c : palette) {
    v.push_back(static_cast<uint8_t>(c));
    v.push_back(static_cast<uint8_t>(c >> 8));
    v.push_back(static_cast<uint8_t>(c >> 16));
    if (!core) v.push_back(0);
  }
  v.insert(v.end(), pixels.begin(), pixels.end());
  return v;
}

TEST(BmpCodec, PeerFilesMatchTheirReferenceSamples) {
  const std::string dir = TestDataDir() + "/pngsuite/bmp";
  const auto names = ListFiles(dir, ".bmp");
  if (names.empty()) GTEST_SKIP() << "no peer BMPs at " << dir;
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    Bytes bytes, rgba;
    ASSERT_TRUE(ReadFileBytes(dir + "/" + name, bytes));
    ASSERT_TRUE(ReadFileBytes(dir + "/" + name + ".rgba", rgba));
    auto dib = Decode(bytes);
    ASSERT_NE(dib, nullptr);
    ASSERT_EQ(static_cast<size_t>(dib->GetWidth()) * dib->GetHeight() * 4, rgba.size());
    EXPECT_EQ(dib->GetFormat(), CA_DIB_Argb);   // these carry an alpha mask
    int bad = 0;
    for (int y = 0; y < dib->GetHeight(); ++y) {
      for (int x = 0; x < dib->GetWidth(); ++x) {
        const uint8_t* p = &rgba[(static_cast<size_t>(y) * dib->GetWidth() + x) * 4];
        const uint32_t want = (uint32_t{p[3]} << 24) | (p[0] << 16) | (p[1] << 8) | p[2];
        bad += Argb(*dib, x, y) != want;
      }
    }
    EXPECT_EQ(bad, 0);
  }
}

TEST(BmpCodec, ReadsPaletteRleBitfieldAndCoreVariants) {
  // 4 bpp, bottom-up, 3x2: indices 0 1 2 / 3 0 1 (file rows bottom first, padded to 4 bytes).
  const std::vector<uint32_t> pal = {0x000000, 0xFF0000, 0x00FF00, 0x0000FF};
  auto four = Decode(MakeBmp(3, 2, 4, 0, pal, {0x30, 0x10, 0, 0, 0x01, 0x20, 0, 0}));
  ASSERT_NE(four, nullptr);
  EXPECT_EQ(four->GetFormat(), CA_DIB_8bpp);
  EXPECT_EQ(Argb(*four, 1, 0), 0xFFFF0000u);
  EXPECT_EQ(Argb(*four, 2, 0), 0xFF00FF00u);
  EXPECT_EQ(Argb(*four, 0, 1), 0xFF0000FFu);

  // Negative height: top-down rows.
  auto topDown = Decode(MakeBmp(3, -2, 4, 0, pal, {0x30, 0x10, 0, 0, 0x01, 0x20, 0, 0}));
  ASSERT_NE(topDown, nullptr);
  EXPECT_EQ(Argb(*topDown, 0, 0), 0xFF0000FFu);

  // RLE8: a run of 3 x index 1, end of line, an absolute run of 3 (padded), end of bitmap.
  auto rle8 = Decode(MakeBmp(3, 2, 8, 1, pal, {3, 1, 0, 0, 0, 3, 2, 3, 1, 0, 0, 1}));
  ASSERT_NE(rle8, nullptr);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(Argb(*rle8, x, 1), 0xFFFF0000u);
  EXPECT_EQ(Argb(*rle8, 0, 0), 0xFF00FF00u);
  EXPECT_EQ(Argb(*rle8, 2, 0), 0xFFFF0000u);

  // RLE4: 4 pixels alternating 2,3; a delta that skips the rest; end of bitmap.
  auto rle4 = Decode(MakeBmp(4, 2, 4, 2, pal, {4, 0x23, 0, 0, 0, 2, 1, 0, 0, 1}));
  ASSERT_NE(rle4, nullptr);
  EXPECT_EQ(Argb(*rle4, 0, 1), 0xFF00FF00u);
  EXPECT_EQ(Argb(*rle4, 1, 1), 0xFF0000FFu);
  EXPECT_EQ(Argb(*rle4, 3, 0), 0xFF000000u);   // never written: index 0

  // 16 bpp 5-6-5 bit fields: pure red and a mid gray.
  auto sixteen = Decode(MakeBmp(2, 1, 16, 3, {}, {0x00, 0xF8, 0xEF, 0x7B}, {0xF800, 0x07E0, 0x001F}));
  ASSERT_NE(sixteen, nullptr);
  EXPECT_EQ(sixteen->GetFormat(), CA_DIB_Rgb);
  EXPECT_EQ(Argb(*sixteen, 0, 0), 0xFFFF0000u);
  EXPECT_EQ(Argb(*sixteen, 1, 0), 0xFF7B7D7Bu);

  // 32 bpp without masks: a zero fourth byte is padding; when some writer put alpha there
  // (any byte non-zero), it is read as alpha.
  auto thirtyTwo = Decode(MakeBmp(2, 1, 32, 0, {}, {0x10, 0x20, 0x30, 0x00, 0x40, 0x50, 0x60, 0x00}));
  ASSERT_NE(thirtyTwo, nullptr);
  EXPECT_EQ(thirtyTwo->GetFormat(), CA_DIB_Rgb);
  EXPECT_EQ(Argb(*thirtyTwo, 0, 0), 0xFF302010u);
  auto withAlpha = Decode(MakeBmp(2, 1, 32, 0, {}, {0x10, 0x20, 0x30, 0x00, 0x40, 0x50, 0x60, 0x80}));
  ASSERT_NE(withAlpha, nullptr);
  EXPECT_EQ(withAlpha->GetFormat(), CA_DIB_Argb);
  EXPECT_EQ(Argb(*withAlpha, 0, 0), 0x00302010u);
  EXPECT_EQ(Argb(*withAlpha, 1, 0), 0x80605040u);

  // 12-byte core header with 3-byte palette entries, 1 bpp.
  auto core = Decode(MakeBmp(2, 1, 1, 0, {0x112233, 0xAABBCC}, {0x40, 0, 0, 0}, {}, true));
  ASSERT_NE(core, nullptr);
  EXPECT_EQ(core->GetFormat(), CA_DIB_1bpp);
  EXPECT_EQ(Argb(*core, 0, 0), 0xFF112233u);
  EXPECT_EQ(Argb(*core, 1, 0), 0xFFAABBCCu);
}

TEST(BmpCodec, DamagedFilesAreRefused) {
  const std::vector<uint32_t> pal = {0, 0xFFFFFF};
  const Bytes good = MakeBmp(3, 2, 24, 0, {}, Bytes(24, 0x7F));
  ASSERT_NE(Decode(good), nullptr);
  for (size_t cut = 0; cut < good.size(); ++cut) {
    EXPECT_EQ(Decode(Bytes(good.begin(), good.begin() + cut)), nullptr) << "cut at " << cut;
  }
  EXPECT_EQ(Decode(MakeBmp(0, 2, 24, 0, {}, Bytes(24, 0))), nullptr);            // no width
  EXPECT_EQ(Decode(MakeBmp(100000, 100000, 24, 0, {}, Bytes(24, 0))), nullptr);  // absurd size
  EXPECT_EQ(Decode(MakeBmp(3, 2, 7, 0, {}, Bytes(24, 0))), nullptr);             // no such depth
  EXPECT_EQ(Decode(MakeBmp(3, 2, 24, 4, {}, Bytes(24, 0))), nullptr);            // embedded JPEG
  EXPECT_EQ(Decode(MakeBmp(3, 2, 4, 1, pal, {3, 1, 0, 1})), nullptr);           // RLE8 with 4 bpp
  EXPECT_EQ(Decode(MakeBmp(8, 8, 8, 1, pal, {0, 5, 1, 2})), nullptr);           // absolute run past the data
  EXPECT_EQ(Decode(MakeBmp(8, 8, 8, 1, pal, {2, 1, 2, 1})), nullptr);           // no end-of-bitmap mark
  Bytes badHeader = good;
  badHeader[14] = 200;   // header longer than the file
  EXPECT_EQ(Decode(badHeader), nullptr);
  Bytes badOffset = good;
  badOffset[10] = 0xFF;
  badOffset[11] = 0xFF;
  EXPECT_EQ(Decode(badOffset), nullptr);
}

TEST(BmpCodec, WriterRoundTripsEveryLayoutAndWritesResolution) {
  for (CA_DibFormat format : {CA_DIB_1bpp, CA_DIB_8bpp, CA_DIB_8bppMask, CA_DIB_Rgb, CA_DIB_Rgb32, CA_DIB_Argb}) {
    SCOPED_TRACE(format);
    auto dib = Pattern(13, 7, format);   // odd width: row padding matters
    const Bytes bytes = Encode(*dib, CA_IMAGE_Bmp);
    ASSERT_FALSE(bytes.empty());
    auto back = Decode(bytes);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(CountDifferences(*dib, *back), 0);
    EXPECT_EQ(back->GetFormat() == CA_DIB_Argb, format == CA_DIB_Argb);
  }
  auto dib = Pattern(4, 4, CA_DIB_Rgb);
  const int x = 254, y = 127;
  const Bytes bytes = Encode(*dib, CA_IMAGE_Bmp, nullptr, &x, &y);
  ASSERT_GE(bytes.size(), 54u);
  auto le32 = [&](size_t i) { return bytes[i] | (bytes[i + 1] << 8) | (bytes[i + 2] << 16) | (uint32_t{bytes[i + 3]} << 24); };
  EXPECT_EQ(le32(38), 10000u);   // pixels per metre
  EXPECT_EQ(le32(42), 5000u);
  EXPECT_EQ(le32(2), bytes.size());
}

}  // namespace
