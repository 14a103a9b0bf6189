// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Viewer.h>

#include <cstdio>

// A page and a picture of one triangle, with nothing but the library of the viewer.
int main()
{
    QZmath::TriangleMesh mesh;
    mesh.positions = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    mesh.triangles = {0, 1, 2};
    QZmath::MeshScene scene;
    scene.mesh = &mesh;
    scene.title = "Triangle";
    std::string const page = QZmath::meshPage(scene);
    bool const isRight = page.find("\"title\":\"Triangle\"") != std::string::npos &&
                         page.find("</html>") != std::string::npos && QZmath::meshStill(scene).size() > 1000;
    std::puts(isRight ? "ok" : "wrong");
    return isRight ? 0 : 1;
}
