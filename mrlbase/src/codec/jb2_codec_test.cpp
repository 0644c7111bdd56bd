#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstdio>
#include <unistd.h>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

constexpr int kW = 37, kH = 19;

bool Ink(int x, int y) { return (x / 3 + y / 2) % 3 == 0 || x == y; }

// The page as T.6 (MMR) data, made by libtiff's G4 coder: JBIG2 generic regions may carry it.
Bytes MmrData() {
  char name[] = "/tmp/jb2_codec_test_XXXXXX";
  close(mkstemp(name));
  TIFF* tif = TIFFOpen(name, "w");
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kW);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kH);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);   // a set bit is black, as in JBIG2
  TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, kH);
  for (int y = 0; y < kH; ++y) {
    uint8_t row[8] = {};
    for (int x = 0; x < kW; ++x) {
      if (Ink(x, y)) row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
    }
    TIFFWriteScanline(tif, row, y, 0);
  }
  TIFFClose(tif);
  tif = TIFFOpen(name, "r");
  Bytes data(TIFFRawStripSize(tif, 0));
  TIFFReadRawStrip(tif, 0, data.data(), static_cast<tmsize_t>(data.size()));
  TIFFClose(tif);
  std::remove(name);
  return data;
}

void Be32(Bytes& v, uint32_t x) {
  for (int s = 24; s >= 0; s -= 8) v.push_back(static_cast<uint8_t>(x >> s));
}

void Segment(Bytes& v, uint32_t number, uint8_t type, uint8_t page, const Bytes& data) {
  Be32(v, number);
  v.push_back(type);   // page association in one byte
  v.push_back(0);      // no referred-to segments
  v.push_back(page);
  Be32(v, static_cast<uint32_t>(data.size()));
  v.insert(v.end(), data.begin(), data.end());
}

// A sequential one-page file: page information, an immediate generic region in MMR, end of
// page, end of file.
Bytes MakeJb2() {
  Bytes v = {0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n', 0x01};
  Be32(v, 1);
  Bytes info, region;
  for (uint32_t x : {uint32_t{kW}, uint32_t{kH}, 0u, 0u}) {
    Be32(info, x);
    Be32(region, x);
  }
  info.insert(info.end(), {0, 0, 0});
  Segment(v, 0, 48, 1, info);
  region.insert(region.end(), {0, 1});   // combination OR, MMR
  const Bytes mmr = MmrData();
  region.insert(region.end(), mmr.begin(), mmr.end());
  Segment(v, 1, 38, 1, region);
  Segment(v, 2, 49, 1, {});
  Segment(v, 3, 51, 0, {});
  return v;
}

TEST(Jb2Codec, DecodesAPageToBilevelWithBlackInkAndRefusesCuts) {
  const Bytes file = MakeJb2();
  auto dib = Decode(file);
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(dib->GetFormat(), CA_DIB_1bpp);
  ASSERT_EQ(dib->GetWidth(), kW);
  ASSERT_EQ(dib->GetHeight(), kH);
  int bad = 0;
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) bad += Argb(*dib, x, y) != (Ink(x, y) ? 0xFF000000u : 0xFFFFFFFFu);
  }
  EXPECT_EQ(bad, 0);
  EXPECT_EQ(Decode(file, 1), nullptr);   // one page only
  // Cut right after the end-of-page segment the file is whole but for its optional end-of-file
  // segment, and the page is there; every other cut lands inside a segment.
  const size_t pageComplete = file.size() - 11;
  for (size_t cut = 9; cut < file.size(); ++cut) {
    EXPECT_EQ(Decode(Head(file, cut)) != nullptr, cut == pageComplete) << cut;
  }
}

}  // namespace
