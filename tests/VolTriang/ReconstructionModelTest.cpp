// SPDX-License-Identifier: Apache-2.0
//
// The whole reconstruction against an independent model: every step by brute force over all samples and all
// pairs of nodes, integrals by quadrature, the system by dense elimination. What the triangulator extracts
// must be the level set of the model's function.
#include <VolTriang/Runs.h>
#include <support/SparseSystems.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ostream>
#include <random>
#include <vector>

using namespace VolTr;

namespace
{

using Point = std::array<double, 3>;

// The quadratic B-spline of width `scale` and its derivatives.
double spline(double t, double scale, int derivative)
{
    t /= scale;
    double const factor = std::pow(1.0 / scale, derivative);
    double const a = std::fabs(t);
    if (a >= 1.5)
        return 0.0;
    bool const inner = a < 0.5;
    double const sign = t < 0.0 ? -1.0 : 1.0;
    if (derivative == 0)
        return inner ? 0.75 - t * t : 0.5 * (1.5 - a) * (1.5 - a);
    return factor * (inner ? -2.0 * t : -sign * (1.5 - a));
}

class ReferenceReconstruction
{
public:
    ReferenceReconstruction(PointCloudSamples const & samples, CVolTriangulationParams const & params)
        : m_samples(samples), m_octree(&samples, params.getOctreeDepth(), nullptr, params.getUseCenter(),
                                       params.getDetalizationLevel()),
          m_scale(params.getKernelScaleFactor() > 0.0f ? static_cast<double>(params.getKernelScaleFactor())
                                                       : 1.0)
    {
        for (int node = 0; node < m_octree.getNodesNumber(); ++node) {
            Point position;
            m_octree.getNodePosition(node, position.data());
            m_positions.push_back(position);
            m_cellSizes.push_back(m_octree.getCellSize(m_octree.getNodeDepth(node)));
        }
        m_weights.assign(samples.points.size(), 1.0);
        std::vector<int> depths(samples.points.size(), m_octree.getNodeDepthEnd() - 1);
        if (params.getVariableDensity())
            estimateDensity(params.getDensityEstimationDepthDelta(), depths);
        solve(makeRightPart(depths));
        findIsoValue();
    }

    double relativeValue(Point const & point) const { return value(point) - m_isoValue; }

    Point gradient(Point const & point) const
    {
        Point result{};
        for (std::size_t node = 0; node < m_positions.size(); ++node) {
            for (std::size_t axis = 0; axis < 3; ++axis)
                result[axis] += m_solution[node] * basis(node, point, static_cast<int>(axis));
        }
        return result;
    }

private:
    std::size_t size() const { return m_positions.size(); }

    // A basis function, or its derivative along an axis.
    double basis(std::size_t node, Point const & point, int derivativeAxis = -1) const
    {
        double const h = m_cellSizes[node];
        double result = 1.0 / (h * h * h);
        for (int axis = 0; axis < 3; ++axis) {
            std::size_t const a = static_cast<std::size_t>(axis);
            bool const derived = axis == derivativeAxis;
            result *=
                spline((point[a] - m_positions[node][a]) / h, m_scale, derived ? 1 : 0) / (derived ? h : 1.0);
        }
        return result;
    }

    double value(Point const & point) const
    {
        double sum = 0.0;
        for (std::size_t node = 0; node < size(); ++node)
            sum += m_solution[node] * basis(node, point);
        return sum;
    }

    Point sample(std::size_t index) const
    {
        return {m_samples.points[index][0], m_samples.points[index][1], m_samples.points[index][2]};
    }

    void estimateDensity(int delta, std::vector<int> & depths)
    {
        int const begin = m_octree.getNodeDepthBegin();
        int const deepest = m_octree.getNodeDepthEnd() - 1;
        int const level = std::max(deepest - delta, begin);
        double const h = m_octree.getCellSize(level);
        std::vector<double> density(m_samples.points.size(), 0.0);
        for (std::size_t node = 0; node < size(); ++node) {
            if (m_octree.getNodeDepth(static_cast<int>(node)) != level)
                continue;
            double count = 0.0;
            for (std::size_t index = 0; index < density.size(); ++index) {
                double weight = 1.0;
                for (std::size_t axis = 0; axis < 3; ++axis)
                    weight *=
                        std::max(0.0, 1.0 - std::fabs(sample(index)[axis] - m_positions[node][axis]) / h);
                count += weight;
            }
            for (std::size_t index = 0; index < density.size(); ++index)
                density[index] += count * basis(node, sample(index));
        }
        double const unit = density.back();
        double average = 0.0;
        for (double & d : density) {
            d /= unit;
            average += d / static_cast<double>(density.size());
        }
        for (std::size_t index = 0; index < density.size(); ++index) {
            m_weights[index] = 1.0 / density[index];
            int const level4 =
                static_cast<int>(std::floor(std::log(average / density[index]) / std::log(4.0)));
            depths[index] = std::max(begin, deepest - std::max(0, level4));
        }
    }

