#include <mrlbase/ts_array_template.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include <mrlbase/byte_string.h>

namespace {

TEST(TSArrayTemplateTest, SingleThreadedBehaviourMatchesTheBase) {
  CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int> a;
  EXPECT_TRUE(a.Add(1) && a.Add(3) && a.InsertAt(1, 2) && a.SetAt(0, 10));
  EXPECT_FALSE(a.InsertAt(9, 2) || a.SetAt(3, 10) || a.RemoveAt(3));
  EXPECT_EQ(0, a.GetAt(3));
  EXPECT_TRUE(a.RemoveAt(0));

  CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int> copy = a;
  copy.Add(4);
  EXPECT_EQ(2, a.GetSize());
  a = copy;
  CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int> moved = std::move(copy);
  EXPECT_EQ(3, moved.GetSize());
  EXPECT_EQ(0, copy.GetSize());  // NOLINT(bugprone-use-after-move): moved-from is empty by contract
  const auto snapshot = a.Snapshot();
  EXPECT_EQ((std::vector<int>{2, 3, 4}), std::vector<int>(snapshot.begin(), snapshot.end()));
}

// Writers add and insert while a reader copies; afterwards every value is there exactly once.
TEST(TSArrayTemplateTest, ConcurrentWritersReadersAndCopiers) {
  constexpr int kThreads = 4, kPerThread = 500;
  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> names;
  std::atomic<bool> writersDone{false};
  std::atomic<int> badReads{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&names, t] {
      for (int i = 0; i < kPerThread; ++i) {
        const CMRL_ByteString name(std::to_string(t * kPerThread + i));
        i % 3 == 0 ? names.InsertAt(0, name) : names.Add(name);
      }
    });
  }
  std::thread reader([&] {
    int last = 0;
    while (!writersDone.load()) {
      const auto copy = names;  // nothing is removed, so sizes never fall
      if (copy.GetSize() < last || (copy.GetSize() > 0 && copy.GetAt(0).IsEmpty())) ++badReads;
      last = copy.GetSize();
    }
  });
  for (auto& th : threads) th.join();
  writersDone = true;
  reader.join();
  EXPECT_EQ(0, badReads.load());
  std::vector<int> values;
  for (const CMRL_ByteString& s : names.Snapshot()) values.push_back(std::stoi(s.c_str()));
  std::sort(values.begin(), values.end());
  ASSERT_EQ(static_cast<size_t>(kThreads * kPerThread), values.size());
  for (int i = 0; i < kThreads * kPerThread; ++i) ASSERT_EQ(i, values[static_cast<size_t>(i)]);

  // Racing removals: each element goes exactly once.
  CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int> a;
  for (int i = 0; i < 2000; ++i) a.Add(i);
  std::atomic<int> removed{0};
  threads.clear();
  for (int t = 0; t < 4; ++t) threads.emplace_back([&] { while (a.RemoveAt(0)) ++removed; });
  for (auto& th : threads) th.join();
  EXPECT_EQ(2000, removed.load());
  EXPECT_EQ(0, a.GetSize());
}

// Whole-array replacements race with copies, snapshots and element reads: every copy must be one
// of the arrays written, never a mixture.
TEST(TSArrayTemplateTest, CopiesNeverMixTwoGenerations) {
  using Array = CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int>;
  constexpr int kGenerations = 400;
  auto generation = [](int g) {
    Array a;
    for (int i = 0; i < 16 + g % 48; ++i) a.Add(g);
    return a;
  };
  Array shared = generation(0);
  std::atomic<bool> done{false};
  std::atomic<int> mixed{0};
  std::vector<std::thread> readers;
  for (int r = 0; r < 3; ++r) {
    readers.emplace_back([&, r] {
      while (!done.load()) {
        const Array copy = shared;
        const auto all = r == 0 ? copy.Snapshot() : shared.Snapshot();
        if (all.GetSize() == 0 || all.GetSize() != 16 + all[0] % 48) ++mixed;
        for (int v : all) mixed += v != all[0];
        const int one = shared.GetAt(5);
        if (one < 0 || one > kGenerations) ++mixed;
      }
    });
  }
  for (int g = 1; g <= kGenerations; ++g) {
    Array next = generation(g);
    if (g % 2) shared = next; else shared = std::move(next);
  }
  done = true;
  for (auto& t : readers) t.join();
  EXPECT_EQ(0, mixed.load());
  EXPECT_EQ(kGenerations, shared.GetAt(0));
}

}  // namespace
