#include <mrlbase/byte_string_converter.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>

#include "core/byte_string_converter_internal.h"
#include "platform/platform.h"

namespace {

constexpr wchar_t kReplacement = 0xFFFD;
constexpr uint64_t kHighBits = 0x8080808080808080ull;

size_t CheckedLength(size_t length) {
  if (length > static_cast<size_t>(INT_MAX - 1)) throw std::bad_alloc();
  return length;
}

size_t ByteLength(const char* text, int length) {
  if (!text) return 0;
  return length < 0 ? std::strlen(text) : static_cast<size_t>(length);
}

size_t WideLength(const wchar_t* text, int length) {
  if (!text) return 0;
  return length < 0 ? std::wcslen(text) : static_cast<size_t>(length);
}

// Decodes UTF-8 into `out` (room for `length` units: one byte never yields two units) and returns
// the number of units written. Each maximal subpart of an ill-formed sequence becomes one U+FFFD:
// the lead byte plus the continuation bytes that were still allowed after it.
size_t DecodeUtf8(const unsigned char* in, size_t length, wchar_t* out) noexcept {
  size_t i = 0;
  size_t o = 0;
  while (i < length) {
    unsigned lead = in[i];
    if (lead < 0x80) {
      // ASCII runs go eight bytes at a time, then byte by byte up to the next non-ASCII byte.
      while (i + 8 <= length) {
        uint64_t block;
        std::memcpy(&block, in + i, sizeof block);
        if (block & kHighBits) break;
        for (int k = 0; k < 8; ++k) out[o + k] = static_cast<wchar_t>(in[i + k]);
        i += 8;
        o += 8;
      }
      while (i < length && in[i] < 0x80) out[o++] = static_cast<wchar_t>(in[i++]);
      if (i >= length) break;
      lead = in[i];
    }
    // Well-formed multi-byte characters take a short path; anything else the careful one below.
    if (lead < 0xE0) {
      if (lead >= 0xC2 && i + 1 < length && (in[i + 1] & 0xC0) == 0x80) {
        out[o++] = static_cast<wchar_t>(((lead & 0x1F) << 6) | (in[i + 1] & 0x3F));
        i += 2;
        continue;
      }
    } else if (lead < 0xF0) {
      if (i + 2 < length && (in[i + 1] & 0xC0) == 0x80 && (in[i + 2] & 0xC0) == 0x80) {
        const uint32_t cp = ((lead & 0x0F) << 12) | ((in[i + 1] & 0x3Fu) << 6) | (in[i + 2] & 0x3Fu);
        if (cp >= 0x800 && (cp < 0xD800 || cp > 0xDFFF)) {
          out[o++] = static_cast<wchar_t>(cp);
          i += 3;
          continue;
        }
      }
    } else if (i + 3 < length && (in[i + 1] & 0xC0) == 0x80 && (in[i + 2] & 0xC0) == 0x80 &&
               (in[i + 3] & 0xC0) == 0x80) {
      const uint32_t cp = ((lead & 0x07u) << 18) | ((in[i + 1] & 0x3Fu) << 12) | ((in[i + 2] & 0x3Fu) << 6) |
                          (in[i + 3] & 0x3Fu);
      if (lead < 0xF5 && cp >= 0x10000 && cp <= 0x10FFFF) {
        out[o++] = static_cast<wchar_t>(cp);
        i += 4;
        continue;
      }
    }
    if (lead < 0xC2 || lead > 0xF4) {  // stray continuation, overlong 2-byte lead, or beyond U+10FFFF
      out[o++] = kReplacement;
      ++i;
      continue;
    }
    int trail;
    uint32_t cp;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead < 0xE0) {
      trail = 1;
      cp = lead & 0x1F;
    } else if (lead < 0xF0) {
      trail = 2;
      cp = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;         // overlong
      else if (lead == 0xED) high = 0x9F;   // surrogates
    } else {
      trail = 3;
      cp = lead & 0x07;
      if (lead == 0xF0) low = 0x90;         // overlong
      else if (lead == 0xF4) high = 0x8F;   // beyond U+10FFFF
    }
    size_t j = i + 1;
    bool complete = true;
    for (int k = 0; k < trail; ++k, ++j) {
      if (j >= length) {
        complete = false;
        break;
      }
      const unsigned next = in[j];
      if (next < low || next > high) {
        complete = false;
        break;
      }
      cp = (cp << 6) | (next & 0x3F);
      low = 0x80;
      high = 0xBF;
    }
    out[o++] = complete ? static_cast<wchar_t>(cp) : kReplacement;
    i = j;
  }
  return o;
}

// The UTF-8 size of the text; branch-free so the compiler can vectorise it. Surrogates and values
// above U+10FFFF take three bytes, as their U+FFFD does.
size_t Utf8Size(const wchar_t* text, size_t length) noexcept {
  size_t total = 0;
  for (size_t i = 0; i < length; ++i) {
    const auto cp = static_cast<uint32_t>(text[i]);
    total += 1u + (cp >= 0x80) + (cp >= 0x800) + (cp >= 0x10000 && cp <= 0x10FFFF);
  }
  return total;
}

