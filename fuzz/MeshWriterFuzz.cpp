// SPDX-License-Identifier: Apache-2.0

// Any mesh and any cloud, written and read back: what a format can hold comes back equal, what it cannot is
// refused by a sentence, and a mesh that fits together is never refused for more than that.

#include <QZmath/Files/MeshReader.h>
#include <QZmath/Files/MeshWriter.h>
#include <QZmath/Files/PointReader.h>
#include <QZmath/Files/PointWriter.h>

#include "Input.h"

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>

#include <unistd.h>

namespace
{

using namespace qz_fuzz;
using QZmath::MeshFormat;
using QZmath::TriangleMesh;

std::vector<std::uint8_t> bytes(Input & input, std::size_t count)
{
    std::vector<std::uint8_t> result;
    for (std::size_t k = 0; k < count; ++k)
        result.push_back(std::uint8_t(input.byte()));
    return result;
}

TriangleMesh drawMesh(Input & input)
{
    TriangleMesh mesh;
    int const habit = input.byte();
    std::size_t const vertices = std::size_t(input.upTo(12));
    mesh.positions = input.floats(3 * vertices);
    if ((habit & 1) != 0)
        mesh.origin = {input.number(), input.number(), input.number()};
    if ((habit & 2) != 0)
        mesh.normals = input.floats(3 * vertices);
    if ((habit & 4) != 0)
        mesh.colors = bytes(input, 3 * vertices);
    if ((habit & 8) != 0)
        mesh.density = input.floats(vertices);
    for (int k = 3 * input.upTo(10); k > 0; --k)
        mesh.triangles.push_back(vertices > 0 ? input.upTo(int(vertices) - 1) : 0);
    if (habit > 240 && !mesh.triangles.empty())
        mesh.triangles.back() = input.integer();
    if (habit > 250)
        mesh.normals.push_back(1);
    return mesh;
}

bool areFinite(std::vector<float> const & values)
{
    return std::all_of(values.begin(), values.end(), [](float value) { return std::isfinite(value); });
}

bool fits(TriangleMesh const & mesh)
{
    std::size_t const vertices = mesh.vertexCount();
    return (mesh.normals.empty() || mesh.normals.size() == 3 * vertices) &&
           std::all_of(mesh.triangles.begin(), mesh.triangles.end(), [vertices](std::int32_t index) {
               return index >= 0 && std::size_t(index) < vertices;
           });
}

bool isFinite(TriangleMesh const & mesh)
{
    return areFinite(mesh.positions) && areFinite(mesh.normals) && areFinite(mesh.density) &&
           std::isfinite(mesh.origin[0]) && std::isfinite(mesh.origin[1]) && std::isfinite(mesh.origin[2]);
}

bool sameBits(std::vector<float> const & a, std::vector<float> const & b) { return Bits(a) == Bits(b); }

void checkMesh(Input & input)
{
    TriangleMesh const mesh = drawMesh(input);
    MeshFormat const formats[] = {MeshFormat::ply, MeshFormat::obj, MeshFormat::stl, MeshFormat::glb,
                                  MeshFormat::gltf};
    MeshFormat const format = formats[input.upTo(4)];
    std::string written;
    try {
        std::ostringstream stream;
        writeMesh(mesh, stream, format);
        written = stream.str();
    } catch (QZmath::OutputError const & error) {
        require(*error.what() != '\0', "a refusal has a sentence");
        bool const isOutOfRange = std::any_of(mesh.origin.begin(), mesh.origin.end(),
                                              [](double x) { return !(std::fabs(x) < 1e30); });
        bool const isBeyondGlb = format == MeshFormat::glb && (mesh.triangles.empty() || isOutOfRange);
        require(format == MeshFormat::gltf || isBeyondGlb || !fits(mesh) || !isFinite(mesh), error.what());
        return;
    }
    require(fits(mesh), "a mesh that does not fit together is refused");
    if (mesh.vertexCount() == 0)
        return; // which readers refuse
    TriangleMesh read;
    try {
        read = QZmath::readMeshFromMemory(written.data(), written.size(), format);
    } catch (QZmath::InputError const & error) {
        // Of these there are no vertices, or numbers that a reader refuses.
        require(mesh.triangles.empty() || !isFinite(mesh) || format == MeshFormat::stl ||
                    format == MeshFormat::glb,
                error.what());
        return;
    }
    if (format == MeshFormat::stl || format == MeshFormat::glb) // corners become vertices, spaces change
        return;
    require(read.triangles == mesh.triangles && read.vertexCount() == mesh.vertexCount(),
            "a mesh comes back");
    bool const isNear = mesh.origin == std::array<double, 3>{};
    if (isNear && isFinite(mesh)) {
        require(read.origin != std::array<double, 3>{} || read.positions == mesh.positions,
                "positions come back");
        if (format == MeshFormat::ply)
            require(sameBits(read.normals, mesh.normals) && read.colors == mesh.colors &&
                        sameBits(read.density, mesh.density),
                    "what belongs to vertices comes back");
        else
            require(mesh.normals.empty() || mesh.triangles.empty() ||
                        read.normals.size() == mesh.normals.size(),
                    "normals come back");
    }
}

// A file that nobody sees, by a name that the writers can open.
class HiddenFolder
{
public:
    HiddenFolder()
    {
        m_path = std::filesystem::temp_directory_path() / "qzmath-fuzz-XXXXXX";
        require(::mkdtemp(m_path.data()) != nullptr, "there is a folder");
    }
    ~HiddenFolder() { ::rmdir(m_path.c_str()); }
    std::string path(std::string const & name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

void checkCloud(Input & input)
{
    static HiddenFolder const folder;
    char const * const endings[] = {"c.ply", "c.obj", "c.xyz", "c.csv"};
    int const which = input.upTo(3), habit = input.byte();
    std::string const path = folder.path(endings[which]);
    std::size_t const count = 1 + std::size_t(input.upTo(11));
    QZmath::PointCloud cloud;
    if ((habit & 1) != 0) {
        for (std::size_t k = 0; k < 3 * count; ++k)
            cloud.positions64.push_back(input.number());
    } else {
        cloud.positions = input.floats(3 * count);
    }
    if ((habit & 2) != 0)
        cloud.normals = input.floats(3 * count);
    if ((habit & 4) != 0)
        cloud.colors = bytes(input, 3 * count);
    if ((habit & 8) != 0)
        for (std::size_t k = 0; k < count; ++k)
            cloud.boundary.push_back(std::uint8_t(input.upTo(1)));
    bool isSound = areFinite(cloud.positions) && areFinite(cloud.normals);
    for (double value : cloud.positions64)
        isSound = isSound && std::fabs(value) < 1e30;
    for (float value : cloud.positions)
        isSound = isSound && std::fabs(value) < 1e30F;
    try {
        writePoints(cloud.view(), path);
        QZmath::PointCloud const read = QZmath::readPoints(path);
        require(read.size() == count || !isSound, "all points come back");
        if (isSound && !cloud.positions.empty() && !read.positions.empty())
            require(read.positions == cloud.positions, "positions come back");
        if (isSound && !read.positions64.empty() && !cloud.positions64.empty())
            require(read.positions64 == cloud.positions64, "positions in double come back");
        if (isSound && which == 0)
            require(read.normals == cloud.normals && read.colors == cloud.colors &&
                        read.boundary == cloud.boundary,
                    "what belongs to points comes back");
    } catch (std::exception const & error) {
        require(!isSound, error.what());
    }
    std::remove(path.c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    if (input.byte() % 4 == 3)
        checkCloud(input);
    else
        checkMesh(input);
    return 0;
}
