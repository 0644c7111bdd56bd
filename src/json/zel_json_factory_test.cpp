#include <zelutility/json_factory.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace {

constexpr unsigned int kNoLimit = static_cast<unsigned int>(-1);

struct ParseOutcome {
  std::shared_ptr<ZELJson> node;
  std::string printed;  // what the call wrote on standard output
};

ParseOutcome ParseCapturing(const char* text, unsigned int length = kNoLimit) {
  testing::internal::CaptureStdout();
  ParseOutcome outcome;
  outcome.node = ZELJsonFactory::ParseJsonString(text, length, nullptr);
  outcome.printed = testing::internal::GetCapturedStdout();
  return outcome;
}

std::string ErrorLine(int code) { return "Parse json error. code=" + std::to_string(code) + "\n"; }
const char kScalarLine[] = "Only allow array and object\n";

std::string Build(const std::shared_ptr<const ZELJson>& node,
                  const ZELJsonFactory::BuildConfig* config = nullptr) {
  const CMRL_ByteString text = ZELJsonFactory::BuildJsonString(node, config);
  return std::string(text.c_str(), text.GetLength());
}

std::string RoundTrip(const char* text) {
  return Build(ZELJsonFactory::ParseJsonString(text, kNoLimit, nullptr));
}

std::string Nested(int depth, const char* open, const char* inner, const char* close) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += open;
  text += inner;
  for (int i = 0; i < depth; ++i) text += close;
  return text;
}

TEST(ZELJsonFactoryTest, EmptyInputGivesAnEmptyObjectSilently) {
  for (const auto& outcome : {ParseCapturing(nullptr, 0), ParseCapturing("", 0),
                              ParseCapturing("[1]", 0), ParseCapturing(nullptr),
                              ParseCapturing("")}) {
    ASSERT_TRUE(outcome.node);
    EXPECT_EQ(outcome.node->GetType(), ZELJsonObject);
    EXPECT_EQ(outcome.node->GetSize(), 0);
    EXPECT_EQ(outcome.printed, "");
  }
  // The empty object is a real tree that can be written to.
  auto root = ZELJsonFactory::ParseJsonString(nullptr, 0, nullptr);
  root->SetInt("a", 1);
  EXPECT_EQ(Build(root), "{\"a\":1}");
}

TEST(ZELJsonFactoryTest, SyntaxErrorsPrintTheirCode) {
  const struct {
    const char* text;
    unsigned int length;
    int code;
  } cases[] = {
      {" ", kNoLimit, 1},           {"\t\r\n ", kNoLimit, 1}, {"{\"a\":1} x", kNoLimit, 2},
      {"[1] [2]", kNoLimit, 2},     {"[1,]", kNoLimit, 3},    {"[1,2]", 3, 3},
      {"[tru]", kNoLimit, 3},       {"{1:2}", kNoLimit, 4},   {"{\"a\" 1}", kNoLimit, 5},
      {"{\"a\":1 \"b\":2}", kNoLimit, 6}, {"{\"a\":1,}", kNoLimit, 4}, {"[1 2]", kNoLimit, 7},
      {"[1", kNoLimit, 7},          {"[NaN]", kNoLimit, 3},   {"[1] // c", kNoLimit, 2},
      {"[\"abc]", kNoLimit, 11},    {"[\"\\x\"]", kNoLimit, 10}, {"[1.]", kNoLimit, 14},
  };
  for (const auto& c : cases) {
    const ParseOutcome outcome = ParseCapturing(c.text, c.length);
    EXPECT_FALSE(outcome.node) << c.text;
    EXPECT_EQ(outcome.printed, ErrorLine(c.code)) << c.text;
  }
}

TEST(ZELJsonFactoryTest, ScalarRootsAreRefused) {
  for (const char* text : {"5", "true", "null", "\"a string\"", " -2.5 "}) {
    const ParseOutcome outcome = ParseCapturing(text);
    EXPECT_FALSE(outcome.node) << text;
    EXPECT_EQ(outcome.printed, kScalarLine) << text;
  }
}

