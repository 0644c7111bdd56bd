#include "codec/codec_support.h"

#include <gtest/gtest.h>

#include <mrlbase/stream.h>

#include <cstring>
#include <string>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

// Writes its file in two blocks with the outcome the test chooses; records the palette it saw.
struct ScriptedEncoder final : mrl_codec::EncoderBase {
  explicit ScriptedEncoder(bool succeed) : succeed(succeed) {}
  bool succeed;
  int seenPaletteSize = -1;
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) override {
    seenPaletteSize = dib.GetPaletteSize();
    stream.WriteBlock("head", 4);
    stream.WriteBlock("body", 4);
    return succeed;
  }
};

struct RecordingStream final : IMRL_StreamWrite {
  explicit RecordingStream(bool accept = true) : accept(accept) {}
  bool accept;
  int blocks = 0;
  std::string bytes;
  bool WriteBlock(const void* data, size_t size) override {
    ++blocks;
    if (accept) bytes.append(static_cast<const char*>(data), size);
    return accept;
  }
  bool Flush() override { return true; }
};

TEST(EncoderBase, TheStreamGetsTheWholeFileInOneBlockOrNothing) {
  auto dib = Pattern(5, 3, CA_DIB_Rgb);
  RecordingStream good, untouched, refusing(false);
  ScriptedEncoder succeeds(true), fails(false);
  EXPECT_EQ(succeeds.Encode(dib.get(), &good), 1);
  EXPECT_EQ(good.bytes, "headbody");
  EXPECT_EQ(good.blocks, 1);
  EXPECT_EQ(fails.Encode(dib.get(), &untouched), 0);
  EXPECT_EQ(untouched.blocks, 0) << "a failed encoder wrote part of its file";
  EXPECT_EQ(succeeds.Encode(dib.get(), &refusing), 0);
}

TEST(EncoderBase, IndexedBitmapsReachTheEncoderWithAPaletteCoveringEveryPixel) {
  // 8 bpp with three entries and pixels up to index 200; 1 bpp with one entry and both indexes.
  CCA_Dib indexed, bilevel;
  const unsigned three[3] = {0x112233, 0x445566, 0x778899};
  ASSERT_TRUE(indexed.Create(7, 2, CA_DIB_8bpp) && bilevel.Create(9, 1, CA_DIB_1bpp));
  ASSERT_TRUE(indexed.SetPalette(three, 3) && bilevel.SetPalette(three, 1));
  indexed.SetPixel(CMRL_PSVTemplate<int>(6, 1), 200);
  bilevel.SetPixel(CMRL_PSVTemplate<int>(8, 0), 1);
  RecordingStream out;
  ScriptedEncoder encoder(true);
  ASSERT_EQ(encoder.Encode(&indexed, &out), 1);
  EXPECT_EQ(encoder.seenPaletteSize, 201);
  ASSERT_EQ(encoder.Encode(&bilevel, &out), 1);
  EXPECT_EQ(encoder.seenPaletteSize, 2);

  auto grown = mrl_codec::WithFullPalette(indexed);
  ASSERT_NE(grown, nullptr);
  EXPECT_EQ(CountDifferences(indexed, *grown), 0) << "growing the palette changed a pixel";
  EXPECT_EQ(grown->GetPaletteEntry(2), 0x778899u);
  EXPECT_EQ(grown->GetPaletteEntry(200), 0u);
  // Nothing to grow: a covering palette, or no palette at all.
  indexed.SetPixel(CMRL_PSVTemplate<int>(6, 1), 2);
  EXPECT_EQ(mrl_codec::WithFullPalette(indexed), nullptr);
  EXPECT_EQ(mrl_codec::WithFullPalette(*Pattern(3, 3, CA_DIB_Rgb)), nullptr);
}

