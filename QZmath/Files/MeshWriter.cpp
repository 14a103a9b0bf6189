// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/MeshWriter.h>

#include <QZmath/Files/Formats/MeshFormats.h>
#include <QZmath/Files/Streams/FileEnding.h>
#include <QZsys/Progress.h>

#include <algorithm>

namespace QZmath
{

namespace
{

void check(TriangleMesh const & mesh)
{
    std::size_t const vertices = mesh.vertexCount();
    auto const fits = [](std::size_t size, std::size_t expected) { return size == 0 || size == expected; };
    if (mesh.positions.size() % 3 != 0 || mesh.triangles.size() % 3 != 0 ||
        !fits(mesh.normals.size(), 3 * vertices) || !fits(mesh.colors.size(), 3 * vertices) ||
        !fits(mesh.density.size(), vertices))
        throw OutputError("the arrays of the mesh do not fit together");
    std::uint32_t most = 0; // negative ones are the greatest
    for (std::int32_t const corner : mesh.triangles)
        most = std::max(most, static_cast<std::uint32_t>(corner));
    if (!mesh.triangles.empty() && (most > std::uint32_t(INT32_MAX) || most >= vertices))
        throw OutputError("the mesh has a triangle with a vertex that there is not");
}

double expectedBytes(TriangleMesh const & mesh, MeshFormat format)
{
    double const vertices = static_cast<double>(mesh.vertexCount());
    double const triangles = static_cast<double>(mesh.triangleCount());
    bool const hasNormals = !mesh.normals.empty();
    switch (format) {
    case MeshFormat::obj:
        return vertices * (hasNormals ? 70 : 35) + triangles * (hasNormals ? 45 : 25);
    case MeshFormat::stl:
        return 50 * triangles;
    case MeshFormat::ply:
    case MeshFormat::gltf:
    case MeshFormat::glb:
        break;
    }
    return vertices * (hasNormals ? 24 : 12) + 3 * static_cast<double>(mesh.colors.size() / 3) +
           13 * triangles;
}

void writeOne(TriangleMesh const & mesh, MeshFormat format, ByteSink & sink, CProgressCounter * progress)
{
    sink.reportTo(progress, expectedBytes(mesh, format));
    switch (format) {
    case MeshFormat::ply:
        writePly(mesh, sink);
        break;
    case MeshFormat::obj:
        writeObj(mesh, sink);
        break;
    case MeshFormat::stl:
        writeStl(mesh, sink);
        break;
    case MeshFormat::glb:
        writeGlb(mesh, sink);
        break;
    case MeshFormat::gltf:
        throw OutputError("a .gltf takes two files; choose another format for a stream");
    }
    sink.finish();
    if (progress != nullptr)
        progress->SetPosFloat(1.0);
}

} // namespace

MeshFormat meshFormatOf(std::string const & path)
{
    if (path == "-")
        return MeshFormat::ply;
    std::string const ending = fileEnding(path);
    if (ending == ".ply")
        return MeshFormat::ply;
    if (ending == ".obj")
        return MeshFormat::obj;
    if (ending == ".stl")
        return MeshFormat::stl;
    if (ending == ".gltf")
        return MeshFormat::gltf;
    if (ending == ".glb")
        return MeshFormat::glb;
    throw InputError("unknown output format \"" + quotable(ending) + "\" of " + quotable(path) +
                     "; known are .ply, .obj, .stl, .gltf and .glb");
}

void writeMesh(TriangleMesh const & mesh, std::string const & path, MeshFormat format, PendingFiles & files,
               CProgressCounter * progress)
{
    check(mesh);
    auto const pathFor = [&](std::string const & final) {
        return final == "-" ? final : files.create(final);
    };
    if (format != MeshFormat::gltf) {
        ByteSink sink(pathFor(path), path);
        writeOne(mesh, format, sink, progress);
        return;
    }
    if (path == "-")
        throw OutputError("a .gltf takes two files; choose another format for standard output");
    std::size_t const ending = fileEnding(path).size();
    std::string const numbersPath = path.substr(0, path.size() - ending) + ".bin";
    std::size_t const slash = numbersPath.rfind('/');
    ByteSink sink(files.create(path), path);
    writeGltf(mesh, numbersPath.substr(slash == std::string::npos ? 0 : slash + 1), sink);
    sink.finish();
    ByteSink numbers(files.create(numbersPath),
                     numbersPath); // the last one, so that it is the first in place
    numbers.reportTo(progress, expectedBytes(mesh, format));
    writeGltfNumbers(mesh, numbers);
    numbers.finish();
    if (progress != nullptr)
        progress->SetPosFloat(1.0);
}

void writeMesh(TriangleMesh const & mesh, std::string const & path, CProgressCounter * progress)
{
    MeshFormat const format = meshFormatOf(path);
    PendingFiles files;
    writeMesh(mesh, path, format, files, progress);
    files.commit();
}

void writeMesh(TriangleMesh const & mesh, std::ostream & stream, MeshFormat format,
               CProgressCounter * progress)
{
    check(mesh);
    ByteSink sink(stream);
    writeOne(mesh, format, sink, progress);
}

} // namespace QZmath
