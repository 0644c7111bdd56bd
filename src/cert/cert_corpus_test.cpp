// The public certificate corpus of other X.509 implementations, read whole: every file is read
// exactly where libcrypto itself finds a certificate in it, and refused exactly where it finds
// none. What is read must show the certificate libcrypto found, as libcrypto computes it here.
#include <gtest/gtest.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>
#include <openssl/provider.h>
#include <openssl/x509.h>

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "cert/cert_test_support.h"

namespace {

namespace fs = std::filesystem;

void FreeBio(BIO* bio) { BIO_free(bio); }
void FreeText(char* text) { OPENSSL_free(text); }
void FreeBytes(unsigned char* bytes) { OPENSSL_free(bytes); }
void UnloadProvider(OSSL_PROVIDER* provider) { OSSL_PROVIDER_unload(provider); }

using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;
using BioPtr = std::unique_ptr<BIO, decltype(&FreeBio)>;
using Pkcs7Ptr = std::unique_ptr<PKCS7, decltype(&PKCS7_free)>;
using Pkcs12Ptr = std::unique_ptr<PKCS12, decltype(&PKCS12_free)>;
using BignumPtr = std::unique_ptr<BIGNUM, decltype(&BN_free)>;
using TextPtr = std::unique_ptr<char, decltype(&FreeText)>;
using BytesPtr = std::unique_ptr<unsigned char, decltype(&FreeBytes)>;
using LibContextPtr = std::unique_ptr<OSSL_LIB_CTX, decltype(&OSSL_LIB_CTX_free)>;
using ProviderPtr = std::unique_ptr<OSSL_PROVIDER, decltype(&UnloadProvider)>;

X509Ptr NoCert() { return X509Ptr(nullptr, X509_free); }

const std::string kCorpus = std::string(ZEL_TESTDATA_DIR) + "/certcorpus";

struct CorpusFile {
  std::string path;  // relative to the corpus folder
  std::string kind;  // "parse" or "p12"
  std::string password;
};

// The rows of MANIFEST.tsv: file, kind, password, then columns about the file's origin.
std::vector<CorpusFile> ReadManifest() {
  std::ifstream in(kCorpus + "/MANIFEST.tsv");
  std::vector<CorpusFile> files;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> columns;
    std::istringstream fields(line);
    for (std::string column; std::getline(fields, column, '\t');) columns.push_back(column);
    columns.resize(3);
    files.push_back({columns[0], columns[1], columns[2]});
  }
  return files;
}

std::string Hex(const unsigned char* bytes, size_t count) {
  std::string text;
  char pair[3];
  for (size_t i = 0; i < count; ++i) {
    std::snprintf(pair, sizeof(pair), "%02X", bytes[i]);
    text += pair;
  }
  return text;
}

// An encrypted PEM block must not make libcrypto prompt on the terminal of a CI run.
int RefusePassword(char*, int, int, void*) { return -1; }

BioPtr MemoryOf(const std::string& bytes) {
  return BioPtr(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())), FreeBio);
}

// The certificate libcrypto finds in `bytes` tried as a DER certificate, a PEM certificate, a
// PEM PKCS#7 and, when there is no PEM PKCS#7, a DER PKCS#7: the first form that decodes
// decides. A signed or signed-and-enveloped PKCS#7 gives its first listed certificate.
X509Ptr FindCertificate(const std::string& bytes) {
  const auto* cursor = reinterpret_cast<const unsigned char*>(bytes.data());
  if (X509* der = d2i_X509(nullptr, &cursor, static_cast<long>(bytes.size()))) return X509Ptr(der, X509_free);
  if (X509* pem = PEM_read_bio_X509(MemoryOf(bytes).get(), nullptr, RefusePassword, nullptr)) {
    return X509Ptr(pem, X509_free);
  }
  Pkcs7Ptr list(PEM_read_bio_PKCS7(MemoryOf(bytes).get(), nullptr, RefusePassword, nullptr), PKCS7_free);
  if (!list) list.reset(d2i_PKCS7_bio(MemoryOf(bytes).get(), nullptr));
  if (!list) return NoCert();
  STACK_OF(X509)* certs = nullptr;
  if (PKCS7_type_is_signed(list.get()) && list->d.sign != nullptr) {
    certs = list->d.sign->cert;
  } else if (PKCS7_type_is_signedAndEnveloped(list.get()) && list->d.signed_and_enveloped != nullptr) {
    certs = list->d.signed_and_enveloped->cert;
  }
  X509* first = sk_X509_value(certs, 0);  // null for a missing or empty list
  if (first == nullptr || X509_up_ref(first) != 1) return NoCert();
  return X509Ptr(first, X509_free);
}

