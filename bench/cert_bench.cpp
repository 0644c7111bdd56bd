// ParsePublicKeyCert on each input form against the bare decode (d2i_X509 + X509_free) of the
// same certificate: the record costs names, times, key text, a SHA-1 and seven extensions on top.
#include <benchmark/benchmark.h>

#include <openssl/x509.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <zelutility/cert.h>

namespace {

// The committed test fixtures, found from this file's place in the tree (or $ZEL_SOURCE_DIR).
std::string Fixture(const char* name) {
  const char* root = std::getenv("ZEL_SOURCE_DIR");
  std::string folder;
  if (root != nullptr) {
    folder = std::string(root) + "/src/cert/testdata/";
  } else {
    folder = __FILE__;
    folder = folder.substr(0, folder.rfind('/') + 1) + "../src/cert/testdata/";
  }
  std::ifstream in(folder + name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void BareDecode(benchmark::State& state, const char* name) {
  const std::string der = Fixture(name);
  if (der.empty()) {
    state.SkipWithError("fixture missing");
    return;
  }
  for (auto _ : state) {
    const unsigned char* cursor = reinterpret_cast<const unsigned char*>(der.data());
    X509* cert = d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
    benchmark::DoNotOptimize(cert);
    X509_free(cert);
  }
}

void ParseRecord(benchmark::State& state, const char* name) {
  const std::string bytes = Fixture(name);
  if (bytes.empty()) {
    state.SkipWithError("fixture missing");
    return;
  }
  const CMRL_ByteString input(bytes.data(), static_cast<int>(bytes.size()));
  for (auto _ : state) {
    CertInfo info;
    const bool ok = ParsePublicKeyCert(input, info);
    benchmark::DoNotOptimize(ok);
    if (!ok) state.SkipWithError("not read");
  }
}

}  // namespace

// The RSA root carries all seven extensions; the EC certificate is small and plain.
BENCHMARK_CAPTURE(BareDecode, rsa_der, "root.der");
BENCHMARK_CAPTURE(ParseRecord, rsa_der, "root.der");
BENCHMARK_CAPTURE(ParseRecord, rsa_pem, "root.pem");
BENCHMARK_CAPTURE(ParseRecord, rsa_pkcs7_pem, "root.p7b");
BENCHMARK_CAPTURE(ParseRecord, rsa_pkcs7_der, "root.p7b.der");
BENCHMARK_CAPTURE(BareDecode, ec_der, "ec.der");
BENCHMARK_CAPTURE(ParseRecord, ec_der, "ec.der");

BENCHMARK_MAIN();
