// UTF-8 <-> wide conversion of CMRL_ByteStringConverter against the system's iconv, and string
// copies of the copy-on-write CMRL_ByteString against std::string.

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <memory>
#include <string>
#include <vector>

#include <mrlbase/byte_string.h>
#include <mrlbase/byte_string_converter.h>

namespace {

// About 64 KiB of text: plain ASCII, or a mix of ASCII, Latin, CJK and emoji.
std::string MakeText(bool ascii) {
  const std::string piece = ascii ? std::string("The quick brown fox jumps over the lazy dog 0123456789. ")
                                  : std::string("Gr\xC3\xBC\xC3\x9F" "e, \xE4\xB8\xAD\xE6\x96\x87 text \xF0\x9F\x98\x80; ");
  std::string text;
  while (text.size() < 64 * 1024) text += piece;
  return text;
}

using IconvHandle = std::unique_ptr<std::remove_pointer_t<iconv_t>, int (*)(iconv_t)>;

IconvHandle OpenIconv(const char* to, const char* from) { return IconvHandle(iconv_open(to, from), iconv_close); }

void BM_Utf8ToWide_Ours(benchmark::State& state) {
  const std::string text = MakeText(state.range(0) == 0);
  for (auto _ : state) {
    CMRL_WideString wide = CMRL_ByteStringConverter::utf8_to_unicode(text.data(), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(wide.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_Utf8ToWide_Iconv(benchmark::State& state) {
  const std::string text = MakeText(state.range(0) == 0);
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
  const std::string text = MakeText(state.range(0) == 0);
  const CMRL_WideString wide = CMRL_ByteStringConverter::utf8_to_unicode(text.data(), static_cast<int>(text.size()));
  for (auto _ : state) {
    CMRL_ByteString utf8 = CMRL_ByteStringConverter::unicode_to_utf8(wide.c_str(), wide.GetLength());
    benchmark::DoNotOptimize(utf8.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_WideToUtf8_Iconv(benchmark::State& state) {
  const std::string text = MakeText(state.range(0) == 0);
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

BENCHMARK(BM_Utf8ToWide_Ours)->Arg(0)->Arg(1);
BENCHMARK(BM_Utf8ToWide_Iconv)->Arg(0)->Arg(1);
BENCHMARK(BM_WideToUtf8_Ours)->Arg(0)->Arg(1);
BENCHMARK(BM_WideToUtf8_Iconv)->Arg(0)->Arg(1);
BENCHMARK(BM_StringCopy_ByteString);
BENCHMARK(BM_StringCopy_StdString);
BENCHMARK(BM_StringAppend_ByteString);
BENCHMARK(BM_StringAppend_StdString);

BENCHMARK_MAIN();
