#include "foundation/v_elem.h"
#include "foundation/status.h"
#include "platform/utils.h"
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

namespace {

// Type codes of the element.
enum Kind : short {
    kNone = 0,
    kPoint = 1,
    kSegment = 2,
    kLine = 3,
    kCircle = 4,
    kArc = 5,
    kEllipse = 6,
    kEllipticalArc = 7,
    kSymbol = 12,
    kText = 14,
    kCurve = 19,
    kPolyline = 20,
    kPointSet = 26,
};

bool is_owning(short t)
{
    return t == kCurve || t == kPolyline || t == kPointSet;
}

// Bytes of a plain payload that carry meaning: the record of a known kind, the whole storage
// for a reserved code (copied as it lies), nothing for the empty element.
size_t plain_bytes(short t)
{
    switch (t) {
    case kNone:
        return 0;
    case kPoint:
        return sizeof(V_POINT);
    case kSegment:
        return sizeof(V_SEGM);
    case kLine:
        return sizeof(V_LINE);
    case kCircle:
        return sizeof(V_CIRCLE);
    case kArc:
        return sizeof(V_ARC);
    case kEllipse:
        return sizeof(V_ELLIPSE);
    case kEllipticalArc:
        return sizeof(V_ELLIPTICALARC);
    case kSymbol:
        return sizeof(V_SYMBOL_INST);
    case kText:
        return sizeof(V_TEXT);
    default:
        return sizeof(PointSet);  // the size of the shared storage
    }
}

// Releases an owning payload of kind t, leaving the member in its empty state.
void release_payload(V_ELEMENT* e, short t)
{
    switch (t) {
    case kCurve:
        e->curve.Free_Lists();
        break;
    case kPolyline:
        e->polyline.Release();
        break;
    case kPointSet:
        e->pointset.Reset();
        break;
    default:
        break;
    }
}

// Appends the UTF-8 form of the zero-terminated UTF-16 text s to out (capacity cap bytes,
// always terminated); a lone surrogate becomes U+FFFD. Returns the bytes needed for the
// whole text without the terminator, so that a caller can size a larger buffer.
size_t utf16_to_utf8(const char16_t* s, char* out, size_t cap)
{
    size_t need = 0;
    auto put = [&](unsigned char b) {
        if (need + 1 < cap) out[need] = static_cast<char>(b);
        ++need;
    };
    for (size_t i = 0; s && s[i] != 0; ++i) {
        uint32_t c = s[i];
        if (c >= 0xD800 && c <= 0xDBFF && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (uint32_t(s[i + 1]) - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            put(static_cast<unsigned char>(c));
        } else if (c < 0x800) {
            put(static_cast<unsigned char>(0xC0 | (c >> 6)));
            put(static_cast<unsigned char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            put(static_cast<unsigned char>(0xE0 | (c >> 12)));
            put(static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F)));
            put(static_cast<unsigned char>(0x80 | (c & 0x3F)));
        } else {
            put(static_cast<unsigned char>(0xF0 | (c >> 18)));
            put(static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F)));
            put(static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F)));
            put(static_cast<unsigned char>(0x80 | (c & 0x3F)));
        }
    }
    if (cap > 0) out[need < cap ? need : cap - 1] = '\0';
    return need;
}

// Prints the text's characters between two hash signs as one line. Short texts use a stack
// buffer; a longer one a tracked block, or its first part when that cannot be allocated.
void print_text_characters(const char16_t* s)
{
    char small[512];
    const size_t need = utf16_to_utf8(s, small, sizeof small);
    if (need < sizeof small) {
        debug_printf("#%s#\n", small);
        return;
    }
    char* big = static_cast<char*>(_v_calloc(need + 1, 1, "v_elem", __LINE__, "text dump"));
    if (!big) {
        debug_printf("#%s#\n", small);
        return;
    }
    utf16_to_utf8(s, big, need + 1);
    debug_printf("#%s#\n", big);
    _v_free(big, "v_elem", __LINE__, "text dump");
}

}  // namespace

// --- construction, type, copy and move ---

V_ELEMENT::V_ELEMENT() : type(kNone), moved_kind_(kNone) {}

V_ELEMENT::V_ELEMENT(const V_ELEMENT& other) : type(other.type), moved_kind_(kNone)
{
    p_Construct();
    copy_payload_from(other);
}

V_ELEMENT::V_ELEMENT(V_ELEMENT&& other) : type(other.type), moved_kind_(kNone)
{
    p_Construct();
    copy_payload_from(other);
    // other's payload stays in place; it is released with other (see the moving assignment).
    other.leave_payload_after_move();
}

V_ELEMENT::~V_ELEMENT()
{
    p_Destroy();
    drop_moved_payload();
}

V_ELEMENT& V_ELEMENT::operator=(const V_ELEMENT& other)
{
    if (this == &other) return *this;
    TypeSet(other.type);
    if (type != kNone) copy_payload_from(other);
    return *this;
}

