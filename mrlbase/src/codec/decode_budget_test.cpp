#include "codec/decode_budget.h"

#include <gtest/gtest.h>
#include <openjpeg.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "codec/codec_test_support.h"

using namespace codec_test;
using mrl_codec::BudgetHeap;
using mrl_codec::EstimateJ2kDecodeBytes;
using mrl_codec::J2kLayout;
using mrl_codec::ReadJ2kLayout;

// Address sanitizer brings its own allocator and reserves terabytes of address space, so the
// allocation watch and the address-space limit below are left out under it.
#if defined(__SANITIZE_ADDRESS__)
#define DECODE_BUDGET_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DECODE_BUDGET_TEST_ASAN 1
#endif
#endif

namespace {

constexpr size_t kTwoGiB = size_t{2} << 30;

#ifndef DECODE_BUDGET_TEST_ASAN
// The largest single request any code in the process made, the codec libraries included: this
// executable's malloc family stands in front of glibc's for every library it loads.
std::atomic<size_t> largestRequest{0};

void NoteRequest(size_t size) noexcept {
  size_t seen = largestRequest.load(std::memory_order_relaxed);
  while (size > seen && !largestRequest.compare_exchange_weak(seen, size, std::memory_order_relaxed)) {
  }
}
#endif

}  // namespace

#ifndef DECODE_BUDGET_TEST_ASAN
// Exported whatever the default visibility, so the shared libraries bind to these.
#define DECODE_BUDGET_TEST_EXPORT __attribute__((visibility("default")))
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

DECODE_BUDGET_TEST_EXPORT void* malloc(size_t size) noexcept { return NoteRequest(size), __libc_malloc(size); }
DECODE_BUDGET_TEST_EXPORT void* calloc(size_t count, size_t size) noexcept {
  return NoteRequest(size != 0 && count > SIZE_MAX / size ? SIZE_MAX : count * size), __libc_calloc(count, size);
}
DECODE_BUDGET_TEST_EXPORT void* realloc(void* block, size_t size) noexcept { return NoteRequest(size), __libc_realloc(block, size); }
DECODE_BUDGET_TEST_EXPORT void* aligned_alloc(size_t alignment, size_t size) noexcept { return NoteRequest(size), __libc_memalign(alignment, size); }
DECODE_BUDGET_TEST_EXPORT void* memalign(size_t alignment, size_t size) noexcept { return NoteRequest(size), __libc_memalign(alignment, size); }
DECODE_BUDGET_TEST_EXPORT int posix_memalign(void** out, size_t alignment, size_t size) noexcept {
  if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0) return EINVAL;
  NoteRequest(size);
  void* block = __libc_memalign(alignment, size);
  if (!block) return ENOMEM;
  *out = block;
  return 0;
}
}
#endif

namespace {

struct ChildOutcome {
  int code = -1;     // exit status, or 128 + signal
  long peakKb = 0;   // the child's peak resident memory
};

// Runs `body` in a forked child and returns its exit code (the body's result) and peak RSS.
ChildOutcome InChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  ChildOutcome outcome;
  int status = 0;
  rusage usage{};
  if (pid < 0 || wait4(pid, &status, 0, &usage) != pid) return outcome;
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  outcome.peakKb = usage.ru_maxrss;
  return outcome;
}

long PeakKb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

