#include <mrlbase/matrix.h>

#include <gtest/gtest.h>

#include <mrlbase/device_rect.h>

namespace {

TEST(MatrixTest, ConcatMatchesApplyingOneAfterTheOther) {
  const CMRL_Matrix rotateScale(0, 2, -2, 0, 0, 0);  // 90 degrees, times 2
  const CMRL_Matrix move(1, 0, 0, 1, 5, -3);
  for (const auto& [first, second] : {std::pair{rotateScale, move}, std::pair{move, rotateScale}}) {
    float x1 = 1.5f, y1 = -4.0f;
    first.TransformPoint(x1, y1);
    second.TransformPoint(x1, y1);
    float x2 = 1.5f, y2 = -4.0f;
    first.Concat(second).TransformPoint(x2, y2);
    EXPECT_FLOAT_EQ(x1, x2);
    EXPECT_FLOAT_EQ(y1, y2);
  }
  // The order matters: rotate-then-move differs from move-then-rotate.
  EXPECT_NE(rotateScale.Concat(move), move.Concat(rotateScale));
  EXPECT_EQ(rotateScale, CMRL_Matrix().Concat(rotateScale));
  EXPECT_EQ(rotateScale, rotateScale.Concat(CMRL_Matrix()));
}

TEST(MatrixTest, RectWidthMayBeNegativeAndThenIsEmpty) {
  const CMRL_DeviceRectTemplate<int> flipped(10, 10, 5, 20);
  EXPECT_EQ(-5, flipped.Width());
  EXPECT_TRUE(flipped.IsEmpty());
  EXPECT_FALSE(CMRL_DeviceRectTemplate<int>(0, 0, 1, 1).IsEmpty());
  EXPECT_FLOAT_EQ(2.5f, MRL_DeviceRectF(0.5f, 0, 3, 1).Width());
}

}  // namespace
