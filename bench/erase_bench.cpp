// Erasing a stroke from an A4 page at 300 dpi, and the point-in-polygon test it is built on.
//
// DeletePathDib is measured against the plain full scan (every pixel against every rectangle and
// disc) on the same stroke; the two must leave identical pixels. IsPointInside is measured against
// the same count on a plain vector without the array's lock, the same count taking a std::shared_mutex
// for every vertex, and the textbook crossing test.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include <mrlbase/dib.h>
#include <zelutility/dib_edit.h>
#include <zelutility/geometry.h>
#include <zelutility/json_factory.h>

#include "image/delete_dib_reference.h"
#include "image/geometry_internal.h"

namespace {

using PointF = CMRL_PSVTemplate<float>;
using PointArray = CMRL_TSArrayTemplate<CMRL_ObjectArray, PointF>;

constexpr int kPageWidth = 2480;
constexpr int kPageHeight = 3508;
constexpr unsigned kColor = 0xFFFFFF;
constexpr float kLineWidth = 8.0f;

// A handwriting-like stroke of 50 points wandering across the page.
PointArray MakeStroke() {
  PointArray stroke;
  for (int i = 0; i < 50; ++i) {
    const double t = i / 49.0;
    stroke.Add(PointF(static_cast<float>(180 + 2100 * t + 40 * std::sin(i * 1.7)),
                      static_cast<float>(1750 + 900 * std::sin(t * 6.0) + 25.5 * std::cos(i * 2.3))));
  }
  return stroke;
}

std::unique_ptr<CCA_Dib> MakePage() {
  auto page = std::make_unique<CCA_Dib>();
  page->Create(kPageWidth, kPageHeight, CA_DIB_Rgb);
  std::memset(page->GetBuffer(), 0x40, static_cast<size_t>(page->GetPitch()) * kPageHeight);
  return page;
}

void PaintFullScan(CCA_Dib& page, const PointArray& stroke) {
  zel_erase_reference::FullScanStroke(stroke, kLineWidth, 2, kPageWidth, kPageHeight, [&page](int x, int y) {
    page.SetPixel(CMRL_PSVTemplate<int>(x, y), kColor);
  });
}

std::shared_ptr<const ZELJson> StrokeDescription() {
  return ZELJsonFactory::ParseJsonString("{\"LineWidth\": 8, \"Cap\": 2, \"ColorValue\": 16777215}");
}

void BM_DeletePathDib(benchmark::State& state) {
  const PointArray stroke = MakeStroke();
  const auto description = StrokeDescription();
  auto page = MakePage();
  for (auto _ : state) benchmark::DoNotOptimize(DeletePathDib(page.get(), stroke, description));
}
BENCHMARK(BM_DeletePathDib)->Unit(benchmark::kMillisecond);

void BM_FullScanStroke(benchmark::State& state) {
  const PointArray stroke = MakeStroke();
  auto page = MakePage();
  for (auto _ : state) PaintFullScan(*page, stroke);
  // The fast path must leave exactly the same page.
  auto fast = MakePage();
  DeletePathDib(fast.get(), stroke, StrokeDescription());
  if (std::memcmp(page->GetBuffer(), fast->GetBuffer(), static_cast<size_t>(page->GetPitch()) * kPageHeight) != 0) {
    state.SkipWithError("DeletePathDib differs from the full scan");
  }
}
// One pass takes tens of seconds; a single iteration is measurement enough.
BENCHMARK(BM_FullScanStroke)->Unit(benchmark::kMillisecond)->Iterations(1);

// A star-shaped polygon of n vertices around (500, 500) and probe points across its box.
std::vector<PointF> MakeStar(int n) {
  std::vector<PointF> vertices;
  for (int i = 0; i < n; ++i) {
    const double angle = 2 * M_PI * i / n;
    const double radius = (i % 2 ? 300.0 : 450.0) + 37.0 * std::sin(i * 0.9);
    vertices.emplace_back(static_cast<float>(500 + radius * std::cos(angle)), static_cast<float>(500 + radius * std::sin(angle)));
  }
  return vertices;
}

std::vector<PointF> MakeProbes() {
  std::vector<PointF> probes;
  for (int i = 0; i < 64; ++i) probes.emplace_back(static_cast<float>(40 + (i * 131) % 920), static_cast<float>(40 + (i * 71) % 920));
  return probes;
}

// CPU time per polygon edge, shown as the "edge" column.
void CountEdges(benchmark::State& state) {
  state.counters["edge"] = benchmark::Counter(static_cast<double>(state.range(0)),
                                              benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_IsPointInside(benchmark::State& state) {
  PointArray polygon;
  for (const PointF& v : MakeStar(static_cast<int>(state.range(0)))) polygon.Add(v);
  const std::vector<PointF> probes = MakeProbes();
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(IsPointInside(polygon, probes[i++ % probes.size()]));
  // Same answers as the unlocked count, so the lock changes the cost only.
  const std::vector<PointF> vertices = MakeStar(static_cast<int>(state.range(0)));
  for (const PointF& p : probes) {
    const bool plain = zel_geometry::PointInside(
        static_cast<int>(vertices.size()), [&vertices](int k) { return vertices[static_cast<size_t>(k)]; }, p);
    if (IsPointInside(polygon, p) != plain) state.SkipWithError("IsPointInside differs from the unlocked count");
  }
  CountEdges(state);
}
BENCHMARK(BM_IsPointInside)->Arg(4)->Arg(64)->Arg(1024);

// The same count with every vertex read under a std::shared_mutex, one lock a read.
void BM_PointInsideSharedMutex(benchmark::State& state) {
  const std::vector<PointF> vertices = MakeStar(static_cast<int>(state.range(0)));
  const std::vector<PointF> probes = MakeProbes();
  std::shared_mutex mutex;
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(zel_geometry::PointInside(
        static_cast<int>(vertices.size()),
        [&vertices, &mutex](int k) {
          std::shared_lock<std::shared_mutex> lock(mutex);
          return vertices[static_cast<size_t>(k)];
        },
        probes[i++ % probes.size()]));
  }
  CountEdges(state);
}
BENCHMARK(BM_PointInsideSharedMutex)->Arg(1024);

void BM_PointInsideWithoutLock(benchmark::State& state) {
  const std::vector<PointF> vertices = MakeStar(static_cast<int>(state.range(0)));
  const std::vector<PointF> probes = MakeProbes();
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(zel_geometry::PointInside(
        static_cast<int>(vertices.size()), [&vertices](int k) { return vertices[static_cast<size_t>(k)]; },
        probes[i++ % probes.size()]));
  }
  CountEdges(state);
}
BENCHMARK(BM_PointInsideWithoutLock)->Arg(4)->Arg(64)->Arg(1024);

// The textbook crossing test in double, with none of the exact boundary rules.
bool TextbookInside(const std::vector<PointF>& v, PointF p) {
  bool inside = false;
  for (size_t i = 0, j = v.size() - 1; i < v.size(); j = i++) {
    if ((v[i].y > p.y) != (v[j].y > p.y) &&
        p.x < (static_cast<double>(v[j].x) - v[i].x) * (p.y - v[i].y) / (static_cast<double>(v[j].y) - v[i].y) + v[i].x) {
      inside = !inside;
    }
  }
  return inside;
}

void BM_TextbookCrossingTest(benchmark::State& state) {
  const std::vector<PointF> vertices = MakeStar(static_cast<int>(state.range(0)));
  const std::vector<PointF> probes = MakeProbes();
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(TextbookInside(vertices, probes[i++ % probes.size()]));
  CountEdges(state);
}
BENCHMARK(BM_TextbookCrossingTest)->Arg(4)->Arg(64)->Arg(1024);

}  // namespace

BENCHMARK_MAIN();
