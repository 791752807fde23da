#pragma once
// CNurbs: a non-uniform rational B-spline curve of any order, in model space (3-D) or in the
// (U, V) parameter space of a surface (2-D). Control points are stored homogeneous
// (x*w, y*w, z*w, w) point after point; knots are stored in multiplicity form (distinct
// values increasing, one multiplicity each). Every index is 1-based.
#include "../foundation/kestra_export.h"
#include "../foundation/records.h"
#include <cstdint>
#include <cstdio>

template <typename T> class List;
class SNurbs;
class Polyline;

class KESTRA_API CNurbs {
public:
    List<double>* cpts;   // homogeneous control values, vpp per control point
    List<double>* knots;  // distinct knot values, increasing
    List<int>* mults;     // one multiplicity per distinct knot
    int16_t closed;       // 1 when the curve is closed
    int16_t parametric;   // 1 when the curve lives in a surface's (U, V) space
    int16_t periodic;     // 1 when the curve is periodic
    int16_t rational;     // 1 when weights are present
    int32_t form;         // 0 undefined, 1 circular, 2 parabolic, 3 elliptical, 4 hyperbolic arc
    int32_t order;        // degree + 1
    int32_t n_cpts;       // number of control points
    int32_t vpp;          // values per control point, weight included
    int32_t n_knots;      // number of distinct knots

    // ---- lifecycle (cs_nucu.cpp) ----

    // Every count and flag 0, no lists.
    CNurbs();
    // Deep copy of the three lists and the nine scalar fields; a list that cannot be
    // allocated is a contract violation.
    CNurbs(const CNurbs& other);
    CNurbs& operator=(const CNurbs& other);
    // Takes the three lists and the scalar fields; the source is left zero-filled, no lists.
    CNurbs(CNurbs&& other) noexcept;
    CNurbs& operator=(CNurbs&& other) noexcept;
    // Frees the three lists.
    ~CNurbs();

    // Frees the three lists and zero-fills every field (the state of CNurbs()).
    void Free_Lists();
    // Replaces the lists by empty ones sized from the counts: control values when
    // n_cpts >= 2 and vpp >= 1, knot values and multiplicities when n_knots >= 2 (with
    // no_mults true the multiplicity list is freed and left null). A list whose condition
    // fails is left as it is. Growth steps are n_cpts * vpp and n_knots, at most 65536.
    // 0 ok; 115 a list could not be allocated (the curve is then unchanged).
    short Init_Lists(bool no_mults = false);
    // Order n Bezier frame: n control points (to be filled by the caller), knots 0 and 1 of
    // multiplicity n, flags and form 0, vpp 3. 0 ok; 110 n < 2; 115 no memory.
    short Init_As_Bezier_Curve(int n);

    // ---- knots (cs_nucu1.cpp) ----

