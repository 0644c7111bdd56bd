#ifndef ZELUTILITY_SRC_CERT_CERT_INTERNAL_H_
#define ZELUTILITY_SRC_CERT_CERT_INTERNAL_H_

// Internal pieces of the certificate reader, declared here so that the unit tests can reach
// them directly. None of them is exported from the shared library (hidden visibility).

#include <openssl/asn1.h>
#include <openssl/x509.h>

#include <mrlbase/byte_string.h>
#include <zelutility/cert.h>

// A validity time as its text says; no field is range-checked.
struct CertTime {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// Two upper-case hexadecimal digits a byte, no separator; "" for a count of 0 or less.
CMRL_ByteString BytesToHexText(const unsigned char* bytes, int count);

// Reads a time text of `length` bytes: YYYYMMDDHHMMSS as it stands, UTCTime and
// GeneralizedTime ("...Z", years 00-99 meaning 2000-2099) and "YYYY-MM-DDTHH:MM:SS" shifted by
// AddEightHours, "D:YYYYMMDDHHMMSS..." as it stands, anything else as all zero.
// Throws std::out_of_range("invalid string position") for an empty text, and for a text of ten
// characters or fewer that does not end in "Z".
CertTime ParseCertTime(const char* text, int length);

// Moves a UTC time eight hours ahead, carrying into day, month and year by the calendar.
CertTime AddEightHours(CertTime time) noexcept;

// "%d/%02d/%02d %02d:%02d:%02d" of the six fields.
CMRL_ByteString FormatCertTime(const CertTime& time);

// Text of an object identifier: dotted numbers when `numeric`, else the object table's long
// name (its dotted number when it has none). The whole text, however long; "" for null.
CMRL_ByteString ObjectText(const ASN1_OBJECT* object, bool numeric);

// Fills the signature and digest names of the record's vocabulary ("sha256RSA", "sm2") from a
// dotted OID; an unknown OID becomes the signature name and leaves the digest name alone.
void NameSignatureAlgorithm(const CMRL_ByteString& oid, CMRL_ByteString& signatureName,
                            CMRL_ByteString& digestName);

// Every field of `cert` (borrowed) into `info`. False only for a null certificate.
bool FillCertInfo(X509* cert, CertInfo& info);

// "V" and the version counted from 1.
void ReadCertVersion(X509* cert, CMRL_ByteString& version);
// The six known attributes of `name`; nothing for a null name.
void ReadCertName(X509_NAME* name, AddressInfo& address);
// The list extensions, appended to their members with their separators.
void ReadExtendedKeyUsage(X509* cert, CMRL_ByteString& text);
void ReadCrlDistributionPoints(X509* cert, CMRL_ByteString& text);
void ReadAuthorityInfoAccess(X509* cert, CMRL_ByteString& text);

// Opens a PKCS#12 container and hands its certificate to the caller in `*cert`.
// 0 done, 1 the container did not open, -1 empty input or no PKCS#12 structure.
int LoadPkcs12Certificate(const CMRL_ByteString& pkcs12, const CMRL_ByteString& password,
                          X509** cert);

#endif  // ZELUTILITY_SRC_CERT_CERT_INTERNAL_H_
