#include <zelutility/temp_file.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace {

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

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

// Sets TMPDIR for one scope and puts the old value back.
class ScopedTmpDir {
 public:
  explicit ScopedTmpDir(const char* value) {
    if (const char* old = std::getenv("TMPDIR")) old_ = old;
    if (value != nullptr) {
      setenv("TMPDIR", value, 1);
    } else {
      unsetenv("TMPDIR");
    }
  }
  ~ScopedTmpDir() {
    if (old_) {
      setenv("TMPDIR", old_->c_str(), 1);
    } else {
      unsetenv("TMPDIR");
    }
  }

 private:
  std::optional<std::string> old_;
};

class TempFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/zel_temp_file_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = std::string(pattern) + "/";
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string dir_;
};

TEST_F(TempFileTest, NamePiecesComeInTheirOrder) {
  const std::string pid = std::to_string(getpid());
  // Generates a path in dir_ with the given settings; gives the second it was made in.
  const auto make = [&](const char* prefix, const char* suffix, const char* ext, bool useAppId) {
    return WithinOneSecond([&] {
      TempFile t(dir_.c_str());
      t.setPrefix(prefix);
      t.setSuffix(suffix);
      t.setFileExt(ext);
      t.setUseAppID(useAppId);
      t.generateFilePath();
      return t.getFilePath();
    });
  };
  auto [second, name] = make(nullptr, nullptr, nullptr, true);
  EXPECT_EQ(name, dir_ + pid + "_" + DigitsFor(second));
  std::tie(second, name) = make("pre", "suf", "tmp", true);
  EXPECT_EQ(name, dir_ + "pre_" + pid + "_" + DigitsFor(second) + "_suf.tmp");
  std::tie(second, name) = make("pre", "suf", "tmp", false);
  EXPECT_EQ(name, dir_ + "pre_" + DigitsFor(second) + "_suf.tmp");

  TempFile bare(dir_.c_str());
  bare.setUseRandomNumber(false);
  bare.setFileExt(".gz");   // a dot given with the extension is doubled
  bare.generateFilePath();
  EXPECT_EQ(bare.getFilePath(), dir_ + pid + "_..gz");

  TempFile nothing(dir_.c_str());
  nothing.setUseAppID(false);
  nothing.setUseRandomNumber(false);
  nothing.generateFilePath();
  EXPECT_EQ(nothing.getFilePath(), dir_);
}

TEST_F(TempFileTest, SameSecondSameSettingsSameName) {
  const auto [second, same] = WithinOneSecond([&] {
    TempFile a(dir_.c_str()), b(dir_.c_str());
    a.generateFilePath();
    b.generateFilePath();
    return a.getFilePath() == b.getFilePath() && !a.getFilePath().empty();
  });
  (void)second;
  EXPECT_TRUE(same);
}

TEST_F(TempFileTest, PathIsMadeOnceAndSettersFollowTheirRules) {
  TempFile t(dir_.c_str());
  EXPECT_EQ(t.getFilePath(), "");
  t.setPrefix("one");
  t.setPrefix(nullptr);   // keeps "one"
  t.setUseAppID(false);
  t.setUseRandomNumber(false);
  t.generateFilePath();
  EXPECT_EQ(t.getFilePath(), dir_ + "one_");
  t.setPrefix("two");
  t.setUseRandomNumber(true);
  t.generateFilePath();
  EXPECT_EQ(t.getFilePath(), dir_ + "one_");

  TempFile e(dir_.c_str());
  e.setUseAppID(false);
  e.setUseRandomNumber(false);
  e.setPrefix("p");
  e.setPrefix("");
  e.setSuffix("s");
  e.setSuffix(nullptr);
  e.setFileExt("x");
  e.setFileExt("");
  e.generateFilePath();
  EXPECT_EQ(e.getFilePath(), dir_ + "_s");
}

