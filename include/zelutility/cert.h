#ifndef ZELUTILITY_CERT_H_
#define ZELUTILITY_CERT_H_

// Certificates as plain records of display text: X.509 in DER or PEM, the first certificate of a
// PKCS#7 list in PEM or DER, and the certificate of a PKCS#12 container. Nothing is verified:
// neither signatures, nor chains, nor validity against the clock.
//
//   CertInfo info;                                  // start empty: a reading never clears
//   if (ParsePublicKeyCert(fileBytes, info)) {
//     // info.subject.commonName   "Zel Test Root CA"   (UTF-8)
//     // info.notAfter             "2100/01/01 07:59:59" (UTC + 8 hours)
//     // info.signatureAlgorithm   "sha256RSA",  info.digestAlgorithm "sha256"
//     // info.keyUsage             "digitalSignature,keyCertSign,cRLSign,"
//   }
//
// The one exception thrown is std::out_of_range("invalid string position"), for a validity time
// too short to be read (ParsePublicKeyCerts skips such a certificate instead); everything else
// answers false or a small code.
//
// Threads: calls run at once, also on the same input bytes; a CertInfo is for one thread at a time
// while it is being filled. Every OpenSSL object lives inside one call, except the private library
// context that opens PKCS#12 containers: it is built once, on the first such call, and then shared,
// which OpenSSL allows. The process's own OpenSSL setup is never touched.

#include <ctime>
#include <vector>

#include <mrlbase/byte_string.h>
#include <mrlbase/wide_string.h>
#include <zelutility/export.h>

// The attributes of an X.509 distinguished name, as UTF-8 text; "" where the name has none.
// When an attribute occurs several times the last one in the name's order is kept.
struct ZEL_API AddressInfo {
  CMRL_ByteString country;             // countryName
  CMRL_ByteString stateOrProvince;     // stateOrProvinceName
  CMRL_ByteString locality;            // localityName
  CMRL_ByteString organization;        // organizationName
  CMRL_ByteString organizationalUnit;  // organizationalUnitName
  CMRL_ByteString commonName;          // commonName

  // Every member empty.
  AddressInfo();
  // Both "move" forms copy: the source keeps every value.
  AddressInfo(const AddressInfo& other);
  AddressInfo(AddressInfo&& other);
  AddressInfo& operator=(const AddressInfo& other);
  AddressInfo& operator=(AddressInfo&& other);
  ~AddressInfo();
};

// One certificate as display text. The member order is part of the exported layout.
// A reading replaces version, notBefore, notAfter and thumbprint; it replaces the other single
// values only when the certificate has one; it appends to keyUsage, extendedKeyUsage,
// crlDistributionPoints and authorityInfoAccess (with their separators once they hold text).
struct ZEL_API CertInfo {
  CMRL_ByteString version;                // "V1", "V3"
  CMRL_ByteString serialNumber;           // upper-case hexadecimal, no separators
  CMRL_ByteString notBefore;              // "2024/03/09 17:05:00": UTC shifted 8 hours ahead
  CMRL_ByteString notAfter;               // same form
  AddressInfo issuer;
  AddressInfo subject;
  CMRL_ByteString publicKey;              // the subjectPublicKey bits as hexadecimal text
  CMRL_ByteString publicKeyParams;        // dotted OID of a named curve ("1.2.840.10045.3.1.7")
  CMRL_ByteString signatureAlgorithm;     // "sha256RSA", "sm2", or the dotted OID when unknown
  CMRL_ByteString digestAlgorithm;        // "sha256", "sm3"; untouched when unknown
  CMRL_ByteString thumbprint;             // SHA-1 of the DER certificate, 40 hexadecimal digits
  CMRL_ByteString authorityKeyId;         // hexadecimal keyIdentifier
  CMRL_ByteString subjectKeyId;           // hexadecimal
  CMRL_ByteString basicConstraints;       // "Subject Type=CA\nPath Length Constraint=2\n",
                                          // "Subject Type=End Entity\nPath Length Constraint=None"
  CMRL_ByteString keyUsage;               // "digitalSignature,keyCertSign,cRLSign,"
  CMRL_ByteString extendedKeyUsage;       // "number(name)" items joined by ";":
                                          // "1.3.6.1.5.5.7.3.2(TLS Web Client Authentication)"
  CMRL_ByteString crlDistributionPoints;  // "URL=http://a/1.crl|URL=http://b/2.crl"
  CMRL_ByteString authorityInfoAccess;    // "|"-joined items "Access Method=NAME(NUMBER)\r\n
                                          // Alternative Name:\r\nURL=URI", URI locations only