// The moving forms deliberately copy: hosts that move an element go on reading the source's
// payload, so its bytes and lists must stay valid and unchanged. Instead of leaving that
// storage unreachable, the source remembers its kind in moved_kind_ and releases it at the
// first moment nothing can read it any more: when it is given new content or destroyed.
V_ELEMENT& V_ELEMENT::operator=(V_ELEMENT&& other)
{
    if (this == &other) return *this;
    TypeSet(other.type);
    if (type != kNone) copy_payload_from(other);
    other.leave_payload_after_move();
    return *this;
}

void V_ELEMENT::Move(V_ELEMENT& other)
{
    *this = std::move(other);
}

void V_ELEMENT::p_Construct()
{
    switch (type) {
    case kCurve:
        moved_kind_ = kNone;  // the host rewrote the type; what was left is no longer ours
        new (&curve) CNurbs();
        break;
    case kPolyline:
        moved_kind_ = kNone;
        new (&polyline) Polyline();
        break;
    case kPointSet:
        moved_kind_ = kNone;
        new (&pointset) PointSet();
        break;
    default:
        break;
    }
}

void V_ELEMENT::p_Destroy()
{
    if (!is_owning(type)) return;
    release_payload(this, type);
    moved_kind_ = kNone;  // a payload left by a move and taken back by the type is gone now
}

void V_ELEMENT::TypeSet(short t)
{
    if (t == type) return;
    p_Destroy();
    drop_moved_payload();
    type = t;
    p_Construct();
}

void V_ELEMENT::leave_payload_after_move()
{
    if (type == kNone) return;  // an empty element keeps what an earlier move left
    moved_kind_ = is_owning(type) ? type : int16_t{kNone};
    type = kNone;
}

void V_ELEMENT::drop_moved_payload()
{
    if (moved_kind_ != kNone && type == kNone) release_payload(this, moved_kind_);
    moved_kind_ = kNone;
}

void V_ELEMENT::copy_payload_from(const V_ELEMENT& other)
{
    switch (other.type) {
    case kCurve:
        curve = other.curve;
        break;
    case kPolyline:
        polyline = other.polyline;
        break;
    case kPointSet:
        pointset = other.pointset;
        break;
    default: {
        const size_t n = plain_bytes(other.type);
        if (n > 0 && this != &other) std::memcpy(&point, &other.point, n);
        break;
    }
    }
}

// --- setters ---

void V_ELEMENT::SetPoint(const V_POINT& p)
{
    const V_POINT v = p;
    TypeSet(kPoint);
    point = v;
}

void V_ELEMENT::SetPoint(double x, double y, double z)
{
    SetPoint(V_POINT{x, y, z});
}

void V_ELEMENT::SetSegment(const V_SEGM& s)
{
    const V_SEGM v = s;
    TypeSet(kSegment);
    segm = v;
}

void V_ELEMENT::SetSegment(const V_POINT& start, const V_POINT& end)
{
    SetSegment(V_SEGM{start, end});
}

void V_ELEMENT::SetSegment(double x1, double y1, double z1, double x2, double y2, double z2)
{
    SetSegment(V_SEGM{{x1, y1, z1}, {x2, y2, z2}});
}

void V_ELEMENT::SetLine(const V_LINE& l)
{
    const V_LINE v = l;
    TypeSet(kLine);
    line = v;
}

void V_ELEMENT::SetLine(const V_POINT& p, const V_VECTOR& direction)
{
    SetLine(V_LINE{p, direction});
}

void V_ELEMENT::SetCircle(const V_CIRCLE& c)
{
    const V_CIRCLE v = c;
    TypeSet(kCircle);
    circle = v;
}

void V_ELEMENT::SetCircle(const V_POINT& centre, double radius, const V_VECTOR& normal)
{
    SetCircle(V_CIRCLE{centre, radius, normal});
}

void V_ELEMENT::SetArc(const V_ARC& a)
{
    const V_ARC v = a;
    TypeSet(kArc);
    arc = v;
}

void V_ELEMENT::SetArc(const V_POINT& centre, double radius, const V_POINT& start,
                       const V_POINT& end, const V_VECTOR& normal)
{
    SetArc(V_ARC{centre, radius, normal, start, end});
}

void V_ELEMENT::SetEllipse(const V_ELLIPSE& e)
{
    const V_ELLIPSE v = e;
    TypeSet(kEllipse);
    ellipse = v;
}

void V_ELEMENT::SetEllipticalArc(const V_ELLIPTICALARC& e)
{
    const V_ELLIPTICALARC v = e;
    TypeSet(kEllipticalArc);
    elarc = v;
}

void V_ELEMENT::SetSymbolInstance(const V_SYMBOL_INST& s)
{
    const V_SYMBOL_INST v = s;
    TypeSet(kSymbol);
    symbol = v;
}

void V_ELEMENT::SetText(const V_TEXT& t)
{
    const V_TEXT v = t;
    TypeSet(kText);
    text = v;
}

void V_ELEMENT::SetCurve(const CNurbs& c)
{
    if (type == kCurve) {
        curve = c;  // the copy assignment handles c being this very curve
        return;
    }
    CNurbs copy(c);  // c may live in the payload about to be released
    TypeSet(kCurve);
    curve = std::move(copy);
}

