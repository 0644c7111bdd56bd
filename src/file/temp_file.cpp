#include <zelutility/temp_file.h>

#include <cstdint>
#include <cstdlib>

#include "base/platform.h"

TempFile::TempFile() : m_dir(getSystemTempDir()) {}

TempFile::TempFile(const char* directory) : m_dir(directory != nullptr ? directory : getSystemTempDir()) {}

TempFile::TempFile(const TempFile& other) = default;

TempFile& TempFile::operator=(const TempFile& other) = default;

TempFile::~TempFile() {
  if (m_autoRemove && !m_filePath.empty()) zel::platform::RemoveFile(m_filePath.c_str());
}

void TempFile::setAutoRemove(bool autoRemove) { m_autoRemove = autoRemove; }
void TempFile::setUseAppID(bool useAppId) { m_useAppId = useAppId; }
void TempFile::setUseRandomNumber(bool useRandomNumber) { m_useRandomNumber = useRandomNumber; }

void TempFile::setPrefix(const char* prefix) {
  if (prefix != nullptr) m_prefix = prefix;
}

void TempFile::setSuffix(const char* suffix) {
  if (suffix != nullptr) m_suffix = suffix;
}

void TempFile::setFileExt(const char* fileExt) {
  if (fileExt != nullptr) m_fileExt = fileExt;
}

void TempFile::generateFilePath() {
  if (!m_filePath.empty()) return;
  m_filePath = m_dir + generateFileName();
}

const std::string& TempFile::getDir() const noexcept { return m_dir; }

const std::string& TempFile::getFilePath() const noexcept { return m_filePath; }

std::string TempFile::getSystemTempDir() { return zel::platform::TempDirectory(); }

std::string TempFile::generateFileName() const {
  std::string name;
  if (!m_prefix.empty()) name += m_prefix + "_";
  if (m_useAppId) name += std::to_string(zel::platform::ProcessId()) + "_";
  if (m_useRandomNumber) {
    // The digits of srand(second) and five rand(), drawn from a private state so that other
    // threads using rand() meanwhile cannot change them; the shared generator is still reseeded
    // with the second, which callers may rely on.
    const unsigned seed = static_cast<unsigned>(static_cast<std::uint32_t>(zel::platform::CurrentTime()));
    int values[5];
    zel::platform::SeededRandSequence(seed, values, 5);
    std::srand(seed);
    for (int value : values) name += static_cast<char>('0' + value % 10);
  }
  if (!m_suffix.empty()) name += "_" + m_suffix;
  if (!m_fileExt.empty()) name += "." + m_fileExt;
  return name;
}
