#pragma once
// Plain geometric records, the global tolerances, and the vector algebra over them.
// Records are aggregates of doubles copied bytewise; their layouts are fixed because they
// reach binary records byte for byte (little-endian, no hidden padding except where noted).
#include "kestra_export.h"
#include <cstddef>
#include <cstdint>

struct V_WORKPLANE;
struct V_BOUNDS;

// ----------------------------------------------------------------------------------------
// Three-dimensional records
// ----------------------------------------------------------------------------------------

struct KESTRA_API V_POINT {
    double x, y, z;

    // Local to world: origin + x*X + y*Y + z*Z of the workplane (no snapping).
    void relative_to_absolute(const V_WORKPLANE& wp);
    // The same into *out (null asserts; out may be this point).
    void relative_to_absolute(const V_WORKPLANE& wp, V_POINT* out) const;
    // World to local: ((p - o).X, (p - o).Y, (p - o).Z) (no snapping).
    void absolute_to_relative(const V_WORKPLANE& wp);
    // The same into *out (null asserts; out may be this point).
    void absolute_to_relative(const V_WORKPLANE& wp, V_POINT* out) const;
    // Adds (dx, dy, dz).
    void translate(double dx, double dy, double dz);
    // min = max = the point (null asserts).
    void bounding_box(V_BOUNDS* box) const;
};

struct KESTRA_API V_VECTOR {
    double x, y, z;

    // Local to world without the origin: x*X + y*Y + z*Z.
    void relative_to_absolute(const V_WORKPLANE& wp);
    // The same into *out (null asserts; out may be this vector).
    void relative_to_absolute(const V_WORKPLANE& wp, V_VECTOR* out) const;
    // World to local without the origin: (v.X, v.Y, v.Z).
    void absolute_to_relative(const V_WORKPLANE& wp);
    // The same into *out (null asserts; out may be this vector).
    void absolute_to_relative(const V_WORKPLANE& wp, V_VECTOR* out) const;
};

struct KESTRA_API V_SEGM {
    V_POINT start, end;

    // Start and end through the workplane's 4x4 matrix (local to world).
    void relative_to_absolute(V_WORKPLANE& wp);
    // Start and end through the inverse of that matrix; unchanged when it has none.
    void absolute_to_relative(V_WORKPLANE& wp);
    // Euclidean length of end - start, passed through toll_testp.
    double compute_length() const;
    // Writes start to pts[0] and end to pts[1] (pts holds two points; null asserts).
    void convert_to_points(V_POINT* pts) const;
};

struct KESTRA_API V_LINE {
    V_POINT point;
    V_VECTOR direction;

    // Local to world: point as a point, direction as a vector (V_POINT, V_VECTOR formulas).
    void relative_to_absolute(V_WORKPLANE& wp);
    // World to local by the same member rules.
    void absolute_to_relative(V_WORKPLANE& wp);
};

struct KESTRA_API V_PLANE {
    V_POINT point;
    V_VECTOR normal;
};

struct KESTRA_API V_CIRCLE {
    V_POINT centre;
    double radius;
    V_VECTOR normal;

    // Local to world: centre as a point, normal as a vector; radius unchanged.
    void relative_to_absolute(V_WORKPLANE& wp);
    // World to local by the same member rules.
    void absolute_to_relative(V_WORKPLANE& wp);
    // radius < 0.0: radius and normal negated; otherwise nothing changes.
    void force_radius_to_positive();
};

// The circle record is the leading part of the arc record (an arc element becomes a circle
// by changing its type code only).
struct KESTRA_API V_ARC {
    V_POINT centre;
    double radius;
    V_VECTOR normal;
    V_POINT start, end;

    // Centre, start and end as points, normal as a vector (3 x 3 block, not normalised),
    // through the workplane's 4x4 matrix (local to world); radius unchanged.
    void relative_to_absolute(V_WORKPLANE& wp);
    // The same through the inverse of that matrix; unchanged when it has none.
    void absolute_to_relative(V_WORKPLANE& wp);
    // radius < 0.0: radius negated, start and end exchanged, normal negated.
    void force_radius_to_positive();
    // Arc about +Z from start_angle to end_angle; radius stored as given (sign kept).
    void create(double start_angle, double end_angle, double radius, const V_POINT& centre);
};

