// SPDX-License-Identifier: Apache-2.0
//
// How near reconstructed surfaces come to true ones: clouds on analytic surfaces, with and without the
// refinement and the correction of the field, as a table in Markdown.
#include <QZmath/QZmath.h>

#include <apps/sampling/Random.h>
#include <apps/sampling/SampleShapes.h>
#include <support/Mesh.h>
#include <support/SurfaceScores.h>

#include <CLI/CLI.hpp>

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

using REmath::Point3D_d;

namespace
{

struct Row
{
    std::string shape = "genus3";
    std::size_t points = 100000;
    int depth = 8;
    double noise = 0;        // standard deviation along each axis, of the longest side
    double densityRatio = 1; // densest to thinnest
    double normalNoise = 0;  // degrees, standard deviation
    double outliers = 0;     // share of uniform points in the box, with random normals
    float factor = 1;        // subdivision of the cubes
    bool useCenter = true;
};

struct Cloud : VolTr::IInputSamples
{
    qz_sampling::Cloud points;

    int onPointsNumber() const override { return static_cast<int>(points.size()); }
    float const * onGetSampleCoords3(int n) const override { return &points.positions[3 * std::size_t(n)]; }
    float const * onGetSampleNormal3(int n) const override { return &points.normals[3 * std::size_t(n)]; }
    bool onIsBoundaryVertex(int n) const override
    {
        return !points.boundaryMarks.empty() && points.boundaryMarks[std::size_t(n)] != 0;
    }
};

Point3D_d randomDirection(qz_sampling::Random & random)
{
    for (;;) {
        Point3D_d const direction(random.normal(), random.normal(), random.normal());
        if (direction.length() > 1e-6)
            return direction / direction.length();
    }
}

Cloud makeCloud(qz_sampling::Shape const & shape, Row const & row)
{
    qz_sampling::SamplingOptions options;
    options.pointNumber = row.points;
    options.noise = row.noise;
    options.densityRatio = row.densityRatio;
    Cloud cloud;
    cloud.points = sampleCloud(shape, options);
    qz_sampling::Random random(99);
    double const spread = std::tan(row.normalNoise * std::acos(-1.0) / 180.0);
    for (std::size_t n = 0; n < cloud.points.size() && row.normalNoise > 0; ++n) {
        float * const normal = &cloud.points.normals[3 * n];
        Point3D_d const turned(normal[0] + spread * random.normal() / std::sqrt(2.0),
                               normal[1] + spread * random.normal() / std::sqrt(2.0),
                               normal[2] + spread * random.normal() / std::sqrt(2.0));
        for (int axis = 0; axis < 3; ++axis)
            normal[axis] = static_cast<float>(turned.asArray()[axis] / turned.length());
    }
    Point3D_d const half = shape.halfExtent();
    std::size_t const outliers = static_cast<std::size_t>(row.outliers * static_cast<double>(row.points));
    for (std::size_t n = 0; n < outliers; ++n) {
        Point3D_d const normal = randomDirection(random);
        for (int axis = 0; axis < 3; ++axis) {
            double const reach = half.asArray()[axis];
            cloud.points.positions.push_back(static_cast<float>(random.uniform(-reach, reach)));
            cloud.points.normals.push_back(static_cast<float>(normal.asArray()[axis]));
        }
        if (!cloud.points.boundaryMarks.empty())
            cloud.points.boundaryMarks.push_back(0);
    }
    return cloud;
}

// Share of the faces that look against the true surface.
double againstNormal(qz_test::Mesh const & mesh, qz_sampling::Shape const & shape)
{
    std::size_t against = 0;
    for (std::array<int, 3> const & triangle : mesh.triangles) {
        Point3D_d const a = mesh.vertices[std::size_t(triangle[0])];
        Point3D_d const u = mesh.vertices[std::size_t(triangle[1])] - a;
        Point3D_d const v = mesh.vertices[std::size_t(triangle[2])] - a;
        Point3D_d const normal = shape.normalNear(a + (u + v) / 3.0);
        double const look = normal.x() * (u.y() * v.z() - u.z() * v.y()) +
                            normal.y() * (u.z() * v.x() - u.x() * v.z()) +
                            normal.z() * (u.x() * v.y() - u.y() * v.x());
        against += look < 0 ? 1 : 0;
    }
    return static_cast<double>(against) /
           static_cast<double>(std::max<std::size_t>(1, mesh.triangles.size()));
}

double cpuSeconds()
{
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void measure(Row const & row, std::vector<std::string> const & modes)
{
    auto const shape = qz_sampling::makeShape(row.shape);
    if (shape == nullptr) {
        std::fprintf(stderr, "no shape is named %s\n", row.shape.c_str());
        std::exit(2);
    }
    Cloud const cloud = makeCloud(*shape, row);
    Point3D_d const half = shape->halfExtent();
    double const unit = 1e-5 * 2.0 * half.length();
    Row clean;
    clean.shape = row.shape;
    clean.points = 10000;
    qz_sampling::Cloud const truth = makeCloud(*shape, clean).points;
    for (std::string const & mode : modes) {
        VolTr::CVolTriangulationParams params;
        params.setOctreeDepth(row.depth);
        params.setReconstructFactor(row.factor);
        params.setUseCenter(row.useCenter);
        params.setAccelerated(true);
        params.setEstimateResultNormals(true);
        params.setClosed(shape->isClosed());
        params.setRefine(mode.find('P') != std::string::npos);
        params.setCorrectField(mode.find('C') != std::string::npos);
        qz_test::MeshTarget target;
        VolTr::CReconstructionReport report;
        VolTr::CVolumetricTriangulator triangulator(&target, &cloud, &params, nullptr);
        triangulator.setReport(&report);
        double const begin = cpuSeconds();
        triangulator.run();
        double const seconds = cpuSeconds() - begin;
        qz_test::Mesh const & mesh = target.mesh();
        qz_test::DistanceScore const toTruth = centroidDistances(mesh, *shape);
        qz_test::MeshDistance const distance(mesh);
        double sum = 0;
        for (std::size_t n = 0; n < truth.size(); ++n) {
            double const d = distance(Point3D_d(&truth.positions[3 * n]));
            sum += d * d;
        }
        qz_test::Topology const topology = examine(mesh);
        std::printf("| %s | %zu | %d | %g | %g | %g | %g | %g | %s | %s | %.2f | %.1f | %.2f | %.2f | %d, %d "
                    "| %.4f | %.2f | "
                    "%.0f |\n",
                    row.shape.c_str(), row.points, row.depth, 100 * row.noise, row.densityRatio,
                    row.normalNoise, 100 * row.outliers, double(row.factor),
                    row.useCenter ? "centres" : "corners", mode.empty() ? "-" : mode.c_str(),
                    toTruth.rms / unit, toTruth.max / unit,
                    std::sqrt(sum / static_cast<double>(truth.size())) / unit, normalAngles(mesh, *shape).rms,
                    topology.components, topology.eulerNumber(), 100 * againstNormal(mesh, *shape), seconds,
                    static_cast<double>(report.peakMemory) / 1e6);
        std::fflush(stdout);
    }
}

// The rows of the table in the documentation.
std::vector<Row> documented()
{
    std::vector<Row> rows;
    auto const add = [&](auto const & change) {
        Row row;
        change(row);
        rows.push_back(row);
    };
    for (char const * shape : {"sphere", "genus3", "plate", "thin-plate", "block", "sheet"})
        add([&](Row & row) { row.shape = shape; });
    add([](Row & row) {
        row.shape = "bumpy-sphere";
        row.densityRatio = 20;
    });
    for (double noise : {0.001, 0.002, 0.005})
        add([&](Row & row) { row.noise = noise; });
    for (double angle : {5.0, 18.0})
        add([&](Row & row) { row.normalNoise = angle; });
    add([](Row & row) { row.outliers = 0.05; });
    for (int depth : {6, 7, 9})
        add([&](Row & row) { row.depth = depth; });
    add([](Row & row) {
        row.depth = 7;
        row.factor = 2;
    });
    add([](Row & row) {
        row.depth = 9;
        row.factor = 0.5f;
    });
    for (int depth : {7, 8, 9}) {
        add([&](Row & row) {
            row.depth = depth;
            row.useCenter = false;
            row.factor = depth == 9 ? 0.5f : 1.0f;
        });
    }
    add([](Row & row) {
        row.noise = 0.002;
        row.useCenter = false;
    });
    add([](Row & row) {
        row.points = 10000;
        row.depth = 7;
    });
    add([](Row & row) {
        row.points = 1000000;
        row.depth = 9;
    });
    return rows;
}

} // namespace

int main(int argc, char ** argv)
{
    Row row;
    bool isCorner = false;
    bool isTable = false;
    std::vector<std::string> modes = {"-", "P", "C", "PC"};
    CLI::App app("Measures how near reconstructed surfaces come to true ones.");
    app.option_defaults()->always_capture_default();
    app.add_flag("--table", isTable, "The rows of the documentation instead of one");
    app.add_option("--shape", row.shape, "Shape of the cloud");
    app.add_option("-n,--points", row.points, "Points");
    app.add_option("-d,--depth", row.depth, "Depth of the octree");
    app.add_option("--noise", row.noise, "Standard deviation of the points, of the longest side");
    app.add_option("--density-ratio", row.densityRatio, "Densest to thinnest part");
    app.add_option("--normal-noise", row.normalNoise, "Standard deviation of the normals in degrees");
    app.add_option("--outliers", row.outliers, "Share of uniform points in the box");
    app.add_option("--subdivision", row.factor, "Cubes per cell along an axis");
    app.add_flag("--corner", isCorner, "Nodes at corners");
    app.add_option("--modes", modes, "- without, P refined, C corrected, PC both")->delimiter(',');
    CLI11_PARSE(app, argc, argv);
    row.useCenter = !isCorner;

    std::printf("Distances in 1e-5 of the box's diagonal: of the faces' middles to the true surface (rms, "
                "largest) and of\n"
                "points of the true surface to the mesh (rms). Normals in degrees rms; faces against the "
                "true normal in %%.\n\n"
                "| shape | points | depth | noise %% | density | normals off | outliers %% | subdivision | "
                "nodes | with | rms | "
                "largest | back | normals | components, Euler | against | CPU s | MB |\n"
                "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (Row const & each : isTable ? documented() : std::vector<Row>{row})
        measure(each, modes);
    return 0;
}
