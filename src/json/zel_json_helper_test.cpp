#include <zelutility/json_helper.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>
#include <zelutility/json_factory.h>

namespace {

using Node = std::shared_ptr<const ZELJson>;

std::shared_ptr<ZELJson> Parse(const std::string& text) {
  std::shared_ptr<ZELJson> node = ZELJsonFactory::ParseJsonString(text.c_str(), static_cast<unsigned int>(-1), nullptr);
  EXPECT_NE(node, nullptr) << text;
  return node;
}

std::string Text(const Node& node) { return ZELJsonFactory::BuildJsonString(node, nullptr).c_str(); }

// ---- Values into JSON ----

TEST(ZELJsonHelperFromTest, ColorWordsUnpackByColorSpace) {
  const unsigned int word = (68u << 24) | (17u << 16) | (34u << 8) | 51u;
  EXPECT_EQ(Text(ZELJsonHelper::FromGray(word)), "[51]");
  EXPECT_EQ(Text(ZELJsonHelper::FromRGB(word)), "[51,34,17]");  // red, the lowest byte, first
  EXPECT_EQ(Text(ZELJsonHelper::FromCMYK(word)), "[68,17,34,51]");
  EXPECT_EQ(Text(ZELJsonHelper::FromARGB(0xFFFFFFFFu)), "[255,255,255,255]");
  EXPECT_EQ(Text(ZELJsonHelper::FromColor(CA_COLORSPACE_Gray, word)), Text(ZELJsonHelper::FromGray(word)));
  EXPECT_EQ(Text(ZELJsonHelper::FromColor(CA_COLORSPACE_Rgb, word)), Text(ZELJsonHelper::FromRGB(word)));
  EXPECT_EQ(Text(ZELJsonHelper::FromColor(CA_COLORSPACE_Argb, word)), "[68,17,34,51]");
  for (int space : {0, 4, -1}) {
    EXPECT_EQ(ZELJsonHelper::FromColor(static_cast<CA_ColorSpace>(space), word), nullptr) << space;
  }
}

TEST(ZELJsonHelperFromTest, ShapesByPositionWithTheirNumberKinds) {
  EXPECT_EQ(Text(ZELJsonHelper::FromRect(CMRL_DeviceRectTemplate<int>(1, 2, 30, 40))), "[1,2,30,40]");
  EXPECT_EQ(Text(ZELJsonHelper::FromRect(CMRL_DeviceRectTemplate<int>(10, 0, -5, -1))), "[10,0,-5,-1]");
  EXPECT_EQ(Text(ZELJsonHelper::FromPoint(CMRL_PSVTemplate<int>(-3, 4))), "[-3,4]");
  EXPECT_EQ(Text(ZELJsonHelper::FromSize(CMRL_PSVTemplate<int>(-3, 4))), "[-3,4]");
  // Float shapes store floating point, so whole values print with a fraction.
  EXPECT_EQ(Text(ZELJsonHelper::FromPointF(CMRL_PSVTemplate<float>(1.5f, -2.0f))), "[1.5,-2.0]");
  EXPECT_EQ(Text(ZELJsonHelper::FromSizeF(CMRL_PSVTemplate<float>(1.5f, -2.0f))), "[1.5,-2.0]");
  EXPECT_EQ(Text(ZELJsonHelper::FromRectF(MRL_DeviceRectF(0.5f, 1, 2, 3.25f))), "[0.5,1.0,2.0,3.25]");
  EXPECT_EQ(Text(ZELJsonHelper::FromMatrix(CMRL_Matrix(2, 0.5f, -1, 4, 10, 20))), "[2.0,0.5,-1.0,4.0,10.0,20.0]");
}

TEST(ZELJsonHelperFromTest, PathGivesOnePairPerPoint) {
  CCA_Path path;
  EXPECT_EQ(Text(ZELJsonHelper::FromPath(path)), "[]");
  path.MoveTo(0, 0.5f);
  path.LineTo(10, 0);
  path.BezierTo(1, 2, 3, 4, 5, 6);
  path.ClosePath();
  EXPECT_EQ(Text(ZELJsonHelper::FromPath(path)), "[[0.0,0.5],[10.0,0.0],[1.0,2.0],[3.0,4.0],[5.0,6.0]]");
}

TEST(ZELJsonHelperFromTest, NumberArraysKeepElementKinds) {
  CMRL_ArrayTemplate<unsigned char> bytes;
  CMRL_ArrayTemplate<unsigned short> words;
  CMRL_ArrayTemplate<unsigned int> dwords;
  CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int> ints;
  CMRL_TSArrayTemplate<CMRL_ArrayTemplate, float> floats;
  EXPECT_EQ(Text(ZELJsonHelper::FromByteArray(bytes)) + Text(ZELJsonHelper::FromFloatArray(floats)), "[][]");
  bytes.Add(0);
  bytes.Add(255);
  words.Add(65535);
  dwords.Add(4294967295u);
  ints.Add(-1);
  ints.Add(INT_MIN);
  floats.Add(0.1f);
  floats.Add(2.0f);
  EXPECT_EQ(Text(ZELJsonHelper::FromByteArray(bytes)), "[0,255]");
  EXPECT_EQ(Text(ZELJsonHelper::FromWordArray(words)), "[65535]");
  EXPECT_EQ(Text(ZELJsonHelper::FromDWordArray(dwords)), "[4294967295]");  // unsigned, not -1
  EXPECT_EQ(Text(ZELJsonHelper::FromIntArray(ints)), "[-1,-2147483648]");
  // The float widened, not the double nearest 0.1.
  EXPECT_EQ(Text(ZELJsonHelper::FromFloatArray(floats)), "[0.10000000149011612,2.0]");
}

TEST(ZELJsonHelperFromTest, StringArraysOneStringPerElement) {
  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> bytes;
  EXPECT_EQ(Text(ZELJsonHelper::FromStringArray(bytes)), "[]");
  bytes.Add(CMRL_ByteString("a"));
  bytes.Add(CMRL_ByteString());                      // an empty element keeps its place
  bytes.Add(CMRL_ByteString("x\0y", 3));             // cut at the zero byte
  bytes.Add(CMRL_ByteString("caf\xC3\xA9 \"q\""));   // bytes as they stand
  EXPECT_EQ(Text(ZELJsonHelper::FromStringArray(bytes)), "[\"a\",\"\",\"x\",\"caf\xC3\xA9 \\\"q\\\"\"]");

  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_WideString> wides;
  EXPECT_EQ(Text(ZELJsonHelper::FromStringArray(wides)), "[]");
  wides.Add(CMRL_WideString(L"caf\u00E9"));
  wides.Add(CMRL_WideString());
  wides.Add(CMRL_WideString(L"\u65E5\U0001F600"));
  wides.Add(CMRL_WideString(L"ab\0cd", 5));  // conversion stops at the first zero unit
  EXPECT_EQ(Text(ZELJsonHelper::FromStringArray(wides)),
            "[\"caf\xC3\xA9\",\"\",\"\xE6\x97\xA5\xF0\x9F\x98\x80\",\"ab\"]");
}

// ---- Scalars ----

TEST(ZELJsonHelperScalarTest, EveryNodeKindConverts) {
  const struct {
    const char* json;
    int toInt;
    unsigned int toUint;
    double toDouble;
    bool toBoolean;
  } rows[] = {
      {"null", -1, 0, 0, false},
      {"\"12abc\"", 12, 12, 12, false},
      {"\"abc\"", 0, 0, 0, false},
      {"\"-1\"", -1, 4294967295u, -1, false},
      {"\"1.5x\"", 1, 1, 1.5, false},
      {"\"true\"", 0, 0, 0, true},
      {"\"TRUE\"", 0, 0, 0, false},
      {"\"1\"", 1, 1, 1, false},
      {"2.9", 2, 2, 2.9, true},
      {"-2.9", -2, 4294967294u, -2.9, true},  // low 32 bits of the 64-bit truncation
      {"0.5", 0, 0, 0.5, true},
      {"0.0", 0, 0, 0, false},
      {"3e10", INT_MIN, static_cast<unsigned int>(30000000000ull), 3e10, true},
      {"1e20", INT_MIN, 0, 1e20, true},  // outside 64 bits as well
      {"true", 1, 1, 1, true},
      {"false", 0, 0, 0, false},
      {"0", 0, 0, 0, false},
      {"-7", -7, 4294967289u, -7, true},
      {"4294967295", -1, 4294967295u, 4294967295.0, true},  // kept positive as a number
      {"5000000000", -1, 0, 0, false},                      // 64-bit integers are not read
      {"-5000000000", -1, 0, 0, false},
      {"[1]", -1, 0, 0, false},
      {"{\"a\":1}", -1, 0, 0, false},
  };
  for (const auto& row : rows) {
    const auto root = Parse(std::string("[") + row.json + "]");
    const Node node = root->GetChild(0);
    EXPECT_EQ(ZELJsonHelper::ToInt(node), row.toInt) << row.json;
    EXPECT_EQ(ZELJsonHelper::ToUint(node), row.toUint) << row.json;
    EXPECT_EQ(ZELJsonHelper::ToDouble(node), row.toDouble) << row.json;
    EXPECT_EQ(ZELJsonHelper::ToFloat(node), static_cast<float>(row.toDouble)) << row.json;
    EXPECT_EQ(ZELJsonHelper::ToBoolean(node), row.toBoolean) << row.json;
  }
  EXPECT_EQ(ZELJsonHelper::ToInt(nullptr), -1);
  EXPECT_EQ(ZELJsonHelper::ToUint(nullptr) + ZELJsonHelper::ToFloat(nullptr) + ZELJsonHelper::ToDouble(nullptr), 0);
  EXPECT_FALSE(ZELJsonHelper::ToBoolean(nullptr));

  auto special = Parse("[]");
  special->InsertDouble(-1, std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(ZELJsonHelper::ToBoolean(special->GetChild(0)));  // NaN is not 0
  EXPECT_EQ(ZELJsonHelper::ToInt(special->GetChild(0)), INT_MIN);
}

TEST(ZELJsonHelperScalarTest, ToStringOfScalars) {
  const struct {
    const char* json;
    int places;
    const char* text;
  } rows[] = {
      {"3.14159", 2, "3.14"},     {"3.14159", 0, "3.141590"},  {"3.14159", -4, "3.141590"},
      {"2.5", 1, "2.5"},          {"-0.125", 3, "-0.125"},     {"2.0", 3, "2.000"},
      {"-7", 2, "-7"},            {"4294967295", 2, "4294967295"}, {"2147483648", 0, "2147483648"},
      {"\"12abc\"", 2, "12abc"},  {"\"a\\u0000b\"", 2, "a"},   {"true", 2, "true"},
      {"false", 0, "false"},      {"null", 2, ""},             {"[1]", 2, ""},
      {"{}", 2, ""},              {"5000000000", 2, ""},       {"-5000000000", 2, ""},
  };
  for (const auto& row : rows) {
    const auto root = Parse(std::string("[") + row.json + "]");
    EXPECT_STREQ(ZELJsonHelper::ToString(root->GetChild(0), row.places).c_str(), row.text)
        << row.json << " with " << row.places;
  }
  EXPECT_TRUE(ZELJsonHelper::ToString(nullptr, 2).IsEmpty());
}

TEST(ZELJsonHelperScalarTest, ToStringGivesLongTextsWhole) {
  auto root = Parse("[0.5]");
  root->InsertDouble(-1, -std::ldexp(1.0, 200));

  EXPECT_EQ(std::string(ZELJsonHelper::ToString(root->GetChild(0), 200).c_str()), "0.5" + std::string(199, '0'));
  // 2^200 is exact in a double, so all 61 digits are known.
  EXPECT_STREQ(ZELJsonHelper::ToString(root->GetChild(1), 0).c_str(),
               "-1606938044258990275541962092341162602522202993782792835301376.000000");

  // Past the last decimal a double can have, the text goes on in zeros; the runtime's own
  // formatting is the reference. Infinity and NaN take no decimals however many are asked for.
  root->InsertDouble(-1, std::numeric_limits<double>::denorm_min());
  root->InsertDouble(-1, -std::numeric_limits<double>::infinity());
  root->InsertDouble(-1, std::numeric_limits<double>::quiet_NaN());
  const double tiny = std::numeric_limits<double>::denorm_min();
  for (int places : {1074, 1075, 3000}) {
    std::string reference(static_cast<size_t>(places) + 3, '\0');
    reference.resize(static_cast<size_t>(std::snprintf(&reference[0], reference.size(), "%.*f", places, tiny)));
    EXPECT_EQ(std::string(ZELJsonHelper::ToString(root->GetChild(2), places).c_str()), reference) << places;
  }
  const std::string zeros = ZELJsonHelper::ToString(root->GetChild(0), 5000000).c_str();
  ASSERT_EQ(zeros.size(), 5000002u);
  EXPECT_EQ(zeros.find_first_not_of('0', 3), std::string::npos);
  EXPECT_STREQ(ZELJsonHelper::ToString(root->GetChild(3), 5000).c_str(), "-inf");
  EXPECT_STREQ(ZELJsonHelper::ToString(root->GetChild(4), INT_MAX).c_str(), "nan");
  // A text longer than any string can hold is the one case that gives up.
  EXPECT_TRUE(ZELJsonHelper::ToString(root->GetChild(0), INT_MAX).IsEmpty());

  // The separator form gives an empty array whatever the node.
  EXPECT_EQ(ZELJsonHelper::ToString(Parse("[\"a,b\"]")->GetChild(0), ",").GetSize(), 0);
  EXPECT_EQ(ZELJsonHelper::ToString(root, static_cast<const char*>(nullptr)).GetSize(), 0);
}

// ---- Shapes ----

TEST(ZELJsonHelperShapeTest, ColorsFromLenientUnmaskedElements) {
  const struct {
    const char* json;
    CA_ColorSpace space;
    unsigned int word;
  } rows[] = {
      {"[\"255\", true, 2.9]", CA_COLORSPACE_Rgb, 0x000201FFu},
      {"[255]", CA_COLORSPACE_Rgb, 0xFFFFFFFFu},  // the two missing elements are -1
      {"[0, 256, 0]", CA_COLORSPACE_Rgb, 0x00010000u},
      {"[1, 2, 3]", CA_COLORSPACE_Argb, 0xFFFFFFFFu},
      {"[1, 2, 3, 4, 5]", CA_COLORSPACE_Argb, 0x01020304u},
      {"[128]", CA_COLORSPACE_Gray, 0x00808080u},
      {"[300]", CA_COLORSPACE_Gray, 0x012D2D2Cu},
      {"[]", CA_COLORSPACE_Gray, 0xFFFFFFFFu},
  };
  for (const auto& row : rows) {
    const auto node = Parse(row.json);
    unsigned int viaColor = 0;
    unsigned int direct = 0;
    ASSERT_TRUE(ZELJsonHelper::ToColor(node, row.space, viaColor)) << row.json;
    EXPECT_EQ(viaColor, row.word) << row.json;
    switch (row.space) {
      case CA_COLORSPACE_Gray: ASSERT_TRUE(ZELJsonHelper::ToGray(node, direct)); break;
      case CA_COLORSPACE_Rgb: ASSERT_TRUE(ZELJsonHelper::ToRGB(node, direct)); break;
      default: ASSERT_TRUE(ZELJsonHelper::ToCMYK(node, direct)); break;
    }
    EXPECT_EQ(direct, row.word) << row.json;
  }

  unsigned int word = 0xCAFEu;
  for (int space : {0, 4, -1}) {
    EXPECT_FALSE(ZELJsonHelper::ToColor(Parse("[1, 2, 3]"), static_cast<CA_ColorSpace>(space), word));
  }
  EXPECT_FALSE(ZELJsonHelper::ToColor(Parse("{}"), CA_COLORSPACE_Rgb, word));
  EXPECT_FALSE(ZELJsonHelper::ToARGB(Parse("{\"a\": 1}"), word));
  EXPECT_EQ(word, 0xCAFEu);
}

TEST(ZELJsonHelperShapeTest, MissingElementsReadAsDefaults) {
  CMRL_DeviceRectTemplate<int> rect(9, 9, 9, 9);
  ASSERT_TRUE(ZELJsonHelper::ToRect(Parse("[1, 2]"), rect));
  EXPECT_EQ(rect, CMRL_DeviceRectTemplate<int>(1, 2, -1, -1));
  ASSERT_TRUE(ZELJsonHelper::ToRect(Parse("[10, 20, 5, 6, 99]"), rect));
  EXPECT_EQ(rect, CMRL_DeviceRectTemplate<int>(10, 20, 5, 6));  // not normalised, extra ignored

  MRL_DeviceRectF rectF(9, 9, 9, 9);
  ASSERT_TRUE(ZELJsonHelper::ToRectF(Parse("[0.5, \"2.5\"]"), rectF));
  EXPECT_EQ(rectF, MRL_DeviceRectF(0.5f, 2.5f, 0, 0));

  CMRL_PSVTemplate<float> pointF(9, 9);
  ASSERT_TRUE(ZELJsonHelper::ToPointF(Parse("[1]"), pointF));
  EXPECT_EQ(pointF, CMRL_PSVTemplate<float>(1, 0));
  ASSERT_TRUE(ZELJsonHelper::ToSizeF(Parse("[null, true]"), pointF));
  EXPECT_EQ(pointF, CMRL_PSVTemplate<float>(0, 1));

  CMRL_PSVTemplate<int> point(9, 9);
  ASSERT_TRUE(ZELJsonHelper::ToPoint(Parse("[]"), point));
  EXPECT_EQ(point, CMRL_PSVTemplate<int>(-1, -1));
  ASSERT_TRUE(ZELJsonHelper::ToSize(Parse("[2.9, \"7px\", 3]"), point));
  EXPECT_EQ(point, CMRL_PSVTemplate<int>(2, 7));

  CMRL_Matrix matrix(2, 2, 2, 2, 2, 2);
  ASSERT_TRUE(ZELJsonHelper::ToMatrix(Parse("[]"), matrix));
  EXPECT_EQ(matrix, CMRL_Matrix(0, 0, 0, 0, 0, 0));  // zeros, not the identity
  ASSERT_TRUE(ZELJsonHelper::ToMatrix(Parse("[1, 0.5, -1, 4, 10, 20.25, 7]"), matrix));
  EXPECT_EQ(matrix, CMRL_Matrix(1, 0.5f, -1, 4, 10, 20.25f));
}

TEST(ZELJsonHelperShapeTest, FloatShapesRoundTripThroughText) {
  // Widened floats print with enough digits to come back as the same floats.
  const CMRL_Matrix matrix(0.1f, -2.5f, 3e-5f, 1e10f, -7.75f, 1.0f / 3);
  CMRL_Matrix matrixBack;
  ASSERT_TRUE(ZELJsonHelper::ToMatrix(Parse(Text(ZELJsonHelper::FromMatrix(matrix))), matrixBack));
  EXPECT_EQ(matrixBack, matrix);
  const MRL_DeviceRectF rectF(0.1f, 1.0f / 7, -2.5f, 1e-7f);
  MRL_DeviceRectF rectFBack;
  ASSERT_TRUE(ZELJsonHelper::ToRectF(Parse(Text(ZELJsonHelper::FromRectF(rectF))), rectFBack));
  EXPECT_EQ(rectFBack, rectF);
}

// ---- Arrays ----

template <class Array>
auto Items(const Array& a) {
  std::vector<std::decay_t<decltype(a.GetAt(0))>> out;
  for (int i = 0; i < a.GetSize(); ++i) out.push_back(a.GetAt(i));
  return out;
}

TEST(ZELJsonHelperArrayTest, NumbersAreCutToElementWidthAndAppended) {
  CMRL_ArrayTemplate<unsigned char> bytes;
  bytes.Add(9);  // what was there stays in front
  ASSERT_TRUE(ZELJsonHelper::ToByteArray(Parse("[300, -1, 1]"), bytes));
  EXPECT_EQ(Items(bytes), (std::vector<unsigned char>{9, 44, 255, 1}));
  CMRL_ArrayTemplate<unsigned short> words;
  ASSERT_TRUE(ZELJsonHelper::ToWordArray(Parse("[65541, -1]"), words));
  EXPECT_EQ(Items(words), (std::vector<unsigned short>{5, 65535}));

  // Only 32-bit integers count: texts, fractions, booleans and 64-bit numbers give 0.
  CMRL_ArrayTemplate<unsigned int> dwords;
  ASSERT_TRUE(ZELJsonHelper::ToDWordArray(Parse("[\"7\", 7.5, 5000000000, -1, 4294967295, true]"), dwords));
  EXPECT_EQ(Items(dwords), (std::vector<unsigned int>{0, 0, 0, 4294967295u, 4294967295u, 0}));
  CMRL_TSArrayTemplate<CMRL_ArrayTemplate, float> floats;
  floats.Add(-1.0f);
  ASSERT_TRUE(ZELJsonHelper::ToFloatArray(Parse("[1, 2.5, \"3\", 1e39, 3000000000, -7]"), floats));
  EXPECT_EQ(Items(floats), (std::vector<float>{-1.0f, 1.0f, 2.5f, 0, 0, 0, -7.0f}));
}

TEST(ZELJsonHelperArrayTest, StringsAppendedWithEmptyForOtherKinds) {
  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> texts;
  texts.Add(CMRL_ByteString("kept"));
  ASSERT_TRUE(ZELJsonHelper::ToStringArray(Parse("[\"a\", 5, null, \"caf\\u00e9\", \"x\\u0000y\"]"), texts));
  // Up to the zero byte in the last one.
  EXPECT_EQ(Items(texts), (std::vector<CMRL_ByteString>{"kept", "a", "", "", "caf\xC3\xA9", "x"}));

  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_WideString> wides;
  wides.Add(CMRL_WideString(L"kept"));
  ASSERT_TRUE(ZELJsonHelper::ToStringArray(Parse("[\"caf\\u00e9\", 1, \"\\ud83d\\ude00\"]"), wides));
  EXPECT_EQ(Items(wides), (std::vector<CMRL_WideString>{L"kept", L"caf\u00E9", L"", L"\U0001F600"}));
}

TEST(ZELJsonHelperArrayTest, NonArraysAreRefusedAndOutputsKept) {
  CMRL_ArrayTemplate<unsigned char> bytes;
  bytes.Add(3);
  EXPECT_TRUE(ZELJsonHelper::ToByteArray(Parse("[]"), bytes));
  CMRL_ArrayTemplate<unsigned short> words;
  CMRL_ArrayTemplate<unsigned int> dwords;
  CMRL_TSArrayTemplate<CMRL_ArrayTemplate, float> floats;
  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> texts;
  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_WideString> wides;
  CMRL_Matrix matrix(1, 2, 3, 4, 5, 6);
  CMRL_DeviceRectTemplate<int> rect(1, 2, 3, 4);
  CMRL_PSVTemplate<float> pointF(1, 2);
  const auto object = Parse("{\"a\": 1}");
  const auto holder = Parse("[\"1,2\"]");  // keeps the scalar view's tree alive
  for (const Node& node : {Node(object), Node(holder->GetChild(0)), Node()}) {
    EXPECT_FALSE(ZELJsonHelper::ToByteArray(node, bytes));
    EXPECT_FALSE(ZELJsonHelper::ToWordArray(node, words));
    EXPECT_FALSE(ZELJsonHelper::ToDWordArray(node, dwords));
    EXPECT_FALSE(ZELJsonHelper::ToFloatArray(node, floats));
    EXPECT_FALSE(ZELJsonHelper::ToStringArray(node, texts));
    EXPECT_FALSE(ZELJsonHelper::ToStringArray(node, wides));
    EXPECT_FALSE(ZELJsonHelper::ToMatrix(node, matrix));
    EXPECT_FALSE(ZELJsonHelper::ToRect(node, rect));
    EXPECT_FALSE(ZELJsonHelper::ToSizeF(node, pointF));
  }
  EXPECT_EQ(bytes.GetSize(), 1);
  EXPECT_EQ(words.GetSize() + dwords.GetSize() + floats.GetSize() + texts.GetSize() + wides.GetSize(), 0);
  EXPECT_EQ(matrix, CMRL_Matrix(1, 2, 3, 4, 5, 6));
  EXPECT_EQ(rect, CMRL_DeviceRectTemplate<int>(1, 2, 3, 4));
  EXPECT_EQ(pointF, CMRL_PSVTemplate<float>(1, 2));
}

}  // namespace