CMRL_WideString Utf8ToWide(const char* text, size_t length) {
  if (length == 0) return CMRL_WideString();
  CMRL_WideString result;
  wchar_t* out = result.GetBuffer(static_cast<int>(CheckedLength(length)));
  const size_t written = DecodeUtf8(reinterpret_cast<const unsigned char*>(text), length, out);
  result.ReleaseBuffer(static_cast<int>(written));
  return result;
}

CMRL_ByteString WideToUtf8(const wchar_t* text, size_t length) {
  const size_t total = Utf8Size(text, length);
  if (total == 0) return CMRL_ByteString();
  CMRL_ByteString result;
  auto* out = reinterpret_cast<unsigned char*>(result.GetBuffer(static_cast<int>(CheckedLength(total))));
  size_t o = 0;
  size_t i = 0;
  while (i < length) {
    // ASCII runs go four units at a time.
    while (i + 4 <= length && static_cast<uint32_t>(text[i]) < 0x80 &&
           (static_cast<uint32_t>(text[i]) | static_cast<uint32_t>(text[i + 1]) | static_cast<uint32_t>(text[i + 2]) |
            static_cast<uint32_t>(text[i + 3])) < 0x80) {
      out[o] = static_cast<unsigned char>(text[i]);
      out[o + 1] = static_cast<unsigned char>(text[i + 1]);
      out[o + 2] = static_cast<unsigned char>(text[i + 2]);
      out[o + 3] = static_cast<unsigned char>(text[i + 3]);
      i += 4;
      o += 4;
    }
    if (i >= length) break;
    uint32_t cp = static_cast<uint32_t>(text[i++]);
    if (cp < 0x80) {
      out[o++] = static_cast<unsigned char>(cp);
    } else if (cp < 0x800) {
      out[o] = static_cast<unsigned char>(0xC0 | (cp >> 6));
      out[o + 1] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      o += 2;
    } else if (cp < 0x10000 || cp > 0x10FFFF) {
      if (cp - 0xD800 < 0x800 || cp > 0x10FFFF) cp = 0xFFFD;  // not a scalar value
      out[o] = static_cast<unsigned char>(0xE0 | (cp >> 12));
      out[o + 1] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
      out[o + 2] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      o += 3;
    } else {
      out[o] = static_cast<unsigned char>(0xF0 | (cp >> 18));
      out[o + 1] = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
      out[o + 2] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
      out[o + 3] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      o += 4;
    }
  }
  result.ReleaseBuffer(static_cast<int>(o));
  return result;
}

using mrl_platform::CodesetConverter;
using Status = CodesetConverter::Status;

// Converts `bytes` alone, from the initial state.
Status Probe(CodesetConverter& converter, const std::string& bytes) {
  converter.Reset();
  wchar_t scratch[8];
  const char* in = bytes.data();
  size_t inLeft = bytes.size();
  char* out = reinterpret_cast<char*>(scratch);
  size_t outLeft = sizeof scratch;
  return converter.Convert(in, inLeft, out, outLeft);
}

// Bytes tried as continuations of a partial character: the trail ranges of the multi-byte codesets
// used as locale encodings (GB18030, GBK, Big5, EUC-*, Shift_JIS).
constexpr unsigned char kTrailProbes[] = {0x30, 0x31, 0x39, 0x40, 0x41, 0x5C, 0x7E, 0x80,
                                          0x81, 0xA1, 0xA2, 0xB0, 0xC0, 0xFE};

// Whether some continuation of `prefix` of at most `depth` more bytes is a complete character.
bool CanComplete(CodesetConverter& converter, std::string& prefix, int depth) {
  for (unsigned char b : kTrailProbes) {
    prefix.push_back(static_cast<char>(b));
    const Status status = Probe(converter, prefix);
    const bool complete = status == Status::kDone ||
                          (status == Status::kIncomplete && depth > 1 && CanComplete(converter, prefix, depth - 1));
    prefix.pop_back();
    if (complete) return true;
  }
  return false;
}

// The length of the maximal subpart at `in`: the longest prefix that is still the start of some
// character; at least one byte. Many decoders only judge a sequence once all its bytes are there,
// so "unfinished" alone is not enough: the prefix must also be completable.
size_t MaximalSubpart(CodesetConverter& converter, const char* in, size_t left) {
  constexpr size_t kLongestCharacter = 4;
  size_t best = 1;
  std::string prefix(in, 1);
  for (size_t k = 2; k <= left && k < kLongestCharacter; ++k) {
    prefix.push_back(in[k - 1]);
    if (Probe(converter, prefix) != Status::kIncomplete) break;
    if (!CanComplete(converter, prefix, static_cast<int>(kLongestCharacter - k))) break;
    best = k;
  }
  converter.Reset();
  return best;
}

