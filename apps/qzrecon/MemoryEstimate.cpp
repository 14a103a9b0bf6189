// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/MemoryEstimate.h>

#include <apps/qzrecon/Lattice64.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace qz_recon
{

namespace
{

/// Leaf cells that hold samples, sorted: the octree's lattice stands around the cloud's bounding box.
std::vector<CellKey> occupiedCells(qz_io::PointCloud const & cloud, int depth)
{
    float min[3] = {cloud.coords[0], cloud.coords[1], cloud.coords[2]};
    float max[3] = {min[0], min[1], min[2]};
    for (std::size_t i = 0; i < cloud.coords.size(); ++i) {
        min[i % 3] = std::min(min[i % 3], cloud.coords[i]);
        max[i % 3] = std::max(max[i % 3], cloud.coords[i]);
    }
    double extent = 1e-10;
    for (int axis = 0; axis < 3; ++axis)
        extent = std::max(extent, static_cast<double>(max[axis]) - min[axis]);
    double const lattice = std::ldexp(1.0, depth);
    double const boxSize = (1.0 + 0.25 / lattice) * extent;

    std::vector<CellKey> cells;
    cells.reserve(cloud.size());
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        std::int64_t cell[3];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            double const boxMin = (static_cast<double>(min[axis]) + max[axis] - boxSize) / 2;
            double const place = std::floor((cloud.coords[3 * i + axis] - boxMin) / boxSize * lattice);
            cell[axis] = static_cast<std::int64_t>(std::clamp(place, 0.0, lattice - 1));
        }
        CellKey const key = cellKey(cell[0], cell[1], cell[2]);
        if (cells.empty() || cells.back() != key)
            cells.push_back(key);
    }
    sortUnique(cells);
    return cells;
}

/// Distinct corners of the given cells. Cells shifted by a step of one axis keep their order, so three merges
/// do it.
std::uint64_t countCorners(std::vector<CellKey> cells)
{
    for (CellKey const step : st_stepOnAxis) {
        std::vector<CellKey> shifted(cells.size());
        std::transform(cells.begin(), cells.end(), shifted.begin(),
                       [step](CellKey key) { return key + step; });
        std::vector<CellKey> merged;
        merged.reserve(2 * cells.size());
        std::set_union(cells.begin(), cells.end(), shifted.begin(), shifted.end(),
                       std::back_inserter(merged));
        cells = std::move(merged);
    }
    return cells.size();
}

/// First number in a file, infinity when there is none ("max").
double numberIn(std::string const & path)
{
    std::ifstream file(path);
    double value = 0.0;
    return file >> value ? value : std::numeric_limits<double>::infinity();
}

/// Value behind a label in a file of "label value" lines, `otherwise` when it is missing.
double labelled(std::string const & path, std::string const & label, double otherwise)
{
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string word;
        double value = 0.0;
        if (words >> word && word == label && words >> value)
            return value;
    }
    return otherwise;
}

/// What a control group leaves; page cache that it can drop does not count as taken.
double leftInGroup(std::string const & folder, char const * limitFile, char const * usageFile,
                   char const * cacheLabel)
{
    double const limit = numberIn(folder + "/" + limitFile);
    double const usage = numberIn(folder + "/" + usageFile);
    if (!std::isfinite(limit) || !std::isfinite(usage))
        return std::numeric_limits<double>::infinity();
    return std::max(0.0, limit - usage + labelled(folder + "/memory.stat", cacheLabel, 0.0));
}

} // namespace

