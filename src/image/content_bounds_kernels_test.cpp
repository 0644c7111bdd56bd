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

struct Named {
  const char* name;
  ContentBoundsKernels choice;
  const RowKernels* kernels;
};

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
  return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
         std::to_string(r.bottom);
}

// Every colour, with the unread fourth byte scrambled: the integer sums must round exactly like
// the weighted double sum, including the colours whose sum lands on a whole number.
TEST(ContentBoundsKernels, GrayOfEveryColourMatchesTheDoubleSum) {
  std::vector<unsigned char> pixels(256 * 4), want(256), got(256 + 1);
  for (const Named& k : AllKernels()) {
    int wrong = 0;
    for (unsigned b = 0; b < 256; ++b)
      for (unsigned g = 0; g < 256; ++g) {
        for (unsigned r = 0; r < 256; ++r) {
          // Red runs down from b + g, so neighbours differ and no block repeats the last pixel.
          const unsigned red = (r + b + g) & 0xFF;
          pixels[r * 4] = static_cast<unsigned char>(b);
          pixels[r * 4 + 1] = static_cast<unsigned char>(g);
          pixels[r * 4 + 2] = static_cast<unsigned char>(red);
          pixels[r * 4 + 3] = static_cast<unsigned char>(r * 37 + g);
          want[r] = static_cast<unsigned char>(static_cast<int>(g * 0.587 + red * 0.299 + b * 0.114));
        }
        got[256] = 0xA5;
        EXPECT_EQ(k.kernels->gray(pixels.data(), 256, got.data()), -1);
        EXPECT_EQ(got[256], 0xA5) << k.name << ": wrote past the row";
        wrong += !std::equal(want.begin(), want.end(), got.begin());
      }
    EXPECT_EQ(wrong, 0) << k.name << ": rows with a wrong gray";
  }
}

// One colour along a row (the fourth byte aside) answers its gray; a single other pixel
// anywhere, in any channel, answers -1. Every width exercises the blocks and the tail.
TEST(ContentBoundsKernels, GrayRowsOfOneColourAnswerTheirLevel) {
  std::mt19937 random(7);
  for (const Named& k : AllKernels())
    for (int w = 1; w <= 70; ++w) {
      const unsigned char b = static_cast<unsigned char>(random()), g = static_cast<unsigned char>(random()),
                          r = static_cast<unsigned char>(random());
      std::vector<unsigned char> pixels(static_cast<size_t>(w) * 4), out(w);
      for (int x = 0; x < w; ++x) {
        pixels[x * 4] = b;
        pixels[x * 4 + 1] = g;
        pixels[x * 4 + 2] = r;
        pixels[x * 4 + 3] = static_cast<unsigned char>(random());
      }
      const int level = static_cast<int>(g * 0.587 + r * 0.299 + b * 0.114);
      EXPECT_EQ(k.kernels->gray(pixels.data(), w, out.data()), level) << k.name << " w " << w;
      EXPECT_EQ(std::count(out.begin(), out.end(), level), w) << k.name << " w " << w;
      if (w == 1) continue;  // a single pixel is always of one colour
      const int at = static_cast<int>(random() % w), channel = static_cast<int>(random() % 3);
      pixels[at * 4 + channel] ^= 1;
      EXPECT_EQ(k.kernels->gray(pixels.data(), w, out.data()), -1) << k.name << " w " << w << " at " << at;
    }
}

// Runs of a few colours of every length, so that blocks repeat the last pixel converted, end
// just before a run, or hold a colour that differs from the block's last pixel only in the
// unread byte: the shortcut for repeated pixels must never reuse a stale gray.
TEST(ContentBoundsKernels, GrayOfRunsMatchesEveryPixel) {
  std::mt19937 random(5);
  for (const Named& k : AllKernels())
    for (int round = 0; round < 300; ++round) {
      const int w = 1 + static_cast<int>(random() % 120);
      unsigned char palette[3][3];
      for (auto& colour : palette)
        for (unsigned char& c : colour) c = static_cast<unsigned char>(random());
      std::vector<unsigned char> pixels(static_cast<size_t>(w) * 4), want(w), got(w);
      for (int x = 0; x < w;) {
        const unsigned char* colour = palette[random() % 3];
        // Short runs between block-long ones.
        int run = 1 + static_cast<int>(random() % 3);
        if (random() % 2) run = 14 + static_cast<int>(random() % 20);
        for (; run > 0 && x < w; --run, ++x) {
          std::copy(colour, colour + 3, pixels.begin() + x * 4);
          pixels[x * 4 + 3] = static_cast<unsigned char>(random());
          want[x] = static_cast<unsigned char>(static_cast<int>(colour[1] * 0.587 + colour[2] * 0.299 + colour[0] * 0.114));
        }
      }
      k.kernels->gray(pixels.data(), w, got.data());
      EXPECT_EQ(want, got) << k.name << " round " << round;
    }
}

