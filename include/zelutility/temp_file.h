#ifndef ZELUTILITY_TEMP_FILE_H_
#define ZELUTILITY_TEMP_FILE_H_

// A name for a temporary file, kept for the object's life and removed with it.
//
// The object never creates the file; the caller does, under getFilePath(). The name is
// [prefix "_"] [process id "_"] [five digits] ["_" suffix] ["." extension], glued directly to the
// folder, which must end in a separator. The digits come from the C runtime's generator, seeded
// with the current second on every call (which reseeds it for the whole process), so two objects
// with the same settings in the same second and process get the same name. Paths are in the
// local encoding.
//
// Threads: objects are independent; one object is for one thread at a time. Names made at once
// on several threads follow the same rule as on one: equal settings in the same second give
// equal names. The digits are worked out on a generator state of the call's own, so other
// threads using rand() meanwhile do not change them; the reseed of the shared generator with the
// second still happens, and it moves what rand() gives every other thread of the process.
//
//   TempFile temp;                 // in the system's temporary folder
//   temp.setPrefix("scan");
//   temp.setFileExt("png");
//   temp.generateFilePath();       // e.g. "/tmp/scan_4711_40721.png"
//   std::FILE* f = std::fopen(temp.getFilePath().c_str(), "wb");
//   ...                            // the file is removed when `temp` ends

#include <string>

#include <zelutility/export.h>

class ZEL_API TempFile {
 public:
  // The folder is getSystemTempDir().
  TempFile();
  // The folder is `directory` unchanged (an empty text stays empty); null: as without argument.
  explicit TempFile(const char* directory);
  TempFile(const TempFile& other);
  TempFile& operator=(const TempFile& other);
  // Removes the file at the generated path when auto removal is on; a missing file is no error.
  ~TempFile();

  // Whether the destructor removes the file (default true).
  void setAutoRemove(bool autoRemove);
  // Whether the name carries the process id (default true).
  void setUseAppID(bool useAppId);
  // Whether the name carries the five random digits (default true).
  void setUseRandomNumber(bool useRandomNumber);
  // Name pieces; null leaves the piece unchanged, "" empties it. The extension is given without
  // its dot. They count only until generateFilePath has made the path.
  void setPrefix(const char* prefix);
  void setSuffix(const char* suffix);
  void setFileExt(const char* fileExt);

  // Makes the path once: folder followed directly by a new name. Later calls change nothing.
  void generateFilePath();

  // The folder given to the constructor, or the system's.
  const std::string& getDir() const noexcept;
  // "" until generateFilePath has run.
  const std::string& getFilePath() const noexcept;

  // The system's folder for temporary files, ending in its separator; "" when it is unknown.
  static std::string getSystemTempDir();

 private:
  std::string generateFileName() const;

  bool m_autoRemove = true;
  bool m_useAppId = true;
  bool m_useRandomNumber = true;
  std::string m_prefix;
  std::string m_suffix;
  std::string m_fileExt;
  std::string m_dir;
  std::string m_filePath;
};

// Creates a new, empty file that no other thread or process can have made under the same name:
// `directory` (null: TempFile::getSystemTempDir(); a missing closing separator is added) followed
// by [prefix "_"] process id "_" twelve random letters and digits ["." extension]. The file is
// readable and writable by its owner only, and its descriptor is not inherited by started
// programs. A taken name is retried with new letters a bounded number of times.
// Answers an open read/write descriptor that the caller closes, and sets `path`; answers -1 with
// `path` empty when the file cannot be made (missing or unwritable folder, an empty `directory`, a
// prefix or extension holding a separator). Null or empty prefix and extension are left out.
// Threads: every call at once; the random letters come from a generator of the call's own,
// seeded from the system's entropy, so the C runtime's rand() is neither read nor moved.
ZEL_API int CreateUniqueTempFile(const char* directory, const char* prefix, const char* extension, std::string& path);

// A file made by CreateUniqueTempFile, owned with its descriptor: both are closed and removed
// when the object ends. An object whose creation failed is invalid (descriptor -1, path "").
//
//   UniqueTempFile temp(nullptr, "scan", "png");
//   if (temp.valid()) write(temp.descriptor(), bytes, size);   // removed when `temp` ends
//
// Threads: objects are independent; one object is for one thread at a time.
class ZEL_API UniqueTempFile {
 public:
  // Makes the file as CreateUniqueTempFile does with the same arguments.
  UniqueTempFile(const char* directory, const char* prefix, const char* extension);
  // Takes the file over; `other` is left invalid and removes nothing.
  UniqueTempFile(UniqueTempFile&& other) noexcept;
  // Removes this object's own file first, then takes over `other`'s.
  UniqueTempFile& operator=(UniqueTempFile&& other) noexcept;
  UniqueTempFile(const UniqueTempFile&) = delete;
  UniqueTempFile& operator=(const UniqueTempFile&) = delete;
  // Closes the descriptor and removes the file at path(), if any.
  ~UniqueTempFile();

  // Whether the file was made and is still owned.
  bool valid() const noexcept;
  // The open read/write descriptor; -1 when invalid. Do not close it: the object does.
  int descriptor() const noexcept;
  // The file's path in the local encoding; "" when invalid.
  const std::string& path() const noexcept;
  // Gives up ownership: closes the descriptor but keeps the file, and answers its path; the
  // object becomes invalid.
  std::string release();

 private:
  void reset() noexcept;

  int m_descriptor = -1;
  std::string m_path;
};

#endif  // ZELUTILITY_TEMP_FILE_H_
