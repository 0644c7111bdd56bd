#include <gtest/gtest.h>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

CA_ImageFormat Sniff(const Bytes& bytes) {
  CMRL_MemoryStream in(bytes.data(), bytes.size());
  return CA_GetImageFormat(&in);
}

constexpr CA_ImageFormat kWritable[] = {CA_IMAGE_Bmp, CA_IMAGE_Png, CA_IMAGE_Tif, CA_IMAGE_Gif, CA_IMAGE_Jpeg2000, CA_IMAGE_Jpeg};

TEST(CodecFactory, SignaturesNameTheFormat) {
  const std::pair<std::string, CA_ImageFormat> cases[] = {
      {{"BM\0\0\0\0", 6}, CA_IMAGE_Bmp}, {"GIF89a..", CA_IMAGE_Gif}, {"\xFF\xD8\xFF\xE0", CA_IMAGE_Jpeg},
      {{"\0\0\0\x0CjP  \r\n\x87\n\0\0", 14}, CA_IMAGE_Jpeg2000}, {{"\xFF\x4F\xFF\x51\0\0", 6}, CA_IMAGE_Jpeg2000},
      {"\x97JB2\r\n\x1a\n\x01", CA_IMAGE_Jb2}, {"\x89PNG\r\n\x1a\n", CA_IMAGE_Png},
      {{"II*\0\x08\0\0\0", 8}, CA_IMAGE_Tif}, {{"MM\0*\0\0\0\x08", 8}, CA_IMAGE_Tif},
      // near misses and short streams are unknown
      {"GIF88a", CA_IMAGE_None}, {"\x89PNG\r\n\x1a", CA_IMAGE_None}, {"", CA_IMAGE_None},
  };
  for (const auto& c : cases) EXPECT_EQ(Sniff(Bytes(c.first.begin(), c.first.end())), c.second) << c.first;
  EXPECT_EQ(CA_GetImageFormat(nullptr), CA_IMAGE_None);
  // The stream is only looked at: a second look sees the same bytes.
  const Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 'r', 'e', 's', 't'};
  CMRL_MemoryStream in(png.data(), png.size());
  EXPECT_EQ(CA_GetImageFormat(&in), CA_IMAGE_Png);
  EXPECT_EQ(CA_GetImageFormat(&in), CA_IMAGE_Png);
}

