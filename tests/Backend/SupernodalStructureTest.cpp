// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Place.h>
#include <QZmath/Backend/SupernodalStructure.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <set>
#include <vector>

#include "support/SparseSystems.h"

namespace
{

using namespace QzBackend;
using testSupport::CompressedMatrix;

// The rows of each column of the factor, by elimination of one column after the other.
std::vector<std::set<int>> eliminateStructure(CompressedMatrix const & matrix, std::vector<int> const & order)
{
    std::vector<int> position(order.size());
    for (std::size_t k = 0; k < order.size(); ++k)
        position[at(order[k])] = int(k);
    std::vector<std::set<int>> columns(order.size());
    for (int row = 0; row < matrix.size; ++row) {
        columns[at(row)].insert(row);
        for (int place = matrix.rowIndex[at(row)]; place < matrix.rowIndex[at(row) + 1]; ++place) {
            auto const [early, late] =
                std::minmax(position[at(row)], position[at(matrix.columns[at(place)])]);
            columns[at(early)].insert(late);
        }
    }
    for (std::set<int> const & column : columns)
        if (column.size() > 1)
            columns[at(*std::next(column.begin()))].insert(std::next(column.begin()), column.end());
    return columns;
}

CompressedMatrix randomMatrix(int round, std::mt19937 & random)
{
    if (round % 4 == 3)
        return testSupport::gridOperator(3 + round % 3, 1, 0.1, 0);
    int const size = 1 + int(random() % 70);
    double const perRow = 0.3 + double(random() % 40) / 10;
    return testSupport::compress(testSupport::randomSparse(size, perRow, true, 2.0, random), true, 0);
}

TEST(SupernodalStructure, HoldsTheEliminatedMatrixAndLittleElse)
{
    std::mt19937 random(31);
    double elements = 0, stored = 0;
    for (int round = 0; round < 200; ++round) {
        CompressedMatrix const matrix = randomMatrix(round, random);
        std::vector<int> order(at(matrix.size));
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), random);
        std::size_t fill = 0;
        for (std::set<int> const & column : eliminateStructure(matrix, order))
            fill += column.size();

        SupernodalStructure const structure = analyzeSupernodes(
            {matrix.size, matrix.rowIndex.data(), matrix.columns.data(), 0}, order, nullptr);
        std::vector<std::set<int>> const columns = eliminateStructure(matrix, order);
        std::size_t newFill = 0;
        for (int supernode = 0; supernode < structure.supernodes(); ++supernode) {
            int const own = structure.columnsOf(supernode), height = structure.heightOf(supernode);
            std::vector<int> const rows(structure.rowsOf(supernode), structure.rowsOf(supernode) + height);
            ASSERT_TRUE(std::is_sorted(rows.begin(), rows.end()));
            ASSERT_EQ(std::set<int>(rows.begin(), rows.end()).size(), rows.size());
            for (int local = 0; local < own; ++local) {
                int const column = structure.first(supernode) + local;
                ASSERT_EQ(rows[at(local)], column);
                ASSERT_EQ(structure.supernodeOf[at(column)], supernode);
                ASSERT_TRUE(std::includes(rows.begin(), rows.end(), columns[at(column)].begin(),
                                          columns[at(column)].end()));
                newFill += columns[at(column)].size();
                stored += height - local;
            }
            ASSERT_EQ(structure.parent[at(supernode)],
                      height > own ? structure.supernodeOf[at(rows[at(own)])] : -1);
            ASSERT_EQ(structure.blockBegin[at(supernode) + 1] - structure.blockBegin[at(supernode)],
                      std::int64_t(own) * height);
            // The sources are those whose rows meet the columns, each with the first such row.
            std::vector<int> expected, found, expectedRow, foundRow;
            for (int source = 0; source < supernode; ++source) {
                int const * const begin = structure.rowsOf(source);
                int const * const end = begin + structure.heightOf(source);
                int const * const row = std::lower_bound(begin, end, structure.first(supernode));
                if (row != end && *row < structure.first(supernode + 1)) {
                    expected.push_back(source);
                    expectedRow.push_back(int(row - begin));
                }
            }
            for (std::int64_t place = structure.sourcesBegin[at(supernode)];
                 place < structure.sourcesBegin[at(supernode) + 1]; ++place) {
                found.push_back(structure.sources[std::size_t(place)]);
                foundRow.push_back(structure.sourceRow[std::size_t(place)]);
            }
            ASSERT_EQ(found, expected);
            ASSERT_EQ(foundRow, expectedRow);
        }
        EXPECT_EQ(newFill, fill); // the new order is equivalent
        elements += double(fill);
    }
    EXPECT_LT(stored, 1.6 * elements);
}

} // namespace
