// Certificate containers: PKCS#7 lists through ParsePublicKeyCert, PKCS#12 through
// ParsePrivateKeyCert and ExportPublicKeyCert, the legacy algorithms included.
#include <gtest/gtest.h>

#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cert/cert_internal.h"
#include "cert/cert_test_support.h"

namespace {

CertInfo ReadCert(const char* fixture) {
  CertInfo info;
  EXPECT_TRUE(ParsePublicKeyCert(CertFixture(fixture), info)) << fixture;
  return info;
}

bool FileExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

// A private folder for the files one test writes, removed with its contents afterwards.
class ExportFolder {
 public:
  ExportFolder() {
    char pattern[] = "/tmp/zel_cert_test_XXXXXX";
    path_ = mkdtemp(pattern) ? pattern : "";
  }
  ~ExportFolder() {
    for (const std::string& file : created_) std::remove(file.c_str());
    rmdir(path_.c_str());
  }
  std::string File(const std::string& name) {
    created_.push_back(path_ + "/" + name);
    return created_.back();
  }
  bool ok() const { return !path_.empty(); }

 private:
  std::string path_;
  std::vector<std::string> created_;
};

}  // namespace

TEST(CertPkcs7, FirstCertificateOfSignedData) {
  // leaf, root, EC in that order: the first as stored, whoever signed what.
  const CertInfo leaf = ReadCert("leaf.der");
  EXPECT_EQ(Members(ReadCert("chain3.p7b")), Members(leaf));
  EXPECT_EQ(Members(ReadCert("chain3.p7b.der")), Members(leaf));
}

TEST(CertPkcs7, SignedAndEnvelopedListCountsToo) {
  std::unique_ptr<PKCS7, void (*)(PKCS7*)> p7(PKCS7_new(), PKCS7_free);
  ASSERT_EQ(PKCS7_set_type(p7.get(), NID_pkcs7_signedAndEnveloped), 1);
  // Only the algorithm of the (absent) encrypted content is needed to encode the envelope.
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
  std::unique_ptr<BIO, int (*)(BIO*)> bio(BIO_new(BIO_s_mem()), BIO_free);
  ASSERT_EQ(PEM_write_bio_PKCS7(bio.get(), p7.get()), 1);
  char* text = nullptr;
  const long textLength = BIO_get_mem_data(bio.get(), &text);
  const CMRL_ByteString pem(text, static_cast<int>(textLength));

  // This list is a DER SET OF, so encoding sorts it: the shorter leaf is stored first, though
  // it was added second.
  const std::vector<std::string> leaf = Members(ReadCert("leaf.der"));
  for (const CMRL_ByteString* input : {&der, &pem}) {
    CertInfo info;
    ASSERT_TRUE(ParsePublicKeyCert(*input, info));
    EXPECT_EQ(Members(info), leaf);
  }
}

TEST(CertPkcs7, ContentWithoutCertificatesGivesFalse) {
  for (const char* fixture : {"enveloped.p7m", "enveloped.p7m.der", "empty_signed.p7b", "empty_signed.p7b.der"}) {
    CertInfo info = MarkedRecord();
    EXPECT_FALSE(ParsePublicKeyCert(CertFixture(fixture), info)) << fixture;
    EXPECT_EQ(Members(info), Members(MarkedRecord())) << fixture;
  }
  // Signed and signed-and-enveloped types whose optional content is missing altogether.
  for (const char last : {'\x02', '\x04'}) {
    const char bytes[] = {0x30, 0x0B, 0x06, 0x09, 0x2A, char(0x86), 0x48, char(0x86), char(0xF7), 0x0D, 0x01, 0x07, last};
    CertInfo info = MarkedRecord();
    EXPECT_FALSE(ParsePublicKeyCert(CMRL_ByteString(bytes, sizeof(bytes)), info)) << int(last);
    EXPECT_EQ(Members(info), Members(MarkedRecord()));
  }
}

TEST(CertPkcs12, OpensTodaysAndLegacyContainers) {
  CertInfo info;
  EXPECT_EQ(ParsePrivateKeyCert(CertFixture("leaf.p12"), "zel-secret", info), 0);
  // The certificate that belongs to the key, not the CA stored beside it.
  EXPECT_EQ(Members(info), Members(ReadCert("leaf.der")));

  CertInfo empty;
  EXPECT_EQ(ParsePrivateKeyCert(CertFixture("leaf_nopass.p12"), "", empty), 0);
  EXPECT_EQ(Members(empty), Members(ReadCert("leaf.der")));

  // RC2-40 certificate bag, 3DES key bag, SHA-1 MAC.
  CertInfo legacy;
  EXPECT_EQ(ParsePrivateKeyCert(CertFixture("root_legacy.p12"), "zel-legacy", legacy), 0);
  EXPECT_EQ(Members(legacy), Members(ReadCert("root.der")));
}

