// The element's binary record: byte layouts built by hand from the field offsets, round trips
// of every kind through a stream and through memory, truncated records, failed allocations.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// Little-endian encoders, byte by byte.
void put_u(Bytes* b, uint64_t v, int n)
{
    for (int i = 0; i < n; ++i) b->push_back(static_cast<unsigned char>(v >> (8 * i)));
}
void put_i16(Bytes* b, int16_t v)
{
    put_u(b, static_cast<uint16_t>(v), 2);
}
void put_f64(Bytes* b, double d)
{
    uint64_t bits;
    std::memcpy(&bits, &d, 8);
    put_u(b, bits, 8);
}
void put_pt(Bytes* b, double x, double y, double z)
{
    put_f64(b, x);
    put_f64(b, y);
    put_f64(b, z);
}

// The record the element writes, read back from a temporary file.
Bytes record_of(const V_ELEMENT& e)
{
    FILE* f = std::tmpfile();
    EXPECT_NE(f, nullptr);
    EXPECT_EQ(e.fwrite_bin(f), st::ok);
    const long n = std::ftell(f);
    std::rewind(f);
    Bytes b(static_cast<size_t>(n));
    EXPECT_EQ(std::fread(b.data(), 1, b.size(), f), b.size());
    std::fclose(f);
    return b;
}

// A stream holding the first n bytes of b, positioned at its start.
FILE* stream_of(const Bytes& b, size_t n)
{
    FILE* f = std::tmpfile();
    if (n > 0) {
        EXPECT_EQ(std::fwrite(b.data(), 1, n, f), n);
    }
    std::rewind(f);
    return f;
}

// Releases the characters of a text read from a record (they belong to the caller).
void release_text(V_ELEMENT* e)
{
    if (e->TypeGet() != 14) return;
    _v_free(e->text.text, __FILE__, __LINE__, "test");
    e->text.text = nullptr;
}

// Bytes 152..159 of a text's fixed block (after the two type bytes) hold a pointer that is
// written as it stands and ignored on reading; comparisons skip them.
Bytes masked(Bytes b)
{
    if (b.size() >= 2 + 168 && b[0] == 14 && b[1] == 0)
        for (size_t i = 2 + 152; i < 2 + 160; ++i) b[i] = 0;
    return b;
}

char16_t kHello[] = u"Hi \u00e9!";
char16_t kEmpty[] = u"";

CNurbs rational_curve()
{
    CNurbs c;
    c.order = 3;
    c.n_cpts = 3;
    c.vpp = 4;
    c.rational = 1;
    c.closed = 1;
    c.form = 1;
    c.n_knots = 2;
    EXPECT_EQ(c.Init_Lists(), st::ok);
    for (double v : {0.0, 0.0, 0.0, 1.0, 0.5, 0.5, 0.0, 0.5, 2.0, 0.0, 1.0, 1.0}) c.cpts->Append(v);
    c.knots->Append(0.0);
    c.knots->Append(1.0);
    c.mults->Append(3);
    c.mults->Append(3);
    return c;
}

