#include <mrlbase/wide_string.h>

#include <cwctype>

#include "core/string_core.h"

namespace {
using Core = mrl_core::StringCore<wchar_t>;

int ViewLength(size_t size) {
  if (size > static_cast<size_t>(INT_MAX - 1)) throw std::bad_alloc();
  return static_cast<int>(size);
}
}  // namespace

CMRL_WideString::CMRL_WideString(const wchar_t* text, int length) { Core::Assign(m_chars, text, length); }

CMRL_WideString::CMRL_WideString(std::wstring_view text) {
  Core::Assign(m_chars, text.data(), ViewLength(text.size()));
}

CMRL_WideString::CMRL_WideString(const CMRL_WideString& other) noexcept : m_chars(other.m_chars) {
  Core::AddRef(m_chars);
}

CMRL_WideString::CMRL_WideString(CMRL_WideString&& other) noexcept : m_chars(other.m_chars) {
  other.m_chars = nullptr;
}

CMRL_WideString::~CMRL_WideString() { Core::Release(m_chars); }

CMRL_WideString& CMRL_WideString::operator=(const CMRL_WideString& other) noexcept {
  if (m_chars != other.m_chars) {
    Core::AddRef(other.m_chars);
    Core::Release(m_chars);
    m_chars = other.m_chars;
  }
  return *this;
}

CMRL_WideString& CMRL_WideString::operator=(CMRL_WideString&& other) noexcept {
  if (this != &other) {
    Core::Release(m_chars);
    m_chars = other.m_chars;
    other.m_chars = nullptr;
  }
  return *this;
}

CMRL_WideString& CMRL_WideString::operator=(const wchar_t* text) {
  Core::Assign(m_chars, text, -1);
  return *this;
}

int CMRL_WideString::GetLength() const noexcept { return Core::Length(m_chars); }

std::wstring_view CMRL_WideString::AsStringView() const noexcept {
  return std::wstring_view(c_str(), static_cast<size_t>(GetLength()));
}

wchar_t CMRL_WideString::GetAt(int index) const noexcept {
  return index >= 0 && index < GetLength() ? m_chars[index] : L'\0';
}

void CMRL_WideString::SetAt(int index, wchar_t c) { Core::SetAt(m_chars, index, c); }

int CMRL_WideString::Insert(int index, wchar_t c) { return Core::Insert(m_chars, index, c); }

int CMRL_WideString::Delete(int index, int count) { return Core::Delete(m_chars, index, count); }

void CMRL_WideString::MakeLower() {
  Core::MapUnits(m_chars, [](wchar_t c) { return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c))); });
}

void CMRL_WideString::MakeUpper() {
  Core::MapUnits(m_chars, [](wchar_t c) { return static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c))); });
}

void CMRL_WideString::Reserve(int length) {
  if (length > 0 || m_chars) Core::MakeWritable(m_chars, length, false);
}

wchar_t* CMRL_WideString::GetBuffer(int minLength) { return Core::GetBuffer(m_chars, minLength); }

void CMRL_WideString::ReleaseBuffer(int newLength) { Core::ReleaseBuffer(m_chars, newLength); }

CMRL_WideString& CMRL_WideString::operator+=(const CMRL_WideString& other) {
  if (m_chars == nullptr) return *this = other;  // share instead of copying
  Core::Append(m_chars, other.m_chars, other.GetLength());
  return *this;
}

CMRL_WideString& CMRL_WideString::operator+=(const wchar_t* text) {
  Core::Append(m_chars, text, Core::TextLength(text));
  return *this;
}

CMRL_WideString& CMRL_WideString::operator+=(wchar_t c) {
  Core::AppendUnit(m_chars, c);
  return *this;
}

bool CMRL_WideString::operator==(const CMRL_WideString& other) const noexcept {
  return Core::Equal(m_chars, other.m_chars, other.GetLength());
}

bool CMRL_WideString::operator==(const wchar_t* text) const noexcept {
  return Core::Equal(m_chars, text, Core::TextLength(text));
}

bool CMRL_WideString::operator<(const CMRL_WideString& other) const noexcept {
  return Core::Less(m_chars, other.m_chars);
}

CMRL_WideString operator+(const CMRL_WideString& a, const CMRL_WideString& b) {
  if (b.IsEmpty()) return a;
  if (a.IsEmpty()) return b;
  CMRL_WideString result;
  result.Reserve(a.GetLength() + b.GetLength());
  result += a;
  result += b;
  return result;
}

CMRL_WideString operator+(const CMRL_WideString& a, const wchar_t* b) {
  CMRL_WideString result;
  const int bLength = Core::TextLength(b);
  if (bLength == 0) return a;
  result.Reserve(Core::CheckedSum(a.GetLength(), bLength));
  result += a;
  result += b;
  return result;
}

CMRL_WideString operator+(const wchar_t* a, const CMRL_WideString& b) {
  const int aLength = Core::TextLength(a);
  if (aLength == 0) return b;
  CMRL_WideString result;
  result.Reserve(Core::CheckedSum(aLength, b.GetLength()));
  result += a;
  result += b;
  return result;
}

CMRL_WideString operator+(const CMRL_WideString& a, wchar_t b) {
  CMRL_WideString result;
  result.Reserve(Core::CheckedSum(a.GetLength(), 1));
  result += a;
  result += b;
  return result;
}
