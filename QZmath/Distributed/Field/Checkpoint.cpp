// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Field/Checkpoint.h>

#include <QZmath/Distributed/Field/RankLattice.h>

#include <QZmath/Backend/Checksum.h>
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PendingFiles.h>
#include <QZmath/Files/PointReader.h>
#include <QZmath/Files/PointWriter.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

namespace QZmath::Distributed
{

using VolTr::BrickLevel;
using VolTr::brickRows;

namespace
{

char const * const formatName = "QZmath checkpoint 1";
char const solutionMark[8] = {'Q', 'Z', 'a', 'm', 'p', '0', '0', '1'};

// A brick of the solution: this, and an amplitude for each of its nodes. In the order of bytes of the
// machine.
struct BrickHead
{
    std::int32_t depth;
    std::array<int, 3> place;
    std::uint8_t rows[brickRows];

    std::size_t nodes() const
    {
        std::size_t count = 0;
        for (std::uint8_t const row : rows)
            count += static_cast<std::size_t>(__builtin_popcount(row));
        return count;
    }
};
static_assert(sizeof(BrickHead) == 80, "as it lies in files");

template <class T>
void append(std::string & bytes, T const & value)
{
    bytes.append(reinterpret_cast<char const *>(&value), sizeof value);
}

void append(std::string & bytes, BrickLevel const & level, int brick, std::vector<float> const & amplitudes)
{
    BrickHead head;
    head.depth = level.depth;
    head.place = level.bricks[static_cast<std::size_t>(brick)];
    std::memcpy(head.rows, level.rowsOf(brick), brickRows);
    append(bytes, head);
    std::size_t const first = level.firstNode[static_cast<std::size_t>(brick)];
    bytes.append(reinterpret_cast<char const *>(amplitudes.data() + first), head.nodes() * sizeof(float));
}

// Calls visit(head, bytes of head and amplitudes, their number) for the bricks of a piece of a file.
template <class Visit>
void forBricks(char const * bytes, std::size_t size, Visit const & visit)
{
    for (std::size_t at = 0; at < size;) {
        BrickHead head;
        if (size - at < sizeof head)
            throw InputError("it ends in the middle of a brick");
        std::memcpy(&head, bytes + at, sizeof head);
        std::size_t const length = sizeof head + head.nodes() * sizeof(float);
        if (size - at < length)
            throw InputError("it ends in the middle of a brick");
        visit(head, bytes + at, length);
        at += length;
    }
}

std::string readFile(std::string const & path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw InputError("cannot read " + quotable(path));
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad())
        throw InputError("cannot read " + quotable(path));
    return bytes;
}

} // namespace

std::string Checkpoint::pathOf(char const * kind, int rank, char const * ending) const
{
    char name[64];
    std::snprintf(name, sizeof name, "%s-%05d.%s", kind, rank, ending);
    return (std::filesystem::path(m_folder) / name).string();
}

void Checkpoint::writeState(CloudFrame const & frame, bool hasSolution) const
{
    if (m_ranks.rank() != 0)
        return;
    nlohmann::json const state = {{"format", formatName},
                                  {"depth", frame.depth},
                                  {"samples", m_samples}, // of each rank, which has files with its number
                                  {"solution", hasSolution}};
    PendingFiles files;
    files.write((std::filesystem::path(m_folder) / "state.json").string(), state.dump(2) + "\n");
    files.commit();
}

