#include <mrlbase/array_template.h>

#include <gtest/gtest.h>

#include <climits>
#include <vector>

namespace {

std::vector<int> Contents(const CMRL_ArrayTemplate<int>& a) { return std::vector<int>(a.begin(), a.end()); }

TEST(ArrayTemplateTest, AddInsertRemoveAtTheEdges) {
  CMRL_ArrayTemplate<int> a;
  EXPECT_EQ(0, a.GetAt(0));
  EXPECT_FALSE(a.RemoveAt(0) || a.InsertAt(1, 5) || a.InsertAt(-1, 5));
  EXPECT_TRUE(a.InsertAt(0, 2));   // into an empty array
  EXPECT_TRUE(a.InsertAt(1, 4));   // at the end
  EXPECT_TRUE(a.InsertAt(1, 3));   // in the middle
  EXPECT_TRUE(a.InsertAt(0, 1));   // at the front
  EXPECT_TRUE(a.Add(5));
  EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5}), Contents(a));
  EXPECT_EQ(0, a.GetAt(5) + a.GetAt(-1));
  EXPECT_FALSE(a.SetAt(5, 9) || a.RemoveAt(5) || a.RemoveAt(-1));
  EXPECT_TRUE(a.SetAt(4, 50));
  EXPECT_TRUE(a.RemoveAt(4));      // last
  EXPECT_TRUE(a.RemoveAt(0));      // first
  EXPECT_TRUE(a.RemoveAt(1));      // middle
  EXPECT_EQ((std::vector<int>{2, 4}), Contents(a));
  a.RemoveAll();
  EXPECT_EQ(0, a.GetSize());
  EXPECT_EQ(nullptr, a.GetData());
  EXPECT_TRUE(a.Add(7));
  EXPECT_EQ(7, a[0]);
}

TEST(ArrayTemplateTest, GrowthKeepsOrderAndNewElementsAreZero) {
  CMRL_ArrayTemplate<int> a;
  std::vector<int> expected(10000);
  for (int i = 0; i < 10000; ++i) ASSERT_TRUE(a.Add(expected[i] = i));
  EXPECT_EQ(expected, Contents(a));

  // Shrinking then growing again must not bring the old values back.
  ASSERT_TRUE(a.SetSize(3));
  ASSERT_TRUE(a.SetSize(6));
  EXPECT_EQ((std::vector<int>{0, 1, 2, 0, 0, 0}), Contents(a));
  // Refused sizes, negative or beyond what an array may hold (8 GiB of int), keep the contents.
  EXPECT_FALSE(a.SetSize(-1) || a.SetSize(INT_MAX));
  EXPECT_EQ((std::vector<int>{0, 1, 2, 0, 0, 0}), Contents(a));
  CMRL_ArrayTemplate<double> d;
  EXPECT_FALSE(d.SetSize(INT_MAX / 2));
  EXPECT_EQ(0, d.GetSize());

  struct Pair {
    short a;
    double b;
  };
  CMRL_ArrayTemplate<Pair> pairs;
  ASSERT_TRUE(pairs.SetSize(100));
  for (const Pair& p : pairs) {
    EXPECT_EQ(0, p.a);
    EXPECT_EQ(0.0, p.b);
  }
}

TEST(ArrayTemplateTest, AddingAnElementOfTheArrayItself) {
  // The reference points into the buffer that growing moves.
  CMRL_ArrayTemplate<int> a;
  a.Add(42);
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(a.Add(a[0]));
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(a.InsertAt(0, a[a.GetSize() - 1]));
  for (int v : a) ASSERT_EQ(42, v);
  EXPECT_EQ(201, a.GetSize());
}

TEST(ArrayTemplateTest, CopiesAreIndependentAndMovesEmptyTheSource) {
  CMRL_ArrayTemplate<int> a;
  for (int i = 0; i < 5; ++i) a.Add(i);
  CMRL_ArrayTemplate<int> b = a;
  b[0] = 100;
  b.Add(5);
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4}), Contents(a));
  EXPECT_EQ((std::vector<int>{100, 1, 2, 3, 4, 5}), Contents(b));
  a = b;
  EXPECT_EQ(Contents(b), Contents(a));
  EXPECT_NE(a.GetData(), b.GetData());

  const int* data = b.GetData();
  CMRL_ArrayTemplate<int> c = std::move(b);
  EXPECT_EQ(data, c.GetData());
  EXPECT_EQ(0, b.GetSize());  // NOLINT(bugprone-use-after-move): moved-from is empty by contract
  EXPECT_TRUE(b.Add(1));       // and usable
  b = std::move(c);
  EXPECT_EQ(6, b.GetSize());
  EXPECT_EQ(data, b.GetData());
}

}  // namespace
