// Test-only helpers shared by the temporary-file tests.
#pragma once

#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace zel::file::test {

inline bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// Sets TMPDIR (null: unsets it) for one scope and puts the old value back.
struct ScopedTmpDir {
  std::optional<std::string> old;
  static void Set(const char* value) { value ? setenv("TMPDIR", value, 1) : unsetenv("TMPDIR"); }
  explicit ScopedTmpDir(const char* value) {
    if (const char* current = std::getenv("TMPDIR")) old = current;
    Set(value);
  }
  ~ScopedTmpDir() { Set(old ? old->c_str() : nullptr); }
};

// Gives each test a fresh folder (dir_, ending in "/") and removes it afterwards.
class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/zel_temp_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = std::string(pattern) + "/";
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string dir_;
  const std::string pid_ = std::to_string(getpid());
};

}  // namespace zel::file::test
