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

#endif  // ZELUTILITY_TEMP_FILE_H_
