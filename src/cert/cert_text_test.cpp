// The text-making pieces of the certificate reader: hexadecimal text, validity times, algorithm
// names, and the copy semantics of the records.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>
#include <vector>

#include "cert/cert_internal.h"
#include "cert/cert_test_support.h"

namespace {

std::string TimeText(const char* text) {
  return Str(FormatCertTime(ParseCertTime(text, static_cast<int>(std::char_traits<char>::length(text)))));
}

CertTime Time(int year, int month, int day, int hour, int minute = 0, int second = 0) {
  CertTime t;
  t.year = year;
  t.month = month;
  t.day = day;
  t.hour = hour;
  t.minute = minute;
  t.second = second;
  return t;
}

std::string Shifted(const CertTime& t) { return Str(FormatCertTime(AddEightHours(t))); }

}  // namespace

TEST(CertHexText, TwoUpperCaseDigitsPerByteWithoutLimit) {
  const unsigned char sample[] = {0x00, 0xAB, 0x0F};
  EXPECT_EQ(Str(BytesToHexText(sample, 3)), "00AB0F");
  EXPECT_EQ(Str(BytesToHexText(sample, 0)), "");
  EXPECT_EQ(Str(BytesToHexText(sample, -4)), "");
  EXPECT_EQ(Str(BytesToHexText(nullptr, 3)), "");

  // Every byte value agrees with the C library's own "%02X".
  std::vector<unsigned char> all(256);
  for (int i = 0; i < 256; ++i) all[i] = static_cast<unsigned char>(i);
  const std::string hex = Str(BytesToHexText(all.data(), 256));
  ASSERT_EQ(hex.size(), 512u);
  for (int i = 0; i < 256; ++i) {
    char expected[3];
    std::snprintf(expected, sizeof(expected), "%02X", i);
    ASSERT_EQ(hex.substr(2 * i, 2), expected) << "byte " << i;
  }

  // The old 5119-byte ceiling and well past it: a 16384-bit key comes out whole.
  for (int count : {5119, 5120, 2049 + 16384 / 8}) {
    std::vector<unsigned char> bytes(count, 0x5A);
    bytes.back() = 0xC3;
    const std::string text = Str(BytesToHexText(bytes.data(), count));
    ASSERT_EQ(text.size(), static_cast<size_t>(2 * count));
    EXPECT_EQ(text.substr(text.size() - 4), "5AC3");
  }
}

TEST(CertTimeParse, DerTimesShiftToTheDisplayZone) {
  EXPECT_EQ(TimeText("240309090500Z"), "2024/03/09 17:05:00");
  EXPECT_EQ(TimeText("240309090500z"), "2024/03/09 17:05:00");
  // Two-digit years have no pivot: 50..99 stay in this century.
  EXPECT_EQ(TimeText("500101000000Z"), "2050/01/01 08:00:00");
  EXPECT_EQ(TimeText("991231160000Z"), "2100/01/01 00:00:00");
  EXPECT_EQ(TimeText("20991231235959Z"), "2100/01/01 07:59:59");
  EXPECT_EQ(TimeText("20240430200000Z"), "2024/05/01 04:00:00");
  EXPECT_EQ(TimeText("20240430155959Z"), "2024/04/30 23:59:59");
  // February in its four kinds of year.
  EXPECT_EQ(TimeText("20240228200000Z"), "2024/02/29 04:00:00");
  EXPECT_EQ(TimeText("20230228200000Z"), "2023/03/01 04:00:00");
  EXPECT_EQ(TimeText("19000228200000Z"), "1900/03/01 04:00:00");
  EXPECT_EQ(TimeText("20000228200000Z"), "2000/02/29 04:00:00");
  EXPECT_EQ(TimeText("20240229200000Z"), "2024/03/01 04:00:00");
}

