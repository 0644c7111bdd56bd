#include "view_block_pool.h"

#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Empties this thread's list so counts start from zero.
void Drain() {
  std::vector<void*> taken;
  while (ViewBlockPool::CachedBlocks() > 0) taken.push_back(ViewBlockPool::Take());
  for (void* block : taken) ::operator delete(block);
}

TEST(ViewBlockPoolTest, BlocksAreRecycledUpToTheBound) {
  Drain();
  std::vector<void*> blocks;
  for (int i = 0; i < ViewBlockPool::kMaxCachedBlocks + 40; ++i) {
    void* block = ViewBlockPool::Take();
    std::memset(block, i & 0xff, ViewBlockPool::kBlockSize);  // the whole block is writable
    blocks.push_back(block);
  }
  EXPECT_EQ(std::set<void*>(blocks.begin(), blocks.end()).size(), blocks.size());
  EXPECT_EQ(ViewBlockPool::CachedBlocks(), 0);

  for (void* block : blocks) ViewBlockPool::Give(block);
  EXPECT_EQ(ViewBlockPool::CachedBlocks(), ViewBlockPool::kMaxCachedBlocks);

  // The last block given is the first taken again, and taking shrinks the list.
  void* again = ViewBlockPool::Take();
  EXPECT_EQ(ViewBlockPool::CachedBlocks(), ViewBlockPool::kMaxCachedBlocks - 1);
  const std::set<void*> kept(blocks.begin(), blocks.begin() + ViewBlockPool::kMaxCachedBlocks);
  EXPECT_EQ(kept.count(again), 1u);
  ViewBlockPool::Give(again);
  Drain();
}

TEST(ViewBlockPoolTest, BlocksGoBackToTheThreadThatFreesThem) {
  Drain();
  std::vector<void*> blocks;
  for (int i = 0; i < 10; ++i) blocks.push_back(ViewBlockPool::Take());

  int cachedThere = -1;
  std::thread other([&] {
    for (void* block : blocks) ViewBlockPool::Give(block);
    cachedThere = ViewBlockPool::CachedBlocks();
    // The list is released when this thread ends; a leak checker sees it if not.
  });
  other.join();
  EXPECT_EQ(cachedThere, 10);
  EXPECT_EQ(ViewBlockPool::CachedBlocks(), 0);

  // And the other way round: blocks made on a thread that has ended are kept here.
  std::vector<void*> made;
  std::thread maker([&made] {
    for (int i = 0; i < 5; ++i) made.push_back(ViewBlockPool::Take());
  });
  maker.join();
  for (void* block : made) ViewBlockPool::Give(block);
  EXPECT_EQ(ViewBlockPool::CachedBlocks(), 5);
  Drain();
}

TEST(ViewBlockPoolTest, AllocatorPoolsSingleSmallObjectsOnly) {
  struct Small {
    char bytes[ViewBlockPool::kBlockSize];
  };
  struct Large {
    char bytes[ViewBlockPool::kBlockSize + 1];
  };
  EXPECT_TRUE(ViewAllocator<Small>::Pooled(1) && !ViewAllocator<Small>::Pooled(2) && !ViewAllocator<Large>::Pooled(1));

  Drain();
  ViewAllocator<Large> large;
  Large* big = large.allocate(1);
  big->bytes[ViewBlockPool::kBlockSize] = 1;
  large.deallocate(big, 1);
  EXPECT_EQ(ViewBlockPool::CachedBlocks(), 0);  // went to the heap, not into the list

  {
    auto shared = std::allocate_shared<int>(ViewAllocator<int>(), 7);
    EXPECT_EQ(*shared, 7);
  }
  EXPECT_EQ(ViewBlockPool::CachedBlocks(), 1);
  Drain();
}

}  // namespace
