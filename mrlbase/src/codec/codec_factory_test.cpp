#include <gtest/gtest.h>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

CA_ImageFormat Sniff(const Bytes& bytes) {
  CMRL_MemoryStream in(bytes.data(), bytes.size());
  return CA_GetImageFormat(&in);
}

Bytes Of(const char* text, size_t length) { return Bytes(text, text + length); }

TEST(CodecFactory, SignaturesNameTheFormat) {
  EXPECT_EQ(Sniff(Of("BM\0\0\0\0", 6)), CA_IMAGE_Bmp);
  EXPECT_EQ(Sniff(Of("GIF87a", 6)), CA_IMAGE_Gif);
  EXPECT_EQ(Sniff(Of("GIF89a..", 8)), CA_IMAGE_Gif);
  EXPECT_EQ(Sniff(Of("\xFF\xD8\xFF\xE0", 4)), CA_IMAGE_Jpeg);
  EXPECT_EQ(Sniff(Of("\0\0\0\x0CjP  \r\n\x87\n\0\0", 14)), CA_IMAGE_Jpeg2000);
  EXPECT_EQ(Sniff(Of("\xFF\x4F\xFF\x51\0\0", 6)), CA_IMAGE_Jpeg2000);
  EXPECT_EQ(Sniff(Of("\x97JB2\r\n\x1a\n\x01", 9)), CA_IMAGE_Jb2);
  EXPECT_EQ(Sniff(Of("\x89PNG\r\n\x1a\n", 8)), CA_IMAGE_Png);
  EXPECT_EQ(Sniff(Of("II*\0\x08\0\0\0", 8)), CA_IMAGE_Tif);
  EXPECT_EQ(Sniff(Of("MM\0*\0\0\0\x08", 8)), CA_IMAGE_Tif);
  // Near misses and short streams are unknown.
  EXPECT_EQ(Sniff(Of("GIF88a", 6)), CA_IMAGE_None);
  EXPECT_EQ(Sniff(Of("\x89PNG\r\n\x1a", 7)), CA_IMAGE_None);
  EXPECT_EQ(Sniff(Of("\xFF\xD8", 2)), CA_IMAGE_None);
  EXPECT_EQ(Sniff(Of("B", 1)), CA_IMAGE_None);
  EXPECT_EQ(Sniff(Bytes()), CA_IMAGE_None);
  EXPECT_EQ(CA_GetImageFormat(nullptr), CA_IMAGE_None);
  // The stream is only looked at: a second look sees the same bytes.
  const Bytes png = Of("\x89PNG\r\n\x1a\nrest", 12);
  CMRL_MemoryStream in(png.data(), png.size());
  EXPECT_EQ(CA_GetImageFormat(&in), CA_IMAGE_Png);
  EXPECT_EQ(CA_GetImageFormat(&in), CA_IMAGE_Png);
  EXPECT_EQ(in.GetSize(), png.size());
}

TEST(CodecFactory, MakesCodersForKnownFormatsOnly) {
  CCA_CodecFactory* factory = CCA_Context::Get()->GetCodecFactory();
  ASSERT_NE(factory, nullptr);
  EXPECT_EQ(CCA_Context::Get(), CCA_Context::Get());
  for (int f = 1; f <= 7; ++f) {
    std::unique_ptr<ICA_ImageDecoder> decoder(factory->CreateImageDecoder(static_cast<CA_ImageFormat>(f)));
    std::unique_ptr<ICA_ImageEncoder> encoder(factory->CreateImageEncoder(static_cast<CA_ImageFormat>(f)));
    EXPECT_NE(decoder, nullptr) << f;
    EXPECT_EQ(encoder != nullptr, f != CA_IMAGE_Jb2) << f;
  }
  for (int f : {0, -1, 8, 30}) {
    EXPECT_EQ(std::unique_ptr<ICA_ImageDecoder>(factory->CreateImageDecoder(static_cast<CA_ImageFormat>(f))), nullptr);
    EXPECT_EQ(std::unique_ptr<ICA_ImageEncoder>(factory->CreateImageEncoder(static_cast<CA_ImageFormat>(f))), nullptr);
  }
}

TEST(CodecFactory, DecodersRefuseOtherFormatsAndUnboundUse) {
  auto dib = Pattern(8, 8, CA_DIB_Rgb);
  const Bytes png = Encode(*dib, CA_IMAGE_Png);
  CMRL_MemoryStream in(png.data(), png.size());
  CCA_CodecFactory* factory = CCA_Context::Get()->GetCodecFactory();
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
  EXPECT_NE(std::unique_ptr<CCA_Dib>(decoder->Decode(0, 0, 0)), nullptr);   // and it still works
}

TEST(CodecFactory, EncodersRefuseEmptyInput) {
  CCA_Dib empty;
  auto dib = Pattern(4, 4, CA_DIB_Rgb);
  for (CA_ImageFormat f : {CA_IMAGE_Bmp, CA_IMAGE_Gif, CA_IMAGE_Jpeg, CA_IMAGE_Jpeg2000, CA_IMAGE_Png, CA_IMAGE_Tif}) {
    std::unique_ptr<ICA_ImageEncoder> encoder(CCA_Context::Get()->GetCodecFactory()->CreateImageEncoder(f));
    CMRL_MemoryStream out;
    EXPECT_EQ(encoder->Encode(nullptr, &out), 0) << f;
    EXPECT_EQ(encoder->Encode(&empty, &out), 0) << f;
    EXPECT_EQ(encoder->Encode(dib.get(), nullptr), 0) << f;
    EXPECT_EQ(out.GetSize(), 0u) << f;
  }
}