TEST(CertTimeParse, OtherShapesFollowTheirOwnRules) {
  // Exactly 14 characters are read as local already, even when they end in "Z".
  EXPECT_EQ(TimeText("20240101120000"), "2024/01/01 12:00:00");
  EXPECT_EQ(TimeText("2024010123000Z"), "2024/01/01 23:00:00");
  EXPECT_EQ(TimeText("2024-01-01T12:00:00"), "2024/01/01 20:00:00");
  EXPECT_EQ(TimeText("2024-12-31T20:30:15.123+01:00"), "2025/01/01 04:30:15");
  // A final "Z" at a length other than 13 or 15 shifts a time that was never read.
  EXPECT_EQ(TimeText("2024-01-01T12:00:00Z"), "0/00/00 08:00:00");
  EXPECT_EQ(TimeText("Z"), "0/00/00 08:00:00");
  EXPECT_EQ(TimeText("D:20240101120000+08'00'"), "2024/01/01 12:00:00");
  EXPECT_EQ(TimeText("20240101120000+0800"), "0/00/00 00:00:00");

  // The length decides, not the terminator: the tail behind it is not seen.
  const char longer[] = "240309090500Z-and-more";
  EXPECT_EQ(Str(FormatCertTime(ParseCertTime(longer, 13))), "2024/03/09 17:05:00");
}

TEST(CertTimeParse, TooShortTextsThrowOutOfRange) {
  for (const char* text : {"", "2024010112", "1", "24030909Z0"}) {
    try {
      ParseCertTime(text, static_cast<int>(std::char_traits<char>::length(text)));
      ADD_FAILURE() << "no exception for \"" << text << "\"";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "invalid string position") << text;
    }
  }
  EXPECT_THROW(ParseCertTime(nullptr, 5), std::out_of_range);
  EXPECT_THROW(ParseCertTime("240309090500Z", -1), std::out_of_range);
  // Eleven characters are enough to be looked at.
  EXPECT_EQ(TimeText("20240101120"), "0/00/00 00:00:00");
}

TEST(CertTimeShift, CarriesByTheCalendar) {
  EXPECT_EQ(Shifted(Time(2024, 6, 15, 15, 7, 9)), "2024/06/15 23:07:09");
  EXPECT_EQ(Shifted(Time(2024, 6, 15, 16)), "2024/06/16 00:00:00");
  EXPECT_EQ(Shifted(Time(2024, 11, 30, 20)), "2024/12/01 04:00:00");
  EXPECT_EQ(Shifted(Time(2024, 12, 30, 20)), "2024/12/31 04:00:00");
  EXPECT_EQ(Shifted(Time(2024, 12, 31, 20)), "2025/01/01 04:00:00");
  EXPECT_EQ(Shifted(Time(2400, 2, 28, 20)), "2400/02/29 04:00:00");
  EXPECT_EQ(Shifted(Time(2100, 2, 28, 20)), "2100/03/01 04:00:00");
  // Values the calendar does not know pass through: no range checks anywhere.
  EXPECT_EQ(Shifted(Time(2024, 13, 40, 20)), "2024/13/41 04:00:00");
  EXPECT_EQ(Shifted(Time(2024, 0, 31, 22)), "2024/00/32 06:00:00");
  EXPECT_EQ(Shifted(Time(2024, 4, 31, 20, 99, 99)), "2024/05/01 04:99:99");
  EXPECT_EQ(Shifted(Time(2024, 1, 1, 50)), "2024/01/02 34:00:00");
}

TEST(CertTimeFormat, StaysInsideItsBuffer) {
  EXPECT_EQ(Str(FormatCertTime(CertTime())), "0/00/00 00:00:00");
  EXPECT_EQ(Str(FormatCertTime(Time(7, 1, 2, 3, 4, 5))), "7/01/02 03:04:05");
  const std::string extreme = Str(FormatCertTime(Time(INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN)));
  EXPECT_EQ(extreme.size(), 63u);
  EXPECT_EQ(extreme.substr(0, 12), "-2147483648/");
}

