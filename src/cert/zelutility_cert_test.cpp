// Reading X.509 certificates into records: the four input forms, the fields and extensions of
// the committed fixtures, append rules across readings, lists of certificates and validity times.
#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cert/cert_internal.h"
#include "cert/cert_test_support.h"

namespace {

std::string HexOf(const std::string& bytes) {
  return Str(BytesToHexText(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size())));
}

// SHA-1 computed apart from the certificate code, over raw bytes.
std::string Sha1Hex(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha1(), nullptr);
  return HexOf(std::string(reinterpret_cast<char*>(digest), length));
}

std::string FromHex(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  return bytes;
}

const CertInfo kMarks = MarkedRecord();

CertInfo Read(const char* fixture, CertInfo info = CertInfo()) {
  EXPECT_TRUE(ParsePublicKeyCert(CertFixture(fixture), info)) << fixture;
  return info;
}

using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;

CMRL_ByteString Der(const X509* cert) {
  unsigned char* der = nullptr;
  const int length = i2d_X509(cert, &der);
  CMRL_ByteString bytes(reinterpret_cast<const char*>(der), length);
  OPENSSL_free(der);
  return bytes;
}

// A signed P-256 certificate whose validity texts are whatever the test wants, DER-encoded;
// `adjust` may change it before it is signed.
CMRL_ByteString CertWithTimes(const char* notBefore, int beforeType, const char* notAfter, int afterType,
                              const std::function<void(X509*)>& adjust = nullptr) {
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  X509Ptr cert(X509_new(), X509_free);
  X509_set_version(cert.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 0xBEEF);
  X509_getm_notBefore(cert.get())->type = beforeType;
  ASN1_STRING_set(X509_getm_notBefore(cert.get()), notBefore, -1);
  X509_getm_notAfter(cert.get())->type = afterType;
  ASN1_STRING_set(X509_getm_notAfter(cert.get()), notAfter, -1);
  X509_set_pubkey(cert.get(), key.get());
  if (adjust) adjust(cert.get());
  EXPECT_GT(X509_sign(cert.get(), key.get(), EVP_sha256()), 0);
  return Der(cert.get());
}

// A URI general name of exactly these bytes, zero bytes included.
GENERAL_NAME* UriName(const std::string& bytes) {
  ASN1_IA5STRING* text = ASN1_IA5STRING_new();
  ASN1_STRING_set(text, bytes.data(), static_cast<int>(bytes.size()));
  GENERAL_NAME* name = GENERAL_NAME_new();
  GENERAL_NAME_set0_value(name, GEN_URI, text);
  return name;
}

using BioPtr = std::unique_ptr<BIO, int (*)(BIO*)>;

X509Ptr CertOf(const CMRL_ByteString& der) {
  const unsigned char* cursor = reinterpret_cast<const unsigned char*>(der.c_str());
  return X509Ptr(d2i_X509(nullptr, &cursor, der.GetLength()), X509_free);
}

std::string PemOf(const CMRL_ByteString& der) {
  X509Ptr cert = CertOf(der);
  BioPtr out(BIO_new(BIO_s_mem()), BIO_free);
  PEM_write_bio_X509(out.get(), cert.get());
  char* text = nullptr;
  const long length = BIO_get_mem_data(out.get(), &text);
  return std::string(text, static_cast<size_t>(length));
}

std::vector<std::string> MembersOfEach(const std::vector<CertInfo>& infos) {
  std::vector<std::string> all;
  for (const CertInfo& info : infos) {
    for (std::string& m : Members(info)) all.push_back(std::move(m));
  }
  return all;
}

// The record's display form of a UTC instant: eight hours ahead.
std::string EightHoursAhead(time_t utc) {
  const time_t shifted = utc + 8 * 3600;
  std::tm t{};
  gmtime_r(&shifted, &t);
  char text[64];
  std::snprintf(text, sizeof(text), "%d/%02d/%02d %02d:%02d:%02d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
                t.tm_hour, t.tm_min, t.tm_sec);
  return text;
}

time_t UtcOf(int year, int month, int day, int hour, int minute, int second) {
  std::tm t{};
  t.tm_year = year - 1900, t.tm_mon = month - 1, t.tm_mday = day, t.tm_hour = hour, t.tm_min = minute, t.tm_sec = second;
  return timegm(&t);
}

