#include <zelutility/image_codec.h>

#include <gtest/gtest.h>
#include <mrlbase/codec.h>
#include <mrlbase/dib.h>
#include <mrlbase/stream.h>

#include <cstdio>
#include <cstring>
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
  int SetStream(IMRL_StreamRead*, int flags) override { return log_.push_back("SetStream " + std::to_string(flags)), accept_; }
  CCA_Dib* Decode(int frame, int format, int flags) override {
    log_.push_back("Decode " + std::to_string(frame) + "," + std::to_string(format) + "," + std::to_string(flags));
    return result_;
  }
  Log& log_;
  int accept_;
  CCA_Dib* result_;
};

class FakeEncoder : public ICA_ImageEncoder {
 public:
  FakeEncoder(Log& log, int result) : log_(log), result_(result) {}
  ~FakeEncoder() override { log_.push_back("~encoder"); }
  int Encode(const CCA_Dib*, IMRL_StreamWrite*) override { return log_.push_back("Encode"), result_; }
  void SetQuality(const int* q) override { log_.push_back("SetQuality " + std::to_string(*q)); }
  void SetResolution(const int* x, const int* y) override {
    log_.push_back("SetResolution " + std::to_string(*x) + "," + std::to_string(*y));
  }
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
  CCA_CodecFactory* previous_ = nullptr;
};

const unsigned char kPngHead[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0};

TEST_F(ImageCodecSequence, CodersAreAskedByFormatAndReleasedAndRefusalsStopThem) {
  const Log full = {"CreateImageDecoder 6", "SetStream 1", "Decode 0,0,0", "~decoder"};
  CMRL_MemoryStream png(kPngHead, sizeof kPngHead);
  factory_.decodeResult = new CCA_Dib;
  factory_.decoderAccepts = 7;   // any non-zero answer means readable
  std::unique_ptr<CCA_Dib> dib(ImageDecode(&png));
  EXPECT_EQ(dib.get(), factory_.decodeResult);
  EXPECT_EQ(factory_.log, full);

  factory_.log.clear();
  factory_.decoderAccepts = 0;
  factory_.decodeResult = nullptr;
  EXPECT_EQ(ImageDecode(&png), nullptr);
  EXPECT_EQ(factory_.log, (Log{"CreateImageDecoder 6", "SetStream 1", "~decoder"}));

  // An unknown stream is still handed to the factory, as format 0.
  factory_.log.clear();
  factory_.giveDecoder = false;
  CMRL_MemoryStream unknown("hello", 5);
  EXPECT_EQ(ImageDecode(&unknown), nullptr);
  EXPECT_EQ(factory_.log, (Log{"CreateImageDecoder 0"}));

  // Encoding hands on the settings in order and the encoder's result unchanged.
  CCA_Dib blank;
  CMRL_MemoryStream out;
  factory_.log.clear();
  factory_.encodeResult = 42;   // whatever the encoder says comes back unchanged
  EXPECT_EQ(ImageEncode(&blank, CA_IMAGE_Jpeg, &out, 85, 300, 150), 42);
  EXPECT_EQ(factory_.log,
            (Log{"CreateImageEncoder 3", "SetQuality 85", "SetResolution 300,150", "Encode", "~encoder"}));

  // No encoder: 0, and the stream is not touched.
  factory_.log.clear();
  factory_.giveEncoder = false;
  EXPECT_EQ(ImageEncode(&blank, CA_IMAGE_None, &out, 1, 2, 3), 0);
  EXPECT_EQ(factory_.log, (Log{"CreateImageEncoder 0"}));
  EXPECT_EQ(out.GetSize(), 0u);
}

std::string PilFixture(const char* name) {
  return std::string(ZEL_SOURCE_DIR) + "/mrlbase/src/codec/testdata/pil/" + name;
}

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// Both null, or the same size, layout, palette and pixel bytes.
bool SameDib(const CCA_Dib* a, const CCA_Dib* b) {
  if (a == nullptr || b == nullptr) return a == b;
  bool same = a->GetWidth() == b->GetWidth() && a->GetHeight() == b->GetHeight() && a->GetFormat() == b->GetFormat() &&
              a->GetPaletteSize() == b->GetPaletteSize() &&
              (a->GetPaletteSize() == 0 ||
               std::memcmp(a->GetPaletteData(), b->GetPaletteData(), a->GetPaletteSize() * sizeof(unsigned)) == 0);
  const size_t rowBytes = (static_cast<size_t>(a->GetWidth()) * a->GetBPP() + 7) / 8;
  for (int y = 0; same && y < a->GetHeight(); ++y) same = std::memcmp(a->GetScanline(y), b->GetScanline(y), rowBytes) == 0;
  return same;
}

