#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <jpeglib.h>

#include "codec/codec_test_support.h"
#include "codec/image_orientation.h"

using namespace codec_test;

namespace {

// libjpeg on its own: writes `components`-channel rows given by `pixel(x, y, out)`, with the
// APP1 segments `app1` (each without its marker and length) after the file's own headers.
template <class PixelFn>
Bytes WriteJpeg(int w, int h, J_COLOR_SPACE space, int components, bool progressive, bool adobe, PixelFn pixel,
                const std::vector<Bytes>& app1 = {}) {
  jpeg_compress_struct c;
  jpeg_error_mgr err;
  c.err = jpeg_std_error(&err);
  jpeg_create_compress(&c);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&c, &out, &size);
  c.image_width = w;
  c.image_height = h;
  c.input_components = components;
  c.in_color_space = space;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 100, TRUE);
  c.write_Adobe_marker = adobe ? TRUE : FALSE;
  if (progressive) jpeg_simple_progression(&c);
  jpeg_start_compress(&c, TRUE);
  for (const Bytes& segment : app1) jpeg_write_marker(&c, JPEG_APP0 + 1, segment.data(), static_cast<unsigned>(segment.size()));
  std::vector<uint8_t> row(static_cast<size_t>(w) * components);
  while (c.next_scanline < c.image_height) {
    for (int x = 0; x < w; ++x) pixel(x, static_cast<int>(c.next_scanline), &row[static_cast<size_t>(x) * components]);
    JSAMPROW r = row.data();
    jpeg_write_scanlines(&c, &r, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  Bytes bytes(out, out + size);
  free(out);
  return bytes;
}

// libjpeg on its own: the file decoded to R,G,B or gray rows.
Bytes ReadJpeg(const Bytes& bytes, J_COLOR_SPACE space) {
  jpeg_decompress_struct d;
  jpeg_error_mgr err;
  d.err = jpeg_std_error(&err);
  jpeg_create_decompress(&d);
  jpeg_mem_src(&d, bytes.data(), bytes.size());
  jpeg_read_header(&d, TRUE);
  d.out_color_space = space;
  jpeg_start_decompress(&d);
  Bytes all(static_cast<size_t>(d.output_width) * d.output_height * d.output_components);
  while (d.output_scanline < d.output_height) {
    JSAMPROW r = &all[static_cast<size_t>(d.output_scanline) * d.output_width * d.output_components];
    jpeg_read_scanlines(&d, &r, 1);
  }
  jpeg_finish_decompress(&d);
  jpeg_destroy_decompress(&d);
  return all;
}

bool Near(uint32_t argb, uint32_t want, int tolerance) {
  for (int shift = 0; shift < 24; shift += 8) {
    if (std::abs(static_cast<int>((argb >> shift) & 0xFF) - static_cast<int>((want >> shift) & 0xFF)) > tolerance) return false;
  }
  return true;
}

TEST(JpegCodec, CmykFilesBecomeRgbWithAndWithoutAdobeInversion) {
  // Four 16x16 blocks of ink: cyan, red (magenta + yellow), black, none.
  const uint8_t ink[4][4] = {{255, 0, 0, 0}, {0, 255, 255, 0}, {0, 0, 0, 255}, {0, 0, 0, 0}};
  const uint32_t want[4] = {0xFF00FFFFu, 0xFFFF0000u, 0xFF000000u, 0xFFFFFFFFu};
  for (bool adobe : {true, false}) {
    SCOPED_TRACE(adobe ? "Adobe, inverted" : "plain");
    const Bytes file = WriteJpeg(64, 16, JCS_CMYK, 4, false, adobe, [&](int x, int, uint8_t* out) {
      for (int c = 0; c < 4; ++c) out[c] = adobe ? 255 - ink[x / 16][c] : ink[x / 16][c];
    });
    auto dib = Decode(file);
    ASSERT_NE(dib, nullptr);
    EXPECT_EQ(dib->GetFormat(), CA_DIB_Rgb);
    for (int block = 0; block < 4; ++block) {
      EXPECT_TRUE(Near(Argb(*dib, block * 16 + 8, 8), want[block], 3)) << std::hex << Argb(*dib, block * 16 + 8, 8);
    }
  }
}

TEST(JpegCodec, ProgressiveAndGrayMatchTheLibraryExactly) {
  for (bool progressive : {false, true}) {
    SCOPED_TRACE(progressive);
    const Bytes file = WriteJpeg(67, 45, JCS_RGB, 3, progressive, false, [](int x, int y, uint8_t* out) {
      out[0] = static_cast<uint8_t>(x * 3);
      out[1] = static_cast<uint8_t>(y * 5);
      out[2] = static_cast<uint8_t>(x * y);
    });
    const Bytes ref = ReadJpeg(file, JCS_RGB);
    auto dib = Decode(file);
    ASSERT_NE(dib, nullptr);
    ASSERT_EQ(dib->GetFormat(), CA_DIB_Rgb);
    int bad = 0;
    for (int y = 0; y < 45; ++y) {
      for (int x = 0; x < 67; ++x) {
        const uint8_t* p = &ref[(static_cast<size_t>(y) * 67 + x) * 3];
        bad += Argb(*dib, x, y) != (0xFF000000u | (p[0] << 16) | (p[1] << 8) | p[2]);
      }
    }
    EXPECT_EQ(bad, 0);
  }
  const Bytes gray = WriteJpeg(20, 9, JCS_GRAYSCALE, 1, true, false, [](int x, int y, uint8_t* out) { *out = static_cast<uint8_t>(x * 10 + y); });
  const Bytes ref = ReadJpeg(gray, JCS_GRAYSCALE);
  auto dib = Decode(gray);
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(dib->GetFormat(), CA_DIB_8bpp);
  auto asRgb = Decode(gray, 0, CA_DIB_Rgb);   // a layout asked for is honoured
  ASSERT_NE(asRgb, nullptr);
  EXPECT_EQ(asRgb->GetFormat(), CA_DIB_Rgb);
  int bad = 0;
  for (int y = 0; y < 9; ++y) {
    for (int x = 0; x < 20; ++x) {
      bad += dib->GetPixel(CMRL_PSVTemplate<int>(x, y)) != ref[y * 20 + x];
      bad += Argb(*asRgb, x, y) != (0xFF000000u | ref[y * 20 + x] * 0x010101u);
    }
  }
  EXPECT_EQ(bad, 0);
}

TEST(JpegCodec, EveryRowLengthFillsTheWholeBitmap) {
  // Widths 1..9 give every tail of gray and colour rows against the 4-byte pitch.
  auto pixel = [](int components) {
    return [components](int x, int y, uint8_t* out) {
      for (int c = 0; c < components; ++c) out[c] = static_cast<uint8_t>(x * 29 + y * 17 + c * 83);
    };
  };
  for (int w = 1; w <= 9; ++w) {
    for (int h : {1, 17}) {
      const bool progressive = w % 2 == 0;
      SCOPED_TRACE(testing::Message() << w << "x" << h);
      const Bytes gray = WriteJpeg(w, h, JCS_GRAYSCALE, 1, progressive, false, pixel(1));
      const Bytes rgb = WriteJpeg(w, h, JCS_RGB, 3, progressive, false, pixel(3));
      const Bytes cmyk = WriteJpeg(w, h, JCS_CMYK, 4, progressive, true, pixel(4));
      for (const Bytes* file : {&gray, &rgb, &cmyk}) EXPECT_TRUE(SameBytesOverReusedMemory(*file));
      const Bytes grayRef = ReadJpeg(gray, JCS_GRAYSCALE), rgbRef = ReadJpeg(rgb, JCS_RGB);
      auto grayDib = Decode(gray), rgbDib = Decode(rgb);
      ASSERT_NE(grayDib, nullptr);
      ASSERT_NE(rgbDib, nullptr);
      int bad = 0;
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
          const size_t i = static_cast<size_t>(y) * w + x;
          bad += Argb(*grayDib, x, y) != (0xFF000000u | grayRef[i] * 0x010101u);
          bad += Argb(*rgbDib, x, y) != (0xFF000000u | (rgbRef[3 * i] << 16) | (rgbRef[3 * i + 1] << 8) | rgbRef[3 * i + 2]);
        }
      }
      EXPECT_EQ(bad, 0);
    }
  }
}

