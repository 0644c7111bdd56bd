// Content bounds of an A4 page at 300 dpi, 32 bpp: GetAutoCalClipRect against the plain
// pass-by-pass method over two whole work bitmaps. Both must find the same rectangle.
#include <cstring>
#include <cwchar>
#include <memory>

#include <benchmark/benchmark.h>

#include <mrlbase/device.h>
#include <mrlbase/dib.h>
#include <mrlbase/font.h>
#include <zelutility/composite.h>

#include "image/auto_clip_reference.h"

namespace {

constexpr int kWidth = 2480;   // 210 mm at 300 dpi
constexpr int kHeight = 3508;  // 297 mm at 300 dpi

// A white page with a title, body lines, Chinese text and a ruled box inside wide margins.
const CCA_Dib& Page() {
  static const std::unique_ptr<CCA_Dib> page = [] {
    std::unique_ptr<CCA_Dib> dib(new CCA_Dib);
    dib->Create(kWidth, kHeight, CA_DIB_Rgb32);
    std::memset(dib->GetBuffer(), 0xFF, static_cast<size_t>(dib->GetPitch()) * kHeight);
    CCA_Font font(nullptr);
    font.LoadFont(L"DejaVu Sans", L"DejaVu Sans", 3, 400, 0);
    CCA_DibDevice device(dib.get());
    const CMRL_Matrix title(1, 0, 0, 1, 300, 420);
    device.DrawTextRun(L"Annual maintenance report", 25, &font, 110, &title, 0xFF101010);
    const wchar_t* line = L"The quick brown fox jumps over the lazy dog 0123456789, \x68C0\x67E5\x7ED3\x679C\x5408\x683C.";
    for (int i = 0; i < 40; ++i) {
      const CMRL_Matrix at(1, 0, 0, 1, 300, 700.0f + 62 * i);
      device.DrawTextRun(line, static_cast<int>(std::wcslen(line)), &font, 46, &at, 0xFF303030);
    }
    for (int y = 3250; y < 3258; ++y)
      for (int x = 300; x < 2180; ++x) dib->SetPixel(CMRL_PSVTemplate<int>(x, y), 0xFF000000);
    return dib;
  }();
  return *page;
}

void SetCounters(benchmark::State& state) {
  state.counters["MP/s"] = benchmark::Counter(kWidth * static_cast<double>(kHeight) / 1e6,
                                              benchmark::Counter::kIsIterationInvariantRate);
}

void BM_GetAutoCalClipRect(benchmark::State& state) {
  const CCA_Dib& page = Page();
  CMRL_DeviceRectTemplate<int> fast, plain;
  if (!GetAutoCalClipRect(&page, fast) || !ReferenceAutoCalClipRect(&page, plain) || fast.left != plain.left ||
      fast.top != plain.top || fast.right != plain.right || fast.bottom != plain.bottom) {
    state.SkipWithError("the two methods disagree");
    return;
  }
  for (auto _ : state) {
    CMRL_DeviceRectTemplate<int> rect;
    benchmark::DoNotOptimize(GetAutoCalClipRect(&page, rect));
    benchmark::DoNotOptimize(rect);
  }
  SetCounters(state);
}
BENCHMARK(BM_GetAutoCalClipRect)->Unit(benchmark::kMillisecond);

void BM_ReferenceAutoCalClipRect(benchmark::State& state) {
  const CCA_Dib& page = Page();
  for (auto _ : state) {
    CMRL_DeviceRectTemplate<int> rect;
    benchmark::DoNotOptimize(ReferenceAutoCalClipRect(&page, rect));
    benchmark::DoNotOptimize(rect);
  }
  SetCounters(state);
}
BENCHMARK(BM_ReferenceAutoCalClipRect)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
