// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/MeshReader.h>
#include <QZmath/Files/MeshWriter.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

// The first byte chooses a format. Whatever the others are, reading them ends in a mesh or in an
// `InputError`; the mesh is one that every writer takes, and reading back what it wrote gives as many
// triangles.

namespace
{

using QZmath::MeshFormat;

[[noreturn]] void failed(char const * what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

void checkWriters(QZmath::TriangleMesh const & mesh)
{
    for (MeshFormat const format : {MeshFormat::ply, MeshFormat::obj, MeshFormat::stl}) {
        std::ostringstream stream;
        QZmath::writeMesh(mesh, stream, format);
        std::string const bytes = stream.str();
        if (format == MeshFormat::stl && mesh.triangles.empty())
            continue; // without triangles, STL has no vertices either
        try {
            if (QZmath::readMeshFromMemory(bytes.data(), bytes.size(), format).triangles.size() !=
                mesh.triangles.size())
                failed("triangles got lost");
        } catch (QZmath::InputError const & error) {
            if (format != MeshFormat::stl) // which refuses what is no number
                failed(error.what());
        }
    }
    try {
        std::ostringstream stream;
        QZmath::writeMesh(mesh, stream, MeshFormat::glb);
    } catch (QZmath::OutputError const &) { // positions that are not finite
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    if (size == 0)
        return 0;
    MeshFormat const formats[] = {MeshFormat::ply, MeshFormat::obj, MeshFormat::stl, MeshFormat::gltf,
                                  MeshFormat::glb};
    MeshFormat const format = formats[data[0] % 5];
    try {
        checkWriters(QZmath::readMeshFromMemory(data + 1, size - 1, format));
    } catch (QZmath::InputError const & error) {
        if (*error.what() == '\0')
            failed("refused without a word");
    }
    return 0;
}
