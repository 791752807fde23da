#pragma once
// V_ELEMENT: the tagged element through which the library passes any geometric element, its
// binary record and its placement.
//
// Layout: the 16-bit type code, then (at offset 8) the payload, storage shared by every kind.
// Type codes: 0 none, 1 point, 2 segment, 3 line, 4 circle, 5 arc, 6 ellipse, 7 elliptical
// arc, 12 symbol instance, 14 text, 19 curve, 20 polyline, 26 point set; every other code is
// reserved and never produced by the library.
//
// Ownership is decided by the code alone: every code below 19 is a plain value copied
// bytewise; 19, 20 and 26 own heap storage through their CNurbs, Polyline or PointSet; any
// other code from 19 up is plain. A text element is plain: its characters belong to the host
// (a text read from a record is allocated with _v_calloc and the host releases it with
// _v_free).
//
// Binary record (little-endian, no magic, no length): int16 type, then by type 1 point (24
// bytes), 2 segment (48), 3 line (48), 4 circle (56), 5 arc (104), 6 ellipse (88), 7
// elliptical arc (136), 12 symbol instance (136): the record's image; 14 text: the 168-byte
// image of V_TEXT (its character pointer included, ignored on reading), uint32 n, n UTF-16
// units without terminator; 19, 20, 26: the CNurbs, Polyline and PointSet records. Nothing
// follows the type code for 0, a reserved code, or a code below 1 or above 26.
#include "kestra_export.h"
#include "records.h"
#include "list.h"
#include "../curves/cs_1.h"
#include "../paths/polyline.h"
#include "../paths/pointset.h"
#include <cstddef>
#include <cstdint>
#include <cstdio>

class KESTRA_API V_ELEMENT {
public:
    int16_t type;  // the type code; only the payload member it selects is meaningful

private:
    // Kind of an owning payload left in place by a moving copy (the element's type is then
    // 0). The library releases it when the element is given new content or destroyed, the
    // only moments at which the storage stops being reachable through the element. Lives
    // in the fill between the type code and the payload.
    int16_t moved_kind_;

public:
    // The payload: every member starts at offset 8; only the one of the current type holds
    // meaning (after the type code, the member the code selects).
    union {
        V_POINT point;          // 1: the point
        V_SEGM segm;            // 2: the segment
        V_LINE line;            // 3: the line
        V_CIRCLE circle;        // 4: the circle
        V_ARC arc;              // 5: the arc (its leading part is the circle that carries it)
        V_ELLIPSE ellipse;      // 6: the ellipse
        V_ELLIPTICALARC elarc;  // 7: the elliptical arc
        V_SYMBOL_INST symbol;   // 12: the symbol instance
        V_TEXT text;            // 14: the text; its characters stay the host's
        CNurbs curve;           // 19: the curve, owned
        Polyline polyline;      // 20: the polyline, owning its point list
        PointSet pointset;      // 26: the point set, owning its two lists
    };

    // ---- construction, type, copy and move ----

    // Type 0; the payload is left as it is.
    V_ELEMENT();
    // Same type; an owning payload is prepared (p_Construct) and deep-copied, a plain one
    // copied bytewise. A copy whose lists cannot be allocated is a contract violation.
    V_ELEMENT(const V_ELEMENT& other);
    // The copy above (owning kinds are deep-copied, not taken), then other's type becomes 0;
    // other's payload is left untouched (see the moving assignment).
    V_ELEMENT(V_ELEMENT&& other);
    // p_Destroy, and the release of a payload left by a moving copy.
    ~V_ELEMENT();

    // Self-assignment does nothing; otherwise TypeSet(other.type) and, unless that is 0,
    // the payload copied by kind.
    V_ELEMENT& operator=(const V_ELEMENT& other);
    // TypeSet(other.type), the payload copied by kind (owning kinds deep-copied by their
    // copy assignment), then other's type becomes 0 WITHOUT releasing other's payload: its
    // bytes and the lists they point to stay exactly as they were, so code still holding
    // other's payload keeps working. That payload is released when other is given new
    // content (TypeSet to a non-zero code, a setter, an assignment or a read into it) or is
    // destroyed; nothing leaks. Moving an element into itself follows the same steps: it
    // is left empty (type 0), its payload untouched until then.
    V_ELEMENT& operator=(V_ELEMENT&& other);
    // The moving assignment from other (other may be this element, which is then emptied).
    void Move(V_ELEMENT& other);

    // Prepares the payload of the current type: 19 an empty curve (every field zero, no
    // lists), 20 a polyline without a list, 26 an empty point set; other codes untouched.
    // Any payload already there is overwritten without being released.
    void p_Construct();
    // Releases an owning payload: 19 the curve's lists (fields zeroed), 20 the polyline's
    // list (pointer null), 26 the point set's lists (PointSet::Reset). The type is kept;
    // codes other than 19, 20 and 26 do nothing.
    void p_Destroy();

