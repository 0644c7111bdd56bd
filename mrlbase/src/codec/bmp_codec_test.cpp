#include <algorithm>
#include <cstdlib>
#include <iterator>

#include <gtest/gtest.h>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

void Put(Bytes& v, uint32_t x, int bytes) {
  for (int i = 0; i < bytes; ++i) v.push_back(static_cast<uint8_t>(x >> (8 * i)));
}

// A BMP with a 40-byte info header (or the 12-byte core header), optional masks after it,
// the palette and the pixel bytes as given.
Bytes MakeBmp(int w, int h, int bpp, uint32_t compression, const std::vector<uint32_t>& palette,
              const Bytes& pixels, const std::vector<uint32_t>& masks = {}, bool core = false) {
  const uint32_t header = core ? 12 : 40, entry = core ? 3 : 4;
  const uint32_t off = static_cast<uint32_t>(14 + header + 4 * masks.size() + entry * palette.size());
  Bytes v = {'B', 'M'};
  Put(v, off + static_cast<uint32_t>(pixels.size()), 4);
  Put(v, 0, 4);
  Put(v, off, 4);
  Put(v, header, 4);
  const int dim = core ? 2 : 4;
  for (uint32_t x : {static_cast<uint32_t>(w), static_cast<uint32_t>(h)}) Put(v, x, dim);
  Put(v, 1, 2);
  Put(v, bpp, 2);
  if (!core) {
    for (uint32_t x : {compression, static_cast<uint32_t>(pixels.size()), 2835u, 2835u, static_cast<uint32_t>(palette.size()), 0u}) Put(v, x, 4);
  }
  for (uint32_t m : masks) Put(v, m, 4);
  for (uint32_t c : palette) Put(v, c, entry);
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
    ASSERT_TRUE(ReadFileBytes(dir + "/" + name, bytes) && ReadFileBytes(dir + "/" + name + ".rgba", rgba));
    auto dib = Decode(bytes);
    ASSERT_NE(dib, nullptr);
    ASSERT_EQ(static_cast<size_t>(dib->GetWidth()) * dib->GetHeight() * 4, rgba.size());
    EXPECT_EQ(dib->GetFormat(), CA_DIB_Argb);   // these carry an alpha mask
    int bad = 0;
    const int w = dib->GetWidth();
    for (int i = 0; i < w * dib->GetHeight(); ++i) bad += Argb(*dib, i % w, i / w) != RgbaAt(rgba, w, i % w, i / w);
    EXPECT_EQ(bad, 0);
  }
}

