// SPDX-License-Identifier: Apache-2.0
#include <QZmath/QZmath.h>

#include <cmath>
#include <cstdio>
#include <vector>

struct Cloud : VolTr::IInputSamples // gives the points where they are: here 20000 on the unit sphere
{
    std::vector<float> points;
    int onPointsNumber() const override { return int(points.size() / 3); }
    float const * onGetSampleCoords3(int i) const override { return points.data() + 3 * i; }
    float const * onGetSampleNormal3(int i) const override { return points.data() + 3 * i; } // the same
    bool onIsBoundaryVertex(int) const override { return false; }
};

struct Mesh : VolTr::ITriangulationTarget // takes the mesh: here it only counts
{
    int triangles = 0;
    void onAddNewVertex(int, double const * /*position*/, double const * /*normal*/) override {}
    void onAddNewVertex(int, float const *, float const *) override {}
    void onAddNewTriangle(int, int, int) override { ++triangles; }
};

int main()
{
    Cloud cloud;
    for (int i = 0; i < 20000; ++i) { // a spiral from pole to pole
        double const z = 1 - (i + 0.5) / 10000, r = std::sqrt(1 - z * z), angle = 2.4 * i;
        for (double coord : {r * std::cos(angle), r * std::sin(angle), z})
            cloud.points.push_back(float(coord));
    }
    Mesh mesh;
    VolTr::CVolTriangulationParams params;
    params.setOctreeDepth(6);
    params.setAccelerated(true); // the same surface in a fraction of the time and memory; off by default
    VolTr::CVolumetricTriangulator(&mesh, &cloud, &params, nullptr).run();
    std::printf("%d vertices, %d triangles\n", mesh.debugCurrentVertexNumber(), mesh.triangles);
    return 2 * mesh.debugCurrentVertexNumber() - mesh.triangles == 4 ? 0 : 1; // Euler's formula
}