// One element of every kind, including the empty element, reserved and out-of-range codes.
std::vector<V_ELEMENT> test_set()
{
    std::vector<V_ELEMENT> v(20);
    v[0].TypeSet(0);
    v[1].SetPoint(1.5, -2.25, 1e300);
    v[2].SetSegment(1, 2, 3, 4, 5, 6);
    v[3].SetLine(V_POINT{0, 1, 2}, V_VECTOR{0.6, 0.8, 0});
    v[4].SetCircle(V_POINT{1, 2, 3}, 4, V_VECTOR{0, 0, 1});
    v[5].SetArc(V_POINT{1, 1, 0}, -2, V_POINT{3, 1, 0}, V_POINT{1, 3, 0}, V_VECTOR{0, 0, 1});
    v[6].SetEllipse(V_ELLIPSE{{1, 2, 3}, {1, 0, 0}, {0, 1, 0}, 5, 2});
    v[7].SetEllipticalArc(
        V_ELLIPTICALARC{{{0, 0, 0}, {0, 1, 0}, {-1, 0, 0}, 3, 1}, {0, 3, 0}, {-1, 0, 0}});
    V_SYMBOL_INST s{};
    s.position = {1, 2, 3};
    s.xaxis = {1, 0, 0};
    s.normal = {0, 0, 1};
    s.scale_x = s.scale_y = s.scale_z = 2;
    s.angle = 0.5;
    s.symbol_id = -7;
    s.flags = 0x55AA;
    s.name[0] = u'S';
    v[8].SetSymbolInstance(s);
    V_TEXT t{};
    t.point = {1, 2, 3};
    t.normal = {0, 0, 1};
    t.xaxis = {1, 0, 0};
    t.width = 12;
    t.height = 3;
    std::strcpy(t.font_name, "Sans");
    t.alignment = 4;
    t.style = 3;
    t.font_id = 9;
    t.flags = 1;
    t.text = kHello;
    v[9].SetText(t);
    t.text = kEmpty;
    v[10].SetText(t);
    v[11].SetCurve(rational_curve());
    List<V_POINT> pts;
    for (int i = 0; i < 4; ++i) pts.Append(V_POINT{double(i), 1.0 / (i + 1), -double(i)});
    EXPECT_EQ(v[12].SetPolyline(pts), st::ok);
    V_WORKPLANE wp{};
    wp.origin = {1, 1, 1};
    wp.xaxis = {0, 1, 0};
    wp.yaxis = {-1, 0, 0};
    wp.zaxis = {0, 0, 1};
    wp.id = 3;
    wp.name[0] = u'W';
    EXPECT_EQ(v[13].SetPointSet(pts, wp), st::ok);
    EXPECT_EQ(v[13].pointset.DeletePoint(2), st::ok);
    v[13].pointset.flags = 0xBEEF;
    v[13].pointset.count_word = 77;
    v[14].TypeSet(9);
    v[15].TypeSet(21);
    v[16].TypeSet(-3);
    v[17].TypeSet(300);
    EXPECT_EQ(v[18].SetPolyline(pts), st::ok);
    v[18].polyline.Points()->Delete(2);  // a hole: the record closes it up
    CNurbs poly = rational_curve();
    poly.rational = 0;
    poly.vpp = 3;
    poly.form = 0;
    v[19].SetCurve(poly);
    return v;
}

class ElementRecordRead : public ::testing::Test {
protected:
    long base_ = v_memptr_live_count();
    void TearDown() override { EXPECT_EQ(v_memptr_live_count(), base_) << "tracked blocks leaked"; }
};

}  // namespace

// --- layouts built by hand ---

TEST(ElementRecord, EmptyElementIsTwoZeroBytes)
{
    V_ELEMENT e;
    EXPECT_EQ(record_of(e), (Bytes{0, 0}));
    V_ELEMENT r;
    r.SetPoint(1, 2, 3);
    unsigned char buf[2] = {0, 0};
    unsigned char* p = buf;
    EXPECT_EQ(r.fread_bin(p), st::ok);
    EXPECT_EQ(r.TypeGet(), 0);
    EXPECT_EQ(p, buf + 2);
}

