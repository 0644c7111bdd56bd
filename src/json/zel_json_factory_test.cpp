#include <zelutility/json_factory.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace {

constexpr unsigned int kNoLimit = static_cast<unsigned int>(-1);
const char kScalarLine[] = "Only allow array and object\n";

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

std::string Build(const std::shared_ptr<const ZELJson>& node,
                  const ZELJsonFactory::BuildConfig* config = nullptr) {
  const CMRL_ByteString text = ZELJsonFactory::BuildJsonString(node, config);
  return std::string(text.c_str(), text.GetLength());
}

std::shared_ptr<ZELJson> Parse(const char* text) { return ZELJsonFactory::ParseJsonString(text, kNoLimit, nullptr); }

std::string Nested(int depth, const char* open, const char* inner, const char* close) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += open;
  text += inner;
  for (int i = 0; i < depth; ++i) text += close;
  return text;
}

TEST(ZELJsonFactoryTest, EmptyInputGivesAnEmptyObjectSilently) {
  for (const auto& outcome : {ParseCapturing(nullptr, 0), ParseCapturing("", 0), ParseCapturing("[1]", 0),
                              ParseCapturing(nullptr), ParseCapturing("")}) {
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

TEST(ZELJsonFactoryTest, RefusalsPrintOneLine) {
  const struct {
    const char* text;
    unsigned int length;
    int code;  // 0: a scalar root
  } cases[] = {
      {"\t\r\n ", kNoLimit, 1},      {"[1] // c", kNoLimit, 2}, {"[1,2]", 3, 3},
      {"[NaN]", kNoLimit, 3},         {"{1:2}", kNoLimit, 4},    {"{\"a\" 1}", kNoLimit, 5},
      {"{\"a\":1 \"b\":2}", kNoLimit, 6}, {"[1 2]", kNoLimit, 7},  {"[\"abc]", kNoLimit, 11},
      {"[\"\\x\"]", kNoLimit, 10},     {"[1.]", kNoLimit, 14},    {"\xEF\xBB\xBF", kNoLimit, 1},
      {"true", kNoLimit, 0},          {" -2.5 ", kNoLimit, 0},
  };
  for (const auto& c : cases) {
    const ParseOutcome outcome = ParseCapturing(c.text, c.length);
    EXPECT_FALSE(outcome.node) << c.text;
    EXPECT_EQ(outcome.printed, c.code ? ErrorLine(c.code) : kScalarLine) << c.text;
  }
}

TEST(ZELJsonFactoryTest, LengthNulAndByteOrderMark) {
  const char unterminated[] = {'{', '"', 'k', '"', ':', '2', '}', 'x'};
  const struct {
    const char* text;
    unsigned int length;
    const char* built;
  } cases[] = {
      {"[1]\0garbage", 11, "[1]"},            // a NUL ends the text whatever the length says
      {"[7][8]", 3, "[7]"},                   // the length cuts a longer text
      {unterminated, 7, "{\"k\":2}"},         // read only up to the length
      {"\xEF\xBB\xBF{\"a\":[1]}", kNoLimit, "{\"a\":[1]}"},
  };
  for (const auto& c : cases) {
    const ParseOutcome outcome = ParseCapturing(c.text, c.length);
    ASSERT_TRUE(outcome.node) << c.built;
    EXPECT_EQ(Build(outcome.node), c.built);
    EXPECT_EQ(outcome.printed, "");
  }

  // "Up to the NUL" and an exact length read the same bytes: whole and partial marks, a NUL right
  // after a mark, a NUL inside a string, escape or literal, and texts that end early.
  const std::string texts[] = {
      "\xEF\xBB[1]", "\xBF[1]", "\xEF\xBB\xBF", "\xEF\xBB\xBF\xEF\xBB\xBF[1]", "[1, 2 ]  ",
      std::string("[\"a\0b\"]", 7), std::string("[\"\\u00\0\"]", 9), std::string("[tr\0e]", 7),
      std::string("{\"k\":1}\0x", 10), "{\"k\"", "[\"open", "[-]"};
  for (const std::string& text : texts) {
    const ParseOutcome whole = ParseCapturing(text.c_str());
    const ParseOutcome exact = ParseCapturing(text.c_str(), static_cast<unsigned int>(text.size()));
    EXPECT_EQ(whole.printed, exact.printed) << text;
    ASSERT_EQ(static_cast<bool>(whole.node), static_cast<bool>(exact.node)) << text;
    if (whole.node) EXPECT_EQ(Build(whole.node), Build(exact.node)) << text;
  }
  EXPECT_EQ(ParseCapturing("\xEF\xBB[1]").printed, "");     // a partial mark is skipped as well
  EXPECT_EQ(ParseCapturing("\xBF\xBB\xEF[1]").printed, ErrorLine(3));  // out of order it is not

  // Strings are copied out of the caller's buffer.
  std::string buffer = "[\"value\"]";
  auto node = Parse(buffer.c_str());
  buffer.assign(buffer.size(), 'x');
  EXPECT_STREQ(node->GetString(0, nullptr), "value");
}

ZELJsonFactory::ParseError QuietError(const std::string& text, unsigned int length) {
  ZELJsonFactory::ParseError error;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(ZELJsonFactory::ParseJsonStringQuiet(text.c_str(), length, &error)) << text.substr(0, 16);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << text.substr(0, 16);
  return error;
}

TEST(ZELJsonFactoryTest, QuietParseNamesTheReasonAndWhere) {
  const struct {
    std::string text;
    int code;
    size_t offset;
  } cases[] = {
      {"{\"a\":1} x", 2, 8},
      {"[1,]", 3, 3},
      {"[1", 7, 2},
      {"[\"\\x\"]", 10, 2},
      {"\xEF\xBB\xBF[1,]", 3, 6},  // the mark counts towards the offset
      {"\xEF\xBB\xBF", 1, 3},
      {" \"a\" ", ZELJsonFactory::ParseError::kScalarRoot, 0},
      {Nested(1001, "[", "", "]"), 16, 1001},  // just past the bracket that goes too deep
  };
  for (const auto& c : cases) {
    // Up to the NUL and with an exact length the answer is the same.
    for (const unsigned int length : {kNoLimit, static_cast<unsigned int>(c.text.size())}) {
      const ZELJsonFactory::ParseError error = QuietError(c.text, length);
      const std::string shown = c.text.substr(0, 16) + " length " + std::to_string(length);
      EXPECT_EQ(error.code, c.code) << shown;
      EXPECT_EQ(error.offset, c.offset) << shown;
    }
  }
  // A length that cuts the text short stops the reader at the cut.
  const ZELJsonFactory::ParseError cut = QuietError("[1,2]", 3);
  EXPECT_EQ(cut.code, 3);
  EXPECT_EQ(cut.offset, 3u);

  // Success clears what an earlier refusal left behind; empty input is an empty object.
  ZELJsonFactory::ParseError error{7, 99};
  testing::internal::CaptureStdout();
  auto root = ZELJsonFactory::ParseJsonStringQuiet("{\"k\":[true]}", kNoLimit, &error);
  auto empty = ZELJsonFactory::ParseJsonStringQuiet(nullptr, 0, nullptr);
  EXPECT_FALSE(ZELJsonFactory::ParseJsonStringQuiet("[", kNoLimit, nullptr));  // no error wanted
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(Build(root), "{\"k\":[true]}");
  EXPECT_TRUE(error.code == 0 && error.offset == 0u);
  EXPECT_EQ(Build(empty), "{}");
}

TEST(ZELJsonFactoryTest, NestingLimitRefusesWithoutOverflowing) {
  for (const std::string& deepest : {Nested(1000, "[", "1", "]"), Nested(1000, "{\"k\":", "0", "}")}) {
    const ParseOutcome outcome = ParseCapturing(deepest.c_str());
    ASSERT_TRUE(outcome.node);
    EXPECT_EQ(outcome.printed, "");
    EXPECT_TRUE(Build(outcome.node) == deepest);
  }
  for (const std::string& tooDeep : {Nested(1001, "[", "", "]"), Nested(1001, "{\"k\":", "0", "}"),
                                     std::string(200000, '['), Nested(100000, "[{\"\":", "", "")}) {
    const ParseOutcome outcome = ParseCapturing(tooDeep.c_str());
    EXPECT_FALSE(outcome.node);
    EXPECT_EQ(outcome.printed, ErrorLine(16));
  }
}

TEST(ZELJsonFactoryTest, BuildsCompactTextInMemberOrder) {
  const struct {
    const char* in;
    const char* out;
  } cases[] = {
      {" [ 1 , 2.5 ,\n\"a\" , true , null , { \"k\" : [ ] } ] ", "[1,2.5,\"a\",true,null,{\"k\":[]}]"},
      {"[2.0,1e30,0.1,-0.0,1E2,100000000000000000000]", "[2.0,1e30,0.1,-0.0,100.0,100000000000000000000.0]"},
      // Non-ASCII bytes stay as they are, the slash is not escaped, controls are.
      {"[\"\xC3\xA9t\xC3\xA9 / \\u00e9 \\n \\u0001 \\/\"]", "[\"\xC3\xA9t\xC3\xA9 / \xC3\xA9 \\n \\u0001 /\"]"},
  };
  for (const auto& c : cases) EXPECT_EQ(Build(Parse(c.in)), c.out);

  // Views and scalars print as that value alone; null prints nothing.
  auto root = Parse("{\"a\":{\"b\":[1,\"x\"]}}");
  EXPECT_EQ(Build(root->GetChild("a")), "{\"b\":[1,\"x\"]}");
  EXPECT_EQ(Build(root->GetChild("a")->GetChild("b")->GetChild(1)), "\"x\"");
  ZELJsonFactory::BuildConfig config;
  EXPECT_EQ(Build(nullptr, &config), "");

  // A non-finite number ends the text where it stands.
  root->GetChild("a")->GetChild("b")->InsertDouble(1, std::nan(""));
  EXPECT_EQ(Build(root), "{\"a\":{\"b\":[1,");
  root->SetDouble("a", std::numeric_limits<double>::infinity());
  EXPECT_EQ(Build(root), "{\"a\":");
}

TEST(ZELJsonFactoryTest, DecimalPlacesCutFloatingPointOutput) {
  ZELJsonFactory::BuildConfig config;
  EXPECT_EQ(config.GetMaxDecimalPlaces(), 324);
  auto floats = Parse("[]");
  floats->InsertFloat(-1, 0.1f);
  EXPECT_EQ(Build(floats, &config), "[0.10000000149011612]");
  config.SetMaxDecimalPlaces(3);
  EXPECT_EQ(Build(floats, &config), "[0.1]");

  auto numbers = Parse("[1.2345,1.999,1.5,0.001,7,2.0,-1.2345]");
  config.SetMaxDecimalPlaces(2);
  EXPECT_EQ(Build(numbers, &config), "[1.23,1.99,1.5,0.0,7,2.0,-1.23]");
  // Below one decimal place the limit acts as one, though the value is stored unchecked.
  for (int places : {0, std::numeric_limits<int>::min()}) {
    config.SetMaxDecimalPlaces(places);
    EXPECT_EQ(Build(numbers, &config), "[1.2,1.9,1.5,0.0,7,2.0,-1.2]") << places;
  }
}

// --- Peer corpus: every file of the public JSON test suite must get the same decision (and the
// same error code) as RapidJSON with default flags, apart from what this library adds: an empty
// text is an empty object, a scalar root and nesting past 1000 levels are refused.

int NestingDepth(const std::string& bytes) {
  int depth = 0, deepest = 0;
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

// Both parses are checked on every file: the printing one against the peer, the quiet one against
// the printing one (same decision, the printed code, the peer's offset, and nothing printed).
TEST(ZELJsonFactoryTest, AgreesWithPeerOnTheJsonTestSuite) {
  const std::filesystem::path folder =
      std::filesystem::path(ZEL_TESTDATA_DIR) / "JSONTestSuite" / "test_parsing";
  if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "no peer corpus at " << folder;

  int checked = 0, refused = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".json") continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::string name = entry.path().filename().string();
    const auto length = static_cast<unsigned int>(bytes.size());
    const ParseOutcome mine = ParseCapturing(bytes.data(), length);
    ZELJsonFactory::ParseError error{12345, 12345};
    testing::internal::CaptureStdout();
    const auto quiet = ZELJsonFactory::ParseJsonStringQuiet(bytes.data(), length, &error);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << name;
    ++checked;
    ASSERT_EQ(static_cast<bool>(quiet), static_cast<bool>(mine.node)) << name;
    if (quiet) {
      EXPECT_EQ(error.code, 0) << name;
      EXPECT_EQ(Build(quiet), Build(mine.node)) << name;
    } else {
      ++refused;
      EXPECT_EQ(mine.printed, error.code == ZELJsonFactory::ParseError::kScalarRoot ? kScalarLine
                                                                                     : ErrorLine(error.code))
          << name;
    }

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
    if (peer.HasParseError() || (!peer.IsArray() && !peer.IsObject())) {
      EXPECT_FALSE(mine.node) << name;
      EXPECT_EQ(mine.printed, peer.HasParseError() ? ErrorLine(peer.GetParseError()) : kScalarLine) << name;
      if (peer.HasParseError()) {
        EXPECT_EQ(error.offset, peer.GetErrorOffset()) << name;
      }
    } else {
      ASSERT_TRUE(mine.node) << name;
      EXPECT_EQ(mine.printed, "") << name;
      rapidjson::StringBuffer buffer;
      rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
      peer.Accept(writer);
      EXPECT_EQ(Build(mine.node), std::string(buffer.GetString(), buffer.GetSize())) << name;
    }
  }
  EXPECT_GT(checked, 300);
  EXPECT_GT(refused, 100);
}

}  // namespace
