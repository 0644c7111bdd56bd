#ifndef MRLBASE_RW_SPIN_LOCK_H_
#define MRLBASE_RW_SPIN_LOCK_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

// A reader-writer lock for short critical sections, such as one element read from an array.
//
// A reader holding CMRL_RWSpinLock::SharedGuard pays one atomic instruction to enter (claiming one
// of a few reader places) and a plain store to leave; lock_shared()/unlock_shared() count readers
// instead and pay one atomic instruction on each side. A writer takes the writer word first, which
// stops new readers, and then waits for the readers inside to leave, so a stream of readers cannot
// starve it; writers are preferred over readers. A thread that has to wait spins briefly, then
// yields, then sleeps in short steps.
//
// Meets the standard Lockable and SharedLockable requirements, so std::unique_lock and
// std::shared_lock work with it. Not recursive: a thread that holds it, shared or alone, must not
// lock it again. Neither copyable nor movable.
//
//   CMRL_RWSpinLock lock;
//   { CMRL_RWSpinLock::SharedGuard reading(lock); /* read */ }
//   { std::unique_lock<CMRL_RWSpinLock> writing(lock); /* change */ }
class CMRL_RWSpinLock {
 public:
  // Holds the lock shared from construction to destruction.
  class SharedGuard {
   public:
    explicit SharedGuard(CMRL_RWSpinLock& lock) noexcept : m_lock(lock), m_place(lock.EnterShared()) {}
    SharedGuard(const SharedGuard&) = delete;
    SharedGuard& operator=(const SharedGuard&) = delete;
    ~SharedGuard() { m_lock.LeaveShared(m_place); }

   private:
    CMRL_RWSpinLock& m_lock;
    int m_place;
  };

  CMRL_RWSpinLock() noexcept = default;
  CMRL_RWSpinLock(const CMRL_RWSpinLock&) = delete;
  CMRL_RWSpinLock& operator=(const CMRL_RWSpinLock&) = delete;
  ~CMRL_RWSpinLock() = default;

  // Takes the lock shared; waits while a writer holds it or waits for it.
  void lock_shared() noexcept { EnterCounted(); }
  // Takes the lock shared only when no writer holds it or waits for it; true when it did.
  bool try_lock_shared() noexcept { return TryEnterCounted(); }
  // Drops a shared hold taken by lock_shared() or try_lock_shared().
  void unlock_shared() noexcept { m_counted.fetch_sub(1, std::memory_order_release); }

  // Takes the lock alone; waits until no reader and no other writer holds it.
  void lock() noexcept {
    for (unsigned round = 0; !TryTakeWriterWord(); ++round) Pause(round);
    for (unsigned round = 0; ReadersInside(); ++round) Pause(round);
  }
  // Takes the lock alone only when nobody holds it; true when it did.
  bool try_lock() noexcept {
    if (!TryTakeWriterWord()) return false;
    if (!ReadersInside()) return true;
    m_writer.store(0, std::memory_order_release);
    return false;
  }
  // Drops the hold taken by lock() or try_lock().
  void unlock() noexcept { m_writer.store(0, std::memory_order_release); }

 private:
  // Reader places a SharedGuard may claim; the counter takes the readers beyond them.
  static constexpr int kPlaces = 4;
  static constexpr int kCounted = -1;

  // Pause number `round` of a wait: spin first, yield next, then sleep so that a preempted holder
  // on a busy machine gets the processor.
  static void Pause(unsigned round) noexcept {
    if (round < 64) return;
    if (round < 256) {
      std::this_thread::yield();
      return;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }

  // Readers announce themselves (a place or the counter) and then look at the writer word; a writer
  // takes the writer word and then looks at the readers. Both sides are sequentially consistent,
  // so at least one of the two sees the other and backs off.
  bool WriterPresent() const noexcept { return m_writer.load(std::memory_order_seq_cst) != 0; }

  bool ReadersInside() const noexcept {
    for (const auto& place : m_places) {
      if (place.load(std::memory_order_seq_cst) != 0) return true;
    }
    return m_counted.load(std::memory_order_seq_cst) != 0;
  }

  bool TryTakeWriterWord() noexcept {
    std::uint32_t expected = 0;
    return m_writer.load(std::memory_order_relaxed) == 0 &&
           m_writer.compare_exchange_strong(expected, 1, std::memory_order_seq_cst, std::memory_order_relaxed);
  }

  // The place index taken, or kCounted when every place was busy and the counter took the reader.
  int EnterShared() noexcept {
    // Writing 1 over a busy place changes nothing; only its holder writes the 0 back.
    if (m_places[0].exchange(1, std::memory_order_seq_cst) == 0) {
      if (!WriterPresent()) return 0;
      m_places[0].store(0, std::memory_order_release);
    }
    return EnterSharedAfterWait();
  }

  // Kept out of line so that the uncontended path stays small where it is inlined.
  [[gnu::noinline, gnu::cold]] int EnterSharedAfterWait() noexcept {
    for (unsigned round = 0;; ++round) {
      for (; WriterPresent(); ++round) Pause(round);
      for (int i = 0; i < kPlaces; ++i) {
        if (m_places[i].exchange(1, std::memory_order_seq_cst) != 0) continue;
        if (!WriterPresent()) return i;
        m_places[i].store(0, std::memory_order_release);
        break;
      }
      if (!WriterPresent() && TryEnterCounted()) return kCounted;
    }
  }

  void LeaveShared(int place) noexcept {
    if (place == kCounted) {
      unlock_shared();
    } else {
      m_places[place].store(0, std::memory_order_release);
    }
  }

  bool TryEnterCounted() noexcept {
    m_counted.fetch_add(1, std::memory_order_seq_cst);
    if (!WriterPresent()) return true;
    m_counted.fetch_sub(1, std::memory_order_release);
    return false;
  }

  void EnterCounted() noexcept {
    for (unsigned round = 0; !TryEnterCounted(); ++round) {
      for (; WriterPresent(); ++round) Pause(round);
    }
  }

  std::atomic<std::uint32_t> m_writer{0};
  std::atomic<std::uint32_t> m_places[kPlaces] = {};
  std::atomic<std::uint32_t> m_counted{0};
};

#endif  // MRLBASE_RW_SPIN_LOCK_H_
