#include <zelutility/path.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string_view>

#include <zelutility/text_encoding.h>

#include "base/platform.h"

namespace {

constexpr char kNativeSeparator = '\\';

// Functions that hand back a pointer allocate nothing; "no result" points here.
constexpr char kEmptyText[] = "";

constexpr bool IsSeparator(char c) noexcept { return c == '/' || c == '\\'; }

std::size_t EffectiveLength(const char* path, int length) noexcept {
  return length < 0 ? std::strlen(path) : static_cast<std::size_t>(length);
}

// Appends one piece after the first non-empty one has been taken.
void AppendPiece(std::string& result, const char* piece) {
  if (piece == nullptr || piece[0] == '\0') return;
  if (result.empty()) {
    result = piece;
    return;
  }
  if (IsSeparator(piece[0])) ++piece;
  if (!IsSeparator(result.back())) result += '/';
  result += piece;
}

// Folder of a module path, in UTF-8. With `keepSeparator` the folder keeps its final separator
// and a path without one gives ""; without it the separator goes and such a path stays whole.
CMRL_ByteString ModuleFolder(const std::string& modulePath, bool keepSeparator) {
  const std::size_t cut = modulePath.rfind(zel::platform::kFolderSeparator);
  std::string folder;
  if (cut != std::string::npos) {
    folder = modulePath.substr(0, keepSeparator ? cut + 1 : cut);
  } else if (!keepSeparator) {
    folder = modulePath;
  }
  const std::string utf8 = Local2Utf8(folder.c_str(), -1);
  return CMRL_ByteString(utf8.data(), static_cast<int>(utf8.size()));
}

}  // namespace

std::string ConvertPathSep(const char* path, char separator) {
  if (path == nullptr) return {};
  std::string result(path);
  ConvertPathSep(result, separator);
  return result;
}

char* ConvertPathSep(char* path, char separator) {
  if (path == nullptr) return nullptr;
  for (char* p = path; *p != '\0'; ++p) {
    if (IsSeparator(*p)) *p = separator;
  }
  return path;
}

void ConvertPathSep(std::string& path, char separator) {
  for (char& c : path) {
    if (IsSeparator(c)) c = separator;
  }
}

std::string ToNativePathSep(const char* path) { return ConvertPathSep(path, kNativeSeparator); }

char* ToNativePathSep(char* path) { return ConvertPathSep(path, kNativeSeparator); }

void ToNativePathSep(std::string& path) { ConvertPathSep(path, kNativeSeparator); }

std::string PathJoin(const char* first, const char* second, ...) {
  std::string result;
  if (first != nullptr) result = first;
  AppendPiece(result, second);
  std::va_list pieces;
  va_start(pieces, second);
  for (const char* piece = va_arg(pieces, const char*); piece != nullptr; piece = va_arg(pieces, const char*)) {
    AppendPiece(result, piece);
  }
  va_end(pieces);
  return result;
}

const char* GetFileExt(const char* path, int length) {
  const std::size_t n = EffectiveLength(path, length);
  for (std::size_t i = n; i > 0; --i) {
    if (path[i - 1] == '.') return path + i - 1;
  }
  return kEmptyText;
}

const char* GetFileNameWithExt(const char* path, int length) {
  const std::size_t n = EffectiveLength(path, length);
  for (std::size_t i = n; i > 0; --i) {
    if (IsSeparator(path[i - 1])) return path + i;
  }
  return kEmptyText;
}

CMRL_ByteString GetFileName(const char* path, int length) {
  const std::size_t n = EffectiveLength(path, length);
  std::size_t begin = n;
  while (begin > 0 && !IsSeparator(path[begin - 1])) --begin;
  for (std::size_t i = n; i > begin; --i) {
    if (path[i - 1] == '.') return CMRL_ByteString(path + begin, static_cast<int>(i - 1 - begin));
  }
  // Without a dot the component runs to the terminator, whatever the length said.
  return CMRL_ByteString(path + begin, -1);
}

CMRL_ByteString GetAppPath() { return ModuleFolder(zel::platform::MainModulePath(), true); }

CMRL_ByteString GetDllPath(const char* moduleName) {
  std::string modulePath = zel::platform::LoadedModulePath(moduleName);
  if (modulePath.empty()) modulePath = zel::platform::MainModulePath();
  return ModuleFolder(modulePath, false);
}

std::string MakeTempFilename(const char* prefix, const char* suffix) {
  std::string name = prefix != nullptr ? prefix : "";
  name += std::to_string(static_cast<std::uint32_t>(zel::platform::CurrentTime()));
  if (suffix != nullptr) name += suffix;
  return name;
}