// Appends room for at least `more` units to `buffer` and points out/outLeft at the free part.
template <class Unit>
void Widen(std::basic_string<Unit>& buffer, size_t used, size_t more, char*& out, size_t& outLeft) {
  buffer.resize(used + more);
  out = reinterpret_cast<char*>(&buffer[0] + used);
  outLeft = more * sizeof(Unit);
}

}  // namespace

namespace mrl_core {

CMRL_WideString DecodeCodeset(const char* codeset, const char* text, size_t length) {
  if (!text || length == 0) return CMRL_WideString();
  auto converter = CodesetConverter::Open(mrl_platform::WideCodeset(), codeset);
  if (!converter) return Utf8ToWide(text, length);

  std::wstring buffer;
  size_t used = 0;
  char* out = nullptr;
  size_t outLeft = 0;
  // Every decoded character takes at least one byte, so this room is normally enough.
  Widen(buffer, used, length + 4, out, outLeft);
  const char* in = text;
  size_t inLeft = length;
  while (inLeft > 0) {
    const Status status = converter->Convert(in, inLeft, out, outLeft);
    used = static_cast<size_t>(reinterpret_cast<wchar_t*>(out) - buffer.data());
    if (status == Status::kDone) break;
    if (status == Status::kOutputFull) {
      Widen(buffer, used, inLeft + 16, out, outLeft);
      continue;
    }
    // An ill-formed or truncated sequence: one U+FFFD for its maximal subpart.
    // (A truncated end is judged the same way: it may hold bytes that no character could.)
    const size_t skip = MaximalSubpart(*converter, in, inLeft);
    if (outLeft < sizeof(wchar_t)) Widen(buffer, used, inLeft + 16, out, outLeft);
    buffer[used++] = kReplacement;
    out += sizeof(wchar_t);
    outLeft -= sizeof(wchar_t);
    in += skip;
    inLeft -= skip;
  }
  return CMRL_WideString(buffer.data(), static_cast<int>(CheckedLength(used)));
}

CMRL_ByteString EncodeCodeset(const char* codeset, const wchar_t* text, size_t length) {
  if (!text || length == 0) return CMRL_ByteString();
  auto converter = CodesetConverter::Open(codeset, mrl_platform::WideCodeset());
  if (!converter) return WideToUtf8(text, length);

  std::string buffer;
  size_t used = 0;
  char* out = nullptr;
  size_t outLeft = 0;
  Widen(buffer, used, length * 2 + 16, out, outLeft);
  const char* in = reinterpret_cast<const char*>(text);
  size_t inLeft = length * sizeof(wchar_t);
  while (inLeft > 0) {
    const Status status = converter->Convert(in, inLeft, out, outLeft);
    used = static_cast<size_t>(out - buffer.data());
    if (status == Status::kDone) break;
    if (status == Status::kOutputFull) {
      Widen(buffer, used, inLeft + 64, out, outLeft);
      continue;
    }
    // Not representable: return to the initial shift state, then write "?" for this unit.
    if (outLeft < 64) Widen(buffer, used, inLeft + 64, out, outLeft);
    converter->Finish(out, outLeft);
    *out++ = '?';
    --outLeft;
    const size_t skip = inLeft < sizeof(wchar_t) ? inLeft : sizeof(wchar_t);
    in += skip;
    inLeft -= skip;
  }
  // Stateful codesets end in their initial shift state.
  used = static_cast<size_t>(out - buffer.data());
  if (outLeft < 64) Widen(buffer, used, 64, out, outLeft);
  converter->Finish(out, outLeft);
  used = static_cast<size_t>(out - buffer.data());
  return CMRL_ByteString(buffer.data(), static_cast<int>(CheckedLength(used)));
}

}  // namespace mrl_core

CMRL_WideString CMRL_ByteStringConverter::utf8_to_unicode(const char* text, int length) {
  return Utf8ToWide(text, ByteLength(text, length));
}

CMRL_ByteString CMRL_ByteStringConverter::unicode_to_utf8(const wchar_t* text, int length) {
  return WideToUtf8(text, WideLength(text, length));
}

CMRL_WideString CMRL_ByteStringConverter::local_to_unicode(const char* text, int length) {
  const size_t size = ByteLength(text, length);
  if (size == 0) return CMRL_WideString();
  if (mrl_platform::LocalCodesetIsUtf8()) return Utf8ToWide(text, size);
  return mrl_core::DecodeCodeset(mrl_platform::LocalCodeset().c_str(), text, size);
}

CMRL_ByteString CMRL_ByteStringConverter::unicode_to_local(const wchar_t* text, int length) {
  const size_t size = WideLength(text, length);
  if (size == 0) return CMRL_ByteString();
  if (mrl_platform::LocalCodesetIsUtf8()) return WideToUtf8(text, size);
  return mrl_core::EncodeCodeset(mrl_platform::LocalCodeset().c_str(), text, size);
}
