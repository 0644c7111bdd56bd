#ifndef MRLBASE_PSV_TEMPLATE_H_
#define MRLBASE_PSV_TEMPLATE_H_

// A point or a size: two values of T, zero by default.
//
//   CMRL_PSVTemplate<int> origin(10, 20);     // origin.x == 10, origin.y == 20
template <class T>
struct CMRL_PSVTemplate {
  T x = 0, y = 0;

  constexpr CMRL_PSVTemplate() = default;
  constexpr CMRL_PSVTemplate(T xValue, T yValue) : x(xValue), y(yValue) {}

  constexpr bool operator==(const CMRL_PSVTemplate& o) const { return x == o.x && y == o.y; }
  constexpr bool operator!=(const CMRL_PSVTemplate& o) const { return !(*this == o); }
};

#endif  // MRLBASE_PSV_TEMPLATE_H_
