// Reading X.509 certificates into records: the four input forms, every field and extension of
// the committed fixtures, append rules across readings, and the system's own CA certificates.
#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <dirent.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "cert/cert_internal.h"
#include "cert/cert_test_support.h"

namespace {

std::string HexOf(const std::string& bytes) {
  return Str(BytesToHexText(reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<int>(bytes.size())));
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
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

const CertInfo kMarks = MarkedRecord();

CertInfo Read(const char* fixture) {
  CertInfo info;
  EXPECT_TRUE(ParsePublicKeyCert(CertFixture(fixture), info)) << fixture;
  return info;
}

struct X509Free {
  void operator()(X509* x) const { X509_free(x); }
};
struct PKeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};

// A signed P-256 certificate whose validity texts are whatever the test wants, DER-encoded;
// `adjust` may add extensions before it is signed.
CMRL_ByteString CertWithTimes(const char* notBefore, int beforeType, const char* notAfter, int afterType,
                              const std::function<void(X509*)>& adjust = nullptr) {
  std::unique_ptr<EVP_PKEY, PKeyFree> key(EVP_EC_gen("P-256"));
  std::unique_ptr<X509, X509Free> cert(X509_new());
  X509_set_version(cert.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 0xBEEF);
  ASN1_TIME* before = X509_getm_notBefore(cert.get());
  before->type = beforeType;
  ASN1_STRING_set(before, notBefore, -1);
  ASN1_TIME* after = X509_getm_notAfter(cert.get());
  after->type = afterType;
  ASN1_STRING_set(after, notAfter, -1);
  X509_set_pubkey(cert.get(), key.get());
  if (adjust) adjust(cert.get());
  EXPECT_GT(X509_sign(cert.get(), key.get(), EVP_sha256()), 0);
  unsigned char* der = nullptr;
  const int length = i2d_X509(cert.get(), &der);
  CMRL_ByteString bytes(reinterpret_cast<const char*>(der), length);
  OPENSSL_free(der);
  return bytes;
}

// A URI general name of exactly these bytes, zero bytes included.
GENERAL_NAME* UriName(const std::string& bytes) {
  ASN1_IA5STRING* text = ASN1_IA5STRING_new();
  ASN1_STRING_set(text, bytes.data(), static_cast<int>(bytes.size()));
  GENERAL_NAME* name = GENERAL_NAME_new();
  GENERAL_NAME_set0_value(name, GEN_URI, text);
  return name;
}

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
  EXPECT_EQ(info.thumbprint.GetLength(), 40);

  // Key identifiers made by the "hash" method: SHA-1 of the key bits; self-signed, so equal.
  EXPECT_EQ(Str(info.subjectKeyId), Sha1Hex(FromHex(Str(info.publicKey))));
  EXPECT_EQ(Str(info.authorityKeyId), Str(info.subjectKeyId));

  EXPECT_EQ(Str(info.basicConstraints), "Subject Type=CA\nPath Length Constraint=2\n");
  EXPECT_EQ(Str(info.keyUsage), "digitalSignature,keyCertSign,cRLSign,");
  EXPECT_EQ(Str(info.extendedKeyUsage),
            "1.3.6.1.5.5.7.3.1(TLS Web Server Authentication);"
            "1.3.6.1.5.5.7.3.2(TLS Web Client Authentication);"
            "1.3.6.1.4.1.55555.7.1(1.3.6.1.4.1.55555.7.1)");
  // Two URIs in the first point, one in the second; the relative name adds nothing, and of the
  // last point only the seven-character URI passes, the six-character one does not.
  EXPECT_EQ(Str(info.crlDistributionPoints),
            "URL=http://crl1.example.test/root.crl|URL=http://crl2.example.test/root.crl|"
            "URL=ldap://crl3.example.test/cn=root|URL=x:abcde");
  // The directory-name location adds nothing.
  EXPECT_EQ(Str(info.authorityInfoAccess),
            "Access Method=OCSP(1.3.6.1.5.5.7.48.1)\r\nAlternative Name:\r\nURL=http://ocsp.example.test|"
            "Access Method=CA Issuers(1.3.6.1.5.5.7.48.2)\r\nAlternative Name:\r\n"
            "URL=http://pki.example.test/root.cer");
}

