#pragma once
// Services every part of the library builds on: tracked allocation with fault injection,
// contract reports, diagnostics, the VLST list, bit arrays, number formatting and text
// conversions. Everything here is exported with C++ linkage at global scope.
#include "../foundation/kestra_export.h"
#include <cstddef>
#include <cstdint>

// ----------------------------------------------------------------------------------------
// Contract violations
// ----------------------------------------------------------------------------------------

// Writes "assertion failed in <base name of source_file> line <line>" and a newline to
// stderr, flushes it and aborts the process; never returns.
[[noreturn]] KESTRA_API void tavo_assert_failed_in_line(const char* source_file, int line);

// Stops the process through tavo_assert_failed_in_line when c is false; on in every build.
#define KESTRA_REQUIRE(c)                                                                          \
    do {                                                                                           \
        if (!(c)) tavo_assert_failed_in_line(__FILE__, __LINE__);                                  \
    } while (0)

// ----------------------------------------------------------------------------------------
// Tracked allocation
// ----------------------------------------------------------------------------------------
// Every block carries a small header (size, tag, marker), so the functions below may be
// mixed freely: a block from _v_calloc may be grown by v_memptr_alloc and released by
// _v_free. Blocks are aligned for any fundamental type (16 bytes).

// Reallocation: storage of bytes bytes holding old's contents (old may be null); null on
// failure or injected failure, old then staying valid and unchanged.
KESTRA_API void* v_memptr_alloc(void* old, size_t bytes);
// Releases a block of this allocator; null is allowed. Any other pointer is a contract
// violation.
KESTRA_API void v_memptr_free(void* p);
// Zero-filled block of count * size bytes tagged with file, line and what; null on failure,
// injected failure or when count * size overflows.
KESTRA_API void* _v_calloc(size_t count, size_t size, const char* file, int line, const char* what);
// v_memptr_alloc that retags the block with file, line and what.
KESTRA_API void* _v_realloc(void* old, size_t bytes, const char* file, int line, const char* what);
// v_memptr_free; the tag arguments only identify the caller.
KESTRA_API void _v_free(void* p, const char* file, int line, const char* what);
// Fault injection for tests: after n further successful allocations (v_memptr_alloc,
// _v_calloc, _v_realloc) every allocation returns null; n < 0 (the default) disables it.
KESTRA_API void v_memptr_fail_after(long n);
// Number of blocks currently allocated through this allocator (for leak checks in tests).
KESTRA_API long v_memptr_live_count();
// Bytes currently held by those blocks, headers excluded.
KESTRA_API size_t v_memptr_live_bytes();

// ----------------------------------------------------------------------------------------
// Diagnostics
// ----------------------------------------------------------------------------------------

// Formats the whole text, whatever its length, and hands it to the sink in one call (if
// the long-text buffer cannot be allocated, the first 511 bytes are handed over instead).
KESTRA_API void debug_printf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// Installs the sink that receives each debug_printf text with user; null restores stderr.
KESTRA_API void debug_set_sink(void (*sink)(const char* text, void* user), void* user);

// ----------------------------------------------------------------------------------------
// VLST: growable list of fixed-size items, positions 1-based
// ----------------------------------------------------------------------------------------
// A host declares a VLST by value, zero-initialises it (VLST l{}) and hands it to
// VLST_init. Items are copied bytewise. count is the highest occupied position: a
// deletion leaves a hole (VLST_get then answers 110 there) and deleting the last item
// lowers count to the highest position still occupied; VLST_compact closes the holes,
// keeping the order. VLST_put accepts positions 1 .. max(count + 1, capacity), so a
// corrupt position can never trigger an unbounded allocation.
// Status codes: 0 ok, 110 invalid list, position or pointer, 115 the list could not grow.
struct VLST {
    unsigned char* data;  // capacity * item_size bytes
    unsigned char* used;  // one flag a slot: 1 occupied, 0 hole
    unsigned long item_size;
    unsigned long capacity;  // allocated slots
    unsigned long count;     // highest occupied position, 0 when empty
    const char* file;        // where the list was initialised
    int line;
    uint32_t marker;  // set by VLST_init, cleared by VLST_free
};

// Empty list of items of item_size bytes with room for slots items (clamped to
// 1 .. 65536); a list that was already initialised is released first. 0 ok, 110 for a
// null list or item_size 0 or above 1 MiB, 115 when storage cannot be allocated.
KESTRA_API short _VLST_init(VLST* l, unsigned long item_size, unsigned long slots, const char* file,
                            int line);
// Copies item_size bytes of item to position (1 .. max(count + 1, capacity)), replacing
// an item there; 0 ok, 110 invalid list, item or position, 115 cannot grow (list intact).
KESTRA_API short _VLST_put(VLST* l, unsigned long position, const void* item, const char* file,
                           int line);
