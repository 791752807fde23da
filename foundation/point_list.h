#pragma once
// Operations applied to every point of a list, positions 1 to Count() in order. Unset
// positions (holes left by Delete) are skipped by the transformations and refused by
// bounding_box.
#include "records.h"
#include "list.h"

// 0, every set point moved by v; 110 for a null list (unset positions are skipped).
KESTRA_API short translate(V_VECTOR& v, List<V_POINT>* pts);
// 0, every set point moved by to - from; 110 for a null list (unset positions are skipped).
KESTRA_API short translate(V_POINT& from, V_POINT& to, List<V_POINT>* pts);
// 0, every set point taken from wp's local coordinates to world ones; 110 for a null list.
KESTRA_API short relative_to_absolute(const V_WORKPLANE& wp, List<V_POINT>* pts);
// 0, every set point taken from world coordinates to wp's local ones; 110 for a null list.
KESTRA_API short absolute_to_relative(const V_WORKPLANE& wp, List<V_POINT>* pts);
// 0 and the smallest box holding the points; 110 for an empty list, an unset position or a
// null box, box then unchanged. A NaN coordinate after the first point never widens the box.
KESTRA_API short bounding_box(List<V_POINT>& pts, V_BOUNDS* box);
