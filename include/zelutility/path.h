#ifndef ZELUTILITY_PATH_H_
#define ZELUTILITY_PATH_H_

// Cutting, joining and rewriting path text.
//
// Readers take the forward slash and the backslash alike as separators. All scanning is by
// bytes: only "/", "\" and "." count, so UTF-8 and local multi-byte paths go through unchanged.
// Nothing here looks at the file system, except GetAppPath and GetDllPath, which ask where a
// module lies.
//
//   std::string p = PathJoin("out", "/pages", "p1.png", nullptr);   // "out/pages/p1.png"
//   const char* ext = GetFileExt(p.c_str(), -1);                     // ".png"
//   CMRL_ByteString stem = GetFileName(p.c_str(), -1);               // "p1"
//
// A length argument below 0 means the path runs to its terminator; otherwise it is the number of
// bytes to look at.
//
// Threads: no state; any number of calls at once. The in-place forms change the caller's text,
// which is for one thread at a time. MakeTempFilename gives equal texts within one second.

#include <string>

#include <mrlbase/byte_string.h>
#include <zelutility/export.h>

// Replaces every "/" and "\" by `separator`; nothing else changes (doubled separators stay).
// A null or empty path gives "".
ZEL_API std::string ConvertPathSep(const char* path, char separator);

// The same in place; returns `path`. Null gives null, an empty text is left alone.
ZEL_API char* ConvertPathSep(char* path, char separator);

// The same in place over the whole length of the string.
ZEL_API void ConvertPathSep(std::string& path, char separator);

// ConvertPathSep with the native separator, the backslash, form for form.
ZEL_API std::string ToNativePathSep(const char* path);
ZEL_API char* ToNativePathSep(char* path);
ZEL_API void ToNativePathSep(std::string& path);

// Joins pieces with "/". The list after `first` and `second` ends at the first null pointer,
// which must always be passed: PathJoin("a", "b", nullptr) gives "a/b". Null `first` or `second`
// count as empty. Empty pieces are skipped. A piece that is not the first text of the result
// loses one leading separator, and "/" goes between unless the result already ends in "/" or
// "\". Nothing else is normalised: PathJoin("a\\", "b", nullptr) gives "a\b".
ZEL_API std::string PathJoin(const char* first, const char* second, ...);

// Pointer to the last "." of the path, searched from its last byte backward across separators
// ("dir.d/file" gives ".d/file"); the text runs to the terminator even with a length. No dot or
// a length of 0: a constant "". `path` must not be null.
ZEL_API const char* GetFileExt(const char* path, int length);

// The last component without its extension: "C:\d\n.txt" gives "n", ".cfg" gives "". The dot is
// looked for only behind the last separator. `path` must not be null.
ZEL_API CMRL_ByteString GetFileName(const char* path, int length);

// Pointer behind the last separator ("d/n.txt" gives "n.txt"). A path without any separator,
// or a length of 0, gives a constant "" (a bare name has no result). `path` must not be null.
ZEL_API const char* GetFileNameWithExt(const char* path, int length);

// Folder of the running program in UTF-8, ending in its separator ("/opt/app/"); "" when the
// system does not tell.
ZEL_API CMRL_ByteString GetAppPath();

// Folder of the loaded module `moduleName` in UTF-8, without the final separator
// ("/usr/lib/x86_64-linux-gnu"). The name may leave out the version suffix ("libz.so" finds
// "libz.so.1"). A null name or a module that is not loaded gives the program's folder.
ZEL_API CMRL_ByteString GetDllPath(const char* moduleName);

// prefix + the current time in seconds (low 32 bits, decimal) + suffix, e.g. "scan1732230000.tmp".
// Null counts as empty. No folder is added and no file is made; two calls in the same second
// with the same arguments give the same text.
ZEL_API std::string MakeTempFilename(const char* prefix, const char* suffix);

#endif  // ZELUTILITY_PATH_H_
