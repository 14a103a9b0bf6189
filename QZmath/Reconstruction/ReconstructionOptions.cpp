// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Cloud/DepthChoice.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

namespace QZmath
{

namespace
{

void demand(bool isFulfilled, char const * sentence)
{
    if (!isFulfilled)
        throw ReconstructionError(ReconstructionError::Kind::options, sentence);
}

// NaN is in no range.
bool isWithin(double value, double least, double greatest) { return value >= least && value <= greatest; }

bool isFinite(std::array<double, 3> const & place)
{
    return std::all_of(place.begin(), place.end(), [](double coord) { return std::isfinite(coord); });
}

} // namespace

VolTr::CVolTriangulationParams ReconstructionOptions::acceleratedCore()
{
    VolTr::CVolTriangulationParams params;
    params.setAccelerated(true);
    return params;
}

void ReconstructionOptions::check() const
{
    int const leastDepth = core.getUseCenter() ? 2 : 1;
    if (depth != 0 && (depth < leastDepth || depth > mostDepth))
        throw ReconstructionError(
            ReconstructionError::Kind::options,
            "depth " + std::to_string(depth) + " is out of range: " + std::to_string(leastDepth) + " to " +
                std::to_string(mostDepth) + (core.getUseCenter() ? " with --center" : " with --corner"));
    demand(isWithin(cellSize, 0.0, 1e30), "the cell size is out of range: above 0, or 0 for none");
    demand(isWithin(trimDistance, 0.5, 100.0), "the trim distance is out of range: 0.5 to 100 leaf cells");
    demand(isWithin(largestHole, 0.0, 1.0), "the largest hole is out of range: 0 to 1");
    demand(isWithin(smallestComponent, 0.0, 1.0), "the smallest component is out of range: 0 to 1");
    demand(isWithin(outlierRemoval, 0.0, 1000.0), "the outlier removal is out of range: 0 to 1000");
    demand(isWithin(simplifyError, 0.0, 100.0),
           "the error of simplification is out of range: 0 to 100 leaf cells");
    demand(normalNeighbours >= 3 && normalNeighbours <= 1000,
           "the neighbours of a normal are out of range: 3 to 1000");
    demand(threads >= 0 && threads <= 1024, "the threads are out of range: 0 to 1024");
    demand(!hasViewpoint || isFinite(viewpoint), "the viewpoint is not finite");
    demand(std::all_of(viewpoints.begin(), viewpoints.end(), isFinite), "a viewpoint is not finite");
    demand(viewpoints.size() == viewpointEnds.size() &&
               std::is_sorted(viewpointEnds.begin(), viewpointEnds.end()),
           "there has to be one end for each viewpoint, in rising order");
    double const subdivision = static_cast<double>(core.getReconstructFactor());
    demand(isWithin(subdivision, 0.01, 100.0), "the subdivision is out of range: 0.01 to 100");
    demand(static_cast<double>(core.getKernelScaleFactor()) <= 100.0,
           "the kernel scale is out of range: at most 100");
    demand(isWithin(core.getSolverTolerance(), 1e-6, 0.1),
           "the solver's tolerance is out of range: 1e-6 to 0.1");
    int const solver = core.getPrefferedSolver();
    demand(solver >= 0 && solver <= 4, "there is no such solver: 0 to 4");
}

} // namespace QZmath
