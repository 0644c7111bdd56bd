#include <mrlbase/stream.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

class FileStreamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    m_dir = fs::temp_directory_path() / (std::string("mrl_file_stream_") + info->name() + "_" +
                                         std::to_string(static_cast<long>(::getpid())));
    fs::remove_all(m_dir);
    fs::create_directories(m_dir);
  }
  void TearDown() override { fs::remove_all(m_dir); }

  std::string PathOf(const char* name) const { return (m_dir / name).string(); }
  static std::vector<unsigned char> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
  }

  fs::path m_dir;
};

TEST_F(FileStreamTest, WritesInPiecesLargeAndSmallThenReadsBack) {
  const std::string path = PathOf("out.bin");
  std::vector<unsigned char> expected;
  {
    auto out = CMRL_FileStream::Open(path.c_str(), true);
    ASSERT_NE(nullptr, out);
    for (int i = 0; i < 5000; ++i) {  // many small writes cross the buffer size
      const unsigned char piece[7] = {static_cast<unsigned char>(i), 1, 2, 3, 4, 5, 6};
      ASSERT_TRUE(out->WriteBlock(piece, sizeof piece));
      expected.insert(expected.end(), piece, piece + 7);
    }
    std::vector<unsigned char> big(200000);
    std::iota(big.begin(), big.end(), 0);
    ASSERT_TRUE(out->WriteBlock(big.data(), big.size()));
    expected.insert(expected.end(), big.begin(), big.end());
    ASSERT_TRUE(out->WriteBlock("z", 1));
    expected.push_back('z');
    EXPECT_EQ(expected.size(), out->GetSize());  // buffered bytes count

    // A write stream reads back what it has written, buffered tail included.
    unsigned char tail[2];
    ASSERT_TRUE(out->ReadBlock(tail, expected.size() - 2, 2));
    EXPECT_EQ(expected[expected.size() - 2], tail[0]);
    EXPECT_EQ('z', tail[1]);
    ASSERT_TRUE(out->WriteBlock("!", 1));
    expected.push_back('!');
    // No Flush: closing must write the rest.
  }
  EXPECT_EQ(expected, ReadAll(path));

  auto in = CMRL_FileStream::Open(path.c_str(), false);
  ASSERT_NE(nullptr, in);
  EXPECT_EQ(expected.size(), in->GetSize());
  std::vector<unsigned char> middle(1000);
  ASSERT_TRUE(in->ReadBlock(middle.data(), 30000, middle.size()));
  EXPECT_TRUE(std::equal(middle.begin(), middle.end(), expected.begin() + 30000));
  EXPECT_TRUE(in->ReadBlock(middle.data(), expected.size(), 0));
  EXPECT_FALSE(in->ReadBlock(middle.data(), expected.size() - 1, 2));
  EXPECT_FALSE(in->ReadBlock(middle.data(), SIZE_MAX, 2));
  EXPECT_FALSE(in->WriteBlock("x", 1));  // opened for reading
}

TEST_F(FileStreamTest, OpenRefusals) {
  EXPECT_EQ(nullptr, CMRL_FileStream::Open(PathOf("missing.bin").c_str(), false));
  EXPECT_EQ(nullptr, CMRL_FileStream::Open(m_dir.string().c_str(), false));  // a folder
  EXPECT_EQ(nullptr, CMRL_FileStream::Open(m_dir.string().c_str(), true));
  EXPECT_EQ(nullptr, CMRL_FileStream::Open(PathOf("no/such/dir/x.bin").c_str(), true));
  EXPECT_EQ(nullptr, CMRL_FileStream::Open(nullptr, false));
  EXPECT_EQ(nullptr, CMRL_FileStream::Open("", true));
}

TEST_F(FileStreamTest, OpeningForWriteTruncatesAndUtf8NamesWork) {
  const std::string path = PathOf("caf\xC3\xA9 \xE4\xB8\xAD.txt");
  {
    std::ofstream(path, std::ios::binary) << "old contents that are long";
  }
  {
    auto out = CMRL_FileStream::Open(path.c_str(), true);
    ASSERT_NE(nullptr, out);
    EXPECT_EQ(0u, out->GetSize());
    ASSERT_TRUE(out->WriteBlock("new", 3));
    EXPECT_TRUE(out->Flush());
    EXPECT_EQ(3u, fs::file_size(path));
  }
  EXPECT_EQ((std::vector<unsigned char>{'n', 'e', 'w'}), ReadAll(path));
}

}  // namespace