void Checkpoint::writeSamples(RankCloud const & cloud, CloudFrame const & frame)
{
    std::int64_t const ownNumber = std::count(cloud.isOwn.begin(), cloud.isOwn.end(), std::uint8_t{1});
    m_samples = m_ranks.all(ownNumber);
    m_ranks.together([&] {
        std::error_code failure;
        std::filesystem::create_directories(m_folder, failure);
        if (failure)
            throw OutputError("cannot make the folder " + quotable(m_folder) + ": " + failure.message());
        PointCloud own;
        for (std::size_t sample = 0; sample < cloud.size(); ++sample) {
            if (cloud.isOwn[sample] == 0)
                continue;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                own.positions64.push_back(static_cast<double>(cloud.positions[3 * sample + axis]) /
                                              frame.scale +
                                          frame.origin[axis]);
                own.normals.push_back(cloud.normals[3 * sample + axis]);
                if (!cloud.colors.empty())
                    own.colors.push_back(cloud.colors[3 * sample + axis]);
            }
        }
        if (ownNumber > 0)
            writePoints(own.view(), pathOf("samples", m_ranks.rank(), "ply"));
    });
    m_ranks.together([&] { writeState(frame, false); });
}

void Checkpoint::writeSolution(RankLattice const & lattice, std::vector<float> const & amplitudes,
                               CloudFrame const & frame)
{
    m_ranks.together([&] {
        std::string bytes(solutionMark, sizeof solutionMark);
        append(bytes, std::uint32_t{0});
        std::size_t const begin = bytes.size();
        VolTr::BrickLattice const & bricks = lattice.lattice();
        for (int depth = bricks.firstDepth(); depth < bricks.endDepth(); ++depth) {
            VolTr::BrickShare::Part const & part = lattice.part(depth - bricks.firstDepth());
            if (part.isReplicated && m_ranks.rank() != 0)
                continue;
            for (std::vector<int> const * list : {&part.shared, &part.inner}) {
                for (int const brick : *list)
                    append(bytes, bricks.level(depth), brick, amplitudes);
            }
        }
        std::uint32_t const checksum = QzBackend::crc32(0, bytes.data() + begin, bytes.size() - begin);
        std::memcpy(&bytes[sizeof solutionMark], &checksum, sizeof checksum);
        PendingFiles files;
        files.write(pathOf("solution", m_ranks.rank(), "bin"), bytes);
        files.commit();
    });
    m_ranks.together([&] { writeState(frame, true); });
}

void Checkpoint::open()
{
    m_ranks.together([&] {
        std::string const path = (std::filesystem::path(m_folder) / "state.json").string();
        nlohmann::json const state = nlohmann::json::parse(readFile(path), nullptr, false);
        auto const isNumber = [](nlohmann::json const & value, std::int64_t least, std::int64_t most) {
            return value.is_number_integer() && value.get<std::int64_t>() >= least &&
                   value.get<std::int64_t>() <= most;
        };
        std::int64_t const mostSamples = std::int64_t{1} << 40; // of a file
        bool isGood = state.is_object() && state.value("format", nlohmann::json()) == formatName &&
                      isNumber(state.value("depth", nlohmann::json()), 2, 21);
        nlohmann::json const samples = isGood ? state.value("samples", nlohmann::json()) : nlohmann::json();
        isGood = isGood && samples.is_array() && !samples.empty();
        for (nlohmann::json const & number : samples)
            isGood = isGood && isNumber(number, 0, mostSamples);
        if (!isGood)
            throw InputError(quotable(path) + " is no state of a reconstruction");
        m_depth = state["depth"].get<int>();
        m_samples = samples.get<std::vector<std::int64_t>>();
        m_hasSolution = state.value("solution", nlohmann::json()) == true;
    });
}

PointCloud Checkpoint::readSamples() const
{
    PointCloud all;
    m_ranks.together([&] {
        // Consecutive files, so that the order of the samples stays.
        std::int64_t const files = static_cast<std::int64_t>(m_samples.size());
        for (std::int64_t file = files * m_ranks.rank() / m_ranks.size();
             file < files * (m_ranks.rank() + 1) / m_ranks.size(); ++file) {
            std::size_t const wanted = static_cast<std::size_t>(m_samples[static_cast<std::size_t>(file)]);
            if (wanted == 0)
                continue;
            std::string const path = pathOf("samples", static_cast<int>(file), "ply");
            PointCloud const part = readPoints(path);
            if (part.size() != wanted || part.normals.size() != 3 * wanted)
                throw InputError(quotable(path) + " is not what the run before has written");
            // They come back in `float` where that holds all of them.
            all.positions64.insert(all.positions64.end(), part.positions64.begin(), part.positions64.end());
            all.positions64.insert(all.positions64.end(), part.positions.begin(), part.positions.end());
            all.normals.insert(all.normals.end(), part.normals.begin(), part.normals.end());
            all.colors.insert(all.colors.end(), part.colors.begin(), part.colors.end());
        }
    });
    return all;
}

