// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Samples/WeightedScatter.h>

#include <QZmath/Fitting/Samples/Lanes.h>

namespace REmath::Detail
{

namespace
{

// Calls add(weights, offsets from the centre) for four points after the other. What is left of fewer than
// four goes into the lanes that it needs; the others have the weight 0 and lie in the centre.
template <class Coord, class Add>
[[gnu::always_inline]] inline void addInLanes(Coord const * coords, double const * weights, std::size_t count,
                                              double const * centre, Add add)
{
    double const centreX = centre[0], centreY = centre[1], centreZ = centre[2];
    std::size_t const whole = count - count % 4;
    for (std::size_t i = 0; i < whole; i += 4) {
        Lanes w = Lanes{} + 1.0, x{}, y{}, z{};
        if (weights != nullptr)
            std::memcpy(&w, weights + i, sizeof(w));
        loadFour(coords + 3 * i, x, y, z);
        add(w, x - centreX, y - centreY, z - centreZ);
    }
    if (whole == count)
        return;
    Lanes w{}, x = Lanes{} + centreX, y = Lanes{} + centreY, z = Lanes{} + centreZ;
    for (std::size_t i = whole; i < count; ++i) {
        w[i - whole] = weights != nullptr ? weights[i] : 1.0;
        x[i - whole] = static_cast<double>(coords[3 * i]);
        y[i - whole] = static_cast<double>(coords[3 * i + 1]);
        z[i - whole] = static_cast<double>(coords[3 * i + 2]);
    }
    add(w, x - centreX, y - centreY, z - centreZ);
}

// x, y, z and the weights.
template <class Coord>
[[gnu::always_inline]] inline std::array<double, 4> sumInLanes(Coord const * coords, double const * weights,
                                                               std::size_t count, double const * centre)
{
    Lanes sumX{}, sumY{}, sumZ{}, sumW{};
    addInLanes(
        coords, weights, count, centre,
        [&](Lanes const & w, Lanes const & x, Lanes const & y, Lanes const & z)
            __attribute__((always_inline)) {
                sumX += w * x;
                sumY += w * y;
                sumZ += w * z;
                sumW += w;
            });
    return {sumOf(sumX), sumOf(sumY), sumOf(sumZ), sumOf(sumW)};
}

template <class Coord>
[[gnu::always_inline]] inline std::array<double, 6>
scatterInLanes(Coord const * coords, double const * weights, std::size_t count, double const * centre)
{
    Lanes xx{}, xy{}, yy{}, xz{}, yz{}, zz{};
    addInLanes(
        coords, weights, count, centre,
        [&](Lanes const & w, Lanes const & x, Lanes const & y, Lanes const & z)
            __attribute__((always_inline)) {
                Lanes const wx = w * x, wy = w * y;
                xx += wx * x;
                xy += wx * y;
                yy += wy * y;
                xz += wx * z;
                yz += wy * z;
                zz += w * z * z;
            });
    return {sumOf(xx), sumOf(xy), sumOf(yy), sumOf(xz), sumOf(yz), sumOf(zz)};
}

#if defined(__x86_64__)
template <class Coord>
[[gnu::target("avx2")]] std::array<double, 4> sumWide(Coord const * coords, double const * weights,
                                                      std::size_t count, double const * centre)
{
    return sumInLanes(coords, weights, count, centre);
}

template <class Coord>
[[gnu::target("avx2")]] std::array<double, 6> scatterWide(Coord const * coords, double const * weights,
                                                          std::size_t count, double const * centre)
{
    return scatterInLanes(coords, weights, count, centre);
}
#else
template <class Coord>
std::array<double, 4> sumWide(Coord const * coords, double const * weights, std::size_t count,
                              double const * centre)
{
    return sumInLanes(coords, weights, count, centre);
}

template <class Coord>
std::array<double, 6> scatterWide(Coord const * coords, double const * weights, std::size_t count,
                                  double const * centre)
{
    return scatterInLanes(coords, weights, count, centre);
}
#endif

} // namespace

template <class Point>
bool weightedMean(Point const * points, double const * weights, std::size_t count, Point3D_d & mean)
{
    if (count == 0)
        return false;
    // About one of the points that count.
    std::size_t reference = 0;
    while (weights != nullptr && reference + 1 < count && weights[reference] == 0)
        ++reference;
    Point3D_d const base(points[reference].asArray());
    auto const * const coords = points->asArray();
    std::array<double, 4> const sums = hasWideLanes() ? sumWide(coords, weights, count, base.asArray())
                                                      : sumInLanes(coords, weights, count, base.asArray());
    if (!(sums[3] > 0))
        return false;
    mean = base + Point3D_d(sums.data()) / sums[3];
    return true;
}

template <class Point>
std::array<double, 6> weightedScatter(Point const * points, double const * weights, std::size_t count,
                                      Point3D_d const & centre)
{
    if (count == 0)
        return {};
    auto const * const coords = points->asArray();
    return hasWideLanes() ? scatterWide(coords, weights, count, centre.asArray())
                          : scatterInLanes(coords, weights, count, centre.asArray());
}

template bool weightedMean(Point3D const *, double const *, std::size_t, Point3D_d &);
template bool weightedMean(Point3D_d const *, double const *, std::size_t, Point3D_d &);
template std::array<double, 6> weightedScatter(Point3D const *, double const *, std::size_t,
                                               Point3D_d const &);
template std::array<double, 6> weightedScatter(Point3D_d const *, double const *, std::size_t,
                                               Point3D_d const &);

} // namespace REmath::Detail
