#include "platform/utils.h"
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr char16_t kReplacement = 0xFFFD;

// Capacity usable by a converter returning int: the count without terminator must fit.
size_t usable(size_t capacity)
{
    return capacity > static_cast<size_t>(INT_MAX) ? static_cast<size_t>(INT_MAX) : capacity;
}

// Result of a conversion that ran out of room or got null input: terminate what fits.
template <class C> int did_not_fit(C* dest, size_t written, size_t capacity)
{
    if (dest && capacity >= 1) dest[written] = 0;
    return -1;
}

// Decodes one UTF-8 character at s (s[0] != 0) into *cp and returns the bytes it takes;
// an ill-formed subsequence gives U+FFFD and the length of its maximal prefix that could
// start a well-formed sequence (at least 1), so the caller resynchronises on the next byte.
size_t decode_utf8(const unsigned char* s, char32_t* cp)
{
    const unsigned char b0 = s[0];
    if (b0 < 0x80) {
        *cp = b0;
        return 1;
    }
    size_t len;
    char32_t value;
    unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        len = 2;
        value = b0 & 0x1Fu;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        len = 3;
        value = b0 & 0x0Fu;
        if (b0 == 0xE0) lo = 0xA0;  // overlong below U+0800
        if (b0 == 0xED) hi = 0x9F;  // U+D800 .. U+DFFF are not characters
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        len = 4;
        value = b0 & 0x07u;
        if (b0 == 0xF0) lo = 0x90;  // overlong below U+10000
        if (b0 == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
        *cp = kReplacement;  // continuation byte or C0, C1, F5 .. FF
        return 1;
    }
    for (size_t i = 1; i < len; ++i) {
        const unsigned char b = s[i];  // a terminator fails the range test below
        const unsigned char bl = i == 1 ? lo : 0x80;
        const unsigned char bh = i == 1 ? hi : 0xBF;
        if (b < bl || b > bh) {
            *cp = kReplacement;
            return i;
        }
        value = (value << 6) | (b & 0x3Fu);
    }
    *cp = value;
    return len;
}

}  // namespace

// --- numbers ---

void dswap(double* a, double* b)
{
    if (!a || !b) return;
    const double t = *a;
    *a = *b;
    *b = t;
}

void format(FORMAT_STRUCTURE* f)
{
    if (!f) return;
    const int decimals = f->decimals < 0 ? 0 : (f->decimals > 15 ? 15 : f->decimals);
    const int width = f->width < 0 ? 0 : (f->width > 63 ? 63 : f->width);
    const bool plus = (f->flags & FORMAT_PLUS_SIGN) != 0;
    const double v = f->value;

    // Fixed notation needs up to 309 integer digits, a sign, a point and 15 decimals.
    char body[400];
    if (std::isnan(v)) {
        std::strcpy(body, "nan");
    } else if (std::isinf(v)) {
        std::strcpy(body, v < 0 ? "-inf" : (plus ? "+inf" : "inf"));
    } else {
        const int n = std::snprintf(body, sizeof body, plus ? "%+.*f" : "%.*f", decimals, v);
        if (n >= static_cast<int>(sizeof f->text)) {
            std::snprintf(body, sizeof body, plus ? "%+.*e" : "%.*e", decimals, v);
        }
        // A value that rounds to zero prints without a minus sign.
        if (body[0] == '-' && std::strspn(body + 1, "0.") == std::strlen(body + 1)) {
            body[0] = plus ? '+' : ' ';
            if (!plus) std::memmove(body, body + 1, std::strlen(body));
        }
        if ((f->flags & FORMAT_TRIM_ZEROS) && decimals > 0) {
            // Trailing zeros of the fraction go, then a bare point; an exponent stays.
            char* point = std::strchr(body, '.');
            char* exponent = std::strchr(body, 'e');
            if (point) {
                char* stop = exponent ? exponent : body + std::strlen(body);
                char* last = stop;
                while (last > point + 1 && last[-1] == '0') --last;
                if (last == point + 1) last = point;
                std::memmove(last, stop, std::strlen(stop) + 1);
            }
        }
    }
    // body holds at most 63 characters (fixed form checked above, the exponent form is
    // shorter), and len + pad never exceeds width <= 63.
    const size_t len = std::strlen(body);
    KESTRA_REQUIRE(len < sizeof f->text);
    const size_t pad = static_cast<size_t>(width) > len ? static_cast<size_t>(width) - len : 0;
    char* out = f->text;
    if (!(f->flags & FORMAT_LEFT_ALIGN)) out = static_cast<char*>(std::memset(out, ' ', pad)) + pad;
    std::memcpy(out, body, len);
    out += len;
    if (f->flags & FORMAT_LEFT_ALIGN) out = static_cast<char*>(std::memset(out, ' ', pad)) + pad;
    *out = 0;
}

