#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <tuple>
#include <unistd.h>

#include "codec/codec_test_support.h"
#include "codec/image_orientation.h"

using namespace codec_test;

namespace {

// A scratch file for libtiff's own reader and writer, removed afterwards.
struct TempPath {
  char name[32] = "/tmp/tiff_codec_test_XXXXXX";
  TempPath() { close(mkstemp(name)); }
  ~TempPath() { std::remove(name); }
  const char* c_str() const { return name; }
};

struct Page {
  int w, h;
  uint16_t bits, samples, photometric;
  bool tiled;
};

uint16_t Sample(int x, int y, int s, int page, uint16_t bits) {
  const uint32_t v = static_cast<uint32_t>(x * 37 + y * 11 + s * 71 + page * 50);
  // 16-bit samples get an unrelated low byte: narrowing keeps the high byte only.
  return bits == 16 ? static_cast<uint16_t>(((v & 0xFF) << 8) | ((v * 7) & 0xFF))
                    : bits == 1 ? (x + y) % 2 : static_cast<uint16_t>(v & 0xFF);
}

// Samples packed from the high bit, `bits` each.
Bytes Pack(const std::vector<uint32_t>& samples, unsigned bits, size_t perRow) {
  const size_t rowBytes = (perRow * bits + 7) / 8;
  Bytes out(samples.size() / perRow * rowBytes, 0);
  for (size_t i = 0; i < samples.size(); ++i) {
    const size_t row = i / perRow, first = (i % perRow) * bits;
    for (unsigned b = 0; b < bits; ++b) {
      if (samples[i] >> (bits - 1 - b) & 1) out[row * rowBytes + (first + b) / 8] |= static_cast<uint8_t>(0x80 >> ((first + b) % 8));
    }
  }
  return out;
}

// 16-bit samples in the machine's order (a little-endian host).
Bytes Deep(const std::vector<uint32_t>& samples) {
  Bytes out;
  for (uint32_t s : samples) out.insert(out.end(), {static_cast<uint8_t>(s), static_cast<uint8_t>(s >> 8)});
  return out;
}

// libtiff on its own: one directory per page of packed rows (16-bit samples in the machine's
// order), with `tags` set on top of the layout; tiled pages go in 16 x 16 tiles.
Bytes WriteTiff(const std::vector<Page>& pages, const std::vector<Bytes>& rows, const std::function<void(TIFF*)>& tags = {}) {
  TempPath path;
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  for (size_t p = 0; p < pages.size(); ++p) {
    const Page& pg = pages[p];
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, pg.w);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, pg.h);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, pg.bits);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, pg.samples);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, pg.photometric);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    if (pg.photometric == PHOTOMETRIC_RGB && pg.samples == 4) TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
    if (tags) tags(tif);
    const size_t rowBytes = (static_cast<size_t>(pg.w) * pg.bits * pg.samples + 7) / 8;
    if (!pg.tiled) {
      Bytes row(rowBytes);
      for (int y = 0; y < pg.h; ++y) {
        std::memcpy(row.data(), &rows[p][y * rowBytes], rowBytes);   // libtiff may swap a row in place
        TIFFWriteScanline(tif, row.data(), static_cast<uint32_t>(y), 0);
      }
    } else {
      TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16);
      TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
      const size_t pixel = pg.bits * pg.samples / 8;
      Bytes tile(TIFFTileSize(tif));
      for (int y0 = 0; y0 < pg.h; y0 += 16) {
        for (int x0 = 0; x0 < pg.w; x0 += 16) {
          std::fill(tile.begin(), tile.end(), 0);
          for (int y = 0; y < std::min(16, pg.h - y0); ++y) {
            std::memcpy(&tile[y * 16 * pixel], &rows[p][(y0 + y) * rowBytes + x0 * pixel], std::min(16, pg.w - x0) * pixel);
          }
          TIFFWriteTile(tif, tile.data(), x0, y0, 0, 0);
        }
      }
    }
    TIFFWriteDirectory(tif);
  }
  TIFFClose(tif);
  Bytes bytes;
  ReadFileBytes(path.c_str(), bytes);
  return bytes;
}

