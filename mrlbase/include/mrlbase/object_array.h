#ifndef MRLBASE_OBJECT_ARRAY_H_
#define MRLBASE_OBJECT_ARRAY_H_

#include <climits>
#include <cstddef>
#include <utility>
#include <vector>

// A contiguous growable array of objects (strings, smart pointers, structs with members).
//
// Elements are copied in and destroyed with the array. Add, SetSize and InsertAt return false when
// memory cannot be had (or the array would pass 2 GiB or INT_MAX elements), keeping the contents.
// New elements from SetSize are value-initialised (zero for numbers). Indexes outside the array
// are refused (GetAt gives a default-constructed T); operator[] does not check.
//
// Threads: no lock, as CMRL_ArrayTemplate: shared reading is fine, changing is for one thread at
// a time.
//
//   CMRL_ObjectArray<CMRL_ByteString> names;
//   names.Add("first");
//   names.InsertAt(0, "zeroth");             // {"zeroth", "first"}
template <class T>
class CMRL_ObjectArray {
 public:
  CMRL_ObjectArray() = default;
  CMRL_ObjectArray(const CMRL_ObjectArray&) = default;
  CMRL_ObjectArray(CMRL_ObjectArray&&) noexcept = default;
  CMRL_ObjectArray& operator=(const CMRL_ObjectArray&) = default;
  CMRL_ObjectArray& operator=(CMRL_ObjectArray&&) noexcept = default;
  ~CMRL_ObjectArray() = default;

  void swap(CMRL_ObjectArray& other) noexcept { m_items.swap(other.m_items); }

  int GetSize() const noexcept { return static_cast<int>(m_items.size()); }
  // The first element; null when the array never held any.
  T* GetData() noexcept { return m_items.data(); }
  const T* GetData() const noexcept { return m_items.data(); }

  // A copy of the element at i, or T() when i is outside the array.
  T GetAt(int i) const {
    if (i < 0 || i >= GetSize()) return T();
    return m_items[static_cast<size_t>(i)];
  }
  // Unchecked access; i must be in 0..GetSize()-1.
  T& operator[](int i) noexcept { return m_items[static_cast<size_t>(i)]; }
  const T& operator[](int i) const noexcept { return m_items[static_cast<size_t>(i)]; }

  // Replaces the element at i with a copy of v; false when i is outside the array.
  bool SetAt(int i, const T& v) {
    if (i < 0 || i >= GetSize()) return false;
    try {
      m_items[static_cast<size_t>(i)] = v;
    } catch (...) {
      return false;
    }
    return true;
  }
  // Appends a copy of v; false (contents kept) when the array cannot grow.
  bool Add(const T& v) {
    if (GetSize() >= kMaxCount) return false;
    try {
      m_items.push_back(v);
    } catch (...) {
      return false;
    }
    return true;
  }
  bool Add(T&& v) {
    if (GetSize() >= kMaxCount) return false;
    try {
      m_items.push_back(std::move(v));
    } catch (...) {
      return false;
    }
    return true;
  }
  // Makes the array n elements long; false for n < 0 or when it cannot grow.
  bool SetSize(int n) {
    if (n < 0 || n > kMaxCount) return false;
    try {
      m_items.resize(static_cast<size_t>(n));
    } catch (...) {
      return false;
    }
    return true;
  }
  // Inserts a copy of v before index i (0..GetSize()); false when i is out of range or the array
  // cannot grow.
  bool InsertAt(int i, const T& v) {
    if (i < 0 || i > GetSize() || GetSize() >= kMaxCount) return false;
    try {
      m_items.insert(m_items.begin() + i, v);
    } catch (...) {
      return false;
    }
    return true;
  }
  // Removes (destroys) the element at i; false when i is outside the array.
  bool RemoveAt(int i) {
    if (i < 0 || i >= GetSize()) return false;
    m_items.erase(m_items.begin() + i);
    return true;
  }
  // Destroys all elements and frees the memory.
  void RemoveAll() noexcept { std::vector<T>().swap(m_items); }

  T* begin() noexcept { return m_items.data(); }
  T* end() noexcept { return m_items.data() + m_items.size(); }
  const T* begin() const noexcept { return m_items.data(); }
  const T* end() const noexcept { return m_items.data() + m_items.size(); }

 private:
  static constexpr size_t kMaxBytes = size_t{1} << 31;
  static constexpr int kMaxCount = static_cast<int>(
      kMaxBytes / sizeof(T) < static_cast<size_t>(INT_MAX) ? kMaxBytes / sizeof(T) : INT_MAX);

  std::vector<T> m_items;
};

#endif  // MRLBASE_OBJECT_ARRAY_H_