const char kRootAiaIssuers[] =
    "Access Method=CA Issuers(1.3.6.1.5.5.7.48.2)\r\nAlternative Name:\r\nURL=http://pki.example.test/root.cer";

}  // namespace

TEST(CertRead, RsaRootCaEveryField) {
  const CertInfo info = Read("root.der");
  EXPECT_EQ(Str(info.version), "V3");
  EXPECT_EQ(Str(info.serialNumber), "1000");
  EXPECT_EQ(Str(info.notBefore), "2024/02/29 04:00:00");  // UTCTime 240228200000Z
  EXPECT_EQ(Str(info.notAfter), "2100/01/01 07:59:59");   // GeneralizedTime 20991231235959Z

  // Repeated OU: the last one stays; the e-mail attribute is dropped; UTF-8 passes as it is.
  const std::vector<std::string> name = {"CN", "\xE5\x8C\x97\xE4\xBA\xAC", "Haidian", "Zel Test Org",
                                         "Unit C", "Zel Test Root CA"};
  EXPECT_EQ(Members(info.subject), name);
  EXPECT_EQ(Members(info.issuer), name);

  // The key bits are the tail of the SubjectPublicKeyInfo in the file; 2048-bit RSA: 270 bytes.
  const std::string der = ReadFileBytes(CertFixturePath("root.der"));
  EXPECT_EQ(info.publicKey.GetLength(), 2 * 270);
  EXPECT_NE(HexOf(der).find(Str(info.publicKey)), std::string::npos);
  EXPECT_EQ(Str(info.publicKeyParams), "");
  EXPECT_EQ(Str(info.signatureAlgorithm), "sha256RSA");
  EXPECT_EQ(Str(info.digestAlgorithm), "sha256");
  EXPECT_EQ(Str(info.thumbprint), Sha1Hex(der));
  // Key identifiers made by the "hash" method: SHA-1 of the key bits; self-signed, so equal.
  EXPECT_EQ(Str(info.subjectKeyId), Sha1Hex(FromHex(Str(info.publicKey))));
  EXPECT_EQ(Str(info.authorityKeyId), Str(info.subjectKeyId));

  EXPECT_EQ(Str(info.basicConstraints), "Subject Type=CA\nPath Length Constraint=2\n");
  EXPECT_EQ(Str(info.keyUsage), "digitalSignature,keyCertSign,cRLSign,");
  EXPECT_EQ(Str(info.extendedKeyUsage),
            "1.3.6.1.5.5.7.3.1(TLS Web Server Authentication);1.3.6.1.5.5.7.3.2(TLS Web Client Authentication);"
            "1.3.6.1.4.1.55555.7.1(1.3.6.1.4.1.55555.7.1)");
  // Two URIs in the first point, one in the second; the relative name adds nothing, and of the
  // last point only the seven-character URI passes, the six-character one does not.
  EXPECT_EQ(Str(info.crlDistributionPoints),
            "URL=http://crl1.example.test/root.crl|URL=http://crl2.example.test/root.crl|"
            "URL=ldap://crl3.example.test/cn=root|URL=x:abcde");
  // The directory-name location adds nothing.
  EXPECT_EQ(Str(info.authorityInfoAccess),
            "Access Method=OCSP(1.3.6.1.5.5.7.48.1)\r\nAlternative Name:\r\nURL=http://ocsp.example.test|" +
                std::string(kRootAiaIssuers));
}

// The leaf's extension texts are checked where readings append, in ReadingsAppendToListMembers.
TEST(CertRead, EndEntityAndItsIssuer) {
  const CertInfo root = Read("root.der");
  const CertInfo leaf = Read("leaf.der");
  EXPECT_EQ(Str(leaf.serialNumber), "1001");
  EXPECT_EQ(Members(leaf.issuer), Members(root.subject));
  EXPECT_EQ(Members(leaf.subject),
            (std::vector<std::string>{"CN", "", "", "Zel Test Org", "Leaf Unit", "leaf.example.test"}));
  EXPECT_EQ(Str(leaf.authorityKeyId), Str(root.subjectKeyId));
  EXPECT_NE(Str(leaf.subjectKeyId), Str(root.subjectKeyId));
  EXPECT_EQ(Str(leaf.basicConstraints), "Subject Type=End Entity\nPath Length Constraint=None");
}

