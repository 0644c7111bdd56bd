#ifndef ZELUTILITY_SRC_BASE_PLATFORM_H_
#define ZELUTILITY_SRC_BASE_PLATFORM_H_

// The one seam between zelutility and the operating system. Everything that asks the system
// about modules, processes, the clock or the file system goes through here, so that another
// platform is one more implementation file and not a search through the library.
//
// Internal: nothing here is exported from the shared library.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace zel::platform {

// Mode bits of a file status, in the library's own layout (independent of the system's):
// exactly one of the kind bits, then the owner's permissions.
inline constexpr unsigned kModeRegular = 0x8000;
inline constexpr unsigned kModeDirectory = 0x4000;
inline constexpr unsigned kModeCharDevice = 0x2000;
inline constexpr unsigned kModeOwnerRead = 0x0100;
inline constexpr unsigned kModeOwnerWrite = 0x0080;

// What the library keeps of a file status.
struct FileStatus {
  unsigned mode = 0;
};

// Full path of the running program, in the bytes the system gives (the local encoding).
// Empty when the system does not tell.
std::string MainModulePath();

// Full path of the loaded module whose file name is `name` (a path, a file name, or a file name
// without its version suffix: "libz.so" finds "libz.so.1"). Empty when no such module is loaded.
std::string LoadedModulePath(const char* name);

// The separator that closes the folder texts of this platform and that module paths are cut at.
inline constexpr char kFolderSeparator = '/';

// The system's folder for temporary files, closed with kFolderSeparator; empty when unknown.
std::string TempDirectory();

// Number of the current process.
std::uint32_t ProcessId() noexcept;

// Seconds since the epoch.
std::int64_t CurrentTime() noexcept;

// Writes to `values` the first `count` numbers that the C runtime's rand() gives after
// srand(seed), drawn from a generator state of this call alone: the process-wide generator is
// neither read nor moved, so other threads seeding or drawing at the same time change nothing.
void SeededRandSequence(unsigned seed, int* values, int count) noexcept;

// Status of the file at a wide path (backslashes count as separators). False when the path has
// no status; `status` is then untouched.
bool StatPath(const std::wstring& path, FileStatus& status);

// The folder and file operations below take a narrow path in the bytes the system uses;
// backslashes count as separators.

// Whether the path exists.
bool PathExists(const std::string& path);

// Makes one folder; false when it could not be made.
bool MakeDirectory(const std::string& path);

// Removes one empty folder; false when it could not be removed.
bool RemoveDirectory(const std::string& path);

// Removes a file, never a folder, at exactly the path given (no separator is rewritten, since the
// caller made the file under this text); false when nothing was removed.
bool RemoveFile(const char* path);

// Creates the file at `path` only if no file or folder has that name yet, open for reading and
// writing, readable and writable by its owner alone and not handed to started programs. Answers
// the descriptor, or -1; `nameTaken` then tells whether the name already existed.
int CreateNewFile(const char* path, bool& nameTaken) noexcept;

// Closes a descriptor from CreateNewFile; a negative one is ignored.
void CloseDescriptor(int descriptor) noexcept;

// An open C stream that closes itself.
struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// Opens a file with a C stream mode (backslashes count as separators); null when it could not
// be opened.
FilePtr OpenFile(const char* path, const char* mode);

}  // namespace zel::platform

#endif  // ZELUTILITY_SRC_BASE_PLATFORM_H_
