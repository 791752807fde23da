#include "curves/cs_1.h"
#include "curves/curves_internal.h"
#include "foundation/list.h"
#include "foundation/status.h"
#include "platform/utils.h"
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied as little-endian bytes");
static_assert(sizeof(int) == 4, "multiplicities are 32-bit in the record");

namespace {

using kestra::detail::copy_list;
using kestra::detail::growth_step;
using kestra::detail::replace_list;
using kestra::detail::tracked_delete;
using kestra::detail::tracked_new;

// Bytes of the fixed header: four int16 flags and five int32 counts.
constexpr size_t kHeaderBytes = 28;

// Values read per chunk; list storage grows only with what has actually been read.
constexpr uint32_t kChunkValues = 512;

// Byte source over a stream.
struct FileSource {
    FILE* f;
    bool read(void* dst, size_t n) { return std::fread(dst, 1, n, f) == n; }
};

// Byte source over memory; bounded sources refuse to run past end.
struct MemorySource {
    const unsigned char* p;
    const unsigned char* end;  // null: unbounded
    bool read(void* dst, size_t n)
    {
        if (end && static_cast<size_t>(end - p) < n) return false;
        std::memcpy(dst, p, n);
        p += n;
        return true;
    }
};

template <class T> void put_le(unsigned char* at, T v)
{
    std::memcpy(at, &v, sizeof v);
}

template <class T> T get_le(const unsigned char* at)
{
    T v;
    std::memcpy(&v, at, sizeof v);
    return v;
}

// Appends count values of type T from src to *list (created with grow_by when null), in
// chunks. Deliberately stricter than reserving from the count: storage is reserved for at
// most twice what has been read plus one chunk, so a count larger than the source holds
// fails at the short read without a large allocation.
template <class T, class Source>
bool read_counted(Source& src, uint32_t count, List<T>*& list, uint32_t grow_by)
{
    if (count == 0) return true;
    if (!list) {
        list = tracked_new<List<T>>(grow_by);
        if (!list) return false;
    }
    unsigned char buf[kChunkValues * sizeof(T)];
    uint32_t left = count;
    while (left > 0) {
        const uint32_t chunk = left < kChunkValues ? left : kChunkValues;
        if (!src.read(buf, static_cast<size_t>(chunk) * sizeof(T))) return false;
        const uint64_t need = static_cast<uint64_t>(list->Count()) + chunk;
        if (need >= UINT32_MAX) return false;
        if (need > list->capacity) {
            uint64_t cap = 2ull * list->capacity;
            if (cap < need) cap = need;
            if (cap >= UINT32_MAX) cap = need;
            if (!list->Reserve(static_cast<uint32_t>(cap))) return false;
        }
        for (uint32_t i = 0; i < chunk; ++i) {
            if (!list->Append(get_le<T>(buf + i * sizeof(T)))) return false;
        }
        left -= chunk;
    }
    return true;
}

// The record reader shared by the stream and memory forms: header, Init_Lists, then the
// three counted arrays, all into c (a fresh curve).
template <class Source> short read_record(Source& src, CNurbs& c)
{
    unsigned char h[kHeaderBytes];
    if (!src.read(h, sizeof h)) return st::bad_input;
    c.closed = get_le<int16_t>(h + 0);
    c.parametric = get_le<int16_t>(h + 2);
    c.periodic = get_le<int16_t>(h + 4);
    c.rational = get_le<int16_t>(h + 6);
    c.form = get_le<int32_t>(h + 8);
    c.order = get_le<int32_t>(h + 12);
    c.n_cpts = get_le<int32_t>(h + 16);
    c.vpp = get_le<int32_t>(h + 20);
    c.n_knots = get_le<int32_t>(h + 24);
    if (c.Init_Lists(false) != st::ok) return st::bad_input;

    unsigned char n[4];
    if (!src.read(n, 4)) return st::bad_input;
    const uint32_t grow_cpts = growth_step(static_cast<int64_t>(c.n_cpts) * c.vpp);
    if (!read_counted<double>(src, get_le<uint32_t>(n), c.cpts, grow_cpts)) return st::bad_input;
    if (!src.read(n, 4)) return st::bad_input;
    const uint32_t grow_knots = growth_step(c.n_knots);
    if (!read_counted<double>(src, get_le<uint32_t>(n), c.knots, grow_knots)) return st::bad_input;
    if (!src.read(n, 4)) return st::bad_input;
    if (!read_counted<int>(src, get_le<uint32_t>(n), c.mults, grow_knots)) return st::bad_input;
    return st::ok;
}

// Writes a counted array: uint32 count (0 for a missing list), then the values in one piece.
template <class T> bool write_counted(FILE* f, const List<T>* list)
{
    const uint32_t count = list ? list->Count() : 0;
    unsigned char n[4];
    put_le(n, count);
    if (std::fwrite(n, 1, 4, f) != 4) return false;
    if (count == 0) return true;
    return std::fwrite(list->items, sizeof(T), count, f) == count;
}

// Moves every field of from into to, whose lists are already released, and leaves from
// as CNurbs() makes it.
void take(CNurbs& to, CNurbs& from)
{
    to.cpts = from.cpts;
    to.knots = from.knots;
    to.mults = from.mults;
    to.closed = from.closed;
    to.parametric = from.parametric;
    to.periodic = from.periodic;
    to.rational = from.rational;
    to.form = from.form;
    to.order = from.order;
    to.n_cpts = from.n_cpts;
    to.vpp = from.vpp;
    to.n_knots = from.n_knots;
    from.cpts = nullptr;
    from.knots = nullptr;
    from.mults = nullptr;
    from.Free_Lists();
}

const char* form_name(int32_t form)
{
    switch (form) {
    case 0:
        return "UNDEFINED";
    case 1:
        return "CIRCULAR_ARC";
    case 2:
        return "PARABOLIC ARC";
    case 3:
        return "ELLIPTICAL ARC";
    case 4:
        return "HYPERBOLIC ARC";
    default:
        return "UNKNOWN";
    }
}

void start_line(const char* title)
{
    if (title)
        debug_printf("======= Start \" %s \"\n", title);
    else
        debug_printf("======= Start \n");
}

}  // namespace