Bytes WriteRows(int w, int h, uint16_t bits, uint16_t samples, uint16_t photometric, const Bytes& pixels,
                const std::function<void(TIFF*)>& tags = {}) {
  return WriteTiff({{w, h, bits, samples, photometric, false}}, {pixels}, tags);
}

// Deflated pages of samples from Sample().
Bytes WriteTiff(const std::vector<Page>& pages) {
  std::vector<Bytes> rows;
  for (size_t p = 0; p < pages.size(); ++p) {
    const Page& pg = pages[p];
    std::vector<uint32_t> v;
    for (int y = 0; y < pg.h; ++y) {
      for (int x = 0; x < pg.w; ++x) {
        for (int s = 0; s < pg.samples; ++s) v.push_back(Sample(x, y, s, static_cast<int>(p), pg.bits));
      }
    }
    rows.push_back(pg.bits == 16 ? Deep(v) : Pack(v, pg.bits, static_cast<size_t>(pg.w) * pg.samples));
  }
  return WriteTiff(pages, rows, [](TIFF* t) { TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE); });
}

uint8_t To8(uint16_t v, uint16_t bits) { return bits == 16 ? static_cast<uint8_t>(v >> 8) : static_cast<uint8_t>(v); }

int CountWrongRgb(const CCA_Dib& dib, const Page& pg, int page) {
  int bad = 0;
  for (int y = 0; y < pg.h; ++y) {
    for (int x = 0; x < pg.w; ++x) {
      uint32_t want = 0xFF000000u;
      for (int s = 0; s < 3; ++s) want |= uint32_t{To8(Sample(x, y, s, page, pg.bits), pg.bits)} << (16 - 8 * s);
      if (pg.samples == 4) want = (want & 0xFFFFFFu) | uint32_t{To8(Sample(x, y, 3, page, pg.bits), pg.bits)} << 24;
      bad += Argb(dib, x, y) != want;
    }
  }
  return bad;
}

TEST(TiffCodec, RgbPagesMatchTheirSamples) {
  // Unassociated alpha must come back as stored, not premultiplied into the colour (libtiff's
  // RGBA reader premultiplies it), whether the pixels sit in strips, tiles or 16-bit samples.
  const Page pages[] = {{23, 17, 8, 3, PHOTOMETRIC_RGB, false}, {9, 5, 8, 4, PHOTOMETRIC_RGB, false},
                        {40, 24, 8, 4, PHOTOMETRIC_RGB, true}, {18, 17, 16, 4, PHOTOMETRIC_RGB, true}};
  for (const Page& page : pages) {
    SCOPED_TRACE(testing::Message() << page.w << "x" << page.h << " bits " << page.bits << " tiled " << page.tiled);
    const Bytes file = WriteTiff({page});
    auto dib = Decode(file);
    ASSERT_NE(dib, nullptr);
    EXPECT_TRUE(SameBytesOverReusedMemory(file));
    EXPECT_EQ(dib->GetFormat(), page.samples == 4 ? CA_DIB_Argb : CA_DIB_Rgb);
    EXPECT_EQ(CountWrongRgb(*dib, page, 0), 0);
  }
  // Pages of one file by frame number; the page salt differs so a wrong page shows.
  const Bytes file = WriteTiff({pages[0], pages[1]});
  auto second = Decode(file, 1);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(CountWrongRgb(*second, pages[1], 1), 0);
  EXPECT_EQ(Decode(file, 2), nullptr);
  // A tiled file cut anywhere is refused, without reading past what is there.
  const Bytes tiled = WriteTiff({pages[2]});
  for (size_t cut = 8; cut < tiled.size(); cut += 23) EXPECT_EQ(Decode(Head(tiled, cut)), nullptr) << "cut at " << cut;
}

