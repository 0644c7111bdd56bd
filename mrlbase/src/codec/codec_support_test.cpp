#include "codec/codec_support.h"

#include <gtest/gtest.h>

#include <mrlbase/stream.h>

#include <string>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

// An encoder whose output and outcome the test chooses; it records the bitmap it was given.
class ScriptedEncoder final : public mrl_codec::EncoderBase {
 public:
  explicit ScriptedEncoder(bool succeed) : succeed_(succeed) {}
  int seenPaletteSize = -1;

 protected:
  bool EncodeDib(const CCA_Dib& dib, IMRL_StreamWrite& stream) override {
    seenPaletteSize = dib.GetPaletteSize();
    stream.WriteBlock("head", 4);
    stream.WriteBlock("body", 4);
    return succeed_;
  }

 private:
  bool succeed_;
};

// Counts the blocks it is given and can refuse them.
class RecordingStream final : public IMRL_StreamWrite {
 public:
  explicit RecordingStream(bool accept = true) : accept_(accept) {}
  bool WriteBlock(const void* data, size_t size) override {
    ++blocks;
    if (accept_) bytes.append(static_cast<const char*>(data), size);
    return accept_;
  }
  bool Flush() override { return true; }
  int blocks = 0;
  std::string bytes;

 private:
  bool accept_;
};

TEST(EncoderBase, TheStreamGetsTheWholeFileInOneBlockOrNothing) {
  auto dib = Pattern(5, 3, CA_DIB_Rgb);
  RecordingStream good;
  ScriptedEncoder succeeds(true), fails(false);
  EXPECT_EQ(succeeds.Encode(dib.get(), &good), 1);
  EXPECT_EQ(good.bytes, "headbody");
  EXPECT_EQ(good.blocks, 1);
  RecordingStream untouched;
  EXPECT_EQ(fails.Encode(dib.get(), &untouched), 0);
  EXPECT_EQ(untouched.blocks, 0) << "a failed encoder wrote part of its file";
  RecordingStream refusing(false);
  EXPECT_EQ(succeeds.Encode(dib.get(), &refusing), 0);
}

TEST(EncoderBase, IndexedBitmapsReachTheEncoderWithAPaletteCoveringEveryPixel) {
  // 8 bpp with three entries and pixels up to index 200; 1 bpp with one entry and both indexes.
  CCA_Dib indexed, bilevel;
  ASSERT_TRUE(indexed.Create(7, 2, CA_DIB_8bpp));
  ASSERT_TRUE(bilevel.Create(9, 1, CA_DIB_1bpp));
  const unsigned three[3] = {0x112233, 0x445566, 0x778899};
  ASSERT_TRUE(indexed.SetPalette(three, 3));
  ASSERT_TRUE(bilevel.SetPalette(three, 1));
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

TEST(PixelsPerMetre, RoundsAndStaysWithinTheFileField) {
  EXPECT_EQ(mrl_codec::PixelsPerMetre(0), 0u);
  EXPECT_EQ(mrl_codec::PixelsPerMetre(-5), 0u);
  EXPECT_EQ(mrl_codec::PixelsPerMetre(72), 2835u);
  EXPECT_EQ(mrl_codec::PixelsPerMetre(300), 11811u);
  // Past about 54 million dpi the count no longer fits the 31 bits both formats allow.
  EXPECT_EQ(mrl_codec::PixelsPerMetre(54000000), 2125984252u);
  EXPECT_EQ(mrl_codec::PixelsPerMetre(110000000), 0x7FFFFFFFu);
  EXPECT_EQ(mrl_codec::PixelsPerMetre(2147483647), 0x7FFFFFFFu);
}

}  // namespace
