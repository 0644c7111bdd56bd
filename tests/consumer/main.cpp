// A program outside the library's tree: it sees only the installed headers and libraries.
#if __has_include(<zelutility/zelutility.h>)
#include <mrlbase/mrlbase.h>
#include <zelutility/zelutility.h>
#else
#include <mrlbase/byte_string.h>
#include <mrlbase/wide_string.h>
#include <zelutility/base64.h>
#include <zelutility/cert.h>
#include <zelutility/json.h>
#include <zelutility/json_factory.h>
#endif

#include <cstdio>
#include <cstring>

namespace {

int failures = 0;

void Expect(bool condition, const char* what) {
  if (!condition) {
    std::printf("FAILED: %s\n", what);
    ++failures;
  }
}

}  // namespace

// argv[1] is the text to encode; run.sh compares the encoding with the system's base64.
int main(int argc, char** argv) {
  const char* plain = argc > 1 ? argv[1] : "zelutility";

  auto root = ZELJsonFactory::ParseJsonString(R"({"name":"consumer","marks":[1,2]})");
  Expect(root != nullptr, "parse");
  if (root) {
    root->SetInt("count", 3);
    Expect(root->GetInt("count", 0) == 3, "read back the added member");
    Expect(root->GetChild("marks") && root->GetChild("marks")->GetSize() == 2, "array child");
    std::printf("json %s\n", ZELJsonFactory::BuildJsonString(root).c_str());
  }

  const auto* bytes = reinterpret_cast<const unsigned char*>(plain);
  const int length = static_cast<int>(std::strlen(plain));
  const CMRL_ByteString encoded = Base64Encode(bytes, length);
  const CMRL_ByteString decoded = Base64Decode(encoded.c_str(), encoded.GetLength());
  Expect(decoded.GetLength() == length && std::memcmp(decoded.c_str(), plain, length) == 0,
         "base64 round trip");
  std::printf("base64 %s\n", encoded.c_str());

  CMRL_WideString signature;
  CMRL_WideString digest;
  const bool named = GetSignatureAndDigestAlgorithm(CMRL_WideString(L"1.2.840.113549.1.1.11"),
                                                    signature, digest);
  Expect(named, "algorithm name");
  std::printf("algorithm %ls %ls\n", signature.c_str(), digest.c_str());

  CertInfo info;
  Expect(!ParsePublicKeyCert(CMRL_ByteString("not a certificate"), info) && info.version.IsEmpty(),
         "refused certificate leaves the record empty");

  return failures == 0 ? 0 : 1;
}
