// Example host program: builds one element of every kind, writes them to a file of element
// records in a fresh temporary folder, reads them back, dumps each one through the debug
// sink and prints a one-line summary per element. Exit status 0 when every step succeeds.
#include <kestra/kestra.h>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace {

// Dumps go to standard output, so that they stay in order with the summaries.
void print_to_stdout(const char* text, void*)
{
    std::fputs(text, stdout);
}

const char* kind_name(short type)
{
    switch (type) {
    case 0:
        return "none";
    case 1:
        return "point";
    case 2:
        return "segment";
    case 3:
        return "line";
    case 4:
        return "circle";
    case 5:
        return "arc";
    case 6:
        return "ellipse";
    case 7:
        return "elliptical arc";
    case 12:
        return "symbol instance";
    case 14:
        return "text";
    case 19:
        return "curve";
    case 20:
        return "polyline";
    case 26:
        return "point set";
    default:
        return "reserved";
    }
}

// One line describing the element read back.
void summary(size_t i, const V_ELEMENT& e)
{
    std::printf("%2zu  %-15s  ", i + 1, kind_name(e.TypeGet()));
    switch (e.TypeGet()) {
    case 1:
        std::printf("at (%g, %g, %g)\n", e.point.x, e.point.y, e.point.z);
        break;
    case 2: {
        V_SEGM s = e.segm;
        std::printf("length %g\n", s.compute_length());
        break;
    }
    case 3:
        std::printf("through (%g, %g, %g) along (%g, %g, %g)\n", e.line.point.x, e.line.point.y,
                    e.line.point.z, e.line.direction.x, e.line.direction.y, e.line.direction.z);
        break;
    case 4:
        std::printf("radius %g\n", e.circle.radius);
        break;
    case 5:
        std::printf("radius %g\n", e.arc.radius);
        break;
    case 6:
        std::printf("radii %g and %g\n", e.ellipse.radius1, e.ellipse.radius2);
        break;
    case 7:
        std::printf("radii %g and %g\n", e.elarc.ellipse.radius1, e.elarc.ellipse.radius2);
        break;
    case 12:
        std::printf("symbol %d\n", static_cast<int>(e.symbol.symbol_id));
        break;
    case 14: {
        char ascii[64];
        unicode_to_ascii(ascii, e.text.text, sizeof ascii);
        std::printf("\"%s\", height %g\n", ascii, e.text.height);
        break;
    }
    case 19: {
        V_POINT mid;
        const short rc = e.curve.Eval(0.5, nullptr, &mid);
        std::printf("order %d, %d control points, mid-point (%g, %g, %g), status %d\n",
                    static_cast<int>(e.curve.order), static_cast<int>(e.curve.n_cpts), mid.x, mid.y,
                    mid.z, rc);
        break;
    }
    case 20:
        std::printf("%lu points, length %g, %s\n", e.polyline.Count(), e.polyline.Length(),
                    e.polyline.Is_Closed() ? "closed" : "open");
        break;
    case 26:
        std::printf("%lu points, %lu deleted\n", e.pointset.Count(),
                    e.pointset.GetDeletedPointsNum());
        break;
    default:
        std::printf("\n");
        break;
    }
}

// The quarter of the unit circle from (1,0,0) to (0,1,0) as a rational quadratic.
bool make_quarter(CNurbs* c)
{
    c->order = 3;
    c->n_cpts = 3;
    c->vpp = 4;
    c->rational = 1;
    c->form = 1;
    c->n_knots = 2;
    if (c->Init_Lists() != 0) return false;
    const double w = std::sqrt(0.5);
    const double v[] = {1, 0, 0, 1, w, w, 0, w, 0, 1, 0, 1};
    bool ok = true;
    for (double x : v) ok = ok && c->cpts->Append(x);
    return ok && c->knots->Append(0.0) && c->knots->Append(1.0) && c->mults->Append(3) &&
           c->mults->Append(3);
}

