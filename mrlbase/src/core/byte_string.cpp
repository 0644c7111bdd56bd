#include <mrlbase/byte_string.h>

#include <cctype>

#include "core/string_core.h"

namespace {
using Core = mrl_core::StringCore<char>;

int ViewLength(size_t size) {
  if (size > static_cast<size_t>(INT_MAX - 1)) throw std::bad_alloc();
  return static_cast<int>(size);
}
}  // namespace

CMRL_ByteString::CMRL_ByteString(const char* text, int length) { Core::Assign(m_chars, text, length); }

CMRL_ByteString::CMRL_ByteString(std::string_view text) {
  Core::Assign(m_chars, text.data(), ViewLength(text.size()));
}

CMRL_ByteString::CMRL_ByteString(const CMRL_ByteString& other) noexcept : m_chars(other.m_chars) {
  Core::AddRef(m_chars);
}

CMRL_ByteString::CMRL_ByteString(CMRL_ByteString&& other) noexcept : m_chars(other.m_chars) {
  other.m_chars = nullptr;
}

CMRL_ByteString::~CMRL_ByteString() { Core::Release(m_chars); }

CMRL_ByteString& CMRL_ByteString::operator=(const CMRL_ByteString& other) noexcept {
  if (m_chars != other.m_chars) {
    Core::AddRef(other.m_chars);
    Core::Release(m_chars);
    m_chars = other.m_chars;
  }
  return *this;
}

CMRL_ByteString& CMRL_ByteString::operator=(CMRL_ByteString&& other) noexcept {
  if (this != &other) {
    Core::Release(m_chars);
    m_chars = other.m_chars;
    other.m_chars = nullptr;
  }
  return *this;
}

CMRL_ByteString& CMRL_ByteString::operator=(const char* text) {
  Core::Assign(m_chars, text, -1);
  return *this;
}

int CMRL_ByteString::GetLength() const noexcept { return Core::Length(m_chars); }

std::string_view CMRL_ByteString::AsStringView() const noexcept {
  return std::string_view(c_str(), static_cast<size_t>(GetLength()));
}

char CMRL_ByteString::GetAt(int index) const noexcept {
  return index >= 0 && index < GetLength() ? m_chars[index] : '\0';
}

void CMRL_ByteString::SetAt(int index, char c) { Core::SetAt(m_chars, index, c); }

int CMRL_ByteString::Insert(int index, char c) { return Core::Insert(m_chars, index, c); }

int CMRL_ByteString::Delete(int index, int count) { return Core::Delete(m_chars, index, count); }

void CMRL_ByteString::MakeLower() {
  Core::MapUnits(m_chars, [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
}

void CMRL_ByteString::MakeUpper() {
  Core::MapUnits(m_chars, [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
}

void CMRL_ByteString::Reserve(int length) {
  if (length > 0 || m_chars) Core::MakeWritable(m_chars, length, false);
}

char* CMRL_ByteString::GetBuffer(int minLength) { return Core::GetBuffer(m_chars, minLength); }

void CMRL_ByteString::ReleaseBuffer(int newLength) { Core::ReleaseBuffer(m_chars, newLength); }

CMRL_ByteString& CMRL_ByteString::operator+=(const CMRL_ByteString& other) {
  if (m_chars == nullptr) return *this = other;  // share instead of copying
  Core::Append(m_chars, other.m_chars, other.GetLength());
  return *this;
}

CMRL_ByteString& CMRL_ByteString::operator+=(const char* text) {
  Core::Append(m_chars, text, Core::TextLength(text));
  return *this;
}

CMRL_ByteString& CMRL_ByteString::operator+=(char c) {
  Core::AppendUnit(m_chars, c);
  return *this;
}

bool CMRL_ByteString::operator==(const CMRL_ByteString& other) const noexcept {
  return Core::Equal(m_chars, other.m_chars, other.GetLength());
}

bool CMRL_ByteString::operator==(const char* text) const noexcept {
  return Core::Equal(m_chars, text, Core::TextLength(text));
}

bool CMRL_ByteString::operator<(const CMRL_ByteString& other) const noexcept {
  return Core::Less(m_chars, other.m_chars);
}

CMRL_ByteString operator+(const CMRL_ByteString& a, const CMRL_ByteString& b) {
  if (b.IsEmpty()) return a;
  if (a.IsEmpty()) return b;
  CMRL_ByteString result;
  result.Reserve(a.GetLength() + b.GetLength());
  result += a;
  result += b;
  return result;
}

CMRL_ByteString operator+(const CMRL_ByteString& a, const char* b) {
  CMRL_ByteString result;
  const int bLength = Core::TextLength(b);
  if (bLength == 0) return a;
  result.Reserve(Core::CheckedSum(a.GetLength(), bLength));
  result += a;
  result += b;
  return result;
}

CMRL_ByteString operator+(const char* a, const CMRL_ByteString& b) {
  const int aLength = Core::TextLength(a);
  if (aLength == 0) return b;
  CMRL_ByteString result;
  result.Reserve(Core::CheckedSum(aLength, b.GetLength()));
  result += a;
  result += b;
  return result;
}

CMRL_ByteString operator+(const CMRL_ByteString& a, char b) {
  CMRL_ByteString result;
  result.Reserve(Core::CheckedSum(a.GetLength(), 1));
  result += a;
  result += b;
  return result;
}
