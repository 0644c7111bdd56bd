#ifndef MRLBASE_DEVICE_RECT_H_
#define MRLBASE_DEVICE_RECT_H_

// A rectangle in device space: left/top inclusive, right/bottom exclusive, zero by default.
// Nothing is normalised: a rectangle with right < left keeps its values (Width() is then negative).
//
//   CMRL_DeviceRectTemplate<int> r(0, 0, 640, 480);   // r.Width() == 640
template <class T>
struct CMRL_DeviceRectTemplate {
  T left = 0, top = 0, right = 0, bottom = 0;

  constexpr CMRL_DeviceRectTemplate() = default;
  constexpr CMRL_DeviceRectTemplate(T l, T t, T r, T b) : left(l), top(t), right(r), bottom(b) {}

  constexpr T Width() const { return right - left; }
  constexpr T Height() const { return bottom - top; }
  // True when the rectangle covers no area.
  constexpr bool IsEmpty() const { return !(right > left) || !(bottom > top); }

  constexpr bool operator==(const CMRL_DeviceRectTemplate& o) const {
    return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
  }
  constexpr bool operator!=(const CMRL_DeviceRectTemplate& o) const { return !(*this == o); }
};

// A rectangle with float edges, zero by default.
struct MRL_DeviceRectF {
  float left = 0, top = 0, right = 0, bottom = 0;

  constexpr MRL_DeviceRectF() = default;
  constexpr MRL_DeviceRectF(float l, float t, float r, float b) : left(l), top(t), right(r), bottom(b) {}

  constexpr float Width() const { return right - left; }
  constexpr float Height() const { return bottom - top; }

  constexpr bool operator==(const MRL_DeviceRectF& o) const {
    return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
  }
  constexpr bool operator!=(const MRL_DeviceRectF& o) const { return !(*this == o); }
};

#endif  // MRLBASE_DEVICE_RECT_H_