TEST(ElementRecord, PlainKindsFollowFieldOffsets)
{
    V_ELEMENT e;
    Bytes want;
    e.SetPoint(1.5, -2, 3);
    want = {1, 0};
    put_pt(&want, 1.5, -2, 3);
    EXPECT_EQ(record_of(e), want);

    e.SetCircle(V_POINT{1, 2, 3}, 4, V_VECTOR{5, 6, 7});
    want = {4, 0};
    put_pt(&want, 1, 2, 3);  // centre 0..23
    put_f64(&want, 4);       // radius 24
    put_pt(&want, 5, 6, 7);  // normal 32..55
    EXPECT_EQ(record_of(e), want);

    e.SetArc(V_POINT{1, 2, 3}, -4, V_POINT{8, 9, 10}, V_POINT{11, 12, 13}, V_VECTOR{5, 6, 7});
    want = {5, 0};
    put_pt(&want, 1, 2, 3);     // centre 0..23
    put_f64(&want, -4);         // radius 24, sign kept
    put_pt(&want, 5, 6, 7);     // normal 32..55
    put_pt(&want, 8, 9, 10);    // start 56..79
    put_pt(&want, 11, 12, 13);  // end 80..103
    EXPECT_EQ(record_of(e), want);

    e.SetEllipse(V_ELLIPSE{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, 10, 11});
    want = {6, 0};
    put_pt(&want, 1, 2, 3);
    put_pt(&want, 4, 5, 6);
    put_pt(&want, 7, 8, 9);
    put_f64(&want, 10);  // radius1 72
    put_f64(&want, 11);  // radius2 80
    EXPECT_EQ(record_of(e), want);

    e.SetEllipticalArc(
        V_ELLIPTICALARC{{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, 10, 11}, {12, 13, 14}, {15, 16, 17}});
    want = {7, 0};
    put_pt(&want, 1, 2, 3);
    put_pt(&want, 4, 5, 6);
    put_pt(&want, 7, 8, 9);
    put_f64(&want, 10);
    put_f64(&want, 11);
    put_pt(&want, 12, 13, 14);  // start 88..111
    put_pt(&want, 15, 16, 17);  // end 112..135
    EXPECT_EQ(record_of(e), want);
}

TEST(ElementRecord, SymbolInstanceImage)
{
    V_SYMBOL_INST s{};
    s.position = {1, 2, 3};
    s.xaxis = {4, 5, 6};
    s.normal = {7, 8, 9};
    s.scale_x = 10;
    s.scale_y = 11;
    s.scale_z = 12;
    s.angle = 13;
    s.symbol_id = -2;
    s.flags = 0x01020304;
    s.name[0] = u'A';
    s.name[1] = 0x20AC;
    V_ELEMENT e;
    e.SetSymbolInstance(s);
    Bytes want = {12, 0};
    put_pt(&want, 1, 2, 3);
    put_pt(&want, 4, 5, 6);
    put_pt(&want, 7, 8, 9);
    for (double d : {10.0, 11.0, 12.0, 13.0}) put_f64(&want, d);
    put_u(&want, 0xFFFFFFFEu, 4);  // symbol_id 104
    put_u(&want, 0x01020304u, 4);  // flags 108
    put_u(&want, 'A', 2);          // name 112..135
    put_u(&want, 0x20AC, 2);
    want.resize(2 + 136, 0);
    EXPECT_EQ(record_of(e), want);
}

TEST(ElementRecord, TextBlockThenCountThenUnits)
{
    V_TEXT t{};
    t.point = {1, 2, 3};
    t.normal = {0, 0, 1};
    t.xaxis = {1, 0, 0};
    t.width = 6;
    t.height = 2;
    t.slant = 0.25;
    t.char_spacing = 0.5;
    t.line_spacing = 1.5;
    std::strcpy(t.font_name, "Mono");
    t.alignment = 7;
    t.style = -1;
    t.font_id = 5;
    char16_t chars[] = u"A\u00e9";
    t.text = chars;
    t.flags = 9;
    t.reserved = 0;
    V_ELEMENT e;
    e.SetText(t);
    Bytes want = {14, 0};
    put_pt(&want, 1, 2, 3);
    put_pt(&want, 0, 0, 1);
    put_pt(&want, 1, 0, 0);
    for (double d : {6.0, 2.0, 0.25, 0.5, 1.5}) put_f64(&want, d);
    const char font[32] = "Mono";
    want.insert(want.end(), font, font + 32);  // 112..143
    put_u(&want, 7, 4);                        // alignment 144
    put_u(&want, 0xFFFF, 2);                   // style 148
    put_u(&want, 5, 2);                        // font_id 150
    uintptr_t ptr = reinterpret_cast<uintptr_t>(chars);
    put_u(&want, ptr, 8);  // the pointer as it stands, 152..159
    put_u(&want, 9, 4);    // flags 160
    put_u(&want, 0, 4);    // reserved 164
    put_u(&want, 2, 4);    // n
    put_u(&want, 'A', 2);  // the units, no terminator
    put_u(&want, 0xE9, 2);
    const Bytes got = record_of(e);
    EXPECT_EQ(got.size(), 2u + 168 + 4 + 4);
    EXPECT_EQ(got, want);
}

