#include "image/content_bounds_kernels.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "image/auto_clip_reference.h"

namespace {

using content_bounds::RowKernels;
using R = CMRL_DeviceRectTemplate<int>;

struct Named { const char* name; ContentBoundsKernels choice; const RowKernels* kernels; };

// The vector kernels this machine can run; each is checked against the portable one.
std::vector<Named> VectorKernels() {
  std::vector<Named> out;
  if (const RowKernels* k = content_bounds::Sse2RowKernels()) out.push_back({"sse2", ContentBoundsKernels::kSse2, k});
  if (const RowKernels* k = content_bounds::Avx2RowKernels()) out.push_back({"avx2", ContentBoundsKernels::kAvx2, k});
  return out;
}

std::vector<Named> AllKernels() {
  std::vector<Named> out = {{"portable", ContentBoundsKernels::kPortable, &content_bounds::PortableRowKernels()}};
  for (const Named& k : VectorKernels()) out.push_back(k);
  out.push_back({"widest", ContentBoundsKernels::kWidest, &content_bounds::BestRowKernels()});
  return out;
}

std::string Str(const R& r) {
  return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," + std::to_string(r.bottom);
}

int Gray(int b, int g, int r) { return static_cast<int>(g * 0.587 + r * 0.299 + b * 0.114); }

// Every colour, with the unread fourth byte scrambled: the integer sums must round exactly like
// the weighted double sum, including the colours whose sum lands on a whole number.
TEST(ContentBoundsKernels, GrayOfEveryColourMatchesTheDoubleSum) {
  std::vector<unsigned char> pixels(256 * 4), want(256), got(256 + 1);
  for (const Named& k : AllKernels()) {
    int wrong = 0;
    for (unsigned b = 0; b < 256; ++b)
      for (unsigned g = 0; g < 256; ++g) {
        for (unsigned r = 0; r < 256; ++r) {
          // Red runs on from b + g, so neighbours differ and no block repeats the last pixel.
          const unsigned red = (r + b + g) & 0xFF;
          const unsigned char px[4] = {static_cast<unsigned char>(b), static_cast<unsigned char>(g),
                                       static_cast<unsigned char>(red), static_cast<unsigned char>(r * 37 + g)};
          std::copy(px, px + 4, pixels.begin() + r * 4);
          want[r] = static_cast<unsigned char>(Gray(b, g, red));
        }
        got[256] = 0xA5;
        EXPECT_EQ(k.kernels->gray(pixels.data(), 256, got.data()), -1);
        EXPECT_EQ(got[256], 0xA5) << k.name << ": wrote past the row";
        wrong += !std::equal(want.begin(), want.end(), got.begin());
      }
    EXPECT_EQ(wrong, 0) << k.name << ": rows with a wrong gray";
  }
}

// One colour along a row (the fourth byte aside) answers its gray; a single other pixel anywhere
// answers -1. Runs of a few colours make blocks repeat the last pixel converted or differ from it
// only in the unread byte: the shortcut for repeated pixels must never reuse a stale gray.
TEST(ContentBoundsKernels, GrayOfOneColourRowsAndOfRuns) {
  std::mt19937 random(7);
  for (const Named& k : AllKernels())
    for (int w = 1; w <= 120; ++w) {
      unsigned char palette[3][3];
      for (auto& colour : palette)
        for (unsigned char& c : colour) c = static_cast<unsigned char>(random());
      std::vector<unsigned char> pixels(static_cast<size_t>(w) * 4), want(w), got(w);
      auto paint = [&](int x, const unsigned char* colour) {
        std::copy(colour, colour + 3, pixels.begin() + x * 4);
        pixels[x * 4 + 3] = static_cast<unsigned char>(random());
        want[x] = static_cast<unsigned char>(Gray(colour[0], colour[1], colour[2]));
      };
      for (int x = 0; x < w; ++x) paint(x, palette[0]);
      EXPECT_EQ(k.kernels->gray(pixels.data(), w, got.data()), want[0]) << k.name << " w " << w;
      EXPECT_EQ(want, got) << k.name << " w " << w;
      if (w > 1) {  // a single pixel is always of one colour
        pixels[(random() % w) * 4 + random() % 3] ^= 1;
        EXPECT_EQ(k.kernels->gray(pixels.data(), w, got.data()), -1) << k.name << " w " << w;
      }
      for (int x = 0; x < w;) {  // short runs between block-long ones
        const unsigned char* colour = palette[random() % 3];
        for (int run = random() % 2 ? 14 + random() % 20 : 1 + random() % 3; run > 0 && x < w; --run) paint(x++, colour);
      }
      k.kernels->gray(pixels.data(), w, got.data());
      EXPECT_EQ(want, got) << k.name << " runs, w " << w;
    }
}

// Edges: rows of gray with flat stretches, steps of every height and noise, at every width up to
// 70 and at unaligned starts, must give the portable kernel's bytes and flags. Linking: long runs
// of middle values across the vector blocks make a raised pixel carry along a run into the next.
TEST(ContentBoundsKernels, VectorEdgesAndLinkingMatchThePortableKernel) {
  std::mt19937 random(11);
  const RowKernels& plain = content_bounds::PortableRowKernels();
  for (const Named& k : VectorKernels())
    for (int round = 0; round < 6; ++round)
      for (int w = 3; w <= 70; ++w) {
        const int offset = static_cast<int>(random() % 16);
        std::vector<unsigned char> rows(3 * (static_cast<size_t>(w) + 16));
        const int level = static_cast<int>(random() % 256), spread = 1 + static_cast<int>(random() % (round < 3 ? 40 : 256));
        for (unsigned char& v : rows) v = static_cast<unsigned char>(std::min(255, level + static_cast<int>(random() % spread)));
        if (round == 1)  // a flat row with a few steps
          for (size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<unsigned char>(i % 23 < 11 ? level : 255 - level);
        const unsigned char *top = rows.data() + offset, *mid = top + w + 5, *bottom = mid + w + 5;
        std::vector<unsigned char> want(w + 1, 0xA5), got(w + 1, 0xA5);
        const content_bounds::EdgeFlags a = plain.edges(top, mid, bottom, w, want.data());
        const content_bounds::EdgeFlags b = k.kernels->edges(top, mid, bottom, w, got.data());
        EXPECT_EQ(want, got) << k.name << " w " << w << " round " << round;  // the byte past the row too
        EXPECT_TRUE(a.middle == b.middle && a.nonzero == b.nonzero) << k.name << " w " << w;
      }
  auto value = [&](int middleShare) -> unsigned char {
    const int roll = static_cast<int>(random() % 100);
    return roll < middleShare ? static_cast<unsigned char>(30 + random() % 70) : roll % 2 ? 255 : 0;
  };
  for (const Named& k : VectorKernels())
    for (int round = 0; round < 8; ++round)
      for (int w = 3; w <= 100; w += 1 + w / 40) {
        const int share = 40 + 8 * round;  // up to almost all middle values
        std::vector<unsigned char> up(w), cur(w + 1), down(w);
        for (int x = 0; x < w; ++x) up[x] = random() % 8 == 0 ? 255 : 0, cur[x] = value(share), down[x] = value(share);
        if (round == 7) {  // one seed: the whole run of middle values follows it
          std::fill(cur.begin(), cur.end() - 1, 60), std::fill(up.begin(), up.end(), 0), std::fill(down.begin(), down.end(), 40);
          up[static_cast<size_t>(random() % w)] = 255;
        }
        cur[w] = 0x77;
        std::vector<unsigned char> want = cur, got = cur;
        plain.link(up.data(), want.data(), down.data(), w);
        k.kernels->link(up.data(), got.data(), down.data(), w);
        EXPECT_EQ(want, got) << k.name << " w " << w << " round " << round;
      }
}

// A page whose pitch leaves a gap after each row, filled with bytes that would show if read.
struct Page {
  Page(int w, int h, int slack) : w(w), h(h), pitch(w * 4 + slack), bytes(static_cast<size_t>(pitch) * h, 0x9C) {
    EXPECT_TRUE(dib.Create(w, h, CA_DIB_Rgb32, bytes.data(), pitch));
  }
  void Set(int x, int y, int b, int g, int r) {
    unsigned char* p = bytes.data() + static_cast<size_t>(y) * pitch + x * 4;
    p[0] = static_cast<unsigned char>(std::clamp(b, 0, 255));
    p[1] = static_cast<unsigned char>(std::clamp(g, 0, 255));
    p[2] = static_cast<unsigned char>(std::clamp(r, 0, 255));
    p[3] = static_cast<unsigned char>(x * 31 + y);
  }
  int w, h, pitch;
  std::vector<unsigned char> bytes;
  CCA_Dib dib;
};

void ExpectEveryPathAgrees(const Page& page, const std::string& what) {
  R plain(-3, -3, -3, -3);
  const bool found = ReferenceAutoCalClipRect(&page.dib, plain);
  for (const Named& k : AllKernels()) {
    R rect(-3, -3, -3, -3);
    EXPECT_EQ(FindContentBounds(&page.dib, rect, k.choice), found) << k.name << ": " << what;
    EXPECT_EQ(Str(rect), Str(plain)) << k.name << ": " << what;
  }
}

// Paper of one tone with grain in every channel, small offsets per 8x8 block, and dark strokes.
void PaintScan(Page& page, std::mt19937& random, int grain, bool strokes) {
  const int paper = 150 + static_cast<int>(random() % 90);
  std::vector<int> shift((page.w + 7) / 8);
  for (int y = 0; y < page.h; ++y) {
    for (int& s : shift) s = y % 8 == 0 ? static_cast<int>(random() % 7) - 3 : s;
    for (int x = 0; x < page.w; ++x) {
      const int common = paper + shift[x / 8] + static_cast<int>(random() % (2 * grain + 1)) - grain;
      page.Set(x, y, common + static_cast<int>(random() % 3) - 1, common, common + static_cast<int>(random() % 3) - 1);
    }
  }
  for (int n = 0; strokes && n < 3; ++n) {
    const int x0 = static_cast<int>(random() % page.w), y0 = static_cast<int>(random() % page.h);
    for (int i = 0; i < 6; ++i) page.Set(std::min(page.w - 1, x0 + i), std::min(page.h - 1, y0 + i / 2), 40, 38, 36);
  }
}

TEST(ContentBoundsKernels, EveryPathFindsThePlainRectangleOnScanLikeAndRandomPages) {
  std::mt19937 random(17);
  for (int w = 1; w <= 70; ++w) {
    const int h = 1 + static_cast<int>(random() % 40), slack = static_cast<int>(random() % 3) * 4 + (w % 2) * 4;
    Page scan(w, h, slack);
    PaintScan(scan, random, 1 + w % 6, w % 3 != 0);
    ExpectEveryPathAgrees(scan, "scan-like " + std::to_string(w) + "x" + std::to_string(h));
    // Neutral noise, whose sums are whole multiples of 1000, and random colours.
    Page neutral(w, h, slack), colour(w, h, slack);
    const int base = static_cast<int>(random() % 200), spread = 8 + static_cast<int>(random() % 60);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const int v = base + static_cast<int>(random() % spread);
        neutral.Set(x, y, v, v, v);
        colour.Set(x, y, static_cast<int>(random() % 256), static_cast<int>(random() % 256), static_cast<int>(random() % 256));
      }
    ExpectEveryPathAgrees(neutral, "neutral noise " + std::to_string(w));
    ExpectEveryPathAgrees(colour, "random colours " + std::to_string(w));
  }
  // A page of page width, where the vector loops run many blocks per row.
  Page wide(637, 48, 12);
  PaintScan(wide, random, 3, true);
  ExpectEveryPathAgrees(wide, "wide scan");
}

TEST(ContentBoundsKernels, EveryPathAgreesOnBlankPagesAndContentAtEachEdge) {
  for (int w : {3, 33, 65}) {
    const int h = 5 + w % 7;
    for (int tone : {0, 128, 255}) {
      Page blank(w, h, 8);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) blank.Set(x, y, tone, tone, tone);
      ExpectEveryPathAgrees(blank, "blank " + std::to_string(w));
      R rect(4, 4, 4, 4);
      EXPECT_FALSE(FindContentBounds(&blank.dib, rect, ContentBoundsKernels::kWidest));
      EXPECT_EQ(Str(rect), "4,4,4,4");
    }
    // A dark column or row at each edge of a white page, one at a time: left, right, top, bottom, corner.
    const int edges[][4] = {{0, 0, 0, h - 1}, {w - 1, 0, w - 1, h - 1}, {0, 0, w - 1, 0}, {0, h - 1, w - 1, h - 1},
                            {w - 1, h - 1, w - 1, h - 1}};
    for (const auto& e : edges) {
      Page page(w, h, 4);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const int v = x >= e[0] && x <= e[2] && y >= e[1] && y <= e[3] ? 0 : 255;
          page.Set(x, y, v, v, v);
        }
      const std::string what = "edge " + std::to_string(&e - edges) + ", width " + std::to_string(w);
      ExpectEveryPathAgrees(page, what);
      R rect;
      ASSERT_TRUE(FindContentBounds(&page.dib, rect, ContentBoundsKernels::kWidest)) << what;
      EXPECT_TRUE(rect.left >= 0 && rect.top >= 0 && rect.right <= w - 1 && rect.bottom <= h - 1) << what << " " << Str(rect);
    }
  }
}

}  // namespace
