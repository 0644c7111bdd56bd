#include <mrlbase/rw_spin_lock.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace {

TEST(RWSpinLockTest, SharedAndExclusiveHoldsExcludeEachOther) {
  CMRL_RWSpinLock lock;
  {
    // More guards than reader places, so some fall back to the counter; released out of order.
    std::vector<std::unique_ptr<CMRL_RWSpinLock::SharedGuard>> guards;
    for (int i = 0; i < 7; ++i) guards.push_back(std::make_unique<CMRL_RWSpinLock::SharedGuard>(lock));
    for (size_t i : {3u, 0u, 6u, 1u, 5u, 2u}) {
      guards[i].reset();
      EXPECT_FALSE(lock.try_lock());
    }
    EXPECT_TRUE(lock.try_lock_shared());
    guards.clear();
    EXPECT_FALSE(lock.try_lock());  // the counted hold is still there
    lock.unlock_shared();
  }
  {
    std::unique_lock<CMRL_RWSpinLock> alone(lock);
    EXPECT_FALSE(lock.try_lock());
    EXPECT_FALSE(lock.try_lock_shared());
  }
  {
    std::shared_lock<CMRL_RWSpinLock> counted(lock);
    CMRL_RWSpinLock::SharedGuard placed(lock);
    EXPECT_FALSE(lock.try_lock());
  }
  // The failed attempts on both sides left nothing behind.
  EXPECT_TRUE(lock.try_lock());
  lock.unlock();
}

// Writers keep two plain counters equal under the lock; readers through both kinds of shared hold
// must never see them differ, and no reader may be inside while a writer is.
TEST(RWSpinLockTest, ReadersAndWritersFromSeveralThreadsKeepTheInvariant) {
  constexpr int kWriters = 3, kReaders = 4, kWritesEach = 2000;
  CMRL_RWSpinLock lock;
  long first = 0, second = 0;
  std::atomic<int> writersInside{0}, readersInside{0}, violations{0}, writersDone{0};
  std::vector<std::thread> threads;
  for (int w = 0; w < kWriters; ++w) {
    threads.emplace_back([&] {
      for (int i = 0; i < kWritesEach; ++i) {
        std::unique_lock<CMRL_RWSpinLock> hold(lock);
        if (writersInside.fetch_add(1) != 0 || readersInside.load() != 0) ++violations;
        ++first;
        std::this_thread::yield();  // widens the window a broken lock would let a reader into
        ++second;
        writersInside.fetch_sub(1);
      }
      ++writersDone;
    });
  }
  for (int r = 0; r < kReaders; ++r) {
    threads.emplace_back([&, r] {
      long last = 0;
      auto check = [&] {
        readersInside.fetch_add(1);
        const long seen = first;
        std::this_thread::yield();
        if (writersInside.load() != 0 || seen != second || seen < last) ++violations;
        last = seen;
        readersInside.fetch_sub(1);
      };
      while (writersDone.load() < kWriters) {
        if (r % 2 == 0) {
          CMRL_RWSpinLock::SharedGuard hold(lock);
          check();
        } else {
          std::shared_lock<CMRL_RWSpinLock> hold(lock);
          check();
        }
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(0, violations.load());
  EXPECT_EQ(kWriters * kWritesEach, first);
  EXPECT_EQ(first, second);
}

// Readers stop only when the writer has finished, so a writer readers could starve never ends.
TEST(RWSpinLockTest, WriterFinishesUnderAStreamOfReaders) {
  CMRL_RWSpinLock lock;
  int value = 0;
  std::atomic<bool> writerDone{false};
  std::vector<std::thread> readers;
  for (int r = 0; r < 3; ++r) {
    readers.emplace_back([&] {
      while (!writerDone.load()) CMRL_RWSpinLock::SharedGuard hold(lock);
    });
  }
  for (int i = 0; i < 300; ++i) {
    std::unique_lock<CMRL_RWSpinLock> hold(lock);
    ++value;
  }
  writerDone = true;
  for (auto& t : readers) t.join();
  EXPECT_EQ(300, value);
}

}  // namespace
