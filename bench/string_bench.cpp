// UTF-8 <-> wide conversion of CMRL_ByteStringConverter against the system's iconv, and string
// copies of the copy-on-write CMRL_ByteString against std::string.

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <memory>
#include <string>
#include <vector>

#include <mrlbase/byte_string.h>
#include <mrlbase/byte_string_converter.h>

#include "core/byte_string_converter_internal.h"

namespace {

enum TextKind { kAscii, kChinese, kMixed };

// `size` bytes (rounded up to a whole piece) of plain ASCII, of Chinese (three-byte characters with
// the odd full-width punctuation), or of a mix of ASCII, Latin, CJK and emoji.
std::string MakeText(int64_t kind, int64_t size) {
  const char* piece = "The quick brown fox jumps over the lazy dog 0123456789. ";
  if (kind == kChinese) {
    piece = "\xE4\xB8\xAD\xE6\x96\x87\xE6\x96\x87\xE6\x9C\xAC\xE7\x9A\x84\xE8\xBD\xAC\xE6\x8D\xA2"
            "\xE9\x80\x9F\xE5\xBA\xA6\xE6\xB5\x8B\xE8\xAF\x95\xEF\xBC\x8C\xE5\xA4\xA9\xE5\x9C\xB0"
            "\xE7\x8E\x84\xE9\xBB\x84\xE3\x80\x82";
  } else if (kind == kMixed) {
    piece = "Gr\xC3\xBC\xC3\x9F" "e, \xE4\xB8\xAD\xE6\x96\x87 text \xF0\x9F\x98\x80; ";
  }
  std::string text;
  while (text.size() < static_cast<size_t>(size)) text += piece;
  return text;
}

// Arguments: the text kind, then its size in bytes.
void TextArgs(benchmark::internal::Benchmark* b) {
  b->ArgNames({"text", "bytes"});
  for (int64_t kind : {kAscii, kChinese, kMixed}) {
    for (int64_t size : {1024, 64 * 1024}) b->Args({kind, size});
  }
}

using IconvHandle = std::unique_ptr<std::remove_pointer_t<iconv_t>, int (*)(iconv_t)>;

IconvHandle OpenIconv(const char* to, const char* from) { return IconvHandle(iconv_open(to, from), iconv_close); }

void BM_Utf8ToWide_Ours(benchmark::State& state) {
  const std::string text = MakeText(state.range(0), state.range(1));
  for (auto _ : state) {
    CMRL_WideString wide = CMRL_ByteStringConverter::utf8_to_unicode(text.data(), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(wide.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// The paths that processors without AVX-512 take: AVX2 kernels, or the SSE2 code without them.
void Utf8ToWideWith(benchmark::State& state, mrl_core::Utf8Kernels kernels) {
  const std::string text = MakeText(state.range(0), state.range(1));
  for (auto _ : state) {
    CMRL_WideString wide = mrl_core::Utf8ToWide(text.data(), text.size(), kernels);
    benchmark::DoNotOptimize(wide.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
void BM_Utf8ToWide_Avx2(benchmark::State& state) { Utf8ToWideWith(state, mrl_core::Utf8Kernels::kAvx2); }
void BM_Utf8ToWide_Portable(benchmark::State& state) { Utf8ToWideWith(state, mrl_core::Utf8Kernels::kPortable); }

void BM_Utf8ToWide_Iconv(benchmark::State& state) {
  const std::string text = MakeText(state.range(0), state.range(1));
  IconvHandle cd = OpenIconv("WCHAR_T", "UTF-8");
  std::vector<wchar_t> out(text.size() + 1);
  for (auto _ : state) {
    char* in = const_cast<char*>(text.data());
    size_t inLeft = text.size();
    char* o = reinterpret_cast<char*>(out.data());
    size_t outLeft = out.size() * sizeof(wchar_t);
    iconv(cd.get(), &in, &inLeft, &o, &outLeft);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_WideToUtf8_Ours(benchmark::State& state) {
  const std::string text = MakeText(state.range(0), state.range(1));
  const CMRL_WideString wide = CMRL_ByteStringConverter::utf8_to_unicode(text.data(), static_cast<int>(text.size()));
  for (auto _ : state) {
    CMRL_ByteString utf8 = CMRL_ByteStringConverter::unicode_to_utf8(wide.c_str(), wide.GetLength());
    benchmark::DoNotOptimize(utf8.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void WideToUtf8With(benchmark::State& state, mrl_core::Utf8Kernels kernels) {
  const std::string text = MakeText(state.range(0), state.range(1));
  const CMRL_WideString wide = CMRL_ByteStringConverter::utf8_to_unicode(text.data(), static_cast<int>(text.size()));
  for (auto _ : state) {
    CMRL_ByteString utf8 = mrl_core::WideToUtf8(wide.c_str(), static_cast<size_t>(wide.GetLength()), kernels);
    benchmark::DoNotOptimize(utf8.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
void BM_WideToUtf8_Avx2(benchmark::State& state) { WideToUtf8With(state, mrl_core::Utf8Kernels::kAvx2); }
void BM_WideToUtf8_Portable(benchmark::State& state) { WideToUtf8With(state, mrl_core::Utf8Kernels::kPortable); }

void BM_WideToUtf8_Iconv(benchmark::State& state) {
  const std::string text = MakeText(state.range(0), state.range(1));
  const CMRL_WideString wide = CMRL_ByteStringConverter::utf8_to_unicode(text.data(), static_cast<int>(text.size()));
  IconvHandle cd = OpenIconv("UTF-8", "WCHAR_T");
  std::vector<char> out(text.size() + 16);
  for (auto _ : state) {
    char* in = reinterpret_cast<char*>(const_cast<wchar_t*>(wide.c_str()));
    size_t inLeft = static_cast<size_t>(wide.GetLength()) * sizeof(wchar_t);
    char* o = out.data();
    size_t outLeft = out.size();
    iconv(cd.get(), &in, &inLeft, &o, &outLeft);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// Passing a 1 KiB string by value: a shared buffer against a deep copy.
void BM_StringCopy_ByteString(benchmark::State& state) {
  const CMRL_ByteString source(std::string(1024, 'x'));
  for (auto _ : state) {
    CMRL_ByteString copy = source;
    benchmark::DoNotOptimize(copy.c_str());
  }
}

void BM_StringCopy_StdString(benchmark::State& state) {
  const std::string source(1024, 'x');
  for (auto _ : state) {
    std::string copy = source;
    benchmark::DoNotOptimize(copy.data());
  }
}

// Building a string one character at a time.
void BM_StringAppend_ByteString(benchmark::State& state) {
  for (auto _ : state) {
    CMRL_ByteString s;
    for (int i = 0; i < 4096; ++i) s += static_cast<char>('a' + i % 26);
    benchmark::DoNotOptimize(s.c_str());
  }
}

void BM_StringAppend_StdString(benchmark::State& state) {
  for (auto _ : state) {
    std::string s;
    for (int i = 0; i < 4096; ++i) s += static_cast<char>('a' + i % 26);
    benchmark::DoNotOptimize(s.data());
  }
}

}  // namespace

BENCHMARK(BM_Utf8ToWide_Ours)->Apply(TextArgs);
BENCHMARK(BM_Utf8ToWide_Avx2)->Apply(TextArgs);
BENCHMARK(BM_Utf8ToWide_Portable)->Apply(TextArgs);
BENCHMARK(BM_Utf8ToWide_Iconv)->Apply(TextArgs);
BENCHMARK(BM_WideToUtf8_Ours)->Apply(TextArgs);
BENCHMARK(BM_WideToUtf8_Avx2)->Apply(TextArgs);
BENCHMARK(BM_WideToUtf8_Portable)->Apply(TextArgs);
BENCHMARK(BM_WideToUtf8_Iconv)->Apply(TextArgs);
BENCHMARK(BM_StringCopy_ByteString);
BENCHMARK(BM_StringCopy_StdString);
BENCHMARK(BM_StringAppend_ByteString);
BENCHMARK(BM_StringAppend_StdString);

BENCHMARK_MAIN();
