#include <zelutility/temp_file.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "file/temp_test_support.h"

namespace {

using zel::file::test::Exists;
using zel::file::test::ScopedTmpDir;

void Touch(const std::string& path) { std::ofstream(path) << "x"; }

// The five digits a name made in second `t` carries, computed the plain way.
std::string DigitsFor(std::time_t t) {
  std::srand(static_cast<unsigned>(static_cast<std::uint32_t>(t)));
  std::string digits;
  for (int i = 0; i < 5; ++i) digits += static_cast<char>('0' + std::rand() % 10);
  return digits;
}

// Runs `make` until it starts and ends within one second, and gives that second with the result.
template <class Make>
auto WithinOneSecond(Make make) {
  for (;;) {
    const std::time_t before = std::time(nullptr);
    auto result = make();
    if (std::time(nullptr) == before) return std::make_pair(before, result);
  }
}

class TempFileTest : public zel::file::test::TempDirTest {
 protected:
  // A generated path in `dir` with the given settings; a null piece is not set.
  static std::string Generated(const std::string& dir, const char* prefix, const char* suffix, const char* ext,
                               bool useAppId, bool useRandom) {
    TempFile t(dir.c_str());
    if (prefix) t.setPrefix(prefix);
    if (suffix) t.setSuffix(suffix);
    if (ext) t.setFileExt(ext);
    t.setUseAppID(useAppId);
    t.setUseRandomNumber(useRandom);
    t.generateFilePath();
    return t.getFilePath();
  }
};

TEST_F(TempFileTest, NamePiecesComeInTheirOrder) {
  const auto make = [&](const char* prefix, const char* suffix, const char* ext, bool useAppId) {
    return WithinOneSecond([&] { return Generated(dir_, prefix, suffix, ext, useAppId, true); });
  };
  auto [second, name] = make("pre", "suf", "tmp", true);
  EXPECT_EQ(name, dir_ + "pre_" + pid_ + "_" + DigitsFor(second) + "_suf.tmp");
  std::tie(second, name) = make("pre", "suf", "tmp", false);
  EXPECT_EQ(name, dir_ + "pre_" + DigitsFor(second) + "_suf.tmp");

  EXPECT_EQ(Generated(dir_, nullptr, nullptr, ".gz", true, false), dir_ + pid_ + "_..gz");  // the dot is doubled
  EXPECT_EQ(Generated(dir_, "", "s", "", false, false), dir_ + "_s");
}

TEST_F(TempFileTest, PathIsMadeOnceAndNullSettersKeepTheOldValue) {
  TempFile t(dir_.c_str());
  t.setPrefix("one");
  t.setPrefix(nullptr);
  t.setSuffix("s");
  t.setSuffix(nullptr);
  t.setFileExt("x");
  t.setFileExt("");  // an empty text does clear
  t.setUseAppID(false);
  t.setUseRandomNumber(false);
  t.generateFilePath();
  t.setPrefix("two");
  t.setUseRandomNumber(true);
  t.generateFilePath();
  EXPECT_EQ(t.getFilePath(), dir_ + "one__s");
}

TEST_F(TempFileTest, DirectoryComesFromTheConstructorUnrepaired) {
  const std::string noSeparator = dir_.substr(0, dir_.size() - 1);
  EXPECT_EQ(TempFile(noSeparator.c_str()).getDir(), noSeparator);
  EXPECT_EQ(Generated(noSeparator, nullptr, nullptr, nullptr, true, false), noSeparator + pid_ + "_");
  EXPECT_EQ(TempFile().getDir(), TempFile::getSystemTempDir());

  // The system folder follows TMPDIR and ends in a separator.
  const std::pair<const char*, std::string> rows[] = {
      {dir_.c_str(), dir_}, {noSeparator.c_str(), dir_}, {nullptr, "/tmp/"}, {"", "/tmp/"}};
  for (const auto& [value, expected] : rows) {
    ScopedTmpDir env(value);
    EXPECT_EQ(TempFile::getSystemTempDir(), expected) << (value ? value : "(unset)");
  }
}

TEST_F(TempFileTest, DestructorRemovesOnlyAGeneratedPath) {
  std::string removed, kept;
  {
    TempFile t(dir_.c_str()), k(dir_.c_str());
    t.setPrefix("auto");
    k.setPrefix("kept");
    t.generateFilePath();
    k.generateFilePath();
    removed = t.getFilePath();
    kept = k.getFilePath();
    Touch(removed);
    Touch(kept);
    k.setAutoRemove(false);
    TempFile never(dir_.c_str());  // never generated, so nothing is removed
    never.setUseAppID(false);
    never.setUseRandomNumber(false);
    Touch(dir_ + "bystander");
    TempFile missing(dir_.c_str());
    missing.setPrefix("missing");
    missing.generateFilePath();  // never created: removal fails quietly
  }
  EXPECT_FALSE(Exists(removed));
  EXPECT_TRUE(Exists(kept));
  EXPECT_TRUE(Exists(dir_ + "bystander"));

  // A name with no pieces leaves the path equal to its (empty) folder, which must survive.
  const std::string folder = dir_ + "empty/";
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  EXPECT_EQ(Generated(folder, nullptr, nullptr, nullptr, false, false), folder);
  EXPECT_TRUE(Exists(folder));
}

TEST_F(TempFileTest, CopiesShareTheNameAndBothTryToRemove) {
  std::string path;
  {
    TempFile original(dir_.c_str());
    original.setPrefix("copy");
    original.setAutoRemove(false);
    original.generateFilePath();
    path = original.getFilePath();
    Touch(path);
    TempFile late(original);
    EXPECT_EQ(late.getFilePath(), path);
    TempFile assigned("");
    assigned = original;
    EXPECT_EQ(assigned.getFilePath(), path);
    assigned.setAutoRemove(true);  // the copy removes it; the flags came along and are its own
  }
  EXPECT_FALSE(Exists(path));
}

TEST_F(TempFileTest, DigitsHoldWhileOtherThreadsUseTheSharedGenerator) {
  // The documented side effect: the shared generator is left seeded with the second.
  const auto [second, name] = WithinOneSecond([&] {
    const std::string made = Generated(dir_, nullptr, nullptr, nullptr, false, true);
    return std::make_pair(made, std::rand());
  });
  std::srand(static_cast<unsigned>(static_cast<std::uint32_t>(second)));
  EXPECT_EQ(name.second, std::rand());
  EXPECT_EQ(name.first, dir_ + DigitsFor(second));

  // Worked out on this thread before anyone else touches the generator.
  std::map<std::time_t, std::string> digits;
  const std::time_t start = std::time(nullptr);
  for (std::time_t t = start - 1; t < start + 60; ++t) digits[t] = DigitsFor(t);

  std::atomic<bool> stop{false};
  std::vector<std::thread> users;
  for (int i = 0; i < 8; ++i)
    users.emplace_back([&stop, i] {
      for (unsigned n = 0; !stop.load(std::memory_order_relaxed); ++n) {
        std::srand(n * 8 + static_cast<unsigned>(i));
        for (int k = 0; k < 3; ++k) (void)std::rand();
      }
    });
  std::vector<std::string> wrong;
  for (int round = 0; round < 100; ++round) {
    const auto [t, made] = WithinOneSecond([&] { return Generated(dir_, "p", nullptr, nullptr, false, true); });
    if (made != dir_ + "p_" + digits[t]) wrong.push_back(made + " in second " + std::to_string(t));
  }
  stop = true;
  for (std::thread& user : users) user.join();
  EXPECT_TRUE(wrong.empty()) << wrong.size() << " wrong names, first " << wrong.front();
}

}  // namespace
