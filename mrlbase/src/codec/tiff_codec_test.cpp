#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

// A scratch file for libtiff's own reader and writer, removed afterwards.
class TempPath {
 public:
  TempPath() {
    char name[] = "/tmp/tiff_codec_test_XXXXXX";
    const int fd = mkstemp(name);
    if (fd >= 0) close(fd);
    path_ = name;
  }
  ~TempPath() { std::remove(path_.c_str()); }
  const char* c_str() const { return path_.c_str(); }

 private:
  std::string path_;
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

// libtiff on its own: one directory per page, samples from Sample().
Bytes WriteTiff(const std::vector<Page>& pages) {
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
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    if (pg.samples == 4) {
      const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
      TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    const size_t pixelBytes = pg.bits / 8 * pg.samples;
    auto fill = [&](uint8_t* buf, int x0, int y0, int w, int h, size_t rowBytes) {
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
          for (int s = 0; s < pg.samples; ++s) {
            const uint16_t v = Sample(x0 + x, y0 + y, s, static_cast<int>(p), pg.bits);
            uint8_t* at = buf + y * rowBytes + x * pixelBytes + s * (pg.bits / 8);
            if (pg.bits == 16) {
              std::memcpy(at, &v, 2);
            } else if (pg.bits == 8) {
              *at = static_cast<uint8_t>(v);
            } else if (v) {
              buf[y * rowBytes + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
            }
          }
        }
      }
    };
    if (pg.tiled) {
      TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16);
      TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
      std::vector<uint8_t> tile(TIFFTileSize(tif));
      for (int ty = 0; ty < pg.h; ty += 16) {
        for (int tx = 0; tx < pg.w; tx += 16) {
          std::fill(tile.begin(), tile.end(), 0);
          fill(tile.data(), tx, ty, std::min(16, pg.w - tx), std::min(16, pg.h - ty), 16 * pixelBytes);
          TIFFWriteTile(tif, tile.data(), tx, ty, 0, 0);
        }
      }
    } else {
      std::vector<uint8_t> row(TIFFScanlineSize(tif));
      for (int y = 0; y < pg.h; ++y) {
        std::fill(row.begin(), row.end(), 0);
        fill(row.data(), 0, y, pg.w, 1, row.size());
        TIFFWriteScanline(tif, row.data(), y, 0);
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

TEST(TiffCodec, PagesOfAMultiPageFile) {
  const std::vector<Page> pages = {{23, 17, 8, 3, PHOTOMETRIC_RGB, false}, {9, 5, 8, 4, PHOTOMETRIC_RGB, false}};
  const Bytes file = WriteTiff(pages);
  auto first = Decode(file);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->GetFormat(), CA_DIB_Rgb);
  EXPECT_EQ(CountWrongRgb(*first, pages[0], 0), 0);
  auto second = Decode(file, 1);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->GetFormat(), CA_DIB_Argb);
  EXPECT_EQ(CountWrongRgb(*second, pages[1], 1), 0);
  EXPECT_EQ(Decode(file, 2), nullptr);
}

TEST(TiffCodec, SixteenBitTiledAndBilevelFiles) {
  const Page deep{19, 21, 16, 3, PHOTOMETRIC_RGB, false};   // through libtiff's RGBA reader
  auto dib = Decode(WriteTiff({deep}));
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(dib->GetFormat(), CA_DIB_Rgb);
  EXPECT_EQ(CountWrongRgb(*dib, deep, 0), 0);

  const Page tiled{40, 24, 8, 3, PHOTOMETRIC_RGB, true};
  dib = Decode(WriteTiff({tiled}));
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(CountWrongRgb(*dib, tiled, 0), 0);

  // Unassociated alpha must come back as stored, not premultiplied into the colour (libtiff's
  // RGBA reader premultiplies it), whether the pixels sit in tiles or in 16-bit samples.
  for (const Page& alpha : {Page{40, 24, 8, 4, PHOTOMETRIC_RGB, true}, Page{21, 7, 16, 4, PHOTOMETRIC_RGB, false},
                            Page{18, 17, 16, 4, PHOTOMETRIC_RGB, true}}) {
    dib = Decode(WriteTiff({alpha}));
    ASSERT_NE(dib, nullptr);
    EXPECT_EQ(dib->GetFormat(), CA_DIB_Argb);
    EXPECT_EQ(CountWrongRgb(*dib, alpha, 0), 0) << alpha.w << "x" << alpha.h << " bits " << alpha.bits;
  }
  // A tiled file cut anywhere is refused, without reading past what is there.
  const Bytes tiledFile = WriteTiff({Page{40, 24, 8, 4, PHOTOMETRIC_RGB, true}});
  for (size_t cut = 8; cut < tiledFile.size(); cut += 11) {
    EXPECT_EQ(Decode(Bytes(tiledFile.begin(), tiledFile.begin() + cut)), nullptr) << "cut at " << cut;
  }

  // Min-is-white bilevel: a set bit is black.
  dib = Decode(WriteTiff({{13, 3, 1, 1, PHOTOMETRIC_MINISWHITE, false}}));
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(dib->GetFormat(), CA_DIB_1bpp);
  EXPECT_EQ(Argb(*dib, 1, 0), 0xFF000000u);
  EXPECT_EQ(Argb(*dib, 0, 0), 0xFFFFFFFFu);

  // Min-is-white gray comes out as levels on the usual ramp.
  dib = Decode(WriteTiff({{5, 5, 8, 1, PHOTOMETRIC_MINISWHITE, false}}));
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
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
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
