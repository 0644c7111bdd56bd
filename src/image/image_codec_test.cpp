#include <zelutility/image_codec.h>

#include <gtest/gtest.h>
#include <mrlbase/codec.h>
#include <mrlbase/dib.h>
#include <mrlbase/stream.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

using Log = std::vector<std::string>;

// Coders and a factory that write every call they receive into one log.
class FakeDecoder : public ICA_ImageDecoder {
 public:
  FakeDecoder(Log& log, int accept, CCA_Dib* result) : log_(log), accept_(accept), result_(result) {}
  ~FakeDecoder() override { log_.push_back("~decoder"); }
  int SetStream(IMRL_StreamRead*, int flags) override {
    log_.push_back("SetStream flags=" + std::to_string(flags));
    return accept_;
  }
  CCA_Dib* Decode(int frame, int format, int flags) override {
    log_.push_back("Decode " + std::to_string(frame) + "," + std::to_string(format) + "," + std::to_string(flags));
    return result_;
  }

 private:
  Log& log_;
  int accept_;
  CCA_Dib* result_;
};

class FakeEncoder : public ICA_ImageEncoder {
 public:
  FakeEncoder(Log& log, int result) : log_(log), result_(result) {}
  ~FakeEncoder() override { log_.push_back("~encoder"); }
  int Encode(const CCA_Dib*, IMRL_StreamWrite*) override {
    log_.push_back("Encode");
    return result_;
  }
  void SetQuality(const int* quality) override { log_.push_back("SetQuality " + std::to_string(*quality)); }
  void SetResolution(const int* x, const int* y) override {
    log_.push_back("SetResolution " + std::to_string(*x) + "," + std::to_string(*y));
  }

 private:
  Log& log_;
  int result_;
};

class FakeFactory : public CCA_CodecFactory {
 public:
  ICA_ImageDecoder* CreateImageDecoder(CA_ImageFormat format) override {
    log.push_back("CreateImageDecoder " + std::to_string(format));
    return giveDecoder ? new FakeDecoder(log, decoderAccepts, decodeResult) : nullptr;
  }
  ICA_ImageEncoder* CreateImageEncoder(CA_ImageFormat format) override {
    log.push_back("CreateImageEncoder " + std::to_string(format));
    return giveEncoder ? new FakeEncoder(log, encodeResult) : nullptr;
  }
  Log log;
  bool giveDecoder = true, giveEncoder = true;
  int decoderAccepts = 1, encodeResult = 1;
  CCA_Dib* decodeResult = nullptr;
};

// Puts the fake factory behind the process-wide context for the length of a test.
class ImageCodecSequence : public testing::Test {
 protected:
  void SetUp() override { previous_ = CCA_Context::Get()->SetCodecFactory(&factory_); }
  void TearDown() override { CCA_Context::Get()->SetCodecFactory(previous_); }
  FakeFactory factory_;

 private:
  CCA_CodecFactory* previous_ = nullptr;
};

const unsigned char kPngHead[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0};

TEST_F(ImageCodecSequence, DecodeAsksByFormatBindsDecodesReleasesAndStopsAtARefusal) {
  const Log full = {"CreateImageDecoder 6", "SetStream flags=1", "Decode 0,0,0", "~decoder"};
  CMRL_MemoryStream png(kPngHead, sizeof kPngHead);
  CCA_Dib* made = new CCA_Dib;
  factory_.decodeResult = made;
  std::unique_ptr<CCA_Dib> dib(ImageDecode(&png));
  EXPECT_EQ(dib.get(), made);
  EXPECT_EQ(factory_.log, full);

  factory_.log.clear();
  factory_.decoderAccepts = 7;   // any non-zero answer means readable
  factory_.decodeResult = nullptr;
  EXPECT_EQ(ImageDecode(&png), nullptr);
  EXPECT_EQ(factory_.log, full);

  factory_.log.clear();
  factory_.decoderAccepts = 0;
  EXPECT_EQ(ImageDecode(&png), nullptr);
  EXPECT_EQ(factory_.log, (Log{"CreateImageDecoder 6", "SetStream flags=1", "~decoder"}));

  // An unknown stream is still handed to the factory, as format 0.
  factory_.log.clear();
  factory_.giveDecoder = false;
  CMRL_MemoryStream unknown("hello", 5);
  EXPECT_EQ(ImageDecode(&unknown), nullptr);
  EXPECT_EQ(factory_.log, (Log{"CreateImageDecoder 0"}));
}