TEST(BmpCodec, ReadsPaletteRleBitfieldAndCoreVariants) {
  const std::vector<uint32_t> pal = {0x000000, 0xFF0000, 0x00FF00, 0x0000FF};
  const Bytes fourBpp = {0x30, 0x10, 0, 0, 0x01, 0x20, 0, 0};   // 3x2 indices 0 1 2 / 3 0 1, bottom row first
  struct Case {
    const char* what;
    Bytes file;
    CA_DibFormat format;
    std::vector<std::pair<int, int>> at;
    std::vector<uint32_t> want;
  } cases[] = {
      {"4 bpp", MakeBmp(3, 2, 4, 0, pal, fourBpp), CA_DIB_8bpp, {{1, 0}, {2, 0}, {0, 1}}, {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu}},
      {"top-down", MakeBmp(3, -2, 4, 0, pal, fourBpp), CA_DIB_8bpp, {{0, 0}, {0, 1}}, {0xFF0000FFu, 0xFF000000u}},
      // run of 3 x index 1, end of line, absolute run of 3 (padded), end of bitmap
      {"RLE8", MakeBmp(3, 2, 8, 1, pal, {3, 1, 0, 0, 0, 3, 2, 3, 1, 0, 0, 1}), CA_DIB_8bpp,
       {{0, 1}, {2, 1}, {0, 0}, {2, 0}}, {0xFFFF0000u, 0xFFFF0000u, 0xFF00FF00u, 0xFFFF0000u}},
      // 4 pixels alternating 2,3; a delta that skips the rest (never written: index 0)
      {"RLE4", MakeBmp(4, 2, 4, 2, pal, {4, 0x23, 0, 0, 0, 2, 1, 0, 0, 1}), CA_DIB_8bpp,
       {{0, 1}, {1, 1}, {3, 0}}, {0xFF00FF00u, 0xFF0000FFu, 0xFF000000u}},
      {"5-6-5 fields", MakeBmp(2, 1, 16, 3, {}, {0x00, 0xF8, 0xEF, 0x7B}, {0xF800, 0x07E0, 0x001F}), CA_DIB_Rgb,
       {{0, 0}, {1, 0}}, {0xFFFF0000u, 0xFF7B7D7Bu}},
      // 32 bpp without bit fields: the fourth byte is unused, zero or not
      {"32 unused byte", MakeBmp(2, 1, 32, 0, {}, {0x10, 0x20, 0x30, 0, 0x40, 0x50, 0x60, 0x80}), CA_DIB_Rgb,
       {{0, 0}, {1, 0}}, {0xFF302010u, 0xFF605040u}},
      {"32 alpha field", MakeBmp(2, 1, 32, 3, {}, {0x10, 0x20, 0x30, 0, 0x40, 0x50, 0x60, 0x80}, {0xFF0000, 0xFF00, 0xFF}),
       CA_DIB_Rgb, {{1, 0}}, {0xFF605040u}},
      // an index past a short palette reads as black
      {"short palette", MakeBmp(2, 1, 8, 0, {0x123456}, {0, 7, 0, 0}), CA_DIB_8bpp, {{0, 0}, {1, 0}},
       {0xFF123456u, 0xFF000000u}},
      {"core header", MakeBmp(2, 1, 1, 0, {0x112233, 0xAABBCC}, {0x40, 0, 0, 0}, {}, true), CA_DIB_1bpp,
       {{0, 0}, {1, 0}}, {0xFF112233u, 0xFFAABBCCu}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    auto dib = Decode(c.file);
    ASSERT_NE(dib, nullptr);
    EXPECT_EQ(dib->GetFormat(), c.format);
    for (size_t i = 0; i < c.at.size(); ++i) EXPECT_EQ(Argb(*dib, c.at[i].first, c.at[i].second), c.want[i]) << i;
  }
}

TEST(BmpCodec, DamagedFilesAreRefused) {
  const std::vector<uint32_t> pal = {0, 0xFFFFFF};
  const Bytes good = MakeBmp(3, 2, 24, 0, {}, Bytes(24, 0x7F));
  ASSERT_NE(Decode(good), nullptr);
  // Rows are 9 bytes and 3 of padding; only the padding after the last row may be missing.
  for (size_t cut : {size_t{0}, size_t{14}, size_t{53}, good.size() - 4, good.size() - 3}) EXPECT_EQ(Decode(Head(good, cut)) != nullptr, cut >= good.size() - 3) << cut;
  Bytes badHeader = good, badOffset = good;
  badHeader[14] = 200;   // header longer than the file
  badOffset[10] = badOffset[11] = 0xFF;
  Bytes oddHeader = MakeBmp(3, 2, 24, 0, {}, Bytes(50, 0x7F));
  oddHeader[14] = 66;   // no header has 66 bytes
  oddHeader[10] = 14 + 66;
  for (const Bytes& bad : {MakeBmp(0, 2, 24, 0, {}, Bytes(24, 0)),             // no width
                           oddHeader,
                           MakeBmp(100000, 100000, 24, 0, {}, Bytes(24, 0)),   // absurd size
                           MakeBmp(3, 2, 7, 0, {}, Bytes(24, 0)),              // no such depth
                           MakeBmp(3, 2, 24, 4, {}, Bytes(24, 0)),             // embedded JPEG
                           MakeBmp(3, 2, 4, 1, pal, {3, 1, 0, 1}),             // RLE8 with 4 bpp
                           MakeBmp(8, 8, 8, 1, pal, {0, 5, 1, 2}),             // absolute run past the data
                           MakeBmp(8, 8, 8, 1, pal, {2, 1, 2, 1}),             // no end-of-bitmap mark
                           badHeader, badOffset}) {
    EXPECT_EQ(Decode(bad), nullptr);
  }
  // A 54-byte header that asks for four bit masks ends before the alpha mask, at the end of the
  // file: the reader must not look past it (found by fuzzing).
  Bytes shortMasks = {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 54, 0, 0, 0, 8, 0, 0, 0, 8, 0, 0, 0, 1, 0, 32, 0, 6};
  shortMasks.resize(69, 0);
  EXPECT_EQ(Decode(shortMasks), nullptr);
}

TEST(BmpCodec, PixelOffsetsThatDisagreeWithThePalette) {
  const std::vector<uint32_t> pal = {0xFF0000, 0x00FF00, 0x0000FF, 0xFFFFFF};
  // An offset that points into the stated palette: the pixels follow the palette.
  Bytes inside = MakeBmp(4, 1, 8, 0, pal, {3, 2, 1, 0});
  inside[10] = 54;
  auto dib = Decode(inside);
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(Argb(*dib, 0, 0), 0xFFFFFFFFu);
  EXPECT_EQ(Argb(*dib, 3, 0), 0xFFFF0000u);
  // A core header states no count: an offset inside the full 256-entry table ends it early.
  dib = Decode(MakeBmp(4, 1, 8, 0, pal, {3, 2, 1, 0}, {}, true));
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(dib->GetPaletteSize(), 4);
  EXPECT_EQ(Argb(*dib, 1, 0), 0xFF0000FFu);
}

// bmpsuite: every good file, and the questionable ones that have a plain reading, against the
// reference pictures of the suite (drawn at 8 bits, so a channel may be off by one).
TEST(BmpCodec, SuiteFilesMatchTheReferencePictures) {
  const std::string dir = TestDataDir() + "/imagecorpus/files/pillow/bmp/";
  if (ListFiles(dir + "g", ".bmp").empty()) GTEST_SKIP() << "no bmpsuite at " << dir;
  // A good file's picture has its own name, or that of the plain file it re-encodes.
  auto pictureOf = [&](const std::string& stem) -> std::string {
    Bytes probe;
    if (ReadFileBytes(dir + "html/" + stem + ".png", probe)) return stem;
    for (const char* f : {"pal8nonsquare", "rgb16-565", "rgb16", "rgb24", "rgb32", "pal1", "pal4", "pal8"}) {
      if (stem.rfind(f, 0) == 0) return std::string(f) == "rgb32" ? "rgb24" : std::string(f) == "pal8nonsquare" ? "pal8nonsquare-e" : f;
    }
    return stem;
  };
  std::vector<std::pair<std::string, std::string>> cases;
  for (const std::string& name : ListFiles(dir + "g", ".bmp")) cases.emplace_back("g/" + name, pictureOf(name.substr(0, name.size() - 4)));
  for (const char* name : {"pal8offs", "pal8os2sp", "pal8os2v2", "pal8os2v2-16", "pal8oversizepal"}) cases.emplace_back(std::string("q/") + name + ".bmp", "pal8");
  for (const char* name : {"rgb32fakealpha", "rgb32bf-xbgr", "rgb32h52", "rgb24largepal", "rgb24prof", "rgb24lprof"}) cases.emplace_back(std::string("q/") + name + ".bmp", "rgb24");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first + " against " + c.second);
    Bytes bytes, refBytes;
    ASSERT_TRUE(ReadFileBytes(dir + c.first, bytes) && ReadFileBytes(dir + "html/" + c.second + ".png", refBytes));
    auto dib = Decode(bytes), ref = Decode(refBytes);
    ASSERT_TRUE(dib && ref);
    ASSERT_EQ(dib->GetWidth(), ref->GetWidth());
    ASSERT_EQ(dib->GetHeight(), ref->GetHeight());
    EXPECT_NE(dib->GetFormat(), CA_DIB_Argb);
    int worst = 0;
    for (int y = 0; y < dib->GetHeight(); ++y) {
      for (int x = 0; x < dib->GetWidth(); ++x) {
        const uint32_t a = Argb(*dib, x, y), b = Argb(*ref, x, y);
        for (int shift = 0; shift < 32; shift += 8) worst = std::max(worst, std::abs(static_cast<int>((a >> shift) & 0xFF) - static_cast<int>((b >> shift) & 0xFF)));
      }
    }
    EXPECT_LE(worst, 1);
  }
  EXPECT_GE(cases.size(), 30u);
}

TEST(BmpCodec, WriterStoresResolutionAsPixelsPerMetre) {
  auto dib = Pattern(4, 4, CA_DIB_Rgb);
  const int x = 254, y = 127;
  const Bytes bytes = Encode(*dib, CA_IMAGE_Bmp, nullptr, &x, &y);
  ASSERT_GE(bytes.size(), 54u);
  auto le32 = [&](size_t i) { return bytes[i] | (bytes[i + 1] << 8) | (bytes[i + 2] << 16) | (uint32_t{bytes[i + 3]} << 24); };
  EXPECT_EQ(le32(38), 10000u);
  EXPECT_EQ(le32(42), 5000u);
  EXPECT_EQ(le32(2), bytes.size());
}

}  // namespace