  // Every member empty, the twelve name attributes included.
  CertInfo();
  // Both "move" forms copy: the source keeps every value.
  CertInfo(const CertInfo& other);
  CertInfo(CertInfo&& other);
  CertInfo& operator=(const CertInfo& other);
  CertInfo& operator=(CertInfo&& other);
  ~CertInfo();
};

// Reads the certificate in `cert` into `info`, trying DER, PEM, PEM PKCS#7 and DER PKCS#7 in
// that order. Of a PKCS#7 list (signed or signed-and-enveloped data) the first certificate as
// stored is read. False, with `info` untouched, for empty input or input of none of the forms.
// Throws std::out_of_range("invalid string position") on a validity time too short to read.
ZEL_API bool ParsePublicKeyCert(const CMRL_ByteString& cert, CertInfo& info);

// Reads every certificate in `certs` and appends one record each to `infos`, filled as
// ParsePublicKeyCert fills a fresh record: a DER certificate; all CERTIFICATE blocks of a PEM text
// in order (up to the first that does not decode); or all certificates of a PKCS#7 list, as stored.
// Answers the number appended, 0 when none. Never throws for a time text: a certificate whose
// validity is too short to read is skipped, so records and positions in the input may differ.
ZEL_API int ParsePublicKeyCerts(const CMRL_ByteString& certs, std::vector<CertInfo>& infos);

// The validity of the certificate ParsePublicKeyCert would read from `cert`, as seconds since
// 1970 in UTC (RFC 5280 years: UTCTime 50-99 is 1950-1999, unlike the record's text).
// False, both untouched, when there is no certificate or either time cannot be read or held.
ZEL_API bool GetCertValidity(const CMRL_ByteString& cert, time_t& notBefore, time_t& notAfter);

// Opens the PKCS#12 container `pkcs12` with `password` (its bytes, "" for none; the legacy
// algorithms RC2-40 and 3DES are read too) and reads its certificate into `info`.
// 0: read. 1: a PKCS#12 structure that does not open (wrong password, damaged content), `info`
// untouched. -1: empty input, no PKCS#12 structure, or a container without a certificate.
ZEL_API int ParsePrivateKeyCert(const CMRL_ByteString& pkcs12, const CMRL_ByteString& password,
                                CertInfo& info);

// Writes the certificate of the container, plain DER and nothing else, to the file at the UTF-8
// `path`, creating or truncating it. Codes as ParsePrivateKeyCert; an empty container or path,
// or a file that cannot be opened, gives -1. A write that fails after the open is not reported.
ZEL_API int ExportPublicKeyCert(const CMRL_ByteString& pkcs12, const CMRL_ByteString& password,
                                const CMRL_ByteString& path);

// Names the key algorithm and the digest of an algorithm identifier (dotted OID, short or long
// name) as the crypto library's object table spells them, except "RSA", "ECDSA", "SM2", "SM3":
//   "1.2.840.113549.1.1.11" -> "RSA", "SHA256";   "1.2.156.10197.1.501" -> "SM2", "SM3"
//   "rsaEncryption" -> "RSA" (digest untouched);  "2.16.840.1.101.3.4.2.1" -> digest "SHA256"
// An out-parameter that is not named keeps its text. False, both untouched, for an empty or
// unknown identifier.
ZEL_API bool GetSignatureAndDigestAlgorithm(const CMRL_WideString& algorithm,
                                            CMRL_WideString& signatureName,
                                            CMRL_WideString& digestName);

#endif  // ZELUTILITY_CERT_H_