struct KESTRA_API V_BOUNDS {
    V_POINT min, max;
};

// Semi-axis radius1 along axis1, radius2 along axis2 (unit directions); normal axis1 x axis2.
struct KESTRA_API V_ELLIPSE {
    V_POINT centre;
    V_VECTOR axis1;
    V_VECTOR axis2;
    double radius1;
    double radius2;
};

// An arc of an ellipse (136 bytes): the ellipse, then the start and end points, travelled
// counter-clockwise about the ellipse's normal from start to end.
struct KESTRA_API V_ELLIPTICALARC {
    V_ELLIPSE ellipse;  //   0..87
    V_POINT start;      //  88..111
    V_POINT end;        // 112..135
};

// A placed instance of a host symbol (136 bytes). The library stores and copies it; the
// symbol's definition lives with the host, found through symbol_id or name.
struct KESTRA_API V_SYMBOL_INST {
    V_POINT position;   //   0..23  insertion point
    V_VECTOR xaxis;     //  24..47  direction of the symbol's x axis
    V_VECTOR normal;    //  48..71  normal of the symbol's plane
    double scale_x;     //  72
    double scale_y;     //  80
    double scale_z;     //  88
    double angle;       //  96      extra rotation about normal, radians
    int32_t symbol_id;  // 104
    int32_t flags;      // 108
    char16_t name[12];  // 112..135 zero-terminated UTF-16
};

// A line of text placed in space (168 bytes). text points at zero-terminated UTF-16 code
// units owned by the host: the element never frees it, and a text read from a binary record
// is allocated with _v_calloc and is the caller's to release with _v_free.
struct KESTRA_API V_TEXT {
    V_POINT point;        //   0..23  the point at which the text is placed
    V_VECTOR normal;      //  24..47  normal of the text's plane
    V_VECTOR xaxis;       //  48..71  writing direction
    double width;         //  72      width of the whole text
    double height;        //  80      character height
    double slant;         //  88      slant angle, radians
    double char_spacing;  //  96
    double line_spacing;  // 104
    char font_name[32];   // 112..143 zero-terminated font name
    int32_t alignment;    // 144      host's alignment code
    int16_t style;        // 148      host's style bits
    int16_t font_id;      // 150
    char16_t* text;       // 152..159 the characters (pointer, not part of a record's meaning)
    int32_t flags;        // 160
    int32_t reserved;     // 164
};

struct KESTRA_API V_TOLERANCE {
    double point;   // linear zero and point equality
    double angle;   // angular tests
    double coarse;  // kept for the record's shape; nothing in the foundation reads it
    double param;   // parameter and knot comparisons
};

// Single-precision point and vector.
struct KESTRA_API V_POINT3f {
    float x, y, z;
};
struct KESTRA_API V_VECTOR3f {
    float x, y, z;
};

// ----------------------------------------------------------------------------------------
// Two-dimensional records (plane counterparts: x and y only)
// ----------------------------------------------------------------------------------------

struct KESTRA_API V_POINT2D {
    double x, y;
};
struct KESTRA_API V_VECTOR2D {
    double x, y;
};
struct KESTRA_API V_SEGM2D {
    V_POINT2D start, end;
};
struct KESTRA_API V_LINE2D {
    V_POINT2D point;
    V_VECTOR2D direction;
};
struct KESTRA_API V_CIRCLE2D {
    V_POINT2D centre;
    double radius;
};
// Counter-clockwise from start to end; a negative radius means the other way round.
struct KESTRA_API V_ARC2D {
    V_POINT2D centre;
    double radius;
    V_POINT2D start, end;
};

// ----------------------------------------------------------------------------------------
// Matrix and workplane records
// ----------------------------------------------------------------------------------------

