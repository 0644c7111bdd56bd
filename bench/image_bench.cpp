// Content bounds of an A4 page at 300 dpi, 32 bpp: GetAutoCalClipRect and each of its kernel
// sets against the plain pass-by-pass method over two whole work bitmaps, on a clean page and on
// scan-like ones. All must find the same rectangle.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <memory>

#include <benchmark/benchmark.h>

#include <mrlbase/device.h>
#include <mrlbase/dib.h>
#include <mrlbase/font.h>
#include <zelutility/composite.h>

#include "image/auto_clip_reference.h"
#include "image/content_bounds_kernels.h"

namespace {

constexpr int kWidth = 2480;   // 210 mm at 300 dpi
constexpr int kHeight = 3508;  // 297 mm at 300 dpi

// A title, body lines, Chinese text and a ruled box inside wide margins.
void DrawContent(CCA_Dib& dib, unsigned ink) {
  CCA_Font font(nullptr);
  font.LoadFont(L"DejaVu Sans", L"DejaVu Sans", 3, 400, 0);
  CCA_DibDevice device(&dib);
  const CMRL_Matrix title(1, 0, 0, 1, 300, 420);
  device.DrawTextRun(L"Annual maintenance report", 25, &font, 110, &title, ink);
  const wchar_t* line = L"The quick brown fox jumps over the lazy dog 0123456789, \x68C0\x67E5\x7ED3\x679C\x5408\x683C.";
  for (int i = 0; i < 40; ++i) {
    const CMRL_Matrix at(1, 0, 0, 1, 300, 700.0f + 62 * i);
    device.DrawTextRun(line, static_cast<int>(std::wcslen(line)), &font, 46, &at, ink);
  }
  for (int y = 3250; y < 3258; ++y)
    for (int x = 300; x < 2180; ++x) dib.SetPixel(CMRL_PSVTemplate<int>(x, y), ink);
}

std::unique_ptr<CCA_Dib> BlankPage(unsigned char b, unsigned char g, unsigned char r) {
  std::unique_ptr<CCA_Dib> dib(new CCA_Dib);
  dib->Create(kWidth, kHeight, CA_DIB_Rgb32);
  for (int y = 0; y < kHeight; ++y) {
    unsigned char* row = dib->GetScanline(y);
    for (int x = 0; x < kWidth; ++x) {
      row[x * 4] = b;
      row[x * 4 + 1] = g;
      row[x * 4 + 2] = r;
      row[x * 4 + 3] = 0xFF;
    }
  }
  return dib;
}

// A white page with dark text.
const CCA_Dib& CleanPage() {
  static const std::unique_ptr<CCA_Dib> page = [] {
    std::unique_ptr<CCA_Dib> dib = BlankPage(0xFF, 0xFF, 0xFF);
    DrawContent(*dib, 0xFF303030);
    return dib;
  }();
  return *page;
}

// A fixed-seed generator, so every run measures the same page.
class Noise {
 public:
  std::uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }
  // Roughly bell-shaped in [-span, span].
  int Around(int span) {
    const std::uint32_t v = Next();
    return static_cast<int>((v & 0xFF) + (v >> 8 & 0xFF) + (v >> 16 & 0xFF)) * span / 382 - span;
  }

 private:
  std::uint32_t state_ = 0x9E3779B9u;
};

// The same text on a grayish paper, then what a scanner and JPEG add: a grain of a few levels
// and a small offset per 8x8 block, so few pixels repeat. A colour scan has some grain of its own
// in every channel; a gray one, stored as 32 bpp, has every pixel neutral.
std::unique_ptr<CCA_Dib> MakeScanPage(bool colour) {
  std::unique_ptr<CCA_Dib> dib = colour ? BlankPage(196, 206, 212) : BlankPage(206, 206, 206);
  DrawContent(*dib, colour ? 0xFF383430 : 0xFF383838);
  Noise noise;
  std::unique_ptr<int[]> blockShift(new int[(kWidth + 7) / 8]);
  for (int y = 0; y < kHeight; ++y) {
    if (y % 8 == 0)
      for (int i = 0; i < (kWidth + 7) / 8; ++i) blockShift[i] = noise.Around(3);
    unsigned char* row = dib->GetScanline(y);
    for (int x = 0; x < kWidth; ++x) {
      const int common = noise.Around(4) + blockShift[x / 8];
      for (int c = 0; c < 3; ++c) {
        const int v = row[x * 4 + c] + common + (colour ? noise.Around(2) : 0);
        row[x * 4 + c] = static_cast<unsigned char>(std::min(255, std::max(0, v)));
      }
    }
  }
  return dib;
}

const CCA_Dib& ScanPage() {
  static const std::unique_ptr<CCA_Dib> page = MakeScanPage(true);
  return *page;
}

const CCA_Dib& GrayScanPage() {
  static const std::unique_ptr<CCA_Dib> page = MakeScanPage(false);
  return *page;
}

const CCA_Dib& PageOf(int kind) {
  if (kind == 0) return CleanPage();
  return kind == 1 ? ScanPage() : GrayScanPage();
}

bool Same(const CMRL_DeviceRectTemplate<int>& a, const CMRL_DeviceRectTemplate<int>& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

void SetCounters(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kWidth) * kHeight);
  state.counters["MP/s"] = benchmark::Counter(kWidth * static_cast<double>(kHeight) / 1e6,
                                              benchmark::Counter::kIsIterationInvariantRate);
}

// Arguments: the page (0 clean, 1 colour scan, 2 gray scan) and the kernels.
void BM_GetAutoCalClipRect(benchmark::State& state) {
  const CCA_Dib& page = PageOf(static_cast<int>(state.range(0)));
  const auto kernels = static_cast<ContentBoundsKernels>(state.range(1));
  if (!ContentBoundsKernelsAvailable(kernels)) {
    state.SkipWithError("this processor lacks the instructions");
    return;
  }
  CMRL_DeviceRectTemplate<int> fast, plain;
  if (!FindContentBounds(&page, fast, kernels) || !ReferenceAutoCalClipRect(&page, plain) || !Same(fast, plain)) {
    state.SkipWithError("the methods disagree");
    return;
  }
  for (auto _ : state) {
    CMRL_DeviceRectTemplate<int> rect;
    benchmark::DoNotOptimize(FindContentBounds(&page, rect, kernels));
    benchmark::DoNotOptimize(rect);
  }
  SetCounters(state);
}
BENCHMARK(BM_GetAutoCalClipRect)
    ->ArgNames({"page", "kernels"})
    ->ArgsProduct({{0, 1, 2},
                   {static_cast<int>(ContentBoundsKernels::kPortable), static_cast<int>(ContentBoundsKernels::kSse2),
                    static_cast<int>(ContentBoundsKernels::kAvx2), static_cast<int>(ContentBoundsKernels::kWidest)}})
    ->Unit(benchmark::kMillisecond);

void BM_ReferenceAutoCalClipRect(benchmark::State& state) {
  const CCA_Dib& page = PageOf(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    CMRL_DeviceRectTemplate<int> rect;
    benchmark::DoNotOptimize(ReferenceAutoCalClipRect(&page, rect));
    benchmark::DoNotOptimize(rect);
  }
  SetCounters(state);
}
BENCHMARK(BM_ReferenceAutoCalClipRect)->ArgNames({"page"})->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
