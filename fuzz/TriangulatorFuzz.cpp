// SPDX-License-Identifier: Apache-2.0

// The core of the reconstruction on small clouds, with any parameters, on both paths, as it was estimated. A
// mesh has no edge with two triangles on the same side, is closed unless the report tells why not, and has
// the same bits for one thread and for two; what the caller's progress, samples or target throw ends the run
// and nothing else.

#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/ReconstructionEstimate.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolumetricTriangulator.h>
#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include "Input.h"

#include <string>

namespace
{

using namespace qz_fuzz;
using REmath::Point3D;

struct Stop
{};

class Samples final : public VolTr::IInputSamples
{
public:
    std::vector<Point3D> points, normals;
    int boundary = 0;

private:
    int onPointsNumber() const override { return int(points.size()); }
    float const * onGetSampleCoords3(int n) const override { return points[std::size_t(n)].asArray(); }
    float const * onGetSampleNormal3(int n) const override { return normals[std::size_t(n)].asArray(); }
    bool onIsBoundaryVertex(int n) const override { return boundary > 0 && n % boundary == 0; }
};

class Mesh final : public VolTr::ITriangulationTarget
{
public:
    std::vector<double> numbers;
    std::vector<int> triangles;
    int mostVertices = -1;

private:
    void onAddNewVertex(int index, double const * coords, double const * normal) override
    {
        require(3 * std::size_t(index) == numbers.size() / 2, "vertices come in order");
        if (index == mostVertices)
            throw Stop();
        for (int axis = 0; axis < 3; ++axis)
            require(std::isfinite(coords[axis]) && std::isfinite(normal[axis]), "a vertex is finite");
        numbers.insert(numbers.end(), coords, coords + 3);
        numbers.insert(numbers.end(), normal, normal + 3);
    }
    void onAddNewVertex(int, float const *, float const *) override { failed("vertices come in double"); }
    void onAddNewTriangle(int a, int b, int c) override { triangles.insert(triangles.end(), {a, b, c}); }
};

class Interruption final : public CProgressCounter
{
public:
    explicit Interruption(int steps) : m_steps(steps) {}

private:
    void onPosition(double overall) override
    {
        require(overall >= m_position && overall <= 1, "progress goes from 0 to 1");
        m_position = overall;
        if (m_steps-- == 0)
            interrupt();
    }
    int m_steps;
    double m_position = 0;
};

VolTr::CVolTriangulationParams drawParams(Input & input)
{
    VolTr::CVolTriangulationParams params;
    int const odd = input.byte();
    params.setOctreeDepth(odd == 255 ? input.integer() % 5 : 2 + input.byte() / 128);
    params.setAccelerated(input.flag());
    if ((odd & 1) != 0) {
        // Finer cubes and wider kernels only take more time.
        params.setReconstructFactor(std::min(float(input.number()), 2.0F));
        params.setKernelScaleFactor(std::min(float(input.number()), 1.2F));
        params.setUseCenter(input.flag());
    }
    if ((odd & 2) != 0) {
        params.setClosed(input.flag());
        params.setReach(input.number());
        params.setLargestGap(input.number());
        params.setAllComponents(input.flag());
    }
    if ((odd & 4) != 0) {
        params.setVariableDensity(input.flag());
        params.setDensityEstimationDepthDelta(input.integer());
        params.setDetalizationLevel(input.integer());
        params.setPrefferedSolver(input.upTo(5));
        params.setSolverTolerance(input.number());
    }
    if ((odd & 8) != 0) {
        params.setEstimateResultNormals(input.flag());
        params.setRefine(input.flag());
        params.setCorrectField(input.flag());
    }
    return params;
}

std::string run(VolTr::CVolTriangulationParams const & params, Samples const & samples, int threads,
                Mesh & mesh, VolTr::CReconstructionReport & report, CProgressCounter * progress)
{
    CThreadNumberScope const scope(threads);
    try {
        VolTr::CVolumetricTriangulator triangulator(&mesh, &samples, &params, progress);
        triangulator.setReport(&report);
        triangulator.run();
    } catch (std::exception const & error) {
        require(*error.what() != '\0', "a run that fails says why");
        return error.what();
    } catch (Stop) {
        return "stopped";
    }
    return {};
}

void checkEstimate(VolTr::CVolTriangulationParams const & params, Samples const & samples, bool isDone,
                   VolTr::CReconstructionReport const & report)
{
    try {
        VolTr::CReconstructionEstimate const estimate = VolTr::estimateReconstruction(samples, params);
        require(estimate.exactBytes >= 0 && estimate.acceleratedBytes >= 0, "an estimate is a number");
        require(estimate.nodes == report.nodes && estimate.leafCells == report.leafCells,
                "a run has the nodes that were estimated");
    } catch (std::exception const &) {
        require(!isDone, "no run does what the estimate refused");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    VolTr::CVolTriangulationParams const params = drawParams(input);
    Samples samples;
    int const habit = input.byte(), steps = input.byte();
    samples.boundary = input.upTo(9);
    std::vector<REmath::Point3D_d> const points = input.points(40);
    samples.points = inSinglePrecision(points);
    // Away from the middle, from the bytes, or turned and stretched.
    for (Point3D const & p : samples.points)
        samples.normals.push_back(habit % 4 == 0   ? inSinglePrecision({input.point()}).front()
                                  : habit % 4 == 1 ? p * -1.0F
                                                   : p);

    Mesh one, two;
    VolTr::CReconstructionReport report, reportOfTwo;
    std::string const end = run(params, samples, 1, one, report, nullptr);
    checkEstimate(params, samples, end.empty(), report);
    require(run(params, samples, 2, two, reportOfTwo, nullptr) == end,
            "threads have no influence on the end");
    require(Bits(one.numbers, one.triangles) == Bits(two.numbers, two.triangles),
            "threads have no influence on the mesh");
    bool const isClosed = isClosedMesh(one.triangles, one.numbers.size() / 6);
    if (end.empty()) {
        require(report.vertices == int(one.numbers.size() / 6) &&
                    report.triangles == int(one.triangles.size() / 3) && report.pieces > 0,
                "a report counts the mesh");
        require(isClosed || report.endsAtLimit || report.abandonedPatches > 0 || !params.getClosed(),
                "a mesh that should be closed is, or the report tells why not");
    }

    Mesh cut;
    Interruption interruption(steps);
    if (habit % 8 >= 4)
        cut.mostVertices = steps;
    std::string const cutEnd = run(params, samples, 2, cut, report, habit % 8 >= 4 ? nullptr : &interruption);
    require(cutEnd == end || cutEnd == "stopped" || cutEnd == "user interruption",
            "a run ends as it was told");
    if (cutEnd == end)
        require(Bits(cut.numbers, cut.triangles) == Bits(one.numbers, one.triangles),
                "progress has no influence on the mesh");
    return 0;
}
