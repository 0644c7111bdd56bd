#ifndef ZELTOOL_INPUT_H_
#define ZELTOOL_INPUT_H_

// Reading a whole input for the text commands of zeltool.
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

namespace zeltool {

// Reads the file at `path`, or standard input for "-", into `bytes`; false when it cannot be read.
inline bool ReadAll(const std::string& path, std::string& bytes) {
  if (path == "-") {
    bytes.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    return !std::cin.bad();
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return !file.bad();
}

}  // namespace zeltool

#endif  // ZELTOOL_INPUT_H_
