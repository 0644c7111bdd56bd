#include "rapidjson_wrapper.h"
#include "view_block_pool.h"

#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

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
  for (int i = 0; i < keys.GetSize(); ++i) joined += std::string(keys.GetAt(i).c_str()) + ';';
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
  for (int i = 0; i < root->GetSize(); ++i) EXPECT_EQ(root->GetChild(i)->GetType(), expected[i]) << i;

  // Written numbers take the same classes as parsed ones; a float is stored as double.
  auto array = Parse("[]");
  array->InsertInt64(-1, 7);
  array->InsertUint64(-1, 7);
  array->InsertInt(-1, -7);
  array->InsertFloat(-1, 1.0f);
  const ZELJsonType written[] = {ZELJsonUint, ZELJsonUint, ZELJsonInt, ZELJsonDouble};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(array->GetChild(i)->GetType(), written[i]) << i;
}

TEST(RapidjsonWrapperTest, OwnValueReadersAcceptByStoredForm) {
  auto root = Parse("[2.0,2,-1,3000000000,1e39,-5000000000,\"txt\",true,1.5]");
  ASSERT_TRUE(root);
  auto twoPointZero = root->GetChild(0), two = root->GetChild(1), minusOne = root->GetChild(2);
  auto big = root->GetChild(3), huge = root->GetChild(4), bigNegative = root->GetChild(5);
  auto text = root->GetChild(6), flag = root->GetChild(7);

  // Arguments are evaluated before the body runs, so `ok` holds what the reader reported.
  bool ok = true;
  const auto expect = [&ok](auto got, auto want, bool wantOk, int line) {
    EXPECT_EQ(got, want) << "line " << line;
    EXPECT_EQ(ok, wantOk) << "line " << line;
  };
  expect(twoPointZero->AsInt(&ok), 0, false, __LINE__);
  expect(two->AsDouble(&ok), 2.0, true, __LINE__);
  expect(minusOne->AsUint(&ok), 4294967295u, true, __LINE__);
  expect(minusOne->AsUint64(&ok), std::numeric_limits<uint64_t>::max(), true, __LINE__);
  expect(bigNegative->AsUint64(&ok), static_cast<uint64_t>(-5000000000LL), true, __LINE__);
  expect(big->AsUint(&ok), 3000000000u, true, __LINE__);
  expect(big->AsInt(&ok), 0, false, __LINE__);
  expect(big->AsDouble(&ok), 0.0, false, __LINE__);
  expect(big->AsInt64(&ok), int64_t{3000000000LL}, true, __LINE__);
  expect(huge->AsFloat(&ok), 0.0f, false, __LINE__);
  expect(huge->AsDouble(&ok), 1e39, true, __LINE__);
  expect(root->GetChild(8)->AsFloat(&ok), 1.5f, true, __LINE__);
  expect(std::string(two->AsString(&ok)), std::string(), false, __LINE__);  // "" rather than null
  expect(std::string(text->AsString(&ok)), std::string("txt"), true, __LINE__);
  expect(flag->AsBool(&ok), true, true, __LINE__);

  // The out-parameter form leaves the target alone on refusal.
  int i = 42;
  float f = 9.0f;
  const char* s = "keep";
  EXPECT_FALSE(twoPointZero->AsInt(i) || huge->AsFloat(f) || flag->AsString(s));
  EXPECT_TRUE(i == 42 && f == 9.0f && std::string(s) == "keep");
  EXPECT_TRUE(two->AsInt(i) && i == 2);
}

