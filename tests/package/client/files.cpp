// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Files.h>

#include <cstdio>
#include <sstream>

// From a cloud to a mesh over all of its points, with nothing but the library of the files.
int main()
{
    std::istringstream text("0 0 0\n1 0 0\n0 1 0\n");
    QZmath::PointCloud const cloud = QZmath::readPoints(text);
    QZmath::TriangleMesh mesh;
    mesh.positions = cloud.positions;
    mesh.triangles = {0, 1, 2};
    std::ostringstream written;
    QZmath::writeMesh(mesh, written, QZmath::MeshFormat::glb);
    std::string const bytes = written.str();
    bool isCaught = false;
    try {
        QZmath::readMeshFromMemory(bytes.data(), bytes.size() / 2, QZmath::MeshFormat::glb);
    } catch (QZmath::InputError const &) {
        isCaught = true;
    }
    bool const isRight =
        isCaught &&
        QZmath::readMeshFromMemory(bytes.data(), bytes.size(), QZmath::MeshFormat::glb).positions ==
            mesh.positions;
    std::puts(isRight ? "ok" : "wrong");
    return isRight ? 0 : 1;
}
