// The text-making pieces of the certificate reader: hexadecimal text, validity times, algorithm
// names, and the copy semantics and layout of the records.
#include <gtest/gtest.h>

#include <climits>
#include <cwchar>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cert/cert_internal.h"
#include "cert/cert_test_support.h"

namespace {

std::string TimeText(const char* text, int length = -1) {
  if (length < 0) length = static_cast<int>(std::char_traits<char>::length(text));
  return Str(FormatCertTime(ParseCertTime(text, length)));
}

std::string Shifted(int year, int month, int day, int hour, int minute = 0, int second = 0) {
  return Str(FormatCertTime(AddEightHours(CertTime{year, month, day, hour, minute, second})));
}

}  // namespace

TEST(CertHexText, TwoUpperCaseDigitsPerByteWithoutLimit) {
  const unsigned char sample[] = {0x00, 0xAB, 0x0F};
  EXPECT_EQ(Str(BytesToHexText(sample, 3)), "00AB0F");
  EXPECT_EQ(Str(BytesToHexText(sample, -4)), "");
  EXPECT_EQ(Str(BytesToHexText(nullptr, 3)), "");

  // The old 5119-byte ceiling and well past it: a 16384-bit key comes out whole.
  for (int count : {5120, 2049 + 16384 / 8}) {
    std::vector<unsigned char> bytes(count, 0x5A);
    bytes.back() = 0xC3;
    const std::string text = Str(BytesToHexText(bytes.data(), count));
    ASSERT_EQ(text.size(), static_cast<size_t>(2 * count));
    EXPECT_EQ(text.substr(text.size() - 4), "5AC3");
  }
}

TEST(CertTimeParse, TextShapesAndTheDisplayZone) {
  const char* rows[][2] = {
      {"240309090500z", "2024/03/09 17:05:00"},
      // Two-digit years have no pivot: 50..99 stay in this century.
      {"991231160000Z", "2100/01/01 00:00:00"}, {"20991231235959Z", "2100/01/01 07:59:59"},
      // February in its kinds of year.
      {"20240228200000Z", "2024/02/29 04:00:00"}, {"19000228200000Z", "1900/03/01 04:00:00"},
      {"20000228200000Z", "2000/02/29 04:00:00"},
      // Exactly 14 characters are read as local already, even when they end in "Z".
      {"20240101120000", "2024/01/01 12:00:00"}, {"2024010123000Z", "2024/01/01 23:00:00"},
      {"2024-01-01T12:00:00", "2024/01/01 20:00:00"}, {"2024-12-31T20:30:15.123+01:00", "2025/01/01 04:30:15"},
      // A final "Z" at a length other than 13 or 15 shifts a time that was never read.
      {"2024-01-01T12:00:00Z", "0/00/00 08:00:00"},
      {"D:20240101120000+08'00'", "2024/01/01 12:00:00"}, {"20240101120000+0800", "0/00/00 00:00:00"},
      {"20240101120", "0/00/00 00:00:00"},  // eleven characters are enough to be looked at
  };
  for (const auto& row : rows) EXPECT_EQ(TimeText(row[0]), row[1]) << row[0];
  // The length decides, not the terminator: the tail behind it is not seen.
  EXPECT_EQ(TimeText("240309090500Z-and-more", 13), "2024/03/09 17:05:00");
}

TEST(CertTimeParse, TooShortTextsThrowOutOfRange) {
  for (const char* text : {"", "2024010112"}) {
    try {
      TimeText(text);
      ADD_FAILURE() << "no exception for \"" << text << "\"";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "invalid string position") << text;
    }
  }
  EXPECT_THROW(ParseCertTime(nullptr, 5), std::out_of_range);
  EXPECT_THROW(ParseCertTime("240309090500Z", -1), std::out_of_range);
}

TEST(CertTimeShift, CarriesByTheCalendarWithoutRangeChecks) {
  EXPECT_EQ(Shifted(2024, 6, 15, 16), "2024/06/16 00:00:00");
  EXPECT_EQ(Shifted(2400, 2, 28, 20), "2400/02/29 04:00:00");
  EXPECT_EQ(Shifted(2100, 2, 28, 20), "2100/03/01 04:00:00");
  // Values the calendar does not know pass through.
  EXPECT_EQ(Shifted(2024, 4, 31, 20, 99, 99), "2024/05/01 04:99:99");
  EXPECT_EQ(Shifted(2024, 1, 1, 50), "2024/01/02 34:00:00");

  EXPECT_EQ(Str(FormatCertTime(CertTime{7, 1, 2, 3, 4, 5})), "7/01/02 03:04:05");
  const std::string extreme = Str(FormatCertTime(CertTime{INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN}));
  EXPECT_EQ(extreme.size(), 63u);
  EXPECT_EQ(extreme.substr(0, 12), "-2147483648/");
}

TEST(CertAlgorithmNames, RecordVocabulary) {
  // Unknown, including near misses of known identifiers: the text itself, digest kept.
  const char* rows[][3] = {
      {"1.2.840.113549.1.1.1", "rsa", "kept"}, {"1.2.840.113549.1.1.11", "sha256RSA", "sha256"},
      {"1.2.156.10197.1.501", "sm2", "sm3"}, {"1.2.840.113549.1.1.111", "1.2.840.113549.1.1.111", "kept"},
      {"sha256WithRSAEncryption", "sha256WithRSAEncryption", "kept"},
  };
  for (const auto& row : rows) {
    CMRL_ByteString signature("old"), digest("kept");
    NameSignatureAlgorithm(row[0], signature, digest);
    EXPECT_EQ(Str(signature), row[1]) << row[0];
    EXPECT_EQ(Str(digest), row[2]) << row[0];
  }
}

