#include <cstring>
#include <new>
#include <stdexcept>

#include <mrlbase/stream.h>

CMRL_MemoryStream::CMRL_MemoryStream() = default;

CMRL_MemoryStream::CMRL_MemoryStream(const void* data, size_t size) {
  if (data && size > 0) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    m_data.assign(bytes, bytes + size);
  }
}

CMRL_MemoryStream::~CMRL_MemoryStream() = default;

size_t CMRL_MemoryStream::GetSize() { return m_data.size(); }

bool CMRL_MemoryStream::ReadBlock(void* buffer, size_t offset, size_t size) {
  if (offset > m_data.size() || size > m_data.size() - offset) return false;
  if (size == 0) return true;
  if (!buffer) return false;
  std::memcpy(buffer, m_data.data() + offset, size);
  return true;
}

bool CMRL_MemoryStream::WriteBlock(const void* data, size_t size) {
  if (size == 0) return true;
  if (!data) return false;
  try {
    const auto* bytes = static_cast<const unsigned char*>(data);
    m_data.insert(m_data.end(), bytes, bytes + size);  // geometric growth; strong guarantee
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
  return true;
}

bool CMRL_MemoryStream::Flush() { return true; }

const unsigned char* CMRL_MemoryStream::GetData() const noexcept { return m_data.data(); }

std::vector<unsigned char> CMRL_MemoryStream::TakeData() noexcept {
  std::vector<unsigned char> taken;
  taken.swap(m_data);
  return taken;
}
