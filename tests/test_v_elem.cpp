// The element's storage, ownership under copy, move, type changes and setters, its dump and
// its two conversions. Leaks are counted through the tracked allocator.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

// Rational quadratic with control points (0,0,0) w1, (1,1,0) w2, (2,0,0) w1; knots 0, 1.
CNurbs make_curve()
{
    CNurbs c;
    c.order = 3;
    c.n_cpts = 3;
    c.vpp = 4;
    c.rational = 1;
    c.n_knots = 2;
    c.form = 1;
    EXPECT_EQ(c.Init_Lists(), st::ok);
    for (double v : {0.0, 0.0, 0.0, 1.0, 2.0, 2.0, 0.0, 2.0, 2.0, 0.0, 0.0, 1.0})
        EXPECT_TRUE(c.cpts->Append(v));
    EXPECT_TRUE(c.knots->Append(0.0) && c.knots->Append(1.0));
    EXPECT_TRUE(c.mults->Append(3) && c.mults->Append(3));
    return c;
}

List<V_POINT> make_points(int n)
{
    List<V_POINT> l;
    for (int i = 0; i < n; ++i) EXPECT_TRUE(l.Append(V_POINT{double(i), 2.0 * i, -1.0}));
    return l;
}

V_WORKPLANE world_plane()
{
    V_WORKPLANE wp{};
    wp.xaxis = {1, 0, 0};
    wp.yaxis = {0, 1, 0};
    wp.zaxis = {0, 0, 1};
    return wp;
}

bool same_bytes(const void* a, const void* b, size_t n)
{
    return std::memcmp(a, b, n) == 0;
}

// Collects each debug_printf text while alive.
class DumpCapture {
public:
    std::vector<std::string> lines;
    DumpCapture() { debug_set_sink(&DumpCapture::take, this); }
    ~DumpCapture() { debug_set_sink(nullptr, nullptr); }

private:
    static void take(const char* text, void* user)
    {
        static_cast<DumpCapture*>(user)->lines.emplace_back(text);
    }
};

// Checks after the scope that every tracked block made inside it was released.
class ElementOwnership : public ::testing::Test {
protected:
    long base_ = v_memptr_live_count();
    void TearDown() override { EXPECT_EQ(v_memptr_live_count(), base_) << "tracked blocks leaked"; }
};

}  // namespace

// --- storage and type changes ---

TEST(ElementLayout, TypeCodeThenPayloadLargeEnoughForEveryKind)
{
    V_ELEMENT e;
    const auto* base = reinterpret_cast<const unsigned char*>(&e);
    // Every member of the payload starts at offset 8, after the type code and its fill.
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(&e.point) - base, 8);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(&e.pointset) - base, 8);
    // The point set (two pointers, two words, a 184-byte plane, a count word) is the largest.
    EXPECT_GT(sizeof(PointSet), sizeof(V_TEXT));
    EXPECT_EQ(sizeof(V_ELEMENT), 8 + sizeof(PointSet));
}

TEST_F(ElementOwnership, TypeSet_SameTypeKeepsPayload)
{
    V_ELEMENT e;
    e.SetCircle(V_POINT{1, 2, 3}, 4.5, V_VECTOR{0, 0, 1});
    e.TypeSet(4);
    EXPECT_EQ(e.circle.radius, 4.5);
    e.SetCurve(make_curve());
    List<double>* before = e.curve.cpts;
    e.TypeSet(19);
    EXPECT_EQ(e.curve.cpts, before);  // the same lists, not a fresh empty curve
}

