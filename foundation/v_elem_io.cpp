#include "foundation/v_elem.h"
#include "foundation/status.h"
#include "foundation/v_elem_internal.h"
#include "platform/utils.h"
#include <cstring>
#include <stdexcept>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "element records are written as the payload lies in memory on a little-endian host");

using namespace kestra::detail;

namespace {

// First allocation for a text's characters read from a stream, in code units; the block then
// doubles as units arrive, so a corrupt count costs at most twice what the stream holds.
constexpr uint32_t kFirstTextUnits = 4096;

// Units before the terminating zero; a null pointer counts as an empty text.
size_t text_units(const char16_t* s)
{
    size_t n = 0;
    if (s) {
        while (s[n] != 0) ++n;
    }
    return n;
}

[[noreturn]] void text_failure(char16_t* buf, int line, const char* what)
{
    _v_free(buf, "v_elem", line, "V_TEXT");
    throw std::runtime_error(what);
}

// A zeroed block for units code units and their terminator; throws when memory runs out.
char16_t* text_block(uint32_t units)
{
    void* buf = _v_calloc(size_t(units) + 1, sizeof(char16_t), "v_elem", __LINE__, "V_TEXT");
    if (!buf) throw std::runtime_error("no memory for the characters of a text record");
    return static_cast<char16_t*>(buf);
}

// Reads n units and stores them, terminated, in a new block that text then points to.
// The block grows with what the stream delivers; any failure frees it and throws.
void read_text_units(FILE* f, uint32_t n, V_TEXT* text)
{
    uint32_t cap = n < kFirstTextUnits ? n : kFirstTextUnits;  // units, terminator not counted
    char16_t* buf = text_block(cap);
    uint32_t got = 0;
    while (got < n) {
        if (got == cap) {
            const uint32_t grown = n - cap < cap ? n : 2 * cap;
            auto* bigger = static_cast<char16_t*>(_v_realloc(
                buf, (size_t(grown) + 1) * sizeof(char16_t), "v_elem", __LINE__, "V_TEXT"));
            if (!bigger)
                text_failure(buf, __LINE__, "no memory for the characters of a text record");
            buf = bigger;
            cap = grown;
        }
        const uint32_t want = cap - got;
        const size_t r = std::fread(buf + got, sizeof(char16_t), want, f);
        got += static_cast<uint32_t>(r);
        if (r != want) text_failure(buf, __LINE__, "text record cut short");
    }
    buf[n] = 0;
    text->text = buf;
}

// Reads the owning payload of e, whose type is already set, from src (a stream or a memory
// cursor). The curve's and polyline's failures become 110; the point set's status stands.
template <class Src> short read_owning(V_ELEMENT* e, Src& src)
{
    switch (e->type) {
    case kCurve:
        return e->curve.fread_bin(src) == st::ok ? st::ok : st::bad_input;
    case kPolyline:
        return e->polyline.fread_bin(src) == st::ok ? st::ok : st::bad_input;
    default:
        return e->pointset.fread_bin(src);
    }
}

// Copies n bytes at p into dst and advances p.
void take(void* dst, unsigned char*& p, size_t n)
{
    std::memcpy(dst, p, n);
    p += n;
}

}  // namespace

// --- writing ---

short V_ELEMENT::fwrite_bin(FILE* f) const
{
    if (!f) return st::bad_input;
    const int16_t t = type;
    if (std::fwrite(&t, sizeof t, 1, f) != 1) return st::bad_input;
    switch (t) {
    case kCurve:
        return curve.fwrite_bin(f) == st::ok ? st::ok : st::bad_input;
    case kPolyline:
        return polyline.fwrite_bin(f) == st::ok ? st::ok : st::bad_input;
    case kPointSet:
        return pointset.fwrite_bin(f);
    default:
        break;
    }
    const size_t n_block = fixed_record_bytes(t);
    if (n_block == 0) return st::ok;  // the empty element and reserved codes carry nothing
    if (std::fwrite(&point, n_block, 1, f) != 1) return st::bad_input;
    if (t != kText) return st::ok;
    const size_t n = text_units(text.text);
    if (n > UINT32_MAX) return st::bad_input;
    const uint32_t n32 = static_cast<uint32_t>(n);
    if (std::fwrite(&n32, sizeof n32, 1, f) != 1) return st::bad_input;
    if (n > 0 && std::fwrite(text.text, sizeof(char16_t), n, f) != n) return st::bad_input;
    return st::ok;
}

// --- reading from a stream ---

short V_ELEMENT::fread_bin(FILE* f)
{
    if (!f) return st::bad_input;
    int16_t t;
    if (std::fread(&t, sizeof t, 1, f) != 1) return st::bad_input;
    TypeSet(t);
    if (is_owning(t)) return read_owning(this, f);
    const size_t n_block = fixed_record_bytes(t);
    if (n_block == 0) return st::ok;
    const size_t got = std::fread(&point, 1, n_block, f);
    if (t != kText) return got == n_block ? st::ok : st::bad_input;
    // The pointer read with the block belongs to the writer's process: never keep it.
    text.text = nullptr;
    if (got != n_block) throw std::runtime_error("text record cut short");
    uint32_t n;
    if (std::fread(&n, sizeof n, 1, f) != 1) throw std::runtime_error("text record cut short");
    read_text_units(f, n, &text);
    return st::ok;
}

// --- reading from memory ---

short V_ELEMENT::fread_bin(unsigned char*& p)
{
    if (!p) return st::bad_input;
    int16_t t;
    take(&t, p, sizeof t);
    TypeSet(t);
    if (is_owning(t)) return read_owning(this, p);
    const size_t n_block = fixed_record_bytes(t);
    if (n_block == 0) return st::ok;
    take(&point, p, n_block);
    if (t != kText) return st::ok;
    text.text = nullptr;
    uint32_t n;
    take(&n, p, sizeof n);
    char16_t* buf = text_block(n);
    take(buf, p, size_t(n) * sizeof(char16_t));
    text.text = buf;
    return st::ok;
}
