// The POSIX side of the platform seam: Linux and other systems with /proc, dl_iterate_phdr and
// the POSIX file calls.
#include "base/platform.h"

#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string_view>

#include <zelutility/text_encoding.h>

namespace zel::platform {
namespace {

// The system's calls take "/" only; callers may hand in Windows-style separators.
std::string WithForwardSlashes(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

std::string_view BaseName(std::string_view path) noexcept {
  const std::size_t cut = path.rfind('/');
  return cut == std::string_view::npos ? path : path.substr(cut + 1);
}

// "1", "1.0.0": what a shared object's file name carries behind ".so".
bool IsVersionSuffix(std::string_view rest) noexcept {
  if (rest.empty()) return false;
  bool digitSeen = false;
  for (std::size_t i = 0; i < rest.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(rest[i]);
    if (std::isdigit(c)) {
      digitSeen = true;
    } else if (c == '.' && digitSeen && i + 1 < rest.size()) {
      digitSeen = false;
    } else {
      return false;
    }
  }
  return digitSeen;
}

bool ModuleMatches(std::string_view modulePath, std::string_view wanted) noexcept {
  if (modulePath == wanted) return true;
  const std::string_view moduleFile = BaseName(modulePath);
  const std::string_view wantedFile = BaseName(wanted);
  if (wantedFile.empty()) return false;
  // A name with a folder has to match as a whole.
  if (wantedFile.size() != wanted.size()) return false;
  if (moduleFile == wantedFile) return true;
  return moduleFile.size() > wantedFile.size() + 1 && moduleFile.substr(0, wantedFile.size()) == wantedFile &&
         moduleFile[wantedFile.size()] == '.' && IsVersionSuffix(moduleFile.substr(wantedFile.size() + 1));
}

struct ModuleSearch {
  std::string_view wanted;
  std::string found;
};

int VisitModule(dl_phdr_info* info, size_t /*size*/, void* data) {
  auto* search = static_cast<ModuleSearch*>(data);
  // The main program comes with an empty name; it is only found as the fallback of the caller.
  if (info->dlpi_name == nullptr || info->dlpi_name[0] == '\0') return 0;
  if (!ModuleMatches(info->dlpi_name, search->wanted)) return 0;
  search->found = info->dlpi_name;
  return 1;
}

}  // namespace

std::string MainModulePath() {
  // readlink does not say whether it truncated, so grow until the answer leaves room.
  std::string buffer(256, '\0');
  for (;;) {
    const ssize_t n = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n < 0) return {};
    if (static_cast<std::size_t>(n) < buffer.size()) {
      buffer.resize(static_cast<std::size_t>(n));
      return buffer;
    }
    buffer.resize(buffer.size() * 2);
  }
}

std::string LoadedModulePath(const char* name) {
  if (name == nullptr || name[0] == '\0') return {};
  ModuleSearch search{name, {}};
  ::dl_iterate_phdr(VisitModule, &search);
  return search.found;
}

std::string TempDirectory() {
  const char* fromEnvironment = std::getenv("TMPDIR");
  std::string folder = (fromEnvironment != nullptr && fromEnvironment[0] != '\0') ? fromEnvironment : "/tmp";
  if (folder.back() != kFolderSeparator) folder += kFolderSeparator;
  return folder;
}

std::uint32_t ProcessId() noexcept { return static_cast<std::uint32_t>(::getpid()); }

std::int64_t CurrentTime() noexcept { return static_cast<std::int64_t>(std::time(nullptr)); }

#if defined(__GLIBC__)
void SeededRandSequence(unsigned seed, int* values, int count) noexcept {
  // glibc's rand() is random() on the additive generator of type 3, whose state (with its type
  // word) fills 128 bytes; the reentrant calls run the same generator on a state of our own.
  alignas(std::int32_t) char state[128] = {};
  random_data data{};
  initstate_r(seed, state, sizeof state, &data);
  for (int i = 0; i < count; ++i) {
    std::int32_t value = 0;
    random_r(&data, &value);
    values[i] = static_cast<int>(value);
  }
}
#else
void SeededRandSequence(unsigned seed, int* values, int count) noexcept {
  // Without a reentrant twin of rand() the shared generator has to do; the lock keeps our calls
  // apart, though not from other users of rand().
  static std::mutex randLock;
  std::lock_guard<std::mutex> hold(randLock);
  std::srand(seed);
  for (int i = 0; i < count; ++i) values[i] = std::rand();
}
#endif

bool StatPath(const std::wstring& path, FileStatus& status) {
  struct stat record {};
  const std::string native = WithForwardSlashes(Unicode2Utf8(path.c_str(), -1));
  if (native.empty() || ::stat(native.c_str(), &record) != 0) return false;
  unsigned mode = 0;
  if (S_ISREG(record.st_mode)) {
    mode |= kModeRegular;
  } else if (S_ISDIR(record.st_mode)) {
    mode |= kModeDirectory;
  } else if (S_ISCHR(record.st_mode)) {
    mode |= kModeCharDevice;
  }
  if (record.st_mode & S_IRUSR) mode |= kModeOwnerRead;
  if (record.st_mode & S_IWUSR) mode |= kModeOwnerWrite;
  status.mode = mode;
  return true;
}

bool PathExists(const std::string& path) {
  return ::access(WithForwardSlashes(path).c_str(), F_OK) == 0;
}

bool MakeDirectory(const std::string& path) {
  return ::mkdir(WithForwardSlashes(path).c_str(), 0777) == 0;
}

bool RemoveDirectory(const std::string& path) {
  return ::rmdir(WithForwardSlashes(path).c_str()) == 0;
}

// unlink, not remove: the C library's remove also takes away an empty folder, which a temporary
// file name that came out as its bare folder must never do.
bool RemoveFile(const char* path) { return path != nullptr && ::unlink(path) == 0; }

int CreateNewFile(const char* path, bool& nameTaken) noexcept {
  nameTaken = false;
  if (path == nullptr) return -1;
  for (;;) {
    const int descriptor = ::open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor >= 0) return descriptor;
    if (errno == EINTR) continue;
    nameTaken = errno == EEXIST;
    return -1;
  }
}

void CloseDescriptor(int descriptor) noexcept {
  // After an interrupted close the descriptor is already gone on Linux: never close it twice.
  if (descriptor >= 0) ::close(descriptor);
}

FilePtr OpenFile(const char* path, const char* mode) {
  if (path == nullptr || mode == nullptr) return nullptr;
  return FilePtr(std::fopen(WithForwardSlashes(path).c_str(), mode));
}

}  // namespace zel::platform
