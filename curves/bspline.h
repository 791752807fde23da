#pragma once
// The knot and basis toolkit shared by the curve and surface classes: knot vectors in their
// two forms and the conversions, searches, range changes and edits on them, the Oslo
// coefficients, the B-spline basis with its derivatives, the Bernstein basis, the Bezier
// half-split matrix, and VertexList, the control-vertex store.
//
// Conventions:
// - Indices are 1-based: first knot, first distinct knot, first vertex, first basis
//   function. Knot and basis arrays handed to BSpline_Basis_* are 1-based (element 0
//   unused); arrays filled by the conversion functions start at 0.
// - Multiplicity form: List<double> of distinct increasing values and List<int> of their
//   multiplicities. Linear form: the values repeated, n_cpts + order of them.
// - Two knots are the same knot when |a - b| < tavotoll.param (read at every use); an
//   interval is degenerate when its length is below tavotoll.param.
// - Status codes: 0 ok, 110 invalid knot data (null list, unset slot, bad value),
//   111 too few knots or an index or range error, 115 a list could not grow,
//   150 nothing to change.
// - Output lists may be the input lists unless a function says otherwise; results are
//   built aside and moved in, so a failure leaves the outputs as they were, except where
//   stated.
#include "../foundation/kestra_export.h"
#include "../foundation/list.h"
#include "../foundation/records.h"
#include "../platform/utils.h"
#include "genmatrix.h"

class CNurbs;

// ----------------------------------------------------------------------------------------
// Knot-vector forms
// ----------------------------------------------------------------------------------------

// knots[0..n-1] (linear, non-decreasing) into runs: a knot joins the open run when it is
// within the knot tolerance of the run's FIRST value. Both lists are cleared first;
// *count (may be null) gets the number of distinct knots, 0 on a later failure. 0 ok;
// 111 n < 2 (count not written); 110 null knots or output list, or a NaN knot; 115 a list
// could not grow (lists left empty).
KESTRA_API short linear_knots_to_multiplicity_knots(int n, double* knots, List<double>* values,
                                                    List<int>* mults, int* count);
// Clears out and appends each of values.Count() distinct values as many times as its
// multiplicity. 0 ok; 111 fewer than 2 distinct knots; 110 null out, counts of the two
// lists differ, unset slot, multiplicity outside 1..kestra_max_multiplicity; 115 no memory.
KESTRA_API short multiplicity_knots_to_linear_knots(List<double>& values, List<int>& mults,
                                                    List<double>* out);
// The same into out[0..] (the caller provides the sum of the multiplicities); *count is
// written, when count is not null, with the number of knots written. Codes as above.
KESTRA_API short multiplicity_knots_to_linear_knots(List<double>& values, List<int>& mults,
                                                    double* out, unsigned long* count);
// Copies n distinct knots from lists into the 0-based arrays out_values[0..n-1] and
// out_mults[0..n-1]. 0 ok; 111 n < 1; 110 null array or a slot 1..n unset.
KESTRA_API short multiplicity_knots_to_multiplicity_knots(List<double>& values, List<int>& mults,
                                                          int n, double* out_values,
                                                          int* out_mults);
// Replaces the lists by n distinct knots from the 0-based arrays. 0 ok; 111 n < 1;
// 110 null argument; 115 no memory (lists unchanged).
KESTRA_API short multiplicity_knots_to_multiplicity_knots(int n, const double* values,
                                                          const int* mults,
                                                          List<double>* out_values,
                                                          List<int>* out_mults);
// Linear VLST of doubles (rewound first) from a multiplicity-form pair of values.Count()
// knots. 0 ok; 111 fewer than 2 distinct knots; 110 null or uninitialised list, unset slot,
// bad multiplicity; 115 the VLST could not grow.
KESTRA_API short knots_vector_from_List_to_VLST(List<double>& values, List<int>& mults, VLST* out);
// Multiplicity form of the linear VLST of doubles, with the run rule of
// linear_knots_to_multiplicity_knots; *count (may be null) the number of distinct knots.
// Codes as linear_knots_to_multiplicity_knots (110 also for an unreadable VLST entry).
KESTRA_API short knots_vector_from_VLST_to_List(VLST* knots, List<double>* values, List<int>* mults,
                                                int* count);
// Number of distinct knots (run rule above) of a linear VLST of doubles into count
// (0 for an empty or uninitialised list). 0 ok; 110 an unreadable entry or NaN.
KESTRA_API short count_distinct_knots(VLST& knots, int& count);