// Copies the item at position to out; 0 ok, 110 invalid list, pointer or unset position.
KESTRA_API short VLST_get(VLST* l, unsigned long position, void* out);
// Address of the item at position in place (valid until the list grows, compacts or is
// freed); 0 ok, 110 invalid list, pointer or unset position (*out then null).
KESTRA_API short VLST_getptr_void(VLST* l, unsigned long position, void** out);
// Highest occupied position (the number of items when there are no holes); 0 for a null
// or uninitialised list.
KESTRA_API unsigned long VLST_count(VLST* l);
// Removes the item at position, leaving a hole; 0 ok, 110 invalid list or unset position.
KESTRA_API short VLST_delete(VLST* l, unsigned long position);
// Empties the list, keeping its storage; ignores a null or uninitialised list.
KESTRA_API void _VLST_rewind(VLST* l, const char* file, int line);
// Moves the items down over the holes keeping their order; count becomes the number of
// items. Ignores a null or uninitialised list.
KESTRA_API void _VLST_compact(VLST* l, const char* file, int line);
// Releases the storage and zeroes the record (it may be initialised again); 0 ok (also
// for a zeroed, never initialised list), 110 for a null list.
KESTRA_API short _VLST_free(VLST* l, const char* file, int line);

#define VLST_init(l, item_size, slots) _VLST_init((l), (item_size), (slots), __FILE__, __LINE__)
#define VLST_put(l, pos, item) _VLST_put((l), (pos), (item), __FILE__, __LINE__)
#define VLST_rewind(l) _VLST_rewind((l), __FILE__, __LINE__)
#define VLST_compact(l) _VLST_compact((l), __FILE__, __LINE__)
#define VLST_free(l) _VLST_free((l), __FILE__, __LINE__)

// ----------------------------------------------------------------------------------------
// Bit arrays
// ----------------------------------------------------------------------------------------
// Bits are numbered 1 .. bits; bit k lives in byte (k - 1) / 8 under mask
// 1 << ((k - 1) % 8). The bit count is kept in a header in front of the returned pointer,
// so a bitmap must come from create_bitmap.

// Operations of set_reset_test_bitmap.
constexpr short BITMAP_CLEAR = 0;
constexpr short BITMAP_SET = 1;
constexpr short BITMAP_TEST = 2;

// Zeroed bit array of bits bits (1 .. 2^31); null when bits is out of range or on failure.
KESTRA_API unsigned char* create_bitmap(long bits);
// op BITMAP_SET / BITMAP_CLEAR: 0 after changing bit; op BITMAP_TEST: the bit (0 or 1);
// 110 for a null bitmap, a bit outside 1 .. bits or an unknown op.
KESTRA_API short set_reset_test_bitmap(unsigned char* bitmap, long bit, short op);
// Next run of set bits: on entry *start is the first bit to examine (1 to begin); on 0 the
// run is bits *start .. *end (maximal) and the caller continues with *start = *end + 1.
// 1 when no set bit remains at or after *start (start, end unchanged); 110 for null
// arguments or *start < 1.
KESTRA_API short getnextxxbits_in_bitmap(unsigned char* bitmap, long* start, long* end);
// Releases a bit array from create_bitmap; null is allowed.
KESTRA_API void delete_bitmap(unsigned char* bitmap);

// ----------------------------------------------------------------------------------------
// Numbers and text
// ----------------------------------------------------------------------------------------

// Exchanges *a and *b; does nothing when either is null.
KESTRA_API void dswap(double* a, double* b);

// Flags of FORMAT_STRUCTURE.
constexpr uint32_t FORMAT_TRIM_ZEROS = 1;  // drop trailing fraction zeros and a bare point
constexpr uint32_t FORMAT_PLUS_SIGN = 2;   // '+' in front of positive values and zero
constexpr uint32_t FORMAT_LEFT_ALIGN = 4;  // pad to width on the right instead of the left

// Input and output of format.
struct FORMAT_STRUCTURE {
    double value;      // the number to format
    int32_t decimals;  // digits after the point, clamped to 0 .. 15
    int32_t width;     // minimum field width with space padding, clamped to 0 .. 63
    uint32_t flags;    // FORMAT_* bits
    char text[64];     // [out] the terminated text
};

// Writes value into text in fixed notation with decimals digits ("-0" never appears:
// a value that rounds to zero prints unsigned); exponent notation ("1.50e+20") when the
// fixed form would not fit; "nan", "inf", "-inf" for non-finite values. Ignores null.
KESTRA_API void format(FORMAT_STRUCTURE* f);

// The text conversions write at most capacity units into dest including the terminator,
// always terminate when capacity >= 1, and return the number of units written without the
// terminator, or -1 when the text did not fit (the part that fits is kept) or when dest or
// src is null.

// Bytes to UTF-16 units; bytes above 0x7F, which are not ASCII, become '?'.
KESTRA_API int ascii_to_unicode(char16_t* dest, const char* src, size_t capacity);
// UTF-16 units to bytes; a character above 0x7F (a surrogate pair counting as one, a lone
// surrogate too) becomes '?'.
KESTRA_API int unicode_to_ascii(char* dest, const char16_t* src, size_t capacity);
// UTF-8 to UTF-16 with surrogate pairs above U+FFFF (a pair is never split); each
// ill-formed subsequence (bad lead byte, truncated or overlong sequence, encoded
// surrogate, value above U+10FFFF) becomes one U+FFFD.
KESTRA_API int utf8_to_utf16(char16_t* dest, const char* src, size_t capacity);

// Copies at most n - 1 units of src and a terminator, zero-filling the rest of dest up to
// n units (records written to files carry no stale bytes); a high surrogate whose low half
// was cut off is dropped. Returns dest; with n 0 or null dest nothing is written, a null
// src copies as empty text.
KESTRA_API char16_t* strncpytavo(char16_t* dest, const char16_t* src, size_t n);
