#include <new>

#include <mrlbase/stream.h>

#include "platform/platform.h"

namespace {
// Writes are gathered up to this size so that codecs writing many small pieces make few calls.
constexpr size_t kWriteBufferSize = 64 * 1024;
}  // namespace

std::unique_ptr<CMRL_FileStream> CMRL_FileStream::Open(const char* utf8Path, bool forWrite) {
  const mrl_platform::FileHandle handle = mrl_platform::OpenFile(utf8Path, forWrite);
  if (handle == mrl_platform::kNoFile) return nullptr;
  std::unique_ptr<CMRL_FileStream> stream(new (std::nothrow) CMRL_FileStream(handle, forWrite));
  if (!stream) mrl_platform::CloseFile(handle);
  return stream;
}

CMRL_FileStream::CMRL_FileStream(int handle, bool forWrite) noexcept
    : m_handle(handle), m_forWrite(forWrite) {}

CMRL_FileStream::~CMRL_FileStream() {
  Flush();
  mrl_platform::CloseFile(m_handle);
}

size_t CMRL_FileStream::GetSize() {
  uint64_t size = 0;
  if (!mrl_platform::FileSize(m_handle, size)) return 0;
  return static_cast<size_t>(size) + m_pending.size();
}

bool CMRL_FileStream::ReadBlock(void* buffer, size_t offset, size_t size) {
  if (!m_pending.empty() && !Flush()) return false;
  uint64_t fileSize = 0;
  if (!mrl_platform::FileSize(m_handle, fileSize)) return false;
  if (offset > fileSize || size > fileSize - offset) return false;
  if (size == 0) return true;
  if (!buffer) return false;
  return mrl_platform::ReadFileAt(m_handle, buffer, size, offset);
}

bool CMRL_FileStream::WriteBlock(const void* data, size_t size) {
  if (!m_forWrite || m_failed) return false;
  if (size == 0) return true;
  if (!data) return false;
  const auto* bytes = static_cast<const unsigned char*>(data);
  if (m_pending.size() + size <= kWriteBufferSize) {
    try {
      if (m_pending.capacity() < kWriteBufferSize) m_pending.reserve(kWriteBufferSize);
      m_pending.insert(m_pending.end(), bytes, bytes + size);
      return true;
    } catch (const std::bad_alloc&) {
      // Fall through and write directly.
    }
  }
  if (!Flush()) return false;
  if (!mrl_platform::WriteFile(m_handle, bytes, size)) {
    m_failed = true;
    return false;
  }
  return true;
}

bool CMRL_FileStream::Flush() {
  if (m_failed) return false;
  if (m_pending.empty()) return true;
  const bool written = mrl_platform::WriteFile(m_handle, m_pending.data(), m_pending.size());
  m_pending.clear();
  if (!written) m_failed = true;
  return written;
}
