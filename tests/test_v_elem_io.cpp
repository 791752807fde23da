// The element's binary record: hand-built byte layouts, round trips of every kind, truncated
// records, failed allocations.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include "io_support.h"
#include <gtest/gtest.h>
#include <malloc.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

using namespace testsupport;

namespace {

// Releases the characters of a text read from a record (they belong to the reader's caller).
void release_text(V_ELEMENT* e)
{
    if (e->TypeGet() != 14) return;
    _v_free(e->text.text, __FILE__, __LINE__, "test");
    e->text.text = nullptr;
}

// The record of e, a text's pointer at 152..159 (written as it stands, ignored on reading) zeroed.
Bytes masked_record(const V_ELEMENT& e)
{
    Bytes b = record_of(e);
    if (e.TypeGet() == 14) std::fill(b.begin() + 2 + 152, b.begin() + 2 + 160, 0);
    return b;
}

// The samples, and a text of 10000 units whose reading grows its block twice.
std::vector<V_ELEMENT> samples_with_long_text()
{
    static std::u16string chars(10000, u'k');
    std::vector<V_ELEMENT> set = element_samples();
    V_TEXT t{};
    t.text = &chars[0];
    set.emplace_back().SetText(t);
    return set;
}

// An element holding lists of its own, which a read releases.
V_ELEMENT holding_lists()
{
    V_ELEMENT e;
    e.SetCurve(quarter_curve());
    return e;
}

using ElementRecord = LeakFree;

}  // namespace

TEST_F(ElementRecord, FixedKindsFollowFieldOffsetsOwningKindsEmbedTheirRecords)
{
    // Each record's doubles numbered 1, 2, 3, ... in field order: the arc's normal (5, 6, 7)
    // at 32 comes before its start and end, although the setter takes it last.
    std::vector<V_ELEMENT> v(9);
    v[0].SetPoint(1, 2, 3);
    v[1].SetSegment(1, 2, 3, 4, 5, 6);
    v[2].SetLine(V_POINT{1, 2, 3}, V_VECTOR{4, 5, 6});
    v[3].SetCircle(V_POINT{1, 2, 3}, 4, V_VECTOR{5, 6, 7});
    v[4].SetArc(V_POINT{1, 2, 3}, 4, V_POINT{8, 9, 10}, V_POINT{11, 12, 13}, V_VECTOR{5, 6, 7});
    v[5].SetEllipse(V_ELLIPSE{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, 10, 11});
    v[6].SetEllipticalArc({{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, 10, 11}, {12, 13, 14}, {15, 16, 17}});
    v[7].SetSymbolInstance(
        {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, 10, 11, 12, 13, -2, 0x01020304, {u'A', 0x20AC}});
    char16_t chars[] = u"A\u00e9";
    v[8].SetText(
        {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, 10, 11, 12, 13, 14, "Mono", 7, -1, 5, chars, 9, 0});
    std::vector<Bytes> want(9);
    const int n_doubles[15] = {0, 3, 6, 6, 7, 13, 11, 17, 0, 0, 0, 0, 13, 0, 14};
    for (size_t i = 0; i < 9; ++i) {
        put_le(want[i], v[i].type, 2);
        for (int k = 1; k <= n_doubles[v[i].type]; ++k) put_f64(want[i], k);
    }
    put_le(want[7], 0xFFFFFFFEu, 4);         // symbol_id at 104
    put_le(want[7], 0x01020304u, 4);         // flags at 108
    put_le(want[7], 'A' | 0x20AC << 16, 4);  // name at 112..135
    want[7].resize(2 + 136, 0);
    const char font[32] = "Mono";
    want[8].insert(want[8].end(), font, font + 32);        // 112..143
    put_le(want[8], 7 | 0xFFFFull << 32 | 5ull << 48, 8);  // alignment 144, style 148, font_id 150
    put_le(want[8], reinterpret_cast<uintptr_t>(chars), 8);  // the pointer as it stands
    put_le(want[8], 9, 8);                                   // flags at 160, reserved at 164
    put_le(want[8], 2 | uint64_t('A') << 32, 6);             // n, then the units unterminated
    put_le(want[8], 0xE9, 2);
    for (size_t i = 0; i < 9; ++i) EXPECT_EQ(record_of(v[i]), want[i]) << "type " << v[i].type;
    // The owning kinds embed their own records.
    const std::vector<V_ELEMENT> set = element_samples();
    for (int i : {11, 12, 13, 18, 19}) {
        const V_ELEMENT& e = set[i];
        Bytes want = e.type == 19   ? record_of(e.curve)
                     : e.type == 20 ? record_of(e.polyline)
                                    : record_of(e.pointset);
        want.insert(want.begin(), {uint8_t(e.type), 0});
        EXPECT_EQ(record_of(e), want) << i;
    }
}