// A stream that is no memory stream: serves `bytes` (or claims `claimed` bytes) and counts reads.
struct StringStream final : IMRL_StreamRead {
  explicit StringStream(std::string bytes, size_t claimed = 0) : bytes(std::move(bytes)), claimed(claimed) {}
  std::string bytes;
  size_t claimed;
  int reads = 0;
  size_t GetSize() override { return claimed ? claimed : bytes.size(); }
  bool ReadBlock(void* buffer, size_t offset, size_t size) override {
    ++reads;
    if (offset > bytes.size() || size > bytes.size() - offset) return false;
    std::memcpy(buffer, bytes.data() + offset, size);
    return true;
  }
};

// A memory stream that shows only what follows its first `skip` bytes.
struct SkippingMemoryStream final : CMRL_MemoryStream {
  SkippingMemoryStream(const void* data, size_t size, size_t skip) : CMRL_MemoryStream(data, size), skip(skip) {}
  size_t skip;
  size_t GetSize() override { return CMRL_MemoryStream::GetSize() - skip; }
  bool ReadBlock(void* buffer, size_t offset, size_t size) override { return CMRL_MemoryStream::ReadBlock(buffer, offset + skip, size); }
};

std::string Text(const mrl_codec::StreamBytes& bytes) {
  return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

TEST(StreamBytes, MemoryStreamsAreSeenInPlaceOtherStreamsThroughTheirReads) {
  const std::string text("\xFF\xD8\0 sixteen and more bytes", 26);
  mrl_codec::StreamBytes bytes;
  CMRL_MemoryStream memory(text.data(), text.size());
  ASSERT_TRUE(bytes.Load(&memory));
  EXPECT_EQ(bytes.data(), memory.GetData());
  EXPECT_EQ(Text(bytes), text);

  StringStream other(text);
  ASSERT_TRUE(bytes.Load(&other));
  EXPECT_EQ(Text(bytes), text);
  EXPECT_EQ(other.reads, 1);
  // A class derived from the memory stream may show other bytes than its buffer holds.
  SkippingMemoryStream skipping(text.data(), text.size(), 3);
  ASSERT_TRUE(bytes.Load(&skipping));
  EXPECT_EQ(Text(bytes), text.substr(3));

  // Refusals leave nothing behind, whatever an earlier load held.
  CMRL_MemoryStream empty;
  StringStream liar(text, size_t{1} << 31), failing(text, text.size() + 1);
  for (IMRL_StreamRead* stream : {static_cast<IMRL_StreamRead*>(nullptr), static_cast<IMRL_StreamRead*>(&empty),
                                  static_cast<IMRL_StreamRead*>(&liar), static_cast<IMRL_StreamRead*>(&failing)}) {
    ASSERT_TRUE(bytes.Load(&memory));
    EXPECT_FALSE(bytes.Load(stream));
    EXPECT_EQ(bytes.data(), nullptr);
    EXPECT_EQ(bytes.size(), 0u);
  }
  EXPECT_EQ(liar.reads, 0) << "an absurd size was not refused before reading";
  EXPECT_EQ(failing.reads, 1);
}

TEST(DecoderBase, EveryKindOfStreamGivesTheSameBitmap) {
  const auto page = Pattern(37, 11, CA_DIB_Rgb);
  const std::string junk = "junk ahead";
  for (CA_ImageFormat format : {CA_IMAGE_Png, CA_IMAGE_Jpeg, CA_IMAGE_Tif, CA_IMAGE_Bmp, CA_IMAGE_Gif}) {
    SCOPED_TRACE(format);
    const Bytes file = Encode(*page, format);
    ASSERT_FALSE(file.empty());
    const auto want = Decode(file);
    Bytes prefixed(junk.begin(), junk.end());
    prefixed.insert(prefixed.end(), file.begin(), file.end());
    StringStream other(std::string(file.begin(), file.end()));
    SkippingMemoryStream skipping(prefixed.data(), prefixed.size(), junk.size());
    for (IMRL_StreamRead* stream : {static_cast<IMRL_StreamRead*>(&other), static_cast<IMRL_StreamRead*>(&skipping)}) {
      std::unique_ptr<ICA_ImageDecoder> decoder(CCA_Context::Get()->GetCodecFactory()->CreateImageDecoder(format));
      ASSERT_TRUE(decoder && decoder->SetStream(stream, 1) == 1);
      const std::unique_ptr<CCA_Dib> got(decoder->Decode(0, 0, 0));
      ASSERT_TRUE(got && want);
      ASSERT_EQ(got->GetFormat(), want->GetFormat());
      EXPECT_EQ(CountDifferences(*got, *want), 0);
    }
  }
}

TEST(NewDibToOverwrite, OnceEveryPixelIsWrittenTheBufferIsNewDibs) {
  // Widths around the byte and word ends of a row's padding, one row and several.
  for (CA_DibFormat format : kLayouts) {
    for (int w : {1, 7, 8, 9, 31, 33}) {
      for (int h : {1, 4}) {
        SCOPED_TRACE(testing::Message() << "format " << format << " " << w << "x" << h);
        auto plain = mrl_codec::NewDib(w, h, format);
        {
          // Memory of the same size scribbled on and freed, which the next allocation likely reuses.
          auto dirty = mrl_codec::NewDib(w, h, format);
          std::memset(dirty->GetBuffer(), 0xC3, static_cast<size_t>(dirty->GetPitch()) * h);
        }
        auto fast = mrl_codec::NewDibToOverwrite(w, h, format);
        ASSERT_NE(fast, nullptr);
        ASSERT_EQ(fast->GetFormat(), format);
        ASSERT_EQ(fast->GetPitch(), plain->GetPitch());
        ASSERT_EQ(fast->GetPaletteSize(), plain->GetPaletteSize());
        for (int i = 0; i < plain->GetPaletteSize(); ++i) EXPECT_EQ(fast->GetPaletteEntry(i), plain->GetPaletteEntry(i));
        for (int y = 0; y < h; ++y) {
          for (int x = 0; x < w; ++x) {
            const unsigned v = static_cast<unsigned>(x * 0x9E3779B9u + y * 0x7F4A7C15u);
            plain->SetPixel(CMRL_PSVTemplate<int>(x, y), v);
            fast->SetPixel(CMRL_PSVTemplate<int>(x, y), v);
          }
        }
        EXPECT_EQ(BufferBytes(*fast), BufferBytes(*plain));
        EXPECT_EQ(BufferBytes(*std::unique_ptr<CCA_Dib>(fast->Clone())), BufferBytes(*plain));
      }
    }
  }
  // The sizes and layouts NewDib refuses.
  for (const auto& size : std::initializer_list<std::pair<int, int>>{{0, 5}, {5, -3}, {1 << 15, 1 << 14}}) {
    EXPECT_EQ(mrl_codec::NewDibToOverwrite(size.first, size.second, CA_DIB_Rgb), nullptr) << size.first << "x" << size.second;
  }
  EXPECT_EQ(mrl_codec::NewDibToOverwrite(4, 4, CA_DIB_Invalid), nullptr);
  EXPECT_EQ(mrl_codec::NewDibToOverwrite(4, 4, static_cast<CA_DibFormat>(7)), nullptr);
}

TEST(PixelsPerMetre, RoundsAndStaysWithinTheFileField) {
  EXPECT_EQ(mrl_codec::PixelsPerMetre(-5), 0u);
  EXPECT_EQ(mrl_codec::PixelsPerMetre(72), 2835u);
  // Past about 54 million dpi the count no longer fits the 31 bits both formats allow.
  EXPECT_EQ(mrl_codec::PixelsPerMetre(54000000), 2125984252u);
  EXPECT_EQ(mrl_codec::PixelsPerMetre(110000000), 0x7FFFFFFFu);
  EXPECT_EQ(mrl_codec::PixelsPerMetre(2147483647), 0x7FFFFFFFu);
}

}  // namespace
