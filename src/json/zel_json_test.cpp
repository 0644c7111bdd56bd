#include <zelutility/json.h>

#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(GetJsonTypeStringTest, WordsAndUnknownValues) {
  EXPECT_STREQ(GetJsonTypeString(ZELJsonNull), "null");
  EXPECT_STREQ(GetJsonTypeString(ZELJsonInt), "int");
  EXPECT_STREQ(GetJsonTypeString(ZELJsonUint), "uint");
  EXPECT_STREQ(GetJsonTypeString(ZELJsonFloat), "float");
  EXPECT_STREQ(GetJsonTypeString(ZELJsonDouble), "double");
  EXPECT_STREQ(GetJsonTypeString(ZELJsonString), "string");
  EXPECT_STREQ(GetJsonTypeString(ZELJsonBoolean), "boolean");
  EXPECT_STREQ(GetJsonTypeString(ZELJsonArray), "array");
  EXPECT_STREQ(GetJsonTypeString(ZELJsonObject), "object");
  // The 64-bit classes share the word of values outside the enumeration.
  for (int value : {3, 4, 11, -1, 1000}) {
    EXPECT_STREQ(GetJsonTypeString(static_cast<ZELJsonType>(value)), "unknown") << value;
  }
  // The words are distinct, so a caller can tell the named types apart.
  std::set<std::string> words;
  for (int value = 0; value <= 10; ++value) {
    words.insert(GetJsonTypeString(static_cast<ZELJsonType>(value)));
  }
  EXPECT_EQ(words.size(), 10u);
}

}  // namespace
