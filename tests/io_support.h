#pragma once
// Helpers shared by the record and dump tests: byte images built by hand, streams over them,
// the bytes a record writes, round trips, truncation and allocation-failure sweeps, peak
// memory while reading, leak checks and captured diagnostics. Header only.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <sys/types.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace testsupport {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

// --- byte images built by hand ---

// Appends the n_bytes low bytes of v, least significant first, shifted out one by one so that
// the expected image does not share the library's copy path.
inline void put_le(Bytes& b, uint64_t v, int n_bytes)
{
    for (int i = 0; i < n_bytes; ++i) b.push_back(static_cast<unsigned char>(v >> (8 * i)));
}
// Appends the IEEE-754 bits of d, little-endian.
inline void put_f64(Bytes& b, double d)
{
    uint64_t bits;
    std::memcpy(&bits, &d, 8);
    put_le(b, bits, 8);
}
// Appends three doubles (a point or vector).
inline void put_xyz(Bytes& b, double x, double y, double z)
{
    put_f64(b, x);
    put_f64(b, y);
    put_f64(b, z);
}

// --- streams and records ---

// A stream holding the first n bytes of b, positioned at its start; the caller closes it.
inline FILE* stream_of(const Bytes& b, size_t n)
{
    FILE* f = std::tmpfile();
    EXPECT_NE(f, nullptr);
    if (n > 0) {
        EXPECT_EQ(std::fwrite(b.data(), 1, n, f), n);
    }
    std::rewind(f);
    return f;
}
inline FILE* stream_of(const Bytes& b)
{
    return stream_of(b, b.size());
}

// The bytes r.fwrite_bin writes to a fresh stream. With rc null the write must succeed;
// otherwise *rc receives its status and the bytes are whatever reached the stream.
template <class R> Bytes record_of(const R& r, short* rc = nullptr)
{
    FILE* f = std::tmpfile();
    EXPECT_NE(f, nullptr);
    const short s = r.fwrite_bin(f);
    if (rc) {
        *rc = s;
    } else {
        EXPECT_EQ(s, st::ok) << "write failed";
    }
    Bytes b(static_cast<size_t>(std::ftell(f)));
    std::rewind(f);
    if (!b.empty()) {
        EXPECT_EQ(std::fread(b.data(), 1, b.size(), f), b.size());
    }
    std::fclose(f);
    return b;
}

// Reads rec into a fresh object from make() through a stream and through a memory cursor;
// each read must return 0 and consume exactly the record, then check(object) runs.
template <class Make, class Check> void expect_round_trip(const Bytes& rec, Make make, Check check)
{
    {
        SCOPED_TRACE("stream");
        auto r = make();
        FILE* f = stream_of(rec);
        EXPECT_EQ(r.fread_bin(f), st::ok);
        EXPECT_EQ(std::ftell(f), long(rec.size()));
        std::fclose(f);
        check(r);
    }
    SCOPED_TRACE("memory");
    auto r = make();
    Bytes image = rec;
    unsigned char* p = image.data();
    EXPECT_EQ(r.fread_bin(p), st::ok);
    EXPECT_EQ(p, image.data() + image.size());
    check(r);
}

// Calls check(f, cut) with a stream over the first cut bytes of rec for every cut short of
// the whole record, cut 0 included; the stream is closed afterwards.
template <class F> void for_each_cut(const Bytes& rec, F check)
{
    for (size_t cut = 0; cut < rec.size(); ++cut) {
        SCOPED_TRACE(testing::Message() << "cut at byte " << cut);
        FILE* f = stream_of(rec, cut);
        check(f, cut);
        std::fclose(f);
    }
}

// --- allocation failures and leaks ---

// Runs attempt() with allocations failing after n = 0, 1, ... successful ones until it returns
// true or n passes limit; the allocator is restored after every try, also when attempt
// throws. True when some try succeeded.
template <class F> bool until_allocations_suffice(long limit, F attempt)
{
    struct Restore {
        ~Restore() { v_memptr_fail_after(-1); }
    };
    for (long n = 0; n <= limit; ++n) {
        SCOPED_TRACE(testing::Message() << "allocations allowed: " << n);
        bool ok;
        {
            Restore restore;
            v_memptr_fail_after(n);
            ok = attempt();
        }
        if (ok) return true;
    }
    return false;
}

// The largest number of tracked bytes alive at any read from an unbuffered stream over b,
// while read(f) runs; a reader that sizes storage from a count before the data arrive shows.
template <class F> size_t peak_bytes_reading(const Bytes& b, F read)
{
    struct Source {
        const Bytes* b;
        size_t pos, peak;
    } src{&b, 0, v_memptr_live_bytes()};
    cookie_io_functions_t io{};
    io.read = [](void* cookie, char* buf, size_t size) -> ssize_t {
        Source* s = static_cast<Source*>(cookie);
        s->peak = std::max(s->peak, v_memptr_live_bytes());
        const size_t n = std::min(size, s->b->size() - s->pos);
        std::memcpy(buf, s->b->data() + s->pos, n);
        s->pos += n;
        return static_cast<ssize_t>(n);
    };
    FILE* f = fopencookie(&src, "r", io);
    EXPECT_NE(f, nullptr);
    std::setvbuf(f, nullptr, _IONBF, 0);
    read(f);
    std::fclose(f);
    return std::max(src.peak, v_memptr_live_bytes());
}

// Fixture: after each test every tracked block made during it is released, fault injection
// is off and tavotoll is as it was.
class LeakFree : public ::testing::Test {
protected:
    V_TOLERANCE saved_tol_ = tavotoll;
    long live_ = v_memptr_live_count();
    void TearDown() override
    {
        v_memptr_fail_after(-1);
        tavotoll = saved_tol_;
        EXPECT_EQ(v_memptr_live_count(), live_) << "tracked blocks leaked";
    }
};

// --- diagnostics ---

// Collects each text handed to the debug sink while alive, one entry per debug_printf call.
class DumpCapture {
public:
    Lines lines;
    DumpCapture() { debug_set_sink(&DumpCapture::take, this); }
    ~DumpCapture() { debug_set_sink(nullptr, nullptr); }
    DumpCapture(const DumpCapture&) = delete;
    DumpCapture& operator=(const DumpCapture&) = delete;

private:
    static void take(const char* text, void* user)
    {
        static_cast<DumpCapture*>(user)->lines.emplace_back(text);
    }
};

// The texts that f() hands to the debug sink, one per call.
template <class F> Lines dump_of(F f)
{
    DumpCapture cap;
    f();
    return cap.lines;
}

}  // namespace testsupport
