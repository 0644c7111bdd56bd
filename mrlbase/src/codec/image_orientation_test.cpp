#include "codec/image_orientation.h"

#include <gtest/gtest.h>

#include "codec/codec_test_support.h"

using namespace codec_test;
using mrl_codec::ApplyOrientation;
using mrl_codec::ExifOrientation;

namespace {

// Where each orientation shows the stored picture, in the words of the Exif definition: the
// display corner of the first stored pixel, and the display steps that follow one stored column
// to the right and one stored row down.
struct Shown {
  int corner;   // 0 top left, 1 top right, 2 bottom right, 3 bottom left
  int alongRow[2], downColumn[2];
};
constexpr Shown kShown[9] = {{},
                             {0, {1, 0}, {0, 1}},  {1, {-1, 0}, {0, 1}}, {2, {-1, 0}, {0, -1}}, {3, {1, 0}, {0, -1}},
                             {0, {0, 1}, {1, 0}},  {1, {0, 1}, {-1, 0}}, {2, {0, -1}, {-1, 0}}, {3, {0, -1}, {1, 0}}};

TEST(ImageOrientation, EveryValueShowsTheStoredPixelsWhereExifPutsThem) {
  // 11 columns keep a 1 bpp row from ending on a byte; every layout keeps its own pixel size.
  for (CA_DibFormat format : {CA_DIB_1bpp, CA_DIB_8bpp, CA_DIB_Rgb, CA_DIB_Rgb32, CA_DIB_Argb}) {
    const int w = 11, h = 4;
    for (int o = 1; o <= 8; ++o) {
      SCOPED_TRACE(testing::Message() << "format " << format << " orientation " << o);
      auto stored = Pattern(w, h, format);
      ASSERT_NE(stored, nullptr);
      const std::unique_ptr<CCA_Dib> copy(stored->Clone());
      auto shown = ApplyOrientation(std::move(stored), o);
      ASSERT_NE(shown, nullptr);
      const bool swapped = o >= 5;
      ASSERT_EQ(shown->GetWidth(), swapped ? h : w);
      ASSERT_EQ(shown->GetHeight(), swapped ? w : h);
      EXPECT_EQ(shown->GetFormat(), format);
      const Shown& s = kShown[o];
      const int x0 = s.corner == 1 || s.corner == 2 ? shown->GetWidth() - 1 : 0;
      const int y0 = s.corner >= 2 ? shown->GetHeight() - 1 : 0;
      int wrong = 0;
      for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
          const int x = x0 + c * s.alongRow[0] + r * s.downColumn[0], y = y0 + c * s.alongRow[1] + r * s.downColumn[1];
          wrong += Argb(*shown, x, y) != Argb(*copy, c, r);
        }
      }
      EXPECT_EQ(wrong, 0);
    }
  }
  // Values outside 1..8 leave the bitmap as it is.
  for (int o : {0, 9, -1}) {
    auto dib = Pattern(3, 2, CA_DIB_Rgb);
    CCA_Dib* before = dib.get();
    EXPECT_EQ(ApplyOrientation(std::move(dib), o).get(), before);
  }
  EXPECT_EQ(ApplyOrientation(nullptr, 6), nullptr);
}

// An Exif block ("Exif\0\0" and a little TIFF file) whose IFD0 holds `entries` tags before the
// orientation entry of `type` and `count`.
Bytes ExifBlock(bool little, uint32_t value, uint16_t type = 3, uint32_t count = 1, int entries = 2) {
  Bytes b = {'E', 'x', 'i', 'f', 0, 0};
  auto put16 = [&](uint32_t v) { b.insert(b.end(), {uint8_t(little ? v : v >> 8), uint8_t(little ? v >> 8 : v)}); };
  auto put32 = [&](uint32_t v) { little ? (put16(v & 0xFFFF), put16(v >> 16)) : (put16(v >> 16), put16(v & 0xFFFF)); };
  b.insert(b.end(), little ? std::initializer_list<uint8_t>{'I', 'I'} : std::initializer_list<uint8_t>{'M', 'M'});
  put16(42), put32(8), put16(static_cast<uint32_t>(entries + 1));
  for (int i = 0; i < entries; ++i) {   // ImageWidth, ImageLength
    put16(0x100 + i), put16(3), put32(1), put16(640), put16(0);
  }
  put16(0x0112), put16(type), put32(count);
  type == 3 ? (put16(value), put16(0)) : put32(value);
  put32(0);   // no next IFD
  return b;
}

TEST(ImageOrientation, ExifBlocksOfBothByteOrders) {
  for (bool little : {true, false}) {
    SCOPED_TRACE(little ? "II" : "MM");
    for (uint32_t v = 1; v <= 8; ++v) {
      const Bytes b = ExifBlock(little, v);
      EXPECT_EQ(ExifOrientation(b.data(), b.size()), static_cast<int>(v));
    }
    const Bytes asLong = ExifBlock(little, 6, 4), first = ExifBlock(little, 3, 3, 1, 0);
    EXPECT_EQ(ExifOrientation(asLong.data(), asLong.size()), 6);
    EXPECT_EQ(ExifOrientation(first.data(), first.size()), 3);
    // Out of range, the wrong type or count: as if absent.
    for (const Bytes& b : {ExifBlock(little, 0), ExifBlock(little, 9), ExifBlock(little, 0x10006, 4), ExifBlock(little, 6, 2),
                           ExifBlock(little, 6, 3, 2)}) {
      EXPECT_EQ(ExifOrientation(b.data(), b.size()), 1);
    }
    // Every cut of a good block: the tag is only seen when its entry is whole, and no read
    // goes past the cut (each cut is its own allocation, so a sanitizer sees an overrun).
    const Bytes whole = ExifBlock(little, 8);
    const size_t entryEnd = 6 + 8 + 2 + 3 * 12;
    for (size_t n = 0; n < whole.size(); ++n) {
      const Bytes cut = Head(whole, n);
      EXPECT_EQ(ExifOrientation(cut.data(), cut.size()), n >= entryEnd ? 8 : 1) << "cut at " << n;
    }
  }
  Bytes badOffset = ExifBlock(true, 6), manyEntries = ExifBlock(false, 6), notExif = ExifBlock(true, 6);
  badOffset[6 + 4] = 0xF0;                       // IFD0 far past the end
  manyEntries[6 + 8] = manyEntries[6 + 9] = 0xFF;   // an entry count running past the end, before the tag is met
  notExif[0] = 'e';
  EXPECT_EQ(ExifOrientation(badOffset.data(), badOffset.size()), 1);
  EXPECT_EQ(ExifOrientation(manyEntries.data(), manyEntries.size()), 6);
  EXPECT_EQ(ExifOrientation(notExif.data(), notExif.size()), 1);
  EXPECT_EQ(ExifOrientation(nullptr, 40), 1);
}

}  // namespace