TEST_F(TempFileTest, DirectoryComesFromTheConstructorUnrepaired) {
  const std::string noSeparator = dir_.substr(0, dir_.size() - 1);
  TempFile glued(noSeparator.c_str());
  glued.setUseRandomNumber(false);
  glued.generateFilePath();
  EXPECT_EQ(glued.getDir(), noSeparator);
  EXPECT_EQ(glued.getFilePath(), noSeparator + std::to_string(getpid()) + "_");

  TempFile empty("");
  EXPECT_EQ(empty.getDir(), "");
  empty.setUseRandomNumber(false);
  empty.generateFilePath();
  EXPECT_EQ(empty.getFilePath(), std::to_string(getpid()) + "_");

  EXPECT_EQ(TempFile(nullptr).getDir(), TempFile::getSystemTempDir());
  EXPECT_EQ(TempFile().getDir(), TempFile::getSystemTempDir());
}

TEST_F(TempFileTest, SystemTempDirFollowsTmpDirAndEndsInSeparator) {
  {
    ScopedTmpDir env(dir_.c_str());
    EXPECT_EQ(TempFile::getSystemTempDir(), dir_);
  }
  {
    const std::string noSeparator = dir_.substr(0, dir_.size() - 1);
    ScopedTmpDir env(noSeparator.c_str());
    EXPECT_EQ(TempFile::getSystemTempDir(), dir_);
  }
  {
    ScopedTmpDir env(nullptr);
    EXPECT_EQ(TempFile::getSystemTempDir(), "/tmp/");
  }
  {
    ScopedTmpDir env("");
    EXPECT_EQ(TempFile::getSystemTempDir(), "/tmp/");
  }
}

TEST_F(TempFileTest, DestructorRemovesOnlyAGeneratedPath) {
  std::string path;
  {
    TempFile t(dir_.c_str());
    t.setPrefix("auto");
    t.generateFilePath();
    path = t.getFilePath();
    Touch(path);
    ASSERT_TRUE(Exists(path));
  }
  EXPECT_FALSE(Exists(path));

  {
    TempFile t(dir_.c_str());
    t.setPrefix("kept");
    t.generateFilePath();
    path = t.getFilePath();
    Touch(path);
    t.setAutoRemove(false);
  }
  EXPECT_TRUE(Exists(path));

  {
    TempFile t(dir_.c_str());   // never generated, so nothing is removed
    t.setUseAppID(false);
    t.setUseRandomNumber(false);
    Touch(dir_ + "bystander");
  }
  EXPECT_TRUE(Exists(dir_ + "bystander"));

  {
    TempFile t(dir_.c_str());
    t.generateFilePath();       // never created: removal fails quietly
  }

  // A name with no pieces leaves the path equal to its (empty) folder, which must survive.
  const std::string folder = dir_ + "empty/";
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  {
    TempFile t(folder.c_str());
    t.setUseAppID(false);
    t.setUseRandomNumber(false);
    t.generateFilePath();
    ASSERT_EQ(t.getFilePath(), folder);
  }
  EXPECT_TRUE(Exists(folder));
}

TEST_F(TempFileTest, CopiesShareTheNameAndBothTryToRemove) {
  std::string path;
  {
    TempFile original(dir_.c_str());
    original.setPrefix("copy");
    original.setAutoRemove(false);
    TempFile early(original);   // copied before a name exists: makes its own when asked
    EXPECT_EQ(early.getFilePath(), "");

    original.generateFilePath();
    path = original.getFilePath();
    Touch(path);
    TempFile late(original);
    EXPECT_EQ(late.getFilePath(), path);
    EXPECT_EQ(late.getDir(), dir_);

    TempFile assigned("");
    assigned = original;
    EXPECT_EQ(assigned.getFilePath(), path);
    assigned.setAutoRemove(true);   // the copy removes it; the flags came along and are its own
  }
  EXPECT_FALSE(Exists(path));
}

}  // namespace
