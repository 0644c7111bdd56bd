#ifndef ZELUTILITY_GEOMETRY_H_
#define ZELUTILITY_GEOMETRY_H_

#include <mrlbase/object_array.h>
#include <mrlbase/psv_template.h>
#include <mrlbase/ts_array_template.h>
#include <zelutility/export.h>

// Plane geometry on single-precision points and polygons.
//
// A polygon is the array of its vertices in order, closed implicitly (the vertex after the last
// is the first); winding and convexity do not matter. The functions decide by exact comparisons,
// with no tolerance: inputs are read as float, sums and products are formed in double and rounded
// back to float at fixed places, so their answers on edges, vertices and collinear segments are
// fully reproducible. Each read of a polygon takes its lock for that one access only.
//
//   CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>> square;
//   for (auto p : {CMRL_PSVTemplate<float>(0, 0), {10, 0}, {10, 10}, {0, 10}}) square.Add(p);
//   IsPointInside(square, {10, 5});   // true: right and bottom edges belong to the polygon
//   IsPointInside(square, {0, 5});    // false: left and top edges do not
//
// Threads: no state; calls run at once, on shared polygons too. Each vertex is read under the
// polygon's lock for that one read, so the caller keeps a polygon unchanged during a call; an
// output polygon is for one thread at a time.

// True when segment a-b crosses segment c-d: each segment's ends lie strictly on both sides of
// the other's line, or the segments are collinear and their bounding boxes meet (touching counts).
// An end lying on the other segment (a T junction, a shared end at an angle) is no crossing.
ZEL_API bool IsLineCross(const CMRL_PSVTemplate<float>& a, const CMRL_PSVTemplate<float>& b,
                         const CMRL_PSVTemplate<float>& c, const CMRL_PSVTemplate<float>& d);

// The crossing point of segments a-b and c-d into x and y. A shared end is given exactly.
// False, with x and y untouched, when the segments do not cross or overlap on one line without
// sharing an end.
ZEL_API bool GetCrossPoint(const CMRL_PSVTemplate<float>& a, const CMRL_PSVTemplate<float>& b,
                           const CMRL_PSVTemplate<float>& c, const CMRL_PSVTemplate<float>& d,
                           float& x, float& y);

// Even-odd test of point against polygon, by a ray towards growing x. Edges on the right and bottom
// of a polygon belong to it, those on the left and top do not (for edges rising by more than 1).
// False for a polygon of no vertices.
ZEL_API bool IsPointInside(const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>>& polygon,
                           CMRL_PSVTemplate<float> point);

// Appends to output the corner points of the overlap of first and second: the edge crossings
// (first's edges outer, second's inner), then first's vertices inside second, then second's
// vertices inside first. Unsorted, duplicates kept, output not emptied first. True when output
// then holds any point; false, output untouched, when either polygon has fewer than 3 vertices.
ZEL_API bool PolygonIntersect(const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>>& first,
                              const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>>& second,
                              CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>>& output);

#endif  // ZELUTILITY_GEOMETRY_H_
