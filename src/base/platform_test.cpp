#include "base/platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

constexpr int kCount = 40;

std::vector<int> SharedSequence(unsigned seed) {
  std::srand(seed);
  std::vector<int> values(kCount);
  for (int& v : values) v = std::rand();
  return values;
}

std::vector<int> PrivateSequence(unsigned seed) {
  std::vector<int> values(kCount);
  zel::platform::SeededRandSequence(seed, values.data(), kCount);
  return values;
}

TEST(SeededRandSequence, GivesTheSharedGeneratorsNumbersWithoutTouchingIt) {
  // 0 and 1 seed the generator alike; the others reach the top bits and the second mixing rounds.
  const unsigned seeds[] = {0u, 1u, 1732230000u, 0x7FFFFFFFu, 0x80000000u, UINT_MAX};
  for (unsigned seed : seeds) EXPECT_EQ(PrivateSequence(seed), SharedSequence(seed)) << seed;

  // The shared generator goes on where it was.
  const std::vector<int> shared = SharedSequence(99);
  std::srand(99);
  (void)std::rand();
  PrivateSequence(7);
  EXPECT_EQ(std::rand(), shared[1]);
}

TEST(SeededRandSequence, OtherThreadsSeedingAndDrawingChangeNothing) {
  std::vector<std::vector<int>> expected;
  for (unsigned seed = 0; seed < 64; ++seed) expected.push_back(SharedSequence(seed * 2654435761u));

  std::atomic<bool> stop{false};
  std::vector<std::thread> users;
  for (unsigned i = 0; i < 8; ++i)
    users.emplace_back([&stop, i] {
      for (unsigned n = i; !stop.load(std::memory_order_relaxed); n += 8) {
        std::srand(n);
        (void)std::rand();
      }
    });
  int wrong = 0;
  for (int round = 0; round < 50; ++round)
    for (unsigned seed = 0; seed < 64; ++seed)
      if (PrivateSequence(seed * 2654435761u) != expected[seed]) ++wrong;
  stop = true;
  for (std::thread& user : users) user.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