// --- lifecycle ---

CNurbs::CNurbs()
    : cpts(nullptr), knots(nullptr), mults(nullptr), closed(0), parametric(0), periodic(0),
      rational(0), form(0), order(0), n_cpts(0), vpp(0), n_knots(0)
{}

CNurbs::CNurbs(const CNurbs& other)
    : cpts(nullptr), knots(nullptr), mults(nullptr), closed(other.closed),
      parametric(other.parametric), periodic(other.periodic), rational(other.rational),
      form(other.form), order(other.order), n_cpts(other.n_cpts), vpp(other.vpp),
      n_knots(other.n_knots)
{
    cpts = copy_list(other.cpts);
    knots = copy_list(other.knots);
    mults = copy_list(other.mults);
    KESTRA_REQUIRE((cpts || !other.cpts) && (knots || !other.knots) && (mults || !other.mults));
}

CNurbs& CNurbs::operator=(const CNurbs& other)
{
    if (this == &other) return *this;
    CNurbs copy(other);
    return *this = std::move(copy);
}

CNurbs::CNurbs(CNurbs&& other) noexcept : CNurbs()
{
    take(*this, other);
}

CNurbs& CNurbs::operator=(CNurbs&& other) noexcept
{
    if (this == &other) return *this;
    Free_Lists();
    take(*this, other);
    return *this;
}

CNurbs::~CNurbs()
{
    Free_Lists();
}

void CNurbs::Free_Lists()
{
    tracked_delete(cpts);
    tracked_delete(knots);
    tracked_delete(mults);
    cpts = nullptr;
    knots = nullptr;
    mults = nullptr;
    closed = parametric = periodic = rational = 0;
    form = order = n_cpts = vpp = n_knots = 0;
}

short CNurbs::Init_Lists(bool no_mults)
{
    const bool want_cpts = n_cpts >= 2 && vpp >= 1;
    const bool want_knots = n_knots >= 2;
    List<double>* new_cpts = nullptr;
    List<double>* new_knots = nullptr;
    List<int>* new_mults = nullptr;
    bool ok = true;
    if (want_cpts) {
        new_cpts = tracked_new<List<double>>(growth_step(static_cast<int64_t>(n_cpts) * vpp));
        ok = new_cpts != nullptr;
    }
    if (ok && want_knots) {
        new_knots = tracked_new<List<double>>(growth_step(n_knots));
        ok = new_knots != nullptr;
        if (ok && !no_mults) {
            new_mults = tracked_new<List<int>>(growth_step(n_knots));
            ok = new_mults != nullptr;
        }
    }
    if (!ok) {
        tracked_delete(new_cpts);
        tracked_delete(new_knots);
        tracked_delete(new_mults);
        return st::no_memory;
    }
    if (want_cpts) replace_list(cpts, new_cpts);
    if (want_knots) {
        replace_list(knots, new_knots);
        replace_list(mults, new_mults);
    }
    return st::ok;
}

short CNurbs::Init_As_Bezier_Curve(int n)
{
    if (n < 2) return st::bad_input;
    CNurbs c;
    c.order = n;
    c.n_cpts = n;
    c.vpp = 3;
    c.n_knots = 2;
    if (c.Init_Lists(false) != st::ok) return st::no_memory;
    if (!c.knots->Append(0.0) || !c.knots->Append(1.0) || !c.mults->Append(n) ||
        !c.mults->Append(n))
        return st::no_memory;
    *this = std::move(c);
    return st::ok;
}

// --- text dump ---

void CNurbs::DebugOutput(const char* title) const
{
    start_line(title);
    debug_printf("Order = %hd%s%s%s%s\n", static_cast<short>(order),
                 rational == 1 ? " Rational" : "", closed == 1 ? " Closed" : "",
                 periodic == 1 ? " Periodic" : "", parametric == 1 ? " Parametric curve" : "");
    debug_printf("Form is %s\n", form_name(form));
    DebugOutputVertices(nullptr);
    DebugOutputKnots(nullptr);
}

