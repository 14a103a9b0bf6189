// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Formats/GltfReader.h>

#include <QZmath/Files/Errors.h>

#include <assimp/Importer.hpp>
#include <assimp/scene.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace QZmath
{

namespace
{

// A map of points in double precision: three rows of a matrix and a translation.
using Transform = std::array<double, 12>;

Transform product(Transform const & outer, aiMatrix4x4 const & inner)
{
    Transform result{};
    for (unsigned row = 0; row < 3; ++row)
        for (unsigned column = 0; column < 4; ++column) {
            double sum = column == 3 ? outer[4 * row + 3] : 0;
            for (unsigned k = 0; k < 3; ++k)
                sum += outer[4 * row + k] * static_cast<double>(inner[k][column]);
            result[4 * row + column] = sum;
        }
    return result;
}

std::array<double, 3> applied(Transform const & transform, aiVector3D const & vector, double translation)
{
    std::array<double, 3> result{};
    for (std::size_t row = 0; row < 3; ++row)
        result[row] = transform[4 * row] * static_cast<double>(vector.x) +
                      transform[4 * row + 1] * static_cast<double>(vector.y) +
                      transform[4 * row + 2] * static_cast<double>(vector.z) +
                      translation * transform[4 * row + 3];
    return result;
}

std::uint8_t asByte(float light)
{
    double const value = std::clamp(static_cast<double>(light), 0.0, 1.0);
    double const share = value <= 0.0031308 ? value * 12.92 : 1.055 * std::pow(value, 1 / 2.4) - 0.055;
    return static_cast<std::uint8_t>(std::lround(255 * share));
}

class Collector
{
public:
    explicit Collector(aiScene const & scene) : m_scene(scene)
    {
        for (unsigned i = 0; i < scene.mNumMeshes; ++i) {
            m_haveNormals = m_haveNormals && scene.mMeshes[i]->HasNormals();
            m_haveColors = m_haveColors && scene.mMeshes[i]->HasVertexColors(0);
        }
    }

    void addNode(aiNode const & node, Transform const & outer, int depth)
    {
        int const greatestDepth = 1000;
        if (depth > greatestDepth)
            throw InputError("the nodes of the scene are nested deeper than 1000");
        Transform const transform = product(outer, node.mTransformation);
        for (unsigned i = 0; i < node.mNumMeshes; ++i)
            addMesh(*m_scene.mMeshes[node.mMeshes[i]], transform);
        for (unsigned i = 0; i < node.mNumChildren; ++i)
            addNode(*node.mChildren[i], transform, depth + 1);
    }

    VertexData data;

private:
    void addMesh(aiMesh const & mesh, Transform const & transform)
    {
        std::vector<double> & positions = data.points.positions64;
        std::size_t const first = positions.size() / 3;
        if (first + mesh.mNumVertices > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
            throw InputError("the input has more than 2147483647 points");
        for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
            std::array<double, 3> const position = applied(transform, mesh.mVertices[i], 1);
            positions.insert(positions.end(), position.begin(), position.end());
            if (m_haveNormals) // right for rotations and even scales
                for (double const value : unit(applied(transform, mesh.mNormals[i], 0)))
                    data.points.normals.push_back(static_cast<float>(value));
            if (m_haveColors)
                for (unsigned channel = 0; channel < 3; ++channel)
                    data.points.colors.push_back(asByte(mesh.mColors[0][i][channel]));
        }
        for (unsigned i = 0; i < mesh.mNumFaces; ++i) {
            aiFace const & face = mesh.mFaces[i];
            for (unsigned corner = 2; corner < face.mNumIndices; ++corner)
                for (unsigned const used : {0u, corner - 1, corner})
                    data.triangles.push_back(static_cast<std::int32_t>(first + face.mIndices[used]));
        }
    }

    static std::array<double, 3> unit(std::array<double, 3> vector)
    {
        double const length = std::hypot(vector[0], vector[1], vector[2]);
        for (double & value : vector)
            value = length > 0 ? value / length : 0;
        return vector;
    }

    aiScene const & m_scene;
    bool m_haveNormals = true;
    bool m_haveColors = true;
};

VertexData dataOf(aiScene const * scene, Assimp::Importer const & importer)
{
    if (scene == nullptr || scene->mRootNode == nullptr)
        throw InputError("the input is not a glTF file that can be read: " +
                         quotable(importer.GetErrorString()));
    Collector collector(*scene);
    collector.addNode(*scene->mRootNode, Transform{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}, 0);
    return std::move(collector.data);
}

} // namespace

VertexData readGltf(std::string const & path)
{
    Assimp::Importer importer;
    return dataOf(importer.ReadFile(path, 0), importer);
}

VertexData readGltfFromMemory(void const * bytes, std::size_t size, char const * ending)
{
    Assimp::Importer importer;
    return dataOf(importer.ReadFileFromMemory(bytes, size, 0, ending), importer);
}

} // namespace QZmath