    std::vector<double> makeRightPart(std::vector<int> const & depths) const
    {
        std::vector<Point> field(size(), Point{});
        for (std::size_t index = 0; index < depths.size(); ++index) {
            double const h = m_octree.getCellSize(depths[index]);
            for (std::size_t node = 0; node < size(); ++node) {
                if (m_octree.getNodeDepth(static_cast<int>(node)) != depths[index])
                    continue;
                double weight = m_weights[index];
                for (std::size_t axis = 0; axis < 3; ++axis)
                    weight *=
                        std::max(0.0, 1.0 - std::fabs(sample(index)[axis] - m_positions[node][axis]) / h);
                for (std::size_t axis = 0; axis < 3; ++axis)
                    field[node][axis] += weight * m_samples.normals[index][axis];
            }
        }
        std::vector<double> right(size(), 0.0);
        for (std::size_t row = 0; row < size(); ++row) {
            for (std::size_t column = 0; column < size(); ++column) {
                if (field[column] == Point{})
                    continue;
                Point mass;
                Point slope;
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    mass[axis] = product(row, column, axis, 0, 0);
                    slope[axis] = product(row, column, axis, 0, 1);
                }
                right[row] += field[column][0] * slope[0] * mass[1] * mass[2] +
                              field[column][1] * mass[0] * slope[1] * mass[2] +
                              field[column][2] * mass[0] * mass[1] * slope[2];
            }
        }
        return right;
    }

    // Integral of two one-variable factors or their derivatives: Gauss-Legendre
    // between all knots, exact here.
    double product(std::size_t left, std::size_t right, std::size_t axis, int leftOrder, int rightOrder) const
    {
        std::vector<double> knots;
        for (std::size_t node : {left, right}) {
            for (double knot : {-1.5, -0.5, 0.5, 1.5})
                knots.push_back(m_positions[node][axis] + knot * m_scale * m_cellSizes[node]);
        }
        double const low = std::max(knots[0], knots[4]);
        double const high = std::min(knots[3], knots[7]);
        if (low >= high)
            return 0.0;
        std::sort(knots.begin(), knots.end());
        auto const factor = [&](std::size_t node, double x, int order) {
            double const h = m_cellSizes[node];
            return spline((x - m_positions[node][axis]) / h, m_scale, order) / std::pow(h, 1 + order);
        };
        double sum = 0.0;
        for (std::size_t piece = 0; piece + 1 < knots.size(); ++piece) {
            double const a = std::max(knots[piece], low);
            double const b = std::min(knots[piece + 1], high);
            if (a >= b)
                continue;
            double const nodes[3] = {-std::sqrt(0.6), 0.0, std::sqrt(0.6)};
            double const weights[3] = {5.0 / 9.0, 8.0 / 9.0, 5.0 / 9.0};
            for (int k = 0; k < 3; ++k) {
                double const x = 0.5 * (a + b) + 0.5 * (b - a) * nodes[k];
                sum += 0.5 * (b - a) * weights[k] * factor(left, x, leftOrder) * factor(right, x, rightOrder);
            }
        }
        return sum;
    }

    // The weak form of Lap X = div U is: stiffness times x equals minus the right part.
    void solve(std::vector<double> right)
    {
        testSupport::DenseMatrix matrix(static_cast<int>(size()));
        for (std::size_t row = 0; row < size(); ++row) {
            right[row] = -right[row];
            for (std::size_t column = 0; column <= row; ++column) {
                double mass[3];
                double stiffness[3];
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    mass[axis] = product(row, column, axis, 0, 0);
                    stiffness[axis] = product(row, column, axis, 1, 1);
                }
                int const i = static_cast<int>(row), j = static_cast<int>(column);
                matrix(i, j) = matrix(j, i) = stiffness[0] * mass[1] * mass[2] +
                                              mass[0] * stiffness[1] * mass[2] +
                                              mass[0] * mass[1] * stiffness[2];
            }
        }
        m_solution = testSupport::eliminate(matrix, right);
    }

    void findIsoValue()
    {
        double values = 0.0;
        double weights = 0.0;
        for (std::size_t index = 0; index < m_weights.size(); ++index) {
            values += m_weights[index] * value(sample(index));
            weights += m_weights[index];
        }
        m_isoValue = values / weights;
    }

    PointCloudSamples const & m_samples;
    COctree m_octree;
    double m_scale;
    std::vector<Point> m_positions;
    std::vector<double> m_cellSizes;
    std::vector<double> m_weights;
    std::vector<double> m_solution;
    double m_isoValue = 0.0;
};

