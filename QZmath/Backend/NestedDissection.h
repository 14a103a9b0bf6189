// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

namespace QzBackend
{

/// An undirected graph without loops: both directions of each edge are listed. A node stands for `weights`
/// rows of a matrix.
struct Graph
{
    std::vector<int> begin{0};
    std::vector<int> neighbours;
    std::vector<int> weights;

    int size() const { return static_cast<int>(weights.size()); }
    int const * first(int node) const { return neighbours.data() + begin[static_cast<std::size_t>(node)]; }
    int const * last(int node) const { return neighbours.data() + begin[static_cast<std::size_t>(node) + 1]; }
};

/// Told how far the work has come, 0 to 1, every few milliseconds; may throw.
using PositionReport = std::function<void(double position)>;

/// A small set of nodes whose removal leaves two parts of similar weight without an edge between them: 0 and
/// 1 for the nodes of the parts, 2 for those of the separator. Of each part, at most three fifths of the
/// weight.
///
/// The graph is coarsened by matching along heavy edges, cut where it is small, from several seeds, and the
/// separator improved at each step back: nodes move out of it, also where that makes it larger for a while,
/// and the best state is kept (Karypis and Kumar, SIAM J. Sci. Comput. 20, 1998; Ashcraft and Liu, SIAM J.
/// Matrix Anal. Appl. 19, 1998). The same graph gives the same separator each time. Time about linear in the
/// edges.
std::vector<signed char> separate(Graph const & graph, PositionReport const & report);

/// Gives the nodes of a graph in an order.
using GraphOrdering = std::function<std::vector<int>(Graph const & graph, PositionReport const & report)>;

/// The nodes in the order of a nested dissection (George 1973), with separators last. Parts that are small
/// enough, or that no small separator divides, are ordered by `orderPart`.
std::vector<int> nestedDissection(Graph const & graph, GraphOrdering const & orderPart,
                                  PositionReport const & report);

} // namespace QzBackend