TEST_F(ElementRecordRead, EmptyTextReadsBackTerminated)
{
    V_TEXT t{};
    t.text = kEmpty;
    V_ELEMENT e;
    e.SetText(t);
    const Bytes rec = record_of(e);
    ASSERT_EQ(rec.size(), 2u + 168 + 4);
    EXPECT_EQ(rec[170] | rec[171] | rec[172] | rec[173], 0);
    V_ELEMENT r;
    FILE* f = stream_of(rec, rec.size());
    EXPECT_EQ(r.fread_bin(f), st::ok);
    std::fclose(f);
    ASSERT_NE(r.text.text, nullptr);
    EXPECT_NE(r.text.text, kEmpty);  // a new buffer, not the writer's pointer
    EXPECT_EQ(r.text.text[0], 0);
    release_text(&r);
}

TEST(ElementRecord, UnknownCodesConsumeOnlyTheTypeBytes)
{
    for (int16_t code :
         {int16_t(9), int16_t(13), int16_t(25), int16_t(-1), int16_t(27), int16_t(30000)}) {
        Bytes b;
        put_i16(&b, code);
        b.push_back(0xAA);
        b.push_back(0xBB);
        V_ELEMENT e;
        FILE* f = stream_of(b, b.size());
        EXPECT_EQ(e.fread_bin(f), st::ok);
        EXPECT_EQ(e.TypeGet(), code);
        EXPECT_EQ(std::ftell(f), 2);
        std::fclose(f);
        unsigned char* p = b.data();
        V_ELEMENT m;
        EXPECT_EQ(m.fread_bin(p), st::ok);
        EXPECT_EQ(m.TypeGet(), code);
        EXPECT_EQ(p, b.data() + 2);
        Bytes only_type;
        put_i16(&only_type, code);
        EXPECT_EQ(record_of(e), only_type);
    }
}

TEST(ElementRecord, OwningKindsEmbedTheirRecords)
{
    // Polyline: int16 0, uint32 N, N points.
    V_ELEMENT e;
    List<V_POINT> pts;
    pts.Append(V_POINT{1, 2, 3});
    pts.Append(V_POINT{4, 5, 6});
    ASSERT_EQ(e.SetPolyline(pts), st::ok);
    Bytes want = {20, 0, 0, 0};
    put_u(&want, 2, 4);
    put_pt(&want, 1, 2, 3);
    put_pt(&want, 4, 5, 6);
    EXPECT_EQ(record_of(e), want);

    // Point set: 200 + 24 N + 4 M bytes after the type.
    V_WORKPLANE wp{};
    wp.xaxis = {1, 0, 0};
    wp.yaxis = {0, 1, 0};
    wp.zaxis = {0, 0, 1};
    ASSERT_EQ(e.SetPointSet(pts, wp), st::ok);
    ASSERT_EQ(e.pointset.DeletePoint(1), st::ok);
    EXPECT_EQ(record_of(e).size(), 2u + 200 + 24 * 2 + 4 * 1);
}

TEST_F(ElementRecordRead, PolylineWithEmptyListReadsBackWithoutOne)
{
    V_ELEMENT e;
    ASSERT_EQ(e.SetPolyline(List<V_POINT>()), st::ok);
    const Bytes rec = record_of(e);
    EXPECT_EQ(rec, (Bytes{20, 0, 0, 0, 0, 0, 0, 0}));
    Bytes image = rec;
    unsigned char* p = image.data();
    V_ELEMENT r;
    EXPECT_EQ(r.fread_bin(p), st::ok);
    EXPECT_EQ(r.TypeGet(), 20);
    EXPECT_EQ(r.polyline.Points(), nullptr);
}

