// Certificate containers: PKCS#7 lists through ParsePublicKeyCert, PKCS#12 through
// ParsePrivateKeyCert and ExportPublicKeyCert, the legacy algorithms included.
#include <gtest/gtest.h>

#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cert/cert_internal.h"
#include "cert/cert_test_support.h"

namespace {

std::vector<std::string> MembersOf(const char* fixture) {
  CertInfo info;
  EXPECT_TRUE(ParsePublicKeyCert(CertFixture(fixture), info)) << fixture;
  return Members(info);
}

// A private folder for the files one test writes, removed with its contents afterwards.
struct ExportFolder {
  char pattern[32] = "/tmp/zel_cert_test_XXXXXX";
  std::string path = mkdtemp(pattern) ? pattern : "";
  ~ExportFolder() { std::filesystem::remove_all(path); }
  std::string File(const std::string& name) const { return path + "/" + name; }
};

}  // namespace

TEST(CertPkcs7, FirstCertificateOfTheList) {
  // leaf, root, EC in that order: the first as stored, whoever signed what.
  const auto leaf = MembersOf("leaf.der");
  EXPECT_EQ(MembersOf("chain3.p7b"), leaf);
  EXPECT_EQ(MembersOf("chain3.p7b.der"), leaf);

  // A signed-and-enveloped list counts too; encoding sorts its SET OF, so the shorter leaf leads.
  std::unique_ptr<PKCS7, void (*)(PKCS7*)> p7(PKCS7_new(), PKCS7_free);
  ASSERT_EQ(PKCS7_set_type(p7.get(), NID_pkcs7_signedAndEnveloped), 1);
  X509_ALGOR_set0(p7->d.signed_and_enveloped->enc_data->algorithm, OBJ_nid2obj(NID_aes_128_cbc), V_ASN1_UNDEF,
                  nullptr);
  for (const char* fixture : {"root.der", "leaf.der"}) {
    const std::string der = ReadFileBytes(CertFixturePath(fixture));
    const auto* cursor = reinterpret_cast<const unsigned char*>(der.data());
    X509* cert = d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
    ASSERT_NE(cert, nullptr);
    PKCS7_add_certificate(p7.get(), cert);  // takes its own reference
    X509_free(cert);
  }
  unsigned char* raw = nullptr;
  const int length = i2d_PKCS7(p7.get(), &raw);
  ASSERT_GT(length, 0);
  const CMRL_ByteString der(reinterpret_cast<const char*>(raw), length);
  OPENSSL_free(raw);
  CertInfo info;
  ASSERT_TRUE(ParsePublicKeyCert(der, info));
  EXPECT_EQ(Members(info), leaf);
}

TEST(CertPkcs7, ContentWithoutCertificatesGivesFalse) {
  std::vector<CMRL_ByteString> inputs;
  for (const char* fixture : {"enveloped.p7m", "empty_signed.p7b.der"}) {
    inputs.push_back(CertFixture(fixture));
  }
  // Signed and signed-and-enveloped types whose optional content is missing altogether.
  for (const char last : {'\x02', '\x04'}) inputs.push_back(Bytes(std::string("\x30\x0B\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07", 12) + last));
  for (size_t i = 0; i < inputs.size(); ++i) {
    CertInfo info = MarkedRecord();
    EXPECT_FALSE(ParsePublicKeyCert(inputs[i], info)) << i;
    EXPECT_EQ(Members(info), Members(MarkedRecord())) << i;
  }
}

TEST(CertPkcs12, OpensTodaysAndLegacyContainers) {
  // The certificate that belongs to the key, not the CA stored beside it. The legacy one holds
  // an RC2-40 certificate bag, a 3DES key bag and a SHA-1 MAC.
  const char* rows[][3] = {{"leaf.p12", "zel-secret", "leaf.der"}, {"leaf_nopass.p12", "", "leaf.der"}, {"root_legacy.p12", "zel-legacy", "root.der"}};
  for (const auto& row : rows) {
    CertInfo info;
    EXPECT_EQ(ParsePrivateKeyCert(CertFixture(row[0]), row[1], info), 0) << row[0];
    EXPECT_EQ(Members(info), MembersOf(row[2])) << row[0];
  }
}