// Rows of gray with flat stretches, steps of every height and noise, at every width up to 70
// and at unaligned starts: the vector gradient must give the portable kernel's bytes and flags.
TEST(ContentBoundsKernels, EdgeRowsMatchThePortableKernel) {
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
        const unsigned char* top = rows.data() + offset;
        const unsigned char* mid = top + w + 5;
        const unsigned char* bottom = mid + w + 5;
        std::vector<unsigned char> want(w + 1, 0xA5), got(w + 1, 0xA5);
        const content_bounds::EdgeFlags a = plain.edges(top, mid, bottom, w, want.data());
        const content_bounds::EdgeFlags b = k.kernels->edges(top, mid, bottom, w, got.data());
        EXPECT_EQ(want, got) << k.name << " w " << w << " round " << round;  // the byte past the row too
        EXPECT_EQ(a.middle, b.middle) << k.name << " w " << w;
        EXPECT_EQ(a.nonzero, b.nonzero) << k.name << " w " << w;
      }
}

// Rows of 0, 255 and middle values with long runs of middle values across the vector blocks, so
// that a raised pixel has to carry along a run and into the next block.
TEST(ContentBoundsKernels, LinkingMatchesThePortableKernel) {
  std::mt19937 random(13);
  const RowKernels& plain = content_bounds::PortableRowKernels();
  auto value = [&](int middleShare) -> unsigned char {
    const int roll = static_cast<int>(random() % 100);
    if (roll < middleShare) return static_cast<unsigned char>(30 + random() % 70);
    return roll % 2 ? 255 : 0;
  };
  for (const Named& k : VectorKernels())
    for (int round = 0; round < 8; ++round)
      for (int w = 3; w <= 100; ++w) {
        const int share = 40 + 8 * round;  // up to almost all middle values
        std::vector<unsigned char> up(w), cur(w + 1), down(w);
        for (int x = 0; x < w; ++x) {
          up[x] = random() % 8 == 0 ? 255 : 0;  // the row above is settled
          cur[x] = value(share);
          down[x] = value(share);
        }
        if (round == 7) {  // one seed far left: the whole run follows it
          std::fill(cur.begin(), cur.end() - 1, 60);
          std::fill(up.begin(), up.end(), 0);
          std::fill(down.begin(), down.end(), 40);
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
class Page {
 public:
  Page(int w, int h, int slack) : w_(w), h_(h), pitch_(w * 4 + slack), bytes_(static_cast<size_t>(pitch_) * h, 0x9C) {
    EXPECT_TRUE(dib_.Create(w, h, CA_DIB_Rgb32, bytes_.data(), pitch_));
  }
  void Set(int x, int y, int b, int g, int r) {
    unsigned char* p = bytes_.data() + static_cast<size_t>(y) * pitch_ + x * 4;
    p[0] = static_cast<unsigned char>(std::clamp(b, 0, 255));
    p[1] = static_cast<unsigned char>(std::clamp(g, 0, 255));
    p[2] = static_cast<unsigned char>(std::clamp(r, 0, 255));
    p[3] = static_cast<unsigned char>(x * 31 + y);
  }
  int w() const { return w_; }
  int h() const { return h_; }
  const CCA_Dib& dib() const { return dib_; }

 private:
  int w_, h_, pitch_;
  std::vector<unsigned char> bytes_;
  CCA_Dib dib_;
};

void ExpectEveryPathAgrees(const Page& page, const std::string& what) {
  R plain(-3, -3, -3, -3);
  const bool found = ReferenceAutoCalClipRect(&page.dib(), plain);
  for (const Named& k : AllKernels()) {
    R rect(-3, -3, -3, -3);
    EXPECT_EQ(FindContentBounds(&page.dib(), rect, k.choice), found) << k.name << ": " << what;
    EXPECT_EQ(Str(rect), Str(plain)) << k.name << ": " << what;
  }
}

// Paper of one tone with grain in every channel, small offsets per 8x8 block, and dark strokes.
void PaintScan(Page& page, std::mt19937& random, int grain, bool strokes) {
  const int paper = 150 + static_cast<int>(random() % 90);
  std::vector<int> shift((page.w() + 7) / 8);
  for (int y = 0; y < page.h(); ++y) {
    if (y % 8 == 0)
      for (int& s : shift) s = static_cast<int>(random() % 7) - 3;
    for (int x = 0; x < page.w(); ++x) {
      const int common = paper + shift[x / 8] + static_cast<int>(random() % (2 * grain + 1)) - grain;
      page.Set(x, y, common + static_cast<int>(random() % 3) - 1, common, common + static_cast<int>(random() % 3) - 1);
    }
  }
  if (!strokes) return;
  for (int n = 0; n < 3; ++n) {
    const int x0 = static_cast<int>(random() % page.w()), y0 = static_cast<int>(random() % page.h());
    for (int i = 0; i < 6; ++i) {
      const int x = std::min(page.w() - 1, x0 + i), y = std::min(page.h() - 1, y0 + i / 2);
      page.Set(x, y, 40, 38, 36);
    }
  }
}

TEST(ContentBoundsKernels, EveryPathFindsThePlainRectangleOnScanLikeAndRandomPages) {
  std::mt19937 random(17);
  for (int w = 1; w <= 70; ++w) {
    const int h = 1 + static_cast<int>(random() % 40), slack = static_cast<int>(random() % 3) * 4 + (w % 2) * 4;
    Page scan(w, h, slack);
    PaintScan(scan, random, 1 + w % 6, w % 3 != 0);
    ExpectEveryPathAgrees(scan, "scan-like " + std::to_string(w) + "x" + std::to_string(h));

    // Gray-only noise: every pixel a neutral colour, whose sums are whole multiples of 1000.
    Page neutral(w, h, slack);
    const int base = static_cast<int>(random() % 200), spread = 8 + static_cast<int>(random() % 60);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const int v = base + static_cast<int>(random() % spread);
        neutral.Set(x, y, v, v, v);
      }
    ExpectEveryPathAgrees(neutral, "neutral noise " + std::to_string(w));

    Page colour(w, h, slack);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        colour.Set(x, y, static_cast<int>(random() % 256), static_cast<int>(random() % 256), static_cast<int>(random() % 256));
    ExpectEveryPathAgrees(colour, "random colours " + std::to_string(w));
  }
  // Pages of page width, where the vector loops run many blocks per row.
  for (int round = 0; round < 4; ++round) {
    Page wide(600 + round * 37, 48, 12);
    PaintScan(wide, random, 2 + round, round != 3);
    ExpectEveryPathAgrees(wide, "wide scan " + std::to_string(round));
  }
}

TEST(ContentBoundsKernels, EveryPathAgreesOnBlankPagesAndContentAtEachEdge) {
  for (int w : {3, 4, 17, 33, 34, 35, 48, 65, 70}) {
    const int h = 5 + w % 7;
    for (int tone : {0, 1, 128, 255}) {
      Page blank(w, h, 8);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) blank.Set(x, y, tone, tone, tone);
      ExpectEveryPathAgrees(blank, "blank " + std::to_string(w));
      R rect(4, 4, 4, 4);
      EXPECT_FALSE(FindContentBounds(&blank.dib(), rect, ContentBoundsKernels::kWidest));
      EXPECT_EQ(Str(rect), "4,4,4,4");
    }
    // A dark column or row at each edge of a white page, one at a time.
    const struct {
      const char* what;
      int x0, y0, x1, y1;
    } edges[] = {{"left", 0, 0, 0, h - 1}, {"right", w - 1, 0, w - 1, h - 1}, {"top", 0, 0, w - 1, 0},
                 {"bottom", 0, h - 1, w - 1, h - 1}, {"corner", w - 1, h - 1, w - 1, h - 1}};
    for (const auto& e : edges) {
      Page page(w, h, 4);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const bool ink = x >= e.x0 && x <= e.x1 && y >= e.y0 && y <= e.y1;
          page.Set(x, y, ink ? 0 : 255, ink ? 0 : 255, ink ? 0 : 255);
        }
      ExpectEveryPathAgrees(page, std::string(e.what) + " edge, width " + std::to_string(w));
      R rect;
      ASSERT_TRUE(FindContentBounds(&page.dib(), rect, ContentBoundsKernels::kWidest)) << e.what;
      EXPECT_TRUE(rect.left >= 0 && rect.top >= 0 && rect.right <= w - 1 && rect.bottom <= h - 1)
          << e.what << " " << Str(rect);
    }
  }
}

}  // namespace
