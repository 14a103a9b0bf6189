// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Samples/PointScatter.h>

#include <QZmath/Fitting/Samples/Lanes.h>
#include <QZmath/Foundation/SymmetricEigen.h>

#include <algorithm>
#include <cmath>

namespace REmath::Detail
{

namespace
{

constexpr std::size_t blockSize = 512;

// Sums over one block, with p - s taken in `double`.
struct BlockSums
{
    std::array<double, 3> first{};
    std::array<double, 6> second{};
};

// Without `products` the first sums only.
template <bool products, class Coord>
[[gnu::always_inline]] inline void sumBlockInLanes(Coord const * coords, std::size_t count,
                                                   std::array<double, 3> const & shift, BlockSums & sums)
{
    double const shiftX = shift[0], shiftY = shift[1], shiftZ = shift[2];
    Lanes sumX{}, sumY{}, sumZ{}, xx{}, xy{}, yy{}, xz{}, yz{}, zz{};
    std::size_t const whole = count - count % 4;
    for (std::size_t i = 0; i < whole; i += 4) {
        Lanes x, y, z;
        loadFour(coords + 3 * i, x, y, z);
        x -= shiftX;
        y -= shiftY;
        z -= shiftZ;
        sumX += x;
        sumY += y;
        sumZ += z;
        if constexpr (!products)
            continue;
        xx += x * x;
        xy += x * y;
        yy += y * y;
        xz += x * z;
        yz += y * z;
        zz += z * z;
    }
    sums.first = {sumOf(sumX), sumOf(sumY), sumOf(sumZ)};
    sums.second = {sumOf(xx), sumOf(xy), sumOf(yy), sumOf(xz), sumOf(yz), sumOf(zz)};
    for (std::size_t i = whole; i < count; ++i) {
        double const x = static_cast<double>(coords[3 * i]) - shiftX;
        double const y = static_cast<double>(coords[3 * i + 1]) - shiftY;
        double const z = static_cast<double>(coords[3 * i + 2]) - shiftZ;
        sums.first[0] += x;
        sums.first[1] += y;
        sums.first[2] += z;
        if constexpr (!products)
            continue;
        sums.second[0] += x * x;
        sums.second[1] += x * y;
        sums.second[2] += y * y;
        sums.second[3] += x * z;
        sums.second[4] += y * z;
        sums.second[5] += z * z;
    }
}

#if defined(__x86_64__)
template <bool products, class Coord>
[[gnu::target("avx2")]] void sumBlockWide(Coord const * coords, std::size_t count,
                                          std::array<double, 3> const & shift, BlockSums & sums)
{
    sumBlockInLanes<products>(coords, count, shift, sums);
}
#endif

template <bool products, class Coord>
BlockSums sumBlock(Coord const * coords, std::size_t count, std::array<double, 3> const & shift)
{
    BlockSums sums;
#if defined(__x86_64__)
    if (hasWideLanes()) {
        sumBlockWide<products>(coords, count, shift, sums);
        return sums;
    }
#endif
    sumBlockInLanes<products>(coords, count, shift, sums);
    return sums;
}

// Adds `weight` v v^T.
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
            BlockSums const plain = sumBlock<false>(coords, size, m_mean);
            for (std::size_t axis = 0; axis < 3; ++axis)
                m_mean[axis] = plain.first[axis] / static_cast<double>(size);
        }
        BlockSums const sums = sumBlock<true>(coords, size, m_mean);
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
