#include "platform/utils.h"
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Each block starts with this header; the caller sees the bytes after it. 32 bytes keep
// the caller's pointer on malloc's 16-byte alignment.
struct BlockHeader {
    uint64_t bytes;    // bytes requested by the caller
    const char* file;  // tag of the last allocating call (null for v_memptr_alloc)
    const char* what;
    int32_t line;
    uint32_t marker;  // kLiveMarker while the block is allocated
};
static_assert(sizeof(BlockHeader) == 32, "the block header keeps 16-byte alignment");

constexpr uint32_t kLiveMarker = 0x4b4d454du;
constexpr uint32_t kDeadMarker = 0xdeadb10cu;
constexpr size_t kMaxBytes = static_cast<size_t>(PTRDIFF_MAX) - sizeof(BlockHeader);

std::atomic<long> g_live_count{0};
std::atomic<size_t> g_live_bytes{0};
// Successful allocations left before every allocation fails; negative: no injection.
std::atomic<long> g_fail_budget{-1};

// True when the next allocation may go ahead; spends one unit of the budget on success
// through commit_allocation().
bool allocation_allowed()
{
    return g_fail_budget.load(std::memory_order_relaxed) != 0;
}

void commit_allocation()
{
    long b = g_fail_budget.load(std::memory_order_relaxed);
    while (b > 0 && !g_fail_budget.compare_exchange_weak(b, b - 1, std::memory_order_relaxed)) {}
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
    if (bytes > kMaxBytes) return nullptr;
    if (!allocation_allowed()) return nullptr;
    BlockHeader* h = old ? header_of(old) : nullptr;
    const size_t old_bytes = h ? static_cast<size_t>(h->bytes) : 0;
    void* base = std::realloc(h, sizeof(BlockHeader) + bytes);
    if (!base) return nullptr;  // old stays valid
    commit_allocation();
    h = static_cast<BlockHeader*>(base);
    h->bytes = bytes;
    h->file = file;
    h->what = what;
    h->line = line;
    h->marker = kLiveMarker;
    if (!old) g_live_count.fetch_add(1, std::memory_order_relaxed);
    g_live_bytes.fetch_add(bytes, std::memory_order_relaxed);
    g_live_bytes.fetch_sub(old_bytes, std::memory_order_relaxed);
    return h + 1;
}

void tracked_free(void* p)
{
    if (!p) return;
    BlockHeader* h = header_of(p);
    h->marker = kDeadMarker;
    g_live_count.fetch_sub(1, std::memory_order_relaxed);
    g_live_bytes.fetch_sub(static_cast<size_t>(h->bytes), std::memory_order_relaxed);
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