// ----------------------------------------------------------------------------------------
// Linear access and searches
// ----------------------------------------------------------------------------------------

// Value of linear knot i: multiplicities are summed from distinct knot 1 until the sum
// reaches i. 0 ok; 111 i or n_distinct below 1, or i beyond the last knot; 110 null list
// or unset slot.
KESTRA_API short get_linear_knot(List<double>* values, List<int>* mults, int n_distinct, int i,
                                 double* result);
// Multiplicity of the distinct knot that holds linear knot i. Codes as get_linear_knot.
KESTRA_API short get_linear_knot_mult(List<int>* mults, int n_distinct, int i, int* result);
// Linear index of the first copy of distinct knot j: 1 + mults[1] + ... + mults[j-1]
// (1 for j <= 1); 0 when mults is null or one of those slots is unset.
KESTRA_API int linear_knot_position(int j, List<int>* mults);
// found = 1 and pos = k for the first distinct knot k of 1..n within the knot tolerance
// of t; found = 0 otherwise (n < 1 included; found is cleared first). 0 ok; 110 an unset
// slot before a match or a null pointer; 111 t not finite.
KESTRA_API short find_knot_position(double t, List<double>& values, int n, short* found, int* pos);

// ----------------------------------------------------------------------------------------
// Edits on multiplicity-form vectors
// ----------------------------------------------------------------------------------------

// Copies the n distinct knots to the outputs, moves knots j+1..n one place up and stores
// u with multiplicity m at position j+1 (0 <= j <= n). u must lie at least the knot
// tolerance above knot j and below knot j+1 where those exist. 0 ok; 111 n < 0 or j
// outside 0..n; 110 null list, unset slot, m outside 1..kestra_max_multiplicity, u out of
// order or NaN; 115 no memory. Outputs may alias the inputs.
KESTRA_API short insert_knot(List<double>* values, List<int>* mults, int n, int j, double u, int m,
                             List<double>* out_values, List<int>* out_mults);
// Lowers by one the multiplicity of the distinct knot holding linear knot i; a knot of
// multiplicity 1 is deleted from both lists (later knots move down, the lists shrink) and
// *n is decremented. 0 ok; 111 *n < 1 or i outside 1..sum of multiplicities; 110 null
// argument or unset slot.
KESTRA_API short remove_knot(List<double>* values, List<int>* mults, int* n, int i);
// The n distinct knots with the midpoint of every interval of length at least twice the
// knot tolerance inserted with multiplicity 1. 0 ok; 111 n < 2; 110 null list or unset
// slot; 115 no memory. Outputs may alias the inputs.
KESTRA_API short insert_mean_knots(List<double>* values, List<int>* mults, int n,
                                   List<double>* out_values, List<int>* out_mults);
// Maps knots 1..n affinely onto [a, b] (first to a, last to b, both exactly). Checked in
// this order: 110 null list, n < 2, unset or NaN first or last knot; 111 source or target
// range shorter than the knot tolerance, or a or b not finite; 150 the range already is
// [a, b] within the tolerance (nothing changed); 110 unset or NaN interior knot (nothing
// changed); 0 ok.
KESTRA_API short change_knots_vector_range(List<double>* values, int n, double a, double b);
// Maps knots 1..n onto [0, 1]: returns 0 at once when the first is exactly 0.0 and the
// last exactly 1.0 (the interior is not read); otherwise every knot is shifted by -first,
// interior knots divided by the span must each exceed the previous result by more than the
// knot tolerance, the last becomes exactly 1.0. 0 ok; 110 null list, n < 2, unset slot,
// span below the tolerance, or knots too close (knots already rescaled stay rescaled, the
// later ones stay shifted).
KESTRA_API short normalise_knots_vector(List<double>* values, int n);
// normalise_knots_vector on the distinct knots of curves[0..n-1] in turn; the first
// failure stops with 110 (earlier curves stay normalised). 0 ok; 110 null curves.
KESTRA_API short normalise(unsigned long n, CNurbs* curves);
// The same over the occupied slots of a list of curves (an unset slot fails with 110).
KESTRA_API short normalise(List<CNurbs>* curves);
// Reverses a knot vector held in 0-based arrays: values[k] becomes
// first + last - values[n-1-k] (ends kept exactly), mults (may be null, for a linear
// array) reversed alongside; n is unchanged. 0 ok; 110 null values or NaN; 111 n < 2.
KESTRA_API short reverse_array_of_knots(double* values, int* mults, int& n);
// The same on n knots of a multiplicity-form pair. 0 ok; 110 null list or unset slot;
// 111 n < 2.
KESTRA_API short reverse_multiplicity_knots_vector(int n, List<double>* values, List<int>* mults);

