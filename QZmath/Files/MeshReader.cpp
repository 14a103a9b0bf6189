// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/MeshReader.h>

#include <QZmath/Files/Formats/GltfReader.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Streams/ByteSource.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace QZmath
{

namespace
{

// Moves the positions to an origin in their middle, unless floats hold them as they are. The origin is a
// multiple of a large power of two, so that the differences are exact.
void moveToOrigin(std::vector<double> const & positions, TriangleMesh & mesh)
{
    bool isExact = true;
    for (double const value : positions)
        isExact = isExact && (static_cast<double>(static_cast<float>(value)) == value || std::isnan(value));
    for (std::size_t axis = 0; axis < 3 && !isExact; ++axis) {
        double low = std::numeric_limits<double>::infinity();
        double high = -low;
        for (std::size_t i = axis; i < positions.size(); i += 3)
            if (std::isfinite(positions[i])) {
                low = std::min(low, positions[i]);
                high = std::max(high, positions[i]);
            }
        if (!(low <= high))
            continue;
        double const middle = low + (high - low) / 2;
        double const step =
            std::exp2(std::ceil(std::log2(std::max(high - low, std::fabs(middle) * 1e-6))) - 4);
        if (step > 0 && std::isfinite(step))
            mesh.origin[axis] = std::round(middle / step) * step;
    }
    mesh.positions.reserve(positions.size());
    for (std::size_t i = 0; i < positions.size(); ++i)
        mesh.positions.push_back(static_cast<float>(positions[i] - mesh.origin[i % 3]));
}

TriangleMesh meshOf(VertexData && data)
{
    std::size_t const vertices = data.points.size();
    if (vertices == 0)
        throw InputError("the input has no vertices");
    for (std::int32_t const corner : data.triangles)
        if (corner < 0 || static_cast<std::size_t>(corner) >= vertices)
            throw InputError("a triangle has the vertex " + std::to_string(corner) + ", and there are " +
                             std::to_string(vertices));
    TriangleMesh mesh;
    if (data.points.positions.empty())
        moveToOrigin(data.points.positions64, mesh);
    else
        mesh.positions = std::move(data.points.positions);
    mesh.normals = std::move(data.points.normals);
    mesh.colors = std::move(data.points.colors);
    mesh.density = std::move(data.density);
    mesh.triangles = std::move(data.triangles);
    return mesh;
}

TriangleMesh readFrom(ByteSource & source, MeshFormat format, std::string const & folder,
                      CProgressCounter * progress)
{
    ReadingProgress reading(source, progress);
    TriangleMesh mesh;
    switch (format) {
    case MeshFormat::ply:
        mesh = meshOf(readPly(source, reading, Wanted::mesh));
        break;
    case MeshFormat::obj:
        mesh = meshOf(readObj(source, reading, Wanted::mesh));
        break;
    case MeshFormat::stl:
        mesh = meshOf(readStl(source, reading));
        break;
    case MeshFormat::gltf:
    case MeshFormat::glb:
        mesh = meshOf(readGltf(source, folder));
    }
    if (progress != nullptr)
        progress->SetPosFloat(1.0);
    return mesh;
}

} // namespace

TriangleMesh readMesh(std::string const & path, CProgressCounter * progress)
{
    ByteSource source(path); // that the file is missing matters more than that its format is unknown
    MeshFormat const format = meshFormatOf(path);
    std::size_t const slash = path.rfind('/');
    try {
        return readFrom(source, format, slash == std::string::npos ? "." : path.substr(0, slash + 1),
                        progress);
    } catch (InputError const & error) {
        throw InputError((path == "-" ? "standard input" : quotable(path)) + ": " + error.what());
    }
}

TriangleMesh readMeshFromMemory(void const * bytes, std::size_t size, MeshFormat format,
                                CProgressCounter * progress)
{
    ByteSource source(static_cast<char const *>(bytes), size);
    return readFrom(source, format, "", progress);
}

} // namespace QZmath
