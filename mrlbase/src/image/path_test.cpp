#include <mrlbase/path.h>

#include <gtest/gtest.h>

#include <utility>

namespace {

struct PointRecord {
  CMRL_PSVTemplate<float> point;
  int type = 0;
  bool close = false;
};

PointRecord At(const CCA_Path& path, int index) {
  PointRecord r;
  EXPECT_TRUE(path.GetPoint(index, r.point, r.type, r.close)) << index;
  return r;
}

TEST(PathTest, PointsKeepOrderKindAndCoordinates) {
  CCA_Path path;
  EXPECT_EQ(path.GetPointCount(), 0);
  path.MoveTo(1.5f, -2.0f);
  path.LineTo(3, 4);
  path.BezierTo(5, 6, 7, 8, 9, 10);
  ASSERT_EQ(path.GetPointCount(), 5);

  const std::pair<CMRL_PSVTemplate<float>, int> expected[] = {
      {{1.5f, -2.0f}, CA_PATH_MoveTo}, {{3, 4}, CA_PATH_LineTo}, {{5, 6}, CA_PATH_BezierTo},
      {{7, 8}, CA_PATH_BezierTo},      {{9, 10}, CA_PATH_BezierTo}};
  for (int i = 0; i < 5; ++i) {
    const PointRecord r = At(path, i);
    EXPECT_EQ(std::make_pair(r.point, r.type), expected[i]) << i;
    EXPECT_FALSE(r.close) << i;
  }
}

TEST(PathTest, ClosePathFlagsTheLastPointAndOutOfRangeIsRefused) {
  CCA_Path path;
  path.ClosePath();  // nothing to close yet
  EXPECT_EQ(path.GetPointCount(), 0);

  path.MoveTo(0, 0);
  path.LineTo(10, 0);
  path.LineTo(10, 10);
  path.ClosePath();
  path.MoveTo(20, 20);
  path.LineTo(30, 20);
  ASSERT_EQ(path.GetPointCount(), 5);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(At(path, i).close, i == 2) << i;

  path.ClosePath();
  path.ClosePath();  // closing twice changes nothing more
  EXPECT_TRUE(At(path, 4).close);
  EXPECT_EQ(path.GetPointCount(), 5);

  // An index outside the path is refused and leaves the outputs alone.
  for (int index : {-1, 5, 1000}) {
    CMRL_PSVTemplate<float> point(7, 8);
    int type = 42;
    bool close = true;
    EXPECT_FALSE(path.GetPoint(index, point, type, close)) << index;
    EXPECT_EQ(point, CMRL_PSVTemplate<float>(7, 8));
    EXPECT_EQ(type, 42);
    EXPECT_TRUE(close);
  }
}

}  // namespace