    // Copies both multiplicity-form lists into the caller's. 0 ok; 110 a list is missing
    // or short; 115 an output list could not grow.
    short Get_Knots_Vector(List<double>* values, List<int>* mult) const;
    // values[0..n_knots-1], mult[0..n_knots-1] (0-based arrays of n_knots entries).
    // 0 ok; 110 a list is missing or a slot unset.
    short Get_Knots_Vector(double* values, int* mult) const;
    // Replaces the knot lists by n_knots entries of values[0..], mult[0..].
    // 0 ok; 110 n_knots < 2 or null array; 115 no memory (curve unchanged).
    short Put_Knots_Vector(double* values, int* mult);
    // Replaces the knot lists by copies; n_knots becomes their count.
    // 0 ok; 110 the counts differ, fewer than 2 knots or an unset slot; 115 no memory.
    short Put_Knots_Vector(List<double>& values, List<int>& mult);
    // Distinct knot i (asserts 1 <= i <= n_knots). 0 ok; 110 missing list or unset slot.
    short Get_Knot(int i, double* value) const;
    // Multiplicity of distinct knot i (asserts the index). 0 ok; 110 missing or unset.
    short Get_Knot_Mult(int i, int* mult) const;
    // Stores distinct knot i (asserts the index). 0 ok; 110 missing list; 115 no memory.
    short Put_Knot(int i, double value);
    // Stores the multiplicity of distinct knot i (asserts the index). Codes as Put_Knot.
    short Put_Knot_Mult(int i, int mult);
    // Linear knot i, 1 <= i <= n_cpts + order (asserts). 0 ok; 110 missing or unset data;
    // 111 i beyond the sum of the multiplicities.
    short Get_Linear_Knot(int i, double* value) const;
    // Multiplicity of the distinct knot holding linear knot i. Codes as Get_Linear_Knot.
    short Get_Linear_Knot_Mult(int i, int* mult) const;
    // Clears out and fills it with the linear knot vector. 0 ok; 110 missing or unset data;
    // 111 fewer than 2 knots; 115 no memory.
    short Get_Linear_Knots_Vector(List<double>* out) const;
    // Replaces the knots by the multiplicity form of linear[1..Count()] (values closer than
    // the knot tolerance merge). 0 ok; 110 unset slot; 111 fewer than 2 knots; 115 no memory.
    short Put_Linear_Knots_Vector(List<double>& linear);
    // Parameter range of the curve: linear knots order and n_cpts + 1 (the first and last
    // distinct knot of a clamped curve). 0 ok; 110 missing list or unset slot; 111 order
    // below 1, n_cpts below the order or too few knots.
    short Get_Start_End_Knots(double* start, double* end) const;
    // Raw 0-based storage of the three lists (control values, knot values, multiplicities),
    // an empty list's storage created first; null for a missing list or a null argument.
    // 0 ok; 115 storage could not be created.
    short Get_Arrays(double** cpt_values, double** knot_values, int** mult_values);

    // ---- control points (cs_nucu1.cpp); the V_POINT forms assert a 3-D curve ----

    // Stores Cartesian p at i; a rational curve multiplies by the weight already stored.
    // 0 ok; 110 missing list or unset weight; 146 stored weight below tavo_min_weight.
    short Put_Cpt(int i, V_POINT p);
    // Stores p*w and w at i (w ignored on a polynomial curve). 0 ok; 110 missing list;
    // 146 rational and w < tavo_min_weight (nothing changed); 115 no memory.
    short Put_Cpt_And_Weight(int i, V_POINT p, double w);
    // Cartesian point i. 0 ok; 110 missing list or unset slot; 146 weight below minimum.
    short Get_Cpt(int i, V_POINT* p) const;
    // Cartesian point i and its weight (1 when polynomial). Codes as Get_Cpt.
    short Get_Cpt_And_Weight(int i, V_POINT* p, double* w) const;
    // Clears pts and appends the n_cpts Cartesian points. Codes as Get_Cpt, 115 no memory.
    short Get_Cpts(List<V_POINT>* pts) const;
    // As Get_Cpts, also filling weights (1 each when polynomial; weights may be null).
    short Get_Cpts_And_Weights(List<V_POINT>* pts, List<double>* weights) const;
    // Replaces every control point: n_cpts = pts.Count(); rational with vpp 4 when weights
    // is given (same count), polynomial with vpp 3 otherwise. Knots are not touched.
    // 0 ok; 110 fewer than 1 point, unset slot or count mismatch; 146 a weight below
    // tavo_min_weight; 115 no memory. The curve is unchanged on failure.
    short Put_Cpts_And_Weights(List<V_POINT>& pts, List<double>* weights);

    // ---- parameter search and evaluation (cs_nucu1.cpp) ----