TEST(CodecFactory, CodersExistForKnownFormatsAndRefuseMisuse) {
  CCA_CodecFactory* factory = CCA_Context::Get()->GetCodecFactory();
  ASSERT_NE(factory, nullptr);
  for (int f : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8}) {
    std::unique_ptr<ICA_ImageDecoder> decoder(factory->CreateImageDecoder(static_cast<CA_ImageFormat>(f)));
    std::unique_ptr<ICA_ImageEncoder> encoder(factory->CreateImageEncoder(static_cast<CA_ImageFormat>(f)));
    EXPECT_EQ(decoder != nullptr, f >= 1 && f <= 7) << f;
    EXPECT_EQ(encoder != nullptr, f >= 1 && f <= 7 && f != CA_IMAGE_Jb2) << f;
  }
  // A decoder refuses another format's stream and no stream at all.
  const Bytes png = Encode(*Pattern(8, 8, CA_DIB_Rgb), CA_IMAGE_Png);
  CMRL_MemoryStream in(png.data(), png.size());
  for (CA_ImageFormat f : {CA_IMAGE_Bmp, CA_IMAGE_Gif, CA_IMAGE_Jpeg, CA_IMAGE_Jpeg2000, CA_IMAGE_Jb2, CA_IMAGE_Tif}) {
    std::unique_ptr<ICA_ImageDecoder> decoder(factory->CreateImageDecoder(f));
    EXPECT_EQ(decoder->SetStream(&in, 1), 0) << f;
    EXPECT_EQ(decoder->SetStream(nullptr, 1), 0) << f;
    EXPECT_EQ(std::unique_ptr<CCA_Dib>(decoder->Decode(0, 0, 0)), nullptr) << f;
  }
  std::unique_ptr<ICA_ImageDecoder> decoder(factory->CreateImageDecoder(CA_IMAGE_Png));
  ASSERT_NE(decoder->SetStream(&in, 1), 0);
  EXPECT_EQ(std::unique_ptr<CCA_Dib>(decoder->Decode(1, 0, 0)), nullptr);    // one frame only
  EXPECT_EQ(std::unique_ptr<CCA_Dib>(decoder->Decode(0, 99, 0)), nullptr);   // no such layout
  EXPECT_NE(std::unique_ptr<CCA_Dib>(decoder->Decode(0, 0, 0)), nullptr);    // and it still works
  // An encoder refuses a missing or empty bitmap, a missing stream and a size beyond a 16-bit
  // field (GIF, JPEG), writing nothing.
  CCA_Dib empty;
  auto wide = Pattern(70000, 1, CA_DIB_Rgb);
  for (CA_ImageFormat f : kWritable) {
    std::unique_ptr<ICA_ImageEncoder> encoder(factory->CreateImageEncoder(f));
    CMRL_MemoryStream out;
    EXPECT_EQ(encoder->Encode(nullptr, &out), 0) << f;
    EXPECT_EQ(encoder->Encode(&empty, &out), 0) << f;
    EXPECT_EQ(encoder->Encode(Pattern(4, 4, CA_DIB_Rgb).get(), nullptr), 0) << f;
    if (f == CA_IMAGE_Gif || f == CA_IMAGE_Jpeg) EXPECT_EQ(encoder->Encode(wide.get(), &out), 0) << f;
    EXPECT_EQ(out.GetSize(), 0u) << f;
  }
}

TEST(CodecFactory, EveryEncoderWritesEveryLayoutADecoderCanGive) {
  // JPEG 2000 is lossless at its default quality; GIF is exact only for palette and gray layouts.
  // Beside the plain layouts: palettes shorter than the indexes in use, as a damaged BMP or GIF
  // gives them. Those indexes read as black, and the lossless formats must keep them so.
  std::vector<std::unique_ptr<CCA_Dib>> dibs;
  for (CA_DibFormat layout : kLayouts) {
    for (bool gray : {false, true}) dibs.push_back(Pattern(33, 21, layout, gray));   // odd width: row padding matters
  }
  const unsigned entries[101] = {0x8000FF, 0x00FF00, 0xFF0000};
  for (int count : {1, 101}) {
    auto dib = Pattern(33, 21, CA_DIB_8bpp);   // indexes 0..255
    ASSERT_TRUE(dib->SetPalette(entries, count));
    dibs.push_back(std::move(dib));
  }
  auto bilevel = Pattern(33, 21, CA_DIB_1bpp);
  ASSERT_TRUE(bilevel->SetPalette(entries, 1));
  dibs.push_back(std::move(bilevel));
  for (CA_ImageFormat f : kWritable) {
    for (const auto& dib : dibs) {
      SCOPED_TRACE(testing::Message() << "format " << f << " layout " << dib->GetFormat() << " palette " << dib->GetPaletteSize());
      const Bytes bytes = Encode(*dib, f);
      ASSERT_FALSE(bytes.empty());
      EXPECT_EQ(Sniff(bytes), f);
      auto back = Decode(bytes);
      ASSERT_NE(back, nullptr);
      ASSERT_EQ(back->GetWidth(), 33);
      ASSERT_EQ(back->GetHeight(), 21);
      if (f == CA_IMAGE_Jpeg || (f == CA_IMAGE_Gif && dib->GetFormat() >= CA_DIB_Rgb)) continue;
      EXPECT_EQ(CountDifferences(*dib, *back), 0);
      EXPECT_EQ(back->GetFormat() == CA_DIB_Argb, dib->GetFormat() == CA_DIB_Argb);
    }
  }
}

