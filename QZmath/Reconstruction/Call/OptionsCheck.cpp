// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Call/OptionsCheck.h>

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

void checkOptions(ReconstructionOptions const & options)
{
    int const leastDepth = options.core.getUseCenter() ? 2 : 1;
    if (options.depth != 0 && (options.depth < leastDepth || options.depth > mostDepth))
        throw ReconstructionError(ReconstructionError::Kind::options,
                                  "depth " + std::to_string(options.depth) + " is out of range: " +
                                      std::to_string(leastDepth) + " to " + std::to_string(mostDepth) +
                                      (options.core.getUseCenter() ? " with --center" : " with --corner"));
    demand(isWithin(options.cellSize, 0.0, 1e30), "the cell size is out of range: above 0, or 0 for none");
    demand(isWithin(options.trimDistance, 0.5, 100.0),
           "the trim distance is out of range: 0.5 to 100 leaf cells");
    demand(isWithin(options.largestHole, 0.0, 1.0), "the largest hole is out of range: 0 to 1");
    demand(isWithin(options.smallestComponent, 0.0, 1.0), "the smallest component is out of range: 0 to 1");
    demand(isWithin(options.outlierRemoval, 0.0, 1000.0), "the outlier removal is out of range: 0 to 1000");
    demand(isWithin(options.simplifyError, 0.0, 100.0),
           "the error of simplification is out of range: 0 to 100 leaf cells");
    demand(options.normalNeighbours >= 3 && options.normalNeighbours <= 1000,
           "the neighbours of a normal are out of range: 3 to 1000");
    demand(options.threads >= 0 && options.threads <= 1024, "the threads are out of range: 0 to 1024");
    demand(!options.hasViewpoint || isFinite(options.viewpoint), "the viewpoint is not finite");
    demand(std::all_of(options.viewpoints.begin(), options.viewpoints.end(), isFinite),
           "a viewpoint is not finite");
    demand(options.viewpoints.size() == options.viewpointEnds.size() &&
               std::is_sorted(options.viewpointEnds.begin(), options.viewpointEnds.end()),
           "there has to be one end for each viewpoint, in rising order");
    double const subdivision = static_cast<double>(options.core.getReconstructFactor());
    demand(isWithin(subdivision, 0.01, 100.0), "the subdivision is out of range: 0.01 to 100");
    demand(static_cast<double>(options.core.getKernelScaleFactor()) <= 100.0,
           "the kernel scale is out of range: at most 100");
    demand(isWithin(options.core.getSolverTolerance(), 1e-6, 0.1),
           "the solver's tolerance is out of range: 1e-6 to 0.1");
    int const solver = options.core.getPrefferedSolver();
    demand(solver >= 0 && solver <= 4, "there is no such solver: 0 to 4");
}

} // namespace QZmath