TEST(CertRead, EndEntityAndItsIssuer) {
  const CertInfo root = Read("root.der");
  const CertInfo leaf = Read("leaf.der");
  EXPECT_EQ(Str(leaf.serialNumber), "1001");
  EXPECT_EQ(Str(leaf.notBefore), "2024/05/01 04:00:00");  // 240430200000Z
  EXPECT_EQ(Str(leaf.notAfter), "2050/01/01 04:00:00");   // 491231200000Z
  EXPECT_EQ(Members(leaf.issuer), Members(root.subject));
  EXPECT_EQ(Members(leaf.subject),
            (std::vector<std::string>{"CN", "", "", "Zel Test Org", "Leaf Unit", "leaf.example.test"}));
  EXPECT_EQ(Str(leaf.authorityKeyId), Str(root.subjectKeyId));
  EXPECT_NE(Str(leaf.subjectKeyId), Str(root.subjectKeyId));
  EXPECT_EQ(Str(leaf.basicConstraints), "Subject Type=End Entity\nPath Length Constraint=None");
  EXPECT_EQ(Str(leaf.keyUsage), "digitalSignature,keyEncipherment,");
  EXPECT_EQ(Str(leaf.extendedKeyUsage),
            "1.3.6.1.5.5.7.3.2(TLS Web Client Authentication);1.3.6.1.5.5.7.3.4(E-mail Protection)");
  EXPECT_EQ(Str(leaf.crlDistributionPoints), "URL=http://crl1.example.test/root.crl");
  EXPECT_EQ(Str(leaf.authorityInfoAccess),
            "Access Method=CA Issuers(1.3.6.1.5.5.7.48.2)\r\nAlternative Name:\r\n"
            "URL=http://pki.example.test/root.cer");

  // A UTCTime year of 50 is 1950 in the certificate; the reader knows no pivot and shows 2050.
  const CertInfo old = Read("leaf1950.der");
  EXPECT_EQ(Str(old.notBefore), "2050/01/01 08:00:00");
  EXPECT_EQ(Str(old.notAfter), "2000/02/29 04:00:00");
}

TEST(CertRead, EllipticCurveAndSm2Keys) {
  CertInfo ec = MarkedRecord();
  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("ec.pem"), ec));
  EXPECT_EQ(Str(ec.publicKeyParams), "1.2.840.10045.3.1.7");
  // ecdsa-with-SHA256 is outside the record's table: its number, and the digest is left alone.
  EXPECT_EQ(Str(ec.signatureAlgorithm), "1.2.840.10045.4.3.2");
  EXPECT_EQ(Str(ec.digestAlgorithm), Str(kMarks.digestAlgorithm));
  EXPECT_EQ(ec.publicKey.GetLength(), 2 * 65);
  EXPECT_EQ(Str(ec.publicKey).substr(0, 2), "04");  // uncompressed point
  EXPECT_EQ(Str(ec.notBefore), "2025/01/01 00:00:00");
  EXPECT_EQ(Str(ec.notAfter), "2034/12/31 23:59:59");
  EXPECT_EQ(Str(ec.keyUsage), Str(kMarks.keyUsage) + "digitalSignature,keyAgreement,");
  // Absent extensions leave their members as they were.
  EXPECT_EQ(Str(ec.authorityKeyId), Str(kMarks.authorityKeyId));
  EXPECT_EQ(Str(ec.crlDistributionPoints), Str(kMarks.crlDistributionPoints));

  const CertInfo sm2 = Read("sm2.der");
  EXPECT_EQ(Str(sm2.publicKeyParams), "1.2.156.10197.1.301");
  EXPECT_EQ(Str(sm2.signatureAlgorithm), "sm2");
  EXPECT_EQ(Str(sm2.digestAlgorithm), "sm3");
  EXPECT_EQ(sm2.publicKey.GetLength(), 2 * 65);
  EXPECT_EQ(Str(sm2.basicConstraints), "Subject Type=CA\nPath Length Constraint=0\n");
  EXPECT_EQ(Str(sm2.subject.commonName), "Zel SM2 Test");
  EXPECT_EQ(Str(sm2.thumbprint), Sha1Hex(ReadFileBytes(CertFixturePath("sm2.der"))));
}

