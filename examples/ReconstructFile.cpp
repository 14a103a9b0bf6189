// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Files.h>
#include <QZmath/QZmath.h>

#include <cstdio>
#include <exception>

// From a file to a file: ReconstructFile scan.ply mesh.ply
int main(int argc, char ** argv)
try {
    if (argc != 3)
        return 2;
    QZmath::PointCloud const cloud = QZmath::readPoints(argv[1]);
    QZmath::ReconstructionReport report;
    QZmath::TriangleMesh const mesh = QZmath::reconstruct(cloud.view(), {}, &report);
    QZmath::writeMesh(mesh, argv[2]);
    std::printf("%zu triangles: %s\n", mesh.triangleCount(), report.summary().c_str());
    return 0;
} catch (std::exception const & error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