TEST(RapidjsonWrapperTest, ElementAndMemberReadersFallBackToDefault) {
  auto root = Parse("{\"n\":7,\"d\":2.5,\"s\":\"x\",\"b\":false,\"a\":[1,\"y\"],\"\":9,"
                    "\"dup\":1,\"dup\":2}");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->GetInt("n", -1), 7);
  EXPECT_EQ(root->GetInt("d", -1), -1);  // stored as double
  EXPECT_DOUBLE_EQ(root->GetDouble("d", 0), 2.5);
  EXPECT_EQ(root->GetInt(nullptr, -4), -4);
  EXPECT_EQ(root->GetInt(0, -5), -5);  // index form on an object
  EXPECT_STREQ(root->GetString("s", nullptr), "x");
  EXPECT_EQ(root->GetString("n", nullptr), nullptr);
  EXPECT_TRUE(root->GetBool("n", true));

  // The empty key is invisible by key but counted and listed; the first duplicate wins.
  EXPECT_FALSE(root->HasKey("") || root->GetChild(""));
  EXPECT_EQ(root->GetInt("", -6), -6);
  EXPECT_EQ(root->GetSize(), 8);
  EXPECT_EQ(KeysOf(*root), "n;d;s;b;a;;dup;dup;");
  EXPECT_EQ(root->GetInt("dup", 0), 1);

  auto array = root->GetChild("a");
  EXPECT_EQ(array->GetInt(0, -1), 1);
  EXPECT_EQ(array->GetInt(1, -1), -1);
  EXPECT_EQ(array->GetInt("0", -1), -1);  // key form on an array
  EXPECT_STREQ(array->GetString(1, nullptr), "y");
  EXPECT_FALSE(array->GetChild(2) || array->GetChild(-1) || array->HasKey("a"));

  EXPECT_EQ(root->GetChild("s")->GetSize(), -1);
  EXPECT_EQ(Parse("[]")->GetSize(), 0);
  EXPECT_EQ(root->GetChild("n")->GetKeys().GetSize(), 0);
}

// Each row edits a fresh parse of `before`; `apply` returns whether every call reported as expected.
TEST(RapidjsonWrapperTest, EditsByIndexAndByKey) {
  using Json = std::shared_ptr<ZELJson>;
  const struct {
    const char* before;
    bool (*apply)(const Json&);
    const char* after;
  } rows[] = {
      // Set replaces an element in range only; by key it adds or replaces in place; the other form is ignored.
      {"[1,2]", [](const Json& j) { return !j->SetInt(2, 7) && !j->SetInt(-1, 7) && !j->SetJson(0, nullptr); }, "[1,2]"},
      {"[1,2]", [](const Json& j) { j->SetInt("k", 1); return j->SetString(0, nullptr) && j->SetDouble(1, 0.5); },
       "[\"\",0.5]"},
      {"{\"a\":[1,2],\"b\":true}",
       [](const Json& j) { j->SetInt("a", 5); j->SetString("c", nullptr); j->SetBool("b", false); return !j->SetInt(0, 3); },
       "{\"a\":5,\"b\":false,\"c\":\"\"}"},
      {"{}", [](const Json& j) { j->SetUint64("u", 18446744073709551615ULL); j->SetInt("", 3); j->SetInt(nullptr, 3);
                                 j->SetJson("null", nullptr); return true; },
       "{\"u\":18446744073709551615}"},
      // Insert places in range and appends otherwise; an object refuses.
      {"[1,2]", [](const Json& j) { return j->InsertInt(0, 7) && j->InsertInt(3, 8) && j->InsertInt(99, 9) &&
                                           j->InsertInt(-1, 10) && j->InsertString(1, nullptr) && j->InsertBool(2, true); },
       "[7,\"\",true,1,2,8,9,10]"},
      {"{}", [](const Json& j) { return !j->InsertInt(0, 1) && !j->InsertJson(0, Parse("[1]")); }, "{}"},
      // Add clears what a key held (get-and-clear, not get-or-create) or inserts at a position.
      {"{\"k\":5}", [](const Json& j) { j->AddArray("k")->InsertInt(-1, 1); j->AddObject("o")->SetInt("a", 1);
                                        return j->AddObject("o")->GetSize() == 0 && !j->AddArray("") && !j->AddArray(0); },
       "{\"k\":[1],\"o\":{}}"},
      {"[1,2]", [](const Json& j) { j->AddObject(0)->SetString("x", "y"); j->AddArray(-1)->InsertInt(-1, 3);
                                    return !j->AddObject("k") && !j->GetChild(1)->AddObject(0); },
       "[{\"x\":\"y\"},1,2,[3]]"},
      // Removing a member moves the last one into the gap.
      {"[1,2,3]", [](const Json& j) { return j->Remove(0) && !j->Remove(2) && !j->Remove(-1); }, "[2,3]"},
      {"{\"a\":1,\"b\":2,\"c\":3}",
       [](const Json& j) { j->Remove("a"); j->Remove("zz"); j->Remove(nullptr); j->Remove("b"); return !j->Remove(0); },
       "{\"c\":3}"},
      {"{\"a\":1,\"a\":2,\"b\":3}", [](const Json& j) { j->Remove("a"); return true; }, "{\"b\":3,\"a\":2}"},
      // Copying a container into itself reads the source before it changes.
      {"[1,[2]]", [](const Json& j) { return j->InsertJson(1, j); }, "[1,[1,[2]],[2]]"},
      {"{\"x\":{\"y\":1}}", [](const Json& j) { j->SetJson("x", j); return true; }, "{\"x\":{\"x\":{\"y\":1}}}"},
      // SetJson by index replaces in range only; CopyFrom refuses null and otherwise takes over the kind.
      {"[0]", [](const Json& j) { return j->SetJson(0, Parse("{\"k\":[1]}")) && !j->SetJson(1, Parse("[]")); },
       "[{\"k\":[1]}]"},
      {"[1,2]", [](const Json& j) { return !j->CopyFrom(nullptr) && j->CopyFrom(Parse("{\"a\":{\"b\":[true]}}")); },
       "{\"a\":{\"b\":[true]}}"},
      // From inside its own tree and from itself, twice over (the second copy reads storage the first made).
      {"{\"a\":{\"b\":[true]}}",
       [](const Json& j) { return j->CopyFrom(j->GetChild("a")) && j->CopyFrom(j) && j->CopyFrom(j->GetChild("b")) &&
                                  j->InsertString(0, "grows in the new storage"); },
       "[\"grows in the new storage\",true]"},
      // A view copies into its tree: the copy stays after the view object is gone.
      {"{\"slot\":0,\"keep\":1}",
       [](const Json& j) { return j->GetChild("slot")->CopyFrom(Parse("[\"a string long enough to need storage\",1.25]")); },
       "{\"slot\":[\"a string long enough to need storage\",1.25],\"keep\":1}"},
  };
  for (size_t row = 0; row < std::size(rows); ++row) {
    const Json json = Parse(rows[row].before);
    EXPECT_TRUE(rows[row].apply(json)) << "row " << row;
    EXPECT_EQ(Print(json), rows[row].after) << "row " << row;
  }

  // Many inserts at the front force the element block to grow and move.
  auto grown = Parse("[0]");
  for (int i = 1; i <= 100; ++i) grown->InsertInt(0, i);
  EXPECT_EQ(grown->GetSize(), 101);
  EXPECT_EQ(grown->GetInt(0, -1) + grown->GetInt(50, -1) + grown->GetInt(100, -1), 100 + 50 + 0);

  // A view of an element shows a later replacement of that element.
  auto numbers = Parse("[10,20]");
  auto view = numbers->GetChild(1);
  EXPECT_TRUE(numbers->SetInt(1, 99));
  EXPECT_EQ(view->AsInt(nullptr), 99);

  // Texts and keys are copied in; the caller's buffers may change afterwards.
  char buffer[] = "abc", key[] = "kk";
  numbers->AddObject(0)->SetString(key, buffer);
  buffer[0] = key[0] = 'z';
  EXPECT_STREQ(numbers->GetChild(0)->GetString("kk", nullptr), "abc");
}