TEST(CertRead, OddCornersLeaveMembersAlone) {
  CertInfo odd = MarkedRecord();
  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("odd.der"), odd));
  // February at century ends: 2100 has no 29th, 2400 has.
  EXPECT_EQ(Str(odd.notBefore), "2100/03/01 04:00:00");
  EXPECT_EQ(Str(odd.notAfter), "2400/02/29 04:00:00");
  // A CA with no path length limit shows no number.
  EXPECT_EQ(Str(odd.basicConstraints), "Subject Type=CA\nPath Length Constraint=None\n");
  // Only decipherOnly, which lives in the second byte of the bit string.
  EXPECT_EQ(Str(odd.keyUsage), Str(kMarks.keyUsage) + "decipherOnly,");
  // Empty key identifiers, a relative-name point, a six-character URI and a directory-name
  // location all leave their members as they were, without a separator.
  EXPECT_EQ(Str(odd.authorityKeyId), Str(kMarks.authorityKeyId));
  EXPECT_EQ(Str(odd.subjectKeyId), Str(kMarks.subjectKeyId));
  EXPECT_EQ(Str(odd.crlDistributionPoints), Str(kMarks.crlDistributionPoints));
  EXPECT_EQ(Str(odd.authorityInfoAccess), Str(kMarks.authorityInfoAccess));
  // Single values the certificate lacks are kept too; names replace attribute by attribute.
  EXPECT_EQ(Str(odd.extendedKeyUsage), Str(kMarks.extendedKeyUsage));
  EXPECT_EQ(Str(odd.publicKeyParams), Str(kMarks.publicKeyParams));
  EXPECT_EQ(Str(odd.subject.commonName), "Zel Odd Corners");
  EXPECT_EQ(Str(odd.subject.country), Str(kMarks.subject.country));
  EXPECT_EQ(Str(odd.issuer.organization), Str(kMarks.issuer.organization));

  CertInfo v1 = MarkedRecord();
  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("v1.der"), v1));
  EXPECT_EQ(Str(v1.version), "V1");
  EXPECT_EQ(Str(v1.notBefore), "2023/03/01 04:00:00");
  EXPECT_EQ(Str(v1.notAfter), "2023/03/31 23:59:59");
  // No extension at all: the seven extension members (the last seven) keep their markers.
  const std::vector<std::string> members = Members(v1);
  const std::vector<std::string> marks = Members(kMarks);
  for (size_t i = members.size() - 7; i < members.size(); ++i) EXPECT_EQ(members[i], marks[i]) << i;
}

TEST(CertRead, SameRecordFromEveryForm) {
  const CertInfo der = Read("root.der");
  EXPECT_EQ(Members(Read("root.pem")), Members(der));
  EXPECT_EQ(Members(Read("root.p7b")), Members(der));
  EXPECT_EQ(Members(Read("root.p7b.der")), Members(der));

  // PEM text with other text around it, and several blocks: the first certificate counts.
  const std::string pem = ReadFileBytes(CertFixturePath("root.pem"));
  const std::string wrapped = "Subject: whatever\r\nnot a block\n" + pem + "trailing words\n";
  CertInfo fromWrapped;
  ASSERT_TRUE(ParsePublicKeyCert(CMRL_ByteString(wrapped.data(), static_cast<int>(wrapped.size())), fromWrapped));
  EXPECT_EQ(Members(fromWrapped), Members(der));
  EXPECT_EQ(Members(Read("chain.pem")), Members(Read("leaf.der")));
}

