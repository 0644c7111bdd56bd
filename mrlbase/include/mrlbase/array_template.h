#ifndef MRLBASE_ARRAY_TEMPLATE_H_
#define MRLBASE_ARRAY_TEMPLATE_H_

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

// A contiguous growable array of trivially copyable values.
//
// Growth never throws: Add, SetSize and InsertAt return false when memory cannot be had (or the
// array would pass 2 GiB or INT_MAX elements) and then leave the contents as they were. New
// elements are zero bytes. Indexes outside the array are refused (GetAt gives a zero value);
// operator[] does not check.
//
// Threads: no lock. Several threads may read one array at once while nobody changes it; an array
// that anyone changes is for one thread at a time (CMRL_TSArrayTemplate locks for you).
//
//   CMRL_ArrayTemplate<int> widths;
//   widths.Add(12);
//   widths.InsertAt(0, 7);                    // {7, 12}
//   for (int i = 0; i < widths.GetSize(); ++i) use(widths[i]);
template <class T>
class CMRL_ArrayTemplate {
  static_assert(std::is_trivially_copyable<T>::value,
                "CMRL_ArrayTemplate holds trivially copyable values; use CMRL_ObjectArray");

 public:
  CMRL_ArrayTemplate() noexcept = default;
  // Copies the elements; throws std::bad_alloc when the copy cannot be allocated.
  CMRL_ArrayTemplate(const CMRL_ArrayTemplate& other) {
    if (other.m_size > 0) {
      m_data = static_cast<T*>(std::malloc(sizeof(T) * static_cast<size_t>(other.m_size)));
      if (!m_data) throw std::bad_alloc();
      std::memcpy(static_cast<void*>(m_data), other.m_data, sizeof(T) * static_cast<size_t>(other.m_size));
      m_size = m_capacity = other.m_size;
    }
  }
  CMRL_ArrayTemplate(CMRL_ArrayTemplate&& other) noexcept
      : m_data(std::exchange(other.m_data, nullptr)),
        m_size(std::exchange(other.m_size, 0)),
        m_capacity(std::exchange(other.m_capacity, 0)) {}
  CMRL_ArrayTemplate& operator=(const CMRL_ArrayTemplate& other) {
    if (this != &other) {
      CMRL_ArrayTemplate copy(other);
      swap(copy);
    }
    return *this;
  }
  CMRL_ArrayTemplate& operator=(CMRL_ArrayTemplate&& other) noexcept {
    if (this != &other) {
      CMRL_ArrayTemplate moved(std::move(other));
      swap(moved);
    }
    return *this;
  }
  ~CMRL_ArrayTemplate() { std::free(m_data); }

  void swap(CMRL_ArrayTemplate& other) noexcept {
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
    std::swap(m_capacity, other.m_capacity);
  }

  int GetSize() const noexcept { return m_size; }
  // The first element; null while nothing was ever allocated.
  T* GetData() noexcept { return m_data; }
  const T* GetData() const noexcept { return m_data; }

  // The element at i, or a zero value when i is outside the array.
  T GetAt(int i) const noexcept {
    if (i < 0 || i >= m_size) return T{};
    return m_data[i];
  }
  // Unchecked access; i must be in 0..GetSize()-1.
  T& operator[](int i) noexcept { return m_data[i]; }
  const T& operator[](int i) const noexcept { return m_data[i]; }

  // Replaces the element at i; false when i is outside the array.
  bool SetAt(int i, const T& v) noexcept {
    if (i < 0 || i >= m_size) return false;
    m_data[i] = v;
    return true;
  }
  // Appends v; false (contents kept) when the array cannot grow.
  bool Add(const T& v) noexcept {
    if (m_size == m_capacity) {
      const T copy = v;  // v may live inside the buffer that Grow moves
      if (!Grow(m_size + 1)) return false;
      m_data[m_size++] = copy;
      return true;
    }
    m_data[m_size++] = v;
    return true;
  }
  // Makes the array n elements long; new elements are zero. False for n < 0 or when it cannot grow.
  bool SetSize(int n) noexcept {
    if (n < 0) return false;
    if (n > m_capacity && !Reallocate(n)) return false;
    if (n > m_size)
      std::memset(static_cast<void*>(m_data + m_size), 0, sizeof(T) * static_cast<size_t>(n - m_size));
    m_size = n;
    return true;
  }
  // Inserts v before index i (0..GetSize()); false when i is out of range or the array cannot grow.
  bool InsertAt(int i, const T& v) noexcept {
    if (i < 0 || i > m_size) return false;
    const T copy = v;
    if (m_size == m_capacity && !Grow(m_size + 1)) return false;
    std::memmove(static_cast<void*>(m_data + i + 1), m_data + i, sizeof(T) * static_cast<size_t>(m_size - i));
    m_data[i] = copy;
    ++m_size;
    return true;
  }
  // Removes the element at i; false when i is outside the array.
  bool RemoveAt(int i) noexcept {
    if (i < 0 || i >= m_size) return false;
    std::memmove(static_cast<void*>(m_data + i), m_data + i + 1, sizeof(T) * static_cast<size_t>(m_size - i - 1));
    --m_size;
    return true;
  }
  // Empties the array and frees its memory.
  void RemoveAll() noexcept {
    std::free(m_data);
    m_data = nullptr;
    m_size = m_capacity = 0;
  }

  T* begin() noexcept { return m_data; }
  T* end() noexcept { return m_data + m_size; }
  const T* begin() const noexcept { return m_data; }
  const T* end() const noexcept { return m_data + m_size; }

 private:
  static constexpr size_t kMaxBytes = size_t{1} << 31;
  static constexpr int kMaxCount = static_cast<int>(
      kMaxBytes / sizeof(T) < static_cast<size_t>(INT_MAX) ? kMaxBytes / sizeof(T) : INT_MAX);

  // Grows the capacity geometrically so that repeated Add stays amortised O(1).
  bool Grow(int needed) noexcept {
    if (needed > kMaxCount) return false;
    long long wanted = m_capacity < 8 ? 8 : static_cast<long long>(m_capacity) + m_capacity / 2;
    if (wanted < needed) wanted = needed;
    if (wanted > kMaxCount) wanted = kMaxCount;
    // When the generous size cannot be had, the exact size may still fit.
    return Reallocate(static_cast<int>(wanted)) || (wanted != needed && Reallocate(needed));
  }
  bool Reallocate(int capacity) noexcept {
    if (capacity > kMaxCount) return false;
    void* grown = std::realloc(m_data, sizeof(T) * static_cast<size_t>(capacity));
    if (!grown) return false;  // realloc keeps the old block
    m_data = static_cast<T*>(grown);
    m_capacity = capacity;
    return true;
  }

  T* m_data = nullptr;
  int m_size = 0;
  int m_capacity = 0;
};

#endif  // MRLBASE_ARRAY_TEMPLATE_H_
