// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PointScatterDetail.h>

#include <QZmath/Foundation/SymmetricEigen.h>

#include <algorithm>
#include <cmath>

namespace REmath::Detail
{

namespace
{

constexpr std::size_t blockSize = 512;

/// Sums over one block, with p - s taken in `double`.
struct BlockSums
{
    std::array<double, 3> first{};
    std::array<double, 6> second{};
};

template <class Coord>
BlockSums sumBlock(Coord const * coords, std::size_t count, std::array<double, 3> const & shift)
{
    BlockSums sums;
    for (std::size_t i = 0; i < count; ++i) {
        double const x = coords[3 * i] - shift[0];
        double const y = coords[3 * i + 1] - shift[1];
        double const z = coords[3 * i + 2] - shift[2];
        sums.first[0] += x;
        sums.first[1] += y;
        sums.first[2] += z;
        sums.second[0] += x * x;
        sums.second[1] += x * y;
        sums.second[2] += y * y;
        sums.second[3] += x * z;
        sums.second[4] += y * z;
        sums.second[5] += z * z;
    }
    return sums;
}

/// Adds `weight` v v^T.
void addOuterProduct(std::array<double, 6> & elements, std::array<double, 3> const & v, double weight)
{
    std::size_t element = 0;
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t col = 0; col <= row; ++col)
            elements[element++] += weight * v[row] * v[col];
    }
}

} // namespace

template <class Point>
PointScatter::PointScatter(Point const * points, std::size_t count) : m_count(count)
{
    for (std::size_t before = 0; before < count; before += blockSize) {
        auto const * const coords = points[before].asArray();
        std::size_t const size = std::min(blockSize, count - before);
        if (before == 0) {
            BlockSums const plain = sumBlock(coords, size, m_mean);
            for (std::size_t axis = 0; axis < 3; ++axis)
                m_mean[axis] = plain.first[axis] / static_cast<double>(size);
        }
        BlockSums const sums = sumBlock(coords, size, m_mean);
        double const total = static_cast<double>(before + size);
        for (std::size_t element = 0; element < 6; ++element)
            m_elements[element] += sums.second[element];
        addOuterProduct(m_elements, sums.first, -1 / total);
        for (std::size_t axis = 0; axis < 3; ++axis)
            m_mean[axis] += sums.first[axis] / total;
    }
}

template PointScatter::PointScatter(Point3D const *, std::size_t);
template PointScatter::PointScatter(Point3D_d const *, std::size_t);

std::array<double, 6> PointScatter::elementsAbout(double const * centre) const
{
    std::array<double, 6> elements = m_elements;
    std::array<double, 3> const offset = {m_mean[0] - centre[0], m_mean[1] - centre[1],
                                          m_mean[2] - centre[2]};
    addOuterProduct(elements, offset, static_cast<double>(m_count));
    return elements;
}

bool leastEigenvector(std::array<double, 6> const & elements, double start, double * vector)
{
    auto const [xx, xy, yy, xz, yz, zz] = elements;
    double matrix[3][3] = {{xx, xy, xz}, {xy, yy, yz}, {xz, yz, zz}};
    double * rows[3] = {matrix[0], matrix[1], matrix[2]};
    double values[3];
    double subdiagonal[3];
    tred2_d(rows, 3, values, subdiagonal);
    if (tqli_d(values, subdiagonal, 3, rows) == 0)
        return false;
    double least = start;
    int column = -1;
    for (int i = 0; i < 3; ++i) {
        if (values[i] < least) {
            least = values[i];
            column = i;
        }
    }
    if (column < 0)
        return false;
    for (double const * const row : rows) {
        if (!std::isfinite(row[column]))
            return false;
    }
    for (int axis = 0; axis < 3; ++axis)
        vector[axis] = matrix[axis][column];
    return true;
}

} // namespace REmath::Detail