TEST(CertRead, InputsOfNoFormGiveFalseAndTouchNothing) {
  const std::string der = ReadFileBytes(CertFixturePath("root.der"));
  const std::string pem = ReadFileBytes(CertFixturePath("root.pem"));
  // The Base64 body of the PEM block, without its armour lines.
  const size_t begin = pem.find('\n') + 1;
  const size_t end = pem.find("-----END");
  const std::vector<std::string> inputs = {
      std::string(),
      std::string("\0\0\0\0", 4),
      "just some text",
      der.substr(0, der.size() / 2),           // cut DER
      pem.substr(begin, end - begin),          // Base64 without armour
      pem.substr(0, pem.size() / 2),           // cut PEM block
      ReadFileBytes(CertFixturePath("leaf.p12")),
  };
  for (size_t i = 0; i < inputs.size(); ++i) {
    CertInfo info = MarkedRecord();
    const std::vector<std::string> before = Members(info);
    EXPECT_FALSE(ParsePublicKeyCert(CMRL_ByteString(inputs[i].data(), static_cast<int>(inputs[i].size())), info))
        << "input " << i;
    EXPECT_EQ(Members(info), before) << "input " << i;
  }
}

TEST(CertRead, ReadingsAppendToListMembers) {
  CertInfo info;
  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("root.pem"), info));
  const CertInfo root = info;
  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("v1.pem"), info));
  // No extensions in the second: the first one's values stay.
  EXPECT_EQ(Str(info.subjectKeyId), Str(root.subjectKeyId));
  EXPECT_EQ(Str(info.version), "V1");
  EXPECT_EQ(Str(info.subject.commonName), "Zel Version One");
  EXPECT_EQ(Str(info.subject.organizationalUnit), "Unit C");  // v1 has no OU

  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("leaf.pem"), info));
  EXPECT_EQ(Str(info.keyUsage), "digitalSignature,keyCertSign,cRLSign,digitalSignature,keyEncipherment,");
  EXPECT_EQ(Str(info.extendedKeyUsage), Str(root.extendedKeyUsage) +
                                            ";1.3.6.1.5.5.7.3.2(TLS Web Client Authentication);"
                                            "1.3.6.1.5.5.7.3.4(E-mail Protection)");
  EXPECT_EQ(Str(info.crlDistributionPoints),
            Str(root.crlDistributionPoints) + "|URL=http://crl1.example.test/root.crl");
  EXPECT_EQ(Str(info.authorityInfoAccess),
            Str(root.authorityInfoAccess) +
                "|Access Method=CA Issuers(1.3.6.1.5.5.7.48.2)\r\nAlternative Name:\r\n"
                "URL=http://pki.example.test/root.cer");

  // Separators follow any text already there, whatever put it there.
  CertInfo prefilled;
  prefilled.crlDistributionPoints = "earlier";
  prefilled.extendedKeyUsage = "earlier";
  ASSERT_TRUE(ParsePublicKeyCert(CertFixture("leaf.der"), prefilled));
  EXPECT_EQ(Str(prefilled.crlDistributionPoints), "earlier|URL=http://crl1.example.test/root.crl");
  EXPECT_EQ(Str(prefilled.extendedKeyUsage).substr(0, 8), "earlier;");
}

