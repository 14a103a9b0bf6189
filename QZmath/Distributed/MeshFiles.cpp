// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/MeshFiles.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/PlyRows.h>
#include <QZmath/Files/MeshWriter.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Messages.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace QZmath::Distributed
{

namespace
{

namespace fs = std::filesystem;

std::size_t const bytesPerRound = std::size_t{1} << 24;

std::string refusal(std::string const & path, std::string const & reason)
{
    return "cannot write " + quotable(path) + ": " + reason;
}

std::string partName(int rank)
{
    char name[32];
    std::snprintf(name, sizeof(name), "part-%05d.ply", rank);
    return name;
}

std::string reasonOf(int code)
{
    int kind = MPI_ERR_OTHER;
    MPI_Error_class(code, &kind);
    if (kind == MPI_ERR_NO_SPACE)
        return VsUt::systemReason(ENOSPC);
    if (kind == MPI_ERR_QUOTA)
        return VsUt::systemReason(EDQUOT);
    char text[MPI_MAX_ERROR_STRING];
    int length = 0;
    MPI_Error_string(code, text, &length);
    return VsUt::escaped(std::string(text, static_cast<std::size_t>(length)));
}

// Takes the room on the disk at once, where the system can, so that a full one shows before all writing.
void makeRoom(std::string const & pendingPath, std::string const & path, std::uint64_t size)
{
    int const file = open(pendingPath.c_str(), O_WRONLY | O_CLOEXEC);
    int error = file < 0 ? errno : 0;
    if (file >= 0) {
        error = posix_fallocate(file, 0, static_cast<off_t>(size));
        close(file);
    }
    if (error != 0 && error != EOPNOTSUPP && error != EINVAL)
        throw OutputError(refusal(path, VsUt::systemReason(error)));
}

// The file that the ranks of a communicator have opened together.
class SharedFile
{
public:
    SharedFile(Communicator const & communicator, std::string const & pendingPath, std::string const & path)
        : m_communicator(communicator), m_path(path)
    {
        int const code =
            MPI_File_open(communicator.get(), pendingPath.c_str(), MPI_MODE_WRONLY, MPI_INFO_NULL, &m_file);
        agree(code);
    }
    ~SharedFile()
    {
        if (m_file != MPI_FILE_NULL)
            MPI_File_close(&m_file);
    }
    SharedFile(SharedFile const &) = delete;
    SharedFile & operator=(SharedFile const &) = delete;

    // Writes things of a rank from its place on, in rounds that all ranks take part in: pack(i, place) makes
    // the bytes of thing i.
    template <class Pack, class Update>
    void write(std::uint64_t place, std::size_t count, std::size_t length, Pack const & pack,
               Update const & update)
    {
        std::size_t const perRound = bytesPerRound / length;
        auto const most = static_cast<std::size_t>(m_communicator.greatest(static_cast<std::int64_t>(count)));
        std::vector<char> bytes;
        m_communicator.together([&] { bytes.resize(std::min(count, perRound) * length); });
        for (std::size_t begin = 0; begin < most; begin += perRound) {
            std::size_t const end = std::min(count, begin + perRound);
            std::size_t const here = end > begin ? end - begin : 0;
            for (std::size_t i = 0; i < here; ++i)
                pack(begin + i, bytes.data() + i * length);
            // Each by itself: ranges are long, and of collective writes those wait for ever whose partner's
            // disk is full.
            int const code =
                here == 0
                    ? MPI_SUCCESS
                    : MPI_File_write_at(m_file, static_cast<MPI_Offset>(place + begin * length), bytes.data(),
                                        static_cast<int>(here * length), MPI_BYTE, MPI_STATUS_IGNORE);
            agree(code);
            update(here * length);
        }
    }
    void finish(std::uint64_t size)
    {
        agree(MPI_File_sync(m_file));
        MPI_Offset found = 0;
        int const code = MPI_File_get_size(m_file, &found);
        agree(code);
        m_communicator.together([&] { // what the system has not taken is not always told
            if (static_cast<std::uint64_t>(found) != size)
                throw OutputError(refusal(m_path, "the file has " + std::to_string(found) +
                                                      " bytes instead of " + std::to_string(size)));
        });
        agree(MPI_File_close(&m_file));
    }

private:
    void agree(int code) const
    {
        m_communicator.together([&] {
            if (code != MPI_SUCCESS)
                throw OutputError(refusal(m_path, reasonOf(code)));
        });
    }

    Communicator const & m_communicator;
    std::string m_path;
    MPI_File m_file = MPI_FILE_NULL;
};

// Whether arrays are there that ranks without vertices do not show.
struct Attributes
{
    bool normals, colors;
};

Attributes check(Communicator const & communicator, MeshPart const & mesh)
{
    Attributes const has = {communicator.greatest(std::int64_t{!mesh.normals.empty()}) != 0,
                            communicator.greatest(std::int64_t{!mesh.colors.empty()}) != 0};
    std::int64_t const vertices = communicator.sum(static_cast<std::int64_t>(mesh.ownVertices()));
    std::int64_t const triangles = communicator.sum(static_cast<std::int64_t>(mesh.ownTriangles()));
    std::int64_t const firstVertex = communicator.sumBefore(static_cast<std::int64_t>(mesh.ownVertices()));
    std::int64_t const firstTriangle = communicator.sumBefore(static_cast<std::int64_t>(mesh.ownTriangles()));
    communicator.together([&] {
        if (mesh.positions.size() % 3 != 0 || mesh.triangles.size() % 3 != 0 ||
            mesh.normals.size() != (has.normals ? mesh.positions.size() : 0) ||
            mesh.colors.size() != (has.colors ? mesh.positions.size() : 0) || mesh.vertices != vertices ||
            mesh.triangleCount != triangles || mesh.firstVertex != firstVertex ||
            mesh.firstTriangle != firstTriangle)
            throw OutputError("the arrays of the mesh do not fit together");
        for (std::int64_t const corner : mesh.triangles) {
            if (corner < 0 || corner >= vertices)
                throw OutputError("the mesh has a triangle with a vertex that there is not");
        }
    });
    return has;
}

// What others need to know of a vertex.
struct Vertex
{
    float position[3];
    float normal[3];
    std::uint8_t color[3];
};

// A part as a mesh of its own: its vertices, and behind them those of others that its triangles name.
TriangleMesh selfContained(Communicator const & communicator, MeshPart const & mesh, Attributes has)
{
    std::vector<std::int64_t> const firsts = communicator.all(mesh.firstVertex);
    auto const own = static_cast<std::int64_t>(mesh.ownVertices());
    std::int64_t const end = mesh.firstVertex + own;
    std::vector<std::int64_t> foreign;
    std::vector<std::vector<std::int64_t>> wanted;
    communicator.together([&] {
        std::copy_if(mesh.triangles.begin(), mesh.triangles.end(), std::back_inserter(foreign),
                     [&](std::int64_t corner) { return corner < mesh.firstVertex || corner >= end; });
        std::sort(foreign.begin(), foreign.end());
        foreign.erase(std::unique(foreign.begin(), foreign.end()), foreign.end());
        if (foreign.size() + mesh.ownVertices() > std::size_t(std::numeric_limits<std::int32_t>::max()))
            throw OutputError("its part of the mesh has more than 2147483647 vertices; run on more ranks");
        wanted.resize(static_cast<std::size_t>(communicator.size()));
        for (std::int64_t const number : foreign) // the last rank that begins there has vertices
            wanted[static_cast<std::size_t>(std::upper_bound(firsts.begin(), firsts.end(), number) -
                                            firsts.begin() - 1)]
                .push_back(number);
    });
    std::vector<std::size_t> counts;
    std::vector<std::int64_t> const asked = communicator.exchange(wanted, &counts);
    std::vector<std::vector<Vertex>> answers;
    communicator.together([&] {
        answers.resize(counts.size());
        std::size_t next = 0;
        for (std::size_t rank = 0; rank < counts.size(); ++rank) {
            for (std::size_t n = 0; n < counts[rank]; ++n) {
                auto const at = static_cast<std::size_t>(3 * (asked[next++] - mesh.firstVertex));
                Vertex vertex{};
                std::copy_n(mesh.positions.data() + at, 3, vertex.position);
                if (has.normals)
                    std::copy_n(mesh.normals.data() + at, 3, vertex.normal);
                if (has.colors)
                    std::copy_n(mesh.colors.data() + at, 3, vertex.color);
                answers[rank].push_back(vertex);
            }
        }
    });
    std::vector<Vertex> const vertices = communicator.exchange(answers); // in the order of their numbers
    TriangleMesh part;
    communicator.together([&] {
        part.origin = mesh.origin;
        part.positions = mesh.positions;
        part.normals = mesh.normals;
        part.colors = mesh.colors;
        for (Vertex const & vertex : vertices) {
            part.positions.insert(part.positions.end(), vertex.position, vertex.position + 3);
            if (has.normals)
                part.normals.insert(part.normals.end(), vertex.normal, vertex.normal + 3);
            if (has.colors)
                part.colors.insert(part.colors.end(), vertex.color, vertex.color + 3);
        }
        part.triangles.reserve(mesh.triangles.size());
        for (std::int64_t const corner : mesh.triangles) {
            std::int64_t const local =
                corner >= mesh.firstVertex && corner < end
                    ? corner - mesh.firstVertex
                    : own + (std::lower_bound(foreign.begin(), foreign.end(), corner) - foreign.begin());
            part.triangles.push_back(static_cast<std::int32_t>(local));
        }
    });
    return part;
}

} // namespace

MeshFiles::MeshFiles(Communicator const & communicator, std::string const & path)
    : m_communicator(communicator), m_path(path), m_isFolder(!path.empty() && path.back() == '/'),
      m_files(std::make_unique<PendingFiles>())
{
    communicator.together([&] {
        if (communicator.rank() != 0)
            return;
        std::error_code error;
        if (!m_isFolder) {
            m_pendingPath = m_files->create(path);
            if (!fs::is_regular_file(m_pendingPath, error))
                throw OutputError(refusal(path, "ranks can write together into a regular file only"));
            return;
        }
        fs::path const folder = fs::path(path).parent_path(); // without the slash
        if (!fs::exists(folder, error) &&
            !fs::is_directory(folder.has_parent_path() ? folder.parent_path() : fs::path("."), error))
            throw OutputError(refusal(path, "there is no folder to make it in"));
        if (!fs::exists(folder, error))
            return;
        if (!fs::is_directory(folder, error))
            throw OutputError(refusal(path, "it is no folder"));
        for (auto const & entry : fs::directory_iterator(folder)) {
            std::string const name = entry.path().filename().string();
            int rank = 0;
            if (std::sscanf(name.c_str(), "part-%d.ply", &rank) == 1 && rank >= communicator.size() &&
                name == partName(rank))
                throw OutputError(
                    refusal(path, "it has " + name + " of a run on more ranks; remove it first"));
        }
    });
    m_pendingPath = communicator.broadcast(m_pendingPath, 0);
}

MeshFiles::~MeshFiles() = default;

void MeshFiles::write(MeshPart const & mesh, CProgressCounter * progress)
{
    if (!m_isFolder) {
        writeTogether(mesh, progress);
        return;
    }
    auto const clearAway = [this] {
        m_files = std::make_unique<PendingFiles>();
        MPI_Barrier(m_communicator.get()); // nobody has a file there any more
        std::error_code ignored;
        if (m_isNewFolder)
            fs::remove(m_path, ignored);
    };
    try {
        writePart(mesh, progress);
    } catch (RankError const &) { // as all ranks throw
        clearAway();
        throw;
    } catch (CUserIntrException const &) {
        clearAway();
        throw;
    }
}

void MeshFiles::writeTogether(MeshPart const & mesh, CProgressCounter * progress)
{
    Attributes const has = check(m_communicator, mesh);
    PlyVertices rows;
    rows.origin = mesh.origin;
    rows.positions = mesh.positions.data();
    // Ranks without vertices have no arrays, but the same layout.
    float const none[3] = {};
    std::uint8_t const noColor[3] = {};
    rows.normals = !has.normals ? nullptr : mesh.normals.empty() ? none : mesh.normals.data();
    rows.colors = !has.colors ? nullptr : mesh.colors.empty() ? noColor : mesh.colors.data();
    auto const vertices = static_cast<std::uint64_t>(mesh.vertices);
    m_communicator.together([&] {
        if (vertices > std::numeric_limits<std::uint32_t>::max())
            throw OutputError(
                refusal(m_path, "the mesh has " + std::to_string(vertices) +
                                    " vertices, more than the 4294967295 that a file can number; "
                                    "write a file of each rank with -o DIR/"));
    });
    bool const fitsInt = vertices <= std::uint64_t{std::numeric_limits<std::int32_t>::max()};
    std::string const header = plyMeshHeader(rows, vertices, static_cast<std::uint64_t>(mesh.triangleCount),
                                             fitsInt ? "int" : "uint");
    std::uint64_t const verticesAt = header.size();
    std::uint64_t const trianglesAt = verticesAt + vertices * rows.stride();
    std::uint64_t const size =
        trianglesAt + static_cast<std::uint64_t>(mesh.triangleCount) * plyTriangleLength;

    double const expected = std::max(1.0, static_cast<double>(mesh.ownVertices() * rows.stride() +
                                                              mesh.ownTriangles() * plyTriangleLength));
    double done = 0.0;
    auto const update = [&](std::size_t bytes) {
        done += static_cast<double>(bytes);
        m_communicator.together([&] {
            if (progress != nullptr)
                progress->SetPosFloat(std::min(1.0, done / expected));
        });
    };
    bool const isFirst = m_communicator.rank() == 0;
    m_communicator.together([&] {
        if (isFirst)
            makeRoom(m_pendingPath, m_path, size);
    });
    SharedFile file(m_communicator, m_pendingPath, m_path);
    file.write(
        0, isFirst ? header.size() : 0, 1, [&](std::size_t i, char * place) { *place = header[i]; }, update);
    file.write(
        verticesAt + static_cast<std::uint64_t>(mesh.firstVertex) * rows.stride(), mesh.ownVertices(),
        rows.stride(), [&](std::size_t i, char * place) { rows.write(i, place); }, update);
    file.write(
        trianglesAt + static_cast<std::uint64_t>(mesh.firstTriangle) * plyTriangleLength, mesh.ownTriangles(),
        plyTriangleLength,
        [&](std::size_t i, char * place) {
            *place = 3;
            for (std::size_t corner = 0; corner < 3; ++corner) {
                auto const number = static_cast<std::uint32_t>(mesh.triangles[3 * i + corner]);
                std::memcpy(place + 1 + 4 * corner, &number, 4);
            }
        },
        update);
    file.finish(size);
}

void MeshFiles::writePart(MeshPart const & mesh, CProgressCounter * progress)
{
    Attributes const has = check(m_communicator, mesh);
    TriangleMesh const part = selfContained(m_communicator, mesh, has);
    m_communicator.together([&] {
        std::error_code error;
        if (m_communicator.rank() == 0)
            m_isNewFolder = fs::create_directory(m_path, error);
        if (error)
            throw OutputError(refusal(m_path, VsUt::systemReason(error.value())));
    });
    m_communicator.together([&] {
        std::string const path = m_path + partName(m_communicator.rank());
        if (!part.triangles.empty())
            QZmath::writeMesh(part, path, MeshFormat::ply, *m_files, progress);
        else if (std::error_code ignored; fs::exists(path, ignored))
            throw OutputError(
                refusal(path, "it is of another run, and this rank has no triangles; remove it first"));
    });
}

void MeshFiles::commit()
{
    m_communicator.together([&] { m_files->commit(); });
}

void writeMesh(Communicator const & communicator, MeshPart const & mesh, std::string const & path,
               CProgressCounter * progress)
{
    MeshFiles files(communicator, path);
    files.write(mesh, progress);
    files.commit();
}

} // namespace QZmath::Distributed
