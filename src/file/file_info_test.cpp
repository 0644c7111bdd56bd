#include <zelutility/file_info.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

// Each test works in a fresh folder of its own below the system's temporary folder.
class FileInfoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/zel_file_info_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(root_); }

  std::string At(const std::string& relative) const { return root_ + "/" + relative; }

  std::string MakeFile(const std::string& relative, const std::string& contents, mode_t mode = 0644) const {
    const std::string path = At(relative);
    std::ofstream(path, std::ios::binary) << contents;
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    return path;
  }
  std::string MakeDir(const std::string& relative, mode_t mode = 0755) const {
    const std::string path = At(relative);
    EXPECT_EQ(mkdir(path.c_str(), mode) | chmod(path.c_str(), mode), 0);
    return path;
  }

  static bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  std::string root_;
};

TEST_F(FileInfoTest, FlagsReportKindAndPermissionsAskedFor) {
  const std::string file = MakeFile("f.txt", "x");
  const std::string dir = MakeDir("d");
  const std::string readOnly = MakeFile("ro.txt", "x", 0444);
  // Without the value 1 nothing is asked; 8 has no meaning.
  const struct { const std::string& path; int asked, answer; } rows[] = {
      {file, 2, 0}, {file, 3, 3}, {dir, 3, 1}, {dir, 5, 5}, {file, 7, 3}, {dir, 9, 1}, {readOnly, 49, 17}, {file, -1, 51}};
  for (const auto& row : rows) EXPECT_EQ(CheckFilePath(row.path.c_str(), row.asked), row.answer) << row.path << row.asked;
  EXPECT_EQ(CheckFilePath(At("missing").c_str(), 3) + CheckFilePath(static_cast<const char*>(nullptr), 63), 0);

  const std::wstring wideFile(file.begin(), file.end());
  EXPECT_EQ(CheckFilePath(wideFile.c_str(), 35), 35);
  EXPECT_EQ(CheckFilePath(L"", 1), 0);

  // GetFileFlags asks everything.
  EXPECT_EQ(GetFileFlags(file.c_str()), 51);
  EXPECT_EQ(GetFileFlags(dir.c_str()), 53);
  EXPECT_EQ(GetFileFlags(MakeFile("wo", "", 0200).c_str()), 35);
  EXPECT_EQ(GetFileFlags(MakeDir("rodir", 0555).c_str()), 21);
  EXPECT_EQ(GetFileFlags("/dev/null"), 1 + 16 + 32);  // neither file nor folder
  EXPECT_EQ(GetFileFlags("") + GetFileFlags(static_cast<const wchar_t*>(nullptr)), 0);

  // Non-ASCII names: the narrow form reads UTF-8, the wide form code points.
  EXPECT_EQ(GetFileFlags(MakeFile("\xE6\x96\x87\xE4\xBB\xB6.txt", "").c_str()), 51);
  EXPECT_EQ(GetFileFlags((std::wstring(root_.begin(), root_.end()) + L"/\u6587\u4EF6.txt").c_str()), 51);
}

TEST_F(FileInfoTest, SeparatorsAreNormalisedBeforeAsking) {
  const std::string dir = MakeDir("d");
  const std::string file = MakeFile("d/f", "x");

  EXPECT_TRUE(ZELFileInfo((dir + "\\").c_str(), -1).IsDir());
  EXPECT_TRUE(ZELFileInfo((root_ + "\\d\\f").c_str(), -1).IsFile());
  // One final separator goes, so a file written as a folder is still found; a second one stays.
  EXPECT_TRUE(ZELFileInfo((file + "/").c_str(), -1).IsFile());
  EXPECT_FALSE(ZELFileInfo((file + "\\/").c_str(), -1).IsExists());
  EXPECT_TRUE(ZELFileInfo((std::wstring(dir.begin(), dir.end()) + L"\\").c_str(), -1).IsDir());

  // An explicit length reads only that many bytes.
  const std::string longer = dir + "/f-and-more";
  EXPECT_TRUE(ZELFileInfo(longer.c_str(), static_cast<int>(dir.size())).IsDir());
  EXPECT_TRUE(ZELFileInfo(longer.c_str(), static_cast<int>(dir.size() + 2)).IsFile());

  // A lone separator and a null path have no status.
  EXPECT_FALSE(ZELFileInfo("/", -1).IsExists() || ZELFileInfo(static_cast<const char*>(nullptr), -1).IsExists());
}