TEST(CertRead, EllipticCurveAndSm2Keys) {
  const CertInfo ec = Read("ec.pem", MarkedRecord());
  EXPECT_EQ(Str(ec.publicKeyParams), "1.2.840.10045.3.1.7");
  // ecdsa-with-SHA256 is outside the record's table: its number, and the digest is left alone.
  EXPECT_EQ(Str(ec.signatureAlgorithm), "1.2.840.10045.4.3.2");
  EXPECT_EQ(Str(ec.digestAlgorithm), Str(kMarks.digestAlgorithm));
  EXPECT_EQ(Str(ec.publicKey).substr(0, 2), "04");  // uncompressed point
  EXPECT_EQ(ec.publicKey.GetLength(), 2 * 65);
  EXPECT_EQ(Str(ec.keyUsage), Str(kMarks.keyUsage) + "digitalSignature,keyAgreement,");

  const CertInfo sm2 = Read("sm2.der");
  EXPECT_EQ(Str(sm2.publicKeyParams) + " " + Str(sm2.signatureAlgorithm) + " " + Str(sm2.digestAlgorithm),
            "1.2.156.10197.1.301 sm2 sm3");
}

TEST(CertRead, OddCornersLeaveMembersAlone) {
  const CertInfo odd = Read("odd.der", MarkedRecord());
  EXPECT_EQ(Str(odd.basicConstraints), "Subject Type=CA\nPath Length Constraint=None\n");
  // Only decipherOnly, which lives in the second byte of the bit string.
  EXPECT_EQ(Str(odd.keyUsage), Str(kMarks.keyUsage) + "decipherOnly,");
  // Empty key identifiers, a relative-name point, a six-character URI, a directory-name location,
  // and single values the certificate lacks all leave their members as they were, without a
  // separator; names replace attribute by attribute.
  for (auto member : {&CertInfo::authorityKeyId, &CertInfo::subjectKeyId, &CertInfo::crlDistributionPoints,
                      &CertInfo::authorityInfoAccess, &CertInfo::extendedKeyUsage, &CertInfo::publicKeyParams}) {
    EXPECT_EQ(Str(odd.*member), Str(kMarks.*member));
  }
  EXPECT_EQ(Str(odd.subject.commonName), "Zel Odd Corners");
  EXPECT_EQ(Str(odd.subject.country), Str(kMarks.subject.country));

  const CertInfo v1 = Read("v1.der", MarkedRecord());
  EXPECT_EQ(Str(v1.version), "V1");
  // No extension at all: the seven extension members (the last seven) keep their markers.
  const std::vector<std::string> members = Members(v1), marks = Members(kMarks);
  EXPECT_EQ(std::vector<std::string>(members.end() - 7, members.end()),
            std::vector<std::string>(marks.end() - 7, marks.end()));
}

TEST(CertRead, SameRecordFromEveryForm) {
  const auto der = Members(Read("root.der"));
  for (const char* form : {"root.pem", "root.p7b", "root.p7b.der"}) EXPECT_EQ(Members(Read(form)), der) << form;
  // PEM text with other text around it, and several blocks: the first certificate counts.
  const std::string pem = ReadFileBytes(CertFixturePath("root.pem"));
  CertInfo wrapped;
  ASSERT_TRUE(ParsePublicKeyCert(Bytes("Subject: whatever\r\nnot a block\n" + pem + "trailing words\n"), wrapped));
  EXPECT_EQ(Members(wrapped), der);
  EXPECT_EQ(Members(Read("chain.pem")), Members(Read("leaf.der")));
}

TEST(CertRead, InputsOfNoFormGiveFalseAndTouchNothing) {
  const std::string der = ReadFileBytes(CertFixturePath("root.der"));
  const std::string pem = ReadFileBytes(CertFixturePath("root.pem"));
  const size_t begin = pem.find('\n') + 1;
  // Empty, text, cut DER, Base64 without armour, cut PEM block, PKCS#12.
  for (const std::string& input : {std::string(), std::string("just some text"), der.substr(0, der.size() / 2),
                                   pem.substr(begin, pem.find("-----END") - begin), pem.substr(0, pem.size() / 2),
                                   ReadFileBytes(CertFixturePath("leaf.p12"))}) {
    CertInfo info = MarkedRecord();
    EXPECT_FALSE(ParsePublicKeyCert(Bytes(input), info)) << input.size();
    EXPECT_EQ(Members(info), Members(kMarks)) << input.size();
  }
}

