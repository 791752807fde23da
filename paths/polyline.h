#pragma once
// Polyline: an ordered chain of points held in one heap list, with its binary record.
//
// The polyline owns at most one List<V_POINT>. A polyline without a list and a polyline whose
// list holds no points are different states: the first cannot be written, the second writes
// a record of six bytes. The points are the occupied slots of the list in slot order; a slot
// freed with List::Delete is a hole that the dump shows and the record skips.
//
// Binary record (little-endian, no alignment): 2 bytes written as 0 and ignored on reading,
// uint32 N, then N points as three doubles each; 6 + 24*N bytes.
#include "../foundation/kestra_export.h"
#include "../foundation/list.h"
#include "../foundation/records.h"
#include <cstdio>

class KESTRA_API Polyline {
public:
    // No point list.
    Polyline() = default;
    // Deep copy: a list of the same capacity, grow_by, holes and points, or no list.
    Polyline(const Polyline& other);
    // Takes the source's list; the source is left without one.
    Polyline(Polyline&& other) noexcept;
    // Deep copy; the previous list is released only after the copy is made.
    Polyline& operator=(const Polyline& other);
    // Releases the previous list and takes the source's; the source is left without one.
    Polyline& operator=(Polyline&& other) noexcept;
    // Releases the point list.
    ~Polyline();

    // Releases the point list; the polyline is left without one.
    void Release();

    // The point list, or null when the polyline has none. The polyline keeps ownership.
    List<V_POINT>* Points() { return points_; }
    // The point list for reading, or null when the polyline has none.
    const List<V_POINT>* Points() const { return points_; }

    // Replaces the points by the occupied points of pts, closed up at positions 1..n in slot
    // order; the new list has capacity n and pts's grow_by. An empty pts gives an existing,
    // empty list. 0, or 115 when memory runs out (the polyline is then unchanged).
    short Create(const List<V_POINT>& pts);
    // Adds p after the last slot, making the list (grow_by 16) when there is none. 0, or 115
    // when memory runs out (the points already held are kept).
    short Append(const V_POINT& p);
    // Stores p in slot i (1-based), growing and making the list as Append does; slots skipped
    // over stay free. 0; 111 when i is 0 or beyond the 32-bit positions of a list; 115 when
    // memory runs out (nothing lost).
    short Put(unsigned long i, const V_POINT& p);

    // Number of points: occupied slots; 0 without a list.
    unsigned long Count() const;
    // The point in slot i (1-based) into *out. 0; 110 without a list, for i outside 1..slots
    // or a free slot (*out untouched).
    short Get_Point(unsigned long i, V_POINT* out) const;
    // Sum of the distances between consecutive points in slot order; 0.0 for fewer than two.
    double Length() const;
    // True when there are at least two points and the first equals the last under the point
    // equality (tavotoll.point); a polyline of fewer than two points is open.
    bool Is_Closed() const;

    // Dump through debug_printf: "Polyline empty !!!" without a list; otherwise a header with
    // name (when not null), "close" or "open" and the number of points, then one line per slot.
    void DebugOutput(const char* name) const;

    // Writes the record. 0; 110 without a list, for a null stream or a short write.
    short fwrite_bin(FILE* f) const;
    // Replaces the polyline by the record read from f. N = 0 leaves no list. The new list has
    // grow_by max(N, 10) and grows only as far as points have arrived. 0; 110 for a null
    // stream, a short read or want of memory, keeping the points read before the failure.
    short fread_bin(FILE* f);
    // The same from a memory cursor, advanced by 2, 4 and 24 per point. The buffer is trusted
    // to hold the whole record. 0; 110 for a null cursor or want of memory (the cursor then
    // stands after the last field consumed).
    short fread_bin(unsigned char*& p);

private:
    List<V_POINT>* points_ = nullptr;
};
