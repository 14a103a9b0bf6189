// SPDX-License-Identifier: Apache-2.0
#include <apps/sampling/SampleShapes.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <atomic>
#include <cmath>

using REmath::Point3D_d;

// The cloud is what one generator gives, point after point. How many numbers a point takes is known when it
// is made, so the places in the sequence where points begin are not known ahead. But whoever starts somewhere
// else in the sequence soon comes upon a place where a point begins, and from there on makes the very points
// of the cloud. So runs of points are made side by side from places that are guessed, and then strung
// together: the cloud goes on point by point from the end of one run until it meets the next.

namespace qz_sampling
{

namespace
{

constexpr int generatorsPerTask = 8; // as many lanes as the slowest shape has
constexpr std::size_t mostPointsPerRun = 4000;
constexpr std::size_t fewPoints = 2000; // not worth it
// All numbers per point that are the same for every point of some shape divide it: without noise or an uneven
// density 3 and 4, else 5 and 40.
constexpr std::uint64_t granularity = 120;

// Makes points of the cloud from points of the surface.
class Scanner
{
public:
    Scanner(Shape const & shape, SamplingOptions const & options)
        : m_shape(shape), m_densityRatio(options.densityRatio), m_half(shape.halfExtent()),
          m_sigma(options.noise * 2 * std::max({m_half.x(), m_half.y(), m_half.z()})),
          m_isClosed(shape.isClosed()),
          m_rim(1.5 *
                std::sqrt(shape.area() / static_cast<double>(std::max<std::size_t>(1, options.pointNumber))))
    {}

    // Adds the point to the cloud, unless the density is to be less there.
    bool add(SurfacePoint const & point, Random & random, Cloud & cloud) const
    {
        double const alongX = (point.position.x() + m_half.x()) / (2 * m_half.x());
        double const density = 1 + (m_densityRatio - 1) * alongX;
        if (m_densityRatio != 1 && random.uniform() * std::max(1.0, m_densityRatio) > density)
            return false;
        if (!m_isClosed)
            cloud.boundaryMarks.push_back(m_shape.distanceToBorder(point.position) < m_rim ? 1 : 0);
        Point3D_d position = point.position;
        if (m_sigma > 0) {
            double const x = random.normal();
            double const y = random.normal();
            double const z = random.normal();
            position += Point3D_d(x, y, z) * m_sigma;
        }
        for (int axis = 0; axis < 3; ++axis) {
            cloud.positions.push_back(static_cast<float>(position.asArray()[axis]));
            cloud.normals.push_back(static_cast<float>(point.normal.asArray()[axis]));
        }
        return true;
    }

    void addOne(Random & random, Cloud & cloud) const
    {
        while (!add(m_shape.sample(random), random, cloud)) {
        }
    }

    Shape const & shape() const { return m_shape; }

private:
    Shape const & m_shape;
    double const m_densityRatio;
    Point3D_d const m_half;
    double const m_sigma;
    bool const m_isClosed;
    double const m_rim;
};

// Points that follow a place of the sequence, until so many numbers have been drawn.
struct Run
{
    Random begin{0}, end{0};
    Cloud points;
    std::vector<std::uint64_t> starts; // of the points, as numbers drawn since the beginning

    void clear(Random const & place)
    {
        begin = place;
        end = place;
        points.positions.clear();
        points.normals.clear();
        points.boundaryMarks.clear();
        starts.clear();
    }
};

// Makes some runs at the same time.
class Runner : public PointTaker
{
public:
    Runner(Scanner const & scanner, Run * runs, std::uint64_t draws)
        : m_scanner(scanner), m_runs(runs), m_draws(draws)
    {}

    void makeAll()
    {
        for (int i = 0; i < generatorsPerTask; ++i)
            m_randoms[i] = m_runs[i].begin;
        m_scanner.shape().sampleEach(m_randoms, generatorsPerTask, *this);
    }