TEST(RapidjsonWrapperTest, MemberIterationReportsWhetherMoreFollow) {
  CMRL_ByteString key("untouched");
  std::shared_ptr<ZELJson> value;
  EXPECT_FALSE(Parse("{}")->GetFirstMember(key, value));
  EXPECT_EQ(key, "untouched");
  EXPECT_FALSE(value);

  auto two = Parse("{\"a\":1,\"b\":{\"c\":2}}");
  EXPECT_TRUE(two->GetFirstMember(key, value));
  EXPECT_EQ(key, "a");
  EXPECT_EQ(value->AsInt(nullptr), 1);
  EXPECT_FALSE(two->GetNextMember(key, value));  // delivered, and nothing follows
  EXPECT_EQ(key, "b");
  value->SetInt("c", 5);  // the delivered node is a view into the tree
  EXPECT_EQ(Print(two), "{\"a\":1,\"b\":{\"c\":5}}");
  key = "stay";
  value.reset();
  EXPECT_FALSE(two->GetNextMember(key, value));
  EXPECT_EQ(key, "stay");
  EXPECT_FALSE(value);

  // Each view object has its own position.
  auto views = Parse("[{\"x\":1,\"y\":2}]");
  auto p = views->GetChild(0), q = views->GetChild(0);
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

  EXPECT_FALSE(Parse("[1]")->GetFirstMember(key, value));
}