TEST(CertRead, ReadingsAppendToListMembers) {
  CertInfo info = Read("root.pem");
  const CertInfo root = info;
  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("v1.pem"), info));
  // No extensions in the second: the first one's values stay.
  EXPECT_EQ(Str(info.subjectKeyId), Str(root.subjectKeyId));
  EXPECT_EQ(Str(info.version), "V1");
  EXPECT_EQ(Str(info.subject.commonName), "Zel Version One");
  EXPECT_EQ(Str(info.subject.organizationalUnit), "Unit C");  // v1 has no OU

  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("leaf.pem"), info));
  EXPECT_EQ(Str(info.keyUsage), "digitalSignature,keyCertSign,cRLSign,digitalSignature,keyEncipherment,");
  EXPECT_EQ(Str(info.extendedKeyUsage),
            Str(root.extendedKeyUsage) +
                ";1.3.6.1.5.5.7.3.2(TLS Web Client Authentication);1.3.6.1.5.5.7.3.4(E-mail Protection)");
  EXPECT_EQ(Str(info.crlDistributionPoints),
            Str(root.crlDistributionPoints) + "|URL=http://crl1.example.test/root.crl");
  EXPECT_EQ(Str(info.authorityInfoAccess), Str(root.authorityInfoAccess) + "|" + kRootAiaIssuers);
}

TEST(CertRead, TooShortValidityTextThrowsMidReading) {
  // Too short a notAfter: the exception leaves the reading with version, serial and notBefore
  // written and everything behind them untouched.
  CertInfo partial = MarkedRecord();
  try {
    ParsePublicKeyCert(CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "2403", V_ASN1_UTCTIME), partial);
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid string position");
  }
  std::vector<std::string> expected = Members(kMarks);
  std::copy_n(std::vector<std::string>{"V3", "BEEF", "2024/03/09 17:05:00"}.begin(), 3, expected.begin());
  EXPECT_EQ(Members(partial), expected);
}

// Extensions no command-line tool writes: identifiers longer than the fixed name buffers, a path
// length beyond a long, a URI with a zero byte inside, access URIs of any length.
TEST(CertRead, ExtensionTextsAtTheirLimits) {
  std::string longOid = "1.3.6.1.4.1";
  while (longOid.size() < 140) longOid += ".987654321";
  const std::string ocsp = "1.3.6.1.5.5.7.48.1";
  const CMRL_ByteString der = CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "240309090500Z", V_ASN1_UTCTIME,
                                            [&](X509* cert) {
    EXTENDED_KEY_USAGE* usages = sk_ASN1_OBJECT_new_null();
    sk_ASN1_OBJECT_push(usages, OBJ_txt2obj(longOid.c_str(), 1));
    X509_add1_ext_i2d(cert, NID_ext_key_usage, usages, 0, 0);
    sk_ASN1_OBJECT_pop_free(usages, ASN1_OBJECT_free);
    BASIC_CONSTRAINTS* constraints = BASIC_CONSTRAINTS_new();
    constraints->ca = 0xFF;
    BIGNUM* huge = nullptr;
    BN_dec2bn(&huge, "100000000000000000000");
    constraints->pathlen = BN_to_ASN1_INTEGER(huge, nullptr);
    BN_free(huge);
    X509_add1_ext_i2d(cert, NID_basic_constraints, constraints, 1, 0);
    BASIC_CONSTRAINTS_free(constraints);
    CRL_DIST_POINTS* points = sk_DIST_POINT_new_null();
    DIST_POINT* point = DIST_POINT_new();
    point->distpoint = DIST_POINT_NAME_new();
    point->distpoint->type = 0;
    point->distpoint->name.fullname = GENERAL_NAMES_new();
    sk_GENERAL_NAME_push(point->distpoint->name.fullname, UriName(std::string("ab\0cdefgh", 9)));
    sk_DIST_POINT_push(points, point);
    X509_add1_ext_i2d(cert, NID_crl_distribution_points, points, 0, 0);
    CRL_DIST_POINTS_free(points);
    AUTHORITY_INFO_ACCESS* access = sk_ACCESS_DESCRIPTION_new_null();
    for (const auto& entry : {std::pair<std::string, std::string>{longOid, "a"}, {ocsp, ""}}) {
      ACCESS_DESCRIPTION* description = ACCESS_DESCRIPTION_new();
      ASN1_OBJECT_free(description->method);
      description->method = OBJ_txt2obj(entry.first.c_str(), 1);
      GENERAL_NAME_free(description->location);
      description->location = UriName(entry.second);
      sk_ACCESS_DESCRIPTION_push(access, description);
    }
    X509_add1_ext_i2d(cert, NID_info_access, access, 0, 0);
    AUTHORITY_INFO_ACCESS_free(access);
  });
  CertInfo info;
  ASSERT_TRUE(ParsePublicKeyCert(der, info));
  // Extended key usage names are cut to 127 characters, access methods to 31.
  const std::string cut127 = longOid.substr(0, 127), cut31 = longOid.substr(0, 31);
  EXPECT_EQ(Str(info.extendedKeyUsage), cut127 + "(" + cut127 + ")");
  EXPECT_EQ(Str(info.basicConstraints), "Subject Type=CA\nPath Length Constraint=-1\n");
  // The length test counts every byte; the text stops at the zero byte.
  EXPECT_EQ(Str(info.crlDistributionPoints), "URL=ab");
  EXPECT_EQ(Str(info.authorityInfoAccess), "Access Method=" + cut31 + "(" + cut31 +
                                               ")\r\nAlternative Name:\r\nURL=a|Access Method=OCSP(" + ocsp +
                                               ")\r\nAlternative Name:\r\nURL=");
}