TEST(CodecFactory, LosslessFormatsRoundTripEveryLayoutExactly) {
  // JPEG 2000 is lossless at its default quality; GIF is for up to 256 colours.
  for (CA_ImageFormat f : {CA_IMAGE_Bmp, CA_IMAGE_Png, CA_IMAGE_Tif, CA_IMAGE_Gif, CA_IMAGE_Jpeg2000}) {
    for (CA_DibFormat layout : {CA_DIB_1bpp, CA_DIB_8bpp, CA_DIB_8bppMask, CA_DIB_Rgb, CA_DIB_Rgb32, CA_DIB_Argb}) {
      for (bool gray : {false, true}) {
        SCOPED_TRACE(testing::Message() << "format " << f << " layout " << layout << " gray " << gray);
        const bool manyColours = layout == CA_DIB_Rgb || layout == CA_DIB_Rgb32 || layout == CA_DIB_Argb;
        // GIF keeps alpha only as on/off, and at most 256 colours: give it what it can hold.
        if (f == CA_IMAGE_Gif && manyColours) continue;
        auto dib = Pattern(33, 21, layout, gray);
        ASSERT_NE(dib, nullptr);
        const Bytes bytes = Encode(*dib, f);
        ASSERT_FALSE(bytes.empty());
        EXPECT_EQ(Sniff(bytes), f);
        auto back = Decode(bytes);
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(CountDifferences(*dib, *back), 0);
        EXPECT_EQ(back->GetFormat() == CA_DIB_Argb, layout == CA_DIB_Argb);
      }
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
  // More than 256 colours still encode (quantised), to something close.
  auto many = Pattern(64, 64, CA_DIB_Rgb);
  auto back = Decode(Encode(*many, CA_IMAGE_Gif));
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->GetWidth(), 64);
}

TEST(CodecFactory, CutFilesOfEveryFormatAreRefused) {
  auto dib = Pattern(45, 37, CA_DIB_Rgb);
  for (CA_ImageFormat f : {CA_IMAGE_Bmp, CA_IMAGE_Png, CA_IMAGE_Tif, CA_IMAGE_Gif, CA_IMAGE_Jpeg2000, CA_IMAGE_Jpeg}) {
    const Bytes bytes = Encode(*dib, f);
    ASSERT_GT(bytes.size(), 100u) << f;
    ASSERT_NE(Decode(bytes), nullptr) << f;
    for (size_t cut : {size_t{1}, size_t{10}, size_t{40}, bytes.size() / 4, bytes.size() / 2, bytes.size() * 3 / 4,
                       bytes.size() - 2, bytes.size() - 1}) {
      EXPECT_EQ(Decode(Bytes(bytes.begin(), bytes.begin() + cut)), nullptr) << "format " << f << " cut at " << cut;
    }
  }
}

TEST(CodecFactory, DamagedBytesNeverCrash) {
  // Flipped bytes may still leave a readable file; what matters is a clean answer (the
  // sanitizer build turns any stray read into a failure).
  auto dib = Pattern(24, 24, CA_DIB_Argb);
  for (CA_ImageFormat f : {CA_IMAGE_Bmp, CA_IMAGE_Png, CA_IMAGE_Tif, CA_IMAGE_Gif, CA_IMAGE_Jpeg2000, CA_IMAGE_Jpeg}) {
    const Bytes bytes = Encode(*dib, f);
    ASSERT_FALSE(bytes.empty());
    uint32_t seed = 12345;
    for (int round = 0; round < 60; ++round) {
      Bytes damaged = bytes;
      for (int k = 0; k < 4; ++k) {
        seed = seed * 1103515245u + 12345u;
        damaged[(seed >> 8) % damaged.size()] ^= static_cast<uint8_t>(seed >> 24 | 1);
      }
      auto result = Decode(damaged);
      if (result) {
        EXPECT_GT(result->GetWidth(), 0);
      }
    }
  }
}

// A factory that counts what it is asked for and hands out nothing.
class CountingFactory : public CCA_CodecFactory {
 public:
  ICA_ImageDecoder* CreateImageDecoder(CA_ImageFormat format) override {
    lastDecoder = format;
    return nullptr;
  }
  ICA_ImageEncoder* CreateImageEncoder(CA_ImageFormat format) override {
    lastEncoder = format;
    return nullptr;
  }
  int lastDecoder = -1, lastEncoder = -1;
};

TEST(CodecFactory, ContextTakesAnInstalledFactoryAndRestoresTheBuiltIn) {
  CCA_Context* context = CCA_Context::Get();
  CCA_CodecFactory* builtin = context->GetCodecFactory();
  CountingFactory counting;
  EXPECT_EQ(context->SetCodecFactory(&counting), nullptr);
  EXPECT_EQ(context->GetCodecFactory(), &counting);
  EXPECT_EQ(context->GetCodecFactory()->CreateImageDecoder(CA_IMAGE_Png), nullptr);
  EXPECT_EQ(counting.lastDecoder, CA_IMAGE_Png);
  EXPECT_EQ(context->SetCodecFactory(nullptr), &counting);
  EXPECT_EQ(context->GetCodecFactory(), builtin);
}

}  // namespace
