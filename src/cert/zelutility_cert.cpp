// Certificate reading: records, X.509 fields and extensions, PKCS#7 lists, PKCS#12 containers and
// algorithm names. Every OpenSSL object lives in a std::unique_ptr with its free function, so an
// early return or the time-text exception releases everything it has taken.
#include <zelutility/cert.h>

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
#include <openssl/x509v3.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <mrlbase/byte_string_converter.h>

#include "cert/cert_internal.h"

namespace {

template <class T, void (*Free)(T*)>
struct OpenSslDeleter {
  void operator()(T* object) const noexcept { Free(object); }
};
template <class T, void (*Free)(T*)>
using OpenSslPtr = std::unique_ptr<T, OpenSslDeleter<T, Free>>;

// Free functions whose signature does not fit the deleter (a result, a macro, a stack type).
void FreeBio(BIO* bio) { BIO_free(bio); }
void FreeCryptoBytes(unsigned char* bytes) { OPENSSL_free(bytes); }
void FreeCryptoText(char* text) { OPENSSL_free(text); }
void FreeKeyUsageList(EXTENDED_KEY_USAGE* list) { sk_ASN1_OBJECT_pop_free(list, ASN1_OBJECT_free); }
void UnloadProvider(OSSL_PROVIDER* provider) { OSSL_PROVIDER_unload(provider); }

using X509Ptr = OpenSslPtr<X509, X509_free>;
using BioPtr = OpenSslPtr<BIO, FreeBio>;
using Pkcs7Ptr = OpenSslPtr<PKCS7, PKCS7_free>;
using Pkcs12Ptr = OpenSslPtr<PKCS12, PKCS12_free>;
using PKeyPtr = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using BignumPtr = OpenSslPtr<BIGNUM, BN_free>;
using CryptoBytesPtr = OpenSslPtr<unsigned char, FreeCryptoBytes>;
using CryptoTextPtr = OpenSslPtr<char, FreeCryptoText>;
using AuthorityKeyIdPtr = OpenSslPtr<AUTHORITY_KEYID, AUTHORITY_KEYID_free>;
using OctetStringPtr = OpenSslPtr<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using BasicConstraintsPtr = OpenSslPtr<BASIC_CONSTRAINTS, BASIC_CONSTRAINTS_free>;
using BitStringPtr = OpenSslPtr<ASN1_BIT_STRING, ASN1_BIT_STRING_free>;
using KeyUsageListPtr = OpenSslPtr<EXTENDED_KEY_USAGE, FreeKeyUsageList>;
using DistPointsPtr = OpenSslPtr<CRL_DIST_POINTS, CRL_DIST_POINTS_free>;
using InfoAccessPtr = OpenSslPtr<AUTHORITY_INFO_ACCESS, AUTHORITY_INFO_ACCESS_free>;
using LibContextPtr = OpenSslPtr<OSSL_LIB_CTX, OSSL_LIB_CTX_free>;
using ProviderPtr = OpenSslPtr<OSSL_PROVIDER, UnloadProvider>;

// Decodes an extension of the certificate into its own type; null when absent or undecodable.
template <class Ptr>
Ptr DecodeExtension(X509* cert, int nid) {
  using Object = typename Ptr::element_type;
  return Ptr(static_cast<Object*>(X509_get_ext_d2i(cert, nid, nullptr, nullptr)));
}

// PKCS#12 files written with the legacy algorithms (RC2-40 certificate bags, SHA-1/3DES keys)
// need the legacy provider on OpenSSL 3. Loading it into the default context would change the
// host process's OpenSSL state, so containers are opened in a private context of their own that
// holds the default and legacy providers. It is built once, on first use (a function-local
// static, so thread-safe), and torn down at exit: providers first, then the context.
class Pkcs12Context {
 public:
  static OSSL_LIB_CTX* Get() {
    static const Pkcs12Context instance;
    return instance.context_.get();
  }

 private:
  Pkcs12Context()
      : context_(OSSL_LIB_CTX_new()),
        default_(context_ ? OSSL_PROVIDER_load(context_.get(), "default") : nullptr),
        // Absent module: legacy containers then fail to open, as they would without us.
        legacy_(context_ ? OSSL_PROVIDER_load(context_.get(), "legacy") : nullptr) {}

