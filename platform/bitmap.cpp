#include "platform/utils.h"
#include "foundation/status.h"
#include <cstring>

namespace {

// The bit count sits in the 8 bytes in front of the bits handed out.
constexpr size_t kHeader = sizeof(int64_t);
constexpr long kMaxBits = 1l << 31;

long bit_count(const unsigned char* bitmap)
{
    int64_t bits;
    std::memcpy(&bits, bitmap - kHeader, sizeof bits);
    return static_cast<long>(bits);
}

bool bit_at(const unsigned char* bitmap, long k)
{
    return (bitmap[(k - 1) >> 3] >> ((k - 1) & 7)) & 1;
}

}  // namespace

// --- bit arrays ---

unsigned char* create_bitmap(long bits)
{
    if (bits < 1 || bits > kMaxBits) return nullptr;
    const size_t bytes = static_cast<size_t>((bits + 7) / 8);
    auto* block =
        static_cast<unsigned char*>(_v_calloc(1, kHeader + bytes, __FILE__, __LINE__, "bitmap"));
    if (!block) return nullptr;
    const int64_t n = bits;
    std::memcpy(block, &n, sizeof n);
    return block + kHeader;
}

short set_reset_test_bitmap(unsigned char* bitmap, long bit, short op)
{
    if (!bitmap || bit < 1 || bit > bit_count(bitmap)) return st::bad_input;
    unsigned char& byte = bitmap[(bit - 1) >> 3];
    const unsigned char mask = static_cast<unsigned char>(1u << ((bit - 1) & 7));
    switch (op) {
    case BITMAP_SET:
        byte = static_cast<unsigned char>(byte | mask);
        return st::ok;
    case BITMAP_CLEAR:
        byte = static_cast<unsigned char>(byte & ~mask);
        return st::ok;
    case BITMAP_TEST:
        return (byte & mask) ? 1 : 0;
    default:
        return st::bad_input;
    }
}

short getnextxxbits_in_bitmap(unsigned char* bitmap, long* start, long* end)
{
    if (!bitmap || !start || !end || *start < 1) return st::bad_input;
    const long bits = bit_count(bitmap);
    long k = *start;
    // Skip clear bits, a whole zero byte at a time once aligned.
    while (k <= bits && !bit_at(bitmap, k)) {
        if (((k - 1) & 7) == 0 && bitmap[(k - 1) >> 3] == 0) {
            k += 8;
        } else {
            ++k;
        }
    }
    if (k > bits) return 1;
    long e = k;
    while (e < bits && bit_at(bitmap, e + 1)) {
        if ((e & 7) == 0 && e + 8 <= bits && bitmap[e >> 3] == 0xff) {
            e += 8;
        } else {
            ++e;
        }
    }
    *start = k;
    *end = e;
    return st::ok;
}

void delete_bitmap(unsigned char* bitmap)
{
    if (!bitmap) return;
    _v_free(bitmap - kHeader, __FILE__, __LINE__, "bitmap");
}
