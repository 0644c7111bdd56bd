#ifndef ZELUTILITY_SRC_JSON_VIEW_BLOCK_POOL_H_
#define ZELUTILITY_SRC_JSON_VIEW_BLOCK_POOL_H_

#include <cstddef>
#include <new>

// Fixed-size memory blocks for the short-lived node objects that every child access makes.
//
// Each thread keeps a bounded list of free blocks of its own: a block goes back to the list of
// whichever thread frees it, so no list is ever shared and nothing is locked. A thread's list is
// released when the thread ends; a block freed after that goes straight back to the heap.
class ViewBlockPool {
 public:
  // Bytes in one block; larger requests are not served from the pool.
  static constexpr std::size_t kBlockSize = 96;
  // Free blocks one thread keeps at most; more go back to the heap.
  static constexpr int kMaxCachedBlocks = 256;

  // A block of kBlockSize bytes, aligned for new; throws std::bad_alloc like operator new.
  static void* Take() {
    FreeList& list = freeList_;
    if (FreeBlock* block = list.head) {
      list.head = block->next;
      --list.count;
      return block;
    }
    return ::operator new(kBlockSize);
  }

  // Returns a block from Take (made on any thread) to this thread's list, or to the heap.
  static void Give(void* block) noexcept {
    FreeList& list = freeList_;
    if (list.state == ListState::kActive && list.count < kMaxCachedBlocks) {
      auto* free = static_cast<FreeBlock*>(block);
      free->next = list.head;
      list.head = free;
      ++list.count;
      return;
    }
    GiveSlowly(block);
  }

  // Free blocks this thread holds now.
  static int CachedBlocks() noexcept { return freeList_.count; }

 private:
  struct FreeBlock {
    FreeBlock* next;
  };
  enum class ListState : unsigned char { kUnused, kActive, kGone };
  // Trivially destructible, so it may be read at any point of the thread's life, also while other
  // thread-local objects are destroyed after the list was released.
  struct FreeList {
    FreeBlock* head;
    int count;
    ListState state;
  };
  struct ListReaper;

  // A thread's first block to keep (arranges the release at thread exit), a block beyond the
  // bound, or one freed after the thread's list was released.
  static void GiveSlowly(void* block) noexcept;

#if defined(__SANITIZE_ADDRESS__)
  // GCC's null-pointer check folds the address of an initial-exec variable to null and aborts.
  static inline thread_local FreeList freeList_{nullptr, 0, ListState::kUnused};
#else
  // Initial-exec: inside the shared library every access would otherwise be a __tls_get_addr call,
  // which costs more than the list operation itself. The list is a few bytes of static TLS.
  [[gnu::tls_model("initial-exec")]] static inline thread_local FreeList freeList_{
      nullptr, 0, ListState::kUnused};
#endif
};

// A standard allocator that takes single objects that fit a block from ViewBlockPool and
// everything else from the heap, for std::allocate_shared of node objects.
template <class T>
class ViewAllocator {
 public:
  using value_type = T;

  ViewAllocator() noexcept = default;
  template <class U>
  ViewAllocator(const ViewAllocator<U>&) noexcept {}  // NOLINT: rebinding is implicit by design

  T* allocate(std::size_t n) {
    if (Pooled(n)) return static_cast<T*>(ViewBlockPool::Take());
    return static_cast<T*>(::operator new(n * sizeof(T)));
  }
  void deallocate(T* p, std::size_t n) noexcept {
    if (Pooled(n)) {
      ViewBlockPool::Give(p);
    } else {
      ::operator delete(p);
    }
  }

  // Whether n objects come from the pool.
  static constexpr bool Pooled(std::size_t n) noexcept {
    return n == 1 && sizeof(T) <= ViewBlockPool::kBlockSize &&
           alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__;
  }

  template <class U>
  bool operator==(const ViewAllocator<U>&) const noexcept {
    return true;
  }
  template <class U>
  bool operator!=(const ViewAllocator<U>&) const noexcept {
    return false;
  }
};

#endif  // ZELUTILITY_SRC_JSON_VIEW_BLOCK_POOL_H_