TEST(RapidjsonWrapperTest, KeyLookupComparesWholeNames) {
  // Prefixes, extensions, a name with a NUL inside, equal first bytes and a duplicate.
  auto object = Parse(
      "{\"ab\":1,\"a\\u0000\":2,\"abc\":3,\"a\":4,\"b\":5,\"a\\u0000c\":6,\"abc\":7,"
      "\"\\u00e9t\\u00e9\":8}");
  EXPECT_EQ(object->GetInt("a", 0), 4);
  EXPECT_EQ(object->GetInt("ab", 0), 1);
  EXPECT_EQ(object->GetInt("abc", 0), 3);  // the first of two wins
  EXPECT_EQ(object->GetInt("\xc3\xa9t\xc3\xa9", 0), 8);
  EXPECT_EQ(object->GetInt("abcd", -1) + object->GetInt("\xc3\xa9", -1), -2);
  ASSERT_TRUE(object->GetChild("abc"));
  EXPECT_EQ(object->GetChild("abc")->AsInt(nullptr), 3);

  // Writers find the same member as readers.
  object->SetInt("abc", 30);
  EXPECT_EQ(object->GetInt("abc", 0), 30);
  object->SetInt("a", 40);
  EXPECT_EQ(object->GetInt("ab", 0), 1);
  object->AddArray("ab")->InsertInt(-1, 9);
  EXPECT_EQ(object->GetChild("ab")->GetInt(0, 0), 9);
  object->Remove("abc");
  EXPECT_EQ(object->GetInt("abc", 0), 7);  // the duplicate is found once the first is gone
  EXPECT_EQ(object->GetSize(), 7);
}

TEST(RapidjsonWrapperTest, MemberKeysStopAtTheFirstNul) {
  // Name lengths around the reserved room, long before short, with a NUL at the start, inside, at
  // the end or nowhere: the key is the name up to its first NUL, and a key kept from an earlier
  // fetch (sharing its buffer) is not written over by a later one.
  std::string text = "{";
  std::vector<std::string> expected;
  int member = 0;
  for (int length : {300, 1, 32, 31, 33}) {
    for (int nulAt : {-1, 0, length / 2, length - 1}) {
      if (nulAt >= length) continue;
      std::string name, escaped;
      for (int i = 0; i < length; ++i) {
        const char c = static_cast<char>('a' + (i + member) % 26);
        name += i == nulAt ? '\0' : c;
        escaped += i == nulAt ? std::string("\\u0000") : std::string(1, c);
      }
      if (member > 0) text += ',';
      text += '"' + escaped + "\":" + std::to_string(member);
      expected.push_back(name.substr(0, name.find('\0')));
      ++member;
    }
  }
  text += '}';
  auto object = Parse(text.c_str());
  ASSERT_NE(object, nullptr);
  CMRL_ByteString key;
  std::shared_ptr<ZELJson> value;
  bool more = object->GetFirstMember(key, value);
  for (size_t i = 0; i < expected.size(); ++i) {
    ASSERT_TRUE(value);
    EXPECT_EQ(std::string(key.c_str(), static_cast<size_t>(key.GetLength())), expected[i]) << i;
    EXPECT_EQ(value->AsInt(nullptr), static_cast<int>(i));
    EXPECT_EQ(more, i + 1 < expected.size());
    const CMRL_ByteString kept = key;
    if (more) more = object->GetNextMember(key, value);
    EXPECT_EQ(std::string(kept.c_str(), static_cast<size_t>(kept.GetLength())), expected[i]) << i;
  }
}

// Every node through the interface, as text, to compare with the same visit of RapidJSON's tree.
void Describe(ZELJson& node, std::string& out) {
  switch (node.GetType()) {
    case ZELJsonObject: {
      out += '{';
      CMRL_ByteString key;
      std::shared_ptr<ZELJson> value;
      bool more = node.GetFirstMember(key, value);
      while (value) {
        out += std::string(key.c_str()) + ':';
        Describe(*value, out);
        if (!more) break;
        more = node.GetNextMember(key, value);
      }
      out += '}';
      break;
    }
    case ZELJsonArray:
      out += '[';
      for (int i = 0; i < node.GetSize(); ++i) Describe(*node.GetChild(i), out);
      out += ']';
      break;
    case ZELJsonInt: case ZELJsonInt64: out += 'i' + std::to_string(node.AsInt64(nullptr)) + ','; break;
    case ZELJsonUint: case ZELJsonUint64: out += 'u' + std::to_string(node.AsUint64(nullptr)) + ','; break;
    case ZELJsonDouble: out += 'd' + std::to_string(node.AsDouble(nullptr)) + ','; break;
    case ZELJsonString: out += 's' + std::string(node.AsString(nullptr)) + ','; break;
    case ZELJsonBoolean: out += node.AsBool(nullptr) ? "T," : "F,"; break;
    default: out += "N,"; break;
  }
}

