#include <gtest/gtest.h>
#include <openjpeg.h>

#include <cstdio>
#include <cstring>
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

namespace {

// Offset of the body of the first box of `type` inside the box list [begin, end), or 0.
size_t FindBox(const Bytes& file, size_t begin, size_t end, const char* type) {
  for (size_t pos = begin; pos + 8 <= end;) {
    const size_t length = (file[pos] << 24) | (file[pos + 1] << 16) | (file[pos + 2] << 8) | file[pos + 3];
    if (std::memcmp(&file[pos + 4], type, 4) == 0) return pos + 8;
    if (length < 8) return 0;
    pos += length;
  }
  return 0;
}

TEST(Jp2Codec, ImageHeaderThatDisagreesWithTheCodeStreamIsRefused) {
  auto dib = Pattern(40, 30, CA_DIB_Rgb);
  const Bytes file = Encode(*dib, CA_IMAGE_Jpeg2000);
  ASSERT_NE(Decode(file), nullptr);
  const size_t header = FindBox(file, 0, file.size(), "jp2h");
  ASSERT_NE(header, 0u);
  const size_t ihdr = FindBox(file, header, file.size(), "ihdr");
  ASSERT_NE(ihdr, 0u);
  ASSERT_EQ(file[ihdr + 10], 7);   // 8-bit unsigned for every component
  const struct {
    size_t offset;
    uint8_t value;
  } edits[] = {
      {ihdr + 10, 0x0F},   // 16 bits claimed
      {ihdr + 10, 0x87},   // signed claimed
      {ihdr + 3, 31},      // height 31
      {ihdr + 7, 41},      // width 41
      {ihdr + 9, 4},       // four components
  };
  for (const auto& e : edits) {
    Bytes edited = file;
    edited[e.offset] = e.value;
    EXPECT_EQ(Decode(edited), nullptr) << e.offset - ihdr;
  }
}

TEST(Jp2Codec, CorpusFilesWithDamagedHeadersAreRefusedAndSoundOnesDecode) {
  const std::string dir = TestDataDir() + "/imagecorpus/files/pillow/";
  Bytes file;
  if (!ReadFileBytes(dir + "test-card-lossless.jp2", file)) GTEST_SKIP() << "no corpus in " << dir;
  // Fuzzed sampling factors and bit depths: the library decodes them without complaint into
  // pictures that are noise.
  for (const char* name : {"crash-4fb027452e6988530aa5dabee76eecacb3b79f8a.j2k", "crash-7d4c83eb92150fb8f1653a697703ae06ae7c4998.j2k",
                           "crash-ccca68ff40171fdae983d924e127a721cab2bd50.j2k", "crash-d2c93af851d3ab9a19e34503626368b2ecde9c03.j2k",
                           "00r1_graya_la.jp2", "00r0_gray_l.jp2", "not_enough_data.jp2"}) {
    ASSERT_TRUE(ReadFileBytes(dir + name, file)) << name;
    EXPECT_EQ(Decode(file), nullptr) << name;
  }
  const struct {
    const char* name;
    int width, height;
  } sound[] = {{"test-card-lossless.jp2", 640, 480}, {"test-card-lossy-tiled.jp2", 640, 480},
               {"rgb_trns_ycbc.j2k", 64, 64}, {"16bit.cropped.jp2", 64, 64}, {"issue_6194.j2k", 8, 8}};
  for (const auto& s : sound) {
    ASSERT_TRUE(ReadFileBytes(dir + s.name, file)) << s.name;
    auto dib = Decode(file);
    ASSERT_NE(dib, nullptr) << s.name;
    EXPECT_EQ(dib->GetWidth(), s.width) << s.name;
    EXPECT_EQ(dib->GetHeight(), s.height) << s.name;
  }
}

}  // namespace