TEST(CertRead, SignatureNamesComeFromTheSignedPart) {
  // Signed with ECDSA/SHA-256, then the outer algorithm alone is relabelled as SHA-256/RSA.
  const CMRL_ByteString signedDer = CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "240309090500Z", V_ASN1_UTCTIME);
  X509Ptr cert = CertOf(signedDer);
  ASSERT_NE(cert, nullptr);
  const X509_ALGOR* outer = nullptr;
  X509_get0_signature(nullptr, &outer, cert.get());
  X509_ALGOR_set0(const_cast<X509_ALGOR*>(outer), OBJ_nid2obj(NID_sha256WithRSAEncryption), V_ASN1_NULL, nullptr);
  CertInfo info = MarkedRecord();
  ASSERT_TRUE(ParsePublicKeyCert(Der(cert.get()), info));
  EXPECT_EQ(Str(info.signatureAlgorithm), "1.2.840.10045.4.3.2");
  EXPECT_EQ(Str(info.digestAlgorithm), Str(kMarks.digestAlgorithm));
}

TEST(CertRead, NameAttributesInAnyOrder) {
  // C=CN, O=A, OU=B, OU=C, CN=D with an e-mail attribute, then an empty CN that empties it.
  std::unique_ptr<X509_NAME, void (*)(X509_NAME*)> name(X509_NAME_new(), X509_NAME_free);
  const char* entries[][2] = {{"C", "CN"}, {"O", "A"}, {"OU", "B"}, {"OU", "C"}, {"CN", "D"},
                              {"emailAddress", "d@example.test"}};
  for (const auto& e : entries) {
    X509_NAME_add_entry_by_txt(name.get(), e[0], MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(e[1]), -1, -1, 0);
  }
  AddressInfo read;
  ReadCertName(name.get(), read);
  EXPECT_EQ(Members(read), (std::vector<std::string>{"CN", "", "", "A", "C", "D"}));
  X509_NAME_add_entry_by_txt(name.get(), "CN", V_ASN1_UTF8STRING, reinterpret_cast<const unsigned char*>(""), 0, -1,
                             0);
  ReadCertName(name.get(), read);
  EXPECT_EQ(Members(read), (std::vector<std::string>{"CN", "", "", "A", "C", ""}));
}

