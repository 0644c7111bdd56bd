#include "rapidjson_wrapper.h"

#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include <zelutility/json_factory.h>

namespace {

std::shared_ptr<ZELJson> Parse(const char* text) {
  return ZELJsonFactory::ParseJsonString(text, static_cast<unsigned int>(-1), nullptr);
}

std::string Print(const std::shared_ptr<const ZELJson>& node) {
  return ZELJsonFactory::BuildJsonString(node, nullptr).c_str();
}

std::string KeysOf(const ZELJson& node) {
  const auto keys = node.GetKeys();
  std::string joined;
  for (int i = 0; i < keys.GetSize(); ++i) {
    joined += keys.GetAt(i).c_str();
    joined += ';';
  }
  return joined;
}

TEST(RapidjsonWrapperTest, TypesFollowTheStoredNumberForm) {
  auto root = Parse("[5,3000000000,-5,5000000000,-5000000000,2.0,2.5,-2147483648,-2147483649,"
                    "4294967295,4294967296,18446744073709551615,18446744073709551616,"
                    "\"s\",true,null,[],{}]");
  ASSERT_TRUE(root);
  const ZELJsonType expected[] = {
      ZELJsonUint,  ZELJsonUint,   ZELJsonInt,     ZELJsonUint64,  ZELJsonInt64,  ZELJsonDouble,
      ZELJsonDouble, ZELJsonInt,   ZELJsonInt64,   ZELJsonUint,    ZELJsonUint64, ZELJsonUint64,
      ZELJsonDouble, ZELJsonString, ZELJsonBoolean, ZELJsonNull,   ZELJsonArray,  ZELJsonObject};
  ASSERT_EQ(root->GetSize(), static_cast<int>(std::size(expected)));
  for (int i = 0; i < root->GetSize(); ++i) {
    EXPECT_EQ(root->GetChild(i)->GetType(), expected[i]) << "element " << i;
  }

  // Written numbers take the same classes as parsed ones; a float is stored as double.
  auto array = Parse("[]");
  array->InsertInt64(-1, 7);
  array->InsertUint64(-1, 7);
  array->InsertInt(-1, -7);
  array->InsertFloat(-1, 1.0f);
  array->InsertDouble(-1, 1.0);
  EXPECT_EQ(array->GetChild(0)->GetType(), ZELJsonUint);
  EXPECT_EQ(array->GetChild(1)->GetType(), ZELJsonUint);
  EXPECT_EQ(array->GetChild(2)->GetType(), ZELJsonInt);
  EXPECT_EQ(array->GetChild(3)->GetType(), ZELJsonDouble);
  EXPECT_EQ(array->GetChild(4)->GetType(), ZELJsonDouble);
}

TEST(RapidjsonWrapperTest, OwnValueReadersAcceptByStoredForm) {
  auto root = Parse("[2.0,2,-1,3000000000,1e39,-5000000000,\"txt\",true,1.5]");
  ASSERT_TRUE(root);
  auto twoPointZero = root->GetChild(0);
  auto two = root->GetChild(1);
  auto minusOne = root->GetChild(2);
  auto big = root->GetChild(3);
  auto huge = root->GetChild(4);
  auto bigNegative = root->GetChild(5);
  auto text = root->GetChild(6);
  auto flag = root->GetChild(7);

  bool ok = true;
  EXPECT_EQ(twoPointZero->AsInt(&ok), 0);
  EXPECT_FALSE(ok);
  EXPECT_DOUBLE_EQ(two->AsDouble(&ok), 2.0);
  EXPECT_TRUE(ok);
  EXPECT_EQ(minusOne->AsUint(&ok), 4294967295u);
  EXPECT_TRUE(ok);
  EXPECT_EQ(minusOne->AsUint64(&ok), std::numeric_limits<uint64_t>::max());
  EXPECT_TRUE(ok);
  EXPECT_EQ(bigNegative->AsUint64(&ok), static_cast<uint64_t>(-5000000000LL));
  EXPECT_TRUE(ok);
  EXPECT_EQ(bigNegative->AsUint(&ok), 0u);  // outside 32 bits either way
  EXPECT_FALSE(ok);
  EXPECT_EQ(big->AsUint(&ok), 3000000000u);
  EXPECT_TRUE(ok);
  EXPECT_EQ(big->AsInt(&ok), 0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(big->AsFloat(&ok), 0.0f);
  EXPECT_FALSE(ok);
  EXPECT_EQ(big->AsDouble(&ok), 0.0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(big->AsInt64(&ok), 3000000000LL);
  EXPECT_TRUE(ok);
  EXPECT_EQ(huge->AsFloat(&ok), 0.0f);
  EXPECT_FALSE(ok);
  EXPECT_DOUBLE_EQ(huge->AsDouble(&ok), 1e39);
  EXPECT_TRUE(ok);
  EXPECT_EQ(huge->AsInt64(&ok), 0);
  EXPECT_FALSE(ok);
  EXPECT_FLOAT_EQ(root->GetChild(8)->AsFloat(&ok), 1.5f);
  EXPECT_TRUE(ok);

  const char* str = two->AsString(&ok);
  ASSERT_NE(str, nullptr);
  EXPECT_STREQ(str, "");
  EXPECT_FALSE(ok);
  EXPECT_STREQ(text->AsString(nullptr), "txt");
  EXPECT_TRUE(flag->AsBool(&ok));
  EXPECT_TRUE(ok);
  EXPECT_FALSE(text->AsBool(&ok));
  EXPECT_FALSE(ok);

  // The out-parameter form leaves the target alone on refusal.
  int i = 42;
  EXPECT_FALSE(twoPointZero->AsInt(i));
  EXPECT_EQ(i, 42);
  EXPECT_TRUE(two->AsInt(i));
  EXPECT_EQ(i, 2);
  const char* s = "keep";
  EXPECT_FALSE(flag->AsString(s));
  EXPECT_STREQ(s, "keep");
  EXPECT_TRUE(text->AsString(s));
  EXPECT_STREQ(s, "txt");
  float f = 9.0f;
  EXPECT_FALSE(huge->AsFloat(f));
  EXPECT_EQ(f, 9.0f);
  unsigned int u = 1;
  EXPECT_TRUE(minusOne->AsUint(u));
  EXPECT_EQ(u, 4294967295u);
}

TEST(RapidjsonWrapperTest, ElementAndMemberReadersFallBackToDefault) {
  auto root = Parse("{\"n\":7,\"d\":2.5,\"s\":\"x\",\"b\":false,\"a\":[1,\"y\"],\"\":9,"
                    "\"dup\":1,\"dup\":2}");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->GetInt("n", -1), 7);
  EXPECT_EQ(root->GetInt("d", -1), -1);  // stored as double
  EXPECT_DOUBLE_EQ(root->GetDouble("d", 0), 2.5);
  EXPECT_EQ(root->GetInt("missing", -3), -3);
  EXPECT_EQ(root->GetInt(nullptr, -4), -4);
  EXPECT_EQ(root->GetInt(0, -5), -5);  // index form on an object
  EXPECT_STREQ(root->GetString("s", nullptr), "x");
  EXPECT_EQ(root->GetString("n", nullptr), nullptr);
  EXPECT_FALSE(root->GetBool("b", true));
  EXPECT_TRUE(root->GetBool("n", true));

  // The empty key is invisible by key but counted and listed.
  EXPECT_FALSE(root->HasKey(""));
  EXPECT_FALSE(root->GetChild(""));
  EXPECT_EQ(root->GetInt("", -6), -6);
  EXPECT_EQ(root->GetSize(), 8);
  EXPECT_EQ(KeysOf(*root), "n;d;s;b;a;;dup;dup;");
  EXPECT_EQ(root->GetInt("dup", 0), 1);  // first member wins

  // A key holding an escaped NUL is listed up to the NUL and matched by its full length only.
  auto nulKey = Parse("{\"a\\u0000b\":1}");
  EXPECT_EQ(KeysOf(*nulKey), "a;");
  EXPECT_FALSE(nulKey->HasKey("a"));

  auto array = root->GetChild("a");
  EXPECT_EQ(array->GetInt(0, -1), 1);
  EXPECT_EQ(array->GetInt(1, -1), -1);
  EXPECT_EQ(array->GetInt(2, -1), -1);
  EXPECT_EQ(array->GetInt(-1, -1), -1);
  EXPECT_EQ(array->GetInt("0", -1), -1);  // key form on an array
  EXPECT_STREQ(array->GetString(1, nullptr), "y");
  EXPECT_EQ(Parse("[]")->GetString(0, nullptr), nullptr);
  EXPECT_FALSE(array->GetChild(2));
  EXPECT_FALSE(array->GetChild(-1));
  EXPECT_FALSE(array->HasKey("a"));

  EXPECT_EQ(root->GetChild("n")->GetSize(), -1);
  EXPECT_EQ(root->GetChild("s")->GetSize(), -1);
  EXPECT_EQ(root->GetChild("b")->GetSize(), -1);
  EXPECT_EQ(Parse("[null]")->GetChild(0)->GetSize(), -1);
  EXPECT_EQ(Parse("[]")->GetSize(), 0);
  EXPECT_EQ(Parse("{}")->GetSize(), 0);
  EXPECT_EQ(root->GetChild("n")->GetKeys().GetSize(), 0);
}

TEST(RapidjsonWrapperTest, SetReplacesByIndexAndAddsOrReplacesByKey) {
  auto array = Parse("[1,2]");
  EXPECT_FALSE(array->SetInt(2, 7));
  EXPECT_FALSE(array->SetInt(-1, 7));
  EXPECT_EQ(Print(array), "[1,2]");
  EXPECT_TRUE(array->SetString(0, nullptr));
  EXPECT_TRUE(array->SetDouble(1, 0.5));
  EXPECT_EQ(Print(array), "[\"\",0.5]");
  array->SetInt("k", 1);  // key form on an array: no effect
  EXPECT_EQ(Print(array), "[\"\",0.5]");

  auto object = Parse("{\"a\":[1,2],\"b\":true}");
  object->SetInt("a", 5);  // replaces whatever it held, in place
  object->SetString("c", nullptr);
  object->SetBool("b", false);
  object->SetUint64("big", 18446744073709551615ULL);
  object->SetInt("", 3);
  object->SetInt(nullptr, 3);
  EXPECT_FALSE(object->SetInt(0, 3));
  EXPECT_EQ(Print(object), "{\"a\":5,\"b\":false,\"c\":\"\",\"big\":18446744073709551615}");

  // A view of an element shows a later replacement of that element.
  auto numbers = Parse("[10,20]");
  auto view = numbers->GetChild(1);
  EXPECT_TRUE(numbers->SetInt(1, 99));
  EXPECT_EQ(view->AsInt(nullptr), 99);

  // The text is copied in; the caller's buffer may change afterwards.
  char buffer[] = "abc";
  object->SetString("copy", buffer);
  buffer[0] = 'z';
  EXPECT_STREQ(object->GetString("copy", nullptr), "abc");
  char key[] = "kk";
  object->SetInt(key, 1);
  key[0] = 'x';
  EXPECT_EQ(object->GetInt("kk", 0), 1);
}

TEST(RapidjsonWrapperTest, InsertPlacesOrAppends) {
  auto array = Parse("[1,2]");
  EXPECT_TRUE(array->InsertInt(0, 7));
  EXPECT_EQ(Print(array), "[7,1,2]");
  EXPECT_TRUE(array->InsertInt(3, 8));
  EXPECT_TRUE(array->InsertInt(99, 9));
  EXPECT_TRUE(array->InsertInt(-1, 10));
  EXPECT_TRUE(array->InsertString(1, nullptr));
  EXPECT_TRUE(array->InsertBool(2, true));
  EXPECT_EQ(Print(array), "[7,\"\",true,1,2,8,9,10]");

  // Many inserts in the middle force the element block to grow and move.
  auto grown = Parse("[0]");
  for (int i = 1; i <= 100; ++i) grown->InsertInt(0, i);
  ASSERT_EQ(grown->GetSize(), 101);
  for (int i = 0; i <= 100; ++i) EXPECT_EQ(grown->GetInt(i, -1), 100 - i);

  auto object = Parse("{}");
  EXPECT_FALSE(object->InsertInt(0, 1));
  EXPECT_FALSE(object->InsertString(-1, "x"));
  EXPECT_FALSE(object->InsertJson(0, array));
  EXPECT_FALSE(array->InsertJson(0, nullptr));
  EXPECT_EQ(Print(object), "{}");

  // Inserting an array into itself copies it as it was before the insertion.
  auto self = Parse("[1,[2]]");
  EXPECT_TRUE(self->InsertJson(1, self));
  EXPECT_EQ(Print(self), "[1,[1,[2]],[2]]");
}

TEST(RapidjsonWrapperTest, AddContainersAndRemove) {
  auto object = Parse("{\"k\":5}");
  auto cleared = object->AddArray("k");
  ASSERT_TRUE(cleared);
  EXPECT_EQ(Print(object), "{\"k\":[]}");
  cleared->InsertInt(-1, 1);
  auto inner = object->AddObject("o");
  inner->SetInt("a", 1);
  EXPECT_EQ(Print(object), "{\"k\":[1],\"o\":{\"a\":1}}");
  auto again = object->AddObject("o");  // get-and-clear, not get-or-create
  EXPECT_EQ(again->GetSize(), 0);
  EXPECT_EQ(Print(object), "{\"k\":[1],\"o\":{}}");
  EXPECT_FALSE(object->AddArray(""));
  EXPECT_FALSE(object->AddArray(0));

  auto array = Parse("[1,2]");
  auto first = array->AddObject(0);
  ASSERT_TRUE(first);
  first->SetString("x", "y");
  auto last = array->AddArray(-1);
  last->InsertInt(-1, 3);
  EXPECT_EQ(Print(array), "[{\"x\":\"y\"},1,2,[3]]");
  EXPECT_FALSE(array->AddObject("k"));
  EXPECT_FALSE(Parse("[5]")->GetChild(0)->AddObject(0));

  auto numbers = Parse("[1,2,3]");
  EXPECT_TRUE(numbers->Remove(0));
  EXPECT_FALSE(numbers->Remove(2));
  EXPECT_FALSE(numbers->Remove(-1));
  EXPECT_EQ(Print(numbers), "[2,3]");

  auto members = Parse("{\"a\":1,\"b\":2,\"c\":3}");
  members->Remove("a");  // the last member moves into the gap
  EXPECT_EQ(Print(members), "{\"c\":3,\"b\":2}");
  members->Remove("zz");
  members->Remove(nullptr);
  members->Remove("b");
  EXPECT_EQ(Print(members), "{\"c\":3}");
  EXPECT_FALSE(members->Remove(0));

  auto dup = Parse("{\"a\":1,\"a\":2,\"b\":3}");
  dup->Remove("a");
  EXPECT_EQ(Print(dup), "{\"b\":3,\"a\":2}");
}

TEST(RapidjsonWrapperTest, MemberIterationReportsWhetherMoreFollow) {
  CMRL_ByteString key("untouched");
  std::shared_ptr<ZELJson> value;

  auto empty = Parse("{}");
  EXPECT_FALSE(empty->GetFirstMember(key, value));
  EXPECT_EQ(key, "untouched");
  EXPECT_FALSE(value);

  auto one = Parse("{\"a\":1}");
  EXPECT_FALSE(one->GetFirstMember(key, value));
  EXPECT_EQ(key, "a");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->AsInt(nullptr), 1);

  auto two = Parse("{\"a\":1,\"b\":{\"c\":2}}");
  EXPECT_TRUE(two->GetFirstMember(key, value));
  EXPECT_EQ(key, "a");
  EXPECT_FALSE(two->GetNextMember(key, value));
  EXPECT_EQ(key, "b");
  EXPECT_EQ(value->GetInt("c", 0), 2);
  value->SetInt("c", 5);  // the delivered node is a view into the tree
  EXPECT_EQ(Print(two), "{\"a\":1,\"b\":{\"c\":5}}");
  key = "stay";
  value.reset();
  EXPECT_FALSE(two->GetNextMember(key, value));
  EXPECT_EQ(key, "stay");
  EXPECT_FALSE(value);

  // Each view object has its own position.
  auto viewA = Parse("[{\"x\":1,\"y\":2}]");
  auto p = viewA->GetChild(0);
  auto q = viewA->GetChild(0);
  EXPECT_TRUE(p->GetFirstMember(key, value));
  EXPECT_FALSE(q->GetNextMember(key, value));  // q never started
  EXPECT_FALSE(p->GetNextMember(key, value));
  EXPECT_EQ(key, "y");

  // A position left past the end by a removal stops rather than reading stale members.
  auto shrinking = Parse("{\"a\":1,\"b\":2,\"c\":3}");
  EXPECT_TRUE(shrinking->GetFirstMember(key, value));
  EXPECT_TRUE(shrinking->GetNextMember(key, value));
  shrinking->Remove("a");
  shrinking->Remove("b");
  value.reset();
  EXPECT_FALSE(shrinking->GetNextMember(key, value));
  EXPECT_FALSE(value);

  auto array = Parse("[1]");
  EXPECT_FALSE(array->GetFirstMember(key, value));
  EXPECT_FALSE(array->GetNextMember(key, value));
}

TEST(RapidjsonWrapperTest, DeepCopiesAreIndependent) {
  auto source = Parse("{\"a\":[1,{\"b\":\"text\"}],\"n\":1.5}");
  auto clone = source->Clone();
  clone->GetChild("a")->GetChild(1)->SetString("b", "changed");
  source->SetInt("n", 2);
  EXPECT_EQ(Print(source), "{\"a\":[1,{\"b\":\"text\"}],\"n\":2}");
  EXPECT_EQ(Print(clone), "{\"a\":[1,{\"b\":\"changed\"}],\"n\":1.5}");

  // A clone owns its storage: it outlives the tree it came from.
  auto scalarClone = source->GetChild("a")->GetChild(1)->GetChild("b")->Clone();
  source.reset();
  EXPECT_EQ(scalarClone->GetType(), ZELJsonString);
  EXPECT_STREQ(scalarClone->AsString(nullptr), "text");
  EXPECT_EQ(scalarClone->GetSize(), -1);

  auto holder = Parse("{}");
  auto node = Parse("[1,2]");
  holder->SetJson("k", node);
  node->SetInt(0, 100);
  node->InsertInt(-1, 3);
  EXPECT_EQ(Print(holder), "{\"k\":[1,2]}");
  EXPECT_FALSE(holder->SetJson(0, node));
  holder->SetJson("null", nullptr);
  EXPECT_EQ(holder->GetSize(), 1);
  auto array = Parse("[0]");
  EXPECT_TRUE(array->SetJson(0, holder));
  EXPECT_FALSE(array->SetJson(1, holder));
  EXPECT_FALSE(array->SetJson(0, nullptr));
  EXPECT_EQ(Print(array), "[{\"k\":[1,2]}]");

  // Copying a container into one of its own members reads the source before it changes.
  auto nested = Parse("{\"x\":{\"y\":1}}");
  nested->SetJson("x", nested);
  EXPECT_EQ(Print(nested), "{\"x\":{\"x\":{\"y\":1}}}");
}

TEST(RapidjsonWrapperTest, CopyFromReplacesKindAndSurvivesTheView) {
  auto root = Parse("[1,2]");
  auto object = Parse("{\"a\":{\"b\":[true]}}");
  EXPECT_FALSE(root->CopyFrom(nullptr));
  EXPECT_EQ(root->GetType(), ZELJsonArray);
  EXPECT_TRUE(root->CopyFrom(object));
  EXPECT_EQ(root->GetType(), ZELJsonObject);
  object->GetChild("a")->SetInt("b", 0);
  EXPECT_EQ(Print(root), "{\"a\":{\"b\":[true]}}");

  // From a node inside its own tree, and from itself, twice over (the second copy reads from
  // storage the first one made).
  EXPECT_TRUE(root->CopyFrom(root->GetChild("a")));
  EXPECT_EQ(Print(root), "{\"b\":[true]}");
  EXPECT_TRUE(root->CopyFrom(root));
  EXPECT_EQ(Print(root), "{\"b\":[true]}");
  EXPECT_TRUE(root->CopyFrom(root->GetChild("b")));
  EXPECT_EQ(Print(root), "[true]");
  root->InsertString(0, "grows in the new storage");
  EXPECT_EQ(Print(root), "[\"grows in the new storage\",true]");

  // The parsed storage stays with the root: a view taken before its first CopyFrom still reads
  // the value it was taken from.
  auto parsed = Parse("{\"a\":{\"b\":\"old\"}}");
  auto detached = parsed->GetChild("a");
  EXPECT_TRUE(parsed->CopyFrom(parsed->GetChild("a")));
  EXPECT_EQ(Print(parsed), "{\"b\":\"old\"}");
  EXPECT_EQ(Print(detached), "{\"b\":\"old\"}");

  // A view copies into its tree: the copy stays after the view object is gone.
  auto tree = Parse("{\"slot\":0,\"keep\":1}");
  {
    auto slot = tree->GetChild("slot");
    auto source = Parse("{\"deep\":[\"a string long enough to need storage\",{\"x\":1.25}]}");
    EXPECT_TRUE(slot->CopyFrom(source));
    EXPECT_EQ(slot->GetType(), ZELJsonObject);
  }
  EXPECT_EQ(Print(tree),
            "{\"slot\":{\"deep\":[\"a string long enough to need storage\",{\"x\":1.25}]},"
            "\"keep\":1}");

  // After CopyFrom the member position starts over with GetFirstMember.
  CMRL_ByteString key;
  std::shared_ptr<ZELJson> value;
  auto iterated = Parse("{\"p\":1,\"q\":2}");
  EXPECT_TRUE(iterated->GetFirstMember(key, value));
  EXPECT_TRUE(iterated->CopyFrom(Parse("{\"r\":3}")));
  EXPECT_FALSE(iterated->GetNextMember(key, value));
  EXPECT_FALSE(iterated->GetFirstMember(key, value));
  EXPECT_EQ(key, "r");

  // Clone then CopyFrom on the clone keeps the source untouched.
  auto clone = tree->Clone();
  EXPECT_TRUE(clone->CopyFrom(Parse("[9]")));
  EXPECT_EQ(Print(clone), "[9]");
  EXPECT_EQ(tree->GetSize(), 2);
}

// Trees built by hand may be far deeper than any parsed text; copying and printing them must not
// depend on the call stack. (Compared with == so a failure does not print megabytes.)
TEST(RapidjsonWrapperTest, HandBuiltDeepTreesCopyAndPrint) {
  constexpr int kDepth = 200000;  // arrays on even levels, objects on odd ones
  auto root = Parse("[]");
  std::shared_ptr<ZELJson> innermost = root;
  std::string expected = "[";
  std::string closing = "]";
  for (int level = 1; level < kDepth; ++level) {
    if (level % 2 == 1) {
      innermost = innermost->AddObject(-1);
      expected += '{';
      closing += '}';
    } else {
      innermost = innermost->AddArray("k");
      expected += "\"k\":[";
      closing += ']';
    }
  }
  innermost->SetString("s", "leaf");
  innermost->SetDouble("d", 0.5);
  innermost.reset();
  expected += "\"s\":\"leaf\",\"d\":0.5";
  expected.append(closing.rbegin(), closing.rend());
  ASSERT_TRUE(Print(root) == expected);

  auto clone = root->Clone();
  EXPECT_TRUE(Print(clone) == expected);

  auto holder = Parse("{\"x\":[0]}");
  holder->SetJson("deep", root);
  EXPECT_TRUE(holder->GetChild("x")->SetJson(0, clone));
  EXPECT_TRUE(holder->GetChild("x")->InsertJson(0, clone));
  root.reset();  // the copies own their storage
  EXPECT_TRUE(Print(holder->GetChild("deep")) == expected);
  EXPECT_TRUE(Print(holder->GetChild("x")) == "[" + expected + "," + expected + "]");

  auto target = Parse("{}");
  EXPECT_TRUE(target->CopyFrom(clone));
  clone.reset();
  EXPECT_TRUE(Print(target) == expected);
  EXPECT_TRUE(holder->GetChild("x")->GetChild(0)->CopyFrom(target));
  EXPECT_TRUE(Print(holder->GetChild("x")->GetChild(0)) == expected);

  // A NaN deep inside still ends the text right where it stands.
  auto poisoned = Parse("[]");
  auto inner = poisoned;
  for (int level = 1; level < 5000; ++level) inner = inner->AddArray(-1);
  inner->InsertInt(-1, 1);
  inner->InsertDouble(-1, std::nan(""));
  inner.reset();
  EXPECT_EQ(Print(poisoned), std::string(5000, '[') + "1,");
}

}  // namespace
