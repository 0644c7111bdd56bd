#ifndef ZELUTILITY_SRC_CERT_CERT_TEST_SUPPORT_H_
#define ZELUTILITY_SRC_CERT_CERT_TEST_SUPPORT_H_

// Helpers shared by the certificate tests: fixture files and record comparison.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <mrlbase/byte_string.h>
#include <zelutility/cert.h>

inline std::string CertFixturePath(const std::string& name) {
  return std::string(ZEL_SOURCE_DIR) + "/src/cert/testdata/" + name;
}

inline std::string ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The committed fixture as a byte string; an empty one fails the calling test loudly.
inline CMRL_ByteString CertFixture(const std::string& name) {
  const std::string bytes = ReadFileBytes(CertFixturePath(name));
  EXPECT_FALSE(bytes.empty()) << "missing fixture " << name;
  return CMRL_ByteString(bytes.data(), static_cast<int>(bytes.size()));
}

inline std::string Str(const CMRL_ByteString& text) { return std::string(text.c_str(), text.GetLength()); }

// Every member of an AddressInfo, in declared order, for whole-record comparisons.
inline std::vector<std::string> Members(const AddressInfo& a) {
  return {Str(a.country), Str(a.stateOrProvince), Str(a.locality), Str(a.organization),
          Str(a.organizationalUnit), Str(a.commonName)};
}

// Every member of a CertInfo, in declared order, the twelve name attributes included.
inline std::vector<std::string> Members(const CertInfo& c) {
  std::vector<std::string> all = {Str(c.version), Str(c.serialNumber), Str(c.notBefore), Str(c.notAfter)};
  for (const auto& m : Members(c.issuer)) all.push_back(m);
  for (const auto& m : Members(c.subject)) all.push_back(m);
  for (const CMRL_ByteString* m :
       {&c.publicKey, &c.publicKeyParams, &c.signatureAlgorithm, &c.digestAlgorithm, &c.thumbprint,
        &c.authorityKeyId, &c.subjectKeyId, &c.basicConstraints, &c.keyUsage, &c.extendedKeyUsage,
        &c.crlDistributionPoints, &c.authorityInfoAccess}) {
    all.push_back(Str(*m));
  }
  return all;
}

// A record whose every member holds a distinct marker, to see what a reading leaves alone.
inline CertInfo MarkedRecord() {
  CertInfo info;
  int n = 0;
  auto mark = [&n](CMRL_ByteString& m) { m = ("mark" + std::to_string(n++)).c_str(); };
  for (CMRL_ByteString* m : {&info.version, &info.serialNumber, &info.notBefore, &info.notAfter}) mark(*m);
  for (AddressInfo* a : {&info.issuer, &info.subject}) {
    for (CMRL_ByteString* m : {&a->country, &a->stateOrProvince, &a->locality, &a->organization,
                               &a->organizationalUnit, &a->commonName}) {
      mark(*m);
    }
  }
  for (CMRL_ByteString* m :
       {&info.publicKey, &info.publicKeyParams, &info.signatureAlgorithm, &info.digestAlgorithm,
        &info.thumbprint, &info.authorityKeyId, &info.subjectKeyId, &info.basicConstraints, &info.keyUsage,
        &info.extendedKeyUsage, &info.crlDistributionPoints, &info.authorityInfoAccess}) {
    mark(*m);
  }
  return info;
}

#endif  // ZELUTILITY_SRC_CERT_CERT_TEST_SUPPORT_H_