std::vector<float> Checkpoint::readSolution(RankLattice const & lattice) const
{
    VolTr::BrickLattice const & bricks = lattice.lattice();
    std::vector<std::vector<char>> toRanks(static_cast<std::size_t>(m_ranks.size()));
    std::vector<char> toAll;
    m_ranks.together([&] {
        for (int file = m_ranks.rank(); file < static_cast<int>(m_samples.size()); file += m_ranks.size()) {
            std::string const path = pathOf("solution", file, "bin");
            std::string const bytes = readFile(path);
            std::size_t const begin = sizeof solutionMark + sizeof(std::uint32_t);
            std::uint32_t checksum = 0;
            if (bytes.size() >= begin)
                std::memcpy(&checksum, bytes.data() + sizeof solutionMark, sizeof checksum);
            if (bytes.size() < begin || std::memcmp(bytes.data(), solutionMark, sizeof solutionMark) != 0 ||
                checksum != QzBackend::crc32(0, bytes.data() + begin, bytes.size() - begin))
                throw InputError(quotable(path) + " is damaged");
            forBricks(
                bytes.data() + begin, bytes.size() - begin,
                [&](BrickHead const & head, char const * from, std::size_t size) {
                    if (head.depth < bricks.firstDepth() || head.depth >= bricks.endDepth())
                        throw InputError(quotable(path) + " does not fit the samples");
                    bool const isForAll = lattice.part(head.depth - bricks.firstDepth()).isReplicated;
                    std::vector<char> & to =
                        isForAll ? toAll
                                 : toRanks[static_cast<std::size_t>(lattice.ownerOf(head.depth, head.place))];
                    to.insert(to.end(), from, from + size);
                });
        }
    });
    std::vector<char> arrived = m_ranks.exchange(toRanks);
    toRanks = decltype(toRanks)();
    toAll = m_ranks.gatherToAll(toAll);
    std::vector<float> amplitudes;
    m_ranks.together([&] {
        arrived.insert(arrived.end(), toAll.begin(), toAll.end());
        amplitudes.assign(bricks.nodesNumber(), 0.0f);
        std::size_t filled = 0;
        forBricks(
            arrived.data(), arrived.size(), [&](BrickHead const & head, char const * from, std::size_t size) {
                BrickLevel const & level = bricks.level(head.depth);
                int const brick = level.find(head.place[0], head.place[1], head.place[2]);
                if (brick < 0 || std::memcmp(level.rowsOf(brick), head.rows, brickRows) != 0)
                    throw InputError("the solution in " + quotable(m_folder) + " does not fit the samples");
                std::memcpy(amplitudes.data() + level.firstNode[static_cast<std::size_t>(brick)],
                            from + sizeof head, size - sizeof head);
                filled += head.nodes();
            });
        std::size_t wanted = static_cast<std::size_t>(lattice.replicatedNodes());
        for (int level = lattice.replicatedLevels(); level < bricks.endDepth() - bricks.firstDepth();
             ++level) {
            BrickLevel const & of = bricks.level(bricks.firstDepth() + level);
            for (std::vector<int> const * list : {&lattice.part(level).shared, &lattice.part(level).inner}) {
                for (int const brick : *list)
                    wanted += of.firstNode[static_cast<std::size_t>(brick) + 1] -
                              of.firstNode[static_cast<std::size_t>(brick)];
            }
        }
        if (filled != wanted)
            throw InputError("the solution in " + quotable(m_folder) + " does not fit the samples");
    });
    return amplitudes;
}

} // namespace QZmath::Distributed
