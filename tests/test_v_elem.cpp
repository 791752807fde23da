// The element's storage, ownership under copy, move, type changes and setters (leaks counted),
// its dump and its two conversions.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include "io_support.h"
#include <gtest/gtest.h>
#include <cstring>
#include <string>
#include <utility>

using namespace testsupport;

namespace {

List<V_POINT> make_points(int n)
{
    List<V_POINT> l;
    for (int i = 0; i < n; ++i) EXPECT_TRUE(l.Append(V_POINT{double(i), 2.0 * i, -1.0}));
    return l;
}

const V_WORKPLANE kWorld = PointSet().plane;

using ElementOwnership = LeakFree;
using ElementDump = LeakFree;
using ElementConvert = LeakFree;

}  // namespace

TEST_F(ElementOwnership, TypeSet_KeepsTheSameTypeReleasesAndPreparesOthers)
{
    const long empty = v_memptr_live_count();
    V_ELEMENT e;
    // Every member of the payload starts at offset 8, after the type code and its fill.
    const auto at = [&](const void* m) { return (const char*)m - (const char*)&e; };
    EXPECT_TRUE(at(&e.point) == 8 && at(&e.pointset) == 8 && sizeof e == 8 + sizeof(PointSet));
    e.SetCircle(V_POINT{1, 2, 3}, 4.5, V_VECTOR{0, 0, 1});
    e.TypeSet(4);
    EXPECT_EQ(e.circle.radius, 4.5);
    e.SetCurve(quarter_curve());
    List<double>* before = e.curve.cpts;
    e.TypeSet(19);  // the same lists, not a fresh empty curve
    EXPECT_EQ(e.curve.cpts, before);
    e.TypeSet(20);
    EXPECT_TRUE(v_memptr_live_count() == empty && e.polyline.Points() == nullptr);
    ASSERT_EQ(e.SetPolyline(make_points(4)), st::ok);
    e.TypeSet(26);
    EXPECT_EQ(v_memptr_live_count(), empty);
    EXPECT_TRUE(e.pointset.points == nullptr && e.pointset.plane.zaxis.z == 1.0);
    ASSERT_EQ(e.SetPointSet(make_points(3), kWorld), st::ok);
    e.TypeSet(21);  // a reserved code from 19 up is plain: released, nothing prepared
    EXPECT_EQ(v_memptr_live_count(), empty);
    e.TypeSet(19);
    EXPECT_TRUE(e.curve.cpts == nullptr &&
                e.curve.order + e.curve.n_cpts + e.curve.vpp + e.curve.n_knots == 0);
    e.SetCurve(quarter_curve());
    e.SetPoint(V_POINT{1, 1, 1});  // setters of plain kinds release too
    EXPECT_EQ(v_memptr_live_count(), empty);
    // p_Destroy releases and keeps the type; a second one finds nothing to free.
    e.SetCurve(quarter_curve());
    e.p_Destroy();
    EXPECT_TRUE(e.TypeGet() == 19 && e.curve.cpts == nullptr && v_memptr_live_count() == empty);
    e.p_Destroy();
}

