#pragma once
// PointSet: an unordered cloud of points in a plane of reference, with the positions of the
// points marked as deleted, and its binary record.
//
// Points are stored in world coordinates; the plane is carried with them as the set's frame
// of reference (for relative boxes and projections), never applied to the stored points.
// Deleting a point marks it: its position is recorded in the deleted list and its slot keeps
// the point, so positions stay valid through a record and UndeletePoints brings the points
// back.
//
// Binary record (little-endian): flags word (2), type (2), the plane as it lies in memory
// (184, its 6 fill bytes included), count word (4), uint32 N, N points as three doubles,
// uint32 M, M deleted positions as uint32; 200 + 24*N + 4*M bytes.
#include "../foundation/kestra_export.h"
#include "../foundation/list.h"
#include "../foundation/records.h"
#include <cstdint>
#include <cstdio>

class KESTRA_API PointSet {
public:
    // Fields in record order. The set owns both lists; either may be null.
    List<V_POINT>* points;         // the points, or null
    List<unsigned long>* deleted;  // positions of the deleted points, or null
    uint16_t flags;                // carried with the set and its record, never interpreted
    int16_t type;                  // the host's type of the set
    V_WORKPLANE plane;             // the plane of reference
    uint32_t count_word;           // carried with the set and its record, never interpreted

    // No lists, both 16-bit words 0, count word 0, the world frame with an empty name and id 0
    // (every byte of the plane, fill included, defined).
    PointSet();
    // Deep copy of every field: both lists (holes, capacity and grow_by kept), both words,
    // the plane byte for byte and the count word.
    PointSet(const PointSet& other);
    // Takes every field; the source is left as Reset leaves it (its count word kept).
    PointSet(PointSet&& other) noexcept;
    // Deep copy; the previous lists are released only after the copies are made.
    PointSet& operator=(const PointSet& other);
    // Releases the previous lists and takes every field; the source is left as Reset leaves
    // it (its count word kept).
    PointSet& operator=(PointSet&& other) noexcept;
    // Releases both lists (Reset).
    ~PointSet();

    // Releases both lists, sets both 16-bit words to 0 and the plane to the world frame; the
    // count word is kept.
    void Reset();

    // The set's type.
    short GetType() const { return type; }
    // Stores the type; always returns 1.
    short SetType(short t);
    // Copies the plane, byte for byte, into *out.
    void get_plane(V_WORKPLANE* out) const;
    // Copies wp, byte for byte, into the set's plane; the points are not moved.
    void set_plane(const V_WORKPLANE& wp);

    // Replaces the points by the occupied points of pts (world coordinates, closed up in slot
    // order, capacity n, pts's grow_by), the deleted list by an empty one and the plane by wp;
    // type, flags and count word are kept. 0, or 115 when memory runs out (set unchanged).
    short Create(const List<V_POINT>& pts, const V_WORKPLANE& wp);
    // An empty set with room for n_points points and n_deleted deleted positions: both lists
    // replaced by empty lists of those capacities (grow_by max(n, 10) each); plane, type,
    // flags and count word kept. 0; 110 when a count exceeds the 32-bit positions of a list;
    // 115 when memory runs out (set unchanged).
    short SetPointSet(unsigned long n_points, unsigned long n_deleted);
    // Adds p after the last slot, making whichever list is missing (grow_by 16). 0, or 115
    // when memory runs out (nothing lost).
    short Append(const V_POINT& p);
    // Marks the point in slot pos (1-based) as deleted by appending pos to the deleted list;
    // the point stays in its slot. 0; 111 when pos is 0 or beyond the last slot; 110 for a
    // free slot or without a points list; 150 when pos is already marked (found by a scan of
    // the deleted list); 115 when memory runs out.
    short DeletePoint(unsigned long pos);
    // True when pos is recorded in the deleted list.
    bool IsDeleted(unsigned long pos) const;
    // Entries of the deleted list (its next position minus one); 0 without one.
    unsigned long GetDeletedPointsNum() const;
    // Empties the deleted list (keeping its storage); the marked points count again.
    void UndeletePoints();

    // Occupied slots of the points list, deleted points included; 0 without a list.
    unsigned long Count() const;
    // The point in slot i (1-based), deleted or not, into *out. 0; 110 without a list, for i
    // outside 1..slots or a free slot (*out untouched).
    short Get_Point(unsigned long i, V_POINT* out) const;

    // Writes the record. 0; 110 when either list is null, for a null stream or a short write.
    short fwrite_bin(FILE* f) const;
    // Replaces the set by the record read from f, after a Reset. N = 0 leaves no points list;
    // the deleted list is always made. Lists grow only as far as items have arrived. 0; 110
    // for a null stream, a short read or want of memory: what was read before stays, and a
    // failure inside the deleted positions leaves the deleted list empty.
    short fread_bin(FILE* f);
    // The same from a memory cursor advanced over each field; the buffer is trusted to hold
    // the whole record. 0; 110 for a null cursor or want of memory.
    short fread_bin(unsigned char*& p);
};
