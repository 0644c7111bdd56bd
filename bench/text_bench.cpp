// Base64 against OpenSSL's block codec, and UTF-8 <-> wide text against glibc iconv, in one run.
//
// Throughput is counted in bytes of the binary side for Base64 and in bytes of UTF-8 text for
// the conversions, in both directions, so the rows of one input compare directly.
#include <benchmark/benchmark.h>

#include <iconv.h>
#include <malloc.h>
#include <openssl/evp.h>

#include <memory>
#include <random>
#include <string>

#include <mrlbase/byte_string_converter.h>
#include <zelutility/base64.h>
#include <zelutility/text_encoding.h>

namespace {

constexpr int kKiB = 1024;

std::string RandomBytes(std::size_t n) {
  std::mt19937_64 rng(42);
  std::string s(n, '\0');
  for (char& c : s) c = static_cast<char>(rng());
  return s;
}

const unsigned char* Bytes(const std::string& s) { return reinterpret_cast<const unsigned char*>(s.data()); }

void BM_Base64Encode_Zel(benchmark::State& state) {
  const std::string data = RandomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    CMRL_ByteString text = Base64Encode(Bytes(data), static_cast<int>(data.size()));
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void BM_Base64Encode_OpenSSL(benchmark::State& state) {
  const std::string data = RandomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    // Allocated per call as the library's encoder does, so both pay for their output.
    std::unique_ptr<unsigned char[]> text(new unsigned char[(data.size() + 2) / 3 * 4 + 1]);
    benchmark::DoNotOptimize(EVP_EncodeBlock(text.get(), Bytes(data), static_cast<int>(data.size())));
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void BM_Base64Decode_Zel(benchmark::State& state) {
  const std::string data = RandomBytes(static_cast<std::size_t>(state.range(0)));
  const CMRL_ByteString text = Base64Encode(Bytes(data), static_cast<int>(data.size()));
  for (auto _ : state) {
    CMRL_ByteString bytes = Base64Decode(text.c_str(), text.GetLength());
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void BM_Base64Decode_OpenSSL(benchmark::State& state) {
  const std::string data = RandomBytes(static_cast<std::size_t>(state.range(0)));
  const CMRL_ByteString text = Base64Encode(Bytes(data), static_cast<int>(data.size()));
  for (auto _ : state) {
    std::unique_ptr<unsigned char[]> bytes(new unsigned char[static_cast<std::size_t>(text.GetLength()) / 4 * 3 + 1]);
    benchmark::DoNotOptimize(EVP_DecodeBlock(bytes.get(), reinterpret_cast<const unsigned char*>(text.c_str()),
                                             text.GetLength()));
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

BENCHMARK(BM_Base64Encode_Zel)->Arg(kKiB)->Arg(64 * kKiB)->Arg(16 * kKiB * kKiB);
BENCHMARK(BM_Base64Encode_OpenSSL)->Arg(kKiB)->Arg(64 * kKiB)->Arg(16 * kKiB * kKiB);
BENCHMARK(BM_Base64Decode_Zel)->Arg(kKiB)->Arg(64 * kKiB)->Arg(16 * kKiB * kKiB);
BENCHMARK(BM_Base64Decode_OpenSSL)->Arg(kKiB)->Arg(64 * kKiB)->Arg(16 * kKiB * kKiB);

// Texts of about 256 KiB: plain ASCII, Chinese (three bytes a character), and a mix of ASCII
// words, Latin letters with accents, Chinese and a few characters beyond the first plane.
enum TextKind { kAscii, kChinese, kMixed };

std::string SampleText(int kind) {
  const char* piece = nullptr;
  switch (kind) {
    case kAscii:
      piece = "The quick brown fox jumps over the lazy dog; 0123456789 (page 12 of 40).\n";
      break;
    case kChinese:
      piece = "\xE6\x96\x87\xE6\xA1\xA3\xE5\xA4\x84\xE7\x90\x86\xE5\xBC\x95\xE6\x93\x8E\xE7\x9A\x84"
              "\xE5\xB7\xA5\xE5\x85\xB7\xE5\xBA\x93\xE6\x8F\x90\xE4\xBE\x9B\xE6\x96\x87\xE6\x9C\xAC"
              "\xE5\x92\x8C\xE5\x9B\xBE\xE5\x83\x8F\xE6\x9C\x8D\xE5\x8A\xA1\xE3\x80\x82";
      break;
    default:
      piece = "Invoice \xE5\x8F\x91\xE7\xA5\xA8 Nr. 42 \xE2\x80\x93 M\xC3\xBCller & Fils, "
              "Gr\xC3\xB6\xC3\x9F" "e 3 \xE5\xAE\xA2\xE6\x88\xB7\xE7\xAD\xBE\xE5\x90\x8D \xF0\x9F\x93\x84 ok.\n";
      break;
  }
  std::string text;
  while (text.size() < 256 * kKiB) text += piece;
  return text;
}

// One conversion direction of glibc iconv, reused across calls like a caller would keep it.
class Iconv {
 public:
  Iconv(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
  ~Iconv() {
    if (handle_ != reinterpret_cast<iconv_t>(-1)) iconv_close(handle_);
  }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  bool ok() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

  // Converts all of `in` into `out` (sized generously by the caller); returns the bytes written.
  std::size_t Convert(const char* in, std::size_t inBytes, char* out, std::size_t outBytes) {
    iconv(handle_, nullptr, nullptr, nullptr, nullptr);
    char* src = const_cast<char*>(in);
    char* dst = out;
    std::size_t outLeft = outBytes;
    iconv(handle_, &src, &inBytes, &dst, &outLeft);
    return outBytes - outLeft;
  }

 private:
  iconv_t handle_;
};

void BM_Utf8ToWide_Zel(benchmark::State& state) {
  const std::string text = SampleText(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::wstring wide = Utf82Unicode(text.data(), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(wide);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

// The foundation converter alone, to show what the copy into the standard string adds.
void BM_Utf8ToWide_Converter(benchmark::State& state) {
  const std::string text = SampleText(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    CMRL_WideString wide = CMRL_ByteStringConverter::utf8_to_unicode(text.data(), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(wide);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Utf8ToWide_Iconv(benchmark::State& state) {
  const std::string text = SampleText(static_cast<int>(state.range(0)));
  Iconv converter("WCHAR_T", "UTF-8");
  if (!converter.ok()) {
    state.SkipWithError("iconv cannot convert UTF-8 to WCHAR_T");
    return;
  }
  for (auto _ : state) {
    // Output allocated per call like the library's result, uninitialised, at the worst case.
    std::unique_ptr<wchar_t[]> wide(new wchar_t[text.size()]);
    benchmark::DoNotOptimize(
        converter.Convert(text.data(), text.size(), reinterpret_cast<char*>(wide.get()), text.size() * sizeof(wchar_t)));
    benchmark::DoNotOptimize(wide);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_WideToUtf8_Zel(benchmark::State& state) {
  const std::string text = SampleText(static_cast<int>(state.range(0)));
  const std::wstring wide = Utf82Unicode(text.data(), static_cast<int>(text.size()));
  for (auto _ : state) {
    std::string utf8 = Unicode2Utf8(wide.data(), static_cast<int>(wide.size()));
    benchmark::DoNotOptimize(utf8);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_WideToUtf8_Converter(benchmark::State& state) {
  const std::string text = SampleText(static_cast<int>(state.range(0)));
  const std::wstring wide = Utf82Unicode(text.data(), static_cast<int>(text.size()));
  for (auto _ : state) {
    CMRL_ByteString utf8 = CMRL_ByteStringConverter::unicode_to_utf8(wide.data(), static_cast<int>(wide.size()));
    benchmark::DoNotOptimize(utf8);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_WideToUtf8_Iconv(benchmark::State& state) {
  const std::string text = SampleText(static_cast<int>(state.range(0)));
  const std::wstring wide = Utf82Unicode(text.data(), static_cast<int>(text.size()));
  Iconv converter("UTF-8", "WCHAR_T");
  if (!converter.ok()) {
    state.SkipWithError("iconv cannot convert WCHAR_T to UTF-8");
    return;
  }
  for (auto _ : state) {
    std::unique_ptr<char[]> utf8(new char[wide.size() * 4]);
    benchmark::DoNotOptimize(converter.Convert(reinterpret_cast<const char*>(wide.data()),
                                               wide.size() * sizeof(wchar_t), utf8.get(), wide.size() * 4));
    benchmark::DoNotOptimize(utf8);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void TextKinds(benchmark::internal::Benchmark* b) {
  b->ArgName("text");
  for (int kind : {kAscii, kChinese, kMixed}) b->Arg(kind);
}

BENCHMARK(BM_Utf8ToWide_Zel)->Apply(TextKinds);
BENCHMARK(BM_Utf8ToWide_Converter)->Apply(TextKinds);
BENCHMARK(BM_Utf8ToWide_Iconv)->Apply(TextKinds);
BENCHMARK(BM_WideToUtf8_Zel)->Apply(TextKinds);
BENCHMARK(BM_WideToUtf8_Converter)->Apply(TextKinds);
BENCHMARK(BM_WideToUtf8_Iconv)->Apply(TextKinds);

}  // namespace

// Every row allocates its output per call. glibc would serve the large ones with fresh mappings
// or trim the heap after each, so the rows would time the kernel's page faults (costly on a
// virtual machine) and depend on the order they run in. Keeping the memory in the heap for all
// rows alike leaves the conversions themselves to be timed.
int main(int argc, char** argv) {
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 128 << 20);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