// Row-vector convention: p' = p * M; rows 0..2 are the images of the unit axes, row 3 the
// translation, m[3][3] the homogeneous scale. Row and column indices are 0-based.
struct KESTRA_API V_MATRIX {
    double m[4][4];

    // First three entries of row i (0..3); i outside asserts.
    void rows(short i, V_VECTOR* out) const;
    // First three entries of column j (0..3); j outside asserts.
    void columns(short j, V_VECTOR* out) const;
};

// A named right-handed frame (184 bytes): 6 bytes of fill follow id so that the axes are
// 8-byte aligned; the fill reaches the point-set record as it lies in memory.
struct KESTRA_API V_WORKPLANE {
    V_POINT origin;     //   0..23
    char16_t name[40];  //  24..103 zero-terminated UTF-16
    int16_t id;         // 104      carried, never interpreted
    V_VECTOR xaxis;     // 112..135
    V_VECTOR yaxis;     // 136..159
    V_VECTOR zaxis;     // 160..183

    // Origin 0, empty name, unit axes; id untouched.
    void Set_Absolute();
    // 0; 111 when d1 x d2 or d1 normalises to zero (or is not finite): name and origin are
    // set first and a failing step leaves its zero axis written, later axes untouched.
    short Create_From_Two_Directions(V_POINT& origin, V_VECTOR& d1, V_VECTOR& d2);
    // Create_From_Two_Directions(p1, p2 - p1, p3 - p1).
    short Create_From_Three_Points(V_POINT& p1, V_POINT& p2, V_POINT& p3);
};

// The workplane's content with the axes first. The one record with a constructor: it
// zero-fills origin, axes and the first character of the name.
struct KESTRA_API V_ORIGIN {
    V_POINT origin;
    V_VECTOR xaxis;
    V_VECTOR yaxis;
    V_VECTOR zaxis;
    char16_t name[40];
    int16_t id;

    // Zero origin and axes, empty name, id 0.
    V_ORIGIN();
    // Copies origin, axes, name (kept terminated) and id from wp.
    void SetWpl(const V_WORKPLANE& wp);
    // Copies origin, axes, name (kept terminated) and id into *wp.
    void GetWpl(V_WORKPLANE* wp) const;
};

static_assert(sizeof(V_POINT) == 24, "point is three doubles");
static_assert(sizeof(V_CIRCLE) == 56, "circle payload is 56 bytes");
static_assert(sizeof(V_ARC) == 104, "arc payload is 104 bytes");
static_assert(sizeof(V_ELLIPSE) == 88, "ellipse payload is 88 bytes");
static_assert(sizeof(V_ELLIPTICALARC) == 136, "elliptical arc payload is 136 bytes");
static_assert(sizeof(V_SYMBOL_INST) == 136, "symbol instance payload is 136 bytes");
static_assert(sizeof(V_TEXT) == 168, "text record is 168 bytes");
static_assert(offsetof(V_TEXT, text) == 152, "text characters pointer at 152");
static_assert(sizeof(V_WORKPLANE) == 184, "workplane is 184 bytes");
static_assert(offsetof(V_WORKPLANE, id) == 104 && offsetof(V_WORKPLANE, xaxis) == 112,
              "workplane id at 104, axes from 112");
static_assert(sizeof(V_MATRIX) == 128, "matrix is 16 doubles");

// ----------------------------------------------------------------------------------------
// Global tolerances and module defaults (exported, writable; read at every comparison)
// ----------------------------------------------------------------------------------------

// point 1e-08, angle 1e-11, coarse 1e-07, param 1e-11.
extern KESTRA_API V_TOLERANCE tavotoll;
// Minimum admissible weight, also the curve-vertex tolerance: 1e-11.
extern KESTRA_API double tavo_min_weight;
// Default chordal tolerance for converting arcs and curves to segments: 0.0001.
extern KESTRA_API double tavo_chordal_tolerance;
// Default angular step for the same conversions: 0.0523598775598299 (3 degrees).
extern KESTRA_API double tavo_angular_step;
// Default maximum view depth: 1000.0.
extern KESTRA_API double tavo_view_depth;