TEST(CertRead, ValidityTextsOutsideTheDerForms) {
  CertInfo info;
  ASSERT_TRUE(ParsePublicKeyCert(
      CertWithTimes("20240101120000", V_ASN1_GENERALIZEDTIME, "2024-01-01T12:00:00", V_ASN1_GENERALIZEDTIME),
      info));
  EXPECT_EQ(Str(info.notBefore), "2024/01/01 12:00:00");
  EXPECT_EQ(Str(info.notAfter), "2024/01/01 20:00:00");
  EXPECT_EQ(Str(info.serialNumber), "BEEF");

  // Too short a notAfter: the exception leaves the reading with version, serial and notBefore
  // written and everything behind them untouched.
  CertInfo partial = MarkedRecord();
  try {
    ParsePublicKeyCert(CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "2403", V_ASN1_UTCTIME), partial);
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid string position");
  }
  EXPECT_EQ(Str(partial.version), "V3");
  EXPECT_EQ(Str(partial.serialNumber), "BEEF");
  EXPECT_EQ(Str(partial.notBefore), "2024/03/09 17:05:00");
  EXPECT_EQ(Str(partial.notAfter), Str(kMarks.notAfter));
  EXPECT_EQ(Str(partial.subject.commonName), Str(kMarks.subject.commonName));
  EXPECT_EQ(Str(partial.thumbprint), Str(kMarks.thumbprint));

  CertInfo early = MarkedRecord();
  EXPECT_THROW(ParsePublicKeyCert(CertWithTimes("", V_ASN1_UTCTIME, "240309090500Z", V_ASN1_UTCTIME), early),
               std::out_of_range);
  EXPECT_EQ(Str(early.notBefore), Str(kMarks.notBefore));
  EXPECT_EQ(Str(early.notAfter), Str(kMarks.notAfter));
}

