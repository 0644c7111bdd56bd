#include "platform/platform.h"

#include <fcntl.h>
#include <iconv.h>
#include <langinfo.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

namespace mrl_platform {

std::string LocalCodeset() {
  const char* name = nl_langinfo(CODESET);
  return name ? std::string(name) : std::string();
}

bool IsUtf8Codeset(const char* codeset) noexcept {
  if (!codeset) return true;
  // Compare without case, dashes or underscores: "UTF-8", "utf8", "UTF_8" are all UTF-8.
  char key[16];
  size_t n = 0;
  for (const char* c = codeset; *c; ++c) {
    if (*c == '-' || *c == '_') continue;
    if (n + 1 >= sizeof key) return false;  // longer than every name we accept
    key[n++] = static_cast<char>(std::toupper(static_cast<unsigned char>(*c)));
  }
  key[n] = '\0';
  for (const char* name : {"", "UTF8", "ANSIX3.41968", "ASCII", "USASCII", "646"}) {
    if (std::strcmp(key, name) == 0) return true;
  }
  return false;
}

bool LocalCodesetIsUtf8() noexcept { return IsUtf8Codeset(nl_langinfo(CODESET)); }

const char* WideCodeset() noexcept { return "WCHAR_T"; }

namespace {

class IconvConverter final : public CodesetConverter {
 public:
  explicit IconvConverter(iconv_t handle) noexcept : m_handle(handle) {}
  ~IconvConverter() override { iconv_close(m_handle); }
  IconvConverter(const IconvConverter&) = delete;
  IconvConverter& operator=(const IconvConverter&) = delete;

  Status Convert(const char*& in, size_t& inLeft, char*& out, size_t& outLeft) override {
    char* input = const_cast<char*>(in);  // iconv's prototype is not const-correct
    const size_t result = iconv(m_handle, &input, &inLeft, &out, &outLeft);
    in = input;
    return result != static_cast<size_t>(-1) ? Status::kDone : FromErrno(errno);
  }

  Status Finish(char*& out, size_t& outLeft) override {
    const size_t result = iconv(m_handle, nullptr, nullptr, &out, &outLeft);
    return result != static_cast<size_t>(-1) ? Status::kDone : FromErrno(errno);
  }

  void Reset() override { iconv(m_handle, nullptr, nullptr, nullptr, nullptr); }

 private:
  static Status FromErrno(int error) noexcept {
    switch (error) {
      case E2BIG:
        return Status::kOutputFull;
      case EINVAL:
        return Status::kIncomplete;
      default:
        return Status::kInvalid;
    }
  }

  iconv_t m_handle;
};

}  // namespace

std::unique_ptr<CodesetConverter> CodesetConverter::Open(const char* to, const char* from) {
  iconv_t handle = iconv_open(to, from);
  if (handle == reinterpret_cast<iconv_t>(-1)) return nullptr;
  return std::make_unique<IconvConverter>(handle);
}

FileHandle OpenFile(const char* path, bool forWrite) noexcept {
  if (!path || !*path) return kNoFile;
  const int flags = forWrite ? (O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC) : (O_RDONLY | O_CLOEXEC);
  int fd;
  do {
    fd = ::open(path, flags, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return kNoFile;
  struct stat info;
  if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
    ::close(fd);
    return kNoFile;
  }
  return fd;
}

void CloseFile(FileHandle handle) noexcept {
  if (handle != kNoFile) ::close(handle);
}

bool ReadFileAt(FileHandle handle, void* buffer, size_t size, uint64_t offset) noexcept {
  auto* out = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    const ssize_t n = ::pread(handle, out, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    out += n;
    size -= static_cast<size_t>(n);
    offset += static_cast<uint64_t>(n);
  }
  return true;
}

bool WriteFile(FileHandle handle, const void* data, size_t size) noexcept {
  const auto* in = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(handle, in, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    in += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool FileSize(FileHandle handle, uint64_t& size) noexcept {
  struct stat info;
  if (::fstat(handle, &info) != 0) return false;
  size = static_cast<uint64_t>(info.st_size);
  return true;
}

}  // namespace mrl_platform