TEST_F(ImageCodecSequence, EncodeHandsOnSettingsInOrderAndTheCodersResult) {
  CCA_Dib dib;
  CMRL_MemoryStream out;
  factory_.encodeResult = 42;   // whatever the encoder says comes back unchanged
  EXPECT_EQ(ImageEncode(&dib, CA_IMAGE_Jpeg, &out, 85, 300, 150), 42);
  EXPECT_EQ(factory_.log,
            (Log{"CreateImageEncoder 3", "SetQuality 85", "SetResolution 300,150", "Encode", "~encoder"}));

  // No encoder: 0, and the stream is not touched.
  factory_.log.clear();
  factory_.giveEncoder = false;
  EXPECT_EQ(ImageEncode(&dib, CA_IMAGE_None, &out, 1, 2, 3), 0);
  EXPECT_EQ(factory_.log, (Log{"CreateImageEncoder 0"}));
  EXPECT_EQ(out.GetSize(), 0u);
}

TEST(ImageCodec, RealCodersRoundTripThroughAFile) {
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(31, 17, CA_DIB_Argb));
  for (int y = 0; y < 17; ++y) {
    for (int x = 0; x < 31; ++x) {
      dib.SetPixel(CMRL_PSVTemplate<int>(x, y), (static_cast<unsigned>(x * 8) << 24) | (y * 15) << 8 | x);
    }
  }
  // PNG through a file on disk.
  const std::string path = testing::TempDir() + "image_codec_test.png";
  {
    auto out = CMRL_FileStream::Open(path.c_str(), true);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(ImageEncode(&dib, CA_IMAGE_Png, out.get(), 9, 300, 300), 1);
  }
  auto in = CMRL_FileStream::Open(path.c_str(), false);
  ASSERT_NE(in, nullptr);
  std::unique_ptr<CCA_Dib> back(ImageDecode(in.get()));
  std::remove(path.c_str());
  ASSERT_NE(back, nullptr);
  ASSERT_EQ(back->GetFormat(), CA_DIB_Argb);
  for (int i = 0; i < 31 * 17; ++i) {
    const CMRL_PSVTemplate<int> at(i % 31, i / 31);
    ASSERT_EQ(back->GetPixel(at), dib.GetPixel(at)) << i;
  }
  // JB2 has no encoder; an empty or missing stream decodes to nothing.
  CMRL_MemoryStream none;
  EXPECT_EQ(ImageEncode(&dib, CA_IMAGE_Jb2, &none, 90, 96, 96), 0);
  EXPECT_EQ(none.GetSize(), 0u);
  EXPECT_EQ(ImageDecode(&none), nullptr);
  EXPECT_EQ(ImageDecode(nullptr), nullptr);
}

std::string PilFixture(const char* name) {
  return std::string(ZEL_SOURCE_DIR) + "/mrlbase/src/codec/testdata/pil/" + name;
}

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// Both null, or the same size, layout, palette and pixel bytes.
testing::AssertionResult SameDib(const CCA_Dib* a, const CCA_Dib* b) {
  if (a == nullptr || b == nullptr) {
    if (a == b) return testing::AssertionSuccess();
    return testing::AssertionFailure() << (a ? "second" : "first") << " is null";
  }
  if (a->GetWidth() != b->GetWidth() || a->GetHeight() != b->GetHeight() || a->GetFormat() != b->GetFormat()) {
    return testing::AssertionFailure() << a->GetWidth() << "x" << a->GetHeight() << " format " << a->GetFormat()
                                       << " against " << b->GetWidth() << "x" << b->GetHeight() << " format "
                                       << b->GetFormat();
  }
  if (a->GetPaletteSize() != b->GetPaletteSize() ||
      (a->GetPaletteSize() > 0 &&
       std::memcmp(a->GetPaletteData(), b->GetPaletteData(), a->GetPaletteSize() * sizeof(unsigned)) != 0)) {
    return testing::AssertionFailure() << "palettes differ";
  }
  const size_t rowBytes = (static_cast<size_t>(a->GetWidth()) * a->GetBPP() + 7) / 8;
  for (int y = 0; y < a->GetHeight(); ++y) {
    if (std::memcmp(a->GetScanline(y), b->GetScanline(y), rowBytes) != 0) {
      return testing::AssertionFailure() << "row " << y << " differs";
    }
  }
  return testing::AssertionSuccess();
}

