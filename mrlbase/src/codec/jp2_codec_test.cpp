#include <gtest/gtest.h>
#include <openjpeg.h>

#include <cstdio>
#include <unistd.h>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

// OpenJPEG on its own: a bare J2K code stream of one gray component at `precision` bits.
Bytes WriteJ2k(int w, int h, int precision, int (*sample)(int, int)) {
  opj_image_cmptparm_t parm{};
  parm.dx = parm.dy = 1;
  parm.w = w;
  parm.h = h;
  parm.prec = precision;
  opj_image_t* image = opj_image_create(1, &parm, OPJ_CLRSPC_GRAY);
  image->x1 = w;
  image->y1 = h;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) image->comps[0].data[y * w + x] = sample(x, y);
  }
  opj_cparameters_t params;
  opj_set_default_encoder_parameters(&params);
  params.tcp_numlayers = 1;
  params.cp_disto_alloc = 1;
  params.tcp_rates[0] = 0;
  params.numresolution = 3;
  char name[] = "/tmp/jp2_codec_test_XXXXXX";
  close(mkstemp(name));
  opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
  opj_setup_encoder(codec, &params, image);
  opj_stream_t* stream = opj_stream_create_default_file_stream(name, OPJ_FALSE);
  opj_start_compress(codec, image, stream);
  opj_encode(codec, stream);
  opj_end_compress(codec, stream);
  opj_stream_destroy(stream);
  opj_destroy_codec(codec);
  opj_image_destroy(image);
  Bytes bytes;
  ReadFileBytes(name, bytes);
  std::remove(name);
  return bytes;
}

TEST(Jp2Codec, BareCodeStreamWithTwelveBitSamples) {
  auto sample = [](int x, int y) { return ((x * 9 + y * 4) & 0xFF) << 4 | 0x7; };
  const Bytes file = WriteJ2k(31, 18, 12, sample);
  ASSERT_GT(file.size(), 4u);
  auto dib = Decode(file);
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(dib->GetFormat(), CA_DIB_8bpp);
  int bad = 0;
  for (int y = 0; y < 18; ++y) {
    for (int x = 0; x < 31; ++x) bad += dib->GetPixel(CMRL_PSVTemplate<int>(x, y)) != static_cast<unsigned>(sample(x, y) >> 4);
  }
  EXPECT_EQ(bad, 0);
  for (size_t cut : {size_t{4}, size_t{30}, file.size() / 2, file.size() - 1}) EXPECT_EQ(Decode(Head(file, cut)), nullptr) << cut;
}

TEST(Jp2Codec, QualityBelowHundredIsLossyAndSmaller) {
  auto dib = Pattern(128, 96, CA_DIB_Rgb);
  const int q = 30;
  const Bytes lossless = Encode(*dib, CA_IMAGE_Jpeg2000);
  const Bytes lossy = Encode(*dib, CA_IMAGE_Jpeg2000, &q);
  ASSERT_FALSE(lossy.empty());
  EXPECT_LT(lossy.size() * 3, lossless.size());
  auto back = Decode(lossy);
  ASSERT_NE(back, nullptr);
  EXPECT_GT(CountDifferences(*dib, *back), 0);
  // Still the same picture: the smooth red ramp (x * 255 / 128) stays close.
  EXPECT_NEAR(static_cast<int>((Argb(*back, 100, 50) >> 16) & 0xFF), 199, 12);
  // A one-pixel image takes a single resolution level.
  CCA_Dib tiny;
  ASSERT_TRUE(tiny.Create(1, 1, CA_DIB_Rgb));
  tiny.SetPixel(CMRL_PSVTemplate<int>(0, 0), 0x123456);
  auto tinyBack = Decode(Encode(tiny, CA_IMAGE_Jpeg2000));
  ASSERT_NE(tinyBack, nullptr);
  EXPECT_EQ(Argb(*tinyBack, 0, 0), 0xFF123456u);
}

}  // namespace
