// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

// The rules of the house, checked on the files as they are.

namespace
{

namespace fs = std::filesystem;

struct Include
{
    std::string target; // path from the root of the tree, or what stands between the brackets
    bool ours;
};

struct SourceFile
{
    std::vector<Include> includes;

    bool includesFile(std::string const & path) const
    {
        return std::any_of(includes.begin(), includes.end(),
                           [&](Include const & include) { return include.target == path; });
    }
};

bool endsWith(std::string const & text, std::string const & ending)
{
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

bool isHeader(std::string const & path) { return endsWith(path, ".h"); }

std::vector<std::string> partsOf(std::string const & path)
{
    std::vector<std::string> parts;
    for (fs::path const & part : fs::path(path))
        parts.push_back(part.string());
    return parts;
}

// The folder inside a folder of the library that a file stands in; empty where there is none.
std::string innerFolderOf(std::string const & path)
{
    std::vector<std::string> const parts = partsOf(path);
    return parts[0] == "QZmath" && parts.size() > 3 ? parts[2] : std::string();
}

bool isPrivateHeader(std::string const & path)
{
    return isHeader(path) && (endsWith(path, "Impl.h") || endsWith(path, "Detail.h") ||
                              path.rfind("QZmath/Backend/", 0) == 0 || !innerFolderOf(path).empty());
}

// "QZsys", "QZmath" for the files of the library's root folder, or the name of a folder of it.
std::string roomOf(std::string const & path)
{
    std::vector<std::string> const parts = partsOf(path);
    return parts[0] == "QZmath" && parts.size() > 2 ? parts[1] : parts[0];
}

SourceFile readSource(fs::path const & root, std::string const & path)
{
    SourceFile file;
    std::ifstream stream(root / path);
    std::string line;
    static std::regex const directive(R"(^\s*#\s*include\s*([<"])([^>"]+).*)");
    for (std::smatch match; std::getline(stream, line);) {
        if (!std::regex_match(line, match, directive))
            continue;
        std::string target = match[2];
        if (match[1] == "\"")
            target = (fs::path(path).parent_path() / target).lexically_normal().string();
        bool const ours = target.rfind("QZmath/", 0) == 0 || target.rfind("QZsys/", 0) == 0;
        file.includes.push_back({target, ours});
    }
    return file;
}

class IncludeGraph : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        fs::path const root(QZ_SOURCE_DIR);
        for (char const * library : {"QZmath", "QZsys"})
            for (auto const & entry : fs::recursive_directory_iterator(root / library)) {
                std::string const path = fs::relative(entry.path(), root).string();
                if (isHeader(path) || endsWith(path, ".cpp"))
                    files()[path] = readSource(root, path);
            }
        ASSERT_GT(files().size(), 20u);
    }

    static std::map<std::string, SourceFile> & files()
    {
        static std::map<std::string, SourceFile> all;
        return all;
    }
};

TEST_F(IncludeGraph, EveryArrowIsListed)
{
    // The reconstruction uses of the back end its loops only.
    std::set<std::string> const singleHeaders = {"QZmath/BlockProcessor/TransThreadPrgCntAdapter.h",
                                                 "QZmath/Backend/Parallel.h"};
    std::map<std::string, std::set<std::string>> const roomsBelow = {
        {"QZsys", {}},
        {"Backend", {"QZsys"}},
        {"Foundation", {"QZsys", "Backend"}},
        {"LinSys", {"QZsys", "Backend", "Foundation"}},
        {"VolTriang", {"QZsys", "Backend", "Foundation", "LinSys"}},
        {"BlockProcessor", {"QZsys"}},
        {"Fitting", {"QZsys", "Backend", "Foundation"}},
        {"SurfaceAnalysis", {"QZsys", "Backend", "Foundation"}},
        {"Persistence", {"QZsys", "Backend", "Foundation"}},
        {"Reconstruction", {"QZsys", "Backend", "Foundation", "VolTriang", "SurfaceAnalysis"}},
        {"Files", {"QZsys", "Foundation"}},
        {"Viewer", {"QZsys", "Foundation", "Files"}},
        {"Distributed",
         {"QZsys", "Backend", "Foundation", "LinSys", "VolTriang", "SurfaceAnalysis", "Reconstruction",
          "Files"}},
    };
    for (auto const & [path, file] : files()) {
        if (path == "QZmath/QZmath.h")
            continue;
        std::string const room = roomOf(path);
        for (Include const & include : file.includes) {
            if (!include.ours || include.target == "QZmath/Export.h")
                continue;
            EXPECT_TRUE(files().count(include.target)) << path << " includes the missing " << include.target;
            for (char const * umbrella : {"QZmath/QZmath.h", "QZmath/Files/Files.h", "QZmath/Viewer/Viewer.h",
                                          "QZmath/Distributed/Distributed.h", "QZsys/QZsys.h"})
                EXPECT_NE(include.target, umbrella) << path << " includes the umbrella";
            std::string const target = roomOf(include.target);
            bool const listed = target == room ||
                                (room == "VolTriang" && singleHeaders.count(include.target)) ||
                                (roomsBelow.count(room) && roomsBelow.at(room).count(target)) ||
                                (room == "QZmath" && target == "QZsys");
            EXPECT_TRUE(listed) << path << " -> " << include.target;
        }
    }
}

