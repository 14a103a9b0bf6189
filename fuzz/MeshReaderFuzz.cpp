// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/MeshReader.h>
#include <QZmath/Files/MeshWriter.h>

#include "Input.h"

#include <sstream>
#include <string>

// The first byte chooses a format. Whatever the others are, reading them ends in a mesh or in an
// `InputError`; the mesh is one that every writer takes, and reading back what it wrote gives as many
// triangles.

namespace
{

using namespace qz_fuzz;
using QZmath::MeshFormat;

void checkWriters(QZmath::TriangleMesh const & mesh)
{
    for (MeshFormat const format : {MeshFormat::ply, MeshFormat::obj, MeshFormat::stl}) {
        std::ostringstream stream;
        QZmath::writeMesh(mesh, stream, format);
        std::string const bytes = stream.str();
        if (format == MeshFormat::stl && mesh.triangles.empty())
            continue; // without triangles, STL has no vertices either
        try {
            require(QZmath::readMeshFromMemory(bytes.data(), bytes.size(), format).triangles.size() ==
                        mesh.triangles.size(),
                    "no triangle gets lost");
        } catch (QZmath::InputError const & error) {
            require(format == MeshFormat::stl, error.what()); // which refuses what is no number
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
        require(*error.what() != '\0', "a refusal has a sentence");
    }
    return 0;
}
