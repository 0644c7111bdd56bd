#ifndef MRLBASE_BYTE_STRING_H_
#define MRLBASE_BYTE_STRING_H_

#include <string_view>

#include <mrlbase/export.h>

// An 8-bit string that may hold zero bytes and is always NUL-terminated.
//
// Copies share one buffer under an atomic reference count, so passing strings by value is cheap;
// every write first takes a private copy (copy-on-write). The empty string holds no buffer at all.
// Distinct objects may be used from different threads at once, even when they share a buffer;
// one object is not to be written from two threads at once.
//
//   CMRL_ByteString name("report");
//   CMRL_ByteString copy = name;        // shares the buffer
//   copy += ".txt";                     // copy now owns "report.txt"; name is still "report"
//   std::printf("%s\n", copy.c_str());
class MRL_API CMRL_ByteString {
 public:
  // The empty string; allocates nothing.
  CMRL_ByteString() noexcept = default;
  // Copies `length` bytes of `text` (zero bytes included); length < 0 reads up to the terminator.
  // A null text gives the empty string.
  CMRL_ByteString(const char* text, int length = -1);
  // Copies the bytes of the view (zero bytes included).
  CMRL_ByteString(std::string_view text);
  CMRL_ByteString(const CMRL_ByteString& other) noexcept;
  CMRL_ByteString(CMRL_ByteString&& other) noexcept;
  ~CMRL_ByteString();

  CMRL_ByteString& operator=(const CMRL_ByteString& other) noexcept;
  CMRL_ByteString& operator=(CMRL_ByteString&& other) noexcept;
  // Takes the NUL-terminated text; null gives the empty string.
  CMRL_ByteString& operator=(const char* text);

  // Number of bytes, not counting the terminator.
  int GetLength() const noexcept;
  bool IsEmpty() const noexcept { return GetLength() == 0; }
  // The bytes followed by a NUL; never null ("" when empty). Valid until the next write.
  const char* c_str() const noexcept { return m_chars ? m_chars : ""; }
  // A view over all bytes (zero bytes included).
  std::string_view AsStringView() const noexcept;

  // The byte at `index`; 0 when the index is outside the string.
  char GetAt(int index) const noexcept;
  char operator[](int index) const noexcept { return GetAt(index); }
  // Replaces the byte at `index`; no effect when the index is outside the string.
  void SetAt(int index, char c);
  // Inserts `c` before `index` (clamped to 0..length); returns the new length.
  int Insert(int index, char c);
  // Removes up to `count` bytes from `index`; returns the new length. Out-of-range: nothing removed.
  int Delete(int index, int count = 1);
  // Changes each byte with tolower/toupper of the current C locale.
  void MakeLower();
  void MakeUpper();

  // Makes room for `length` bytes without changing the contents.
  void Reserve(int length);
  // Returns a private writable buffer with room for max(minLength, length) bytes plus a NUL,
  // holding the current contents. Finish with ReleaseBuffer before any other member is used.
  char* GetBuffer(int minLength);
  // Ends GetBuffer: sets the length (< 0: up to the first NUL, at most the room asked for).
  // A length of 0 gives the empty string.
  void ReleaseBuffer(int newLength = -1);

  CMRL_ByteString& operator+=(const CMRL_ByteString& other);
  CMRL_ByteString& operator+=(const char* text);   // null appends nothing
  CMRL_ByteString& operator+=(char c);

  // Equal when the lengths and all bytes match; a null text equals the empty string.
  bool operator==(const CMRL_ByteString& other) const noexcept;
  bool operator==(const char* text) const noexcept;
  bool operator!=(const CMRL_ByteString& other) const noexcept { return !(*this == other); }
  bool operator!=(const char* text) const noexcept { return !(*this == text); }
  // Orders by unsigned bytes over the common length; a prefix comes before the longer string.
  bool operator<(const CMRL_ByteString& other) const noexcept;

 private:
  // Points at the first byte of a shared buffer whose bookkeeping lies just in front of it;
  // null for the empty string unless Reserve or GetBuffer asked for room.
  char* m_chars = nullptr;
};

MRL_API CMRL_ByteString operator+(const CMRL_ByteString& a, const CMRL_ByteString& b);
MRL_API CMRL_ByteString operator+(const CMRL_ByteString& a, const char* b);
MRL_API CMRL_ByteString operator+(const char* a, const CMRL_ByteString& b);
MRL_API CMRL_ByteString operator+(const CMRL_ByteString& a, char b);

inline bool operator==(const char* a, const CMRL_ByteString& b) noexcept { return b == a; }
inline bool operator!=(const char* a, const CMRL_ByteString& b) noexcept { return b != a; }

#endif  // MRLBASE_BYTE_STRING_H_