TEST(CodecFactory, GifKeepsUpTo256ColoursAndBinaryAlphaExactly) {
  CCA_Dib rgb, argb;
  ASSERT_TRUE(rgb.Create(40, 30, CA_DIB_Rgb));
  ASSERT_TRUE(argb.Create(40, 30, CA_DIB_Argb));
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 40; ++x) {
      // 8 x 8 x 4 = 256 colours at most; 8 x 8 x 3 = 192 beside the transparent entry.
      const unsigned rg = (((x % 8) * 32) << 16) | (((y % 8) * 32) << 8);
      rgb.SetPixel(CMRL_PSVTemplate<int>(x, y), rg | ((x + y) % 4) * 64);
      argb.SetPixel(CMRL_PSVTemplate<int>(x, y), (x * y) % 7 == 0 ? 0u : 0xFF000000u | rg | ((x + y) % 3) * 64);
    }
  }
  for (const CCA_Dib* dib : {&rgb, &argb}) {
    auto back = Decode(Encode(*dib, CA_IMAGE_Gif));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(CountDifferences(*dib, *back), 0);
  }
}

TEST(CodecFactory, CutOrDamagedFilesOfEveryFormatAreHandledCleanly) {
  auto dib = Pattern(45, 37, CA_DIB_Argb);
  for (CA_ImageFormat f : kWritable) {
    const Bytes bytes = Encode(*dib, f);
    ASSERT_GT(bytes.size(), 100u) << f;
    auto whole = Decode(bytes);
    ASSERT_NE(whole, nullptr) << f;
    for (size_t cut : {size_t{10}, bytes.size() / 2, bytes.size() * 3 / 4}) {
      EXPECT_EQ(Decode(Head(bytes, cut)), nullptr) << "format " << f << " cut at " << cut;
    }
    // Cut in what follows the pixels (a trailer, an end chunk): refused, or every pixel is there.
    for (size_t cut : {bytes.size() - 2, bytes.size() - 1}) {
      auto partial = Decode(Head(bytes, cut));
      if (partial) EXPECT_EQ(CountDifferences(*whole, *partial), 0) << "format " << f << " cut at " << cut;
    }
    // Flipped bytes may still leave a readable file; what matters is a clean answer (the
    // sanitizer build turns any stray read into a failure).
    uint32_t seed = 12345;
    for (int round = 0; round < 30; ++round) {
      Bytes damaged = bytes;
      for (int k = 0; k < 4; ++k) {
        seed = seed * 1103515245u + 12345u;
        damaged[(seed >> 8) % damaged.size()] ^= static_cast<uint8_t>(seed >> 24 | 1);
      }
      auto result = Decode(damaged);
      EXPECT_TRUE(!result || result->GetWidth() > 0);
    }
  }
}

TEST(CodecFactory, ContextTakesAnInstalledFactoryAndRestoresTheBuiltIn) {
  struct CountingFactory : CCA_CodecFactory {
    ICA_ImageDecoder* CreateImageDecoder(CA_ImageFormat format) override {
      last = format;
      return nullptr;
    }
    ICA_ImageEncoder* CreateImageEncoder(CA_ImageFormat) override { return nullptr; }
    int last = -1;
  } counting;
  CCA_Context* context = CCA_Context::Get();
  CCA_CodecFactory* builtin = context->GetCodecFactory();
  EXPECT_EQ(context->SetCodecFactory(&counting), nullptr);
  EXPECT_EQ(context->GetCodecFactory()->CreateImageDecoder(CA_IMAGE_Png), nullptr);
  EXPECT_EQ(counting.last, CA_IMAGE_Png);
  EXPECT_EQ(context->SetCodecFactory(nullptr), &counting);
  EXPECT_EQ(context->GetCodecFactory(), builtin);
}

}  // namespace
