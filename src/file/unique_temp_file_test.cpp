#include <zelutility/temp_file.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "file/unique_temp_file.h"

namespace {

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Whether `path` is `head` + twelve lower-case letters or digits + `tail`.
bool HasRandomPartBetween(const std::string& path, const std::string& head, const std::string& tail) {
  if (path.size() != head.size() + 12 + tail.size()) return false;
  if (path.compare(0, head.size(), head) != 0 || path.compare(head.size() + 12, tail.size(), tail) != 0) return false;
  for (std::size_t i = head.size(); i < head.size() + 12; ++i) {
    const char c = path[i];
    if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))) return false;
  }
  return true;
}

// Sets TMPDIR for one scope and puts the old value back.
struct ScopedTmpDir {
  std::optional<std::string> old;
  explicit ScopedTmpDir(const std::string& value) {
    if (const char* current = std::getenv("TMPDIR")) old = current;
    setenv("TMPDIR", value.c_str(), 1);
  }
  ~ScopedTmpDir() { old ? setenv("TMPDIR", old->c_str(), 1) : unsetenv("TMPDIR"); }
};

// Answers the parts handed in, one per call, repeating the last; counts the calls.
struct ScriptedParts {
  std::vector<std::string> parts;
  int calls = 0;
  std::function<std::string()> source() {
    return [this] { return parts[std::min<std::size_t>(calls++, parts.size() - 1)]; };
  }
};

class UniqueTempFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/zel_unique_temp_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = std::string(pattern) + "/";
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string dir_;
  const std::string pid_ = std::to_string(getpid());
};

TEST_F(UniqueTempFileTest, NameCarriesPrefixProcessRandomPartAndExtension) {
  std::string path;
  int fd = CreateUniqueTempFile(dir_.c_str(), "scan", "png", path);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_TRUE(HasRandomPartBetween(path, dir_ + "scan_" + pid_ + "_", ".png")) << path;

  // Null and empty pieces are left out with their "_" and ".".
  fd = CreateUniqueTempFile(dir_.c_str(), "", nullptr, path);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_TRUE(HasRandomPartBetween(path, dir_ + pid_ + "_", "")) << path;

  // A folder without its closing separator still gets the file inside it.
  const std::string bare = dir_.substr(0, dir_.size() - 1);
  fd = CreateUniqueTempFile(bare.c_str(), "p", "x", path);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(path.compare(0, dir_.size(), dir_), 0) << path;
  EXPECT_TRUE(Exists(path));

  // Null folder: the system's, which follows TMPDIR.
  {
    ScopedTmpDir tmp(bare);
    fd = CreateUniqueTempFile(nullptr, "sys", nullptr, path);
  }
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(path.compare(0, dir_.size(), dir_), 0) << path;
}

TEST_F(UniqueTempFileTest, FileIsNewEmptyPrivateAndOpenForReadAndWrite) {
  // Even a process that lets everyone read new files gets an owner-only file.
  const mode_t oldMask = umask(0);
  std::string path;
  const int fd = CreateUniqueTempFile(dir_.c_str(), "m", nullptr, path);
  umask(oldMask);
  ASSERT_GE(fd, 0);

  struct stat record {};
  ASSERT_EQ(fstat(fd, &record), 0);
  EXPECT_TRUE(S_ISREG(record.st_mode));
  EXPECT_EQ(record.st_mode & 0777, 0600u);
  EXPECT_EQ(record.st_size, 0);
  EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);

  ASSERT_EQ(write(fd, "abc", 3), 3);
  char back[3] = {};
  ASSERT_EQ(pread(fd, back, 3, 0), 3);
  EXPECT_EQ(std::string(back, 3), "abc");
  close(fd);
  EXPECT_EQ(ReadAll(path), "abc");
}

TEST_F(UniqueTempFileTest, RefusalsAnswerMinusOneAndEmptyPath) {
  const auto refused = [](const char* dir, const char* prefix, const char* ext) {
    std::string path = "left over";
    const int fd = CreateUniqueTempFile(dir, prefix, ext, path);
    if (fd >= 0) close(fd);
    return fd == -1 && path.empty();
  };
  EXPECT_TRUE(refused((dir_ + "missing/").c_str(), "p", "x"));
  EXPECT_TRUE(refused("", "p", "x"));
  EXPECT_TRUE(refused(dir_.c_str(), "../escape", nullptr));
  EXPECT_TRUE(refused(dir_.c_str(), nullptr, "x/y"));
  EXPECT_TRUE(refused(dir_.c_str(), "a\\b", nullptr));
  EXPECT_TRUE(std::filesystem::is_empty(dir_));
  EXPECT_FALSE(Exists("/tmp/escape_" + pid_));

  // A file where the folder should be is no folder either.
  const std::string plain = dir_ + "plain";
  std::ofstream(plain) << "x";
  EXPECT_TRUE(refused((plain + "/").c_str(), nullptr, nullptr));
}

