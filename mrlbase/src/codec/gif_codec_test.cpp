#include <gtest/gtest.h>
#include <gif_lib.h>

#include <iterator>
#include <string>

#include "codec/codec_test_support.h"

using namespace codec_test;

namespace {

int Collect(GifFileType* gif, const GifByteType* data, int length) {
  auto* out = static_cast<Bytes*>(gif->UserData);
  out->insert(out->end(), data, data + length);
  return length;
}

struct Frame {
  int left, top, width, height;
  bool interlaced;
  std::vector<GifPixelType> indices;     // row-major, width * height
};

// giflib on its own: a screen with a 4-colour global map and the frames given.
Bytes WriteGif(int screenW, int screenH, int background, const std::vector<Frame>& frames) {
  Bytes out;
  int error = 0;
  GifFileType* gif = EGifOpen(&out, Collect, &error);
  ColorMapObject* map = GifMakeMapObject(4, nullptr);
  const GifColorType colors[4] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}};
  for (int i = 0; i < 4; ++i) map->Colors[i] = colors[i];
  EGifSetGifVersion(gif, true);
  EGifPutScreenDesc(gif, screenW, screenH, 2, background, map);
  for (const Frame& f : frames) {
    EGifPutImageDesc(gif, f.left, f.top, f.width, f.height, f.interlaced, nullptr);
    static const int start[4] = {0, 4, 2, 1}, step[4] = {8, 8, 4, 2};
    std::vector<int> order;
    for (int pass = 0; pass < (f.interlaced ? 4 : 1); ++pass) {
      for (int y = f.interlaced ? start[pass] : 0; y < f.height; y += f.interlaced ? step[pass] : 1) order.push_back(y);
    }
    for (int y : order) EGifPutLine(gif, const_cast<GifPixelType*>(&f.indices[static_cast<size_t>(y) * f.width]), f.width);
  }
  EGifCloseFile(gif, &error);
  GifFreeMapObject(map);
  return out;
}

Frame MakeFrame(int left, int top, int w, int h, bool interlaced, int salt) {
  Frame f{left, top, w, h, interlaced, {}};
  for (int i = 0; i < w * h; ++i) f.indices.push_back(static_cast<GifPixelType>((i % w + 2 * (i / w) + salt) % 4));
  return f;
}

const uint32_t kColors[4] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu};

TEST(GifCodec, FramesOfAnAnimationWithInterlaceAndPlacementAndCuts) {
  const std::vector<Frame> frames = {MakeFrame(2, 3, 11, 13, true, 0), MakeFrame(0, 0, 20, 20, false, 1)};
  const Bytes file = WriteGif(20, 20, 3, frames);
  auto first = Decode(file);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->GetFormat(), CA_DIB_8bpp);
  EXPECT_EQ(first->GetWidth(), 20);
  int bad = 0;
  for (int y = 0; y < 20; ++y) {
    for (int x = 0; x < 20; ++x) {
      const bool inside = x >= 2 && x < 13 && y >= 3 && y < 16;
      bad += Argb(*first, x, y) != (inside ? kColors[frames[0].indices[(y - 3) * 11 + (x - 2)]] : kColors[3]);   // background 3
    }
  }
  EXPECT_EQ(bad, 0);
  // The second frame can be asked for by number; a third does not exist.
  auto second = Decode(file, 1);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(Argb(*second, 5, 7), kColors[(5 + 14 + 1) % 4]);
  EXPECT_EQ(Decode(file, 2), nullptr);
  // A frame decodes when all of it is there, whatever follows; a cut inside it refuses it. The
  // first frame ends where the file of that frame alone has its trailer.
  const size_t firstEnd = WriteGif(20, 20, 3, {frames[0]}).size() - 1;
  for (size_t cut : {size_t{6}, size_t{40}, firstEnd - 1, firstEnd, firstEnd + 20, file.size() - 2}) {
    auto head = Decode(Head(file, cut));
    EXPECT_EQ(head != nullptr, cut >= firstEnd) << cut;
    if (head) EXPECT_EQ(CountDifferences(*head, *first), 0) << cut;
    EXPECT_EQ(Decode(Head(file, cut), 1), nullptr) << cut;
  }
  auto noTrailer = Decode(Head(file, file.size() - 1), 1);
  ASSERT_NE(noTrailer, nullptr);
  EXPECT_EQ(CountDifferences(*noTrailer, *second), 0);
  // Junk after a whole frame (here another file's header) spoils only what comes after it.
  Bytes junk = Head(file, firstEnd);
  const uint8_t glued[] = {'G', 'I', 'F', '8', '9', 'a', 20, 0, 20, 0, 0x81, 0, 0, 0xFF};
  junk.insert(junk.end(), std::begin(glued), std::end(glued));
  auto beforeJunk = Decode(junk);
  ASSERT_NE(beforeJunk, nullptr);
  EXPECT_EQ(CountDifferences(*beforeJunk, *first), 0);
  EXPECT_EQ(Decode(junk, 1), nullptr);
}

// Files of other writers: the first frame of each decodes, junk after it or not.
TEST(GifCodec, CorpusFilesDecode) {
  const std::string dir = TestDataDir() + "/imagecorpus/files/";
  std::vector<std::string> paths;
  for (const std::string& name : ListFiles(dir + "gif-test-suite", ".gif")) paths.push_back(dir + "gif-test-suite/" + name);
  if (paths.empty()) GTEST_SKIP() << "no corpus at " << dir;
  paths.push_back(dir + "pillow/test_extents_transparency.gif");   // a second file glued after the first frame
  for (const std::string& path : paths) {
    Bytes bytes;
    ASSERT_TRUE(ReadFileBytes(path, bytes)) << path;
    EXPECT_NE(Decode(bytes), nullptr) << path;
  }
}

}  // namespace