TEST(CertAlgorithmNames, CallerVocabulary) {
  // "-" marks a name that must keep its earlier text.
  const struct {
    const wchar_t *id;
    bool ok;
    const wchar_t *signature, *digest;
  } rows[] = {
      {L"1.2.156.10197.1.501", true, L"SM2", L"SM3"}, {L"1.2.156.10197.1.301", true, L"SM2", L"-"},
      {L"1.2.156.10197.1.401", true, L"-", L"SM3"},
      // Signature algorithms: key and digest from the object table, by number or by name.
      {L"1.2.840.113549.1.1.11", true, L"RSA", L"SHA256"}, {L"RSA-SHA256", true, L"RSA", L"SHA256"},
      {L"1.3.101.112", true, L"ED25519", L"-"},  // signs without a separate digest
      // Key algorithms, plain digests, and an object that is neither.
      {L"rsaEncryption", true, L"RSA", L"-"}, {L"2.16.840.1.101.3.4.2.1", true, L"-", L"SHA256"},
      {L"2.5.4.3", true, L"CN", L"-"},
      // Refusals; names are matched exactly, case included.
      {L"", false, L"-", L"-"}, {L"1.2.3.4.5.6.7.8.9", false, L"-", L"-"}, {L"RSAENCRYPTION", false, L"-", L"-"},
  };
  for (const auto& row : rows) {
    CMRL_WideString signature(L"-"), digest(L"-");
    const std::string id(row.id, row.id + std::wcslen(row.id));  // ASCII only
    EXPECT_EQ(GetSignatureAndDigestAlgorithm(CMRL_WideString(row.id), signature, digest), row.ok) << id;
    EXPECT_EQ(std::wstring(signature.c_str()), row.signature) << id;
    EXPECT_EQ(std::wstring(digest.c_str()), row.digest) << id;
  }
}

TEST(CertObjectText, LongIdentifiersComeOutWhole) {
  std::string dotted = "1.3.6.1.4.1";
  while (dotted.size() < 200) dotted += ".123456789";
  std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> object(OBJ_txt2obj(dotted.c_str(), 1), ASN1_OBJECT_free);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(Str(ObjectText(object.get(), true)), dotted);
  EXPECT_EQ(Str(ObjectText(object.get(), false)), dotted);  // no name in the table: the number again
  EXPECT_EQ(Str(ObjectText(OBJ_nid2obj(NID_commonName), false)), "commonName");
  EXPECT_EQ(Str(ObjectText(nullptr, true)), "");
}

TEST(CertRecords, SpecialMembersCopyAndKeepTheSource) {
  EXPECT_EQ(Members(CertInfo()), std::vector<std::string>(28));
  const CertInfo marked = MarkedRecord();
  const std::vector<std::string> expected = Members(marked);

  CertInfo copy(marked);
  EXPECT_EQ(Members(copy), expected);
  copy.subject.commonName = "changed";
  EXPECT_EQ(Members(marked), expected);

  // A move copies: the source keeps its texts.
  CertInfo source = MarkedRecord();
  CertInfo moved(std::move(source));
  EXPECT_EQ(Members(moved), expected);
  CertInfo assigned;
  assigned = std::move(source);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(Members(assigned), expected);
  EXPECT_EQ(Members(source), expected);  // NOLINT(bugprone-use-after-move)

  CertInfo target;
  CertInfo& self = target;
  target = copy;
  target = std::move(self);
  EXPECT_EQ(Members(target), Members(copy));

  AddressInfo address;
  address.organizationalUnit = "ou";
  AddressInfo other(std::move(address));
  EXPECT_EQ(Str(address.organizationalUnit), "ou");  // NOLINT(bugprone-use-after-move)
}

// Sibling libraries read the members directly, so their order and size are part of the contract.
TEST(CertRecords, MembersLieInDeclaredOrder) {
  CertInfo c;
  const void* order[] = {&c.version, &c.serialNumber, &c.notBefore, &c.notAfter, &c.issuer, &c.subject,
                         &c.publicKey, &c.publicKeyParams, &c.signatureAlgorithm, &c.digestAlgorithm,
                         &c.thumbprint, &c.authorityKeyId, &c.subjectKeyId, &c.basicConstraints, &c.keyUsage,
                         &c.extendedKeyUsage, &c.crlDistributionPoints, &c.authorityInfoAccess};
  for (size_t i = 1; i < std::size(order); ++i) {
    EXPECT_LT(static_cast<const char*>(order[i - 1]), static_cast<const char*>(order[i])) << i;
  }
  const std::vector<CMRL_ByteString*> names = Fields(c.issuer);
  for (size_t i = 1; i < names.size(); ++i) EXPECT_LT(names[i - 1], names[i]) << i;
  EXPECT_EQ(sizeof(AddressInfo), 6 * sizeof(CMRL_ByteString));
  EXPECT_EQ(sizeof(CertInfo), 16 * sizeof(CMRL_ByteString) + 2 * sizeof(AddressInfo));
}
