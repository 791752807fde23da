#include "platform/utils.h"
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Each block starts with this header; the caller sees the bytes after it. A multiple of
// 16 bytes keeps the caller's pointer on malloc's 16-byte alignment.
struct BlockHeader {
    uint64_t bytes;     // bytes requested by the caller
    uint64_t reserved;  // bytes usable behind the header (>= bytes)
    const char* file;   // tag of the last allocating call (null for v_memptr_alloc)
    const char* what;
    int32_t line;
    uint32_t marker;  // kLiveMarker while the block is allocated
    uint64_t unused;  // pads the header to a multiple of 16 bytes
};
static_assert(sizeof(BlockHeader) % 16 == 0, "the block header keeps 16-byte alignment");

constexpr uint32_t kLiveMarker = 0x4b4d454du;
constexpr uint32_t kDeadMarker = 0xdeadb10cu;
constexpr size_t kMaxBytes = static_cast<size_t>(PTRDIFF_MAX) - sizeof(BlockHeader);

// Tallies for tests. Like the rest of the library they are not locked: they are exact in
// one thread, and concurrent allocation in several threads may lose counts, never memory.
// Relaxed atomics keep such use free of data races without the cost of locked updates.
std::atomic<long> g_live_count{0};
std::atomic<size_t> g_live_bytes{0};
// Successful allocations left before every allocation fails; negative: no injection.
std::atomic<long> g_fail_budget{-1};

template <class N> void tally(std::atomic<N>& a, N d)
{
    a.store(a.load(std::memory_order_relaxed) + d, std::memory_order_relaxed);
}

// True when the next allocation may go ahead; commit_allocation() spends one unit of the
// budget on success.
bool allocation_allowed()
{
    return g_fail_budget.load(std::memory_order_relaxed) != 0;
}

void commit_allocation()
{
    if (g_fail_budget.load(std::memory_order_relaxed) > 0) tally(g_fail_budget, -1L);
}

// Usable size for a request of bytes: the next power of two, at least 128, up to 64 KiB;
// above that the next multiple of a quarter of the largest power of two not above bytes,
// so large blocks waste at most a quarter. A list growing by a tenth at a time then finds
// room in its block at most steps instead of moving at every one.
size_t reserved_for(size_t bytes)
{
    if (bytes <= 128) return 128;
    const size_t p = size_t{1} << (63 - __builtin_clzll(bytes));  // p <= bytes < 2p
    const size_t q = bytes <= (size_t{1} << 16) ? p : p / 4;
    const size_t r = (bytes + q - 1) & ~(q - 1);  // q is a power of two
    return r <= kMaxBytes ? r : bytes;
}

// Block with room for bytes holding h's header and contents (h may be null); null on
// failure, h then unchanged. Small blocks are copied into a fresh allocation, which the C
// runtime serves from its per-thread caches far faster than an in-place reallocation.
__attribute__((noinline)) BlockHeader* moved(BlockHeader* h, size_t bytes)
{
    constexpr size_t kSmall = 1024;
    const size_t reserved = reserved_for(bytes);
    const size_t total = sizeof(BlockHeader) + reserved;
    void* base;
    if (!h || total > kSmall) {
        base = std::realloc(h, total);
    } else {
        base = std::malloc(total);
        if (base) {
            const size_t used = sizeof(BlockHeader) + static_cast<size_t>(h->bytes);
            std::memcpy(base, h, used < total ? used : total);
            std::free(h);
        }
    }
    if (!base) return nullptr;
    BlockHeader* const grown = static_cast<BlockHeader*>(base);
    grown->reserved = reserved;
    return grown;
}

BlockHeader* header_of(void* p)
{
    BlockHeader* h =
        reinterpret_cast<BlockHeader*>(static_cast<unsigned char*>(p) - sizeof(BlockHeader));
    KESTRA_REQUIRE(h->marker == kLiveMarker);  // not a live block of this allocator
    return h;
}

void* tracked_realloc(void* old, size_t bytes, const char* file, int line, const char* what)
{
    if (bytes > kMaxBytes || !allocation_allowed()) return nullptr;
    BlockHeader* h;
    size_t old_bytes = 0;
    if (old) {
        h = header_of(old);
        old_bytes = static_cast<size_t>(h->bytes);
        // The block is kept while the request fits and uses at least half of it.
        const size_t r = static_cast<size_t>(h->reserved);
        if (bytes > r || (r > 128 && bytes < r / 2)) {
            h = moved(h, bytes);
            if (!h) return nullptr;  // old stays valid
        }
    } else {
        h = moved(nullptr, bytes);
        if (!h) return nullptr;
        tally(g_live_count, 1L);
    }
    commit_allocation();
    h->bytes = bytes;
    h->file = file;
    h->what = what;
    h->line = line;
    h->marker = kLiveMarker;
    tally(g_live_bytes, bytes - old_bytes);  // modular: a shrink subtracts
    return h + 1;
}

void tracked_free(void* p)
{
    if (!p) return;
    BlockHeader* h = header_of(p);
    h->marker = kDeadMarker;
    tally(g_live_count, -1L);
    tally(g_live_bytes, size_t{0} - static_cast<size_t>(h->bytes));
    std::free(h);
}

}  // namespace

// --- tracked allocation ---

void* v_memptr_alloc(void* old, size_t bytes)
{
    return tracked_realloc(old, bytes, nullptr, 0, nullptr);
}

void v_memptr_free(void* p)
{
    tracked_free(p);
}

void* _v_calloc(size_t count, size_t size, const char* file, int line, const char* what)
{
    if (size != 0 && count > kMaxBytes / size) return nullptr;  // count * size overflows
    const size_t bytes = count * size;
    void* p = tracked_realloc(nullptr, bytes, file, line, what);
    if (p) std::memset(p, 0, bytes);
    return p;
}

void* _v_realloc(void* old, size_t bytes, const char* file, int line, const char* what)
{
    return tracked_realloc(old, bytes, file, line, what);
}

void _v_free(void* p, const char* /*file*/, int /*line*/, const char* /*what*/)
{
    tracked_free(p);
}

void v_memptr_fail_after(long n)
{
    g_fail_budget.store(n < 0 ? -1 : n, std::memory_order_relaxed);
}

long v_memptr_live_count()
{
    return g_live_count.load(std::memory_order_relaxed);
}

size_t v_memptr_live_bytes()
{
    return g_live_bytes.load(std::memory_order_relaxed);
}