// ----------------------------------------------------------------------------------------
// Ranges and comparisons
// ----------------------------------------------------------------------------------------

// Parameter range of a curve of order and n_cpts control vertices: start = linear knot
// order, end = linear knot n_cpts + 1; start_pos / end_pos the distinct knots holding
// them, start_mult / end_mult their multiplicities (any output pointer may be null).
// Distinct knots counted: mults.Count(). 0 ok; 111 order < 1, n_cpts < order, or the
// knots too few; 110 unset slot.
KESTRA_API short _get_start_end_knots(int order, int n_cpts, List<double>& values, List<int>& mults,
                                      double* start, double* end, int* start_pos, int* end_pos,
                                      int* start_mult, int* end_mult);
// inside = 1 when start - tol <= t <= end + tol (tol the knot tolerance), a t within the
// tolerance outside the range then being moved onto the end it is near; inside = 0
// otherwise (NaN included, t unchanged). Codes as _get_start_end_knots (inside 0).
KESTRA_API short parameter_is_into_valid_range(double& t, int order, int n_cpts,
                                               List<double>& values, List<int>& mults,
                                               short* inside);
// True when both vectors have the same count n1 == n2 >= 1, equal multiplicities and
// values pairwise within the knot tolerance; false otherwise (unset slots included).
KESTRA_API bool same_knots_vectors(int n1, List<double>& values1, List<int>& mults1, int n2,
                                   List<double>& values2, List<int>& mults2);
// same = 1 when the first and last distinct knots of both vectors agree within the knot
// tolerance, else 0. 0 ok; 111 n1 or n2 < 2; 110 unset slot (same 0).
KESTRA_API short compare_knots_vector_range(List<double>& values1, int n1, List<double>& values2,
                                            int n2, short* same);
// Common refinement of n_vectors multiplicity-form vectors values[k], mults[k] (each
// values[k].Count() knots): every distinct knot of any vector, knots within the tolerance
// merged (the value met first kept), with the largest multiplicity among the vectors.
// All ranges must agree within the tolerance. 0 ok; 111 n_vectors < 1, a vector with
// fewer than 2 knots or differing ranges; 110 null list, unset slot or count mismatch;
// 115 no memory. The outputs may be values[0], mults[0].
KESTRA_API short find_common_knots_vector(int n_vectors, List<double>* values, List<int>* mults,
                                          List<double>* out_values, List<int>* out_mults);

// ----------------------------------------------------------------------------------------
// Sets of curves
// ----------------------------------------------------------------------------------------

// Raises every curve of curves[0..n-1] to the highest order among them, shape kept
// exactly (clamped knot vectors are required: first and last knots of full multiplicity).
// 0 ok; 110 null curves, an unusable or unclamped curve; 115 no memory. Curves before a
// failing one stay raised; the failing one is unchanged.
KESTRA_API short equalise_order(unsigned long n, CNurbs* curves);
// Gives curves[0..n-1] (same order) one knot vector: each range is mapped onto the first
// curve's range, then each curve is refined (Oslo) to the common vector of
// find_common_knots_vector. 0 ok; 110 null curves, unusable curve or differing orders
// (nothing changed); 115 no memory (curves before the failing one are already refined,
// the failing one is unchanged).
KESTRA_API short equalise_knots_vectors(unsigned long n, CNurbs* curves);
// equalise_order followed by equalise_knots_vectors.
KESTRA_API short equalise(unsigned long n, CNurbs* curves);

// ----------------------------------------------------------------------------------------
// Oslo coefficients and periodic knots (VLSTs of doubles, positions 1-based)
// ----------------------------------------------------------------------------------------