TEST(ElementRecord, WriterReportsFailures)
{
    V_ELEMENT e;
    e.SetPoint(1, 2, 3);
    EXPECT_EQ(e.fwrite_bin(nullptr), st::bad_input);
    char name[] = "/tmp/kestra_v_elem_ro_XXXXXX";
    const int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    FILE* ro = std::fopen(name, "rb");  // writes to it fail at once
    ASSERT_NE(ro, nullptr);
    EXPECT_EQ(e.fwrite_bin(ro), st::bad_input);
    std::fclose(ro);
    std::remove(name);
    // A polyline without a list cannot be written; a point set without lists neither.
    e.TypeSet(20);
    FILE* f = std::tmpfile();
    EXPECT_EQ(e.fwrite_bin(f), st::bad_input);
    e.TypeSet(26);
    EXPECT_EQ(e.fwrite_bin(f), st::bad_input);
    std::fclose(f);
}

TEST(ElementRecord, ReaderRejectsNullSources)
{
    V_ELEMENT e;
    e.SetPoint(1, 2, 3);
    EXPECT_EQ(e.fread_bin(static_cast<FILE*>(nullptr)), st::bad_input);
    unsigned char* p = nullptr;
    EXPECT_EQ(e.fread_bin(p), st::bad_input);
    EXPECT_EQ(e.TypeGet(), 1);
    EXPECT_EQ(e.point.x, 1.0);
}

// --- round trips ---

TEST_F(ElementRecordRead, EveryKindRoundTripsBitForBit)
{
    const std::vector<V_ELEMENT> set = test_set();
    for (size_t i = 0; i < set.size(); ++i) {
        SCOPED_TRACE(i);
        const Bytes rec = record_of(set[i]);
        // From a stream, into an element that held a curve.
        V_ELEMENT s;
        s.SetCurve(rational_curve());
        FILE* f = stream_of(rec, rec.size());
        EXPECT_EQ(s.fread_bin(f), st::ok);
        EXPECT_EQ(std::ftell(f), long(rec.size()));
        std::fclose(f);
        EXPECT_EQ(s.TypeGet(), set[i].TypeGet());
        EXPECT_EQ(masked(record_of(s)), masked(rec));
        // From memory, the cursor ending exactly after the record.
        Bytes image = rec;
        unsigned char* p = image.data();
        V_ELEMENT m;
        ASSERT_EQ(m.SetPolyline(List<V_POINT>()), st::ok);
        EXPECT_EQ(m.fread_bin(p), st::ok);
        EXPECT_EQ(p, image.data() + image.size());
        EXPECT_EQ(masked(record_of(m)), masked(rec));
        release_text(&s);
        release_text(&m);
    }
}

TEST_F(ElementRecordRead, RoundTripRestoresFields)
{
    const std::vector<V_ELEMENT> set = test_set();
    V_ELEMENT r;
    for (int i : {9, 13}) {
        const Bytes rec = record_of(set[i]);
        Bytes image = rec;
        unsigned char* p = image.data();
        ASSERT_EQ(r.fread_bin(p), st::ok);
        switch (r.TypeGet()) {
        case 14: {
            EXPECT_EQ(std::memcmp(&r.text, &set[i].text, 152), 0);
            EXPECT_EQ(r.text.flags, set[i].text.flags);
            EXPECT_EQ(std::u16string(r.text.text), std::u16string(kHello));
            release_text(&r);
            break;
        }
        case 26:
            EXPECT_EQ(r.pointset.flags, 0xBEEF);
            EXPECT_EQ(r.pointset.count_word, 77u);
            EXPECT_EQ(r.pointset.Count(), 4u);
            EXPECT_EQ(r.pointset.GetDeletedPointsNum(), 1u);
            EXPECT_TRUE(r.pointset.IsDeleted(2));
            EXPECT_EQ(std::memcmp(&r.pointset.plane, &set[i].pointset.plane, sizeof(V_WORKPLANE)),
                      0);
            break;
        default:
            FAIL() << "unexpected type " << r.TypeGet();
        }
    }
}

// --- damaged records ---

