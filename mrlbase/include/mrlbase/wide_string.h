#ifndef MRLBASE_WIDE_STRING_H_
#define MRLBASE_WIDE_STRING_H_

#include <string_view>

#include <mrlbase/export.h>

// A wide string of wchar_t units (one code point per unit on Linux) that may hold zero units and is
// always NUL-terminated. It has the same members and sharing rules as CMRL_ByteString: copies share
// one buffer under an atomic reference count, every write first takes a private copy, and the empty
// string holds no buffer.
//
// Threads: as CMRL_ByteString: distinct objects at once, even when they share a buffer; one
// object is not to be written from two threads at once.
//
//   CMRL_WideString title(L"Zoom");
//   title += L'\x2192';                  // one unit per code point
//   CMRL_ByteString utf8 = CMRL_ByteStringConverter::unicode_to_utf8(title.c_str(), title.GetLength());
class MRL_API CMRL_WideString {
 public:
  // The empty string; allocates nothing.
  CMRL_WideString() noexcept = default;
  // Copies `length` units of `text` (zero units included); length < 0 reads up to the terminator.
  // A null text gives the empty string.
  CMRL_WideString(const wchar_t* text, int length = -1);
  // Copies the units of the view (zero units included).
  CMRL_WideString(std::wstring_view text);
  CMRL_WideString(const CMRL_WideString& other) noexcept;
  CMRL_WideString(CMRL_WideString&& other) noexcept;
  ~CMRL_WideString();

  CMRL_WideString& operator=(const CMRL_WideString& other) noexcept;
  CMRL_WideString& operator=(CMRL_WideString&& other) noexcept;
  // Takes the NUL-terminated text; null gives the empty string.
  CMRL_WideString& operator=(const wchar_t* text);

  // Number of units, not counting the terminator.
  int GetLength() const noexcept;
  bool IsEmpty() const noexcept { return GetLength() == 0; }
  // The units followed by a NUL; never null ("" when empty). Valid until the next write.
  const wchar_t* c_str() const noexcept { return m_chars ? m_chars : L""; }
  // A view over all units (zero units included).
  std::wstring_view AsStringView() const noexcept;

  // The unit at `index`; 0 when the index is outside the string.
  wchar_t GetAt(int index) const noexcept;
  wchar_t operator[](int index) const noexcept { return GetAt(index); }
  // Replaces the unit at `index`; no effect when the index is outside the string.
  void SetAt(int index, wchar_t c);
  // Inserts `c` before `index` (clamped to 0..length); returns the new length.
  int Insert(int index, wchar_t c);
  // Removes up to `count` units from `index`; returns the new length. Out-of-range: nothing removed.
  int Delete(int index, int count = 1);
  // Changes each unit with towlower/towupper of the current C locale.
  void MakeLower();
  void MakeUpper();

  // Makes room for `length` units without changing the contents.
  void Reserve(int length);
  // Returns a private writable buffer with room for max(minLength, length) units plus a NUL,
  // holding the current contents. Finish with ReleaseBuffer before any other member is used.
  wchar_t* GetBuffer(int minLength);
  // Ends GetBuffer: sets the length (< 0: up to the first NUL, at most the room asked for).
  // A length of 0 gives the empty string.
  void ReleaseBuffer(int newLength = -1);

  CMRL_WideString& operator+=(const CMRL_WideString& other);
  CMRL_WideString& operator+=(const wchar_t* text);   // null appends nothing
  CMRL_WideString& operator+=(wchar_t c);

  // Equal when the lengths and all units match; a null text equals the empty string.
  bool operator==(const CMRL_WideString& other) const noexcept;
  bool operator==(const wchar_t* text) const noexcept;
  bool operator!=(const CMRL_WideString& other) const noexcept { return !(*this == other); }
  bool operator!=(const wchar_t* text) const noexcept { return !(*this == text); }
  // Orders by unsigned units over the common length; a prefix comes before the longer string.
  bool operator<(const CMRL_WideString& other) const noexcept;

 private:
  // Points at the first unit of a shared buffer whose bookkeeping lies just in front of it;
  // null for the empty string unless Reserve or GetBuffer asked for room.
  wchar_t* m_chars = nullptr;
};

MRL_API CMRL_WideString operator+(const CMRL_WideString& a, const CMRL_WideString& b);
MRL_API CMRL_WideString operator+(const CMRL_WideString& a, const wchar_t* b);
MRL_API CMRL_WideString operator+(const wchar_t* a, const CMRL_WideString& b);
MRL_API CMRL_WideString operator+(const CMRL_WideString& a, wchar_t b);

inline bool operator==(const wchar_t* a, const CMRL_WideString& b) noexcept { return b == a; }
inline bool operator!=(const wchar_t* a, const CMRL_WideString& b) noexcept { return b != a; }

#endif  // MRLBASE_WIDE_STRING_H_
