#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "codec/codec_test_support.h"

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

// libtiff on its own: one deflated directory per page, samples from Sample().
Bytes WriteTiff(const std::vector<Page>& pages) {
  TempPath path;
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  for (size_t p = 0; p < pages.size(); ++p) {
    const Page& pg = pages[p];
    for (const auto& tag : {std::pair<uint32_t, int>{TIFFTAG_IMAGEWIDTH, pg.w}, {TIFFTAG_IMAGELENGTH, pg.h}, {TIFFTAG_BITSPERSAMPLE, pg.bits},
                            {TIFFTAG_SAMPLESPERPIXEL, pg.samples}, {TIFFTAG_PHOTOMETRIC, pg.photometric},
                            {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG}, {TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE}}) {
      TIFFSetField(tif, tag.first, tag.second);
    }
    const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    if (pg.samples == 4) TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
    const int block = pg.tiled ? 16 : pg.w, rows = pg.tiled ? 16 : 1, sampleBytes = pg.bits / 8;
    if (pg.tiled) {
      TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16);
      TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
    }
    std::vector<uint8_t> buf(pg.tiled ? TIFFTileSize(tif) : TIFFScanlineSize(tif));
    const size_t rowBytes = buf.size() / rows;
    for (int y0 = 0; y0 < pg.h; y0 += rows) {
      for (int x0 = 0; x0 < pg.w; x0 += block) {
        std::fill(buf.begin(), buf.end(), 0);
        for (int y = 0; y < std::min(rows, pg.h - y0); ++y) {
          for (int x = 0; x < std::min(block, pg.w - x0); ++x) {
            for (int s = 0; s < pg.samples; ++s) {
              const uint16_t v = Sample(x0 + x, y0 + y, s, static_cast<int>(p), pg.bits);
              if (pg.bits == 1) {
                if (v) buf[y * rowBytes + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
              } else {
                std::memcpy(&buf[y * rowBytes + (x * pg.samples + s) * sampleBytes], &v, sampleBytes);   // little-endian host
              }
            }
          }
        }
        if (pg.tiled) {
          TIFFWriteTile(tif, buf.data(), x0, y0, 0, 0);
        } else {
          TIFFWriteScanline(tif, buf.data(), y0, 0);
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
                        {19, 21, 16, 3, PHOTOMETRIC_RGB, false}, {40, 24, 8, 3, PHOTOMETRIC_RGB, true},
                        {40, 24, 8, 4, PHOTOMETRIC_RGB, true}, {21, 7, 16, 4, PHOTOMETRIC_RGB, false},
                        {18, 17, 16, 4, PHOTOMETRIC_RGB, true}};
  for (const Page& page : pages) {
    SCOPED_TRACE(testing::Message() << page.w << "x" << page.h << " bits " << page.bits << " tiled " << page.tiled);
    auto dib = Decode(WriteTiff({page}));
    ASSERT_NE(dib, nullptr);
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
  const Bytes tiled = WriteTiff({pages[4]});
  for (size_t cut = 8; cut < tiled.size(); cut += 11) EXPECT_EQ(Decode(Head(tiled, cut)), nullptr) << "cut at " << cut;
}

TEST(TiffCodec, MinIsWhiteBilevelAndGray) {
  auto dib = Decode(WriteTiff({{13, 3, 1, 1, PHOTOMETRIC_MINISWHITE, false}}));
  ASSERT_NE(dib, nullptr);
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
  EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_XRESOLUTION, &xr));
  EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_YRESOLUTION, &yr));
  TIFFGetField(tif, TIFFTAG_RESOLUTIONUNIT, &unit);
  TIFFGetField(tif, TIFFTAG_COMPRESSION, &compression);
  TIFFClose(tif);
  EXPECT_EQ(xr, 300.0f);
  EXPECT_EQ(yr, 600.0f);
  EXPECT_EQ(unit, RESUNIT_INCH);
  EXPECT_EQ(compression, COMPRESSION_CCITTFAX4);
}

}  // namespace