TEST_F(ElementRecord, EmptyElementReservedCodesAndEmptyText_CarryOnlyWhatTheyHold)
{
    for (int16_t code : {0, 9, 13, 25, -1, 27, 30000}) {
        SCOPED_TRACE(code);
        Bytes b;
        put_le(b, uint16_t(code), 2);
        V_ELEMENT e;
        e.TypeSet(code);
        EXPECT_EQ(record_of(e), b);
        expect_round_trip(b, holding_lists, [&](V_ELEMENT& r) { EXPECT_EQ(r.TypeGet(), code); });
    }
    // An empty text: its fixed part, n = 0 and no units; read back as a new terminated block.
    const V_ELEMENT e = element_samples()[10];
    const Bytes rec = record_of(e);
    ASSERT_TRUE(rec.size() == 2u + 168 + 4 && (rec[170] | rec[171] | rec[172] | rec[173]) == 0);
    expect_round_trip(
        rec, [] { return V_ELEMENT(); },
        [&](V_ELEMENT& r) {
            ASSERT_TRUE(r.text.text && r.text.text != e.text.text);  // not the writer's pointer
            EXPECT_EQ(r.text.text[0], 0);
            release_text(&r);
        });
}

TEST_F(ElementRecord, FailuresOfWriterAndReaderGive110)
{
    V_ELEMENT e;
    e.SetPoint(1, 2, 3);
    EXPECT_EQ(e.fwrite_bin(nullptr), st::bad_input);
    FILE* ro = std::fopen("/dev/null", "rb");  // writes to it fail at once
    ASSERT_NE(ro, nullptr);
    std::setvbuf(ro, nullptr, _IONBF, 0);
    EXPECT_EQ(e.fwrite_bin(ro), st::bad_input);
    std::fclose(ro);
    unsigned char* p = nullptr;  // the element unchanged
    EXPECT_TRUE(e.fread_bin(static_cast<FILE*>(nullptr)) == st::bad_input &&
                e.fread_bin(p) == st::bad_input && e.TypeGet() == 1 && e.point.x == 1.0);
    short rc;
    for (short t : {20, 26}) {  // a polyline or point set without lists cannot be written
        e.TypeSet(t);
        record_of(e, &rc);
        EXPECT_EQ(rc, st::bad_input) << t;
    }
}

TEST_F(ElementRecord, EveryKindRoundTripsBitForBit)
{
    const std::vector<V_ELEMENT> set = samples_with_long_text();
    for (size_t i = 0; i < set.size(); ++i) {
        SCOPED_TRACE(i);
        const Bytes rec = masked_record(set[i]);
        expect_round_trip(record_of(set[i]), holding_lists, [&](V_ELEMENT& r) {
            EXPECT_EQ(r.TypeGet(), set[i].TypeGet());
            EXPECT_EQ(masked_record(r), rec);
            release_text(&r);
        });
    }
}

TEST_F(ElementRecord, TruncatedRecordsFailAtEveryCut)
{
    for (const V_ELEMENT& src : element_samples()) {
        SCOPED_TRACE(src.TypeGet());
        for_each_cut(record_of(src), [&](FILE* f, size_t cut) {
            V_ELEMENT e;
            e.SetPoint(7, 8, 9);
            if (cut >= 2 && src.TypeGet() == 14) {
                EXPECT_THROW(e.fread_bin(f), std::runtime_error);
                EXPECT_EQ(e.text.text, nullptr);
            } else {
                EXPECT_EQ(e.fread_bin(f), st::bad_input);
            }
            EXPECT_EQ(e.TypeGet(), cut < 2 ? 1 : src.TypeGet());
            EXPECT_TRUE(cut >= 2 || e.point.z == 9.0);  // no type: unchanged
        });
    }
    // Cut inside the second block of a long text, and a count of 2^32 - 1 units before five:
    // the block grows only with what arrives.
    Bytes rec = record_of(samples_with_long_text().back());
    FILE* f = stream_of(rec, rec.size() - 3);
    V_ELEMENT e;
    EXPECT_THROW(e.fread_bin(f), std::runtime_error);
    std::fclose(f);
    rec = record_of(element_samples()[9]);
    std::fill(rec.begin() + 170, rec.begin() + 174, 0xFF);
    EXPECT_LT(bytes_grown_reading(
                  rec, [&](FILE* s) { EXPECT_THROW(e.fread_bin(s), std::runtime_error); }),
              size_t(1) << 20);
    EXPECT_EQ(e.text.text, nullptr);
}

TEST_F(ElementRecord, ReadersSurviveFailedAllocations)
{
    // Freed heap bytes made nonzero: a later try reusing them shows a terminator not stored.
    mallopt(M_PERTURB, 0x5A);
    for (const V_ELEMENT& src : samples_with_long_text()) {
        SCOPED_TRACE(src.TypeGet());
        const Bytes rec = masked_record(src);
        read_with_failing_allocations<V_ELEMENT>(record_of(src), 12, [&](V_ELEMENT& r, short rc) {
            EXPECT_TRUE(rc == st::ok || rc == st::bad_input || rc == -1) << rc;
            EXPECT_TRUE(rc != -1 || r.text.text == nullptr);  // nothing kept when it threw
            EXPECT_TRUE(rc != st::ok || masked_record(r) == rec);
            release_text(&r);
        });
    }
    mallopt(M_PERTURB, 0);
}
