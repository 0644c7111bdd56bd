#ifndef MRLBASE_SRC_CORE_STRING_CORE_H_
#define MRLBASE_SRC_CORE_STRING_CORE_H_

// The copy-on-write buffer behind CMRL_ByteString and CMRL_WideString. Both classes hold a single
// CharT* that points just past a StringHeader; every operation here takes that pointer by
// reference and keeps these rules:
//   - null means the empty string;
//   - a buffer with refs > 1 is never written;
//   - chars[length] is always 0.

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <type_traits>

namespace mrl_core {

struct StringHeader {
  std::atomic<int> refs;
  int length;
  int capacity;  // units, not counting the terminator
  int reserved;  // keeps the characters 16-byte aligned
};
static_assert(sizeof(StringHeader) == 16, "characters must stay aligned after the header");

template <class CharT>
class StringCore {
 public:
  using Unsigned = std::make_unsigned_t<CharT>;

  static StringHeader* Header(CharT* chars) noexcept {
    return reinterpret_cast<StringHeader*>(reinterpret_cast<char*>(chars) - sizeof(StringHeader));
  }
  static int Length(const CharT* chars) noexcept {
    return chars ? Header(const_cast<CharT*>(chars))->length : 0;
  }
  static int TextLength(const CharT* text) noexcept {
    if (!text) return 0;
    size_t n;
    if constexpr (std::is_same_v<CharT, char>) {
      n = std::strlen(text);
    } else {
      n = std::wcslen(text);
    }
    return n > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(n);
  }

  // A fresh unshared buffer with room for `capacity` units plus the terminator; length 0.
  static CharT* Allocate(int capacity) {
    if (capacity < 0 || static_cast<size_t>(capacity) >= (SIZE_MAX - sizeof(StringHeader)) / sizeof(CharT) - 1)
      throw std::bad_alloc();
    void* block = std::malloc(sizeof(StringHeader) + (static_cast<size_t>(capacity) + 1) * sizeof(CharT));
    if (!block) throw std::bad_alloc();
    auto* header = new (block) StringHeader{{1}, 0, capacity, 0};
    CharT* chars = reinterpret_cast<CharT*>(header + 1);
    chars[0] = 0;
    return chars;
  }

  static void AddRef(CharT* chars) noexcept {
    if (chars) Header(chars)->refs.fetch_add(1, std::memory_order_relaxed);
  }
  static void Release(CharT*& chars) noexcept {
    if (!chars) return;
    StringHeader* header = Header(chars);
    chars = nullptr;
    // acq_rel: the last owner must see every write the other owners made before letting go.
    if (header->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      header->~StringHeader();
      std::free(header);
    }
  }
  static bool IsShared(CharT* chars) noexcept {
    return Header(chars)->refs.load(std::memory_order_acquire) > 1;
  }

  static void Assign(CharT*& chars, const CharT* text, int length) {
    if (length < 0) length = TextLength(text);
    if (!text || length == 0) {
      Release(chars);
      return;
    }
    // The text may point into our own buffer, so copy before letting the old one go.
    CharT* fresh = Allocate(length);
    std::memcpy(fresh, text, static_cast<size_t>(length) * sizeof(CharT));
    fresh[length] = 0;
    Header(fresh)->length = length;
    Release(chars);
    chars = fresh;
  }

  // Makes the buffer unshared with room for at least `capacity` units; keeps the contents.
  // `grow` rounds the room up geometrically so repeated appends stay amortised O(1).
  static void MakeWritable(CharT*& chars, int capacity, bool grow) {
    const int length = Length(chars);
    if (capacity < length) capacity = length;
    if (chars && !IsShared(chars) && Header(chars)->capacity >= capacity) return;
    if (grow && chars) {
      const long long generous = static_cast<long long>(Header(chars)->capacity) * 3 / 2 + 8;
      if (generous > capacity) capacity = static_cast<int>(std::min<long long>(generous, INT_MAX - 1));
    }
    if (chars && !IsShared(chars)) {
      // Our own buffer just grows: realloc can extend a large block in place or remap its pages
      // instead of copying them. The header is plain bytes to realloc (refs is a lone int).
      void* block = std::realloc(static_cast<void*>(Header(chars)),
                                 sizeof(StringHeader) + (static_cast<size_t>(capacity) + 1) * sizeof(CharT));
      if (!block) throw std::bad_alloc();  // the old buffer is still intact
      auto* header = static_cast<StringHeader*>(block);
      header->capacity = capacity;
      chars = reinterpret_cast<CharT*>(header + 1);
      return;
    }
    CharT* fresh = Allocate(capacity);
    if (length > 0) std::memcpy(fresh, chars, static_cast<size_t>(length) * sizeof(CharT));
    fresh[length] = 0;
    Header(fresh)->length = length;
    Release(chars);
    chars = fresh;
  }

  static void SetLength(CharT*& chars, int length) noexcept {
    if (length == 0) {
      Release(chars);
      return;
    }
    Header(chars)->length = length;
    chars[length] = 0;
  }

  static int CheckedSum(int a, int b) {
    if (b > INT_MAX - 1 - a) throw std::bad_alloc();
    return a + b;
  }