TEST_F(UniqueTempFileTest, TakenNamesAreRetriedAndNeverOpened) {
  const std::string taken = dir_ + "p_" + pid_ + "_taken.x";
  std::ofstream(taken) << "keep";

  ScriptedParts script{{"taken", "taken", "free"}};
  std::string path;
  int fd = zel::file::CreateUniqueTempFileWith(dir_.c_str(), "p", "x", script.source(), 10, path);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(path, dir_ + "p_" + pid_ + "_free.x");
  EXPECT_EQ(script.calls, 3);
  EXPECT_EQ(ReadAll(taken), "keep");

  // Every name taken: the tries end at the bound.
  ScriptedParts stuck{{"taken"}};
  path = "left over";
  fd = zel::file::CreateUniqueTempFileWith(dir_.c_str(), "p", "x", stuck.source(), 5, path);
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(path, "");
  EXPECT_EQ(stuck.calls, 5);
  EXPECT_EQ(ReadAll(taken), "keep");

  // A folder that is missing is not helped by another name.
  ScriptedParts once{{"a", "b"}};
  fd = zel::file::CreateUniqueTempFileWith((dir_ + "missing").c_str(), nullptr, nullptr, once.source(), 5, path);
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(once.calls, 1);
}

TEST_F(UniqueTempFileTest, LeavesTheCRuntimeGeneratorAlone) {
  std::srand(1234);
  const int expected = (std::rand(), std::rand());
  std::srand(1234);
  std::rand();
  std::string path;
  const int fd = CreateUniqueTempFile(dir_.c_str(), nullptr, nullptr, path);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(std::rand(), expected);
}

TEST_F(UniqueTempFileTest, ManyThreadsInOneFolderGetDistinctFiles) {
  constexpr int kThreads = 8;
  constexpr int kPerThread = 200;
  std::vector<std::vector<std::string>> made(kThreads);
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t) {
    workers.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        std::string path;
        const int fd = CreateUniqueTempFile(dir_.c_str(), "t", "tmp", path);
        if (fd < 0) continue;
        // Each file is written with its own path: two callers sharing one file would mix them.
        const bool written = write(fd, path.data(), path.size()) == static_cast<ssize_t>(path.size());
        close(fd);
        if (written) made[t].push_back(path);
      }
    });
  }
  for (auto& worker : workers) worker.join();

  std::set<std::string> distinct;
  for (const auto& paths : made) {
    EXPECT_EQ(paths.size(), static_cast<std::size_t>(kPerThread));
    for (const auto& path : paths) {
      distinct.insert(path);
      EXPECT_EQ(ReadAll(path), path);
    }
  }
  EXPECT_EQ(distinct.size(), static_cast<std::size_t>(kThreads * kPerThread));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), kThreads * kPerThread);
}

TEST_F(UniqueTempFileTest, OwnerClosesAndRemovesTheFile) {
  std::string first;
  {
    UniqueTempFile temp(dir_.c_str(), "own", "bin");
    ASSERT_TRUE(temp.valid());
    first = temp.path();
    EXPECT_TRUE(Exists(first));
    EXPECT_EQ(write(temp.descriptor(), "z", 1), 1);

    // Moving hands over the file; the source removes nothing.
    UniqueTempFile moved(std::move(temp));
    EXPECT_FALSE(temp.valid());
    EXPECT_EQ(temp.path(), "");
    EXPECT_EQ(moved.path(), first);

    // Assigning over an owner removes the file it had.
    UniqueTempFile other(dir_.c_str(), "own", "bin");
    const std::string second = other.path();
    other = std::move(moved);
    EXPECT_FALSE(Exists(second));
    EXPECT_TRUE(Exists(first));
    EXPECT_EQ(other.path(), first);
  }
  EXPECT_FALSE(Exists(first));

  // Release keeps the file and ends the ownership.
  std::string kept;
  {
    UniqueTempFile temp(dir_.c_str(), nullptr, nullptr);
    kept = temp.release();
    EXPECT_FALSE(temp.valid());
    EXPECT_EQ(temp.descriptor(), -1);
  }
  EXPECT_TRUE(Exists(kept));

  UniqueTempFile failed((dir_ + "missing/").c_str(), nullptr, nullptr);
  EXPECT_FALSE(failed.valid());
  EXPECT_EQ(failed.descriptor(), -1);
  EXPECT_EQ(failed.path(), "");
}

}  // namespace
