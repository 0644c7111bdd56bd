#ifndef MRLBASE_SRC_PLATFORM_PLATFORM_H_
#define MRLBASE_SRC_PLATFORM_PLATFORM_H_

// The operating-system seam of mrlbase: locale codesets, codeset conversion and files.
// Everything else in the library is written against these declarations only.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace mrl_platform {

// The codeset name of the calling thread's LC_CTYPE locale, e.g. "UTF-8" or "ISO-8859-1".
std::string LocalCodeset();

// True for the names of UTF-8 and of plain ASCII (which is read and written as UTF-8), and for
// an empty or null name.
bool IsUtf8Codeset(const char* codeset) noexcept;

// IsUtf8Codeset of the calling thread's LC_CTYPE codeset, without allocating.
bool LocalCodesetIsUtf8() noexcept;

// The codeset name under which the converter exchanges wide text (wchar_t units).
const char* WideCodeset() noexcept;

// Converts between two codesets, one step at a time, so the caller decides what to do with bytes
// that do not convert.
class CodesetConverter {
 public:
  enum class Status {
    kDone,        // all input converted
    kInvalid,     // the input at `in` cannot be converted (ill-formed or not representable)
    kIncomplete,  // the input ends inside a multi-byte sequence
    kOutputFull,  // the output has no room left; call again with more
  };

  // A converter from `from` to `to`; null when the pair is not supported.
  static std::unique_ptr<CodesetConverter> Open(const char* to, const char* from);
  virtual ~CodesetConverter() = default;

  // Converts as much as fits, advancing in/inLeft and out/outLeft past what was done.
  virtual Status Convert(const char*& in, size_t& inLeft, char*& out, size_t& outLeft) = 0;
  // Returns to the initial shift state, dropping any partial input state.
  virtual void Reset() = 0;
  // Writes what returns the output to its initial shift state (nothing for most codesets).
  virtual Status Finish(char*& out, size_t& outLeft) = 0;
};

// A file handle; -1 is no file.
using FileHandle = int;
constexpr FileHandle kNoFile = -1;

// Opens a regular file: for reading, or for reading and writing after creating or truncating it.
// kNoFile on failure (missing, no permission, a folder).
FileHandle OpenFile(const char* path, bool forWrite) noexcept;
void CloseFile(FileHandle handle) noexcept;
// Reads exactly `size` bytes at `offset`; false on an error or when the file ends first.
bool ReadFileAt(FileHandle handle, void* buffer, size_t size, uint64_t offset) noexcept;
// Writes all `size` bytes at the current position; false on an error.
bool WriteFile(FileHandle handle, const void* data, size_t size) noexcept;
// The current size of the file; false on an error.
bool FileSize(FileHandle handle, uint64_t& size) noexcept;

}  // namespace mrl_platform

#endif  // MRLBASE_SRC_PLATFORM_PLATFORM_H_