// Extensions no command-line tool writes: identifiers longer than the fixed name buffers, a path
// length beyond a long, a URI with a zero byte inside, access URIs of any length.
TEST(CertRead, ExtensionTextsAtTheirLimits) {
  std::string longOid = "1.3.6.1.4.1";
  while (longOid.size() < 140) longOid += ".987654321";
  const std::string ocsp = "1.3.6.1.5.5.7.48.1";
  const CMRL_ByteString der = CertWithTimes(
      "240309090500Z", V_ASN1_UTCTIME, "240309090500Z", V_ASN1_UTCTIME, [&](X509* cert) {
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
        const std::pair<std::string, std::string> entries[] = {{longOid, "a"}, {ocsp, ""}};
        for (const auto& entry : entries) {
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
  const std::string cut127 = longOid.substr(0, 127);
  EXPECT_EQ(Str(info.extendedKeyUsage), cut127 + "(" + cut127 + ")");
  EXPECT_EQ(Str(info.basicConstraints), "Subject Type=CA\nPath Length Constraint=-1\n");
  // The length test counts every byte; the text stops at the zero byte.
  EXPECT_EQ(Str(info.crlDistributionPoints), "URL=ab");
  const std::string cut31 = longOid.substr(0, 31);
  EXPECT_EQ(Str(info.authorityInfoAccess), "Access Method=" + cut31 + "(" + cut31 +
                                               ")\r\nAlternative Name:\r\nURL=a|Access Method=OCSP(" + ocsp +
                                               ")\r\nAlternative Name:\r\nURL=");
}

TEST(CertRead, SignatureNamesComeFromTheSignedPart) {
  // Signed with ECDSA/SHA-256, then the outer algorithm alone is relabelled as SHA-256/RSA.
  const CMRL_ByteString signedDer =
      CertWithTimes("240309090500Z", V_ASN1_UTCTIME, "240309090500Z", V_ASN1_UTCTIME);
  const auto* cursor = reinterpret_cast<const unsigned char*>(signedDer.c_str());
  std::unique_ptr<X509, X509Free> cert(d2i_X509(nullptr, &cursor, signedDer.GetLength()));
  ASSERT_NE(cert, nullptr);
  const X509_ALGOR* outer = nullptr;
  X509_get0_signature(nullptr, &outer, cert.get());
  X509_ALGOR_set0(const_cast<X509_ALGOR*>(outer), OBJ_nid2obj(NID_sha256WithRSAEncryption), V_ASN1_NULL, nullptr);
  unsigned char* raw = nullptr;
  const int length = i2d_X509(cert.get(), &raw);
  const CMRL_ByteString relabelled(reinterpret_cast<const char*>(raw), length);
  OPENSSL_free(raw);

  CertInfo info = MarkedRecord();
  ASSERT_TRUE(ParsePublicKeyCert(relabelled, info));
  EXPECT_EQ(Str(info.signatureAlgorithm), "1.2.840.10045.4.3.2");
  EXPECT_EQ(Str(info.digestAlgorithm), Str(kMarks.digestAlgorithm));
}

TEST(CertRead, InternalStepsRefuseNullAndNameAnyOrder) {
  CertInfo info = MarkedRecord();
  EXPECT_FALSE(FillCertInfo(nullptr, info));
  EXPECT_EQ(Str(info.version), Str(kMarks.version));

  AddressInfo address;
  address.commonName = "kept";
  ReadCertName(nullptr, address);
  EXPECT_EQ(Str(address.commonName), "kept");

  // C=CN, O=A, OU=B, OU=C, CN=D with an e-mail attribute, then an empty CN that empties it.
  std::unique_ptr<X509_NAME, void (*)(X509_NAME*)> name(X509_NAME_new(), X509_NAME_free);
  const char* entries[][2] = {{"C", "CN"}, {"O", "A"}, {"OU", "B"}, {"OU", "C"},
                              {"CN", "D"}, {"emailAddress", "d@example.test"}};
  for (const auto& e : entries) {
    X509_NAME_add_entry_by_txt(name.get(), e[0], MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(e[1]),
                               -1, -1, 0);
  }
  AddressInfo read;
  ReadCertName(name.get(), read);
  EXPECT_EQ(Members(read), (std::vector<std::string>{"CN", "", "", "A", "C", "D"}));
  X509_NAME_add_entry_by_txt(name.get(), "CN", V_ASN1_UTF8STRING, reinterpret_cast<const unsigned char*>(""), 0,
                             -1, 0);
  ReadCertName(name.get(), read);
  EXPECT_EQ(Str(read.commonName), "");
  EXPECT_EQ(Str(read.organizationalUnit), "C");
}

// Real certificates from outside the project: the system's trusted roots, each read as PEM and
// as DER, must give one record whose thumbprint is the SHA-1 of the DER bytes.
TEST(CertRead, SystemCaCertificatesReadAlikeInDerAndPem) {
  const std::string folder = "/etc/ssl/certs";
  std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder.c_str()), closedir);
  if (!dir) GTEST_SKIP() << "no " << folder;
  int read = 0;
  while (dirent* entry = readdir(dir.get())) {
    const std::string file = entry->d_name;
    if (file.size() < 5 || file.substr(file.size() - 4) != ".pem") continue;
    const std::string pem = ReadFileBytes(folder + "/" + file);
    if (pem.empty()) continue;
    std::unique_ptr<BIO, int (*)(BIO*)> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    std::unique_ptr<X509, X509Free> cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!cert) continue;
    unsigned char* raw = nullptr;
    const int length = i2d_X509(cert.get(), &raw);
    const std::string der(reinterpret_cast<char*>(raw), length);
    OPENSSL_free(raw);

    CertInfo fromPem;
    CertInfo fromDer;
    ASSERT_TRUE(ParsePublicKeyCert(CMRL_ByteString(pem.data(), static_cast<int>(pem.size())), fromPem)) << file;
    ASSERT_TRUE(ParsePublicKeyCert(CMRL_ByteString(der.data(), length), fromDer)) << file;
    EXPECT_EQ(Members(fromPem), Members(fromDer)) << file;
    EXPECT_EQ(Str(fromDer.thumbprint), Sha1Hex(der)) << file;
    EXPECT_EQ(Str(fromDer.notBefore).size(), 19u) << file;
    EXPECT_FALSE(fromDer.publicKey.IsEmpty()) << file;
    EXPECT_FALSE(fromDer.subject.commonName.IsEmpty() && fromDer.subject.organization.IsEmpty()) << file;
    ++read;
  }
  if (read == 0) GTEST_SKIP() << "no PEM certificates in " << folder;
}
