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
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "file/temp_test_support.h"
#include "file/unique_temp_file.h"

namespace {

using zel::file::test::Exists;
using zel::file::test::ScopedTmpDir;
using UniqueTempFileTest = zel::file::test::TempDirTest;

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Whether `path` is `head` + twelve lower-case letters or digits + `tail`.
bool HasRandomPartBetween(const std::string& path, const std::string& head, const std::string& tail) {
  if (path.size() != head.size() + 12 + tail.size()) return false;
  if (path.compare(0, head.size(), head) != 0 || path.compare(head.size() + 12, tail.size(), tail) != 0) return false;
  return std::all_of(path.begin() + head.size(), path.begin() + head.size() + 12,
                     [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); });
}

// Makes a file, closes it and gives its path ("" when refused).
std::string Made(const char* dir, const char* prefix, const char* ext) {
  std::string path = "left over";
  const int fd = CreateUniqueTempFile(dir, prefix, ext, path);
  if (fd < 0) return fd == -1 && path.empty() ? "" : "bad refusal";
  close(fd);
  return path;
}

TEST_F(UniqueTempFileTest, NameCarriesPrefixProcessRandomPartAndExtension) {
  EXPECT_TRUE(HasRandomPartBetween(Made(dir_.c_str(), "scan", "png"), dir_ + "scan_" + pid_ + "_", ".png"));
  // Null and empty pieces are left out with their "_" and ".".
  EXPECT_TRUE(HasRandomPartBetween(Made(dir_.c_str(), "", nullptr), dir_ + pid_ + "_", ""));

  // A folder without its closing separator still gets the file inside it; null follows TMPDIR.
  const std::string bare = dir_.substr(0, dir_.size() - 1);
  const std::string inBare = Made(bare.c_str(), "p", "x");
  EXPECT_EQ(inBare.compare(0, dir_.size(), dir_), 0) << inBare;
  EXPECT_TRUE(Exists(inBare));
  ScopedTmpDir tmp(bare.c_str());
  EXPECT_EQ(Made(nullptr, "sys", nullptr).compare(0, dir_.size(), dir_), 0);
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
  close(fd);
  EXPECT_EQ(ReadAll(path), "abc");
}

TEST_F(UniqueTempFileTest, RefusalsAnswerMinusOneAndEmptyPath) {
  const std::string plain = dir_ + "plain";  // a file where the folder should be
  std::ofstream(plain) << "x";
  EXPECT_EQ(Made((dir_ + "missing/").c_str(), "p", "x"), "");
  EXPECT_EQ(Made("", "p", "x"), "");
  EXPECT_EQ(Made((plain + "/").c_str(), nullptr, nullptr), "");
  EXPECT_EQ(Made(dir_.c_str(), "../escape", nullptr), "");
  EXPECT_EQ(Made(dir_.c_str(), nullptr, "x/y"), "");
  EXPECT_EQ(Made(dir_.c_str(), "a\\b", nullptr), "");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), 1);
  EXPECT_FALSE(Exists("/tmp/escape_" + pid_));
}

TEST_F(UniqueTempFileTest, TakenNamesAreRetriedAndNeverOpened) {
  const std::string taken = dir_ + "p_" + pid_ + "_taken.x";
  std::ofstream(taken) << "keep";
  // Answers `parts` one per call, repeating the last, and counts the calls.
  const auto make = [](const std::string& dir, std::vector<std::string> parts, int& calls, std::string& path) {
    calls = 0;
    const auto source = [&] { return parts[std::min<std::size_t>(calls++, parts.size() - 1)]; };
    const int fd = zel::file::CreateUniqueTempFileWith(dir.c_str(), "p", "x", source, 5, path);
    if (fd >= 0) close(fd);
    return fd;
  };
  int calls = 0;
  std::string path;
  EXPECT_GE(make(dir_, {"taken", "taken", "free"}, calls, path), 0);
  EXPECT_EQ(path, dir_ + "p_" + pid_ + "_free.x");
  EXPECT_EQ(calls, 3);

  // Every name taken: the tries end at the bound.
  EXPECT_EQ(make(dir_, {"taken"}, calls, path), -1);
  EXPECT_EQ(path, "");
  EXPECT_EQ(calls, 5);
  EXPECT_EQ(ReadAll(taken), "keep");

  // A folder that is missing is not helped by another name.
  EXPECT_EQ(make(dir_ + "missing", {"a", "b"}, calls, path), -1);
  EXPECT_EQ(calls, 1);
}

TEST_F(UniqueTempFileTest, LeavesTheCRuntimeGeneratorAlone) {
  std::srand(1234);
  const int expected = (std::rand(), std::rand());
  std::srand(1234);
  std::rand();
  EXPECT_NE(Made(dir_.c_str(), nullptr, nullptr), "");
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
}

TEST_F(UniqueTempFileTest, OwnerClosesAndRemovesTheFile) {
  std::string first;
  {
    UniqueTempFile temp(dir_.c_str(), "own", "bin");
    ASSERT_TRUE(temp.valid());
    first = temp.path();
    EXPECT_TRUE(Exists(first));

    // Moving hands over the file; assigning over an owner removes the file it had.
    UniqueTempFile moved(std::move(temp));
    EXPECT_FALSE(temp.valid());
    EXPECT_EQ(temp.path(), "");
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
    EXPECT_EQ(temp.descriptor(), -1);
  }
  EXPECT_TRUE(Exists(kept));

  UniqueTempFile failed((dir_ + "missing/").c_str(), nullptr, nullptr);
  EXPECT_FALSE(failed.valid());
  EXPECT_EQ(failed.path(), "");
}

}  // namespace