TEST(CertPkcs12, RefusalsAndTheirCodes) {
  const CertInfo marks = MarkedRecord();
  struct Case {
    const char* fixture;  // null: an empty container string
    const char* password;
    int code;
  };
  const Case cases[] = {
      {"leaf.p12", "wrong", 1},             // opens as PKCS#12, the MAC does not match
      {"leaf.p12", "", 1},
      {"leaf_nopass.p12", "x", 1},
      {"root_legacy.p12", "zel-secret", 1},
      {"keyonly.p12", "zel-secret", -1},    // opens, but holds no certificate
      {"leaf.der", "zel-secret", -1},       // no other form is tried
      {"leaf.pem", "", -1},
      {nullptr, "zel-secret", -1},
  };
  for (const Case& c : cases) {
    CertInfo info = MarkedRecord();
    const CMRL_ByteString container = c.fixture ? CertFixture(c.fixture) : CMRL_ByteString();
    EXPECT_EQ(ParsePrivateKeyCert(container, c.password, info), c.code)
        << (c.fixture ? c.fixture : "empty") << " / " << c.password;
    EXPECT_EQ(Members(info), Members(marks)) << (c.fixture ? c.fixture : "empty");
  }

  // A damaged byte inside the encrypted content: still a PKCS#12 structure, so 1.
  std::string bytes = ReadFileBytes(CertFixturePath("leaf.p12"));
  bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 0x55);
  CertInfo info;
  EXPECT_EQ(ParsePrivateKeyCert(CMRL_ByteString(bytes.data(), static_cast<int>(bytes.size())), "zel-secret", info),
            1);
  // Cut short: no structure at all.
  EXPECT_EQ(ParsePrivateKeyCert(CMRL_ByteString(bytes.data(), 40), "zel-secret", info), -1);
}

TEST(CertPkcs12, LoadHandsOverTheCertificate) {
  X509* cert = nullptr;
  EXPECT_EQ(LoadPkcs12Certificate(CertFixture("root_legacy.p12"), "zel-legacy", &cert), 0);
  ASSERT_NE(cert, nullptr);
  CertInfo info;
  EXPECT_TRUE(FillCertInfo(cert, info));
  X509_free(cert);
  EXPECT_EQ(Str(info.subject.commonName), "Zel Test Root CA");

  cert = nullptr;
  EXPECT_EQ(LoadPkcs12Certificate(CertFixture("root_legacy.p12"), "nope", &cert), 1);
  EXPECT_EQ(cert, nullptr);
  EXPECT_EQ(LoadPkcs12Certificate(CMRL_ByteString(), "", &cert), -1);
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
      codes[i] = (i % 2) ? ParsePrivateKeyCert(legacy, "zel-legacy", info)
                         : ParsePrivateKeyCert(modern, "zel-secret", info);
      if (info.thumbprint.GetLength() != 40) codes[i] = 98;
    });
  }
  for (auto& t : threads) t.join();
  for (int i = 0; i < 8; ++i) EXPECT_EQ(codes[i], 0) << "thread " << i;
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
  ASSERT_TRUE(folder.ok());
  const std::string path = folder.File("leaf.cer");
  // An existing longer file is cut to exactly the certificate.
  {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    const std::string filler(8000, 'x');
    std::fwrite(filler.data(), 1, filler.size(), f);
    std::fclose(f);
  }
  EXPECT_EQ(ExportPublicKeyCert(CertFixture("leaf.p12"), "zel-secret", path.c_str()), 0);
  const std::string written = ReadFileBytes(path);
  EXPECT_EQ(written, ReadFileBytes(CertFixturePath("leaf.der")));

  // The file is the first input form of ParsePublicKeyCert.
  CertInfo info;
  ASSERT_TRUE(ParsePublicKeyCert(CMRL_ByteString(written.data(), static_cast<int>(written.size())), info));
  EXPECT_EQ(Members(info), Members(ReadCert("leaf.der")));

  // Legacy containers export too; a UTF-8 file name is honoured.
  const std::string named = folder.File("\xE8\xAF\x81\xE4\xB9\xA6.der");
  EXPECT_EQ(ExportPublicKeyCert(CertFixture("root_legacy.p12"), "zel-legacy", named.c_str()), 0);
  EXPECT_EQ(ReadFileBytes(named), ReadFileBytes(CertFixturePath("root.der")));
}

TEST(CertExport, RefusalsWriteNothing) {
  ExportFolder folder;
  ASSERT_TRUE(folder.ok());
  const CMRL_ByteString container = CertFixture("leaf.p12");

  // Arguments are checked before the container: an empty path wins over a wrong password.
  EXPECT_EQ(ExportPublicKeyCert(container, "wrong", ""), -1);
  EXPECT_EQ(ExportPublicKeyCert(CMRL_ByteString(), "zel-secret", folder.File("a.der").c_str()), -1);

  const std::string wrong = folder.File("wrong.der");
  EXPECT_EQ(ExportPublicKeyCert(container, "wrong", wrong.c_str()), 1);
  EXPECT_FALSE(FileExists(wrong));

  const std::string keyOnly = folder.File("keyonly.der");
  EXPECT_EQ(ExportPublicKeyCert(CertFixture("keyonly.p12"), "zel-secret", keyOnly.c_str()), -1);
  EXPECT_FALSE(FileExists(keyOnly));

  const std::string notPkcs12 = folder.File("der.der");
  EXPECT_EQ(ExportPublicKeyCert(CertFixture("leaf.der"), "", notPkcs12.c_str()), -1);
  EXPECT_FALSE(FileExists(notPkcs12));

  // The container opens, but the folder does not exist.
  const std::string missing = folder.File("no-such-folder/leaf.der");
  EXPECT_EQ(ExportPublicKeyCert(container, "zel-secret", missing.c_str()), -1);
  EXPECT_FALSE(FileExists(missing));
}
