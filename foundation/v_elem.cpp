#include "foundation/v_elem.h"
#include "foundation/status.h"
#include "foundation/v_elem_internal.h"
#include "platform/utils.h"
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

using namespace kestra::detail;

namespace {

// Bytes of a plain payload that carry meaning: the record of a known kind, the whole storage
// for a reserved code (copied as it lies), nothing for the empty element.
size_t plain_bytes(short t)
{
    if (t == kNone) return 0;
    const size_t n = fixed_record_bytes(t);
    return n > 0 ? n : sizeof(PointSet);  // the size of the shared storage
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

// The setters below make e of kind k and store their argument v in the payload member m. The
// argument is copied (or built, or taken) before the type change, which may release the
// payload that v lives in.

// A plain record.
template <class T> void set_plain(V_ELEMENT* e, short k, T V_ELEMENT::*m, const T& v)
{
    const T copy = v;
    e->TypeSet(k);
    e->*m = copy;
}

// A deep copy of an owning payload; the copy assignment handles v being e's own payload.
template <class T> void set_copy(V_ELEMENT* e, short k, T V_ELEMENT::*m, const T& v)
{
    if (e->type == k) {
        e->*m = v;
        return;
    }
    T copy(v);
    e->TypeSet(k);
    e->*m = std::move(copy);
}

// An owning payload taken from v, which is left empty; the list held before is released.
template <class T> void set_taken(V_ELEMENT* e, short k, T V_ELEMENT::*m, T& v)
{
    if (&v == &(e->*m) && e->type == k) return;
    T taken(std::move(v));
    e->TypeSet(k);
    e->*m = std::move(taken);
}

// An owning payload made by build(T&), whose status is returned: in place when e already is
// of kind k (the builders read their argument before replacing anything and leave the payload
// as it was when they fail); otherwise into a fresh payload, built before the type change.
template <class T, class Build> short set_built(V_ELEMENT* e, short k, T V_ELEMENT::*m, Build build)
{
    if (e->type == k) return build(e->*m);
    T built;
    const short rc = build(built);
    e->TypeSet(k);
    e->*m = std::move(built);
    return rc;
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
// Moved into itself, an element takes the same steps: TypeSet and the copy find nothing to
// do, and the element ends empty like any moved-from one.
V_ELEMENT& V_ELEMENT::operator=(V_ELEMENT&& other)
{
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
    set_plain(this, kPoint, &V_ELEMENT::point, p);
}

void V_ELEMENT::SetPoint(double x, double y, double z)
{
    SetPoint(V_POINT{x, y, z});
}

void V_ELEMENT::SetSegment(const V_SEGM& s)
{
    set_plain(this, kSegment, &V_ELEMENT::segm, s);
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
    set_plain(this, kLine, &V_ELEMENT::line, l);
}

void V_ELEMENT::SetLine(const V_POINT& p, const V_VECTOR& direction)
{
    SetLine(V_LINE{p, direction});
}

void V_ELEMENT::SetCircle(const V_CIRCLE& c)
{
    set_plain(this, kCircle, &V_ELEMENT::circle, c);
}

void V_ELEMENT::SetCircle(const V_POINT& centre, double radius, const V_VECTOR& normal)
{
    SetCircle(V_CIRCLE{centre, radius, normal});
}

void V_ELEMENT::SetArc(const V_ARC& a)
{
    set_plain(this, kArc, &V_ELEMENT::arc, a);
}

void V_ELEMENT::SetArc(const V_POINT& centre, double radius, const V_POINT& start,
                       const V_POINT& end, const V_VECTOR& normal)
{
    SetArc(V_ARC{centre, radius, normal, start, end});
}

void V_ELEMENT::SetEllipse(const V_ELLIPSE& e)
{
    set_plain(this, kEllipse, &V_ELEMENT::ellipse, e);
}

void V_ELEMENT::SetEllipticalArc(const V_ELLIPTICALARC& e)
{
    set_plain(this, kEllipticalArc, &V_ELEMENT::elarc, e);
}

void V_ELEMENT::SetSymbolInstance(const V_SYMBOL_INST& s)
{
    set_plain(this, kSymbol, &V_ELEMENT::symbol, s);
}

void V_ELEMENT::SetText(const V_TEXT& t)
{
    set_plain(this, kText, &V_ELEMENT::text, t);
}

void V_ELEMENT::SetCurve(const CNurbs& c)
{
    set_copy(this, kCurve, &V_ELEMENT::curve, c);
}

void V_ELEMENT::MoveCurve(CNurbs& c)
{
    set_taken(this, kCurve, &V_ELEMENT::curve, c);
}

short V_ELEMENT::SetPolyline(const List<V_POINT>& pts)
{
    return set_built(this, kPolyline, &V_ELEMENT::polyline,
                     [&](Polyline& pl) { return pl.Create(pts); });
}

void V_ELEMENT::SetPolyline(const Polyline& pl)
{
    set_copy(this, kPolyline, &V_ELEMENT::polyline, pl);
}

void V_ELEMENT::MovePolyline(Polyline& pl)
{
    set_taken(this, kPolyline, &V_ELEMENT::polyline, pl);
}

void V_ELEMENT::SetPointSet(const PointSet& ps)
{
    set_copy(this, kPointSet, &V_ELEMENT::pointset, ps);
}

short V_ELEMENT::SetPointSet(const List<V_POINT>& pts, const V_WORKPLANE& wp)
{
    return set_built(this, kPointSet, &V_ELEMENT::pointset,
                     [&](PointSet& ps) { return ps.Create(pts, wp); });
}

short V_ELEMENT::SetPointSet(unsigned long n_points, unsigned long n_deleted)
{
    return set_built(this, kPointSet, &V_ELEMENT::pointset,
                     [&](PointSet& ps) { return ps.SetPointSet(n_points, n_deleted); });
}

void V_ELEMENT::MovePointSet(PointSet& ps)
{
    set_taken(this, kPointSet, &V_ELEMENT::pointset, ps);
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