TEST(ZELJsonFactoryTest, LengthNulAndByteOrderMark) {
  // A NUL byte ends the text whatever the length says.
  const char withNul[] = "[1]\0garbage";
  ParseOutcome outcome = ParseCapturing(withNul, sizeof(withNul) - 1);
  ASSERT_TRUE(outcome.node);
  EXPECT_EQ(Build(outcome.node), "[1]");
  EXPECT_EQ(outcome.printed, "");

  // The length cuts a longer text; here the cut leaves valid JSON.
  outcome = ParseCapturing("[7][8]", 3);
  ASSERT_TRUE(outcome.node);
  EXPECT_EQ(Build(outcome.node), "[7]");

  // A text that is not NUL-terminated is read only up to the length.
  const char unterminated[] = {'{', '"', 'k', '"', ':', '2', '}', 'x'};
  outcome = ParseCapturing(unterminated, 7);
  ASSERT_TRUE(outcome.node);
  EXPECT_EQ(outcome.node->GetInt("k", 0), 2);

  outcome = ParseCapturing("\xEF\xBB\xBF{\"a\":[1]}");
  ASSERT_TRUE(outcome.node);
  EXPECT_EQ(Build(outcome.node), "{\"a\":[1]}");
  outcome = ParseCapturing("\xEF\xBB\xBF");
  EXPECT_FALSE(outcome.node);
  EXPECT_EQ(outcome.printed, ErrorLine(1));

  // Strings are copied out of the caller's buffer.
  std::string buffer = "[\"value\"]";
  auto node = ZELJsonFactory::ParseJsonString(buffer.c_str(), kNoLimit, nullptr);
  buffer.assign(buffer.size(), 'x');
  EXPECT_STREQ(node->GetString(0, nullptr), "value");

  // The parse options are ignored, null or not.
  const ZELJsonFactory::ParseConfig parseConfig;
  EXPECT_TRUE(ZELJsonFactory::ParseJsonString("[]", kNoLimit, &parseConfig));
}

TEST(ZELJsonFactoryTest, NestingLimitRefusesWithoutOverflowing) {
  const std::string deepestAccepted = Nested(1000, "[", "1", "]");
  ParseOutcome outcome = ParseCapturing(deepestAccepted.c_str());
  ASSERT_TRUE(outcome.node);
  EXPECT_EQ(outcome.printed, "");
  // A tree at the limit can be printed, cloned and copied.
  EXPECT_EQ(Build(outcome.node), deepestAccepted);
  auto clone = outcome.node->Clone();
  EXPECT_EQ(Build(clone), deepestAccepted);
  auto target = ZELJsonFactory::ParseJsonString("{}", kNoLimit, nullptr);
  EXPECT_TRUE(target->CopyFrom(outcome.node));
  EXPECT_EQ(Build(target), deepestAccepted);

  const std::string deepObjects = Nested(1000, "{\"k\":", "0", "}");
  outcome = ParseCapturing(deepObjects.c_str());
  ASSERT_TRUE(outcome.node);
  EXPECT_EQ(Build(outcome.node->Clone()), deepObjects);

  for (const std::string& tooDeep :
       {Nested(1001, "[", "", "]"), Nested(1001, "{\"k\":", "0", "}"),
        std::string(200000, '['), Nested(100000, "[{\"\":", "", "")}) {
    outcome = ParseCapturing(tooDeep.c_str());
    EXPECT_FALSE(outcome.node);
    EXPECT_EQ(outcome.printed, ErrorLine(16));
  }
}

TEST(ZELJsonFactoryTest, BuildsCompactTextInMemberOrder) {
  EXPECT_EQ(RoundTrip("[1,2.5,\"a\",true,null,{\"k\":[]}]"), "[1,2.5,\"a\",true,null,{\"k\":[]}]");
  EXPECT_EQ(RoundTrip(" [ 1 , 2.5 ,\n\"a\" , true , null , { \"k\" : [ ] } ] "),
            "[1,2.5,\"a\",true,null,{\"k\":[]}]");
  EXPECT_EQ(RoundTrip("{\"b\":1,\"a\":2}"), "{\"b\":1,\"a\":2}");
  EXPECT_EQ(RoundTrip("[2.0,1e30,0.1,-0.0,1E2,100000000000000000000]"),
            "[2.0,1e30,0.1,-0.0,100.0,100000000000000000000.0]");
  EXPECT_EQ(RoundTrip("[-9223372036854775808,18446744073709551615]"),
            "[-9223372036854775808,18446744073709551615]");
  // Non-ASCII bytes stay as they are, the slash is not escaped, controls are.
  EXPECT_EQ(RoundTrip("[\"\xC3\xA9t\xC3\xA9 / \\u00e9 \\n \\u0001 \\/\"]"),
            "[\"\xC3\xA9t\xC3\xA9 / \xC3\xA9 \\n \\u0001 /\"]");

  // Views and scalars print as that value alone; null prints nothing.
  auto root = ZELJsonFactory::ParseJsonString("{\"a\":{\"b\":[1,\"x\"]}}", kNoLimit, nullptr);
  EXPECT_EQ(Build(root->GetChild("a")), "{\"b\":[1,\"x\"]}");
  EXPECT_EQ(Build(root->GetChild("a")->GetChild("b")->GetChild(1)), "\"x\"");
  ZELJsonFactory::BuildConfig config;
  EXPECT_EQ(Build(nullptr), "");
  EXPECT_EQ(Build(nullptr, &config), "");
}