// Discrete B-spline coefficients of new knot j of tau for a curve of order and count
// control vertices on old knots t (order + count entries): the span i of t with
// t[i] <= tau[j] < t[i+1] (first match of i = 1..order+count-2; count when none),
// alpha[i] = 1 when found or when tau[j] >= t[count] (the end belongs to the last
// vertex), alpha[k] = 0 for the other k of i-order..i+order within
// 1..order+count, then for r = 1..order-1 and k = i-r..i the in-place recurrence
// alpha[k] = (tau[j+r] - t[k]) / (t[k+r] - t[k]) * alpha[k]
//          + (t[k+r+1] - tau[j+r]) / (t[k+r+1] - t[k+1]) * alpha[k+1]
// (terms with a zero alpha or an interval not above 0 contribute 0). alpha is extended
// with zeros where positions below i-order are missing. Returns i; 0 when order or count
// is below 1, a list is null or unreadable, tau has no entry j + order - 1, or alpha
// cannot grow.
KESTRA_API int compute_olso(int order, int count, VLST* t, int j, VLST* tau, VLST* alpha);
// Periodic knot vector of a closed periodic curve of the given order: knots holds the
// breakpoints of one period u[1] <= ... <= u[L] (L >= 2, period P = u[L] - u[1]); out is
// rewound and receives order - 1 knots wrapped from the end of the period (shifted by
// -P), the L breakpoints, and order - 1 knots wrapped from its start (shifted by +P):
// L + 2 (order - 1) knots for L + order - 2 control vertices. 0 ok; 111 order < 1 or
// L < 2; 110 null or unreadable list, decreasing breakpoints or P below the knot
// tolerance; 115 out could not grow.
KESTRA_API short periodic_knots(short order, VLST* knots, VLST* out);

// ----------------------------------------------------------------------------------------
// Bases
// ----------------------------------------------------------------------------------------

// N[1..order]: the B-spline basis functions of the given order non-zero on
// [T[span], T[span+1]) at t (T 1-based linear knots); N[1] belongs to vertex
// span - order + 1, N[order] to vertex span. Quotients over knot intervals not above 0
// are 0, so repeated knots never divide by zero. Reads T[span-order+2 .. span+order-1].
// Any order; no allocation. order < 1 or span < order - 1 is a contract violation.
KESTRA_API void BSpline_Basis_N(int order, double* const T, double t, int span, double* N);
// As BSpline_Basis_N, plus the first derivatives in N1[1..order].
KESTRA_API void BSpline_Basis_N_N1(int order, double* const T, double t, int span, double* N,
                                   double* N1);
// As BSpline_Basis_N_N1, plus the second derivatives in N2[1..order].
KESTRA_API void BSpline_Basis_N_N1_N2(int order, double* const T, double t, int span, double* N,
                                      double* N1, double* N2);
// B[0..n]: the Bernstein polynomials of degree n at t, by the de Casteljau recurrence
// (no factorials, no overflow for any n). n < 0 writes nothing.
KESTRA_API void Bernstein_Base(int n, double t, double* B);
// Half-split of a Bezier segment of degree n at t = 1/2 (de Casteljau): M becomes
// (n+1) x (n+1), M(i, j) (0-based) the weight of control point j in the left half's
// control point i; right (may be null) receives (n+1) * (n+1) doubles row after row,
// right[i * (n+1) + j] the weight of control point j in the right half's control point i.
// 0 ok; 111 n outside 0..kestra_max_half_split_degree; 115 M could not be allocated.
KESTRA_API short init_half_split_coefficients(int n, GenMatrix<double>& M, double* const right);

// Largest multiplicity the conversions accept (a guard against corrupt counts).
constexpr int kestra_max_multiplicity = 4096;
// Largest degree init_half_split_coefficients accepts.
constexpr int kestra_max_half_split_degree = 1024;

// ----------------------------------------------------------------------------------------
// VertexList: control vertices of a curve (count_v 1) or of a surface (count_u x count_v)
// ----------------------------------------------------------------------------------------
// Rational vertices are stored homogeneous (coordinates times weight, then the weight);
// dimension counts the weight. Vertex (i, j) starts at value ((i-1) * count_v + j - 1) *
// dimension + 1 of the coordinate list. Contract violations (assertions): rational above 1
// or negative, dimension outside 1..4, a count below 1, a vertex index outside
// 1..count_u or 1..count_v, an unset coordinate slot read, a rational weight below
// tavo_min_weight read or given, a V_POINT access on a store whose position dimension is
// not 3. Puts return 0, or 115 when the coordinate list could not grow (the container then
// empties it).

// Values per vertex without the weight: dimension - 1 when rational, else dimension.
KESTRA_API int position_dimension(int dimension, short rational);

class KESTRA_API VertexList {
public:
    short rational = 0;                   // 0 polynomial, 1 rational
    int32_t dimension = 0;                // values per vertex, weight included
    int32_t count_u = 0;                  // vertices in the first direction
    int32_t count_v = 0;                  // vertices in the second direction (1: curve)
    List<double>* coordinates = nullptr;  // owned; count_u * count_v * dimension values
    int32_t cursor = 0;                   // vertex last visited by Get_First/Next_Vertex