    // The type code.
    short TypeGet() const { return type; }
    // Nothing when t is the current type (the payload is kept); otherwise p_Destroy, type t,
    // p_Construct.
    void TypeSet(short t);

    // ---- setters: the element becomes of that kind (releasing another owning payload),
    //      then the payload is written; arguments may live in this element's payload ----

    // Type 1 and the point p.
    void SetPoint(const V_POINT& p);
    // Type 1 and the point (x, y, z).
    void SetPoint(double x, double y, double z);
    // Type 2 and the segment s.
    void SetSegment(const V_SEGM& s);
    // Type 2 and the segment from start to end.
    void SetSegment(const V_POINT& start, const V_POINT& end);
    // Type 2 and the segment from (x1, y1, z1) to (x2, y2, z2).
    void SetSegment(double x1, double y1, double z1, double x2, double y2, double z2);
    // Type 3 and the line l (its direction stored as given, not normalised).
    void SetLine(const V_LINE& l);
    // Type 3 and the line through point along direction, stored as given.
    void SetLine(const V_POINT& point, const V_VECTOR& direction);
    // Type 4 and the circle c, stored as given.
    void SetCircle(const V_CIRCLE& c);
    // Type 4 and the circle of centre, radius and normal, stored as given.
    void SetCircle(const V_POINT& centre, double radius, const V_VECTOR& normal);
    // Type 5 and the arc a, fields stored as given (a negative radius is kept).
    void SetArc(const V_ARC& a);
    // Type 5 and the arc of those fields, stored as given (a negative radius is kept).
    void SetArc(const V_POINT& centre, double radius, const V_POINT& start, const V_POINT& end,
                const V_VECTOR& normal);
    // Type 6 and the ellipse record e.
    void SetEllipse(const V_ELLIPSE& e);
    // Type 7 and the elliptical-arc record e.
    void SetEllipticalArc(const V_ELLIPTICALARC& e);
    // Type 12 and the symbol-instance record s.
    void SetSymbolInstance(const V_SYMBOL_INST& s);
    // The record is copied; the characters stay the host's (the pointer is copied).
    void SetText(const V_TEXT& t);
    // Type 19 and a deep copy of c (an element of another kind gets an empty curve first).
    void SetCurve(const CNurbs& c);
    // Type 19 and c moved in; c is left empty.
    void MoveCurve(CNurbs& c);
    // Type 20 built from the occupied points of pts (an element already of type 20 is
    // rebuilt in place); the status of Polyline::Create: 0, or 115 when memory runs out, a
    // polyline held before then keeping its points, a new one left without a list.
    short SetPolyline(const List<V_POINT>& pts);
    // Type 20 and a deep copy of pl.
    void SetPolyline(const Polyline& pl);
    // Type 20: the list held before is released, pl's list taken, pl left without one.
    void MovePolyline(Polyline& pl);
    // Type 26 and a deep copy of ps.
    void SetPointSet(const PointSet& ps);
    // Type 26 built from the occupied points of pts (world coordinates) with plane wp by
    // PointSet::Create, in place when the element already is a point set (its type, flags
    // and count word kept); that status: 0, or 115, a point set held before then unchanged,
    // a new one left empty.
    short SetPointSet(const List<V_POINT>& pts, const V_WORKPLANE& wp);
    // Type 26 emptied by PointSet::SetPointSet to room for n_points points and n_deleted
    // deleted positions, in place for a point set (type, flags, plane and count word kept);
    // that status: 0; 110 a count beyond a list's 32-bit positions; 115 no memory.
    short SetPointSet(unsigned long n_points, unsigned long n_deleted);
    // Type 26 and ps moved in; ps is left empty.
    void MovePointSet(PointSet& ps);

    // ---- diagnostics ----

    // Dump through debug_printf, one call per line, %f for every double. Segment, circle,
    // arc and text print their fields (a text's characters as UTF-8 between two '#'),
    // curve and polyline hand over to their own dumps, every other kind prints
    // "<name> : V_ELEMENT <type>". A null name prints as empty text.
    void DebugOutput(char* name) const;
    // The same dump for a constant name.
    void DebugOutput(const char* name) const;
    // The same dump without a name (printed as empty text).
    void DebugOutput(std::nullptr_t) const { DebugOutput(static_cast<const char*>(nullptr)); }

    // ---- conversions ----

    // Arc to the circle that carries it (centre, radius, normal kept). 0; 121 not an arc.
    short convert_A_to_C();
    // Segment to the line through its start along the unit direction to its end. 0; 121 not
    // a segment; 110 when the segment is shorter than tavotoll.angle (element unchanged).
    short convert_S_to_L();