TEST(CertPkcs12, RefusalsAndTheirCodes) {
  std::string damaged = ReadFileBytes(CertFixturePath("leaf.p12"));
  damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 0x55);
  const struct {
    CMRL_ByteString container;
    const char* password;
    int code;
  } cases[] = {
      {CertFixture("leaf.p12"), "wrong", 1},  // opens as PKCS#12, the MAC does not match
      {CertFixture("root_legacy.p12"), "zel-secret", 1},
      {Bytes(damaged), "zel-secret", 1},             // still a PKCS#12 structure
      {CertFixture("keyonly.p12"), "zel-secret", -1},  // opens, but holds no certificate
      {CertFixture("leaf.der"), "zel-secret", -1},     // no other form is tried
      {CMRL_ByteString(), "zel-secret", -1},
      {Bytes(damaged.substr(0, 40)), "zel-secret", -1},  // cut short: no structure at all
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    CertInfo info = MarkedRecord();
    EXPECT_EQ(ParsePrivateKeyCert(cases[i].container, cases[i].password, info), cases[i].code) << i;
    EXPECT_EQ(Members(info), Members(MarkedRecord())) << i;
  }

  X509* cert = nullptr;
  EXPECT_EQ(LoadPkcs12Certificate(CertFixture("root_legacy.p12"), "nope", &cert), 1);
  EXPECT_EQ(cert, nullptr);
}

TEST(CertPkcs12, ThreadsOpeningContainersAtOnce) {
  // The first use builds the shared library context; every thread must see it whole.
  const CMRL_ByteString legacy = CertFixture("root_legacy.p12");
  const CMRL_ByteString modern = CertFixture("leaf.p12");
  std::vector<int> codes(8, 99);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      CertInfo info;
      codes[i] = i % 2 ? ParsePrivateKeyCert(legacy, "zel-legacy", info) : ParsePrivateKeyCert(modern, "zel-secret", info);
      if (info.thumbprint.GetLength() != 40) codes[i] = 98;
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(codes, std::vector<int>(8, 0));
}

TEST(CertPkcs12DeathTest, WithoutTheLegacyModuleOnlyLegacyContainersFail) {
  // In a fresh process whose module folder is empty, the legacy provider cannot load.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        setenv("OPENSSL_MODULES", "/nonexistent-zel-modules", 1);
        CertInfo info;
        const int legacy = ParsePrivateKeyCert(CertFixture("root_legacy.p12"), "zel-legacy", info);
        const int modern = ParsePrivateKeyCert(CertFixture("leaf.p12"), "zel-secret", info);
        std::exit(legacy == 1 && modern == 0 ? 0 : 10 + legacy * 3 + modern);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(CertExport, WritesPlainDerThatReadsBack) {
  ExportFolder folder;
  ASSERT_FALSE(folder.path.empty());
  // An existing longer file is cut to exactly the certificate, which is the first input form of
  // ParsePublicKeyCert.
  const std::string path = folder.File("leaf.cer");
  std::ofstream(path, std::ios::binary) << std::string(8000, 'x');
  EXPECT_EQ(ExportPublicKeyCert(CertFixture("leaf.p12"), "zel-secret", path.c_str()), 0);
  EXPECT_EQ(ReadFileBytes(path), ReadFileBytes(CertFixturePath("leaf.der")));

  // Legacy containers export too; a UTF-8 file name is honoured.
  const std::string named = folder.File("\xE8\xAF\x81\xE4\xB9\xA6.der");
  EXPECT_EQ(ExportPublicKeyCert(CertFixture("root_legacy.p12"), "zel-legacy", named.c_str()), 0);
  EXPECT_EQ(ReadFileBytes(named), ReadFileBytes(CertFixturePath("root.der")));
}

TEST(CertExport, RefusalsWriteNothing) {
  ExportFolder folder;
  ASSERT_FALSE(folder.path.empty());
  const CMRL_ByteString container = CertFixture("leaf.p12");
  // Arguments are checked before the container: an empty path wins over a wrong password.
  EXPECT_EQ(ExportPublicKeyCert(container, "wrong", ""), -1);
  EXPECT_EQ(ExportPublicKeyCert(CMRL_ByteString(), "zel-secret", folder.File("a.der").c_str()), -1);
  const struct {
    const char* container;
    const char* password;
    const char* file;
    int code;
  } cases[] = {{"leaf.p12", "wrong", "wrong.der", 1}, {"keyonly.p12", "zel-secret", "keyonly.der", -1},
               {"leaf.p12", "zel-secret", "no-such-folder/leaf.der", -1}};  // the last opens, but the folder is missing
  for (const auto& c : cases) {
    const std::string path = folder.File(c.file);
    EXPECT_EQ(ExportPublicKeyCert(CertFixture(c.container), c.password, path.c_str()), c.code) << c.file;
    EXPECT_FALSE(std::filesystem::exists(path)) << c.file;
  }
  EXPECT_FALSE(std::filesystem::exists(folder.File("a.der")));
}