TEST(BudgetHeap, CountsLiveBytesAndRefusesWhatWouldPassTheLimit) {
  BudgetHeap heap(1000);
  void* a = heap.Allocate(600);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(a) % alignof(std::max_align_t), 0u);
  std::memset(a, 0xAB, 600);
  EXPECT_EQ(heap.Allocate(401), nullptr);   // one byte too many
  EXPECT_TRUE(heap.Refused());
  void* b = heap.Allocate(400);   // exactly up to the limit
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(heap.InUse(), 1000u);
  void* empty = heap.Allocate(0);   // still fits, and is a block of its own
  EXPECT_TRUE(empty != nullptr && empty != b);
  heap.Release(empty);
  heap.Release(b);
  heap.Release(nullptr);
  EXPECT_EQ(heap.InUse(), 600u);

  // Growing past the limit fails and keeps the old block; shrinking gives bytes back.
  EXPECT_EQ(heap.Reallocate(a, 1001), nullptr);
  EXPECT_EQ(static_cast<unsigned char*>(a)[599], 0xAB);
  a = heap.Reallocate(a, 10);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(static_cast<unsigned char*>(a)[9], 0xAB);
  EXPECT_EQ(heap.InUse(), 10u);
  EXPECT_EQ(heap.Peak(), 1000u);
  void* c = heap.Reallocate(nullptr, 990);   // null block: a new one
  EXPECT_EQ(heap.InUse(), 1000u);
  heap.Release(c);
  heap.Release(a);
  EXPECT_EQ(heap.InUse(), 0u);

  // Sizes near the top of size_t are refused, not wrapped around into small blocks.
  BudgetHeap unlimited(SIZE_MAX);
  EXPECT_EQ(unlimited.Allocate(SIZE_MAX - 4), nullptr);
  void* d = unlimited.Allocate(8);
  EXPECT_EQ(unlimited.Reallocate(d, SIZE_MAX - 4), nullptr);
  unlimited.Release(d);
}

struct J2kShape {
  int width, height, components;
  int resolutions;
  int codeBlock;     // side in samples
  int tile;          // 0: one tile
  int precinct;      // 0: the default (maximal) precincts
  int subsampling;   // of the components after the first
};

// A J2K code stream of `shape` made by OpenJPEG itself, written in a child process so the
// encoder's memory never counts towards this process's peak.
Bytes WriteJ2k(const J2kShape& s) {
  char name[] = "/tmp/decode_budget_test_XXXXXX";
  close(mkstemp(name));
  const ChildOutcome made = InChild([&] {
    opj_image_cmptparm_t parms[4] = {};
    for (int i = 0; i < s.components; ++i) {
      parms[i].dx = parms[i].dy = i == 0 ? 1 : s.subsampling;
      parms[i].w = (s.width + parms[i].dx - 1) / parms[i].dx;
      parms[i].h = (s.height + parms[i].dy - 1) / parms[i].dy;
      parms[i].prec = 8;
    }
    opj_image_t* image = opj_image_create(s.components, parms, s.components >= 3 ? OPJ_CLRSPC_SRGB : OPJ_CLRSPC_GRAY);
    image->x1 = s.width, image->y1 = s.height;
    for (int c = 0; c < s.components; ++c) {
      const opj_image_comp_t& comp = image->comps[c];
      for (size_t i = 0; i < static_cast<size_t>(comp.w) * comp.h; ++i) comp.data[i] = static_cast<int>((i * 7 + i / comp.w * 3 + c * 50) & 0xFF);
    }
    opj_cparameters_t params;
    opj_set_default_encoder_parameters(&params);
    params.tcp_numlayers = params.cp_disto_alloc = 1;
    params.tcp_rates[0] = 0;
    params.numresolution = s.resolutions;
    params.cblockw_init = params.cblockh_init = s.codeBlock;
    if (s.tile) params.tile_size_on = OPJ_TRUE, params.cp_tdx = params.cp_tdy = s.tile;
    if (s.precinct) {
      params.csty |= 1;
      params.res_spec = s.resolutions;
      for (int r = 0; r < s.resolutions; ++r) params.prcw_init[r] = params.prch_init[r] = s.precinct;
    }
    opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
    opj_stream_t* stream = opj_stream_create_default_file_stream(name, OPJ_FALSE);
    const bool ok = opj_setup_encoder(codec, &params, image) && opj_start_compress(codec, image, stream) &&
                    opj_encode(codec, stream) && opj_end_compress(codec, stream);
    opj_stream_destroy(stream);
    opj_destroy_codec(codec);
    opj_image_destroy(image);
    return ok ? 0 : 1;
  });
  Bytes bytes;
  if (made.code == 0) ReadFileBytes(name, bytes);
  std::remove(name);
  return bytes;
}