// --- text conversions ---

int ascii_to_unicode(char16_t* dest, const char* src, size_t capacity)
{
    if (!dest || !src || capacity == 0) return did_not_fit(dest, 0, capacity);
    const size_t cap = usable(capacity);
    size_t n = 0;
    for (; src[n]; ++n) {
        if (n + 1 >= cap) return did_not_fit(dest, n, capacity);
        const unsigned char c = static_cast<unsigned char>(src[n]);
        dest[n] = c < 0x80 ? c : u'?';
    }
    dest[n] = 0;
    return static_cast<int>(n);
}

int unicode_to_ascii(char* dest, const char16_t* src, size_t capacity)
{
    if (!dest || !src || capacity == 0) return did_not_fit(dest, 0, capacity);
    const size_t cap = usable(capacity);
    size_t n = 0;
    for (size_t i = 0; src[i]; ++i) {
        if (n + 1 >= cap) return did_not_fit(dest, n, capacity);
        const char16_t u = src[i];
        if (u >= 0xD800 && u <= 0xDBFF && src[i + 1] >= 0xDC00 && src[i + 1] <= 0xDFFF) {
            ++i;  // a surrogate pair is one character
        }
        dest[n++] = u < 0x80 ? static_cast<char>(u) : '?';
    }
    dest[n] = 0;
    return static_cast<int>(n);
}

int utf8_to_utf16(char16_t* dest, const char* src, size_t capacity)
{
    if (!dest || !src || capacity == 0) return did_not_fit(dest, 0, capacity);
    const size_t cap = usable(capacity);
    const auto* s = reinterpret_cast<const unsigned char*>(src);
    size_t n = 0;
    while (*s) {
        char32_t cp;
        const size_t used = decode_utf8(s, &cp);
        const size_t units = cp > 0xFFFF ? 2 : 1;
        if (n + units + 1 > cap) return did_not_fit(dest, n, capacity);
        if (units == 2) {
            // cp - 0x10000 is 20 bits: the high ten go with 0xD800, the low ten with 0xDC00.
            const char32_t v = cp - 0x10000;
            dest[n++] = static_cast<char16_t>(0xD800 + (v >> 10));
            dest[n++] = static_cast<char16_t>(0xDC00 + (v & 0x3FF));
        } else {
            dest[n++] = static_cast<char16_t>(cp);
        }
        s += used;
    }
    dest[n] = 0;
    return static_cast<int>(n);
}

char16_t* strncpytavo(char16_t* dest, const char16_t* src, size_t n)
{
    if (!dest || n == 0) return dest;
    size_t i = 0;
    if (src) {
        while (i + 1 < n && src[i]) {
            dest[i] = src[i];
            ++i;
        }
        // Cut inside a surrogate pair: the lone high half would be an invalid character.
        if (i > 0 && src[i] && dest[i - 1] >= 0xD800 && dest[i - 1] <= 0xDBFF) --i;
    }
    std::memset(dest + i, 0, (n - i) * sizeof(char16_t));
    return dest;
}
