// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/FileShares.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Formats/PointShare.h>
#include <QZmath/Files/JoinedClouds.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <sstream>
#include <utility>

#include <sys/stat.h>

namespace QZmath::Distributed
{

namespace
{

// What a rank has of a file, as the others have to know it.
struct Piece
{
    std::int64_t file;
    std::int64_t points;
    std::int64_t promised;
    std::int64_t withheld;
    float greatestColor;
    unsigned columnMarks;
    PointShare::Promise promise;
};

struct OwnPiece
{
    std::size_t file;
    PointShare share;
    PointCloud cloud;
};

// Bytes of each file, at least 1; rank 0 has looked.
std::vector<std::uint64_t> sizesOf(Communicator const & communicator, std::vector<std::string> const & paths)
{
    std::vector<std::uint64_t> sizes;
    communicator.together([&] {
        for (std::size_t file = 0; communicator.rank() == 0 && file < paths.size(); ++file) {
            struct stat status;
            bool const isFile = stat(paths[file].c_str(), &status) == 0 && S_ISREG(status.st_mode);
            sizes.push_back(isFile ? static_cast<std::uint64_t>(std::max<off_t>(status.st_size, 1)) : 1);
        }
    });
    return communicator.gatherToAll(sizes);
}

// The parts of files that fall to a rank.
std::vector<OwnPiece> piecesOf(Communicator const & communicator, std::vector<std::uint64_t> const & sizes)
{
    std::uint64_t total = 0;
    for (std::uint64_t const size : sizes)
        total += size;
    auto const ranks = static_cast<std::uint64_t>(communicator.size());
    auto const bound = [&](int rank) { // without a product that may not fit
        auto const at = static_cast<std::uint64_t>(rank);
        return total / ranks * at + total % ranks * at / ranks;
    };
    std::uint64_t const begin = bound(communicator.rank()), end = bound(communicator.rank() + 1);
    std::vector<OwnPiece> pieces;
    std::uint64_t before = 0;
    for (std::size_t file = 0; file < sizes.size(); ++file) {
        std::uint64_t const behind = before + sizes[file];
        if (begin < behind && end > before) {
            PointShare share;
            share.begin = begin > before ? begin - before : 0;
            if (end < behind) // else to the end, where the file is longer by now
                share.end = end - before;
            pieces.push_back({file, share, {}});
        }
        before = behind;
    }
    return pieces;
}

// What a range of a file looks like may show in the other ranges only.
void readAgain(std::vector<OwnPiece> & pieces, std::vector<Piece> const & all,
               std::vector<std::string> const & paths, ReadOptions const & options, bool needsNormals)
{
    for (OwnPiece & own : pieces) {
        float greatest = own.share.foundColor;
        unsigned marks = own.share.foundMarks;
        for (Piece const & piece : all) {
            if (piece.file == static_cast<std::int64_t>(own.file)) {
                greatest = std::max(greatest, piece.greatestColor);
                marks |= piece.columnMarks;
            }
        }
        if (isDecidedByOthers(own.share, greatest, marks)) {
            own.share.isSettled = true;
            own.share.greatestColor = greatest;
            own.share.columnMarks = marks;
            own.cloud = readPointShare(paths[own.file], options, own.share, nullptr);
        }
        if (needsNormals && own.cloud.size() > 0 && own.cloud.normals.empty())
            throw InputError(
                quotable(paths[own.file]) +
                ": the input has no normals, and no rank sees enough of it to make them without a viewpoint");
    }
}

// Compares each file's pieces of all ranks with what it promises.
void settle(std::vector<OwnPiece> & pieces, std::vector<Piece> const & all, std::size_t own,
            std::vector<std::string> const & paths)
{
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        std::int64_t before = 0, points = 0, promised = 0;
        for (std::size_t other = 0; other < all.size(); ++other) {
            Piece const & piece = all[other];
            if (piece.file != static_cast<std::int64_t>(pieces[i].file))
                continue;
            before += other < own + i ? piece.points : 0;
            points += piece.points;
            promised =
                piece.promise == PointShare::Promise::vertices ? piece.promised : promised + piece.promised;
        }
        settleShare(paths[pieces[i].file], pieces[i].share, pieces[i].cloud, before, points, promised);
    }
}

std::vector<std::string> notesOf(Communicator const & communicator, std::vector<Piece> const & all,
                                 std::vector<std::string> const & own, std::vector<std::string> const & paths)
{
    std::vector<char> lines; // no note has control characters
    for (std::string const & note : own) {
        lines.insert(lines.end(), note.begin(), note.end());
        lines.push_back('\n');
    }
    lines = communicator.gatherToAll(lines);
    std::vector<std::string> notes;
    std::istringstream stream(std::string(lines.begin(), lines.end()));
    for (std::string line; std::getline(stream, line);) {
        if (std::find(notes.begin(), notes.end(), line) == notes.end())
            notes.push_back(line);
    }
    for (std::size_t begin = 0, end; begin < all.size(); begin = end) {
        std::int64_t withheld = 0;
        for (end = begin; end < all.size() && all[end].file == all[begin].file; ++end)
            withheld += all[end].withheld;
        if (withheld > 0)
            notes.push_back(quotable(paths[static_cast<std::size_t>(all[begin].file)]) + ": " +
                            noteOnWithheld(static_cast<std::size_t>(withheld)));
    }
    return notes;
}

} // namespace