// A bumpy ball, denser on one side, so that several depths and weights take part.
PointCloudSamples makeCloud()
{
    std::mt19937 random(17);
    auto const uniform = [&] { return static_cast<double>(random() % 1000000) / 1e6; };
    PointCloudSamples samples;
    while (samples.points.size() < 500) {
        Point direction{2.0 * uniform() - 1.0, 2.0 * uniform() - 1.0, 2.0 * uniform() - 1.0};
        double const length = std::hypot(direction[0], direction[1], direction[2]);
        if (length > 1.0 || length < 0.1)
            continue;
        for (double & d : direction)
            d /= length;
        if (uniform() > (direction[0] > 0.0 ? 1.0 : 0.04))
            continue;
        double const radius = 1.0 + 0.1 * direction[1] * direction[2];
        samples.add({static_cast<float>(radius * direction[0]), static_cast<float>(radius * direction[1]),
                     static_cast<float>(radius * direction[2])},
                    {static_cast<float>(direction[0]), static_cast<float>(direction[1]),
                     static_cast<float>(direction[2])});
    }
    return samples;
}

Point asArray(REmath::Point3D_d const & point) { return {point.x(), point.y(), point.z()}; }

struct Case
{
    int depth;
    bool useCenter;
    int detalizationLevel;
    bool variableDensity;
    float kernelScale;
};

void PrintTo(Case const & c, std::ostream * out)
{
    *out << "depth " << c.depth << " centre " << c.useCenter << " detalization " << c.detalizationLevel
         << " density " << c.variableDensity << " scale " << c.kernelScale;
}

class ReconstructionModel : public testing::TestWithParam<Case>
{};

} // namespace

TEST_P(ReconstructionModel, SurfaceIsTheLevelSetOfTheModel)
{
    PointCloudSamples const samples = makeCloud();
    CVolTriangulationParams params = qz_test::paramsOf(GetParam().depth);
    params.setUseCenter(GetParam().useCenter);
    params.setDetalizationLevel(GetParam().detalizationLevel);
    params.setVariableDensity(GetParam().variableDensity);
    params.setKernelScaleFactor(GetParam().kernelScale);
    params.setDensityEstimationDepthDelta(1);
    params.setEstimateResultNormals(true);
    qz_test::Mesh const mesh = qz_test::reconstruct(samples, params).mesh;
    ASSERT_GT(mesh.triangles.size(), 100u);

    ReferenceReconstruction const reference(samples, params);
    double const edge = 2.0 * qz_test::leafCell(samples, GetParam().depth);
    for (std::size_t vertex = 0; vertex < mesh.vertices.size(); ++vertex) {
        Point const point = asArray(mesh.vertices[vertex]);
        Point const normal = asArray(mesh.normals[vertex]);
        Point const gradient = reference.gradient(point);
        double const slope = std::hypot(gradient[0], gradient[1], gradient[2]);
        // Bisection ends within 1/2048 of a lattice edge or diagonal.
        EXPECT_LT(std::fabs(reference.relativeValue(point)), slope * edge * std::sqrt(3.0) / 1500.0)
            << vertex;
        double cosine = 0.0;
        for (std::size_t axis = 0; axis < 3; ++axis)
            cosine += gradient[axis] / slope * normal[axis];
        EXPECT_GT(cosine, 1.0 - 1e-6) << vertex;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReconstructionModel,
                         testing::Values(Case{4, true, -1, false, 0.95f}, Case{4, true, -1, true, 0.95f},
                                         Case{4, true, 1, true, 0.9f}, Case{3, false, -1, true, 0.95f},
                                         Case{3, false, 0, false, 1.1f}, Case{3, true, -1, true, 1.0f},
                                         Case{4, true, 1, true, 0.0f}));
