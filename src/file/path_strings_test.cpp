#include <zelutility/path.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace {

std::string Str(const CMRL_ByteString& s) { return std::string(s.AsStringView()); }

TEST(PathStringsTest, ConvertPathSepRewritesBothSeparatorsOnly) {
  EXPECT_EQ(ConvertPathSep("a\\b/c", '/'), "a/b/c");
  EXPECT_EQ(ConvertPathSep("a\\b/c", '\\'), "a\\b\\c");
  EXPECT_EQ(ConvertPathSep("//a\\\\b.c", '/'), "//a//b.c");   // doubled separators stay doubled
  EXPECT_EQ(ConvertPathSep(static_cast<const char*>(nullptr), '/'), "");
  EXPECT_EQ(ToNativePathSep("x/y\\z/"), "x\\y\\z\\");

  char buffer[] = "a/b\\c";
  EXPECT_EQ(ConvertPathSep(buffer, ':'), buffer);
  EXPECT_STREQ(buffer, "a:b:c");
  EXPECT_EQ(ToNativePathSep(buffer), buffer);
  EXPECT_STREQ(buffer, "a:b:c");   // only separators change
  EXPECT_EQ(ConvertPathSep(static_cast<char*>(nullptr), '/'), nullptr);
  char empty[] = "";
  EXPECT_EQ(ToNativePathSep(empty), empty);

  // The std::string form walks the whole length, past embedded zero bytes.
  std::string s("a/b\0c/d", 7);
  ToNativePathSep(s);
  EXPECT_EQ(s, std::string("a\\b\0c\\d", 7));
  ConvertPathSep(s, '/');
  EXPECT_EQ(s, std::string("a/b\0c/d", 7));
}

TEST(PathStringsTest, PathJoinSeparatorRulesAndPieces) {
  EXPECT_EQ(PathJoin("a", "b", nullptr), "a/b");
  EXPECT_EQ(PathJoin("a/", "/b", nullptr), "a/b");
  EXPECT_EQ(PathJoin("a\\", "b", nullptr), "a\\b");
  EXPECT_EQ(PathJoin("a", "\\b", nullptr), "a/b");
  EXPECT_EQ(PathJoin(nullptr, "/b", nullptr), "/b");   // the first text keeps its separator
  EXPECT_EQ(PathJoin("", "\\b", nullptr), "\\b");
  EXPECT_EQ(PathJoin("a", "//b", nullptr), "a//b");    // one byte dropped, one slash added
  EXPECT_EQ(PathJoin("a", "", nullptr), "a");
  EXPECT_EQ(PathJoin("a", "/", nullptr), "a/");
  EXPECT_EQ(PathJoin("a", nullptr, "c", nullptr), "a/c");   // a null second piece is not the end
  EXPECT_EQ(PathJoin(nullptr, nullptr, nullptr), "");
  EXPECT_EQ(PathJoin("a/b\\", "c/d", nullptr), "a/b\\c/d");
  // Pieces are taken up to the closing null.
  EXPECT_EQ(PathJoin("a", "b", "c", nullptr), "a/b/c");
  EXPECT_EQ(PathJoin("a", "b", "", "c", nullptr), "a/b/c");   // empty is skipped, not the end
  EXPECT_EQ(PathJoin("a", "b", "c", nullptr, "d", nullptr), "a/b/c");
  EXPECT_EQ(PathJoin(nullptr, "", "", "/x", "y/", "/z", nullptr), "/x/y/z");
}

TEST(PathStringsTest, GetFileExtSearchesBackwardAcrossSeparators) {
  EXPECT_STREQ(GetFileExt("archive.tar.gz", -1), ".gz");
  EXPECT_STREQ(GetFileExt("dir.d/file", -1), ".d/file");
  EXPECT_STREQ(GetFileExt("name.", -1), ".");
  EXPECT_STREQ(GetFileExt(".hidden", -1), ".hidden");
  EXPECT_STREQ(GetFileExt("noext", -1), "");
  EXPECT_STREQ(GetFileExt("a.b", 0), "");
  // The search starts at the last byte inside the length; the text runs to the terminator.
  const char* path = "a.b.c";
  EXPECT_EQ(GetFileExt(path, 3), path + 1);
  EXPECT_STREQ(GetFileExt(path, 1), "");
  // No-result answers point to one constant text, not into the path.
  EXPECT_EQ(GetFileExt("abc", -1), GetFileExt("xyz", -1));
}

