#include <mrlbase/stream.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <numeric>
#include <utility>
#include <vector>

namespace {

TEST(MemoryStreamTest, ReadBlockRefusesAnyRangeOutsideTheData) {
  const unsigned char bytes[] = {1, 2, 3, 4, 5};
  CMRL_MemoryStream s(bytes, sizeof bytes);
  unsigned char out[8] = {};
  EXPECT_EQ(5u, s.GetSize());
  EXPECT_TRUE(s.ReadBlock(out, 0, 5));
  EXPECT_EQ(0, std::memcmp(bytes, out, 5));
  EXPECT_TRUE(s.ReadBlock(out, 4, 1));
  EXPECT_EQ(5, out[0]);
  EXPECT_TRUE(s.ReadBlock(out, 5, 0));     // empty range at the very end
  EXPECT_FALSE(s.ReadBlock(out, 6, 0));    // but not past it
  // Offset + size that wraps around is outside too.
  for (const auto& [offset, size] : {std::pair<size_t, size_t>{4, 2}, {0, 6}, {SIZE_MAX, 2}, {2, SIZE_MAX}}) {
    EXPECT_FALSE(s.ReadBlock(out, offset, size)) << offset << "+" << size;
  }
  EXPECT_FALSE(s.ReadBlock(nullptr, 0, 1));
}

TEST(MemoryStreamTest, TheInitialDataIsACopyAndWritesAppend) {
  std::vector<unsigned char> source(100);
  std::iota(source.begin(), source.end(), 0);
  CMRL_MemoryStream s(source.data(), source.size());
  source[0] = 0xEE;  // the stream kept its own bytes
  EXPECT_EQ(0, s.GetData()[0]);

  std::vector<unsigned char> expected(s.GetData(), s.GetData() + s.GetSize());
  for (int round = 0; round < 1000; ++round) {
    const unsigned char piece[3] = {static_cast<unsigned char>(round), 0xAB, 0xCD};
    ASSERT_TRUE(s.WriteBlock(piece, sizeof piece));
    expected.insert(expected.end(), piece, piece + 3);
  }
  EXPECT_TRUE(s.WriteBlock(nullptr, 0));
  EXPECT_FALSE(s.WriteBlock(nullptr, 1));
  EXPECT_TRUE(s.Flush());
  ASSERT_EQ(expected.size(), s.GetSize());
  EXPECT_EQ(0, std::memcmp(expected.data(), s.GetData(), expected.size()));
  unsigned char tail[3];
  EXPECT_TRUE(s.ReadBlock(tail, s.GetSize() - 3, 3));
  EXPECT_EQ(static_cast<unsigned char>(999 & 0xFF), tail[0]);

  const std::vector<unsigned char> taken = s.TakeData();
  EXPECT_EQ(expected, taken);
  EXPECT_EQ(0u, s.GetSize());

  CMRL_MemoryStream empty(nullptr, 10);
  EXPECT_EQ(0u, empty.GetSize());
  unsigned char b;
  EXPECT_FALSE(empty.ReadBlock(&b, 0, 1));
}

}  // namespace