    bool take(int sequence, SurfacePoint const & point) override
    {
        Run & run = m_runs[sequence];
        Random & random = m_randoms[sequence];
        if (!m_scanner.add(point, random, run.points))
            return true; // the same point goes on
        run.starts.push_back(run.end.drawsSince(run.begin));
        run.end = random;
        return run.end.drawsSince(run.begin) < m_draws;
    }

private:
    Scanner const & m_scanner;
    Run * const m_runs;
    std::uint64_t const m_draws;
    Random m_randoms[generatorsPerTask] = {Random(0), Random(0), Random(0), Random(0),
                                           Random(0), Random(0), Random(0), Random(0)};
};

// Appends the points of a run from a certain one on, as far as they are wanted.
void append(Run const & run, std::size_t first, std::size_t wanted, Cloud & cloud)
{
    auto const from = static_cast<std::ptrdiff_t>(first);
    auto const to = static_cast<std::ptrdiff_t>(first + std::min(run.starts.size() - first, wanted));
    Cloud const & points = run.points;
    cloud.positions.insert(cloud.positions.end(), points.positions.begin() + 3 * from,
                           points.positions.begin() + 3 * to);
    cloud.normals.insert(cloud.normals.end(), points.normals.begin() + 3 * from,
                         points.normals.begin() + 3 * to);
    if (!points.boundaryMarks.empty())
        cloud.boundaryMarks.insert(cloud.boundaryMarks.end(), points.boundaryMarks.begin() + from,
                                   points.boundaryMarks.begin() + to);
}

} // namespace

Cloud sampleCloud(Shape const & shape, SamplingOptions const & options)
{
    Scanner const scanner(shape, options);
    Random const origin(options.seed);
    Random place = origin; // where the next point of the cloud begins
    Cloud cloud;
    cloud.positions.reserve(3 * options.pointNumber);
    cloud.normals.reserve(3 * options.pointNumber);
    while (cloud.size() < std::min(options.pointNumber, fewPoints))
        scanner.addOne(place, cloud);

    int const threads = CVescaThreadingTasksHelper::getNumOfPhisicalThread();
    std::vector<Run> runs;
    while (cloud.size() < options.pointNumber) {
        std::size_t const left = options.pointNumber - cloud.size();
        int const tasks = static_cast<int>(std::min<std::size_t>(
            4 * static_cast<std::size_t>(threads), left / (generatorsPerTask * mostPointsPerRun) + 1));
        std::size_t const runNumber = static_cast<std::size_t>(tasks) * generatorsPerTask;
        std::size_t const pointsPerRun = std::min(left / runNumber + 1, mostPointsPerRun);
        double const drawsPerPoint =
            static_cast<double>(place.drawsSince(origin)) / static_cast<double>(cloud.size());
        auto const units = static_cast<std::uint64_t>(drawsPerPoint * static_cast<double>(pointsPerRun) /
                                                      static_cast<double>(granularity));
        std::uint64_t const draws = (units + 1) * granularity;
        std::uint64_t const passed = place.drawsSince(origin);
        std::uint64_t const firstBegin = (passed + granularity - 1) / granularity * granularity;
        runs.resize(std::max(runs.size(), runNumber));
        for (std::size_t i = 0; i < runNumber; ++i)
            runs[i].clear(origin.ahead(firstBegin + i * draws));
        std::atomic<int> next{0};
        VsUt::callTogether(std::min(threads, tasks), [&](bool) {
            for (int task = next++; task < tasks; task = next++)
                Runner(scanner, &runs[static_cast<std::size_t>(task) * generatorsPerTask], draws).makeAll();
        });
        for (std::size_t i = 0; i < runNumber && cloud.size() < options.pointNumber; ++i) {
            Run const & run = runs[i];
            std::uint64_t const begin = run.begin.drawsSince(origin);
            std::uint64_t const end = run.end.drawsSince(origin);
            while (cloud.size() < options.pointNumber && place.drawsSince(origin) < end) {
                std::uint64_t const now = place.drawsSince(origin);
                auto const meeting =
                    now < begin ? run.starts.end()
                                : std::lower_bound(run.starts.begin(), run.starts.end(), now - begin);
                if (meeting != run.starts.end() && *meeting == now - begin) {
                    append(run, static_cast<std::size_t>(meeting - run.starts.begin()),
                           options.pointNumber - cloud.size(), cloud);
                    place = run.end;
                } else {
                    scanner.addOne(place, cloud);
                }
            }
        }
    }
    return cloud;
}

} // namespace qz_sampling