// Elements of every kind; false when one could not be built.
bool build(std::vector<V_ELEMENT>* out, char16_t* chars)
{
    std::vector<V_ELEMENT>& v = *out;
    v.resize(12);
    v[0].SetPoint(1, 2, 3);
    v[1].SetSegment(0, 0, 0, 3, 4, 0);
    v[2].SetLine(V_POINT{0, 0, 1}, V_VECTOR{0, 0.6, 0.8});
    v[3].SetCircle(V_POINT{5, 5, 0}, 2.5, V_VECTOR{0, 0, 1});
    V_ARC a;
    a.create(0.0, std::acos(-1.0) / 2, 2.0, V_POINT{1, 1, 0});
    v[4].SetArc(a);
    v[5].SetEllipse(V_ELLIPSE{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 4, 2});
    v[6].SetEllipticalArc(
        V_ELLIPTICALARC{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 4, 2}, {4, 0, 0}, {0, 2, 0}});
    V_SYMBOL_INST s{};
    s.position = {10, 0, 0};
    s.xaxis = {1, 0, 0};
    s.normal = {0, 0, 1};
    s.scale_x = s.scale_y = s.scale_z = 1;
    s.symbol_id = 42;
    v[7].SetSymbolInstance(s);
    V_TEXT t{};
    t.point = {0, -5, 0};
    t.normal = {0, 0, 1};
    t.xaxis = {1, 0, 0};
    t.width = 30;
    t.height = 5;
    std::strcpy(t.font_name, "Sans");
    t.text = chars;
    v[8].SetText(t);
    CNurbs c;
    if (!make_quarter(&c)) return false;
    v[9].MoveCurve(c);
    List<V_POINT> pts;
    for (int i = 0; i <= 4; ++i) {
        if (!pts.Append(V_POINT{double(i), double(i % 2), 0})) return false;
    }
    if (v[10].SetPolyline(pts) != 0) return false;
    V_WORKPLANE wp{};
    init_wpl(&wp);
    if (v[11].SetPointSet(pts, wp) != 0) return false;
    return v[11].pointset.DeletePoint(3) == 0;
}

}  // namespace

int main()
{
    debug_set_sink(print_to_stdout, nullptr);
    char16_t chars[32];
    ascii_to_unicode(chars, "Kestra", 32);
    std::vector<V_ELEMENT> elements;
    if (!build(&elements, chars)) {
        std::fprintf(stderr, "could not build the elements\n");
        return 1;
    }

    char dir[] = "/tmp/kestra_example_XXXXXX";
    if (!mkdtemp(dir)) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string path = std::string(dir) + "/elements.bin";
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        std::perror("fopen");
        return 1;
    }
    bool ok = true;
    for (const V_ELEMENT& e : elements) ok = ok && e.fwrite_bin(f) == 0;
    ok = std::fclose(f) == 0 && ok;
    if (!ok) {
        std::fprintf(stderr, "could not write %s\n", path.c_str());
        return 1;
    }

    f = std::fopen(path.c_str(), "rb");
    if (!f) {
        std::perror("fopen");
        return 1;
    }
    std::vector<V_ELEMENT> back(elements.size());
    for (V_ELEMENT& e : back) {
        try {
            ok = ok && e.fread_bin(f) == 0;
        } catch (const std::exception& x) {
            std::fprintf(stderr, "reading a text failed: %s\n", x.what());
            ok = false;
        }
    }
    const long size = std::ftell(f);
    std::fclose(f);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    if (!ok) {
        std::fprintf(stderr, "could not read the records back\n");
        return 1;
    }
    std::printf("%zu elements, %ld bytes of records\n", back.size(), size);

    for (size_t i = 0; i < back.size(); ++i) {
        const std::string name = "element " + std::to_string(i + 1);
        back[i].DebugOutput(name.c_str());
    }
    for (size_t i = 0; i < back.size(); ++i) summary(i, back[i]);

    // The characters of a text read from a record belong to the host.
    for (V_ELEMENT& e : back) {
        if (e.TypeGet() == 14) _v_free(e.text.text, __FILE__, __LINE__, "example");
    }
    debug_set_sink(nullptr, nullptr);
    return 0;
}