// Offset of the first SOT marker of a code stream (after the main header's segments).
size_t FirstTilePart(const Bytes& j2k) {
  size_t pos = 2;
  while (pos + 4 <= j2k.size() && !(j2k[pos] == 0xFF && j2k[pos + 1] == 0x90)) pos += 2 + (j2k[pos + 2] << 8 | j2k[pos + 3]);
  return pos;
}

TEST(J2kLayout, ReadsTheGridAndTheMostDemandingCodingStyleOfAnyTilePart) {
  const Bytes j2k = WriteJ2k({300, 200, 3, 4, 16, 128, 64, 2});
  ASSERT_FALSE(j2k.empty());
  J2kLayout layout;
  ASSERT_TRUE(ReadJ2kLayout(j2k.data(), j2k.size(), layout));
  EXPECT_EQ(layout.x1, 300u);
  EXPECT_EQ(layout.y1, 200u);
  EXPECT_EQ(layout.tileH, 128u);
  ASSERT_EQ(layout.components.size(), 3u);
  EXPECT_EQ(layout.components[2].dy, 2u);
  EXPECT_EQ(layout.resolutions, 4u);
  EXPECT_EQ(layout.codeBlockHeightExp, 4u);
  EXPECT_EQ(layout.precinctWidthExp, 6u);
  EXPECT_EQ(layout.streamBytes, j2k.size());
  // A tile grid that starts past the image (invalid, refused by the library) still gives the
  // planes' share, not a negative count of tiles.
  J2kLayout odd = layout;
  odd.tileX0 = odd.x1 + 1000;
  EXPECT_GE(EstimateJ2kDecodeBytes(odd), uint64_t{300} * 200 * 4);

  // A tile-part that switches its tile to 4 x 8 code-blocks and seven resolutions: the layout
  // takes them, and the estimate grows with the extra bookkeeping.
  Bytes patched = j2k;
  const size_t sot = FirstTilePart(patched);
  ASSERT_LT(sot + 12, patched.size());
  const Bytes cod = {0xFF, 0x52, 0x00, 0x0C, 0x00, 0x00, 0x00, 0x01, 0x00, 6, 0, 1, 0x00, 0x01};
  patched.insert(patched.begin() + static_cast<long>(sot + 12), cod.begin(), cod.end());
  uint32_t partLength = (patched[sot + 6] << 24) | (patched[sot + 7] << 16) | (patched[sot + 8] << 8) | patched[sot + 9];
  partLength += static_cast<uint32_t>(cod.size());
  for (int i = 0; i < 4; ++i) patched[sot + 6 + i] = static_cast<uint8_t>(partLength >> (24 - 8 * i));
  J2kLayout tight;
  ASSERT_TRUE(ReadJ2kLayout(patched.data(), patched.size(), tight));
  EXPECT_EQ(tight.resolutions, 7u);
  EXPECT_EQ(tight.codeBlockWidthExp, 2u);
  EXPECT_EQ(tight.codeBlockHeightExp, 3u);
  EXPECT_GT(EstimateJ2kDecodeBytes(tight), EstimateJ2kDecodeBytes(layout));

  // Broken headers: no SOC, a SIZ cut short, a main-header segment running past the end.
  J2kLayout broken;
  EXPECT_FALSE(ReadJ2kLayout(j2k.data() + 1, j2k.size() - 1, broken));
  EXPECT_FALSE(ReadJ2kLayout(j2k.data(), 30, broken));
  EXPECT_FALSE(ReadJ2kLayout(j2k.data(), FirstTilePart(j2k) - 1, broken));
}

