// Cuts and joins arbitrary bytes as paths.
#include <cstddef>
#include <cstdint>
#include <string>

#include <zelutility/path.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const int length = static_cast<int>(size);
  (void)GetFileExt(text.c_str(), length);
  (void)GetFileName(text.c_str(), length);
  (void)GetFileNameWithExt(text.c_str(), length);
  (void)GetFileExt(text.c_str(), -1);
  const size_t half = size / 2;
  const std::string first = text.substr(0, half);
  const std::string second = text.substr(half);
  (void)PathJoin(first.c_str(), second.c_str(), first.c_str(), nullptr);
  (void)ToNativePathSep(text.c_str());
  return 0;
}