TEST(TiffCodec, MinIsWhiteBilevelAndGray) {
  const Bytes bilevel = WriteTiff({{13, 3, 1, 1, PHOTOMETRIC_MINISWHITE, false}});
  auto dib = Decode(bilevel);
  ASSERT_NE(dib, nullptr);
  EXPECT_TRUE(SameBytesOverReusedMemory(bilevel));
  EXPECT_EQ(dib->GetFormat(), CA_DIB_1bpp);
  EXPECT_EQ(Argb(*dib, 1, 0), 0xFF000000u);   // a set bit is black
  EXPECT_EQ(Argb(*dib, 0, 0), 0xFFFFFFFFu);
  dib = Decode(WriteTiff({{5, 5, 8, 1, PHOTOMETRIC_MINISWHITE, false}}));   // levels on the usual ramp
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(dib->GetFormat(), CA_DIB_8bpp);
  EXPECT_EQ(Argb(*dib, 3, 2), 0xFF000000u | (255u - Sample(3, 2, 0, 0, 8)) * 0x010101u);
}

TEST(TiffCodec, EncoderWritesResolutionAndCompactBilevel) {
  auto dib = Pattern(64, 64, CA_DIB_1bpp, true);
  const int x = 300, y = 600;
  const Bytes bytes = Encode(*dib, CA_IMAGE_Tif, nullptr, &x, &y);
  ASSERT_FALSE(bytes.empty());
  TempPath path;
  std::ofstream(path.c_str(), std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  TIFF* tif = TIFFOpen(path.c_str(), "r");
  ASSERT_NE(tif, nullptr);
  float xr = 0, yr = 0;
  uint16_t unit = 0, compression = 0;
  TIFFGetField(tif, TIFFTAG_XRESOLUTION, &xr);
  TIFFGetField(tif, TIFFTAG_YRESOLUTION, &yr);
  TIFFGetField(tif, TIFFTAG_RESOLUTIONUNIT, &unit);
  TIFFGetField(tif, TIFFTAG_COMPRESSION, &compression);
  TIFFClose(tif);
  EXPECT_EQ(std::make_tuple(xr, yr, unit, compression), std::make_tuple(300.0f, 600.0f, uint16_t{RESUNIT_INCH}, uint16_t{COMPRESSION_CCITTFAX4}));
}

TEST(TiffCodec, OrientationTagTurnsThePicture) {
  // One layout of each reader: bytes and bits row by row, 4-bit gray through libtiff's RGBA reader.
  const int w = 13, h = 6;
  const struct {
    uint16_t bits, samples, photometric;
  } layouts[] = {{8, 3, PHOTOMETRIC_RGB}, {1, 1, PHOTOMETRIC_MINISBLACK}, {4, 1, PHOTOMETRIC_MINISBLACK}};
  for (const auto& l : layouts) {
    std::vector<uint32_t> samples(static_cast<size_t>(w) * h * l.samples);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<uint32_t>(i * 7 + i / 5) & ((1u << l.bits) - 1);
    const Bytes pixels = Pack(samples, l.bits, static_cast<size_t>(w) * l.samples);
    auto stored = Decode(WriteRows(w, h, l.bits, l.samples, l.photometric, pixels));
    ASSERT_NE(stored, nullptr);
    for (uint16_t o = 1; o <= 8; ++o) {
      SCOPED_TRACE(testing::Message() << "bits " << l.bits << " orientation " << o);
      auto dib = Decode(WriteRows(w, h, l.bits, l.samples, l.photometric, pixels, [o](TIFF* t) { TIFFSetField(t, TIFFTAG_ORIENTATION, o); }));
      ASSERT_NE(dib, nullptr);
      EXPECT_EQ(CountDifferences(*dib, *mrl_codec::ApplyOrientation(std::unique_ptr<CCA_Dib>(stored->Clone()), o)), 0);
    }
  }
}

TEST(TiffCodec, LabShowsItsWhiteAsWhite) {
  // L*, a*, b* of white, black, mid gray and a strong red, in the three encodings.
  const double lab[4][3] = {{100, 0, 0}, {0, 0, 0}, {50, 0, 0}, {50, 80, 0}};
  auto encode = [&](uint16_t photometric, uint16_t bits) {
    std::vector<uint32_t> v;
    const double full = bits == 16 ? 65535 : 255, unit = bits == 16 ? 256 : 1;
    const uint32_t mask = (1u << bits) - 1, middle = photometric == PHOTOMETRIC_ICCLAB ? 1u << (bits - 1) : 0;
    for (const auto& p : lab) {
      v.push_back(static_cast<uint32_t>(p[0] * full / 100 + 0.5));
      for (int c = 1; c < 3; ++c) v.push_back((static_cast<uint32_t>(static_cast<int32_t>(p[c] * unit)) + middle) & mask);
    }
    return bits == 8 ? Pack(v, 8, v.size()) : Deep(v);
  };
  const float d65[2] = {0.3127f, 0.3290f}, tungsten[2] = {0.4476f, 0.4074f};
  const struct {
    uint16_t photometric, bits;
    const float* white;
  } cases[] = {{PHOTOMETRIC_CIELAB, 8, nullptr}, {PHOTOMETRIC_CIELAB, 8, d65}, {PHOTOMETRIC_ICCLAB, 8, nullptr},
               {PHOTOMETRIC_ICCLAB, 16, tungsten}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "photometric " << c.photometric << " bits " << c.bits << " white " << (c.white ? c.white[0] : 0));
    auto dib = Decode(WriteRows(4, 1, c.bits, 3, c.photometric, encode(c.photometric, c.bits), [&c](TIFF* t) {
      if (c.white) TIFFSetField(t, TIFFTAG_WHITEPOINT, c.white);
    }));
    ASSERT_NE(dib, nullptr);
    EXPECT_EQ(dib->GetFormat(), CA_DIB_Rgb);
    EXPECT_EQ(Argb(*dib, 0, 0), 0xFFFFFFFFu);
    EXPECT_EQ(Argb(*dib, 1, 0), 0xFF000000u);
    const uint32_t gray = Argb(*dib, 2, 0), red = Argb(*dib, 3, 0);
    for (int s = 0; s < 24; s += 8) EXPECT_NEAR(static_cast<int>((gray >> s) & 0xFF), 119, 1) << std::hex << gray;   // sRGB of L* 50
    EXPECT_GT((red >> 16) & 0xFF, 200u) << std::hex << red;
    EXPECT_LT((red >> 8) & 0xFF, 40u) << std::hex << red;
  }
}