TEST(ZELJsonFactoryTest, DecimalPlacesCutFloatingPointOutput) {
  ZELJsonFactory::BuildConfig config;
  EXPECT_EQ(config.GetMaxDecimalPlaces(), 324);

  auto floats = ZELJsonFactory::ParseJsonString("[]", kNoLimit, nullptr);
  floats->InsertFloat(-1, 0.1f);
  EXPECT_EQ(Build(floats), "[0.10000000149011612]");
  EXPECT_EQ(Build(floats, &config), "[0.10000000149011612]");
  config.SetMaxDecimalPlaces(3);
  EXPECT_EQ(Build(floats, &config), "[0.1]");

  auto numbers = ZELJsonFactory::ParseJsonString("[1.2345,1.999,1.5,0.001,7,2.0,-1.2345]",
                                                 kNoLimit, nullptr);
  config.SetMaxDecimalPlaces(2);
  EXPECT_EQ(config.GetMaxDecimalPlaces(), 2);
  EXPECT_EQ(Build(numbers, &config), "[1.23,1.99,1.5,0.0,7,2.0,-1.23]");

  // Below one decimal place the limit acts as one.
  for (int places : {1, 0, -5, std::numeric_limits<int>::min()}) {
    config.SetMaxDecimalPlaces(places);
    EXPECT_EQ(config.GetMaxDecimalPlaces(), places);  // stored unchecked
    EXPECT_EQ(Build(numbers, &config), "[1.2,1.9,1.5,0.0,7,2.0,-1.2]") << places;
  }

  ZELJsonFactory::BuildConfig copy;
  copy = config;
  EXPECT_EQ(copy.GetMaxDecimalPlaces(), config.GetMaxDecimalPlaces());
}

TEST(ZELJsonFactoryTest, NonFiniteNumbersEndTheText) {
  auto array = ZELJsonFactory::ParseJsonString("[]", kNoLimit, nullptr);
  array->InsertInt(-1, 1);
  array->InsertDouble(-1, std::nan(""));
  array->InsertInt(-1, 2);
  EXPECT_EQ(Build(array), "[1,");

  auto object = ZELJsonFactory::ParseJsonString("{}", kNoLimit, nullptr);
  object->SetDouble("inf", std::numeric_limits<double>::infinity());
  EXPECT_EQ(Build(object), "{\"inf\":");
}

// --- Peer corpus: every file of the public JSON test suite must get the same decision (and the
// same error code) as RapidJSON with default flags, apart from what this library adds: an empty
// text is an empty object, a scalar root and nesting past 1000 levels are refused.

int NestingDepth(const std::string& bytes) {
  int depth = 0;
  int deepest = 0;
  bool inString = false;
  for (size_t i = 0; i < bytes.size() && bytes[i] != '\0'; ++i) {
    const char c = bytes[i];
    if (inString) {
      if (c == '\\') ++i;
      else if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return deepest;
}

std::string RawWriterText(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

TEST(ZELJsonFactoryTest, AgreesWithPeerOnTheJsonTestSuite) {
  const std::filesystem::path folder =
      std::filesystem::path(ZEL_TESTDATA_DIR) / "JSONTestSuite" / "test_parsing";
  if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "no peer corpus at " << folder;

  int checked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".json") continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::string name = entry.path().filename().string();
    const ParseOutcome mine = ParseCapturing(bytes.data(), static_cast<unsigned int>(bytes.size()));
    ++checked;

    if (bytes.empty() || bytes[0] == '\0') {
      ASSERT_TRUE(mine.node) << name;
      EXPECT_EQ(mine.node->GetSize(), 0) << name;
      EXPECT_EQ(mine.printed, "") << name;
      continue;
    }
    if (NestingDepth(bytes) > 1000) {  // too deep for the peer's recursive parser to try
      EXPECT_FALSE(mine.node) << name;
      EXPECT_EQ(mine.printed, ErrorLine(16)) << name;
      continue;
    }
    rapidjson::Document peer;
    peer.Parse(bytes.data(), bytes.size());
    if (peer.HasParseError()) {
      EXPECT_FALSE(mine.node) << name;
      EXPECT_EQ(mine.printed, ErrorLine(peer.GetParseError())) << name;
    } else if (!peer.IsArray() && !peer.IsObject()) {
      EXPECT_FALSE(mine.node) << name;
      EXPECT_EQ(mine.printed, kScalarLine) << name;
    } else {
      ASSERT_TRUE(mine.node) << name;
      EXPECT_EQ(mine.printed, "") << name;
      EXPECT_EQ(Build(mine.node), RawWriterText(peer)) << name;
    }
  }
  EXPECT_GT(checked, 300);
}

}  // namespace
