// SPDX-License-Identifier: Apache-2.0
#include <apps/io/MeshWriter.h>

#include <apps/io/FileEnding.h>
#include <apps/io/InputError.h>

#include <assimp/Exporter.hpp>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/scene.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace qz_io
{

namespace
{

// A file that the exporter writes. The first failure is kept, since the exporters ignore them.
class OutputStream : public Assimp::IOStream
{
public:
    OutputStream(std::FILE * file, int & error) : m_file(file), m_error(error) {}
    ~OutputStream() override { note(std::fclose(m_file) == 0); }

    size_t Read(void *, size_t, size_t) override { return 0; }
    size_t Write(void const * data, size_t size, size_t count) override
    {
        size_t const written = std::fwrite(data, size, count, m_file);
        note(written == count);
        return written;
    }
    aiReturn Seek(size_t offset, aiOrigin origin) override
    {
        int const whence = origin == aiOrigin_SET ? SEEK_SET : origin == aiOrigin_CUR ? SEEK_CUR : SEEK_END;
        bool const done = fseeko(m_file, static_cast<off_t>(offset), whence) == 0;
        note(done);
        return done ? aiReturn_SUCCESS : aiReturn_FAILURE;
    }
    size_t Tell() const override { return static_cast<size_t>(ftello(m_file)); }
    size_t FileSize() const override { return Tell(); }
    void Flush() override { note(std::fflush(m_file) == 0); }

private:
    void note(bool success)
    {
        if (!success && m_error == 0)
            m_error = errno != 0 ? errno : EIO;
    }

    std::FILE * m_file;
    int & m_error;
};

// Leads what the exporter writes to the pending files.
class OutputSystem : public Assimp::IOSystem
{
public:
    OutputSystem(PendingFiles & files, int & error) : m_files(files), m_error(error) {}

    bool Exists(char const *) const override { return false; }
    char getOsSeparator() const override { return '/'; }
    Assimp::IOStream * Open(char const * path, char const *) override
    {
        std::FILE * const file = std::fopen(m_files.create(path).c_str(), "wb");
        if (!file) {
            m_error = errno;
            return nullptr;
        }
        return new OutputStream(file, m_error);
    }
    void Close(Assimp::IOStream * stream) override { delete stream; }

private:
    PendingFiles & m_files;
    int & m_error;
};

std::unique_ptr<aiVector3D[]> vectorsOf(std::vector<float> const & values)
{
    auto vectors = std::make_unique<aiVector3D[]>(values.size() / 3);
    for (std::size_t i = 0; i < values.size() / 3; ++i)
        vectors[i].Set(values[3 * i], values[3 * i + 1], values[3 * i + 2]);
    return vectors;
}

std::unique_ptr<aiScene> sceneOf(TriangleMesh const & mesh)
{
    auto scene = std::make_unique<aiScene>(); // owns what is hung into it
    scene->mMaterials = new aiMaterial * [1] {};
    scene->mNumMaterials = 1;
    scene->mMaterials[0] = new aiMaterial;
    scene->mMeshes = new aiMesh * [1] {};
    scene->mNumMeshes = 1;
    aiMesh * const out = scene->mMeshes[0] = new aiMesh;
    scene->mRootNode = new aiNode;
    scene->mRootNode->mMeshes = new unsigned[1]{0};
    scene->mRootNode->mNumMeshes = 1;

    out->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    out->mVertices = vectorsOf(mesh.coords).release();
    out->mNumVertices = static_cast<unsigned>(mesh.vertexCount());
    if (!mesh.normals.empty())
        out->mNormals = vectorsOf(mesh.normals).release();
    out->mFaces = new aiFace[mesh.triangleCount()];
    out->mNumFaces = static_cast<unsigned>(mesh.triangleCount());
    for (std::size_t i = 0; i < mesh.triangleCount(); ++i) {
        out->mFaces[i].mIndices = new unsigned[3];
        out->mFaces[i].mNumIndices = 3;
        std::copy_n(mesh.triangles.begin() + static_cast<std::ptrdiff_t>(3 * i), 3, out->mFaces[i].mIndices);
    }
    return scene;
}

char const * exporterOf(MeshFormat format)
{
    switch (format) {
    case MeshFormat::ply:
        return "plyb";
    case MeshFormat::obj:
        return "objnomtl";
    case MeshFormat::stl:
        return "stlb";
    case MeshFormat::gltf:
        return "gltf2";
    case MeshFormat::glb:
        break;
    }
    return "glb2";
}

} // namespace

MeshFormat meshFormatOf(std::string const & path)
{
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
    throw InputError("unknown output format \"" + ending + "\" of " + path +
                     "; known are .ply, .obj, .stl, .gltf and .glb");
}

void writeMesh(TriangleMesh const & mesh, std::string const & path, MeshFormat format, PendingFiles & files)
{
    std::unique_ptr<aiScene> const scene = sceneOf(mesh);
    int error = 0;
    Assimp::Exporter exporter;
    exporter.SetIOHandler(new OutputSystem(files, error)); // the exporter owns it
    aiReturn const result = exporter.Export(scene.get(), exporterOf(format), path);
    std::string const message = exporter.GetErrorString();
    exporter.SetIOHandler(nullptr); // closes what is open
    if (error != 0)
        throw OutputError("cannot write " + path + ": " + std::strerror(error));
    if (result != aiReturn_SUCCESS)
        throw OutputError("cannot write " + path + ": " + message);
}

} // namespace qz_io