// One line per control point: Cartesian values (homogeneous ones divided by the weight,
// unless the weight is exactly 0), then the weight of a rational curve. A curve of dimension
// 2 prints U and V, any other X, Y and Z (missing coordinates as 0). A point whose values
// are not all set prints "P<i> Undefined"; the lines end with the values the list holds, so
// a corrupt count cannot run the dump on.
void CNurbs::DebugOutputVertices(const char* title) const
{
    start_line(title);
    const int dim = vpp - (rational ? 1 : 0);
    const uint64_t held = cpts ? cpts->Count() : 0;
    for (int32_t i = 1; i <= n_cpts && vpp >= 1; ++i) {
        const uint64_t base = static_cast<uint64_t>(i - 1) * static_cast<uint64_t>(vpp);
        if (base >= held) break;  // the dump stops where the held values stop
        bool present = dim >= 1 && base + static_cast<uint64_t>(vpp) <= held;
        for (int32_t c = 1; present && c <= vpp; ++c)
            present = cpts->IsSet(static_cast<uint32_t>(base) + c);
        if (!present) {
            debug_printf("P%ld Undefined\n", static_cast<long>(i));
            continue;
        }
        const double* p = cpts->items + base;
        const double w = rational ? p[vpp - 1] : 1.0;
        double x[3] = {0.0, 0.0, 0.0};
        for (int c = 0; c < dim && c < 3; ++c) {
            x[c] = w != 0.0 ? p[c] / w : p[c];  // exact: only a zero weight cannot divide
        }
        const long idx = i;
        if (dim == 2) {
            if (rational)
                debug_printf("P%ld U=%.*f V=%.*f Wt=%.*f\n", idx, 12, x[0], 12, x[1], 12, w);
            else
                debug_printf("P%ld U=%.*f V=%.*f \n", idx, 12, x[0], 12, x[1]);
        } else if (rational) {
            debug_printf("P%ld X=%.*f Y=%.*f Z=%.*f Wt=%.*f\n", idx, 12, x[0], 12, x[1], 12, x[2],
                         12, w);
        } else {
            debug_printf("P%ld X=%.*f Y=%.*f Z=%.*f\n", idx, 12, x[0], 12, x[1], 12, x[2]);
        }
    }
    debug_printf("=======\n");
}

// A knot whose value or multiplicity slot is unset prints as undefined; the lines end with
// the longer of the two lists.
void CNurbs::DebugOutputKnots(const char* title) const
{
    start_line(title);
    const uint32_t held_k = knots ? knots->Count() : 0;
    const uint32_t held_m = mults ? mults->Count() : 0;
    const uint32_t held = held_k > held_m ? held_k : held_m;
    for (int32_t i = 1; i <= n_knots; ++i) {
        const uint32_t k = static_cast<uint32_t>(i);
        if (k > held) break;  // the dump stops where the held knots stop
        if (knots && mults && knots->IsSet(k) && mults->IsSet(k))
            debug_printf("KNOT %ld  Multiplicity %ld = %.*f\n", static_cast<long>(i),
                         static_cast<long>(mults->items[k - 1]), 12, knots->items[k - 1]);
        else
            debug_printf("KNOT %ld Undefined\n", static_cast<long>(i));
    }
    debug_printf("======= End \n");
}

// --- binary record ---

short CNurbs::fwrite_bin(FILE* f) const
{
    if (!f) return st::bad_index;
    unsigned char h[kHeaderBytes];
    put_le(h + 0, closed);
    put_le(h + 2, parametric);
    put_le(h + 4, periodic);
    put_le(h + 6, rational);
    put_le(h + 8, form);
    put_le(h + 12, order);
    put_le(h + 16, n_cpts);
    put_le(h + 20, vpp);
    put_le(h + 24, n_knots);
    if (std::fwrite(h, 1, sizeof h, f) != sizeof h) return st::bad_input;
    if (!write_counted(f, cpts) || !write_counted(f, knots) || !write_counted(f, mults))
        return st::bad_input;
    return st::ok;
}

short CNurbs::fread_bin(FILE* f)
{
    if (!f) return st::bad_index;
    FileSource src{f};
    CNurbs c;
    const short rc = read_record(src, c);
    if (rc != st::ok) return rc;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::fread_bin(unsigned char*& cursor)
{
    if (!cursor) return st::bad_input;  // beyond the plain reader: a null cursor is refused
    MemorySource src{cursor, nullptr};
    CNurbs c;
    const short rc = read_record(src, c);
    if (rc != st::ok) return rc;
    *this = std::move(c);
    cursor += src.p - cursor;
    return st::ok;
}

short CNurbs::fread_bin(unsigned char*& cursor, size_t len)
{
    if (!cursor) return st::bad_input;
    MemorySource src{cursor, cursor + len};
    CNurbs c;
    const short rc = read_record(src, c);
    if (rc != st::ok) return rc;
    *this = std::move(c);
    cursor += src.p - cursor;
    return st::ok;
}