// A library context of its own with the default and legacy providers, so that containers
// sealed with RC2 or 3DES open here without changing the process's default context.
class LegacyContext {
 public:
  LegacyContext()
      : context_(OSSL_LIB_CTX_new(), OSSL_LIB_CTX_free),
        default_(OSSL_PROVIDER_load(context_.get(), "default"), UnloadProvider),
        legacy_(OSSL_PROVIDER_load(context_.get(), "legacy"), UnloadProvider) {}
  OSSL_LIB_CTX* get() const noexcept { return context_.get(); }

 private:
  LibContextPtr context_;  // declared first, so released after its providers
  ProviderPtr default_;
  ProviderPtr legacy_;
};

struct Opened {
  int code;  // 0 a certificate, 1 refused by PKCS12_parse, -1 no structure or no certificate
  X509Ptr cert;
};

Opened OpenContainer(const LegacyContext& context, const std::string& bytes, const std::string& password) {
  // Decoding into an object made in the context makes PKCS12_parse work in that context.
  PKCS12* target = PKCS12_init_ex(NID_pkcs7_data, context.get(), nullptr);
  const auto* cursor = reinterpret_cast<const unsigned char*>(bytes.data());
  Pkcs12Ptr container(d2i_PKCS12(&target, &cursor, static_cast<long>(bytes.size())), PKCS12_free);
  if (!container) return {-1, NoCert()};  // a failed decode has freed the target
  EVP_PKEY* key = nullptr;
  X509* cert = nullptr;
  if (PKCS12_parse(container.get(), password.c_str(), &key, &cert, nullptr) <= 0) return {1, NoCert()};
  EVP_PKEY_free(key);
  X509Ptr owned(cert, X509_free);
  return {owned ? 0 : -1, std::move(owned)};
}

// A validity text that is empty, or of ten characters or fewer without a final Z, has no date
// to read: the reading stops there with std::out_of_range.
bool DatelessTime(const ASN1_TIME* time) {
  if (time == nullptr) return true;
  const int length = ASN1_STRING_length(time);
  const unsigned char* text = ASN1_STRING_get0_data(time);
  return length == 0 || (length <= 10 && text[length - 1] != 'Z' && text[length - 1] != 'z');
}

bool ReadingStops(const X509* cert) {
  return DatelessTime(X509_get0_notBefore(cert)) || DatelessTime(X509_get0_notAfter(cert));
}

std::string DerOf(X509* cert) {
  unsigned char* raw = nullptr;
  const int length = i2d_X509(cert, &raw);
  BytesPtr der(raw, FreeBytes);
  return length > 0 ? std::string(reinterpret_cast<const char*>(der.get()), length) : std::string();
}

