#ifndef MRLBASE_STREAM_H_
#define MRLBASE_STREAM_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <mrlbase/export.h>

// Threads: a stream is for one thread at a time; different streams, also over the same file or
// the same bytes, may be used at once.

// A source of bytes with random access (codecs read images through it).
class MRL_API IMRL_StreamRead {
 public:
  virtual ~IMRL_StreamRead();
  // Total number of bytes.
  virtual size_t GetSize() = 0;
  // Copies `size` bytes starting at `offset` into buffer; false, with nothing promised about the
  // buffer, when the range does not lie inside the stream or reading fails. size 0 in range: true.
  virtual bool ReadBlock(void* buffer, size_t offset, size_t size) = 0;
};

// A sink of bytes written one block after the other (codecs write images through it).
class MRL_API IMRL_StreamWrite {
 public:
  virtual ~IMRL_StreamWrite();
  // Appends `size` bytes; false when they cannot all be written.
  virtual bool WriteBlock(const void* data, size_t size) = 0;
  // Pushes buffered bytes on; false when that fails.
  virtual bool Flush() = 0;
};

// A stream over a growing buffer in memory: writes append, reads see everything written so far.
//
//   CMRL_MemoryStream out;
//   encoder->Encode(dib, &out);
//   save(out.GetData(), out.GetSize());
class MRL_API CMRL_MemoryStream : public IMRL_StreamRead, public IMRL_StreamWrite {
 public:
  CMRL_MemoryStream();
  // Starts with a copy of `size` bytes of data (nothing when data is null).
  CMRL_MemoryStream(const void* data, size_t size);
  ~CMRL_MemoryStream() override;

  size_t GetSize() override;
  bool ReadBlock(void* buffer, size_t offset, size_t size) override;
  // Appends; false (contents kept) when the buffer cannot grow.
  bool WriteBlock(const void* data, size_t size) override;
  // Nothing is buffered outside the stream: always true.
  bool Flush() override;

  // The bytes written so far; may be null while the stream is empty.
  const unsigned char* GetData() const noexcept;
  // Moves the bytes out, leaving the stream empty.
  std::vector<unsigned char> TakeData() noexcept;

 private:
  std::vector<unsigned char> m_data;
};

// A stream over a file, opened for reading or for writing (created or truncated). The file is
// closed when the object goes away; buffered writes are flushed then.
//
//   auto in = CMRL_FileStream::Open("/tmp/photo.jpg", false);
//   if (!in) return false;                   // missing or unreadable
//   std::vector<unsigned char> head(16);
//   in->ReadBlock(head.data(), 0, head.size());
class MRL_API CMRL_FileStream : public IMRL_StreamRead, public IMRL_StreamWrite {
 public:
  // Opens the file at the UTF-8 path; null when it cannot be opened (a folder counts as failure).
  static std::unique_ptr<CMRL_FileStream> Open(const char* utf8Path, bool forWrite);

  CMRL_FileStream(const CMRL_FileStream&) = delete;
  CMRL_FileStream& operator=(const CMRL_FileStream&) = delete;
  ~CMRL_FileStream() override;

  // Size of the file, bytes still buffered for writing included.
  size_t GetSize() override;
  // Reads the range from the file (buffered writes are flushed first).
  bool ReadBlock(void* buffer, size_t offset, size_t size) override;
  // Appends at the end of what was written; false on a read-only stream or a write error.
  bool WriteBlock(const void* data, size_t size) override;
  // Hands buffered bytes to the operating system; false on a write error.
  bool Flush() override;

 private:
  CMRL_FileStream(int handle, bool forWrite) noexcept;

  int m_handle;
  bool m_forWrite;
  bool m_failed = false;
  std::vector<unsigned char> m_pending;
};

#endif  // MRLBASE_STREAM_H_
