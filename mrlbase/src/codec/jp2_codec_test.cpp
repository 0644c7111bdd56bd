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
  parm.dx = parm.dy = 1, parm.w = w, parm.h = h, parm.prec = precision;
  opj_image_t* image = opj_image_create(1, &parm, OPJ_CLRSPC_GRAY);
  image->x1 = w, image->y1 = h;
  for (int i = 0; i < w * h; ++i) image->comps[0].data[i] = sample(i % w, i / w);
  opj_cparameters_t params;
  opj_set_default_encoder_parameters(&params);
  params.tcp_numlayers = params.cp_disto_alloc = 1;
  params.tcp_rates[0] = 0;
  params.numresolution = 3;
  char name[] = "/tmp/jp2_codec_test_XXXXXX";
  close(mkstemp(name));
  opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
  opj_setup_encoder(codec, &params, image);
  opj_stream_t* stream = opj_stream_create_default_file_stream(name, OPJ_FALSE);
  opj_start_compress(codec, image, stream) && opj_encode(codec, stream) && opj_end_compress(codec, stream);
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
  for (int i = 0; i < 31 * 18; ++i) bad += dib->GetPixel(CMRL_PSVTemplate<int>(i % 31, i / 31)) != static_cast<unsigned>(sample(i % 31, i / 31) >> 4);
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
  const size_t ihdr = header ? FindBox(file, header, file.size(), "ihdr") : 0;
  ASSERT_NE(ihdr, 0u);
  ASSERT_EQ(file[ihdr + 10], 7);   // 8-bit unsigned for every component
  // 16 bits, signed, height 31, width 41, four components claimed.
  for (const auto& [offset, value] : std::initializer_list<std::pair<size_t, uint8_t>>{{10, 0x0F}, {10, 0x87}, {3, 31}, {7, 41}, {9, 4}}) {
    Bytes edited = file;
    edited[ihdr + offset] = value;
    EXPECT_EQ(Decode(edited), nullptr) << offset;
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
  for (const auto& [name, side] : std::initializer_list<std::pair<const char*, int>>{
           {"test-card-lossless.jp2", 640}, {"test-card-lossy-tiled.jp2", 640}, {"rgb_trns_ycbc.j2k", 64}, {"16bit.cropped.jp2", 64}, {"issue_6194.j2k", 8}}) {
    ASSERT_TRUE(ReadFileBytes(dir + name, file)) << name;
    auto dib = Decode(file);
    ASSERT_NE(dib, nullptr) << name;
    EXPECT_EQ(dib->GetWidth(), side) << name;
    EXPECT_EQ(dib->GetHeight(), side == 640 ? 480 : side) << name;
  }
}

}  // namespace