TEST(ImageCodec, DecodeFromAPathOrBytesMatchesDecodingAStream) {
  int compared = 0;
  for (const char* name : {"palette_trns.png", "gray16.png", "baseline.jpg", "progressive.jpg", "lzw.tif",
                           "group4.tif", "multipage.tif", "palette8.bmp", "rgba32.bmp", "transparent.gif",
                           "lossless.jp2"}) {
    const std::string path = PilFixture(name);
    auto stream = CMRL_FileStream::Open(path.c_str(), false);
    ASSERT_NE(stream, nullptr) << name;
    std::unique_ptr<CCA_Dib> expected(ImageDecode(stream.get()));
    ASSERT_NE(expected, nullptr) << name;   // every fixture decodes, so equality below means something

    std::unique_ptr<CCA_Dib> fromPath(ImageDecodeFile(path.c_str()));
    EXPECT_TRUE(SameDib(fromPath.get(), expected.get())) << name;
    const std::string bytes = ReadAll(path);
    std::unique_ptr<CCA_Dib> fromBytes(ImageDecodeBytes(bytes.data(), bytes.size()));
    EXPECT_TRUE(SameDib(fromBytes.get(), expected.get())) << name;

    // A file cut in half is damaged: whatever the stream decode makes of it, so do the others.
    const std::string half = bytes.substr(0, bytes.size() / 2);
    CMRL_MemoryStream halfStream(half.data(), half.size());
    std::unique_ptr<CCA_Dib> halfExpected(ImageDecode(&halfStream));
    std::unique_ptr<CCA_Dib> halfBytes(ImageDecodeBytes(half.data(), half.size()));
    EXPECT_TRUE(SameDib(halfBytes.get(), halfExpected.get())) << name << " cut";
    ++compared;
  }
  EXPECT_EQ(compared, 11);

  // A UTF-8 path outside ASCII.
  const std::string copy = testing::TempDir() + "image_codec_test_\xC3\xA9t\xC3\xA9.png";
  {
    std::ofstream out(copy, std::ios::binary);
    out << ReadAll(PilFixture("palette_trns.png"));
  }
  std::unique_ptr<CCA_Dib> fromCopy(ImageDecodeFile(copy.c_str()));
  std::remove(copy.c_str());
  ASSERT_NE(fromCopy, nullptr);
  EXPECT_EQ(fromCopy->GetWidth(), 17);
  EXPECT_EQ(fromCopy->GetHeight(), 13);
}

TEST(ImageCodec, DecodeFromAPathOrBytesRefusesNothingToRead) {
  EXPECT_EQ(ImageDecodeFile(nullptr), nullptr);
  EXPECT_EQ(ImageDecodeFile(""), nullptr);
  EXPECT_EQ(ImageDecodeFile(PilFixture("no_such_file.png").c_str()), nullptr);
  EXPECT_EQ(ImageDecodeFile(testing::TempDir().c_str()), nullptr);   // a folder
  EXPECT_EQ(ImageDecodeFile(PilFixture("make_fixtures.py").c_str()), nullptr);   // not an image

  const std::string empty = testing::TempDir() + "image_codec_test_empty.png";
  { std::ofstream out(empty, std::ios::binary); }
  EXPECT_EQ(ImageDecodeFile(empty.c_str()), nullptr);
  std::remove(empty.c_str());

  const std::string png = ReadAll(PilFixture("palette_trns.png"));
  ASSERT_FALSE(png.empty());
  EXPECT_EQ(ImageDecodeBytes(nullptr, 0), nullptr);
  EXPECT_EQ(ImageDecodeBytes(nullptr, png.size()), nullptr);
  EXPECT_EQ(ImageDecodeBytes(png.data(), 0), nullptr);
  EXPECT_EQ(ImageDecodeBytes(png.data(), 8), nullptr);   // the signature alone
  EXPECT_EQ(ImageDecodeBytes("hello", 5), nullptr);
}

TEST(ImageProcess, FixedResultsLeaveEverythingAlone) {
  LXImageProcess process("first", "second");
  CCA_Dib source, target;
  ASSERT_TRUE(source.Create(4, 4, CA_DIB_Rgb));
  ASSERT_TRUE(target.Create(4, 4, CA_DIB_Rgb));
  target.SetPixel(CMRL_PSVTemplate<int>(1, 2), 0x123456);
  EXPECT_FALSE(process.AutoRotation(&source, &target));
  EXPECT_FALSE(process.AutoBrightnessContrastRatio(&source, &target));
  EXPECT_FALSE(process.RemoveBlackMatte(&source, 1.0, 2.0, 3.0, 4.0, &target));
  EXPECT_EQ(process.DetectionBlankPage(&source), -1);
  EXPECT_EQ(process.DetectionBlankPage(nullptr), -1);
  EXPECT_EQ(target.GetPixel(CMRL_PSVTemplate<int>(1, 2)), 0x123456u);
  EXPECT_STREQ(process.ErrorMessage(), "");   // nothing failed, so nothing to report
  EXPECT_EQ(AlphaBlending(&source, 0x80u), nullptr);
  EXPECT_EQ(AlphaBlending(nullptr, 0), nullptr);
  EXPECT_EQ(ImageBinary(&source), nullptr);
  EXPECT_EQ(ImageBinary(nullptr), nullptr);
}

TEST(ImageProcess, AssignmentCopiesTheRecord) {
  // Each object keeps its own record: destroying the source after the assignment must leave the
  // target whole (a shared record would be released twice; the sanitizer build reports that).
  auto target = std::make_unique<LXImageProcess>("a", "b");
  {
    LXImageProcess source("c", "d");
    *target = source;
    *target = *target;   // self-assignment keeps the record
    EXPECT_NE(source.ErrorMessage(), target->ErrorMessage());
  }
  EXPECT_STREQ(target->ErrorMessage(), "");
}

}  // namespace
