#ifndef MRLBASE_TS_ARRAY_TEMPLATE_H_
#define MRLBASE_TS_ARRAY_TEMPLATE_H_

#include <mutex>
#include <utility>

#include <mrlbase/array_template.h>
#include <mrlbase/object_array.h>
#include <mrlbase/rw_spin_lock.h>

// A Base<T> array (CMRL_ArrayTemplate or CMRL_ObjectArray) behind a reader-writer lock
// (CMRL_RWSpinLock), so several threads may use one array at once. Each member call takes the lock
// once: reads share it, writes hold it alone. Uncontended, that costs one atomic instruction to
// lock and one to unlock, so reading element by element stays cheap. A sequence of calls is not
// atomic; use Snapshot() to read a consistent copy. Copying takes the source's shared lock; moving
// and assigning take the locks they need.
//
// Threads: this lock is the only one a caller of the library deals with. It is held for one member
// call and never across a loop: a function that walks the array (a polygon in the geometry
// functions, say) takes it once for each element, so the caller keeps the array unchanged while
// such a function runs, or hands it a copy.
//
//   CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int> ids;
//   std::thread t([&] { ids.Add(1); });
//   ids.Add(2);
//   t.join();                                 // ids holds 1 and 2 in some order
template <template <class> class Base, class T>
class CMRL_TSArrayTemplate {
 public:
  CMRL_TSArrayTemplate() = default;
  CMRL_TSArrayTemplate(const CMRL_TSArrayTemplate& other) : m_array(other.Snapshot()) {}
  CMRL_TSArrayTemplate(CMRL_TSArrayTemplate&& other) noexcept {
    std::unique_lock<CMRL_RWSpinLock> lock(other.m_lock);
    m_array.swap(other.m_array);
  }
  CMRL_TSArrayTemplate& operator=(const CMRL_TSArrayTemplate& other) {
    if (this != &other) {
      Base<T> copy = other.Snapshot();  // copy outside our own lock
      std::unique_lock<CMRL_RWSpinLock> lock(m_lock);
      m_array.swap(copy);
    }
    return *this;
  }
  CMRL_TSArrayTemplate& operator=(CMRL_TSArrayTemplate&& other) noexcept {
    if (this != &other) {
      Base<T> taken;
      {
        std::unique_lock<CMRL_RWSpinLock> lock(other.m_lock);
        taken.swap(other.m_array);
      }
      std::unique_lock<CMRL_RWSpinLock> lock(m_lock);
      m_array.swap(taken);
    }
    return *this;
  }
  ~CMRL_TSArrayTemplate() = default;

  int GetSize() const {
    CMRL_RWSpinLock::SharedGuard lock(m_lock);
    return m_array.GetSize();
  }
  // A copy of the element at i, or a default value when i is outside the array.
  T GetAt(int i) const {
    CMRL_RWSpinLock::SharedGuard lock(m_lock);
    return m_array.GetAt(i);
  }
  // Replaces the element at i; false when i is outside the array.
  bool SetAt(int i, const T& v) {
    std::unique_lock<CMRL_RWSpinLock> lock(m_lock);
    return m_array.SetAt(i, v);
  }
  // Appends v; false (contents kept) when the array cannot grow.
  bool Add(const T& v) {
    std::unique_lock<CMRL_RWSpinLock> lock(m_lock);
    return m_array.Add(v);
  }
  // Inserts v before index i (0..GetSize()); false when i is out of range or the array cannot grow.
  bool InsertAt(int i, const T& v) {
    std::unique_lock<CMRL_RWSpinLock> lock(m_lock);
    return m_array.InsertAt(i, v);
  }
  // Removes the element at i; false when i is outside the array.
  bool RemoveAt(int i) {
    std::unique_lock<CMRL_RWSpinLock> lock(m_lock);
    return m_array.RemoveAt(i);
  }
  void RemoveAll() {
    std::unique_lock<CMRL_RWSpinLock> lock(m_lock);
    m_array.RemoveAll();
  }
  // A consistent copy of all elements, taken under one shared lock.
  Base<T> Snapshot() const {
    CMRL_RWSpinLock::SharedGuard lock(m_lock);
    return m_array;
  }

 private:
  mutable CMRL_RWSpinLock m_lock;
  Base<T> m_array;
};

#endif  // MRLBASE_TS_ARRAY_TEMPLATE_H_