TEST(CertAlgorithmNames, RecordVocabulary) {
  CMRL_ByteString signature("old-signature");
  CMRL_ByteString digest("old-digest");
  NameSignatureAlgorithm("1.2.840.113549.1.1.1", signature, digest);
  EXPECT_EQ(Str(signature), "rsa");
  EXPECT_EQ(Str(digest), "old-digest");

  NameSignatureAlgorithm("1.2.840.113549.1.1.11", signature, digest);
  EXPECT_EQ(Str(signature), "sha256RSA");
  EXPECT_EQ(Str(digest), "sha256");

  NameSignatureAlgorithm("1.2.156.10197.1.501", signature, digest);
  EXPECT_EQ(Str(signature), "sm2");
  EXPECT_EQ(Str(digest), "sm3");

  // Unknown, including near misses of known identifiers: the text itself, digest kept.
  for (const char* oid : {"1.2.840.10045.4.3.2", "1.2.840.113549.1.1.111", "1.2.840.113549.1.1",
                          "1.2.840.113549.1.1.11 ", "sha256WithRSAEncryption"}) {
    digest = "kept";
    NameSignatureAlgorithm(oid, signature, digest);
    EXPECT_EQ(Str(signature), oid);
    EXPECT_EQ(Str(digest), "kept");
  }
}

TEST(CertAlgorithmNames, CallerVocabulary) {
  // "-" marks a name that must keep its earlier text.
  struct Row {
    const wchar_t* id;
    bool ok;
    const wchar_t* signature;
    const wchar_t* digest;
  };
  const Row rows[] = {
      {L"1.2.156.10197.1.501", true, L"SM2", L"SM3"},
      {L"1.2.156.10197.1.301", true, L"SM2", L"-"},
      {L"1.2.156.10197.1.401", true, L"-", L"SM3"},
      // Signature algorithms: key and digest from the object table, by number or by name.
      {L"1.2.840.113549.1.1.11", true, L"RSA", L"SHA256"},
      {L"sha256WithRSAEncryption", true, L"RSA", L"SHA256"},
      {L"RSA-SHA256", true, L"RSA", L"SHA256"},
      {L"1.2.840.10045.4.3.3", true, L"ECDSA", L"SHA384"},
      {L"1.3.101.112", true, L"ED25519", L"-"},  // signs without a separate digest
      // Key algorithms, plain digests, and an object that is neither.
      {L"1.2.840.113549.1.1.1", true, L"RSA", L"-"},
      {L"rsaEncryption", true, L"RSA", L"-"},
      {L"1.2.840.10045.2.1", true, L"ECDSA", L"-"},
      {L"2.16.840.1.101.3.4.2.1", true, L"-", L"SHA256"},
      {L"1.3.14.3.2.26", true, L"-", L"SHA1"},
      {L"2.5.4.3", true, L"CN", L"-"},
      // Refusals; names are matched exactly, case included.
      {L"", false, L"-", L"-"},
      {L"1.2.3.4.5.6.7.8.9", false, L"-", L"-"},
      {L"RSAENCRYPTION", false, L"-", L"-"},
      {L"not an identifier", false, L"-", L"-"},
  };
  for (const Row& row : rows) {
    CMRL_WideString signature(L"-");
    CMRL_WideString digest(L"-");
    const std::string id(row.id, row.id + std::wcslen(row.id));  // ASCII only
    EXPECT_EQ(GetSignatureAndDigestAlgorithm(CMRL_WideString(row.id), signature, digest), row.ok) << id;
    EXPECT_EQ(std::wstring(signature.c_str()), row.signature) << id;
    EXPECT_EQ(std::wstring(digest.c_str()), row.digest) << id;
  }
}