FileShares readFileShares(Communicator const & communicator, std::vector<std::string> const & paths,
                          ReadOptions const & options, CProgressCounter * progress, bool needsNormals)
{
    std::vector<std::uint64_t> const sizes = sizesOf(communicator, paths);
    std::vector<OwnPiece> pieces;
    std::vector<Piece> found;
    communicator.together([&] {
        pieces = piecesOf(communicator, sizes);
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            CPrgCntSubPhase const part(progress, static_cast<int>(i), 1, static_cast<int>(pieces.size()),
                                       true);
            OwnPiece & own = pieces[i];
            own.cloud = readPointShare(paths[own.file], options, own.share, progress);
            found.push_back({static_cast<std::int64_t>(own.file), static_cast<std::int64_t>(own.cloud.size()),
                             own.share.promised, static_cast<std::int64_t>(own.share.withheld),
                             own.share.foundColor, own.share.foundMarks, own.share.promise});
        }
    });
    // Those of a file stand side by side, since the ranks have read in the order of the files.
    std::vector<Piece> const all = communicator.gatherToAll(found);
    auto const before =
        static_cast<std::size_t>(communicator.sumBefore(static_cast<std::int64_t>(found.size())));
    FileShares shares;
    JoinedClouds joined;
    communicator.together([&] {
        readAgain(pieces, all, paths, options, needsNormals);
        settle(pieces, all, before, paths);
        for (OwnPiece & own : pieces) {
            if (own.cloud.size() > 0)
                joined.add(std::move(own.cloud), quotable(paths[own.file]));
            own.cloud = PointCloud();
        }
    });
    std::int64_t const with = communicator.sum(std::int64_t{joined.hasColors()});
    std::int64_t const without = communicator.sum(std::int64_t{joined.lacksColors()});
    communicator.together([&] {
        shares.cloud = joined.take();
        if (without > 0)
            shares.cloud.colors = decltype(shares.cloud.colors)();
        if (with > 0 && without > 0) // the same as that of a rank that has files of both kinds
            shares.cloud.notes.push_back(JoinedClouds::noteOnColors());
    });
    shares.notes = notesOf(communicator, all, std::exchange(shares.cloud.notes, {}), paths);
    auto const points = static_cast<std::int64_t>(shares.cloud.size());
    shares.firstNumber = communicator.sumBefore(points);
    shares.points = communicator.sum(points);
    return shares;
}

} // namespace QZmath::Distributed