// Each certificate as its own reading would give it, in stored order: leaf, root, EC.
TEST(CertBundle, EveryCertificateAsItsOwnReadingWouldGiveIt) {
  const auto chain = MembersOfEach({Read("leaf.der"), Read("root.der"), Read("ec.der")});
  for (const char* name : {"chain.pem", "chain3.p7b", "chain3.p7b.der", "root.p7b.der", "sm2.pem"}) {
    std::vector<CertInfo> infos;
    const bool single = std::string(name).find("chain") == std::string::npos;
    ASSERT_EQ(ParsePublicKeyCerts(CertFixture(name), infos), single ? 1 : 3) << name;
    EXPECT_EQ(MembersOfEach(infos), single ? Members(Read(name)) : chain) << name;
  }
  std::vector<CertInfo> infos;
  ASSERT_EQ(ParsePublicKeyCerts(CertFixture("chain3.p7b.der"), infos), 3);
  EXPECT_EQ(Str(infos[1].thumbprint), Sha1Hex(ReadFileBytes(CertFixturePath("root.der"))));
}

TEST(CertBundle, AppendsAfterWhatTheListHolds) {
  std::vector<CertInfo> infos = {kMarks};
  ASSERT_EQ(ParsePublicKeyCerts(CertFixture("chain3.p7b"), infos), 3);
  ASSERT_EQ(infos.size(), 4u);
  EXPECT_EQ(Members(infos[0]), Members(kMarks));
  EXPECT_EQ(Members(infos[1]), Members(Read("leaf.der")));
  ASSERT_EQ(ParsePublicKeyCerts(CertFixture("root.der"), infos), 1);
  ASSERT_EQ(infos.size(), 5u);
  EXPECT_EQ(Members(infos[4]), Members(Read("root.der")));

  // Nothing to read: 0 and the list as it was.
  const std::string pem = ReadFileBytes(CertFixturePath("root.pem"));
  for (const std::string& input : {std::string(), pem.substr(0, pem.size() / 2),
                                   ReadFileBytes(CertFixturePath("empty_signed.p7b.der")),
                                   ReadFileBytes(CertFixturePath("leaf.p12"))}) {
    std::vector<CertInfo> untouched = {kMarks};
    EXPECT_EQ(ParsePublicKeyCerts(Bytes(input), untouched), 0) << input.size();
    ASSERT_EQ(untouched.size(), 1u);
    EXPECT_EQ(Members(untouched[0]), Members(kMarks));
  }
}

TEST(CertBundle, PemBlocksOfOtherKindsAndADamagedBlock) {
  const std::string leaf = ReadFileBytes(CertFixturePath("leaf.pem")), ec = ReadFileBytes(CertFixturePath("ec.pem"));
  // A PKCS#7 block and loose text between certificates: only the CERTIFICATE blocks count.
  std::vector<CertInfo> infos;
  ASSERT_EQ(ParsePublicKeyCerts(Bytes("header line\n" + leaf + ReadFileBytes(CertFixturePath("root.p7b")) + "words\n" + ec), infos), 2);
  EXPECT_EQ(MembersOfEach(infos), MembersOfEach({Read("leaf.der"), Read("ec.der")}));

  // A block whose content is no certificate ends the reading there.
  const std::string broken = "-----BEGIN CERTIFICATE-----\nAAAAAAAA\n-----END CERTIFICATE-----\n";
  infos.clear();
  EXPECT_EQ(ParsePublicKeyCerts(Bytes(leaf + broken + ec), infos), 1);
  EXPECT_EQ(MembersOfEach(infos), MembersOfEach({Read("leaf.der")}));
}

TEST(CertBundle, CertificateWithUnreadableTimeIsSkippedNotThrown) {
  const CMRL_ByteString first = CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "20991231235959Z", V_ASN1_GENERALIZEDTIME),
                        bad = CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "2403", V_ASN1_UTCTIME),
                        last = CertWithTimes("300101000000Z", V_ASN1_UTCTIME, "20500101000000Z", V_ASN1_GENERALIZEDTIME);
  CertInfo firstAlone, lastAlone;
  ASSERT_TRUE(ParsePublicKeyCert(first, firstAlone));
  ASSERT_TRUE(ParsePublicKeyCert(last, lastAlone));
  const auto expected = MembersOfEach({firstAlone, lastAlone});

  std::vector<CertInfo> infos;
  ASSERT_NO_THROW(EXPECT_EQ(ParsePublicKeyCerts(Bytes(PemOf(first) + PemOf(bad) + PemOf(last)), infos), 2));
  EXPECT_EQ(MembersOfEach(infos), expected);

  // The same in a PKCS#7 list.
  std::unique_ptr<PKCS7, void (*)(PKCS7*)> p7(PKCS7_new(), PKCS7_free);
  ASSERT_EQ(PKCS7_set_type(p7.get(), NID_pkcs7_signed), 1);
  ASSERT_EQ(PKCS7_content_new(p7.get(), NID_pkcs7_data), 1);
  for (const CMRL_ByteString* der : {&first, &bad, &last}) ASSERT_EQ(PKCS7_add_certificate(p7.get(), CertOf(*der).get()), 1);
  unsigned char* raw = nullptr;
  const int length = i2d_PKCS7(p7.get(), &raw);
  ASSERT_GT(length, 0);
  const CMRL_ByteString list(reinterpret_cast<const char*>(raw), length);
  OPENSSL_free(raw);
  infos.clear();
  ASSERT_NO_THROW(EXPECT_EQ(ParsePublicKeyCerts(list, infos), 2));
  EXPECT_EQ(MembersOfEach(infos), expected);
}