TEST(PathStringsTest, GetFileNameWithExtNeedsASeparator) {
  const char* path = "C:\\d\\n.txt";
  EXPECT_EQ(GetFileNameWithExt(path, -1), path + 5);
  EXPECT_STREQ(GetFileNameWithExt("d/n", -1), "n");
  EXPECT_STREQ(GetFileNameWithExt("d/", -1), "");
  EXPECT_STREQ(GetFileNameWithExt("n.txt", -1), "");
  EXPECT_STREQ(GetFileNameWithExt("a/b\\c", -1), "c");
  EXPECT_STREQ(GetFileNameWithExt("a/b", 0), "");
  EXPECT_STREQ(GetFileNameWithExt("a/b/c", 3), "b/c");   // the separator within the length counts
}

TEST(PathStringsTest, GetFileNameCutsTheLastComponent) {
  EXPECT_EQ(Str(GetFileName("C:\\d\\n.txt", -1)), "n");
  EXPECT_EQ(Str(GetFileName("n.txt", -1)), "n");
  EXPECT_EQ(Str(GetFileName("n", -1)), "n");
  EXPECT_EQ(Str(GetFileName("\\n", -1)), "n");
  EXPECT_EQ(Str(GetFileName("d\\.cfg", -1)), "");
  EXPECT_EQ(Str(GetFileName(".cfg", -1)), "");
  EXPECT_EQ(Str(GetFileName("d.x\\n", -1)), "n");   // a dot before the separator does not count
  EXPECT_EQ(Str(GetFileName("a.b.c", -1)), "a.b");
  EXPECT_EQ(Str(GetFileName("d/", -1)), "");
  EXPECT_EQ(Str(GetFileName("d/e/f.g", -1)), "f");
  // With a length: the dot is searched within it; without one inside, the rest runs to the end.
  EXPECT_EQ(Str(GetFileName("d/ab.c", 5)), "ab");
  EXPECT_EQ(Str(GetFileName("d/ab.c", 4)), "ab.c");
  EXPECT_EQ(Str(GetFileName("abc", 0)), "abc");
}

TEST(PathStringsTest, ModuleFolders) {
  char self[4096] = {};
  ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
  const std::string exe(self);
  const std::string folder = exe.substr(0, exe.rfind('/'));

  const std::string app = Str(GetAppPath());
  EXPECT_EQ(app, folder + "/");
  EXPECT_EQ(Str(GetDllPath(nullptr)), folder);
  EXPECT_EQ(Str(GetDllPath("no-such-module.so")), folder);

  // The C library is loaded into every test program; its folder has no final separator and
  // the name may leave out the version suffix.
  const std::string libc = Str(GetDllPath("libc.so.6"));
  ASSERT_FALSE(libc.empty());
  EXPECT_NE(libc, folder);
  EXPECT_NE(libc.back(), '/');
  EXPECT_EQ(access((libc + "/libc.so.6").c_str(), F_OK), 0) << libc;
  EXPECT_EQ(Str(GetDllPath("libc.so")), libc);
  EXPECT_EQ(Str(GetDllPath("libc.s")), folder);   // a cut-off name is no match
}

TEST(PathStringsTest, MakeTempFilenameGluesPrefixTimeAndSuffix) {
  const auto before = static_cast<std::uint32_t>(std::time(nullptr));
  const std::string name = MakeTempFilename("pre", ".tmp");
  const auto after = static_cast<std::uint32_t>(std::time(nullptr));
  ASSERT_GE(name.size(), 8u);
  EXPECT_EQ(name.substr(0, 3), "pre");
  EXPECT_EQ(name.substr(name.size() - 4), ".tmp");
  const std::string digits = name.substr(3, name.size() - 7);
  const unsigned long seconds = std::stoul(digits);
  EXPECT_EQ(std::to_string(seconds), digits);
  EXPECT_GE(seconds, before);
  EXPECT_LE(seconds, after);

  const std::string bare = MakeTempFilename(nullptr, nullptr);
  EXPECT_FALSE(bare.empty());
  EXPECT_EQ(bare.find_first_not_of("0123456789"), std::string::npos);
  // Nothing truncates a long prefix.
  const std::string longPrefix(3000, 'p');
  EXPECT_EQ(MakeTempFilename(longPrefix.c_str(), "s").substr(0, 3000), longPrefix);
}

}  // namespace