TEST(ImageCodec, RealCodersRoundTripThroughAFile) {
  CCA_Dib dib;
  ASSERT_TRUE(dib.Create(31, 17, CA_DIB_Argb));
  for (int i = 0; i < 31 * 17; ++i) {
    dib.SetPixel(CMRL_PSVTemplate<int>(i % 31, i / 31), (static_cast<unsigned>(i % 31 * 8) << 24) | (i / 31 * 15) << 8 | i % 31);
  }
  const std::string path = testing::TempDir() + "image_codec_test.png";
  {
    auto out = CMRL_FileStream::Open(path.c_str(), true);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(ImageEncode(&dib, CA_IMAGE_Png, out.get(), 9, 300, 300), 1);
  }
  std::unique_ptr<CCA_Dib> back(ImageDecodeFile(path.c_str()));
  std::remove(path.c_str());
  ASSERT_NE(back, nullptr);
  ASSERT_EQ(back->GetFormat(), CA_DIB_Argb);
  EXPECT_TRUE(SameDib(back.get(), &dib));
  // JB2 has no encoder; an empty or missing stream decodes to nothing.
  CMRL_MemoryStream none;
  EXPECT_EQ(ImageEncode(&dib, CA_IMAGE_Jb2, &none, 90, 96, 96), 0);
  EXPECT_EQ(none.GetSize(), 0u);
  EXPECT_EQ(ImageDecode(&none), nullptr);
  EXPECT_EQ(ImageDecode(nullptr), nullptr);
}

TEST(ImageCodec, DecodeFromAPathOrBytesMatchesDecodingAStream) {
  int compared = 0;
  for (const char* name : {"palette_trns.png", "progressive.jpg", "multipage.tif", "palette8.bmp", "transparent.gif",
                           "lossless.jp2"}) {
    const std::string path = PilFixture(name);
    auto stream = CMRL_FileStream::Open(path.c_str(), false);
    ASSERT_NE(stream, nullptr) << name;
    std::unique_ptr<CCA_Dib> expected(ImageDecode(stream.get()));
    ASSERT_NE(expected, nullptr) << name;   // every fixture decodes, so equality below means something

    EXPECT_TRUE(SameDib(std::unique_ptr<CCA_Dib>(ImageDecodeFile(path.c_str())).get(), expected.get())) << name;
    const std::string bytes = ReadAll(path);
    EXPECT_TRUE(SameDib(std::unique_ptr<CCA_Dib>(ImageDecodeBytes(bytes.data(), bytes.size())).get(), expected.get()))
        << name;

    // A file cut in half is damaged: whatever the stream decode makes of it, so do the others.
    const std::string half = bytes.substr(0, bytes.size() / 2);
    CMRL_MemoryStream halfStream(half.data(), half.size());
    std::unique_ptr<CCA_Dib> halfExpected(ImageDecode(&halfStream)), halfBytes(ImageDecodeBytes(half.data(), half.size()));
    EXPECT_TRUE(SameDib(halfBytes.get(), halfExpected.get())) << name << " cut";
    ++compared;
  }
  EXPECT_EQ(compared, 6);

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
  EXPECT_EQ(ImageDecodeFile(PilFixture("no_such_file.png").c_str()), nullptr);
  EXPECT_EQ(ImageDecodeFile(testing::TempDir().c_str()), nullptr);   // a folder
  EXPECT_EQ(ImageDecodeFile(PilFixture("make_fixtures.py").c_str()), nullptr);   // not an image

  const std::string empty = testing::TempDir() + "image_codec_test_empty.png";
  { std::ofstream out(empty, std::ios::binary); }
  EXPECT_EQ(ImageDecodeFile(empty.c_str()), nullptr);
  std::remove(empty.c_str());

  const std::string png = ReadAll(PilFixture("palette_trns.png"));
  ASSERT_FALSE(png.empty());
  EXPECT_EQ(ImageDecodeBytes(nullptr, png.size()), nullptr);
  EXPECT_EQ(ImageDecodeBytes(png.data(), 0), nullptr);
  EXPECT_EQ(ImageDecodeBytes(png.data(), 8), nullptr);   // the signature alone
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
