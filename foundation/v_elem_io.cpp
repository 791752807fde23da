#include "foundation/v_elem.h"
#include "foundation/status.h"
#include "platform/utils.h"
#include <cstring>
#include <stdexcept>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "element records are written as the payload lies in memory on a little-endian host");

namespace {

enum Kind : short {
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
    kLastCode = 26,
};

// Size of the payload written in one block after the type code: the record images of types
// 1 to 7 and 12, the fixed part of a text; 0 for everything else.
size_t block_bytes(short t)
{
    switch (t) {
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
        return 0;
    }
}

static_assert(sizeof(V_POINT) == 24 && sizeof(V_SEGM) == 48 && sizeof(V_LINE) == 48 &&
                  sizeof(V_CIRCLE) == 56 && sizeof(V_ARC) == 104 && sizeof(V_ELLIPSE) == 88,
              "payload sizes of the element record");

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

// Reads n units and stores them, terminated, in a new block that text then points to.
// The block grows with what the stream delivers; any failure frees it and throws.
void read_text_units(FILE* f, uint32_t n, V_TEXT* text)
{
    uint32_t cap = n < kFirstTextUnits ? n : kFirstTextUnits;  // units, terminator not counted
    auto* buf = static_cast<char16_t*>(
        _v_calloc(size_t(cap) + 1, sizeof(char16_t), "v_elem", __LINE__, "V_TEXT"));
    if (!buf) throw std::runtime_error("no memory for the characters of a text record");
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

}  // namespace

// --- writing ---

short V_ELEMENT::fwrite_bin(FILE* f) const
{
    if (!f) return st::bad_input;
    const int16_t t = type;
    if (std::fwrite(&t, sizeof t, 1, f) != 1) return st::bad_input;
    if (t < 1 || t > kLastCode) return st::ok;
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
    const size_t n_block = block_bytes(t);
    if (n_block == 0) return st::ok;  // reserved codes carry nothing
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
    if (t < 1 || t > kLastCode) return st::ok;
    switch (t) {
    case kCurve:
        return curve.fread_bin(f) == st::ok ? st::ok : st::bad_input;
    case kPolyline:
        return polyline.fread_bin(f) == st::ok ? st::ok : st::bad_input;
    case kPointSet:
        return pointset.fread_bin(f);
    default:
        break;
    }
    const size_t n_block = block_bytes(t);
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
    std::memcpy(&t, p, sizeof t);
    p += sizeof t;
    TypeSet(t);
    if (t < 1 || t > kLastCode) return st::ok;
    switch (t) {
    case kCurve:
        return curve.fread_bin(p) == st::ok ? st::ok : st::bad_input;
    case kPolyline:
        return polyline.fread_bin(p) == st::ok ? st::ok : st::bad_input;
    case kPointSet:
        return pointset.fread_bin(p);
    default:
        break;
    }
    const size_t n_block = block_bytes(t);
    if (n_block == 0) return st::ok;
    std::memcpy(&point, p, n_block);
    p += n_block;
    if (t != kText) return st::ok;
    text.text = nullptr;
    uint32_t n;
    std::memcpy(&n, p, sizeof n);
    p += sizeof n;
    auto* buf = static_cast<char16_t*>(
        _v_calloc(size_t(n) + 1, sizeof(char16_t), "v_elem", __LINE__, "V_TEXT"));
    if (!buf) throw std::runtime_error("no memory for the characters of a text record");
    if (n > 0) std::memcpy(buf, p, size_t(n) * sizeof(char16_t));
    p += size_t(n) * sizeof(char16_t);
    buf[n] = 0;
    text.text = buf;
    return st::ok;
}