    // Empty: no coordinate list, counts 0 (every vertex access asserts).
    VertexList() = default;
    // Curve store of count vertices (count_v 1).
    VertexList(short rational, int dimension, int count);
    // Surface store of count_u x count_v vertices.
    VertexList(short rational, int dimension, int count_u, int count_v);
    // Deep copies; a coordinate list that cannot be allocated asserts.
    VertexList(const VertexList& other);
    VertexList& operator=(const VertexList& other);
    // Takes other's list; other is left empty.
    VertexList(VertexList&& other) noexcept;
    VertexList& operator=(VertexList&& other) noexcept;
    ~VertexList();

    // Same checks as the constructors; frees any previous list and makes a new empty one
    // (growth step count * dimension). An allocation failure asserts.
    void Allocate(short rational, int dimension, int count);
    void Allocate(short rational, int dimension, int count_u, int count_v);

    // count_u, count_v, dimension and rational (any pointer may be null).
    void Get_Dimensions(int* count_u, int* count_v, int* dimension, short* rational) const;
    // First value index of vertex i of a curve store / vertex (i, j).
    int Index(int i) const;
    int Index(int i, int j) const;
    // dimension - 1 when rational, else dimension.
    int Position_Dimension() const;

    // Stored (homogeneous) values of a vertex, dimension of them.
    short Put_Vertex(int i, const double* v);
    short Put_Vertex(int i, int j, const double* v);
    void Get_Vertex(int i, double* v) const;
    void Get_Vertex(int i, int j, double* v) const;
    // The stored values of a vertex in place (dimension of them; valid until the list
    // grows); every slot of the vertex must be set.
    double* _Get_Vertex(int i);
    double* _Get_Vertex(int i, int j);

    // Cartesian point p; a rational store multiplies by the weight already stored there.
    short Put_Cpt(int i, V_POINT p);
    short Put_Cpt(int i, int j, V_POINT p);
    // Stores p * w and w (a polynomial store stores p; w is then not used).
    short Put_Cpt_And_Weight(int i, V_POINT p, double w);
    short Put_Cpt_And_Weight(int i, int j, V_POINT p, double w);
    // Cartesian coordinates (Position_Dimension of them; divided by the weight).
    void Get_Cpt(int i, double* c) const;
    void Get_Cpt(int i, int j, double* c) const;
    void Get_Cpt(int i, V_POINT* p) const;
    void Get_Cpt(int i, int j, V_POINT* p) const;
    // Cartesian point and weight (1 on a polynomial store).
    void Get_Cpt_And_Weight(int i, V_POINT* p, double* w) const;
    void Get_Cpt_And_Weight(int i, int j, V_POINT* p, double* w) const;
    void Get_Cpt_And_Weight(int i, double* c, double* w) const;

    // Stores the weight only: the homogeneous coordinates stay, so the Cartesian point
    // changes (it is divided by the new weight). Rational stores only.
    short Put_Weight(int i, double w);
    short Put_Weight(int i, int j, double w);
    // The stored weight; 1 on a polynomial store.
    double Get_Weight(int i) const;
    double Get_Weight(int i, int j) const;
    // New weight with the Cartesian point kept: the homogeneous coordinates are scaled by
    // w / old weight. Rational stores only; every slot of the vertex must be set.
    void Replace_Weight(int i, double w);
    void Replace_Weight(int i, int j, double w);

    // Stores v as the vertex after the last one holding any set slot (an index beyond
    // Count_All() asserts).
    short Append_Vertex(const double* v);
    // Clears the slots of vertex i (a hole: reading it asserts; traversal skips it).
    void Delete(int i);
    // Delete of the vertex last returned by Get_First_Vertex / Get_Next_Vertex; nothing
    // when there is none.
    void Delete_Current_Vertex();
    // Stored values of the first complete vertex into v; its index, 0 when there is none.
    int Get_First_Vertex(double* v);
    // The next complete vertex after the last one visited; its index, 0 at the end.
    int Get_Next_Vertex(double* v);
    // Number of complete vertices (every slot set).
    int Count() const;
    // count_u * count_v.
    int Count_All() const;

private:
    // Asserts the indices; the vertex's sequential index. Not exported.
    KESTRA_HIDDEN int Check(int i, int j) const;
};