    // ---- placement: 0 on success; on any other status the element is unchanged ----

    // Moves the element by d; exact (only positions change). 0 for every kind.
    short translate(const V_VECTOR& d);
    // Turns the element by angle radians about the line through centre along axis,
    // counter-clockwise seen from the axis tip. 0; 177 for an axis shorter than
    // tavotoll.angle; otherwise as transform.
    short rotate(const V_POINT& centre, const V_VECTOR& axis, double angle);
    // mat_transform_element(&M, this, this, keep_type).
    short transform(const V_MATRIX& M, short keep_type = 0);
    // From wp's local coordinates to world ones: positions as points, directions as
    // vectors (radii, weights and text sizes unchanged). 0; 121 for a curve that is not 3-D.
    short relative_to_absolute(const V_WORKPLANE& wp);
    // From world coordinates to wp's local ones, the inverse of relative_to_absolute.
    short absolute_to_relative(const V_WORKPLANE& wp);

    // ---- binary record ----

    // Writes one record at the stream's position. 0; 110 null stream, short write, a text
    // of 2^32 units or more, or a failure of the curve, polyline or point-set writer (the
    // point set's status is passed on as it stands).
    short fwrite_bin(FILE* f) const;
    // Reads one record: the type is read (110 and the element unchanged when it cannot be),
    // TypeSet to it, then its payload. 0; 110 null stream, short read or failure of the
    // curve or polyline reader; the point-set reader's status as it stands. A failed read
    // leaves the type set and the payload partly filled. A text's characters are read into
    // a block that grows only as the stream delivers them; a short read or failed
    // allocation there throws std::runtime_error (nothing allocated is kept, the element's
    // text pointer is then null).
    short fread_bin(FILE* f);
    // The same from memory at p, advanced past the record. The image is trusted to hold the
    // whole record (no bounds checks). 110 for a null p; a failed allocation of a text's
    // characters throws std::runtime_error.
    short fread_bin(unsigned char*& p);

private:
    // End of a moving copy from this element: type 0, an owning payload left in place and
    // remembered in moved_kind_.
    KESTRA_HIDDEN void leave_payload_after_move();
    // Releases a payload left by a moving copy while the type is still 0; forgets it
    // otherwise (the host then rewrote the type itself).
    KESTRA_HIDDEN void drop_moved_payload();
    // Copies other's payload by kind into this element, whose type is already other's.
    KESTRA_HIDDEN void copy_payload_from(const V_ELEMENT& other);
};

static_assert(sizeof(PointSet) >= sizeof(V_TEXT), "the point set is the largest payload");
static_assert(alignof(V_ELEMENT) == 8, "the payload starts at offset 8");

// Places in out the image of in under M (out may be in); on any status other than 0, out is
// unchanged. Positions map as points (mat_transform_point), directions by the 3 x 3 block
// divided by w. A translation only (3 x 3 block exactly the identity, w 1) moves positions
// and nothing else. Planar kinds (circle, arc, ellipse, elliptical arc) get the unit normal
// of the image plane on the side to which M carries the old normal; when M reflects the
// plane's orientation, the start and end points of an arc are exchanged, so the image runs
// the other way round about that normal. A circle or arc whose image is not a circle within
// tavotoll.point becomes the exact ellipse (6) or elliptical arc (7) when keep_type is 0;
// with keep_type 1 the result is 121 instead; such an ellipse has its major axis as axis1.
// Ellipses keep the images of their axes when those stay perpendicular, else take the
// principal axes (axis1 the major one). Text keeps the images of its x axis and of its
// in-plane y axis (a mirrored text is seen from the back: its normal turns round); width
// scales with the x axis, height with the y axis; slant and spacings are kept.
// A symbol instance keeps its position, the image of its x axis, an angle and scales that
// reproduce the image of its frame (a reflection negates scale_z). Curves transform their
// homogeneous control points (X*w, w) -> ((X*L + w*t) / m33, w): the Cartesian point moves,
// the weight stays. Polylines and point sets move every occupied point; a point set's plane
// takes the image origin and x axis and the image plane's normal.
// 0; 110 null argument or an image that collapses (a circle, ellipse, line direction, text
// or symbol frame, point-set plane mapped to less than a plane or direction); 121 a circle
// or arc needing a type change with keep_type 1, a text or symbol whose frame does not stay
// perpendicular, a curve that is not 3-D; 177 a zero normal or axis where one is needed.
KESTRA_API short mat_transform_element(const V_MATRIX* M, const V_ELEMENT* in, V_ELEMENT* out,
                                       short keep_type);
