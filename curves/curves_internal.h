#pragma once
// Helpers shared by the curve units: list growth steps, tracked list copies and fills,
// list replacement, tracked scratch arrays, the linear span search and degree elevation.
// Internal to the library (not installed, nothing here is exported).
#include "foundation/list.h"
#include "platform/utils.h"
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestra::detail {

// Growth step of a new list: the wanted size, kept within 1 .. 65536 so that a corrupt
// count never turns into one huge growth later.
inline uint32_t growth_step(int64_t wanted)
{
    if (wanted < 1) return 1;
    if (wanted > 65536) return 65536;
    return static_cast<uint32_t>(wanted);
}

// A tracked deep copy of *src; null when src is null or the list could not be allocated.
template <class T> List<T>* copy_list(const List<T>* src)
{
    return src ? tracked_new<List<T>>(*src) : nullptr;
}

// A list of count occupied slots (zero-filled, for the caller to overwrite through items);
// null when memory runs out.
template <class T> List<T>* sized_list(uint32_t count, uint32_t grow_by)
{
    List<T>* l = tracked_new<List<T>>(grow_by < 1 ? 1u : grow_by);
    if (!l) return nullptr;
    if (count == 0) return l;
    if (!l->Reserve(count)) {
        tracked_delete(l);
        return nullptr;
    }
    std::memset(l->set, 1, count);
    l->next = count + 1;
    return l;
}

// A list holding src[0 .. count-1] in slots 1..count, copied in one piece; null when memory
// runs out.
template <class T> List<T>* make_list(const T* src, uint32_t count, uint32_t grow_by)
{
    List<T>* l = sized_list<T>(count, grow_by);
    if (l && count != 0)
        std::memcpy(static_cast<void*>(l->items), src, static_cast<size_t>(count) * sizeof(T));
    return l;
}

// Frees the list held in slot and puts fresh there.
template <class T> void replace_list(List<T>*& slot, List<T>* fresh)
{
    tracked_delete(slot);
    slot = fresh;
}

// Tracked scratch array of n items (at least one is allocated), released on scope exit;
// p is null when the block could not be had.
template <class T> class Block {
public:
    explicit Block(size_t n) : p(static_cast<T*>(v_memptr_alloc(nullptr, (n ? n : 1) * sizeof(T))))
    {}
    ~Block() { v_memptr_free(p); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    T* p;
};

// ---- B-spline kernels (bspline.cpp) ----

// Linear span of t in the 1-based knots T[1 .. n_cpts + order]: span in order..n_cpts with
// T[span] <= t < T[span + 1]. t equal to T[n_cpts + 1] (the end of the range) belongs to
// the last span of non-zero length. Exact comparisons, O(log n). 0 when t lies outside
// [T[order], T[n_cpts + 1]] or is NaN, when no span has non-zero length, or when
// order < 1 or n_cpts < order.
inline int find_span_linear(int n_cpts, int order, const double* T, double t)
{
    if (order < 1 || n_cpts < order) return 0;
    int lo = order;
    int hi = n_cpts + 1;
    if (!(t >= T[lo] && t <= T[hi])) return 0;  // outside or NaN
    if (t >= T[hi]) {                           // the end parameter
        int s = n_cpts;
        while (s >= order && !(T[s] < T[s + 1])) --s;
        return s >= order ? s : 0;
    }
    // Invariant T[lo] <= t < T[hi]; it ends with hi == lo + 1.
    while (hi - lo > 1) {
        const int mid = (lo + hi) >> 1;
        if (t < T[mid])
            hi = mid;
        else
            lo = mid;
    }
    return lo;
}

// Number of control points after raising a clamped B-spline by t orders:
// n_cpts + t * (number of distinct knot values in [U[order-1], U[n_cpts]] - 1).
// U holds the n_cpts + order knots 0-based. -1 when order < 1, n_cpts < order or t < 0.
int bspline_elevated_count(int n_cpts, int order, const double* U, int t);
// Raises a clamped B-spline (first order knots equal, last order knots equal) of order
// over homogeneous points P (n_cpts points of vpp values, 0-based) by t orders, the curve
// unchanged. U holds the n_cpts + order knots 0-based. U_out receives
// *n_out + order + t knots, P_out *n_out * vpp values; *n_out is
// bspline_elevated_count(). 0 ok; 110 null argument, vpp < 1, unclamped or decreasing
// knots; 111 order < 1, n_cpts < order, t < 0 or order + t above 128; 115 no scratch.
short bspline_elevate_degree(int n_cpts, int order, int vpp, const double* U, const double* P,
                             int t, int* n_out, double* U_out, double* P_out);

}  // namespace kestra::detail