TEST(TiffCodec, DeepGrayAndCmykNarrowLikeTheirSiblings) {
  // 12-bit gray keeps its high eight bits, as 16-bit gray does.
  std::vector<uint32_t> gray = {0, 0xFFF, 0x80F, 0x7F0};
  auto dib = Decode(WriteRows(4, 1, 12, 1, PHOTOMETRIC_MINISBLACK, Pack(gray, 12, 4)));
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(dib->GetFormat(), CA_DIB_8bpp);
  for (int x = 0; x < 4; ++x) EXPECT_EQ(Argb(*dib, x, 0), 0xFF000000u | (gray[x] >> 4) * 0x010101u) << x;

  // 16-bit CMYK gives what the same ink at 8 bits gives; cyan, red, black, none and a mix.
  const uint8_t ink[5][4] = {{255, 0, 0, 0}, {0, 255, 255, 0}, {0, 0, 0, 255}, {0, 0, 0, 0}, {40, 90, 160, 30}};
  const Bytes eight(&ink[0][0], &ink[0][0] + 20);
  std::vector<uint32_t> wide;
  for (uint8_t v : eight) wide.push_back(v * 257u);
  const Bytes sixteen = Deep(wide);
  auto narrow = Decode(WriteRows(5, 1, 8, 4, PHOTOMETRIC_SEPARATED, eight));
  auto deep = Decode(WriteRows(5, 1, 16, 4, PHOTOMETRIC_SEPARATED, sixteen));
  ASSERT_NE(narrow, nullptr);
  ASSERT_NE(deep, nullptr);
  EXPECT_EQ(deep->GetFormat(), CA_DIB_Rgb);
  EXPECT_EQ(CountDifferences(*narrow, *deep), 0);
  const uint32_t want[4] = {0xFF00FFFFu, 0xFFFF0000u, 0xFF000000u, 0xFFFFFFFFu};
  for (int x = 0; x < 4; ++x) EXPECT_EQ(Argb(*deep, x, 0), want[x]) << x;
}

