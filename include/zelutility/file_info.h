#ifndef ZELUTILITY_FILE_INFO_H_
#define ZELUTILITY_FILE_INFO_H_

// What a path is, and the two file operations of the library that change the file system.
//
// Narrow paths are UTF-8. Both separators are accepted.
//
//   ZELFileInfo info("/var/data/", -1);          // the final separator is dropped before asking
//   if (info.IsDir()) { ... }
//   int flags = GetFileFlags("/var/data/a.pdf");  // 51: exists, regular file, readable, writable
//   LXCreateFile("/var/out/2024/report.txt");     // makes the missing folders and an empty file
//
// Threads: no state; calls run at once. Calls on the same paths at once meet in the file system,
// not in the library: two copies to one target, or a status taken while a file is being made,
// see whatever the file system holds at that moment.

#include <memory>

#include <zelutility/export.h>

// File flags: the values that CheckFilePath and GetFileFlags take and give. Every result that
// holds one of the properties also holds ZELFile_Exists.
enum ZELFileFlag : int {
  ZELFile_Exists = 1,
  ZELFile_Regular = 2,
  ZELFile_Directory = 4,
  ZELFile_Readable = 16,
  ZELFile_Writable = 32,
};

// A snapshot of a path's status, taken once in the constructor. All queries answer false when
// the path has no status (missing, unreadable, empty or null path).
class ZEL_API ZELFileInfo {
 public:
  // Reads `length` bytes of a UTF-8 path (below 0: up to the terminator; null: empty). Forward
  // slashes become backslashes, one final separator is dropped, and a path ending in a drive
  // colon gets its root back ("C:/" and "C:" ask for "C:\").
  ZELFileInfo(const char* path, int length);
  // The same for a wide path.
  ZELFileInfo(const wchar_t* path, int length);
  ZELFileInfo(const ZELFileInfo& other);
  ~ZELFileInfo();
  // The target then answers as `other` does.
  ZELFileInfo& operator=(const ZELFileInfo& other);

  bool IsExists() const noexcept;      // the path had a status
  bool IsFile() const noexcept;        // a regular file
  bool IsDir() const noexcept;         // a directory
  bool ReadEnable() const noexcept;    // readable by the owner
  bool WriteEnable() const noexcept;   // writable by the owner

 private:
  struct Status;
  std::unique_ptr<Status> status_;   // null: the path had no status
};

// Whether the asked properties hold: 0 for a null, empty or missing path and for `flags` without
// ZELFile_Exists (the switch of the operation); otherwise 1 plus those of ZELFile_Regular,
// ZELFile_Directory, ZELFile_Readable, ZELFile_Writable that were asked for and hold.
ZEL_API int CheckFilePath(const char* path, int flags);
ZEL_API int CheckFilePath(const wchar_t* path, int flags);

// All properties at once: 0 for a null, empty or missing path, else 3 for a regular file, 5 for a
// directory, 1 for anything else, plus 16 when readable and 32 when writable.
ZEL_API int GetFileFlags(const char* path);
ZEL_API int GetFileFlags(const wchar_t* path);

// Copies a file in 4096-byte blocks; the target is emptied first. Nothing is reported: a source
// that cannot be opened leaves the target untouched, and a failed read or write leaves a shorter
// target.
ZEL_API void LXCopyFile(const char* source, const char* target);

// Makes the file `path` and every missing folder above it; an existing file stays unchanged.
// False when the file cannot be made (an empty path, or one ending in a separator, included);
// the folders this call made are then removed again, those that were there before stay.
ZEL_API bool LXCreateFile(const char* path);

#endif  // ZELUTILITY_FILE_INFO_H_