std::uint64_t countOctreeNodes(qz_io::PointCloud const & cloud, VolTr::CVolTriangulationParams const & params)
{
    int const depth = std::min(params.getOctreeDepth(), 20);
    bool const useCenter = params.getUseCenter();
    int const deepest = depth - (useCenter ? 1 : 0);
    int const levels = params.getDetalizationLevel();
    int const coarsest = levels < 0 || levels > deepest ? 0 : deepest - levels;

    std::vector<CellKey> const leafCells = occupiedCells(cloud, depth);
    std::uint64_t nodes = 0;
    for (int level = coarsest; level <= deepest; ++level) {
        // At corners, a node stands on each corner of the cell of its level around the leaf cell. At centres
        // the same holds for the lattice that is shifted by half a cell.
        int const shift = depth - level;
        std::int64_t const half = useCenter ? std::int64_t(1) << (shift - 1) : 0;
        std::vector<CellKey> cells(leafCells.size());
        std::transform(leafCells.begin(), leafCells.end(), cells.begin(), [shift, half](CellKey leaf) {
            return cellKey((cellCoord(leaf, 0) - half) >> shift, (cellCoord(leaf, 1) - half) >> shift,
                           (cellCoord(leaf, 2) - half) >> shift);
        });
        sortUnique(cells);
        nodes += countCorners(std::move(cells));
    }
    return nodes;
}

double estimateMemory(std::uint64_t samples, std::uint64_t nodes,
                      VolTr::CVolTriangulationParams const & params)
{
    // The matrix holds some 240 elements of 12 bytes for each node. What the direct solver adds grows as
    // nested dissection makes it grow on surfaces, n log n; the two coefficients are fitted to its peaks at
    // 9, 34 and 125 thousand nodes, from above by a tenth. The mesh comes when the system is gone: some 2.7
    // triangles for each node and unit of subdivision, with the walk's tables and the copy for the writer.
    int const mostDirectNodes = 200000; // the library's choice when none is asked for
    double const n = static_cast<double>(nodes);
    double const matrix = n * 240 * 12;
    int const solver = params.getPrefferedSolver();
    bool const accelerated =
        params.getAccelerated() && solver == 0 && !(params.getKernelScaleFactor() > 1.0f);
    double solving = matrix;
    if (accelerated)
        solving = 150 * n; // no matrix, only bricks around the nodes
    else if (solver == 1 || solver == 2 || (solver == 0 && n < mostDirectNodes))
        solving += 1024 * n * std::max(4.0, 1.3 * std::log2(n + 2) - 7.6);
    else if (solver == 4 || (solver == 0 && n >= 1e6))
        solving += matrix; // blocks of it are copied
    double const subdivision = static_cast<double>(params.getReconstructFactor());
    double const meshing = 700 * n * subdivision * subdivision;
    return 15e6 + 100.0 * static_cast<double>(samples) + 200 * n + std::max(solving, meshing);
}

double availableMemory()
{
    double limit = 1024 * labelled("/proc/meminfo", "MemAvailable:", std::numeric_limits<double>::infinity());

    std::ifstream groups("/proc/self/cgroup");
    std::string line;
    while (std::getline(groups, line)) {
        std::size_t const first = line.find(':');
        std::size_t const second = first == std::string::npos ? first : line.find(':', first + 1);
        if (second == std::string::npos)
            continue;
        std::string const controllers = line.substr(first + 1, second - first - 1);
        bool const unified = controllers.empty();
        if (!unified && controllers != "memory")
            continue;
        // Every group on the way to the root may set a limit.
        for (std::string path = line.substr(second + 1);; path.resize(path.rfind('/'))) {
            if (!path.empty() && path.back() == '/')
                path.pop_back();
            limit =
                std::min(limit, unified ? leftInGroup("/sys/fs/cgroup" + path, "memory.max", "memory.current",
                                                      "inactive_file")
                                        : leftInGroup("/sys/fs/cgroup/memory" + path, "memory.limit_in_bytes",
                                                      "memory.usage_in_bytes", "total_inactive_file"));
            if (path.rfind('/') == std::string::npos)
                break;
        }
    }

    rlimit addressSpace{};
    if (getrlimit(RLIMIT_AS, &addressSpace) == 0 && addressSpace.rlim_cur != RLIM_INFINITY)
        limit = std::min(limit, static_cast<double>(addressSpace.rlim_cur) -
                                    1024 * labelled("/proc/self/status", "VmSize:", 0.0));
    return std::max(limit, 0.0);
}

double peakMemory() { return 1024 * labelled("/proc/self/status", "VmHWM:", 0.0); }

} // namespace qz_recon