TEST(CertValidity, UtcSecondsAgreeWithTheRecordText) {
  for (const char* name : {"root.pem", "leaf.der", "sm2.der", "v1.der", "chain3.p7b", "root.p7b.der", "leaf1950.der"}) {
    const CertInfo record = Read(name);
    time_t notBefore = 0, notAfter = 0;
    ASSERT_TRUE(GetCertValidity(CertFixture(name), notBefore, notAfter)) << name;
    // UTCTime year 50 is 1950 in seconds; the record's text knows no pivot and says 2050.
    EXPECT_EQ(std::string(name) == "leaf1950.der" ? "2050/01/01 08:00:00" : EightHoursAhead(notBefore),
              Str(record.notBefore)) << name;
    EXPECT_EQ(EightHoursAhead(notAfter), Str(record.notAfter)) << name;
  }
}

TEST(CertValidity, FarDatesAndBothTimeTypes) {
  if (sizeof(time_t) < 8) GTEST_SKIP() << "32-bit time_t";
  const struct {
    const char* text;
    int type;
    time_t utc;
  } cases[] = {
      {"20380119031408Z", V_ASN1_GENERALIZEDTIME, static_cast<time_t>(INT64_C(1) << 31)},
      {"21000301000000Z", V_ASN1_GENERALIZEDTIME, UtcOf(2100, 3, 1, 0, 0, 0)},
      {"99991231235959Z", V_ASN1_GENERALIZEDTIME, UtcOf(9999, 12, 31, 23, 59, 59)},
      {"19691231235959Z", V_ASN1_GENERALIZEDTIME, -1},
      {"491231235959Z", V_ASN1_UTCTIME, UtcOf(2049, 12, 31, 23, 59, 59)},
      {"500101000000Z", V_ASN1_UTCTIME, UtcOf(1950, 1, 1, 0, 0, 0)},
  };
  for (const auto& c : cases) {
    const CMRL_ByteString cert = CertWithTimes("240309090500Z", V_ASN1_UTCTIME, c.text, c.type);
    time_t notBefore = 0, notAfter = 0;
    ASSERT_TRUE(GetCertValidity(cert, notBefore, notAfter)) << c.text;
    EXPECT_EQ(notBefore, UtcOf(2024, 3, 9, 9, 5, 0)) << c.text;
    EXPECT_EQ(notAfter, c.utc) << c.text;
  }
}

TEST(CertValidity, RefusalsLeaveBothTimesAlone) {
  const std::vector<CMRL_ByteString> inputs = {
      CMRL_ByteString(), CertFixture("empty_signed.p7b"), CertFixture("leaf.p12"),
      CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "2403", V_ASN1_UTCTIME),             // too short
      CertWithTimes("241309090500Z", V_ASN1_UTCTIME, "250309090500Z", V_ASN1_UTCTIME),    // month 13
      CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "2025-03-09T09:05:00", V_ASN1_GENERALIZEDTIME),
  };
  for (size_t i = 0; i < inputs.size(); ++i) {
    time_t notBefore = 111, notAfter = 222;
    ASSERT_NO_THROW(EXPECT_FALSE(GetCertValidity(inputs[i], notBefore, notAfter)) << "input " << i);
    EXPECT_TRUE(notBefore == 111 && notAfter == 222) << "input " << i;
  }
}
