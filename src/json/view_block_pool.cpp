#include "view_block_pool.h"

// Its destructor runs at thread exit and hands the thread's free blocks back to the heap.
struct ViewBlockPool::ListReaper {
  ~ListReaper() {
    FreeList& list = freeList_;
    while (list.head != nullptr) {
      FreeBlock* block = list.head;
      list.head = block->next;
      ::operator delete(static_cast<void*>(block));
    }
    list.count = 0;
    list.state = ListState::kGone;
  }
};

void ViewBlockPool::GiveSlowly(void* block) noexcept {
  FreeList& list = freeList_;
  if (list.state == ListState::kUnused) {
    static thread_local ListReaper reaper;
    static_cast<void>(reaper);
    list.state = ListState::kActive;
  }
  if (list.state == ListState::kGone || list.count >= kMaxCachedBlocks) {
    ::operator delete(block);
    return;
  }
  auto* free = static_cast<FreeBlock*>(block);
  free->next = list.head;
  list.head = free;
  ++list.count;
}
