#include <mrlbase/path.h>

#include <cstddef>

void CCA_Path::MoveTo(float x, float y) { points_.push_back({x, y, CA_PATH_MoveTo, false}); }

void CCA_Path::LineTo(float x, float y) { points_.push_back({x, y, CA_PATH_LineTo, false}); }

void CCA_Path::BezierTo(float x1, float y1, float x2, float y2, float x3, float y3) {
  points_.push_back({x1, y1, CA_PATH_BezierTo, false});
  points_.push_back({x2, y2, CA_PATH_BezierTo, false});
  points_.push_back({x3, y3, CA_PATH_BezierTo, false});
}

void CCA_Path::ClosePath() {
  if (!points_.empty()) points_.back().closeFigure = true;
}

int CCA_Path::GetPointCount() const noexcept { return static_cast<int>(points_.size()); }

bool CCA_Path::GetPoint(int index, CMRL_PSVTemplate<float>& point, int& type,
                        bool& closeFigure) const {
  if (index < 0 || index >= GetPointCount()) return false;
  const Point& p = points_[static_cast<std::size_t>(index)];
  point.x = p.x;
  point.y = p.y;
  type = p.type;
  closeFigure = p.closeFigure;
  return true;
}