TEST_F(FileInfoTest, SnapshotIsTakenOnceAndCopies) {
  const std::string file = MakeFile("f", "x", 0444);
  ZELFileInfo info(file.c_str(), -1);
  EXPECT_TRUE(info.IsExists() && info.IsFile() && !info.IsDir() && info.ReadEnable() && !info.WriteEnable());
  ASSERT_EQ(std::remove(file.c_str()), 0);
  EXPECT_TRUE(info.IsFile());  // nothing refreshes the answers

  ZELFileInfo missing(file.c_str(), -1);
  EXPECT_FALSE(missing.IsExists() || missing.IsFile() || missing.ReadEnable());
  missing = info;
  const ZELFileInfo& self = missing;
  missing = self;  // assignment to itself keeps the record
  EXPECT_TRUE(missing.ReadEnable() && !missing.WriteEnable());
}

TEST_F(FileInfoTest, CopyFile) {
  for (std::size_t size : {0u, 4096u, 4097u}) {  // around the block size
    std::string contents(size, '\0');
    for (std::size_t i = 0; i < size; ++i) contents[i] = static_cast<char>(i * 131 + 7);
    const std::string target = At("dst" + std::to_string(size));
    LXCopyFile(MakeFile("src" + std::to_string(size), contents).c_str(), target.c_str());
    EXPECT_EQ(Read(target), contents) << size;
  }
  // An existing longer target is emptied first; backslashes are separators on the way in.
  const std::string target = MakeFile("long", std::string(10000, 'z'));
  LXCopyFile(MakeFile("short", "abc").c_str(), target.c_str());
  EXPECT_EQ(Read(target), "abc");
  LXCopyFile((root_ + "\\short").c_str(), (root_ + "\\copy").c_str());
  EXPECT_EQ(Read(At("copy")), "abc");

  // Without a source the target is left alone or not made; a target that cannot be opened
  // leaves the source as it was.
  LXCopyFile(At("missing").c_str(), target.c_str());
  EXPECT_EQ(Read(target), "abc");
  LXCopyFile(At("missing").c_str(), At("new").c_str());
  EXPECT_FALSE(Exists(At("new")));
  LXCopyFile(At("short").c_str(), At("no/such/folder/t").c_str());
  EXPECT_EQ(Read(At("short")), "abc");
}

TEST_F(FileInfoTest, CreateFileMakesFoldersAndRemovesOnlyItsOwnOnFailure) {
  const std::string existing = MakeFile("e.txt", "contents");
  EXPECT_TRUE(LXCreateFile(existing.c_str()));
  EXPECT_EQ(Read(existing), "contents");

  EXPECT_TRUE(LXCreateFile(At("a/b/c/new.txt").c_str()));
  EXPECT_EQ(GetFileFlags(At("a/b/c/new.txt").c_str()), 51);

  // Backslashes are turned into separators; doubled ones do no harm.
  EXPECT_TRUE(LXCreateFile((root_ + "\\x\\\\y\\z.bin").c_str()));
  EXPECT_TRUE(Exists(At("x/y/z.bin")));

  // A path that ends in a separator makes no file, and its new folders go again.
  EXPECT_FALSE(LXCreateFile(At("s/t/").c_str()));
  EXPECT_FALSE(Exists(At("s")));

  // A failure deep down (a name too long) removes the whole chain made by this call, and only that.
  MakeDir("a/keep");
  const std::string tooLong(300, 'b');
  EXPECT_FALSE(LXCreateFile(At("a/keep/n1/n2/" + tooLong + "/f").c_str()));
  EXPECT_TRUE(Exists(At("a/keep")));
  EXPECT_FALSE(Exists(At("a/keep/n1")));

  // A regular file in the way of a folder.
  MakeFile("a/plain", "p");
  EXPECT_FALSE(LXCreateFile(At("a/plain/f").c_str()));
  EXPECT_EQ(Read(At("a/plain")), "p");

  EXPECT_FALSE(LXCreateFile(nullptr));
}

}  // namespace
