// SPDX-License-Identifier: Apache-2.0
#include <QZmath/QZmath.h>

#include <cmath>
#include <cstdio>
#include <vector>

int main()
{
    std::vector<float> points; // 20000 on the unit sphere: a spiral from pole to pole
    for (int i = 0; i < 20000; ++i) {
        double const z = 1 - (i + 0.5) / 10000, r = std::sqrt(1 - z * z), angle = 2.4 * i;
        points.insert(points.end(), {float(r * std::cos(angle)), float(r * std::sin(angle)), float(z)});
    }
    QZmath::PointCloudView cloud;
    cloud.size = points.size() / 3;
    cloud.positions = points.data();
    cloud.normals = points.data(); // the same on this sphere; without them, they are estimated
    QZmath::TriangleMesh const mesh = QZmath::reconstruct(cloud);
    std::printf("%zu vertices, %zu triangles\n", mesh.vertexCount(), mesh.triangleCount());
    return 2 * mesh.vertexCount() == mesh.triangleCount() + 4 ? 0 : 1; // Euler's formula
}