void DescribeRaw(const rapidjson::Value& node, std::string& out) {
  if (node.IsObject()) {
    out += '{';
    for (const auto& member : node.GetObject()) {
      out += std::string(member.name.GetString()) + ':';
      DescribeRaw(member.value, out);
    }
    out += '}';
  } else if (node.IsArray()) {
    out += '[';
    for (const auto& element : node.GetArray()) DescribeRaw(element, out);
    out += ']';
  } else {
    out += node.IsUint64()   ? 'u' + std::to_string(node.GetUint64()) + ','
           : node.IsInt64()  ? 'i' + std::to_string(node.GetInt64()) + ','
           : node.IsDouble() ? 'd' + std::to_string(node.GetDouble()) + ','
           : node.IsString() ? 's' + std::string(node.GetString()) + ','
           : node.IsBool()   ? std::string(node.GetBool() ? "T," : "F,")
                             : std::string("N,");
  }
}

TEST(RapidjsonWrapperTest, VisitOfEveryNodeMatchesTheUnderlyingTree) {
  // Random trees of every kind of value, keys of every length; views are made and dropped in
  // every order a walk makes them, many times over, so recycled view storage is exercised.
  uint64_t state = 12345;
  auto next = [&state](int below) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<int>((state >> 33) % static_cast<uint64_t>(below));
  };
  std::function<void(std::string&, int)> value = [&](std::string& out, int depth) {
    switch (depth > 4 ? next(6) : next(8)) {
      case 0: out += std::to_string(next(1000) - 500); break;
      case 1: out += "4294967296"; break;
      case 2: out += std::to_string(next(100000)) + ".25"; break;
      case 3: out += "\"" + std::string(static_cast<size_t>(next(40)), 'v') + "\""; break;
      case 4: out += next(2) ? "true" : "false"; break;
      case 5: out += next(2) ? "null" : "-9223372036854775808"; break;
      default: {  // a container
        const bool object = next(2) == 1;
        out += object ? '{' : '[';
        for (int i = 0, n = next(6); i < n; ++i) {
          if (i > 0) out += ',';
          if (object) out += "\"" + std::string(static_cast<size_t>(next(30)), static_cast<char>('a' + i)) + "\":";
          value(out, depth + 1);
        }
        out += object ? '}' : ']';
        break;
      }
    }
  };
  for (int round = 0; round < 200; ++round) {
    std::string text = next(2) ? "[" : "{\"k\":[";
    value(text, 0);
    text += text[0] == '[' ? "]" : "]}";
    auto root = Parse(text.c_str());
    ASSERT_TRUE(root) << text;
    rapidjson::Document peer;
    peer.Parse(text.c_str());
    std::string mine, theirs;
    Describe(*root, mine);
    DescribeRaw(peer, theirs);
    ASSERT_EQ(mine, theirs) << text;
  }
}

TEST(RapidjsonWrapperTest, ViewsMayBeDroppedOnAnotherThread) {
  auto root = Parse("[[1,2,3],{\"a\":\"x\"},4]");
  std::vector<std::shared_ptr<ZELJson>> views;
  for (int round = 0; round < 100; ++round) {
    for (int i = 0; i < 3; ++i) views.push_back(root->GetChild(i));
  }
  std::thread other([&views] {
    int sum = 0;
    for (const auto& view : views) sum += view->GetSize();
    EXPECT_EQ(sum, 100 * (3 + 1 - 1));
    views.clear();  // their storage goes back on this thread
  });
  other.join();
  EXPECT_STREQ(root->GetChild(1)->GetString("a", ""), "x");  // views made here afterwards still work

  // A view fits one pool block: with this thread's list emptied, a dropped view leaves one block.
  std::vector<void*> held;
  while (ViewBlockPool::CachedBlocks() > 0) held.push_back(ViewBlockPool::Take());
  { auto view = root->GetChild(2); }
  EXPECT_EQ(ViewBlockPool::CachedBlocks(), 1);
  for (void* block : held) ViewBlockPool::Give(block);
}