TEST(J2kLayout, EstimateCoversWhatDecodingReallyTakes) {
#ifdef DECODE_BUDGET_TEST_ASAN
  GTEST_SKIP() << "the sanitizer's allocator pads and holds back freed blocks";
#endif
  // Each shape stresses one term: the component planes, per-code-block bookkeeping (4 x 4
  // blocks), per-tile planes and records (many small tiles), small precincts, subsampled planes.
  for (const J2kShape& shape : {J2kShape{1200, 900, 3, 6, 64, 0, 0, 1}, {800, 600, 1, 5, 4, 0, 0, 1}, {1000, 750, 3, 3, 16, 32, 0, 1},
                                 {1000, 750, 1, 6, 8, 0, 16, 1}, {1200, 900, 3, 6, 32, 256, 0, 2}}) {
    SCOPED_TRACE(::testing::Message() << shape.width << "x" << shape.height << " blocks " << shape.codeBlock << " tile " << shape.tile);
    const Bytes file = WriteJ2k(shape);
    ASSERT_FALSE(file.empty());
    J2kLayout layout;
    ASSERT_TRUE(ReadJ2kLayout(file.data(), file.size(), layout));
    const uint64_t estimate = EstimateJ2kDecodeBytes(layout);
    // On top of the library: the bitmap and the decoder's own copy of the file.
    const uint64_t bitmap = static_cast<uint64_t>(shape.width) * shape.height * (shape.components >= 3 ? 3 : 1);
    long grewKb = -1;
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const ChildOutcome run = InChild([&] {
      const long before = PeakKb();
      const bool decoded = Decode(file) != nullptr;
      const long grew = PeakKb() - before;
      return write(pipeEnds[1], &grew, sizeof grew) == sizeof grew && decoded ? 0 : 1;
    });
    close(pipeEnds[1]);
    EXPECT_EQ(read(pipeEnds[0], &grewKb, sizeof grewKb), static_cast<ssize_t>(sizeof grewKb));
    close(pipeEnds[0]);
    ASSERT_EQ(run.code, 0);
    // Whatever the process held before the decode may have been reused, so the growth is a
    // lower bound of the decode's own use; the planes alone make it tens of megabytes.
    EXPECT_GT(grewKb * 1024, static_cast<long>(bitmap));
    EXPECT_LE(static_cast<uint64_t>(grewKb) * 1024, estimate + bitmap + file.size())
        << "estimate " << (estimate >> 20) << " MiB";
  }
}

TEST(DecodeBudget, FilesFoundByFuzzingAreRefusedInLittleMemory) {
  const std::string dir = TestDataDir() + "/finds/";
  const char* const names[] = {"jb2-asks-16g.bin", "jb2-asks-34g.bin", "jb2-asks-5g.bin", "j2k-takes-3g.bin"};
  int found = 0;
  for (const char* name : names) {
    SCOPED_TRACE(name);
    Bytes file;
    if (!ReadFileBytes(dir + name, file) || file.empty()) continue;
    ++found;
    const ChildOutcome run = InChild([&] {
      int code = 0;
#ifndef DECODE_BUDGET_TEST_ASAN
      // A few gigabytes of address space: room for the budget and the bitmap, none for the
      // requests these files used to make, should they come back.
      const rlimit limit{size_t{4} << 30, size_t{4} << 30};
      setrlimit(RLIMIT_AS, &limit);
      largestRequest = 0;
#endif
      if (Decode(file) != nullptr) code |= 1;
#ifndef DECODE_BUDGET_TEST_ASAN
      if (largestRequest > kTwoGiB) code |= 2;
#endif
      return code;
    });
    EXPECT_EQ(run.code, 0) << "1: decoded to a picture, 2: asked for more than 2 GiB at once, other: child failed";
    EXPECT_LT(run.peakKb, static_cast<long>(kTwoGiB >> 10));
  }
  if (found == 0) GTEST_SKIP() << "no files in " << dir;
}

#ifndef DECODE_BUDGET_TEST_ASAN
TEST(DecodeBudget, AllocationWatchSeesTheCodecLibraries) {
  // Without this the check above could pass only because the libraries' requests go unseen.
  largestRequest = 0;
  opj_image_cmptparm_t parm{};
  parm.dx = parm.dy = 1, parm.w = parm.h = 1024, parm.prec = 8;
  opj_image_destroy(opj_image_create(1, &parm, OPJ_CLRSPC_GRAY));
  EXPECT_GE(largestRequest.load(), size_t{1024} * 1024 * 4);
}
#endif

}  // namespace