  static void Append(CharT*& chars, const CharT* text, int count) {
    if (!text || count <= 0) return;
    const int length = Length(chars);
    if (length == 0 && (!chars || IsShared(chars))) {
      Assign(chars, text, count);
      return;
    }
    const int total = CheckedSum(length, count);
    if (!IsShared(chars) && Header(chars)->capacity >= total) {
      // In place: memmove because the text may be a part of this very buffer.
      std::memmove(chars + length, text, static_cast<size_t>(count) * sizeof(CharT));
      SetLength(chars, total);
      return;
    }
    // A new buffer; the old one (which the text may point into) lives until the copy is done.
    const long long generous = static_cast<long long>(Header(chars)->capacity) * 3 / 2 + 8;
    const int capacity = static_cast<int>(std::max<long long>(total, std::min<long long>(generous, INT_MAX - 1)));
    CharT* fresh = Allocate(capacity);
    std::memcpy(fresh, chars, static_cast<size_t>(length) * sizeof(CharT));
    std::memcpy(fresh + length, text, static_cast<size_t>(count) * sizeof(CharT));
    fresh[total] = 0;
    Header(fresh)->length = total;
    Release(chars);
    chars = fresh;
  }

  static void AppendUnit(CharT*& chars, CharT c) {
    if (chars) {
      StringHeader* header = Header(chars);
      if (header->length < header->capacity && header->refs.load(std::memory_order_acquire) == 1) {
        chars[header->length++] = c;
        chars[header->length] = 0;
        return;
      }
    }
    Append(chars, &c, 1);
  }

  static CharT* Concat(const CharT* a, int aLength, const CharT* b, int bLength) {
    const int total = CheckedSum(aLength, bLength);
    if (total == 0) return nullptr;
    CharT* fresh = Allocate(total);
    if (aLength > 0) std::memcpy(fresh, a, static_cast<size_t>(aLength) * sizeof(CharT));
    if (bLength > 0) std::memcpy(fresh + aLength, b, static_cast<size_t>(bLength) * sizeof(CharT));
    fresh[total] = 0;
    Header(fresh)->length = total;
    return fresh;
  }

  static void SetAt(CharT*& chars, int index, CharT c) {
    if (index < 0 || index >= Length(chars)) return;
    if (chars[index] == c) return;  // no write, no private copy
    MakeWritable(chars, 0, false);
    chars[index] = c;
  }

  static int Insert(CharT*& chars, int index, CharT c) {
    const int length = Length(chars);
    index = std::clamp(index, 0, length);
    MakeWritable(chars, CheckedSum(length, 1), true);
    std::memmove(chars + index + 1, chars + index, static_cast<size_t>(length - index) * sizeof(CharT));
    chars[index] = c;
    SetLength(chars, length + 1);
    return length + 1;
  }

  static int Delete(CharT*& chars, int index, int count) {
    const int length = Length(chars);
    if (index < 0 || index >= length || count <= 0) return length;
    count = std::min(count, length - index);
    if (count == length) {
      Release(chars);
      return 0;
    }
    MakeWritable(chars, 0, false);
    std::memmove(chars + index, chars + index + count,
                 static_cast<size_t>(length - index - count) * sizeof(CharT));
    SetLength(chars, length - count);
    return length - count;
  }

  template <class Map>
  static void MapUnits(CharT*& chars, Map map) {
    const int length = Length(chars);
    int i = 0;
    // Find the first unit that changes before taking a private copy.
    while (i < length && map(chars[i]) == chars[i]) ++i;
    if (i == length) return;
    MakeWritable(chars, 0, false);
    for (; i < length; ++i) chars[i] = map(chars[i]);
  }

  static CharT* GetBuffer(CharT*& chars, int minLength) {
    if (minLength < 0) minLength = 0;
    MakeWritable(chars, minLength, false);
    chars[Header(chars)->capacity] = 0;  // bounds the terminator search of ReleaseBuffer
    return chars;
  }

  static void ReleaseBuffer(CharT*& chars, int newLength) {
    if (!chars) return;
    if (IsShared(chars)) MakeWritable(chars, 0, false);  // called without GetBuffer: never touch a shared buffer
    const int capacity = Header(chars)->capacity;
    if (newLength < 0) {
      int n = 0;
      while (n < capacity && chars[n] != 0) ++n;
      newLength = n;
    }
    newLength = std::min(newLength, capacity);
    if (newLength == 0) {
      Release(chars);
      return;
    }
    SetLength(chars, newLength);
    // Give back a large unused tail (converters ask for the worst case).
    if (capacity - newLength > 256 && capacity / 2 > newLength) {
      CharT* fresh = Allocate(newLength);
      std::memcpy(fresh, chars, (static_cast<size_t>(newLength) + 1) * sizeof(CharT));
      Header(fresh)->length = newLength;
      Release(chars);
      chars = fresh;
    }
  }

  static bool Equal(const CharT* a, const CharT* b, int bLength) noexcept {
    const int aLength = Length(a);
    if (aLength != bLength) return false;
    if (a == b || aLength == 0) return true;
    return std::memcmp(a, b, static_cast<size_t>(aLength) * sizeof(CharT)) == 0;
  }

  static bool Less(const CharT* a, const CharT* b) noexcept {
    const int aLength = Length(a);
    const int bLength = Length(b);
    const int common = std::min(aLength, bLength);
    if constexpr (sizeof(CharT) == 1) {
      if (common > 0) {
        const int c = std::memcmp(a, b, static_cast<size_t>(common));  // memcmp compares unsigned
        if (c != 0) return c < 0;
      }
    } else {
      for (int i = 0; i < common; ++i) {
        const auto x = static_cast<Unsigned>(a[i]);
        const auto y = static_cast<Unsigned>(b[i]);
        if (x != y) return x < y;
      }
    }
    return aLength < bLength;
  }
};

}  // namespace mrl_core

#endif  // MRLBASE_SRC_CORE_STRING_CORE_H_