    // Distinct-knot interval j with K[j] <= t < K[j+1]; t within the knot tolerance of the
    // last knot belongs to the last interval. 0 ok; 110 unusable knots; 111 t outside
    // [K[1], K[n_knots]] or not finite.
    short Find_Interval(double t, int* j) const;
    // Linear span: index of the last linear copy of K[j], j = Find_Interval(t).
    // Codes as Find_Interval.
    short Find_Span(double t, int* span) const;
    // First distinct knot within the knot tolerance of t: found 1 and its index in pos,
    // else found 0. 0 ok (a missing knot list finds nothing); 110 an unset slot or a null
    // argument; 111 t not finite.
    short Find_Knot_Position(double t, short* found, int* pos) const;
    // Point at t. linear: the curve's linear knot vector (Get_Linear_Knots_Vector) or null.
    // 0 ok; 110 not a usable 3-D curve, linear knots of the wrong count, rational weight sum
    // below tavo_min_weight; 111 t outside [linear knot order, linear knot n_cpts + 1] or not
    // finite; 115 no scratch memory (orders above 21 only). With linear given the cost does
    // not grow with the number of knots; without it one pass over the knots is made.
    short Eval(double t, List<double>* linear, V_POINT* p) const;
    // Point and first derivative. Codes as above.
    short Eval(double t, List<double>* linear, V_POINT* p, V_VECTOR* d1) const;
    // Point, first and second derivatives. Codes as above.
    short Eval(double t, List<double>* linear, V_POINT* p, V_VECTOR* d1, V_VECTOR* d2) const;
    // Cartesian coordinates of the point into out[0 .. dimension-1] (any dimension, 2-D
    // parametric curves included). Codes as above.
    short Eval(double t, List<double>* linear, double* out) const;

    // ---- text dump (cs_nucu.cpp), through debug_printf; title may be null ----

    // Start line, order line with the set flags, "Form is <name>", then both dumps below.
    void DebugOutput(const char* title = nullptr) const;
    // Start line, one line per control point (12 decimals, Cartesian, weight when
    // rational; U and V for a 2-D curve), then "=======".
    void DebugOutputVertices(const char* title = nullptr) const;
    // Start line, one line per distinct knot with its multiplicity, then "======= End ".
    void DebugOutputKnots(const char* title = nullptr) const;

    // ---- binary record (cs_nucu.cpp), little-endian ----

    // 0 ok; 110 short write; 111 null stream.
    short fwrite_bin(FILE* f) const;
    // Reads one record; the counted arrays are taken as they stand (they need not agree
    // with the header). 0 ok; 110 short read or list failure; 111 null stream. The curve is
    // unchanged on failure.
    short fread_bin(FILE* f);
    // Same from a memory cursor, advanced by the record's length on success (unchanged on
    // failure; 110 for a null cursor). The caller guarantees the bytes are there (no length
    // checks).
    short fread_bin(unsigned char*& cursor);
    // Same from a memory cursor with len readable bytes; 110 when the record runs past them.
    short fread_bin(unsigned char*& cursor, size_t len);

    // ---- knot insertion and removal (cs_nucu2.cpp) ----

    // Inserts u r more times (existing knot, u within the knot tolerance of it: nothing when
    // it already has order-1 or at least r copies, else capped at order-1 copies; new knot:
    // exactly r copies). 0 ok (also when nothing needed inserting); 110 r < 1 for a new
    // knot, unusable curve or no memory; 111 u outside the parameter range or not finite.
    // The control list keeps its growth step, the knot lists grow by their new count.
    // The curve is unchanged on failure.
    short InsertKnot(double u, int r);
    // Removes the knot u up to num times while the squared distance of the meeting points
    // stays <= tol; *removed gets the count. u must be within the knot tolerance (inclusive)
    // of the knot that starts its interval (Find_Interval), so a value just below a knot is
    // not that knot. 0 ok; 110 nothing removed, u not a knot or an end knot, null removed;
    // 111 u outside the range or not finite. The lists keep their growth steps. The curve
    // is unchanged on failure.
    short RemoveKnot(double u, int num, int* removed, double tol);
    // Inserts the knots to add, given in multiplicity form (values increasing, within the
    // parameter range; each value is added mult times). Counts and lists change, the flags
    // and form stay. 0 ok; 110 bad lists or a resulting multiplicity above the order;
    // 111 a value outside the range; 115 no memory. The curve is unchanged on failure.
    short knot_refinement(List<double>& values, List<int>& mult);
    // Distinct-knot interval of u, the same as Find_Interval.
    short FindSpan(double u, int* k) const;