TEST_F(ElementOwnership, TypeChanges_ReleaseAndPrepareOwningPayloads)
{
    const long empty = v_memptr_live_count();
    V_ELEMENT e;
    e.TypeSet(19);
    EXPECT_EQ(e.curve.cpts, nullptr);
    EXPECT_EQ(e.curve.order + e.curve.n_cpts + e.curve.vpp + e.curve.n_knots, 0);
    e.SetCurve(make_curve());
    EXPECT_GT(v_memptr_live_count(), empty);
    e.TypeSet(20);
    EXPECT_EQ(v_memptr_live_count(), empty);
    EXPECT_EQ(e.polyline.Points(), nullptr);
    ASSERT_EQ(e.SetPolyline(make_points(4)), st::ok);
    e.TypeSet(26);
    EXPECT_EQ(v_memptr_live_count(), empty);
    EXPECT_EQ(e.pointset.points, nullptr);
    EXPECT_EQ(e.pointset.plane.zaxis.z, 1.0);
    ASSERT_EQ(e.SetPointSet(make_points(3), world_plane()), st::ok);
    // A reserved code from 19 up is plain: the point set is released, nothing prepared.
    e.TypeSet(21);
    EXPECT_EQ(v_memptr_live_count(), empty);
    // Setters of plain kinds release too.
    e.SetCurve(make_curve());
    e.SetPoint(V_POINT{1, 1, 1});
    EXPECT_EQ(v_memptr_live_count(), empty);
    // p_Destroy releases and keeps the type; a second one finds nothing to free.
    e.SetCurve(make_curve());
    e.p_Destroy();
    EXPECT_EQ(e.TypeGet(), 19);
    EXPECT_EQ(e.curve.cpts, nullptr);
    EXPECT_EQ(v_memptr_live_count(), empty);
    e.p_Destroy();
}

// --- setters ---

TEST_F(ElementOwnership, Setters_StoreFieldsAsGiven)
{
    V_ELEMENT e;
    e.SetSegment(1, 2, 3, 4, 5, 6);
    EXPECT_EQ(e.TypeGet(), 2);
    EXPECT_EQ(e.segm.start.z, 3.0);
    EXPECT_EQ(e.segm.end.x, 4.0);
    e.SetLine(V_POINT{1, 1, 1}, V_VECTOR{0, 2, 0});
    EXPECT_EQ(e.line.direction.y, 2.0);  // not normalised
    e.SetArc(V_POINT{0, 0, 0}, -2.0, V_POINT{2, 0, 0}, V_POINT{0, 2, 0}, V_VECTOR{0, 0, 1});
    EXPECT_EQ(e.TypeGet(), 5);
    EXPECT_EQ(e.arc.radius, -2.0);  // the sign is kept
    EXPECT_EQ(e.arc.start.x, 2.0);
    EXPECT_EQ(e.arc.end.y, 2.0);
    char16_t chars[] = u"abc";
    V_TEXT t{};
    t.text = chars;
    e.SetText(t);
    EXPECT_EQ(e.TypeGet(), 14);
    EXPECT_EQ(e.text.text, chars);  // the host's characters, not a copy
}

