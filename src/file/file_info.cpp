#include <zelutility/file_info.h>

#include <algorithm>
#include <string>

#include <zelutility/text_encoding.h>

#include "base/platform.h"

struct ZELFileInfo::Status {
  zel::platform::FileStatus record;

  // The status of a path in its final form; null when it has none or the path is empty.
  static std::unique_ptr<Status> Ask(const std::wstring& path) {
    if (path.empty()) return nullptr;
    auto status = std::make_unique<Status>();
    if (!zel::platform::StatPath(path, status->record)) return nullptr;
    return status;
  }

  static bool Has(const std::unique_ptr<Status>& status, unsigned bit) noexcept {
    return status != nullptr && (status->record.mode & bit) != 0;
  }
};

namespace {

template <class Char>
std::basic_string<Char> ReadPath(const Char* path, int length) {
  if (path == nullptr) return {};
  if (length < 0) return std::basic_string<Char>(path);
  return std::basic_string<Char>(path, static_cast<std::size_t>(length));
}

// Brings a path to the one form the status is asked for: backslashes, no final separator, and a
// bare drive kept as its root.
template <class Char>
void NormaliseForStatus(std::basic_string<Char>& path) {
  std::replace(path.begin(), path.end(), Char('/'), Char('\\'));
  if (!path.empty() && path.back() == Char('\\')) path.pop_back();
  if (!path.empty() && path.back() == Char(':')) path += Char('\\');
}

template <class Char>
int CheckPathFlags(const Char* path, int flags) {
  if (path == nullptr || path[0] == Char(0) || (flags & ZELFile_Exists) == 0) return 0;
  const ZELFileInfo info(path, -1);
  if (!info.IsExists()) return 0;
  int result = ZELFile_Exists;
  if ((flags & ZELFile_Regular) && info.IsFile()) result |= ZELFile_Regular;
  if ((flags & ZELFile_Directory) && info.IsDir()) result |= ZELFile_Directory;
  if ((flags & ZELFile_Readable) && info.ReadEnable()) result |= ZELFile_Readable;
  if ((flags & ZELFile_Writable) && info.WriteEnable()) result |= ZELFile_Writable;
  return result;
}

template <class Char>
int AllPathFlags(const Char* path) {
  if (path == nullptr || path[0] == Char(0)) return 0;
  const ZELFileInfo info(path, -1);
  if (!info.IsExists()) return 0;
  int result = ZELFile_Exists;
  if (info.IsFile()) {
    result |= ZELFile_Regular;
  } else if (info.IsDir()) {
    result |= ZELFile_Directory;
  }
  if (info.ReadEnable()) result |= ZELFile_Readable;
  if (info.WriteEnable()) result |= ZELFile_Writable;
  return result;
}

// One step of LXCreateFile from position `from`: either the rest is the file, or the next
// folder is found or made and the step goes on behind it. A folder made here is removed again
// when what lies behind it fails, so a failure leaves no trace of this call.
bool CreateFrom(const std::string& path, std::size_t from) {
  const std::size_t slash = from + 1 < path.size() ? path.find('/', from + 1) : std::string::npos;
  if (slash == std::string::npos) {
    return zel::platform::OpenFile(path.c_str(), "a") != nullptr;
  }
  const std::string folder = path.substr(0, slash);
  if (zel::platform::PathExists(folder)) return CreateFrom(path, slash);
  if (!zel::platform::MakeDirectory(folder)) return false;
  const bool made = CreateFrom(path, slash);
  if (!made) zel::platform::RemoveDirectory(folder);
  return made;
}

}  // namespace

ZELFileInfo::ZELFileInfo(const char* path, int length) {
  std::string narrow = ReadPath(path, length);
  NormaliseForStatus(narrow);
  status_ = Status::Ask(Utf82Unicode(narrow.c_str(), -1));
}

ZELFileInfo::ZELFileInfo(const wchar_t* path, int length) {
  std::wstring wide = ReadPath(path, length);
  NormaliseForStatus(wide);
  status_ = Status::Ask(wide);
}

ZELFileInfo::ZELFileInfo(const ZELFileInfo& other)
    : status_(other.status_ ? std::make_unique<Status>(*other.status_) : nullptr) {}

ZELFileInfo::~ZELFileInfo() = default;

ZELFileInfo& ZELFileInfo::operator=(const ZELFileInfo& other) {
  if (this != &other) status_ = other.status_ ? std::make_unique<Status>(*other.status_) : nullptr;
  return *this;
}

bool ZELFileInfo::IsExists() const noexcept { return status_ != nullptr; }
bool ZELFileInfo::IsFile() const noexcept { return Status::Has(status_, zel::platform::kModeRegular); }
bool ZELFileInfo::IsDir() const noexcept { return Status::Has(status_, zel::platform::kModeDirectory); }
bool ZELFileInfo::ReadEnable() const noexcept { return Status::Has(status_, zel::platform::kModeOwnerRead); }
bool ZELFileInfo::WriteEnable() const noexcept { return Status::Has(status_, zel::platform::kModeOwnerWrite); }

int CheckFilePath(const char* path, int flags) { return CheckPathFlags(path, flags); }
int CheckFilePath(const wchar_t* path, int flags) { return CheckPathFlags(path, flags); }

int GetFileFlags(const char* path) { return AllPathFlags(path); }
int GetFileFlags(const wchar_t* path) { return AllPathFlags(path); }

void LXCopyFile(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return;
  const std::string from = Utf82Local(source, -1);
  const std::string to = Utf82Local(target, -1);
  // Declared in this order so that the target is closed first, then the source.
  const zel::platform::FilePtr in = zel::platform::OpenFile(from.c_str(), "rb");
  if (!in) return;
  const zel::platform::FilePtr out = zel::platform::OpenFile(to.c_str(), "wb");
  if (!out) return;
  constexpr std::size_t kBlock = 4096;
  char block[kBlock];
  for (;;) {
    const std::size_t got = std::fread(block, 1, kBlock, in.get());
    if (got == 0) break;
    std::fwrite(block, 1, got, out.get());
    if (got < kBlock) break;
  }
}

bool LXCreateFile(const char* path) {
  if (path == nullptr) return false;
  std::string local = Utf82Local(path, -1);
  std::replace(local.begin(), local.end(), '\\', '/');
  return CreateFrom(local, 0);
}
