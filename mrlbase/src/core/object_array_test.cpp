#include <mrlbase/object_array.h>

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include <mrlbase/byte_string.h>

namespace {

// Counts live instances so leaks and double destruction show up.
struct Tracked {
  static int live;
  std::string text;
  Tracked() { ++live; }
  explicit Tracked(std::string t) : text(std::move(t)) { ++live; }
  Tracked(const Tracked& o) : text(o.text) { ++live; }
  Tracked& operator=(const Tracked&) = default;
  ~Tracked() { --live; }
};
int Tracked::live = 0;

std::vector<std::string> Texts(const CMRL_ObjectArray<Tracked>& a) {
  std::vector<std::string> out;
  for (const Tracked& t : a) out.push_back(t.text);
  return out;
}

TEST(ObjectArrayTest, ElementsAreCopiedInAndDestroyedWithTheArray) {
  ASSERT_EQ(0, Tracked::live);
  {
    CMRL_ObjectArray<Tracked> a;
    Tracked outside("b");
    EXPECT_TRUE(a.Add(outside));
    outside.text = "changed";  // the array holds its own copy
    EXPECT_TRUE(a.InsertAt(0, Tracked("a")));
    EXPECT_TRUE(a.InsertAt(2, Tracked("d")));
    EXPECT_TRUE(a.InsertAt(2, Tracked("c")));
    EXPECT_FALSE(a.InsertAt(5, Tracked("x")));
    EXPECT_FALSE(a.InsertAt(-1, Tracked("x")));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c", "d"}), Texts(a));
    EXPECT_EQ(5, Tracked::live);  // four in the array, one outside

    EXPECT_TRUE(a.RemoveAt(1));
    EXPECT_FALSE(a.RemoveAt(3));
    EXPECT_EQ(4, Tracked::live);
    EXPECT_TRUE(a.SetSize(1));  // shrinking destroys
    EXPECT_EQ(2, Tracked::live);
    EXPECT_TRUE(a.SetSize(3));  // growing default-constructs
    EXPECT_EQ((std::vector<std::string>{"a", "", ""}), Texts(a));
    EXPECT_EQ("", a.GetAt(7).text);
    EXPECT_TRUE(a.SetAt(2, Tracked("z")));
    EXPECT_FALSE(a.SetAt(3, Tracked("z")));
    EXPECT_EQ("z", a.GetAt(2).text);

    CMRL_ObjectArray<Tracked> copy = a;
    copy[0].text = "copy";
    EXPECT_EQ("a", a[0].text);
    EXPECT_EQ(7, Tracked::live);
    a.RemoveAll();
    EXPECT_EQ(0, a.GetSize());
    EXPECT_EQ(4, Tracked::live);
  }
  EXPECT_EQ(0, Tracked::live);
}

TEST(ObjectArrayTest, InsertingAnElementOfTheArrayItself) {
  CMRL_ObjectArray<CMRL_ByteString> a;
  a.Add(CMRL_ByteString("first"));
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(a.InsertAt(0, a[a.GetSize() - 1]));
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(a.Add(a[0]));
  for (const CMRL_ByteString& s : a) ASSERT_EQ(CMRL_ByteString("first"), s);
}

TEST(ObjectArrayTest, MoveOnlyFriendlyAndRefusedSizes) {
  CMRL_ObjectArray<std::shared_ptr<int>> a;
  auto p = std::make_shared<int>(3);
  a.Add(p);
  EXPECT_EQ(2, p.use_count());
  CMRL_ObjectArray<std::shared_ptr<int>> moved = std::move(a);
  EXPECT_EQ(0, a.GetSize());  // NOLINT(bugprone-use-after-move): moved-from is empty by contract
  EXPECT_EQ(2, p.use_count());
  EXPECT_FALSE(moved.SetSize(-1));
  EXPECT_FALSE(moved.SetSize(INT_MAX));  // 16 GiB of pointers: refused without trying
  EXPECT_EQ(1, moved.GetSize());
  moved.RemoveAll();
  EXPECT_EQ(1, p.use_count());
}

}  // namespace
