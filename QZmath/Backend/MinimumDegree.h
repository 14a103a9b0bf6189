// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/NestedDissection.h>

#include <limits>
#include <vector>

namespace QzBackend
{

/// The nodes in an order of approximate minimum degree: next comes a node whose elimination joins few others.
///
/// What the eliminated nodes have joined is kept as lists of nodes instead of edges, nodes that have become
/// alike are taken as one, and degrees are bounded from above (Amestoy, Davis and Duff, SIAM J. Matrix Anal.
/// Appl. 17, 1996). Nodes count by their weights. The same graph gives the same order each time.
///
/// Gives nothing as soon as the Cholesky factor in this order is known to have more than `mostElements`
/// elements. `work`, if given, gets about as many multiplications as that factor takes. Memory: about twice
/// the graph. Throws what `report` throws, and `std::bad_alloc`.
std::vector<int> minimumDegree(Graph const & graph, PositionReport const & report,
                               double mostElements = std::numeric_limits<double>::infinity(),
                               double * work = nullptr);

} // namespace QzBackend