TEST(RapidjsonWrapperTest, CopiesAreDeepAndIndependent) {
  auto source = Parse("{\"a\":[1,{\"b\":\"text\"}],\"n\":1.5}");
  auto clone = source->Clone();
  clone->GetChild("a")->GetChild(1)->SetString("b", "changed");
  source->SetInt("n", 2);
  EXPECT_EQ(Print(source), "{\"a\":[1,{\"b\":\"text\"}],\"n\":2}");
  EXPECT_EQ(Print(clone), "{\"a\":[1,{\"b\":\"changed\"}],\"n\":1.5}");

  // Later changes to a copied node leave the copies as they were.
  auto node = Parse("[1,2]"), holder = Parse("{}"), target = Parse("{\"x\":1}");
  holder->SetJson("k", node);
  EXPECT_TRUE(target->CopyFrom(node));
  node->SetInt(0, 100);
  node->InsertInt(-1, 3);
  EXPECT_EQ(Print(holder), "{\"k\":[1,2]}");
  EXPECT_EQ(Print(target), "[1,2]");

  // The parsed storage stays with the root: a view taken before its first CopyFrom still reads
  // the value it was taken from.
  auto parsed = Parse("{\"a\":{\"b\":\"old\"}}");
  auto detached = parsed->GetChild("a");
  EXPECT_TRUE(parsed->CopyFrom(parsed->GetChild("a")));
  EXPECT_EQ(Print(detached), Print(parsed));
  EXPECT_EQ(Print(detached), "{\"b\":\"old\"}");

  // After CopyFrom the member position starts over with GetFirstMember.
  CMRL_ByteString key;
  std::shared_ptr<ZELJson> value;
  auto iterated = Parse("{\"p\":1,\"q\":2}");
  EXPECT_TRUE(iterated->GetFirstMember(key, value));
  EXPECT_TRUE(iterated->CopyFrom(Parse("{\"r\":3}")));
  EXPECT_FALSE(iterated->GetNextMember(key, value));
  EXPECT_FALSE(iterated->GetFirstMember(key, value));
  EXPECT_EQ(key, "r");
}

// Trees built by hand may be far deeper than any parsed text; copying and printing them must not
// depend on the call stack. (Compared with == so a failure does not print megabytes.)
TEST(RapidjsonWrapperTest, HandBuiltDeepTreesCopyAndPrint) {
  constexpr int kDepth = 200000;  // arrays on even levels, objects on odd ones
  auto root = Parse("[]");
  std::shared_ptr<ZELJson> innermost = root;
  std::string expected = "[", closing = "]";
  for (int level = 1; level < kDepth; ++level) {
    const bool object = level % 2 == 1;
    innermost = object ? innermost->AddObject(-1) : innermost->AddArray("k");
    expected += object ? "{" : "\"k\":[";
    closing += object ? '}' : ']';
  }
  innermost->SetString("s", "leaf");
  innermost->SetDouble("d", 0.5);
  innermost.reset();
  expected += "\"s\":\"leaf\",\"d\":0.5";
  expected.append(closing.rbegin(), closing.rend());
  ASSERT_TRUE(Print(root) == expected);

  auto clone = root->Clone();
  auto holder = Parse("{}");
  holder->SetJson("deep", root);
  root.reset();  // the copies own their storage
  EXPECT_TRUE(Print(holder->GetChild("deep")) == expected);

  auto target = Parse("{}");
  EXPECT_TRUE(target->CopyFrom(clone));
  clone.reset();
  EXPECT_TRUE(Print(target) == expected);
}

// The printer writes straight into the result string, growing it as it goes: texts that cross
// every growth step (and the point where small results are copied tight) must match the plain
// writer byte for byte, numbers of every kind included.
TEST(RapidjsonWrapperTest, LargeTextsPrintLikeThePlainWriter) {
  for (int count : {1, 40, 3000, 200000}) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) {
      if (i) text += ',';
      text += std::to_string(i * 7919 - 300000) + ",{\"k\":" + std::to_string(i * 0.37) + ",\"s\":\"\u4e2d" +
              std::to_string(i) + "\"},18446744073709551615,-9223372036854775808,true,null";
    }
    text += "]";
    rapidjson::Document document;
    document.Parse(text.c_str());
    ASSERT_FALSE(document.HasParseError());
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    const auto root = Parse(text.c_str());
    ASSERT_TRUE(root);
    const CMRL_ByteString printed = ZELJsonFactory::BuildJsonString(root, nullptr);
    ASSERT_EQ(static_cast<size_t>(printed.GetLength()), buffer.GetSize()) << count;
    EXPECT_TRUE(std::string(printed.c_str(), printed.GetLength()) == buffer.GetString()) << count;
  }
}

}  // namespace