TEST(CertObjectText, LongIdentifiersComeOutWhole) {
  std::string dotted = "1.3.6.1.4.1";
  while (dotted.size() < 200) dotted += ".123456789";
  ASN1_OBJECT* object = OBJ_txt2obj(dotted.c_str(), 1);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(Str(ObjectText(object, true)), dotted);
  EXPECT_EQ(Str(ObjectText(object, false)), dotted);  // no name in the table: the number again
  ASN1_OBJECT_free(object);

  ASN1_OBJECT* named = OBJ_nid2obj(NID_commonName);
  EXPECT_EQ(Str(ObjectText(named, true)), "2.5.4.3");
  EXPECT_EQ(Str(ObjectText(named, false)), "commonName");
  EXPECT_EQ(Str(ObjectText(nullptr, true)), "");
}

TEST(CertRecords, SpecialMembersCopyAndKeepTheSource) {
  const CertInfo fresh;
  for (const std::string& m : Members(fresh)) EXPECT_EQ(m, "");
  EXPECT_EQ(Members(fresh).size(), 28u);

  const CertInfo marked = MarkedRecord();
  const std::vector<std::string> expected = Members(marked);

  CertInfo copy(marked);
  EXPECT_EQ(Members(copy), expected);
  copy.subject.commonName = "changed";
  copy.keyUsage += "more,";
  EXPECT_EQ(Members(marked), expected);

  CertInfo source = MarkedRecord();
  CertInfo moved(std::move(source));
  EXPECT_EQ(Members(moved), expected);
  EXPECT_EQ(Members(source), expected);  // NOLINT(bugprone-use-after-move): a move copies here

  CertInfo assigned;
  assigned = std::move(source);
  EXPECT_EQ(Members(assigned), expected);
  EXPECT_EQ(Members(source), expected);  // NOLINT(bugprone-use-after-move)

  CertInfo target;
  CertInfo& result = (target = copy);
  EXPECT_EQ(&result, &target);
  EXPECT_EQ(Str(target.subject.commonName), "changed");

  CertInfo& self = target;
  target = self;
  target = std::move(self);
  EXPECT_EQ(Members(target), Members(copy));

  AddressInfo address;
  address.commonName = "cn";
  address.organizationalUnit = "ou";
  AddressInfo movedAddress(std::move(address));
  EXPECT_EQ(Members(address), Members(movedAddress));  // NOLINT(bugprone-use-after-move)
  AddressInfo other;
  other = std::move(address);
  EXPECT_EQ(Str(other.organizationalUnit), "ou");
  EXPECT_EQ(Str(address.organizationalUnit), "ou");  // NOLINT(bugprone-use-after-move)
}

TEST(CertRecords, MembersLieInDeclaredOrder) {
  CertInfo c;
  const void* order[] = {&c.version, &c.serialNumber, &c.notBefore, &c.notAfter, &c.issuer,
                         &c.subject, &c.publicKey, &c.publicKeyParams, &c.signatureAlgorithm,
                         &c.digestAlgorithm, &c.thumbprint, &c.authorityKeyId, &c.subjectKeyId,
                         &c.basicConstraints, &c.keyUsage, &c.extendedKeyUsage,
                         &c.crlDistributionPoints, &c.authorityInfoAccess};
  for (size_t i = 1; i < sizeof(order) / sizeof(order[0]); ++i) {
    EXPECT_LT(static_cast<const char*>(order[i - 1]), static_cast<const char*>(order[i])) << i;
  }
  AddressInfo& a = c.issuer;
  const void* names[] = {&a.country, &a.stateOrProvince, &a.locality, &a.organization,
                         &a.organizationalUnit, &a.commonName};
  for (size_t i = 1; i < 6; ++i) {
    EXPECT_LT(static_cast<const char*>(names[i - 1]), static_cast<const char*>(names[i])) << i;
  }
  EXPECT_EQ(sizeof(AddressInfo), 6 * sizeof(CMRL_ByteString));
  EXPECT_EQ(sizeof(CertInfo), 16 * sizeof(CMRL_ByteString) + 2 * sizeof(AddressInfo));
}