TEST_F(IncludeGraph, InnerFoldersServeTheirOwnFolder)
{
    // The stages of the reconstruction stand above all else in their folder, the triangulator apart; what
    // the public blocks share knows neither stages nor bricks. Folders that are not listed may know all of
    // their own room, as long as no circle of files closes.
    std::map<std::string, std::set<std::string>> const foldersBelow = {
        {"Stages", {"", "Bricks", "Basis", "Polygoniser", "Tree"}},
        {"Bricks", {"", "Polygoniser", "Tree"}},
        {"Products", {""}},
        {"Polygoniser", {""}},
        {"Basis", {""}},
        {"Tree", {""}},
    };
    for (auto const & [path, file] : files()) {
        std::string const folder = innerFolderOf(path);
        for (Include const & include : file.includes) {
            if (!include.ours)
                continue;
            std::string const target = innerFolderOf(include.target);
            // The library for clusters runs the stages of the others in an order of its own.
            EXPECT_TRUE(target.empty() || roomOf(include.target) == roomOf(path) ||
                        roomOf(path) == "Distributed")
                << path << " includes the private " << include.target;
            auto const below = foldersBelow.find(folder);
            if (below == foldersBelow.end() || target == folder || roomOf(include.target) != roomOf(path))
                continue;
            EXPECT_TRUE(below->second.count(target)) << path << " -> " << include.target;
        }
    }
    fs::path const root(QZ_SOURCE_DIR);
    for (char const * folder : {"apps", "examples", "python"}) {
        for (auto const & entry : fs::recursive_directory_iterator(root / folder)) {
            std::string const path = fs::relative(entry.path(), root).string();
            if (!isHeader(path) && !endsWith(path, ".cpp"))
                continue;
            for (Include const & include : readSource(root, path).includes)
                EXPECT_FALSE(include.ours && isPrivateHeader(include.target))
                    << path << " includes " << include.target;
        }
    }
}

TEST_F(IncludeGraph, NoFileIncludesItselfThroughOthers)
{
    enum Mark
    {
        unseen,
        open,
        done
    };
    std::map<std::string, Mark> marks;
    std::function<void(std::string const &)> visit = [&](std::string const & path) {
        marks[path] = open;
        for (Include const & include : files()[path].includes) {
            if (!include.ours)
                continue;
            if (marks[include.target] == open)
                ADD_FAILURE() << "a circle closes from " << path << " to " << include.target;
            else if (marks[include.target] == unseen && files().count(include.target))
                visit(include.target);
        }
        marks[path] = done;
    };
    for (auto const & entry : std::map<std::string, SourceFile>(files()))
        if (marks[entry.first] == unseen)
            visit(entry.first);
}

TEST_F(IncludeGraph, ForeignHeadersStayBehindTheBackend)
{
    for (auto const & [path, file] : files()) {
        std::string const room = roomOf(path);
        for (Include const & include : file.includes) {
            bool const standard = include.target.find_first_of("./") == std::string::npos;
            if (include.ours || standard)
                continue;
            // The operating system is the business of QZsys and of Files, which has libraries for formats
            // too, as Viewer has for pages and pictures, but for the type of large file offsets; Boost.Math
            // is headers of plain numbers; the processor's instructions belong to the compiler.
            bool const allowed =
                !isHeader(path) &&
                (room == "Backend" || room == "QZsys" || room == "Files" || room == "Viewer" ||
                 (room == "VolTriang" && include.target.rfind("boost/math/", 0) == 0) ||
                 include.target == "sys/types.h");
            // MPI is in the calls of the library for clusters, PETSc behind them.
            bool const isOfRanks =
                room == "Distributed" && (!isHeader(path) || include.target == "mpi.h" ||
                                          (isPrivateHeader(path) && include.target.rfind("petsc", 0) == 0));
            bool const isInstruction =
                include.target == "immintrin.h" && (!isHeader(path) || isPrivateHeader(path));
            EXPECT_TRUE(allowed || isOfRanks || isInstruction) << path << " includes " << include.target;
        }
    }
}

TEST_F(IncludeGraph, PublicHeadersNeedNoPrivateOnesAndStandInTheUmbrella)
{
    for (auto const & [path, file] : files()) {
        if (!isHeader(path) || isPrivateHeader(path))
            continue;
        for (Include const & include : file.includes)
            EXPECT_FALSE(isPrivateHeader(include.target)) << path << " includes " << include.target;
        std::string const room = roomOf(path);
        bool const isOwnLibrary = room == "Files" || room == "Viewer" || room == "Distributed";
        std::string const umbrella = room == "QZsys" ? "QZsys/QZsys.h"
                                     : isOwnLibrary  ? "QZmath/" + room + "/" + room + ".h"
                                                     : "QZmath/QZmath.h";
        if (path != umbrella) {
            EXPECT_TRUE(files()[umbrella].includesFile(path)) << path << " is missing in " << umbrella;
        }
    }
    EXPECT_TRUE(files()["QZmath/QZmath.h"].includesFile("QZsys/QZsys.h"));
}

} // namespace