TEST_F(ElementOwnership, Setters_ArgumentsMayLiveInThePayloadOwningOnesCopyOrTake)
{
    V_ELEMENT e;
    e.SetSegment(V_POINT{1, 2, 3}, V_POINT{4, 5, 6});
    e.SetSegment(e.segm.end, e.segm.start);  // reversing in place
    EXPECT_TRUE(e.segm.start.x == 4.0 && e.segm.end.x == 1.0);
    e.SetArc(V_POINT{0, 0, 0}, 1.0, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    e.SetPoint(e.arc.end);  // the arc's end lies beyond the point's bytes
    EXPECT_TRUE(e.point.x == 0.0 && e.point.y == 1.0);
    // A point set from the polyline's own list, which the type change releases, and back.
    ASSERT_EQ(e.SetPolyline(make_points(3)), st::ok);
    ASSERT_EQ(e.SetPointSet(*e.polyline.Points(), kWorld), st::ok);
    ASSERT_TRUE(e.SetPolyline(*e.pointset.points) == st::ok && e.polyline.Count() == 3u);
    e.SetCurve(quarter_curve());
    e.SetCurve(e.curve);  // a copy of itself
    EXPECT_EQ(e.curve.cpts->Count(), 12u);
    CNurbs c = quarter_curve();
    e.SetCurve(c);
    EXPECT_TRUE(e.curve.cpts != c.cpts && e.curve.cpts->Count() == c.cpts->Count());
    List<double>* taken = c.cpts;
    e.MoveCurve(c);
    EXPECT_TRUE(e.curve.cpts == taken && c.cpts == nullptr);
    Polyline pl;
    ASSERT_EQ(pl.Create(make_points(5)), st::ok);
    e.SetPolyline(pl);
    EXPECT_TRUE(e.polyline.Points() != pl.Points() && e.polyline.Count() == 5u);
    List<V_POINT>* list = pl.Points();
    e.MovePolyline(pl);
    EXPECT_TRUE(e.polyline.Points() == list && pl.Points() == nullptr);
    PointSet ps;
    ASSERT_EQ(ps.Create(make_points(4), kWorld), st::ok);
    ps.count_word = 9;
    e.SetPointSet(ps);
    EXPECT_TRUE(e.pointset.points != ps.points && e.pointset.count_word == 9u);
    List<V_POINT>* pts = ps.points;
    e.MovePointSet(ps);
    EXPECT_TRUE(e.pointset.points == pts && ps.points == nullptr);
    // The building setters work in place on a payload of their kind: what the builder keeps
    // stays (the count word), and a failure leaves the points held before.
    ASSERT_EQ(e.SetPointSet(100ul, 7ul), st::ok);
    EXPECT_TRUE(e.pointset.points->capacity == 100 && e.pointset.deleted->capacity == 7 &&
                e.pointset.Count() == 0u && e.pointset.count_word == 9u);
    const List<V_POINT> three = make_points(3);
    for (uint32_t held : {0u, 2u}) {  // from a point set, then over a polyline of two points
        ASSERT_TRUE(!held || e.SetPolyline(make_points(held)) == st::ok);
        EXPECT_EQ(with_allocations(0, [&] { return e.SetPolyline(three); }), st::no_memory);
        EXPECT_TRUE(e.TypeGet() == 20 &&
                    (held ? e.polyline.Count() == held : !e.polyline.Points()));
    }
}

TEST_F(ElementOwnership, CopyAndMove_DeepCopiesTheMoveLeavesTheSourceReadableUntilReuse)
{
    V_ELEMENT a;
    a.SetCurve(quarter_curve());
    V_ELEMENT c(a);
    (*c.curve.cpts)[5] = 99.0;  // a copy is independent; self-assignment changes nothing
    c = *&c;
    EXPECT_TRUE((*a.curve.cpts)[5] != 99.0 && (*c.curve.cpts)[5] == 99.0);
    unsigned char before[sizeof(CNurbs)];
    std::memcpy(before, &a.curve, sizeof before);
    List<double>* src_list = a.curve.cpts;
    V_ELEMENT b(std::move(a));
    EXPECT_TRUE(a.TypeGet() == 0 && b.TypeGet() == 19);
    EXPECT_NE(b.curve.cpts, src_list);  // a deep copy; the source's lists alive and unchanged
    EXPECT_EQ(std::memcmp(before, &a.curve, sizeof before), 0);
    EXPECT_TRUE(src_list->Count() == 12u && (*src_list)[5] == (*b.curve.cpts)[5]);
    // Reusing the moved-from element releases what it still held.
    V_ELEMENT dst;
    ASSERT_EQ(a.SetPolyline(make_points(7)), st::ok);
    dst.Move(a);  // the source still readable after the move
    EXPECT_TRUE(a.TypeGet() == 0 && dst.polyline.Count() == 7u && a.polyline.Count() == 7u);
    ASSERT_EQ(a.SetPointSet(make_points(2), kWorld), st::ok);
    EXPECT_EQ((dst = std::move(a)).pointset.Count(), 2u);
    // Moving or copying an empty element leaves what the earlier move left for release.
    V_ELEMENT other;
    other.Move(a);
    V_ELEMENT copy(a);
    EXPECT_EQ(copy.TypeGet(), 0);
    a.SetCircle(V_POINT{1, 1, 1}, 2, V_VECTOR{0, 0, 1});
    dst.Move(a);
    EXPECT_TRUE(a.TypeGet() == 0 && dst.circle.radius == 2.0);
    // Moved into itself, it ends empty like any source, its payload readable and not leaked.
    dst.SetCurve(quarter_curve());
    dst.Move(dst);
    EXPECT_TRUE(dst.TypeGet() == 0 && dst.curve.cpts->Count() == 12u);
}

TEST_F(ElementDump, FieldLinesPerKind)
{
    // "Aé€" then U+1F600 as a surrogate pair, then a lone low surrogate.
    char16_t chars[] = {u'A', 0x00E9, 0x20AC, 0xD83D, 0xDE00, 0xDC00, 0};
    const V_TEXT t{{1, 2, 3}, {0, 0, 1}, {1, 0, 0}, 10, 2.5, 0, 0, 0, "", 0, 0, 0, chars, 0, 0};
    char name[] = "arc";
    const Lines got = dump_of([&] {
        V_ELEMENT e;
        e.SetSegment(1, 2.5, -3, 0.125, 0, 1e3), e.DebugOutput("s1");
        e.SetCircle(V_POINT{0, 0, 1}, 2.25, V_VECTOR{0, 0, -1}), e.DebugOutput("c");
        e.SetArc(V_POINT{0, 0, 0}, 1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
        e.DebugOutput(name);
        e.SetText(t), e.DebugOutput("t");
        e.SetPoint(1, 2, 3), e.DebugOutput("p");
        e.TypeSet(9), e.DebugOutput(nullptr);
        e.TypeSet(26), e.DebugOutput("ps");
    });
    const Lines want = {"s1 : Segment\n",
                        "Start X1.000000 Y2.500000 Z-3.000000\n",
                        "  End X0.125000 Y0.000000 Z1000.000000\n",
                        "c : Circle\n",
                        "Centre X0.000000 Y0.000000 Z1.000000 Rad2.250000\n",
                        "Normal X0.000000 Y0.000000 Z-1.000000\n",
                        "arc : Arc\n",
                        "Centre X0.000000 Y0.000000 Z0.000000 Rad1.000000\n",
                        "Start X1.000000 Y0.000000 Z0.000000\n",
                        "  End X0.000000 Y1.000000 Z0.000000\n",
                        "Normal X0.000000 Y0.000000 Z1.000000\n",
                        "t : Text\n",
                        "Ap. Point X1.000000 Y2.000000 Z3.000000\n",
                        "  Normal CX0.000000 CY0.000000 CZ1.000000\n",
                        "  Xaxis CX1.000000 CY0.000000 CZ0.000000\n",
                        "  Width = 10.000000 Height = 2.500000 \n",
                        "#A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD#\n",
                        "p : V_ELEMENT 1\n",
                        " : V_ELEMENT 9\n",
                        "ps : V_ELEMENT 26\n"};
    EXPECT_EQ(got, want);
}

TEST_F(ElementDump, LongTextIsOneLineCurveAndPolylineHandOver)
{
    std::u16string chars(3000, u'x');
    V_TEXT t{};
    t.text = &chars[0];
    V_ELEMENT e;
    e.SetText(t);
    const auto dump = [&](const char* name) { return dump_of([&] { e.DebugOutput(name); }); };
    Lines got = dump("long");
    ASSERT_EQ(got.size(), 6u);
    EXPECT_EQ(got[5], "#" + std::string(3000, 'x') + "#\n");
    ASSERT_EQ(e.SetPolyline(make_points(2)), st::ok);
    const Lines pl = {"Polyline pl open with 2 points\n", "1 - 0.000,0.000,-1.000\n",
                      "2 - 1.000,2.000,-1.000\n"};
    EXPECT_EQ(dump("pl"), pl);
    e.SetCurve(quarter_curve());
    got = dump("cv");
    got.resize(3);
    EXPECT_EQ(
        got, (Lines{"======= Start \" cv \"\n", "Order = 3 Rational\n", "Form is CIRCULAR_ARC\n"}));
}

TEST_F(ElementConvert, ArcToCircleSegmentToLine)
{
    V_ELEMENT e;
    e.SetArc(V_POINT{1, 2, 3}, 4, V_POINT{5, 2, 3}, V_POINT{1, 6, 3}, V_VECTOR{0, 0, 1});
    EXPECT_EQ(e.convert_S_to_L(), st::wrong_kind);
    EXPECT_EQ(e.convert_A_to_C(), st::ok);
    EXPECT_TRUE(e.TypeGet() == 4 && e.circle.centre.y == 2.0 && e.circle.radius == 4.0 &&
                e.circle.normal.z == 1.0);
    EXPECT_EQ(e.convert_A_to_C(), st::wrong_kind);
    e.SetSegment(1, 1, 1, 4, 5, 1);  // d = (3, 4, 0), length 5
    EXPECT_EQ(e.convert_A_to_C(), st::wrong_kind);
    EXPECT_EQ(e.convert_S_to_L(), st::ok);
    EXPECT_TRUE(e.TypeGet() == 3 && e.line.point.x == 1.0 && e.line.direction.z == 0.0);
    EXPECT_NEAR(e.line.direction.x, 0.6, 1e-15);
    EXPECT_NEAR(e.line.direction.y, 0.8, 1e-15);
    // Short segments are judged by the angular tolerance, read at the call.
    e.SetSegment(0, 0, 0, 5e-12, 0, 0);  // below 1e-11
    EXPECT_EQ(e.convert_S_to_L(), st::bad_input);
    EXPECT_TRUE(e.TypeGet() == 2 && e.segm.end.x == 5e-12);
    e.SetSegment(0, 0, 0, 5e-9, 0, 0);  // shorter than tavotoll.point, longer than angle
    EXPECT_EQ(e.convert_S_to_L(), st::ok);
    EXPECT_DOUBLE_EQ(e.line.direction.x, 1.0);
    tavotoll.angle = 1e-6;
    e.SetSegment(0, 0, 0, 5e-7, 0, 0);
    EXPECT_EQ(e.convert_S_to_L(), st::bad_input);
}