TEST(TiffCodec, DamagedFaxAndJpegPagesAreRefused) {
  auto page = Pattern(200, 120, CA_DIB_1bpp, true);
  const Bytes good = Encode(*page, CA_IMAGE_Tif);
  ASSERT_FALSE(good.empty());
  EXPECT_EQ(CountDifferences(*Decode(good), *page), 0);
  // The code words of the page start right after the header; libtiff writes the directory last.
  uint32_t directory;
  std::memcpy(&directory, &good[4], 4);   // little-endian host
  ASSERT_GT(directory, 64u);
  for (uint32_t at : {directory / 2, directory - 24}) {
    Bytes bad = good;
    for (uint32_t i = at; i < at + 8; ++i) bad[i] = 0x00;   // no code word is made of zeros but EOL
    EXPECT_EQ(Decode(bad), nullptr) << "zeros at " << at;
  }
  // JPEG inside TIFF: a marker in the middle of the entropy data makes libjpeg pad the rest.
  Bytes gray(64 * 64);
  for (size_t i = 0; i < gray.size(); ++i) gray[i] = static_cast<uint8_t>((i % 64) * 3 + (i / 64) * 2);
  const Bytes jpeg = WriteRows(64, 64, 8, 1, PHOTOMETRIC_MINISBLACK, gray, [](TIFF* t) {
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 64);
  });
  ASSERT_NE(Decode(jpeg), nullptr);
  size_t scan = 0;
  for (size_t i = 8; i + 1 < jpeg.size() && !scan; ++i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA) scan = i + 2 + ((jpeg[i + 2] << 8) | jpeg[i + 3]);
  }
  ASSERT_GT(scan, 0u);
  Bytes padded = jpeg;
  padded[scan + 40] = 0xFF;
  padded[scan + 41] = 0xD9;
  EXPECT_EQ(Decode(padded), nullptr);

  const std::string dir = TestDataDir() + "/imagecorpus/files/pillow/";
  for (const char* name : {"crash-0da013a13571cc8eb457a39fee8db18f8a3c7127.tif", "crash-74d2a78403a5a59db1fb0a2b8735ac068a75f6e3.tif"}) {
    Bytes file;
    if (!ReadFileBytes(dir + name, file)) GTEST_SKIP() << "image corpus absent";
    EXPECT_EQ(Decode(file), nullptr) << name;
  }
}

TEST(TiffCodec, TilesBeyondTheBudgetAreRefusedBeforeAllocation) {
  // A 16 x 16 gray page in one tile of 65536 x 32768 bytes (2 GiB), written by hand since no
  // writer would make it.
  Bytes file = {'I', 'I', 42, 0, 8, 0, 0, 0};
  const std::pair<uint16_t, uint32_t> tags[] = {{TIFFTAG_IMAGEWIDTH, 16}, {TIFFTAG_IMAGELENGTH, 16}, {TIFFTAG_BITSPERSAMPLE, 8},
                                                {TIFFTAG_COMPRESSION, COMPRESSION_NONE}, {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK},
                                                {TIFFTAG_SAMPLESPERPIXEL, 1}, {TIFFTAG_TILEWIDTH, 65536}, {TIFFTAG_TILELENGTH, 32768},
                                                {TIFFTAG_TILEOFFSETS, 0}, {TIFFTAG_TILEBYTECOUNTS, 256}};
  const uint32_t data = 8 + 2 + 12 * 10 + 4;
  auto put = [&file](uint32_t v, int n) {
    for (int i = 0; i < n; ++i) file.push_back(static_cast<uint8_t>(v >> (8 * i)));
  };
  put(10, 2);
  for (const auto& t : tags) {
    put(t.first, 2);
    put(TIFF_LONG, 2);
    put(1, 4);
    put(t.first == TIFFTAG_TILEOFFSETS ? data : t.second, 4);
  }
  put(0, 4);
  file.resize(data + 256, 0x80);
  const int64_t before = PeakVirtualBytes();
  EXPECT_EQ(Decode(file), nullptr);
  if (before < 0) GTEST_SKIP() << "no /proc to read the peak from";
  EXPECT_LT(PeakVirtualBytes() - before, int64_t{256} << 20);
}

}  // namespace
