#include <zelutility/json.h>

#include <gtest/gtest.h>

namespace {

TEST(GetJsonTypeStringTest, WordsAndUnknownValues) {
  const struct { ZELJsonType type; const char* word; } named[] = {
      {ZELJsonNull, "null"},     {ZELJsonInt, "int"},         {ZELJsonUint, "uint"},
      {ZELJsonFloat, "float"},   {ZELJsonDouble, "double"},   {ZELJsonString, "string"},
      {ZELJsonBoolean, "boolean"}, {ZELJsonArray, "array"},   {ZELJsonObject, "object"}};
  for (const auto& c : named) EXPECT_STREQ(GetJsonTypeString(c.type), c.word) << c.word;
  // The 64-bit classes share the word of values outside the enumeration.
  for (int value : {3, 4, 11, -1, 1000}) {
    EXPECT_STREQ(GetJsonTypeString(static_cast<ZELJsonType>(value)), "unknown") << value;
  }
}

}  // namespace