TEST_F(ElementRecordRead, TruncatedRecordsFailAtEveryCut)
{
    const std::vector<V_ELEMENT> set = test_set();
    for (size_t i = 0; i < set.size(); ++i) {
        const Bytes rec = record_of(set[i]);
        for (size_t cut = 0; cut < rec.size(); ++cut) {
            SCOPED_TRACE(testing::Message() << "record " << i << " cut " << cut);
            V_ELEMENT e;
            e.SetPoint(7, 8, 9);
            FILE* f = stream_of(rec, cut);
            if (cut < 2) {
                EXPECT_EQ(e.fread_bin(f), st::bad_input);
                EXPECT_EQ(e.TypeGet(), 1);  // unchanged when the type cannot be read
                EXPECT_EQ(e.point.z, 9.0);
            } else if (set[i].TypeGet() == 14) {
                EXPECT_THROW(e.fread_bin(f), std::runtime_error);
                EXPECT_EQ(e.TypeGet(), 14);
                EXPECT_EQ(e.text.text, nullptr);
            } else {
                EXPECT_EQ(e.fread_bin(f), st::bad_input);
                EXPECT_EQ(e.TypeGet(), set[i].TypeGet());
            }
            std::fclose(f);
        }
    }
}

TEST_F(ElementRecordRead, CorruptTextCountThrowsWithoutLeak)
{
    V_TEXT t{};
    t.text = kHello;
    V_ELEMENT e;
    e.SetText(t);
    Bytes rec = record_of(e);
    // n claims 4 294 967 295 units; five follow.
    rec[170] = rec[171] = rec[172] = rec[173] = 0xFF;
    const size_t before = v_memptr_live_bytes();
    V_ELEMENT r;
    FILE* f = stream_of(rec, rec.size());
    EXPECT_THROW(r.fread_bin(f), std::runtime_error);
    std::fclose(f);
    EXPECT_EQ(r.text.text, nullptr);
    EXPECT_EQ(v_memptr_live_bytes(), before);
}

TEST_F(ElementRecordRead, LongTextGrowsAcrossBlocks)
{
    std::u16string chars(10000, u'k');
    chars[9999] = u'z';
    V_TEXT t{};
    t.text = &chars[0];
    V_ELEMENT e;
    e.SetText(t);
    const Bytes rec = record_of(e);
    ASSERT_EQ(rec.size(), 2u + 168 + 4 + 20000);
    V_ELEMENT r;
    FILE* f = stream_of(rec, rec.size());
    ASSERT_EQ(r.fread_bin(f), st::ok);
    std::fclose(f);
    EXPECT_EQ(std::u16string(r.text.text), chars);
    release_text(&r);
    // Cut inside the second block.
    f = stream_of(rec, rec.size() - 3);
    EXPECT_THROW(r.fread_bin(f), std::runtime_error);
    std::fclose(f);
}

TEST_F(ElementRecordRead, ReadersSurviveFailedAllocations)
{
    const std::vector<V_ELEMENT> set = test_set();
    for (size_t i = 0; i < set.size(); ++i) {
        const Bytes rec = record_of(set[i]);
        bool stream_ok = false, memory_ok = false;
        for (long n = 0; n <= 12; ++n) {
            SCOPED_TRACE(testing::Message() << "record " << i << " allowing " << n);
            V_ELEMENT s, m;
            FILE* f = stream_of(rec, rec.size());
            Bytes image = rec;
            unsigned char* p = image.data();
            short rs = -1, rm = -1;
            v_memptr_fail_after(n);
            try {
                rs = s.fread_bin(f);
            } catch (const std::runtime_error&) {
                rs = st::no_memory;
            }
            try {
                v_memptr_fail_after(n);
                rm = m.fread_bin(p);
            } catch (const std::runtime_error&) {
                rm = st::no_memory;
            }
            v_memptr_fail_after(-1);
            std::fclose(f);
            EXPECT_TRUE(rs == st::ok || rs == st::bad_input || rs == st::no_memory) << rs;
            EXPECT_TRUE(rm == st::ok || rm == st::bad_input || rm == st::no_memory) << rm;
            if (rs == st::ok) {
                EXPECT_EQ(masked(record_of(s)), masked(rec));
            }
            if (rm == st::ok) {
                EXPECT_EQ(masked(record_of(m)), masked(rec));
            }
            stream_ok = stream_ok || rs == st::ok;
            memory_ok = memory_ok || rm == st::ok;
            if (rs == st::ok) release_text(&s);
            if (rm == st::ok) release_text(&m);
        }
        EXPECT_TRUE(stream_ok && memory_ok) << "record " << i << " never read";
    }
}
