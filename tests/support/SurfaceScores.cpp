// SPDX-License-Identifier: Apache-2.0
#include <support/SurfaceScores.h>

#include <algorithm>
#include <cmath>

using REmath::Point3D_d;

namespace qz_test
{

namespace
{

class Collector
{
public:
    void add(double value)
    {
        m_sum += value * value;
        m_max = std::max(m_max, std::abs(value));
        ++m_count;
    }
    DistanceScore score() const { return {std::sqrt(m_sum / std::max(1.0, m_count)), m_max}; }

private:
    double m_sum = 0;
    double m_max = 0;
    double m_count = 0;
};

} // namespace

DistanceScore vertexDistances(Mesh const & mesh, qz_sampling::Shape const & shape)
{
    Collector collector;
    for (Point3D_d const & vertex : mesh.vertices)
        collector.add(shape.signedDistance(vertex));
    return collector.score();
}

DistanceScore centroidDistances(Mesh const & mesh, qz_sampling::Shape const & shape)
{
    Collector collector;
    for (std::array<int, 3> const & triangle : mesh.triangles) {
        Point3D_d sum;
        for (int const vertex : triangle)
            sum += mesh.vertices[static_cast<std::size_t>(vertex)];
        collector.add(shape.signedDistance(sum / 3));
    }
    return collector.score();
}

DistanceScore normalAngles(Mesh const & mesh, qz_sampling::Shape const & shape)
{
    Collector collector;
    for (std::size_t v = 0; v < mesh.normals.size(); ++v) {
        double const cosine = shape.normalNear(mesh.vertices[v]).angleCos(mesh.normals[v]);
        collector.add(std::acos(std::clamp(cosine, -1.0, 1.0)) * 180 / std::acos(-1.0));
    }
    return collector.score();
}

double medianSampleDistance(std::vector<float> const & positions, Mesh const & mesh)
{
    MeshDistance const distance(mesh);
    std::vector<double> distances;
    for (std::size_t point = 0; point + 3 <= positions.size(); point += 3)
        distances.push_back(distance(Point3D_d(positions.data() + point)));
    return median(distances);
}

} // namespace qz_test
