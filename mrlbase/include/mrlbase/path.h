#ifndef MRLBASE_PATH_H_
#define MRLBASE_PATH_H_

// CCA_Path: a figure of points, each with its kind (CA_PathPointType) and a flag that closes the
// figure after it. A Bézier segment adds three points of kind CA_PATH_BezierTo (two control
// points and the end point).
//
//   CCA_Path path;
//   path.MoveTo(0, 0);
//   path.LineTo(10, 0);
//   path.LineTo(10, 10);
//   path.ClosePath();                 // sets the close flag on the point (10, 10)
//   CMRL_PSVTemplate<float> p; int type = 0; bool close = false;
//   path.GetPoint(2, p, type, close); // true: p (10, 10), type CA_PATH_LineTo, close true
//
// Threads: no lock; a path is for one thread at a time while anyone changes it.

#include <vector>

#include <mrlbase/enums.h>
#include <mrlbase/export.h>
#include <mrlbase/psv_template.h>

class MRL_API CCA_Path {
 public:
  // Starts a new figure at (x, y).
  void MoveTo(float x, float y);
  // Adds a straight segment to (x, y).
  void LineTo(float x, float y);
  // Adds a cubic Bézier segment: control points (x1, y1), (x2, y2), end point (x3, y3).
  void BezierTo(float x1, float y1, float x2, float y2, float x3, float y3);
  // Closes the current figure by flagging its last point; no effect on an empty path.
  void ClosePath();

  // Number of points, every Bézier segment counting three.
  int GetPointCount() const noexcept;

  // Point `index` (0 to GetPointCount() - 1) with its kind and close flag.
  // Returns false for an index out of range and then leaves the outputs untouched.
  bool GetPoint(int index, CMRL_PSVTemplate<float>& point, int& type, bool& closeFigure) const;

 private:
  struct Point {
    float x;
    float y;
    CA_PathPointType type;
    bool closeFigure;
  };
  std::vector<Point> points_;
};

#endif  // MRLBASE_PATH_H_