TEST_F(ElementOwnership, Setters_ArgumentsMayLiveInThePayload)
{
    V_ELEMENT e;
    e.SetSegment(V_POINT{1, 2, 3}, V_POINT{4, 5, 6});
    e.SetSegment(e.segm.end, e.segm.start);  // reversing in place
    EXPECT_EQ(e.segm.start.x, 4.0);
    EXPECT_EQ(e.segm.end.x, 1.0);
    e.SetArc(V_POINT{0, 0, 0}, 1.0, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    e.SetPoint(e.arc.end);  // the arc's end lies beyond the point's bytes
    EXPECT_EQ(e.point.x, 0.0);
    EXPECT_EQ(e.point.y, 1.0);
    ASSERT_EQ(e.SetPolyline(make_points(3)), st::ok);
    // Building a point set from the polyline's own list, which the type change releases.
    ASSERT_EQ(e.SetPointSet(*e.polyline.Points(), world_plane()), st::ok);
    EXPECT_EQ(e.pointset.Count(), 3u);
    e.SetCurve(make_curve());
    e.SetCurve(e.curve);  // a copy of itself
    EXPECT_EQ(e.curve.cpts->Count(), 12u);
}

TEST_F(ElementOwnership, OwningSetters_CopyOrTakeTheirArgument)
{
    V_ELEMENT e;
    CNurbs c = make_curve();
    e.SetCurve(c);
    EXPECT_NE(e.curve.cpts, c.cpts);
    EXPECT_EQ(e.curve.cpts->Count(), c.cpts->Count());
    List<double>* taken = c.cpts;
    e.MoveCurve(c);
    EXPECT_EQ(e.curve.cpts, taken);
    EXPECT_EQ(c.cpts, nullptr);

    Polyline pl;
    ASSERT_EQ(pl.Create(make_points(5)), st::ok);
    e.SetPolyline(pl);
    EXPECT_NE(e.polyline.Points(), pl.Points());
    EXPECT_EQ(e.polyline.Count(), 5u);
    List<V_POINT>* list = pl.Points();
    e.MovePolyline(pl);
    EXPECT_EQ(e.polyline.Points(), list);
    EXPECT_EQ(pl.Points(), nullptr);

    PointSet ps;
    ASSERT_EQ(ps.Create(make_points(4), world_plane()), st::ok);
    ps.count_word = 9;
    e.SetPointSet(ps);
    EXPECT_NE(e.pointset.points, ps.points);
    EXPECT_EQ(e.pointset.count_word, 9u);
    List<V_POINT>* pts = ps.points;
    e.MovePointSet(ps);
    EXPECT_EQ(e.pointset.points, pts);
    EXPECT_EQ(ps.points, nullptr);

    ASSERT_EQ(e.SetPointSet(100ul, 7ul), st::ok);
    EXPECT_GE(e.pointset.points->capacity, 100u);
    EXPECT_EQ(e.pointset.Count(), 0u);
}

TEST_F(ElementOwnership, SetPolyline_ReportsMemoryFailure)
{
    V_ELEMENT e;
    List<V_POINT> pts = make_points(3);
    v_memptr_fail_after(0);
    const short rc = e.SetPolyline(pts);
    v_memptr_fail_after(-1);
    EXPECT_EQ(rc, st::no_memory);
    EXPECT_EQ(e.TypeGet(), 20);
}

// --- copy and move ---

TEST_F(ElementOwnership, Copy_DeepForOwningKindsBytewiseForPlain)
{
    V_ELEMENT a;
    a.SetCurve(make_curve());
    V_ELEMENT b(a);
    EXPECT_NE(b.curve.cpts, a.curve.cpts);
    ASSERT_EQ(b.curve.cpts->Count(), 12u);
    (*b.curve.cpts)[5] = 99.0;  // the copy is independent
    EXPECT_EQ((*a.curve.cpts)[5], 2.0);

    V_ELEMENT c;
    ASSERT_EQ(c.SetPointSet(make_points(3), world_plane()), st::ok);
    c.pointset.flags = 0x1234;
    b = c;  // over an owning payload of another kind
    EXPECT_EQ(b.TypeGet(), 26);
    EXPECT_NE(b.pointset.points, c.pointset.points);
    EXPECT_EQ(b.pointset.flags, 0x1234);

    c.SetArc(V_POINT{1, 2, 3}, -4, V_POINT{5, 6, 7}, V_POINT{8, 9, 10}, V_VECTOR{0, 0, -1});
    b = c;
    EXPECT_EQ(b.TypeGet(), 5);
    EXPECT_TRUE(same_bytes(&b.arc, &c.arc, sizeof(V_ARC)));

    a = *&a;  // self-assignment changes nothing
    EXPECT_EQ(a.curve.cpts->Count(), 12u);
}

TEST_F(ElementOwnership, Move_CopiesAndLeavesSourcePayloadUntouched)
{
    V_ELEMENT a;
    a.SetCurve(make_curve());
    unsigned char before[sizeof(CNurbs)];
    std::memcpy(before, &a.curve, sizeof before);
    List<double>* src_list = a.curve.cpts;

    V_ELEMENT b(std::move(a));
    EXPECT_EQ(a.TypeGet(), 0);
    EXPECT_EQ(b.TypeGet(), 19);
    EXPECT_NE(b.curve.cpts, src_list);  // a deep copy, not a take-over
    EXPECT_TRUE(same_bytes(before, &a.curve, sizeof before));
    // The source's lists are still alive and unchanged.
    EXPECT_EQ(src_list->Count(), 12u);
    EXPECT_EQ((*src_list)[8], 2.0);
    EXPECT_EQ((*b.curve.cpts)[8], 2.0);
}

TEST_F(ElementOwnership, MoveAssign_EveryOwningKindThenReuseSource)
{
    V_ELEMENT src;
    V_ELEMENT dst;
    src.SetCurve(make_curve());
    dst = std::move(src);
    EXPECT_EQ(src.TypeGet(), 0);
    EXPECT_EQ(dst.curve.cpts->Count(), 12u);

    // Reusing the moved-from element: its old curve is released, not leaked.
    ASSERT_EQ(src.SetPolyline(make_points(7)), st::ok);
    dst.Move(src);
    EXPECT_EQ(src.TypeGet(), 0);
    EXPECT_EQ(dst.polyline.Count(), 7u);
    EXPECT_EQ(src.polyline.Count(), 7u);  // still readable after the move

    ASSERT_EQ(src.SetPointSet(make_points(2), world_plane()), st::ok);
    dst.Move(src);
    EXPECT_EQ(dst.pointset.Count(), 2u);
    // Moving or copying an empty element leaves what the earlier move left for release.
    V_ELEMENT other;
    other.Move(src);
    V_ELEMENT copy(src);
    EXPECT_EQ(copy.TypeGet(), 0);

    // A plain kind; and moving an element into itself keeps it.
    src.SetCircle(V_POINT{1, 1, 1}, 2, V_VECTOR{0, 0, 1});
    dst.Move(src);
    EXPECT_EQ(src.TypeGet(), 0);
    EXPECT_EQ(dst.circle.radius, 2.0);
    dst.SetCurve(make_curve());
    dst.Move(dst);
    EXPECT_EQ(dst.TypeGet(), 19);
    EXPECT_EQ(dst.curve.cpts->Count(), 12u);
}

TEST_F(ElementOwnership, ListOfElements_GrowsAndReleases)
{
    List<V_ELEMENT> l(2);
    for (int i = 0; i < 20; ++i) {
        V_ELEMENT e;
        if (i % 3 == 0) e.SetCurve(make_curve());
        if (i % 3 == 1) {
            ASSERT_EQ(e.SetPolyline(make_points(i)), st::ok);
        }
        if (i % 3 == 2) e.SetPoint(i, i, i);
        ASSERT_TRUE(l.Append(e));
    }
    ASSERT_EQ(l.Count(), 20u);
    EXPECT_EQ(l[19].curve.cpts->Count(), 12u);  // position 19 holds i = 18
    EXPECT_EQ(l[20].polyline.Count(), 19u);
    l.Delete(4);
}

// --- dump ---

TEST(ElementDump, SegmentCircleArcLines)
{
    DumpCapture cap;
    V_ELEMENT e;
    e.SetSegment(1, 2.5, -3, 0.125, 0, 1e3);
    e.DebugOutput("s1");
    e.SetCircle(V_POINT{0, 0, 1}, 2.25, V_VECTOR{0, 0, -1});
    e.DebugOutput("c");
    e.SetArc(V_POINT{0, 0, 0}, 1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    char name[] = "arc";
    e.DebugOutput(name);
    const std::vector<std::string> want = {
        "s1 : Segment\n",
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
    };
    EXPECT_EQ(cap.lines, want);
}

TEST(ElementDump, TextPrintsCharactersAsUtf8)
{
    DumpCapture cap;
    // "Aé€" then U+1F600 as a surrogate pair, then a lone low surrogate.
    char16_t chars[] = {u'A', 0x00E9, 0x20AC, 0xD83D, 0xDE00, 0xDC00, 0};
    V_TEXT t{};
    t.point = {1, 2, 3};
    t.normal = {0, 0, 1};
    t.xaxis = {1, 0, 0};
    t.width = 10;
    t.height = 2.5;
    t.text = chars;
    V_ELEMENT e;
    e.SetText(t);
    e.DebugOutput("t");
    const std::vector<std::string> want = {
        "t : Text\n",
        "Ap. Point X1.000000 Y2.000000 Z3.000000\n",
        "  Normal CX0.000000 CY0.000000 CZ1.000000\n",
        "  Xaxis CX1.000000 CY0.000000 CZ0.000000\n",
        "  Width = 10.000000 Height = 2.500000 \n",
        "#A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD#\n",
    };
    EXPECT_EQ(cap.lines, want);
}

TEST(ElementDump, LongTextIsOneLine)
{
    std::vector<char16_t> chars(3000, u'x');
    chars.push_back(0);
    V_TEXT t{};
    t.text = chars.data();
    V_ELEMENT e;
    e.SetText(t);
    DumpCapture cap;
    e.DebugOutput("long");
    ASSERT_EQ(cap.lines.size(), 6u);
    EXPECT_EQ(cap.lines[5], "#" + std::string(3000, 'x') + "#\n");
}

TEST(ElementDump, OtherKindsPrintNameAndType)
{
    DumpCapture cap;
    V_ELEMENT e;
    e.SetPoint(1, 2, 3);
    e.DebugOutput("p");
    e.SetLine(V_POINT{0, 0, 0}, V_VECTOR{1, 0, 0});
    e.DebugOutput("l");
    e.TypeSet(9);
    e.DebugOutput(nullptr);
    e.TypeSet(26);
    e.DebugOutput("ps");
    const std::vector<std::string> want = {"p : V_ELEMENT 1\n", "l : V_ELEMENT 3\n",
                                           " : V_ELEMENT 9\n", "ps : V_ELEMENT 26\n"};
    EXPECT_EQ(cap.lines, want);
}

TEST(ElementDump, CurveAndPolylineHandOver)
{
    V_ELEMENT e;
    ASSERT_EQ(e.SetPolyline(make_points(2)), st::ok);
    {
        DumpCapture cap;
        e.DebugOutput("pl");
        ASSERT_EQ(cap.lines.size(), 3u);
        EXPECT_EQ(cap.lines[0], "Polyline pl open with 2 points\n");
        EXPECT_EQ(cap.lines[2], "2 - 1.000,2.000,-1.000\n");
    }
    e.SetCurve(make_curve());
    DumpCapture cap;
    e.DebugOutput("cv");
    ASSERT_GE(cap.lines.size(), 3u);
    EXPECT_EQ(cap.lines[0], "======= Start \" cv \"\n");
    EXPECT_EQ(cap.lines[1], "Order = 3 Rational\n");
    EXPECT_EQ(cap.lines[2], "Form is CIRCULAR_ARC\n");
}

// --- conversions ---

TEST(ElementConvert, ArcToCircleSegmentToLine)
{
    V_ELEMENT e;
    e.SetArc(V_POINT{1, 2, 3}, 4, V_POINT{5, 2, 3}, V_POINT{1, 6, 3}, V_VECTOR{0, 0, 1});
    EXPECT_EQ(e.convert_S_to_L(), st::wrong_kind);
    EXPECT_EQ(e.convert_A_to_C(), st::ok);
    EXPECT_EQ(e.TypeGet(), 4);
    EXPECT_EQ(e.circle.centre.y, 2.0);
    EXPECT_EQ(e.circle.radius, 4.0);
    EXPECT_EQ(e.circle.normal.z, 1.0);
    EXPECT_EQ(e.convert_A_to_C(), st::wrong_kind);
    e.SetSegment(1, 1, 1, 4, 5, 1);  // d = (3, 4, 0), length 5
    EXPECT_EQ(e.convert_A_to_C(), st::wrong_kind);
    EXPECT_EQ(e.convert_S_to_L(), st::ok);
    EXPECT_EQ(e.TypeGet(), 3);
    EXPECT_EQ(e.line.point.x, 1.0);
    EXPECT_DOUBLE_EQ(e.line.direction.x, 0.6);
    EXPECT_DOUBLE_EQ(e.line.direction.y, 0.8);
    EXPECT_EQ(e.line.direction.z, 0.0);
}

TEST(ElementConvert, ShortSegmentJudgedByAngularTolerance)
{
    const V_TOLERANCE saved = tavotoll;
    V_ELEMENT e;
    e.SetSegment(0, 0, 0, 5e-12, 0, 0);  // below 1e-11
    EXPECT_EQ(e.convert_S_to_L(), st::bad_input);
    EXPECT_EQ(e.TypeGet(), 2);
    EXPECT_EQ(e.segm.end.x, 5e-12);
    e.SetSegment(0, 0, 0, 5e-9, 0, 0);  // shorter than tavotoll.point, longer than angle
    EXPECT_EQ(e.convert_S_to_L(), st::ok);
    EXPECT_DOUBLE_EQ(e.line.direction.x, 1.0);
    tavotoll.angle = 1e-6;  // read at the call
    e.SetSegment(0, 0, 0, 5e-7, 0, 0);
    EXPECT_EQ(e.convert_S_to_L(), st::bad_input);
    tavotoll = saved;
}
