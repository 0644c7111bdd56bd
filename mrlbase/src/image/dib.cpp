#include <mrlbase/dib.h>

#include <cstdint>
#include <cstring>
#include <new>

#include "image/dib_layout.h"

using mrl_image::BitsPerPixel;

CCA_Dib::~CCA_Dib() { Reset(); }

void CCA_Dib::Reset() noexcept {
  if (m_ownsBuffer) delete[] m_buffer;
  m_buffer = nullptr;
  m_ownsBuffer = false;
  m_width = m_height = m_pitch = m_bpp = 0;
  m_format = CA_DIB_Invalid;
  m_palette.clear();
}

bool CCA_Dib::Create(int width, int height, CA_DibFormat format, unsigned char* buffer, int pitch) {
  Reset();
  const int bpp = BitsPerPixel(format);
  if (bpp == 0 || width <= 0 || height <= 0 || pitch < 0) return false;
  const int64_t rowBits = static_cast<int64_t>(width) * bpp;
  const int64_t rowBytes = (rowBits + 7) / 8;
  const int64_t alignedPitch = (rowBits + 31) / 32 * 4;
  const int64_t usedPitch = pitch == 0 ? alignedPitch : pitch;
  if (usedPitch < rowBytes || usedPitch > INT32_MAX) return false;
  const uint64_t size = static_cast<uint64_t>(usedPitch) * static_cast<uint64_t>(height);
  if (size > static_cast<uint64_t>(PTRDIFF_MAX)) return false;

  std::vector<unsigned> palette;
  try {
    if (format == CA_DIB_1bpp) {
      palette = {0x000000u, 0xFFFFFFu};
    } else if (format == CA_DIB_8bpp) {
      palette.resize(256);
      for (unsigned i = 0; i < 256; ++i) palette[i] = i * 0x010101u;
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (buffer == nullptr) {
    buffer = new (std::nothrow) unsigned char[static_cast<size_t>(size)]();
    if (buffer == nullptr) return false;
    m_ownsBuffer = true;
  }
  m_buffer = buffer;
  m_width = width;
  m_height = height;
  m_pitch = static_cast<int>(usedPitch);
  m_bpp = bpp;
  m_format = format;
  m_palette.swap(palette);
  return true;
}

unsigned char* CCA_Dib::GetScanline(int y) const noexcept {
  if (m_buffer == nullptr || y < 0 || y >= m_height) return nullptr;
  return m_buffer + static_cast<ptrdiff_t>(y) * m_pitch;
}

unsigned CCA_Dib::GetPixel(const CMRL_PSVTemplate<int>& p) const noexcept {
  if (m_buffer == nullptr || p.x < 0 || p.y < 0 || p.x >= m_width || p.y >= m_height) return 0;
  const unsigned char* row = m_buffer + static_cast<ptrdiff_t>(p.y) * m_pitch;
  switch (m_bpp) {
    case 1: return (row[p.x >> 3] >> (7 - (p.x & 7))) & 1u;
    case 8: return row[p.x];
    case 24: {
      const unsigned char* px = row + static_cast<ptrdiff_t>(p.x) * 3;
      return px[0] | (px[1] << 8) | (static_cast<unsigned>(px[2]) << 16);
    }
    case 32: {
      const unsigned char* px = row + static_cast<ptrdiff_t>(p.x) * 4;
      return px[0] | (px[1] << 8) | (static_cast<unsigned>(px[2]) << 16) | (static_cast<unsigned>(px[3]) << 24);
    }
    default: return 0;
  }
}

void CCA_Dib::SetPixel(const CMRL_PSVTemplate<int>& p, unsigned value) noexcept {
  if (m_buffer == nullptr || p.x < 0 || p.y < 0 || p.x >= m_width || p.y >= m_height) return;
  unsigned char* row = m_buffer + static_cast<ptrdiff_t>(p.y) * m_pitch;
  switch (m_bpp) {
    case 1: {
      const unsigned char bit = static_cast<unsigned char>(0x80u >> (p.x & 7));
      if (value & 1u) {
        row[p.x >> 3] |= bit;
      } else {
        row[p.x >> 3] &= static_cast<unsigned char>(~bit);
      }
      break;
    }
    case 8: row[p.x] = static_cast<unsigned char>(value); break;
    case 24: {
      unsigned char* px = row + static_cast<ptrdiff_t>(p.x) * 3;
      px[0] = static_cast<unsigned char>(value);
      px[1] = static_cast<unsigned char>(value >> 8);
      px[2] = static_cast<unsigned char>(value >> 16);
      break;
    }
    case 32: {
      unsigned char* px = row + static_cast<ptrdiff_t>(p.x) * 4;
      px[0] = static_cast<unsigned char>(value);
      px[1] = static_cast<unsigned char>(value >> 8);
      px[2] = static_cast<unsigned char>(value >> 16);
      px[3] = static_cast<unsigned char>(value >> 24);
      break;
    }
    default: break;
  }
}

unsigned CCA_Dib::GetPaletteEntry(int index) const noexcept {
  if (index < 0 || index >= GetPaletteSize()) return 0;
  return m_palette[static_cast<size_t>(index)];
}

bool CCA_Dib::SetPalette(const unsigned* entries, int count) {
  int limit = 0;
  if (m_format == CA_DIB_1bpp) limit = 2;
  if (m_format == CA_DIB_8bpp) limit = 256;
  if (entries == nullptr || count < 1 || count > limit) return false;
  try {
    std::vector<unsigned> palette(entries, entries + count);
    for (unsigned& entry : palette) entry &= 0xFFFFFFu;
    m_palette.swap(palette);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

CCA_Dib* CCA_Dib::Clone() const {
  if (m_buffer == nullptr) return nullptr;
  CCA_Dib* copy = new (std::nothrow) CCA_Dib;
  if (copy == nullptr) return nullptr;
  if (!copy->Create(m_width, m_height, m_format, nullptr, m_pitch)) {
    delete copy;
    return nullptr;
  }
  std::memcpy(copy->m_buffer, m_buffer, static_cast<size_t>(m_pitch) * static_cast<size_t>(m_height));
  try {
    copy->m_palette = m_palette;
  } catch (const std::bad_alloc&) {
    delete copy;
    return nullptr;
  }
  return copy;
}
