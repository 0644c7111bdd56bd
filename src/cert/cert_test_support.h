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

inline CMRL_ByteString Bytes(const std::string& s) { return CMRL_ByteString(s.data(), static_cast<int>(s.size())); }

// The committed fixture as a byte string; an empty one fails the calling test loudly.
inline CMRL_ByteString CertFixture(const std::string& name) {
  const std::string bytes = ReadFileBytes(CertFixturePath(name));
  EXPECT_FALSE(bytes.empty()) << "missing fixture " << name;
  return Bytes(bytes);
}

inline std::string Str(const CMRL_ByteString& text) { return std::string(text.c_str(), text.GetLength()); }

inline std::vector<CMRL_ByteString*> Fields(AddressInfo& a) {
  return {&a.country, &a.stateOrProvince, &a.locality, &a.organization, &a.organizationalUnit, &a.commonName};
}

// All 28 text members of a record in declared order, the twelve name attributes included.
inline std::vector<CMRL_ByteString*> Fields(CertInfo& c) {
  std::vector<CMRL_ByteString*> all = {&c.version, &c.serialNumber, &c.notBefore, &c.notAfter};
  for (AddressInfo* a : {&c.issuer, &c.subject}) {
    for (CMRL_ByteString* m : Fields(*a)) all.push_back(m);
  }
  for (CMRL_ByteString* m : {&c.publicKey, &c.publicKeyParams, &c.signatureAlgorithm, &c.digestAlgorithm,
                             &c.thumbprint, &c.authorityKeyId, &c.subjectKeyId, &c.basicConstraints, &c.keyUsage,
                             &c.extendedKeyUsage, &c.crlDistributionPoints, &c.authorityInfoAccess}) {
    all.push_back(m);
  }
  return all;
}

template <class Record>
std::vector<std::string> Members(const Record& record) {
  std::vector<std::string> out;
  for (const CMRL_ByteString* m : Fields(const_cast<Record&>(record))) out.push_back(Str(*m));
  return out;
}

// A record whose every member holds a distinct marker, to see what a reading leaves alone.
inline CertInfo MarkedRecord() {
  CertInfo info;
  int n = 0;
  for (CMRL_ByteString* m : Fields(info)) *m = ("mark" + std::to_string(n++)).c_str();
  return info;
}

#endif  // ZELUTILITY_SRC_CERT_CERT_TEST_SUPPORT_H_