void V_ELEMENT::MoveCurve(CNurbs& c)
{
    if (&c == &curve && type == kCurve) return;
    CNurbs taken(std::move(c));
    TypeSet(kCurve);
    curve = std::move(taken);
}

short V_ELEMENT::SetPolyline(const List<V_POINT>& pts)
{
    Polyline built;  // pts may belong to the payload about to be released
    const short rc = built.Create(pts);
    TypeSet(kPolyline);
    polyline = std::move(built);
    return rc;
}

void V_ELEMENT::SetPolyline(const Polyline& pl)
{
    if (type == kPolyline) {
        polyline = pl;
        return;
    }
    Polyline copy(pl);
    TypeSet(kPolyline);
    polyline = std::move(copy);
}

void V_ELEMENT::MovePolyline(Polyline& pl)
{
    if (&pl == &polyline && type == kPolyline) return;
    Polyline taken(std::move(pl));
    TypeSet(kPolyline);
    polyline = std::move(taken);  // releases the list held before
}

void V_ELEMENT::SetPointSet(const PointSet& ps)
{
    if (type == kPointSet) {
        pointset = ps;
        return;
    }
    PointSet copy(ps);
    TypeSet(kPointSet);
    pointset = std::move(copy);
}

short V_ELEMENT::SetPointSet(const List<V_POINT>& pts, const V_WORKPLANE& wp)
{
    PointSet built;
    const short rc = built.Create(pts, wp);
    TypeSet(kPointSet);
    pointset = std::move(built);
    return rc;
}

short V_ELEMENT::SetPointSet(unsigned long n_points, unsigned long n_deleted)
{
    PointSet built;
    const short rc = built.SetPointSet(n_points, n_deleted);
    TypeSet(kPointSet);
    pointset = std::move(built);
    return rc;
}

void V_ELEMENT::MovePointSet(PointSet& ps)
{
    if (&ps == &pointset && type == kPointSet) return;
    PointSet taken(std::move(ps));
    TypeSet(kPointSet);
    pointset = std::move(taken);
}

// --- diagnostics ---

void V_ELEMENT::DebugOutput(char* name) const
{
    DebugOutput(static_cast<const char*>(name));
}

void V_ELEMENT::DebugOutput(const char* name) const
{
    const char* n = name ? name : "";
    switch (type) {
    case kSegment:
        debug_printf("%s : Segment\n", n);
        debug_printf("Start X%f Y%f Z%f\n", segm.start.x, segm.start.y, segm.start.z);
        debug_printf("  End X%f Y%f Z%f\n", segm.end.x, segm.end.y, segm.end.z);
        break;
    case kCircle:
        debug_printf("%s : Circle\n", n);
        debug_printf("Centre X%f Y%f Z%f Rad%f\n", circle.centre.x, circle.centre.y,
                     circle.centre.z, circle.radius);
        debug_printf("Normal X%f Y%f Z%f\n", circle.normal.x, circle.normal.y, circle.normal.z);
        break;
    case kArc:
        debug_printf("%s : Arc\n", n);
        debug_printf("Centre X%f Y%f Z%f Rad%f\n", arc.centre.x, arc.centre.y, arc.centre.z,
                     arc.radius);
        debug_printf("Start X%f Y%f Z%f\n", arc.start.x, arc.start.y, arc.start.z);
        debug_printf("  End X%f Y%f Z%f\n", arc.end.x, arc.end.y, arc.end.z);
        debug_printf("Normal X%f Y%f Z%f\n", arc.normal.x, arc.normal.y, arc.normal.z);
        break;
    case kText:
        debug_printf("%s : Text\n", n);
        debug_printf("Ap. Point X%f Y%f Z%f\n", text.point.x, text.point.y, text.point.z);
        debug_printf("  Normal CX%f CY%f CZ%f\n", text.normal.x, text.normal.y, text.normal.z);
        debug_printf("  Xaxis CX%f CY%f CZ%f\n", text.xaxis.x, text.xaxis.y, text.xaxis.z);
        debug_printf("  Width = %f Height = %f \n", text.width, text.height);
        // UTF-16 units cannot go through %ls where wchar_t is 32 bits: printed as UTF-8.
        print_text_characters(text.text);
        break;
    case kCurve:
        curve.DebugOutput(name);
        break;
    case kPolyline:
        polyline.DebugOutput(name);
        break;
    default:
        debug_printf("%s : V_ELEMENT %d\n", n, static_cast<int>(type));
        break;
    }
}

// --- conversions ---

short V_ELEMENT::convert_A_to_C()
{
    if (type != kArc) return st::wrong_kind;
    type = kCircle;  // the circle record is the leading part of the arc record
    return st::ok;
}

short V_ELEMENT::convert_S_to_L()
{
    if (type != kSegment) return st::wrong_kind;
    const V_VECTOR d{segm.end.x - segm.start.x, segm.end.y - segm.start.y,
                     segm.end.z - segm.start.z};
    const double len = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
    // The angular tolerance, on purpose, for this length.
    if (!(len >= tavotoll.angle)) return st::bad_input;
    const V_LINE l{segm.start, {d.x / len, d.y / len, d.z / len}};
    type = kLine;
    line = l;
    return st::ok;
}
