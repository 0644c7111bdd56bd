#ifndef MRLBASE_MATRIX_H_
#define MRLBASE_MATRIX_H_

// A 2-D affine transform [a b 0; c d 0; e f 1] applied to row vectors: a point (x, y) maps to
// (a*x + c*y + e, b*x + d*y + f). The default is the identity.
//
//   CMRL_Matrix m(2, 0, 0, 2, 10, 20);     // scale by 2, then move by (10, 20)
//   float x = 1, y = 1; m.TransformPoint(x, y);   // x == 12, y == 22
struct CMRL_Matrix {
  float a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;

  constexpr CMRL_Matrix() = default;
  constexpr CMRL_Matrix(float av, float bv, float cv, float dv, float ev, float fv)
      : a(av), b(bv), c(cv), d(dv), e(ev), f(fv) {}

  // Maps the point in place.
  constexpr void TransformPoint(float& x, float& y) const {
    const float nx = a * x + c * y + e;
    const float ny = b * x + d * y + f;
    x = nx;
    y = ny;
  }

  // This transform followed by `next`.
  constexpr CMRL_Matrix Concat(const CMRL_Matrix& next) const {
    return CMRL_Matrix(a * next.a + b * next.c, a * next.b + b * next.d,
                       c * next.a + d * next.c, c * next.b + d * next.d,
                       e * next.a + f * next.c + next.e, e * next.b + f * next.d + next.f);
  }

  constexpr bool operator==(const CMRL_Matrix& o) const {
    return a == o.a && b == o.b && c == o.c && d == o.d && e == o.e && f == o.f;
  }
  constexpr bool operator!=(const CMRL_Matrix& o) const { return !(*this == o); }
};

#endif  // MRLBASE_MATRIX_H_