// UTF-8 of the name's last common name, the one a reading keeps; nothing without one.
std::optional<std::string> LastCommonName(const X509_NAME* name) {
  int index = -1;
  for (int next; (next = X509_NAME_get_index_by_NID(name, NID_commonName, index)) >= 0;) index = next;
  if (index < 0) return std::nullopt;
  unsigned char* raw = nullptr;
  const int length = ASN1_STRING_to_UTF8(&raw, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
  BytesPtr utf8(raw, FreeBytes);
  return length > 0 ? std::string(reinterpret_cast<const char*>(utf8.get()), length) : std::string();
}

// The members that libcrypto can vouch for, computed from `cert` itself. `info` was marked
// before the reading, so a member with nothing to show must still hold its mark.
void ExpectRecordShows(const CertInfo& info, X509* cert, const std::string& label) {
  const CertInfo marks = MarkedRecord();
  EXPECT_EQ(Str(info.version), "V" + std::to_string(X509_get_version(cert) + 1)) << label;

  BignumPtr serial(ASN1_INTEGER_to_BN(X509_get0_serialNumber(cert), nullptr), BN_free);
  TextPtr serialHex(serial ? BN_bn2hex(serial.get()) : nullptr, FreeText);
  EXPECT_EQ(Str(info.serialNumber), serialHex ? serialHex.get() : Str(marks.serialNumber)) << label;

  const std::string der = DerOf(cert);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int digestLength = 0;
  if (der.empty() || EVP_Digest(der.data(), der.size(), digest, &digestLength, EVP_sha1(), nullptr) != 1) {
    digestLength = 0;
  }
  EXPECT_EQ(Str(info.thumbprint), Hex(digest, digestLength)) << label;

  const ASN1_BIT_STRING* key = X509_get0_pubkey_bitstr(cert);
  const std::string keyHex = key ? Hex(ASN1_STRING_get0_data(key), ASN1_STRING_length(key)) : std::string();
  EXPECT_EQ(Str(info.publicKey), keyHex.empty() ? Str(marks.publicKey) : keyHex) << label;

  const auto subject = LastCommonName(X509_get_subject_name(cert));
  EXPECT_EQ(Str(info.subject.commonName), subject.value_or(Str(marks.subject.commonName))) << label;
  const auto issuer = LastCommonName(X509_get_issuer_name(cert));
  EXPECT_EQ(Str(info.issuer.commonName), issuer.value_or(Str(marks.issuer.commonName))) << label;
}

// A reading stopped by a dateless validity text has set what comes before the times and
// nothing after them.
void ExpectReadingStoppedAtTheTimes(const CertInfo& info, X509* cert, const std::string& label) {
  const CertInfo marks = MarkedRecord();
  EXPECT_EQ(Str(info.version), "V" + std::to_string(X509_get_version(cert) + 1)) << label;
  EXPECT_NE(Str(info.serialNumber), Str(marks.serialNumber)) << label;
  EXPECT_EQ(Members(info.subject), Members(marks.subject)) << label;
  EXPECT_EQ(Str(info.thumbprint), Str(marks.thumbprint)) << label;
}

// A private folder for exported files, removed with its contents afterwards.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (fs::temp_directory_path() / "zel_cert_corpus_XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
};

struct Tally {
  int read = 0;
  int refused = 0;
  int stopped = 0;  // found, but a validity text without a date ended the reading
};

std::ostream& operator<<(std::ostream& out, const Tally& tally) {
  return out << tally.read << " read, " << tally.refused << " refused, " << tally.stopped
             << " stopped on a validity text";
}

}  // namespace

TEST(CertCorpus, ManifestListsEveryFileOnce) {
  if (!fs::is_directory(kCorpus)) GTEST_SKIP() << "no certificate corpus at " << kCorpus;
  std::set<std::string> listed;
  for (const CorpusFile& file : ReadManifest()) {
    EXPECT_TRUE(file.kind == "parse" || file.kind == "p12") << file.path << ": " << file.kind;
    EXPECT_TRUE(listed.insert(file.path).second) << file.path << " listed twice";
    const fs::path path = kCorpus + "/" + file.path;
    EXPECT_TRUE(fs::is_regular_file(path) && fs::file_size(path) > 0) << file.path << " missing or empty";
  }
  std::set<std::string> present;
  for (const auto& entry : fs::recursive_directory_iterator(kCorpus + "/files")) {
    if (entry.is_regular_file()) present.insert(fs::relative(entry.path(), kCorpus).string());
  }
  EXPECT_EQ(listed, present);
}

TEST(CertCorpus, PublicFormsReadExactlyWhereLibcryptoFindsACertificate) {
  if (!fs::is_directory(kCorpus)) GTEST_SKIP() << "no certificate corpus at " << kCorpus;
  const std::vector<std::string> untouched = Members(MarkedRecord());
  Tally tally;
  for (const CorpusFile& file : ReadManifest()) {
    if (file.kind != "parse") continue;
    const std::string bytes = ReadFileBytes(kCorpus + "/" + file.path);
    const X509Ptr expected = FindCertificate(bytes);
    CertInfo info = MarkedRecord();
    bool read = false;
    bool stopped = false;
    try {
      read = ParsePublicKeyCert(Bytes(bytes), info);
    } catch (const std::out_of_range&) {
      stopped = true;
    }
    if (!expected) {
      ++tally.refused;
      EXPECT_FALSE(read) << file.path << ": read, but libcrypto finds no certificate";
      EXPECT_FALSE(stopped) << file.path;
      EXPECT_EQ(Members(info), untouched) << file.path;
      continue;
    }
    const bool mustStop = ReadingStops(expected.get());
    EXPECT_EQ(stopped, mustStop) << file.path;
    if (mustStop) {
      ++tally.stopped;
      ExpectReadingStoppedAtTheTimes(info, expected.get(), file.path);
      continue;
    }
    ++tally.read;
    EXPECT_TRUE(read) << file.path << ": refused, but libcrypto finds a certificate";
    ExpectRecordShows(info, expected.get(), file.path);
    // Whatever form it came in, the certificate fills the record as its plain DER does.
    CertInfo fromDer = MarkedRecord();
    EXPECT_TRUE(ParsePublicKeyCert(Bytes(DerOf(expected.get())), fromDer)) << file.path;
    EXPECT_EQ(Members(fromDer), Members(info)) << file.path;
  }
  std::cout << "parse files: " << tally << "\n";
  // Both outcomes occur in the corpus; a folder read as all-refused means the files went missing.
  EXPECT_GT(tally.read, 0);
  EXPECT_GT(tally.refused, 0);
}