  LibContextPtr context_;
  ProviderPtr default_;
  ProviderPtr legacy_;
};

// Copies the bytes of an IA5String up to its first zero byte.
CMRL_ByteString UriText(const ASN1_STRING* uri) {
  const char* bytes = reinterpret_cast<const char*>(ASN1_STRING_get0_data(uri));
  const int length = ASN1_STRING_length(uri);
  if (bytes == nullptr || length <= 0) return CMRL_ByteString();
  return CMRL_ByteString(bytes, static_cast<int>(strnlen(bytes, static_cast<size_t>(length))));
}

[[noreturn]] void ThrowTimeTooShort() { throw std::out_of_range("invalid string position"); }

bool IsLeapYear(int year) noexcept {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

void ReadCertTime(const ASN1_TIME* time, CMRL_ByteString& member) {
  if (time == nullptr) ThrowTimeTooShort();  // no text at all reads as the empty one
  const char* text = reinterpret_cast<const char*>(ASN1_STRING_get0_data(time));
  member = FormatCertTime(ParseCertTime(text, ASN1_STRING_length(time)));
}

void ReadPublicKeyParams(X509* cert, CMRL_ByteString& member) {
  X509_PUBKEY* key = X509_get_X509_PUBKEY(cert);
  if (key == nullptr) return;
  X509_ALGOR* algorithm = nullptr;
  if (X509_PUBKEY_get0_param(nullptr, nullptr, nullptr, &algorithm, key) != 1 || algorithm == nullptr) {
    return;
  }
  int type = 0;
  const void* value = nullptr;
  X509_ALGOR_get0(nullptr, &type, &value, algorithm);
  if (type != V_ASN1_OBJECT || value == nullptr) return;
  CMRL_ByteString oid = ObjectText(static_cast<const ASN1_OBJECT*>(value), true);
  if (!oid.IsEmpty()) member = oid;
}

void ReadSignatureAlgorithm(X509* cert, CertInfo& info) {
  const X509_ALGOR* algorithm = X509_get0_tbs_sigalg(cert);
  if (algorithm == nullptr) return;
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  if (object == nullptr) return;
  CMRL_ByteString oid = ObjectText(object, true);
  if (!oid.IsEmpty()) NameSignatureAlgorithm(oid, info.signatureAlgorithm, info.digestAlgorithm);
}

void ReadThumbprint(X509* cert, CMRL_ByteString& member) {
  unsigned char digest[20] = {};
  unsigned int length = 0;
  if (const EVP_MD* sha1 = EVP_get_digestbyname("SHA1")) X509_digest(cert, sha1, digest, &length);
  member = BytesToHexText(digest, static_cast<int>(length));
}

void ReadKeyIdentifiers(X509* cert, CertInfo& info) {
  if (auto authority = DecodeExtension<AuthorityKeyIdPtr>(cert, NID_authority_key_identifier)) {
    const ASN1_OCTET_STRING* id = authority->keyid;
    if (id != nullptr && ASN1_STRING_length(id) != 0) {
      info.authorityKeyId = BytesToHexText(ASN1_STRING_get0_data(id), ASN1_STRING_length(id));
    }
  }
  if (auto subject = DecodeExtension<OctetStringPtr>(cert, NID_subject_key_identifier)) {
    if (ASN1_STRING_length(subject.get()) != 0) {
      info.subjectKeyId = BytesToHexText(ASN1_STRING_get0_data(subject.get()),
                                         ASN1_STRING_length(subject.get()));
    }
  }
}

void ReadBasicConstraints(X509* cert, CMRL_ByteString& member) {
  auto constraints = DecodeExtension<BasicConstraintsPtr>(cert, NID_basic_constraints);
  if (!constraints) return;
  if (constraints->ca == 0) {
    member = "Subject Type=End Entity\nPath Length Constraint=None";
    return;
  }
  // An absent limit is no limit; showing 0 would claim that no intermediate CA may follow.
  const std::string limit =
      constraints->pathlen != nullptr ? std::to_string(ASN1_INTEGER_get(constraints->pathlen)) : "None";
  member = "Subject Type=CA\nPath Length Constraint=";
  member += limit.c_str();
  member += "\n";
}

void ReadKeyUsage(X509* cert, CMRL_ByteString& member) {
  auto bits = DecodeExtension<BitStringPtr>(cert, NID_key_usage);
  if (!bits) return;
  const int length = ASN1_STRING_length(bits.get());
  const unsigned char* data = ASN1_STRING_get0_data(bits.get());
  const unsigned b0 = length > 0 ? data[0] : 0;
  const unsigned b1 = length > 1 ? data[1] : 0;
  struct Usage {
    unsigned byte;
    unsigned mask;
    const char* word;
  };
  const Usage usages[] = {
      {b0, 0x80, "digitalSignature,"}, {b0, 0x40, "non-Repudiation,"}, {b0, 0x20, "keyEncipherment,"},
      {b0, 0x10, "dataEncipherment,"}, {b0, 0x08, "keyAgreement,"},    {b0, 0x04, "keyCertSign,"},
      {b0, 0x02, "cRLSign,"},          {b0, 0x01, "encipherOnly,"},    {b1, 0x80, "decipherOnly,"},
  };
  for (const Usage& usage : usages) {
    if (usage.byte & usage.mask) member += usage.word;
  }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Records

AddressInfo::AddressInfo() = default;
AddressInfo::AddressInfo(const AddressInfo& other) = default;
AddressInfo::AddressInfo(AddressInfo&& other) : AddressInfo(static_cast<const AddressInfo&>(other)) {}
AddressInfo& AddressInfo::operator=(const AddressInfo& other) = default;
AddressInfo& AddressInfo::operator=(AddressInfo&& other) {
  return *this = static_cast<const AddressInfo&>(other);
}
AddressInfo::~AddressInfo() = default;

CertInfo::CertInfo() = default;
CertInfo::CertInfo(const CertInfo& other) = default;
CertInfo::CertInfo(CertInfo&& other) : CertInfo(static_cast<const CertInfo&>(other)) {}
CertInfo& CertInfo::operator=(const CertInfo& other) = default;
CertInfo& CertInfo::operator=(CertInfo&& other) { return *this = static_cast<const CertInfo&>(other); }
CertInfo::~CertInfo() = default;

CMRL_ByteString BytesToHexText(const unsigned char* bytes, int count) {
  if (bytes == nullptr || count <= 0) return CMRL_ByteString();
  static constexpr char kDigits[] = "0123456789ABCDEF";
  CMRL_ByteString text;
  char* out = text.GetBuffer(2 * count);
  for (int i = 0; i < count; ++i) {
    out[2 * i] = kDigits[bytes[i] >> 4];
    out[2 * i + 1] = kDigits[bytes[i] & 0x0F];
  }
  text.ReleaseBuffer(2 * count);
  return text;
}

// ---------------------------------------------------------------------------------------------
// Times

CertTime ParseCertTime(const char* text, int length) {
  const std::string copy = (text != nullptr && length > 0) ? std::string(text, length) : std::string();
  const char* s = copy.c_str();
  const size_t n = copy.size();
  CertTime t;
  if (n == 14) {
    std::sscanf(s, "%4d%2d%2d%2d%2d%2d", &t.year, &t.month, &t.day, &t.hour, &t.minute, &t.second);
    return t;
  }
  if (n == 0) ThrowTimeTooShort();
  if (copy.back() == 'Z' || copy.back() == 'z') {
    if (n == 13) {
      std::sscanf(s, "%2d%2d%2d%2d%2d%2d", &t.year, &t.month, &t.day, &t.hour, &t.minute, &t.second);
      t.year += 2000;  // no pivot year: 50..99 are 2050..2099 too
    } else if (n == 15) {
      std::sscanf(s, "%4d%2d%2d%2d%2d%2d", &t.year, &t.month, &t.day, &t.hour, &t.minute, &t.second);
    }
    return AddEightHours(t);
  }
  if (n <= 10) ThrowTimeTooShort();
  if (copy[10] == 'T') {
    std::sscanf(s, "%4d-%2d-%2dT%2d:%2d:%2d", &t.year, &t.month, &t.day, &t.hour, &t.minute, &t.second);
    return AddEightHours(t);
  }
  if (copy[0] == 'D') {
    std::sscanf(s, "%*2c%4d%2d%2d%2d%2d%2d", &t.year, &t.month, &t.day, &t.hour, &t.minute, &t.second);
  }
  return t;
}

CertTime AddEightHours(CertTime time) noexcept {
  time.hour += 8;
  if (time.hour <= 23) return time;
  time.hour -= 24;
  time.day += 1;
  int lastDay = 0;
  switch (time.month) {
    case 1: case 3: case 5: case 7: case 8: case 10: case 12: lastDay = 31; break;
    case 4: case 6: case 9: case 11: lastDay = 30; break;
    case 2: lastDay = IsLeapYear(time.year) ? 29 : 28; break;
    default: return time;  // a month the calendar does not know carries nothing
  }
  if (time.day > lastDay) {
    time.day = 1;
    if (time.month == 12) {
      time.month = 1;
      time.year += 1;
    } else {
      time.month += 1;
    }
  }
  return time;
}

CMRL_ByteString FormatCertTime(const CertTime& time) {
  char text[64] = {};
  std::snprintf(text, sizeof(text), "%d/%02d/%02d %02d:%02d:%02d", time.year, time.month, time.day,
                time.hour, time.minute, time.second);
  return CMRL_ByteString(text);
}

// ---------------------------------------------------------------------------------------------
// Names and objects

CMRL_ByteString ObjectText(const ASN1_OBJECT* object, bool numeric) {
  if (object == nullptr) return CMRL_ByteString();
  const int flag = numeric ? 1 : 0;
  // Asking with no buffer gives the full length, so an identifier of any size comes out whole.
  const int length = OBJ_obj2txt(nullptr, 0, object, flag);
  if (length <= 0) return CMRL_ByteString();
  CMRL_ByteString text;
  char* buffer = text.GetBuffer(length);
  const int written = OBJ_obj2txt(buffer, length + 1, object, flag);
  text.ReleaseBuffer(written > 0 ? static_cast<int>(strnlen(buffer, length)) : 0);
  return text;
}

void NameSignatureAlgorithm(const CMRL_ByteString& oid, CMRL_ByteString& signatureName,
                            CMRL_ByteString& digestName) {
  struct Row {
    const char* oid;
    const char* signature;
    const char* digest;  // null: the digest name is not written
  };
  static constexpr Row kRows[] = {
      {"1.2.840.113549.1.1.1", "rsa", nullptr},
      {"1.2.840.113549.1.1.2", "md2RSA", "md2"},
      {"1.2.840.113549.1.1.3", "md3RSA", "md3"},
      {"1.2.840.113549.1.1.4", "md5RSA", "md5"},
      {"1.2.840.113549.1.1.5", "sha1RSA", "sha1"},
      {"1.2.840.113549.1.1.11", "sha256RSA", "sha256"},
      {"1.2.840.113549.1.1.12", "sha384RSA", "sha384"},
      {"1.2.840.113549.1.1.13", "sha512RSA", "sha512"},
      {"1.2.156.10197.1.501", "sm2", "sm3"},
  };
  for (const Row& row : kRows) {
    if (oid == row.oid) {  // whole-string byte comparison
      signatureName = row.signature;
      if (row.digest != nullptr) digestName = row.digest;
      return;
    }
  }
  signatureName = oid;
}

void ReadCertVersion(X509* cert, CMRL_ByteString& version) {
  const std::string text = "V" + std::to_string(X509_get_version(cert) + 1);
  version = text.c_str();
}

void ReadCertName(X509_NAME* name, AddressInfo& address) {
  if (name == nullptr) return;
  const int count = X509_NAME_entry_count(name);
  for (int i = 0; i < count; ++i) {
    X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
    unsigned char* raw = nullptr;
    const int length = ASN1_STRING_to_UTF8(&raw, X509_NAME_ENTRY_get_data(entry));
    CryptoBytesPtr utf8(raw);
    const CMRL_ByteString value =
        length > 0 ? CMRL_ByteString(reinterpret_cast<const char*>(utf8.get()), length) : CMRL_ByteString();
    switch (OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry))) {
      case NID_commonName: address.commonName = value; break;
      case NID_countryName: address.country = value; break;
      case NID_localityName: address.locality = value; break;
      case NID_stateOrProvinceName: address.stateOrProvince = value; break;
      case NID_organizationName: address.organization = value; break;
      case NID_organizationalUnitName: address.organizationalUnit = value; break;
      default: break;  // e-mail and every other attribute have no member
    }
  }
}

// ---------------------------------------------------------------------------------------------
// List extensions

void ReadExtendedKeyUsage(X509* cert, CMRL_ByteString& text) {
  auto usages = DecodeExtension<KeyUsageListPtr>(cert, NID_ext_key_usage);
  if (!usages) return;
  for (int i = 0; i < sk_ASN1_OBJECT_num(usages.get()); ++i) {
    const ASN1_OBJECT* usage = sk_ASN1_OBJECT_value(usages.get(), i);
    char number[128] = {};
    char name[128] = {};
    OBJ_obj2txt(number, sizeof(number), usage, 1);
    OBJ_obj2txt(name, sizeof(name), usage, 0);
    if (!text.IsEmpty()) text += ";";
    text += number;
    text += "(";
    text += name;
    text += ")";
  }
}

void ReadCrlDistributionPoints(X509* cert, CMRL_ByteString& text) {
  auto points = DecodeExtension<DistPointsPtr>(cert, NID_crl_distribution_points);
  if (!points) return;
  for (int i = 0; i < sk_DIST_POINT_num(points.get()); ++i) {
    const DIST_POINT* point = sk_DIST_POINT_value(points.get(), i);
    // Only a full name holds URIs; a name relative to the issuer has none to show.
    if (point->distpoint == nullptr || point->distpoint->type != 0) continue;
    const GENERAL_NAMES* names = point->distpoint->name.fullname;
    for (int j = 0; j < sk_GENERAL_NAME_num(names); ++j) {
      int type = -1;
      const auto* uri =
          static_cast<const ASN1_STRING*>(GENERAL_NAME_get0_value(sk_GENERAL_NAME_value(names, j), &type));
      if (type != GEN_URI || uri == nullptr || ASN1_STRING_length(uri) < 7) continue;
      if (!text.IsEmpty()) text += "|";
      text += "URL=";
      text += UriText(uri);
    }
  }
}

void ReadAuthorityInfoAccess(X509* cert, CMRL_ByteString& text) {
  auto access = DecodeExtension<InfoAccessPtr>(cert, NID_info_access);
  if (!access) return;
  for (int i = 0; i < sk_ACCESS_DESCRIPTION_num(access.get()); ++i) {
    const ACCESS_DESCRIPTION* description = sk_ACCESS_DESCRIPTION_value(access.get(), i);
    if (description->location == nullptr || description->location->type != GEN_URI) continue;
    if (!text.IsEmpty()) text += "|";
    char number[32] = {};
    char name[32] = {};
    OBJ_obj2txt(number, sizeof(number), description->method, 1);
    OBJ_obj2txt(name, sizeof(name), description->method, 0);
    text += "Access Method=";
    text += name;
    text += "(";
    text += number;
    text += ")\r\nAlternative Name:\r\nURL=";
    text += UriText(description->location->d.uniformResourceIdentifier);
  }
}

// ---------------------------------------------------------------------------------------------
// Certificates

bool FillCertInfo(X509* cert, CertInfo& info) {
  if (cert == nullptr) return false;
  ReadCertVersion(cert, info.version);

  if (const ASN1_INTEGER* serial = X509_get_serialNumber(cert)) {
    BignumPtr number(ASN1_INTEGER_to_BN(serial, nullptr));
    CryptoTextPtr hex(number ? BN_bn2hex(number.get()) : nullptr);
    if (hex) info.serialNumber = hex.get();
  }

  ReadCertTime(X509_getm_notBefore(cert), info.notBefore);
  ReadCertTime(X509_getm_notAfter(cert), info.notAfter);
  ReadCertName(X509_get_issuer_name(cert), info.issuer);
  ReadCertName(X509_get_subject_name(cert), info.subject);

  if (const ASN1_BIT_STRING* key = X509_get0_pubkey_bitstr(cert)) {
    CMRL_ByteString hex = BytesToHexText(ASN1_STRING_get0_data(key), ASN1_STRING_length(key));
    if (!hex.IsEmpty()) info.publicKey = hex;
  }
  ReadPublicKeyParams(cert, info.publicKeyParams);
  ReadSignatureAlgorithm(cert, info);
  ReadThumbprint(cert, info.thumbprint);

  ReadKeyIdentifiers(cert, info);
  ReadBasicConstraints(cert, info.basicConstraints);
  ReadKeyUsage(cert, info.keyUsage);
  ReadExtendedKeyUsage(cert, info.extendedKeyUsage);
  ReadCrlDistributionPoints(cert, info.crlDistributionPoints);
  ReadAuthorityInfoAccess(cert, info.authorityInfoAccess);
  return true;
}

namespace {

// An encrypted PEM block must not make OpenSSL ask for a password on the terminal: a library that
// reads outside data has no one to ask, so the answer is always "no password".
int RefusePemPassword(char*, int, int, void*) { return -1; }

// A PKCS#7 structure in PEM, else in DER; null when the bytes hold neither.
Pkcs7Ptr ReadPkcs7(const unsigned char* bytes, int length) {
  BioPtr bio(BIO_new_mem_buf(bytes, length));
  if (!bio) return nullptr;
  Pkcs7Ptr pkcs7(PEM_read_bio_PKCS7(bio.get(), nullptr, RefusePemPassword, nullptr));
  if (pkcs7) return pkcs7;
  bio.reset(BIO_new_mem_buf(bytes, length));
  if (!bio) return nullptr;
  return Pkcs7Ptr(d2i_PKCS7_bio(bio.get(), nullptr));
}

// The certificate list of signed or signed-and-enveloped data (owned by the structure), or null.
STACK_OF(X509)* Pkcs7Certificates(const PKCS7& pkcs7) {
  switch (OBJ_obj2nid(pkcs7.type)) {
    case NID_pkcs7_signed:
      return pkcs7.d.sign != nullptr ? pkcs7.d.sign->cert : nullptr;
    case NID_pkcs7_signedAndEnveloped:
      return pkcs7.d.signed_and_enveloped != nullptr ? pkcs7.d.signed_and_enveloped->cert : nullptr;
    default:
      return nullptr;
  }
}

}  // namespace

bool ParsePublicKeyCert(const CMRL_ByteString& cert, CertInfo& info) {
  const int length = cert.GetLength();
  if (length <= 0) return false;
  const auto* bytes = reinterpret_cast<const unsigned char*>(cert.c_str());

  const unsigned char* cursor = bytes;
  if (X509Ptr x509{d2i_X509(nullptr, &cursor, length)}) return FillCertInfo(x509.get(), info);

  {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (bio && BIO_write(bio.get(), bytes, length) == length) {
      if (X509Ptr x509{PEM_read_bio_X509(bio.get(), nullptr, RefusePemPassword, nullptr)}) {
        bio.reset();
        return FillCertInfo(x509.get(), info);
      }
    }
  }

  const Pkcs7Ptr pkcs7 = ReadPkcs7(bytes, length);
  if (!pkcs7) return false;
  STACK_OF(X509)* certs = Pkcs7Certificates(*pkcs7);
  if (certs == nullptr || sk_X509_num(certs) <= 0) return false;
  // The first certificate as stored; the list, not we, owns it.
  return FillCertInfo(sk_X509_value(certs, 0), info);
}

namespace {

// Every certificate the bytes hold, owned, found as ParsePublicKeyCert looks for the first one:
// one DER certificate; else every CERTIFICATE block of a PEM text in order, up to the first
// block that does not decode; else every certificate of a PKCS#7 list, PEM or DER, as stored.
// `firstOnly` stops at one.
std::vector<X509Ptr> CollectCertificates(const CMRL_ByteString& input, bool firstOnly) {
  std::vector<X509Ptr> found;
  const int length = input.GetLength();
  if (length <= 0) return found;
  const auto* bytes = reinterpret_cast<const unsigned char*>(input.c_str());

  const unsigned char* cursor = bytes;
  if (X509Ptr x509{d2i_X509(nullptr, &cursor, length)}) {
    found.push_back(std::move(x509));
    return found;
  }

  {
    BioPtr bio(BIO_new_mem_buf(bytes, length));
    if (!bio) return found;
    // Blocks of other kinds (keys, PKCS#7) are passed over by the PEM reader itself.
    while (X509Ptr x509{PEM_read_bio_X509(bio.get(), nullptr, RefusePemPassword, nullptr)}) {
      found.push_back(std::move(x509));
      if (firstOnly) break;
    }
  }
  if (!found.empty()) return found;

  const Pkcs7Ptr pkcs7 = ReadPkcs7(bytes, length);
  if (!pkcs7) return found;
  STACK_OF(X509)* certs = Pkcs7Certificates(*pkcs7);
  const int count = certs != nullptr ? sk_X509_num(certs) : 0;
  for (int i = 0; i < count; ++i) {
    // The list owns its certificates; each one found gets a reference of its own.
    X509* cert = sk_X509_value(certs, i);
    if (cert == nullptr || X509_up_ref(cert) != 1) continue;
    found.push_back(X509Ptr(cert));
    if (firstOnly) break;
  }
  return found;
}

// Days from 1970-01-01 to a proleptic Gregorian date; negative before it.
constexpr std::int64_t DaysFromCivil(std::int64_t year, unsigned month, unsigned day) noexcept {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}
static_assert(DaysFromCivil(1970, 1, 1) == 0, "epoch");
static_assert(DaysFromCivil(2000, 3, 1) == 11017, "after a leap day of a 400-year");

// A validity time as seconds since the epoch, UTC. Counted by hand instead of timegm, whose -1
// is both an error and 1969-12-31 23:59:59. False for an unreadable time or one beyond time_t.
bool CertTimeToEpoch(const ASN1_TIME* time, time_t& seconds) {
  if (time == nullptr) return false;  // a null time would make OpenSSL read the clock
  std::tm fields{};
  if (ASN1_TIME_to_tm(time, &fields) != 1) return false;
  const std::int64_t days = DaysFromCivil(static_cast<std::int64_t>(fields.tm_year) + 1900,
                                          static_cast<unsigned>(fields.tm_mon + 1),
                                          static_cast<unsigned>(fields.tm_mday));
  const std::int64_t total = days * 86400 + fields.tm_hour * 3600 + fields.tm_min * 60 + fields.tm_sec;
  if (total < static_cast<std::int64_t>(std::numeric_limits<time_t>::min()) ||
      total > static_cast<std::int64_t>(std::numeric_limits<time_t>::max())) {
    return false;
  }
  seconds = static_cast<time_t>(total);
  return true;
}

}  // namespace

int ParsePublicKeyCerts(const CMRL_ByteString& certs, std::vector<CertInfo>& infos) {
  std::vector<CertInfo> read;
  for (const X509Ptr& cert : CollectCertificates(certs, false)) {
    CertInfo info;
    try {
      FillCertInfo(cert.get(), info);
    } catch (const std::out_of_range&) {
      continue;  // a validity text too short to read: this certificate has no record
    }
    read.push_back(std::move(info));
  }
  infos.insert(infos.end(), read.begin(), read.end());
  return static_cast<int>(read.size());
}

bool GetCertValidity(const CMRL_ByteString& cert, time_t& notBefore, time_t& notAfter) {
  const std::vector<X509Ptr> found = CollectCertificates(cert, true);
  if (found.empty()) return false;
  time_t before = 0;
  time_t after = 0;
  if (!CertTimeToEpoch(X509_get0_notBefore(found.front().get()), before) ||
      !CertTimeToEpoch(X509_get0_notAfter(found.front().get()), after)) {
    return false;
  }
  notBefore = before;
  notAfter = after;
  return true;
}

// ---------------------------------------------------------------------------------------------
// PKCS#12

int LoadPkcs12Certificate(const CMRL_ByteString& pkcs12, const CMRL_ByteString& password, X509** cert) {
  const int length = pkcs12.GetLength();
  if (length <= 0 || cert == nullptr) return -1;
  const auto* cursor = reinterpret_cast<const unsigned char*>(pkcs12.c_str());

  // Decoding into an object made in the private context carries that context into every
  // decryption and MAC check of PKCS12_parse. On failure d2i frees the object and nulls it.
  OSSL_LIB_CTX* context = Pkcs12Context::Get();
  PKCS12* target = context != nullptr ? PKCS12_init_ex(NID_pkcs7_data, context, nullptr) : nullptr;
  Pkcs12Ptr container(d2i_PKCS12(target != nullptr ? &target : nullptr, &cursor, length));
  if (!container) {
    PKCS12_free(target);  // already freed and null after a failed decode; kept for safety
    return -1;
  }

  EVP_PKEY* key = nullptr;
  // No chain is asked for: the certificate handed back is the one matching the key.
  if (PKCS12_parse(container.get(), password.c_str(), &key, cert, nullptr) <= 0) return 1;
  PKeyPtr unread(key);  // the key is never looked at
  return 0;
}

int ParsePrivateKeyCert(const CMRL_ByteString& pkcs12, const CMRL_ByteString& password, CertInfo& info) {
  if (pkcs12.GetLength() <= 0) return -1;
  X509* raw = nullptr;
  const int code = LoadPkcs12Certificate(pkcs12, password, &raw);
  X509Ptr cert(raw);
  if (code != 0) return code;
  return FillCertInfo(cert.get(), info) ? 0 : -1;
}

int ExportPublicKeyCert(const CMRL_ByteString& pkcs12, const CMRL_ByteString& password,
                        const CMRL_ByteString& path) {
  if (pkcs12.GetLength() <= 0 || path.GetLength() <= 0) return -1;
  X509* raw = nullptr;
  const int code = LoadPkcs12Certificate(pkcs12, password, &raw);
  X509Ptr cert(raw);
  if (code != 0) return code;
  if (!cert) return -1;

  unsigned char* derRaw = nullptr;
  const int derLength = i2d_X509(cert.get(), &derRaw);
  CryptoBytesPtr der(derRaw);
  if (!der || derLength <= 0) return -1;

  const CMRL_WideString widePath = CMRL_ByteStringConverter::utf8_to_unicode(path.c_str(), -1);
  const CMRL_ByteString localPath = CMRL_ByteStringConverter::unicode_to_local(widePath.c_str(), -1);
  std::ofstream file(localPath.c_str(), std::ios::binary | std::ios::out | std::ios::trunc);
  if (!file.is_open()) return -1;
  // A write or close that fails after the open is not reported: the caller gets 0.
  file.write(reinterpret_cast<const char*>(der.get()), derLength);
  file.close();
  return 0;
}

// ---------------------------------------------------------------------------------------------
// Algorithm names for callers

bool GetSignatureAndDigestAlgorithm(const CMRL_WideString& algorithm, CMRL_WideString& signatureName,
                                    CMRL_WideString& digestName) {
  const CMRL_ByteString text = CMRL_ByteStringConverter::unicode_to_utf8(algorithm.c_str(), -1);
  if (text.IsEmpty()) return false;

  if (text == "1.2.156.10197.1.501") {
    signatureName = L"SM2";
    digestName = L"SM3";
    return true;
  }
  if (text == "1.2.156.10197.1.301") {
    signatureName = L"SM2";
    return true;
  }
  if (text == "1.2.156.10197.1.401") {
    digestName = L"SM3";
    return true;
  }

  const int nid = OBJ_txt2nid(text.c_str());
  if (nid == NID_undef) return false;
  const auto wide = [](const char* name) { return CMRL_ByteStringConverter::utf8_to_unicode(name, -1); };

  int digestNid = 0;
  int keyNid = 0;
  if (OBJ_find_sigid_algs(nid, &digestNid, &keyNid) != 0) {
    const char* key = keyNid != 0 ? OBJ_nid2sn(keyNid) : nullptr;
    if (key != nullptr) {
      if (std::strcmp(key, "rsaEncryption") == 0) {
        signatureName = L"RSA";
      } else if (std::strcmp(key, "id-ecPublicKey") == 0) {
        signatureName = L"ECDSA";
      } else {
        signatureName = wide(key);
      }
    }
    const char* digest = digestNid != 0 ? OBJ_nid2sn(digestNid) : nullptr;
    if (digest != nullptr) digestName = wide(digest);
    return true;
  }

  const char* shortName = OBJ_nid2sn(nid);
  if (shortName == nullptr) return false;
  if (EVP_get_digestbyname(shortName) != nullptr) {
    digestName = wide(shortName);
  } else if (std::strcmp(shortName, "RSA") == 0 || std::strcmp(shortName, "rsaEncryption") == 0) {
    signatureName = L"RSA";
  } else if (std::strcmp(shortName, "id-ecPublicKey") == 0 || std::strcmp(shortName, "EC") == 0) {
    signatureName = L"ECDSA";
  } else {
    signatureName = wide(shortName);
  }
  return true;
}