// The smallest Exif block that names an orientation: IFD0 with the one tag.
Bytes ExifWithOrientation(bool little, uint8_t value) {
  if (little) return {'E', 'x', 'i', 'f', 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 1, 3, 0, 1, 0, 0, 0, value, 0, 0, 0, 0, 0, 0, 0};
  return {'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 0, 0, 0, 8, 0, 1, 1, 0x12, 0, 3, 0, 0, 0, 1, 0, value, 0, 0, 0, 0, 0, 0};
}

TEST(JpegCodec, ExifOrientationTurnsThePicture) {
  auto pixel = [](int x, int y, uint8_t* out) {
    out[0] = static_cast<uint8_t>(x * 9);
    out[1] = static_cast<uint8_t>(y * 13);
    out[2] = static_cast<uint8_t>(x < 8 && y < 4 ? 255 : 0);   // a marked corner
  };
  auto stored = Decode(WriteJpeg(24, 16, JCS_RGB, 3, false, false, pixel));
  ASSERT_NE(stored, nullptr);
  const Bytes xmp = {'h', 't', 't', 'p', ':', '/', '/', 'n', 's', '.', 'x', 'm', 'p', 0};
  for (bool little : {true, false}) {
    for (uint8_t o = 1; o <= 8; ++o) {
      SCOPED_TRACE(testing::Message() << (little ? "II " : "MM ") << int{o});
      // Another APP1 first: only the Exif one counts.
      const Bytes file = WriteJpeg(24, 16, JCS_RGB, 3, false, false, pixel, {xmp, ExifWithOrientation(little, o)});
      auto dib = Decode(file);
      ASSERT_NE(dib, nullptr);
      EXPECT_TRUE(SameBytesOverReusedMemory(file));
      const std::unique_ptr<CCA_Dib> copy(stored->Clone());
      EXPECT_EQ(CountDifferences(*dib, *mrl_codec::ApplyOrientation(std::unique_ptr<CCA_Dib>(copy->Clone()), o)), 0);
    }
  }
  // A value out of range or a second Exif block does not turn it.
  auto odd = Decode(WriteJpeg(24, 16, JCS_RGB, 3, false, false, pixel, {ExifWithOrientation(true, 9), ExifWithOrientation(true, 6)}));
  ASSERT_NE(odd, nullptr);
  EXPECT_EQ(CountDifferences(*odd, *stored), 0);
}

TEST(JpegCodec, DamagedFramesAreRefused) {
  // Cuts are covered with the other formats; these are the JPEG-specific damages.
  const Bytes file = WriteJpeg(40, 40, JCS_RGB, 3, true, false, [](int x, int y, uint8_t* out) {
    out[0] = static_cast<uint8_t>(x * 6);
    out[1] = static_cast<uint8_t>(y * 6);
    out[2] = 77;
  });
  ASSERT_NE(Decode(file), nullptr);
  Bytes zero = file;   // a frame header that claims 0 lines
  for (size_t i = 2; i + 8 < zero.size(); ++i) {
    if (zero[i] == 0xFF && (zero[i + 1] == 0xC0 || zero[i + 1] == 0xC2)) {
      zero[i + 5] = zero[i + 6] = 0;
      break;
    }
  }
  EXPECT_EQ(Decode(zero), nullptr);
  Bytes garbage(200, 0x5A);   // garbage after the signature
  garbage[0] = garbage[2] = 0xFF;
  garbage[1] = 0xD8;
  EXPECT_EQ(Decode(garbage), nullptr);

  // A marker inside the entropy data: the library pads the rest of the scan and warns.
  const Bytes baseline = WriteJpeg(64, 64, JCS_RGB, 3, false, false, [](int x, int y, uint8_t* out) {
    out[0] = static_cast<uint8_t>(x * y);
    out[1] = static_cast<uint8_t>(x * 4);
    out[2] = static_cast<uint8_t>(y * 4);
  });
  size_t scan = 0;
  for (size_t i = 2; i + 1 < baseline.size() && !scan; ++i) {
    if (baseline[i] == 0xFF && baseline[i + 1] == 0xDA) scan = i + 2 + ((baseline[i + 2] << 8) | baseline[i + 3]);
  }
  ASSERT_GT(scan, 0u);
  Bytes cut = baseline;
  const size_t middle = scan + (cut.size() - scan) / 2;
  cut[middle] = 0xFF;
  cut[middle + 1] = 0xD9;
  EXPECT_EQ(Decode(cut), nullptr);
  // Restart markers the decoder could not line up with its blocks (bytes skipped before one).
  Bytes reset = baseline;
  reset.insert(reset.begin() + static_cast<std::ptrdiff_t>(middle), {0xFF, 0xD0});
  EXPECT_EQ(Decode(reset), nullptr);
  // Stray bytes between two segments lose nothing: the picture is whole.
  Bytes stray = baseline;
  const size_t afterFirst = 4 + ((stray[4] << 8) | stray[5]);
  stray.insert(stray.begin() + static_cast<std::ptrdiff_t>(afterFirst), {0x00, 0x11, 0x22});
  auto whole = Decode(stray), plain = Decode(baseline);
  ASSERT_NE(whole, nullptr);
  EXPECT_EQ(CountDifferences(*whole, *plain), 0);
}

TEST(JpegCodec, ProgressiveCoefficientsBeyondTheBudgetAreRefusedBeforeAllocation) {
  // 16 x 16 CMYK, then the frame header says 16384 x 16384: four full-size components of
  // 2-byte coefficients are 2 GiB, past the budget, and the scans are never reached.
  Bytes file = WriteJpeg(16, 16, JCS_CMYK, 4, true, false, [](int x, int y, uint8_t* out) {
    for (int c = 0; c < 4; ++c) out[c] = static_cast<uint8_t>(x * 16 + y + c);
  });
  size_t sof = 0;
  for (size_t i = 2; i + 8 < file.size() && !sof; ++i) {
    if (file[i] == 0xFF && file[i + 1] == 0xC2) sof = i;
  }
  ASSERT_GT(sof, 0u);
  file[sof + 5] = file[sof + 7] = 0x40;   // height and width 0x4000
  file[sof + 6] = file[sof + 8] = 0x00;
  const int64_t before = PeakVirtualBytes();
  EXPECT_EQ(Decode(file), nullptr);
  const int64_t after = PeakVirtualBytes();
  if (before < 0) GTEST_SKIP() << "no /proc to read the peak from";
  EXPECT_LT(after - before, int64_t{256} << 20);
}

TEST(JpegCodec, EncoderHonoursQualityResolutionAndLayouts) {
  auto dib = Pattern(96, 64, CA_DIB_Rgb);
  const int low = 10, high = 95, x = 300, y = 200;
  const Bytes small = Encode(*dib, CA_IMAGE_Jpeg, &low);
  ASSERT_FALSE(small.empty());
  EXPECT_LT(small.size(), Encode(*dib, CA_IMAGE_Jpeg, &high).size());

  const Bytes dense = Encode(*dib, CA_IMAGE_Jpeg, &high, &x, &y);
  ASSERT_GT(dense.size(), 20u);
  ASSERT_EQ(std::string(dense.begin() + 6, dense.begin() + 11), std::string("JFIF\0", 5));
  EXPECT_EQ(dense[13], 1);   // dots per inch
  EXPECT_EQ((dense[14] << 8) | dense[15], 300);
  EXPECT_EQ((dense[16] << 8) | dense[17], 200);

  // Every layout encodes and comes back close at high quality (the pattern is noisy on purpose
  // and chroma is subsampled, hence the loose mean; a swapped channel would be far off).
  for (CA_DibFormat format : kLayouts) {
    SCOPED_TRACE(format);
    auto source = Pattern(32, 32, format, true);
    auto back = Decode(Encode(*source, CA_IMAGE_Jpeg, &high));
    ASSERT_NE(back, nullptr);
    long error = 0;
    for (int yy = 0; yy < 32; ++yy) {
      for (int xx = 0; xx < 32; ++xx) {
        const uint32_t a = Argb(*source, xx, yy), b = Argb(*back, xx, yy);
        for (int s = 0; s < 24; s += 8) error += std::abs(static_cast<int>((a >> s) & 0xFF) - static_cast<int>((b >> s) & 0xFF));
      }
    }
    EXPECT_LT(error / (32 * 32 * 3), 16);
  }
}

}  // namespace