TEST(CertCorpus, ContainersOpenExactlyWhereLibcryptoOpensThem) {
  if (!fs::is_directory(kCorpus)) GTEST_SKIP() << "no certificate corpus at " << kCorpus;
  const LegacyContext context;
  ASSERT_NE(context.get(), nullptr);
  const ScratchFolder folder;
  ASSERT_FALSE(folder.path().empty());
  const std::string exported = folder.path() + "/exported.der";
  const std::vector<std::string> untouched = Members(MarkedRecord());
  // By password: the documented one, then one character more, which a MAC must refuse.
  Tally tallies[2];
  int unopened[2] = {0, 0};  // refused by PKCS12_parse (1); the rest of the refusals hold no certificate
  for (const CorpusFile& file : ReadManifest()) {
    if (file.kind != "p12") continue;
    const std::string bytes = ReadFileBytes(kCorpus + "/" + file.path);
    for (int wrong = 0; wrong < 2; ++wrong) {
      const std::string password = wrong ? file.password + "!" : file.password;
      const std::string label = file.path + (wrong ? " (wrong password)" : "");
      Tally& tally = tallies[wrong];
      const Opened expected = OpenContainer(context, bytes, password);
      CertInfo info = MarkedRecord();
      int code = 99;
      bool stopped = false;
      try {
        code = ParsePrivateKeyCert(Bytes(bytes), Bytes(password), info);
      } catch (const std::out_of_range&) {
        stopped = true;
      }
      fs::remove(exported);
      EXPECT_EQ(ExportPublicKeyCert(Bytes(bytes), Bytes(password), exported.c_str()), expected.code) << label;

      if (expected.code != 0) {
        ++tally.refused;
        if (expected.code == 1) ++unopened[wrong];
        EXPECT_EQ(code, expected.code) << label;
        EXPECT_FALSE(stopped) << label;
        EXPECT_EQ(Members(info), untouched) << label;
        EXPECT_FALSE(fs::exists(exported)) << label;
        continue;
      }
      // The file holds exactly the certificate, whatever became of the record.
      EXPECT_EQ(ReadFileBytes(exported), DerOf(expected.cert.get())) << label;
      const bool mustStop = ReadingStops(expected.cert.get());
      EXPECT_EQ(stopped, mustStop) << label;
      if (mustStop) {
        ++tally.stopped;
        ExpectReadingStoppedAtTheTimes(info, expected.cert.get(), label);
        continue;
      }
      ++tally.read;
      EXPECT_EQ(code, 0) << label;
      ExpectRecordShows(info, expected.cert.get(), label);
      // The exported file reads back as a DER certificate into the same record.
      CertInfo again = MarkedRecord();
      EXPECT_TRUE(ParsePublicKeyCert(Bytes(ReadFileBytes(exported)), again)) << label;
      EXPECT_EQ(Members(again), Members(info)) << label;
    }
  }
  std::cout << "p12 files, documented password: " << tallies[0] << " (" << unopened[0]
            << " of the refusals by PKCS12_parse)\n"
            << "p12 files, wrong password: " << tallies[1] << " (" << unopened[1]
            << " of the refusals by PKCS12_parse)\n";
  EXPECT_GT(tallies[0].read, 0);
  EXPECT_GT(unopened[1], 0);
}