    // ---- creation (cs_create.cpp) ----
    // Each creator replaces the whole curve on success (flags, form, counts, lists) and
    // leaves it unchanged on any failure; 115 always means memory ran out. Lists of points
    // alone are read at their occupied positions (holes skipped); lists read position by
    // position against weights must have every position set (110 otherwise). Conics are
    // rational quadratics in pieces of at most a quarter turn, weight 1 at the ends and
    // cos(piece sweep / 2) in the middle, knots j/k (triple at the ends, double at joins).

    // Order 2 from s.start to s.end, knots 0 and 1. 0 ok; 110 coincident or non-finite ends.
    short CreateFromSegment(const V_SEGM& s);
    // Order 2 (U, V) curve from a to b: parametric 1, vpp 2, knots 0 and 1. 0 ok; 110 a and b
    // closer than tavotoll.point or not finite.
    short CreateFromParametricSegment(const V_POINT2D& a, const V_POINT2D& b);
    // Circular arc (form 1) counter-clockwise about the normal, its first and last control
    // points exactly start and end; a negative radius runs the same points from end to start;
    // start == end is a full turn (closed 1). 0 ok; 110 radius <= tavotoll.point, zero normal,
    // start or end off the circle by more than tavotoll.point * max(1, radius).
    short CreateFromArc(const V_ARC& a);
    // Full circle (form 1, closed) from centre + radius * u, u the world X axis projected into
    // the plane (world Y when |unit normal . X| > 0.9), counter-clockwise about the normal
    // (clockwise for a negative radius). 0 ok; 110 radius <= tavotoll.point or zero normal.
    short CreateFromCircle(const V_CIRCLE& c);
    // Full ellipse (form 3, closed) centre + radius1 cos E axis1 + radius2 sin E axis2 from
    // E = 0, counter-clockwise about axis1 x axis2 (axes used as given). 0 ok; 110 a radius
    // <= tavotoll.point, zero or parallel axes.
    short CreateFromEllipse(const V_ELLIPSE& e);
    // Elliptical arc (form 3) counter-clockwise about axis1 x axis2 from start to end, which
    // become its first and last control points; start == end is a full turn. 0 ok; 110 as
    // CreateFromEllipse, or start or end off the ellipse by more than tavotoll.point *
    // max(1, larger semi-axis).
    short CreateFromEllipticalArc(const V_ELLIPTICALARC& a);
    // Order 2 through the occupied points in order, a point within tavotoll.point of the
    // previous kept one skipped; knots at the cumulative chord length (the parameter is the
    // distance along the polyline); closed when at least 3 kept points end where they start.
    // 0 ok; 110 fewer than 2 kept points or a non-finite point.
    short CreateFromPolyline(const List<V_POINT>& pts);
    short CreateFromPolyline(const Polyline& p);  // its point list as above; 110 without one
    // Parabolic arc (form 2): the rational quadratic Bezier p0, p1, p2 with weights 1, p1 the
    // meeting point of the end tangents. 0 ok; 110 p0 == p2, p1 within tavotoll.point of the
    // line p0 p2, a non-finite point.
    short CreateParabola(const V_POINT& p0, const V_POINT& p1, const V_POINT& p2);
    // Hyperbolic arc (form 4) centre + a cosh t axis1 + b sinh t axis2, t0 <= t <= t1, in
    // pieces of at most 2 in t with middle weight cosh(piece / 2); knots from 0 to 1.
    // 0 ok; 110 a or b <= tavotoll.point, zero or parallel axes, t1 - t0 <= tavotoll.param,
    // |t0| or |t1| above 50.
    short CreateHyperbola(const V_POINT& centre, const V_VECTOR& axis1, const V_VECTOR& axis2,
                          double a, double b, double t0, double t1);
    // Circular arc (form 1) from explicit data: start at angle start_angle from xdir (projected
    // into the plane) counter-clockwise about normal, sweeping |sweep| counter-clockwise when
    // sweep > 0 and clockwise when < 0; |sweep| >= 2 pi - tavotoll.angle is a full, closed
    // turn. 0 ok; 110 radius <= tavotoll.point, zero normal, xdir along the normal, |sweep|
    // <= tavotoll.angle or above 2 pi + tavotoll.angle.
    short Create_From_Arc(const V_POINT& centre, double radius, const V_VECTOR& normal,
                          const V_VECTOR& xdir, double start_angle, double sweep);
    // Full circle (form 1, closed) starting at centre + radius * xdir (projected into the
    // plane), counter-clockwise about normal. 0 ok; 110 as Create_From_Arc.
    short Create_From_Circle(const V_POINT& centre, double radius, const V_VECTOR& normal,
                             const V_VECTOR& xdir);
    // Degenerate curve of one point: order 2, two equal control points, knots 0 and 1.
    // 0 ok; 110 a non-finite point.
    short Create_From_Point(const V_POINT& p);
    // Polynomial curve of the given order on the occupied points as control points, clamped
    // uniform knots 0, 1/(n-order+1), ..., 1. 0 ok; 110 fewer than 2 points, order outside
    // 1..n, a non-finite point.
    short Create_From_Points(const List<V_POINT>& pts, int order);
    // Curve of the given order from control points, weights (null: polynomial) and knots in
    // multiplicity form. 0 ok; 110 order < 1, fewer than 2 or fewer than order points, counts
    // that differ, an unset slot, knots closer than tavotoll.param or decreasing, a
    // multiplicity outside 1..order, multiplicities not summing to points + order, an empty
    // parameter range, non-finite data; 146 a weight below tavo_min_weight.
    short Create_From_Cpts(int order, const List<V_POINT>& pts, const List<double>* weights,
                           const List<double>& values, const List<int>& mult);
    // Create_From_Cpts with the knots in linear form (points + order values, non-decreasing;
    // values within tavotoll.param of a run's first value join that run). Codes the same.
    short Create_By_Cpts(int order, const List<V_POINT>& pts, const List<double>* weights,
                         const List<double>& linear);
    // Empty order-n Bezier frame of Init_As_Bezier_Curve (control points to be filled by the
    // caller). 0 ok; 110 order < 2.
    short Create_Bezier_Curve(int order);
    // Polynomial Bezier on the occupied points (order = their number), knots 0 and 1.
    // 0 ok; 110 fewer than 2 points or a non-finite point.
    short Create_Bezier_Curve(const List<V_POINT>& pts);
    // Rational Bezier, weight i for point i. 0 ok; 110 fewer than 2 points, counts that
    // differ, an unset slot, non-finite data; 146 a weight below tavo_min_weight.
    short Create_Bezier_Curve(const List<V_POINT>& pts, const List<double>& weights);
    // Bezier from n points of dim values each, stored as given (homogeneous, the weight last
    // when rational): dim - rational is 3 for a model-space curve, 2 for a (U, V) one.
    // 0 ok; 110 null cpts, n < 2, another dim, non-finite values; 146 a weight below
    // tavo_min_weight.
    short Create_Bezier_From_Cpts(const double* cpts, int n, int dim, bool rational);
    // Cubic Bezier G1 blend from the end of a to the start of b: P0 = a(end), P3 = b(start),
    // P1 = P0 + ma / 3 * unit end tangent of a, P2 = P3 - mb / 3 * unit start tangent of b,
    // so the blend's end derivatives have lengths ma and mb. a or b may be this curve.
    // 0 ok; 110 ma or mb not positive and finite, a or b not a usable 3-D curve, an end
    // derivative shorter than tavotoll.point.
    short Create_Blending(const CNurbs& a, const CNurbs& b, double ma, double mb);
    // ---- end of creation ----
};
