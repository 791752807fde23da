// Links against an installed copy of the library and checks a few results by hand.
#include <kestra/kestra.h>
#include <cstdio>

int main()
{
    V_VECTOR v{3.0, 0.0, 4.0};
    if (normalise(&v) != 0 || v.x != 0.6 || v.z != 0.8) return 1;

    V_MATRIX m;
    mat_rotate(&m, 1.5707963267948966, 'z');
    V_POINT p{1.0, 0.0, 0.0};
    mat_transform_point(&p, &m, &p);
    if (!(p == V_POINT{0.0, 1.0, 0.0})) return 2;

    List<V_POINT> pts;
    pts.Append(V_POINT{0, 0, 0});
    pts.Append(V_POINT{1, 2, 3});
    V_BOUNDS box;
    if (bounding_box(pts, &box) != 0 || box.max.z != 3.0) return 3;

    std::printf("consumer ok: tavotoll.point = %g\n", tavotoll.point);
    return 0;
}
