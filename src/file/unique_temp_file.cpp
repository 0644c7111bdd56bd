#include "file/unique_temp_file.h"

#include <zelutility/temp_file.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <utility>

#include "base/platform.h"

namespace zel::file {
namespace {

constexpr std::size_t kRandomLength = 12;

bool HasSeparator(const char* text) noexcept {
  return text != nullptr && (std::strchr(text, '/') != nullptr || std::strchr(text, '\\') != nullptr);
}

bool EndsWithSeparator(const std::string& text) noexcept {
  return !text.empty() && (text.back() == '/' || text.back() == '\\');
}

// A fresh generator per call: nothing is shared between threads, and two processes started in
// the same instant still draw different letters.
std::function<std::string()> EntropyRandomPart() {
  std::random_device device;
  std::array<std::uint32_t, 4> words{};
  for (auto& word : words) word = device();
  std::seed_seq seed(words.begin(), words.end());
  auto engine = std::make_shared<std::mt19937_64>(seed);
  return [engine] {
    static constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::uniform_int_distribution<std::size_t> pick(0, sizeof(kAlphabet) - 2);
    std::string part(kRandomLength, '\0');
    for (char& c : part) c = kAlphabet[pick(*engine)];
    return part;
  };
}

}  // namespace

int CreateUniqueTempFileWith(const char* directory, const char* prefix, const char* extension,
                             const std::function<std::string()>& randomPart, int attempts,
                             std::string& path) {
  path.clear();
  // A separator in a name piece would put the file outside the folder asked for.
  if (HasSeparator(prefix) || HasSeparator(extension)) return -1;
  try {
    std::string folder = directory != nullptr ? directory : TempFile::getSystemTempDir();
    if (folder.empty()) return -1;
    if (!EndsWithSeparator(folder)) folder += platform::kFolderSeparator;

    std::string head = folder;
    if (prefix != nullptr && prefix[0] != '\0') head += std::string(prefix) + "_";
    head += std::to_string(platform::ProcessId()) + "_";
    std::string tail;
    if (extension != nullptr && extension[0] != '\0') tail = std::string(".") + extension;

    for (int attempt = 0; attempt < attempts; ++attempt) {
      std::string candidate = head + randomPart() + tail;
      bool nameTaken = false;
      const int descriptor = platform::CreateNewFile(candidate.c_str(), nameTaken);
      if (descriptor >= 0) {
        path = std::move(candidate);
        return descriptor;
      }
      // Only a taken name is worth another try; a missing or closed folder stays so.
      if (!nameTaken) return -1;
    }
  } catch (...) {
    // Allocation or the entropy source failed: the contract is a plain refusal.
  }
  return -1;
}

}  // namespace zel::file

int CreateUniqueTempFile(const char* directory, const char* prefix, const char* extension, std::string& path) {
  path.clear();
  try {
    return zel::file::CreateUniqueTempFileWith(directory, prefix, extension, zel::file::EntropyRandomPart(),
                                               zel::file::kUniqueTempFileAttempts, path);
  } catch (...) {
    return -1;
  }
}

UniqueTempFile::UniqueTempFile(const char* directory, const char* prefix, const char* extension) {
  m_descriptor = CreateUniqueTempFile(directory, prefix, extension, m_path);
}

UniqueTempFile::UniqueTempFile(UniqueTempFile&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)), m_path(std::move(other.m_path)) {
  other.m_path.clear();
}

UniqueTempFile& UniqueTempFile::operator=(UniqueTempFile&& other) noexcept {
  if (this != &other) {
    reset();
    m_descriptor = std::exchange(other.m_descriptor, -1);
    m_path = std::move(other.m_path);
    other.m_path.clear();
  }
  return *this;
}

UniqueTempFile::~UniqueTempFile() { reset(); }

bool UniqueTempFile::valid() const noexcept { return m_descriptor >= 0; }

int UniqueTempFile::descriptor() const noexcept { return m_descriptor; }

const std::string& UniqueTempFile::path() const noexcept { return m_path; }

std::string UniqueTempFile::release() {
  zel::platform::CloseDescriptor(m_descriptor);
  m_descriptor = -1;
  return std::exchange(m_path, std::string());
}

void UniqueTempFile::reset() noexcept {
  zel::platform::CloseDescriptor(m_descriptor);
  if (!m_path.empty()) zel::platform::RemoveFile(m_path.c_str());
  m_descriptor = -1;
  m_path.clear();
}
