// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Reconstruction.h>

#include <QZmath/Reconstruction/Call/CallRecord.h>
#include <QZmath/Reconstruction/Call/FinishedMesh.h>
#include <QZmath/Reconstruction/Call/MeshTarget.h>
#include <QZmath/Reconstruction/Cloud/DepthChoice.h>
#include <QZmath/Reconstruction/Cloud/LocalCloud.h>
#include <QZmath/Reconstruction/Cloud/SampleNormals.h>

#include <QZmath/Backend/FreeMemory.h>
#include <QZmath/SurfaceAnalysis/CloudMeasures.h>
#include <QZmath/VolTriang/ReconstructionEstimate.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolumetricTriangulator.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace QZmath
{

namespace
{

using Kind = ReconstructionError::Kind;

// Single stray points need not worry anybody.
double const farShareThatWarns = 0.001;
double const repeatedThatMatter = 0.01;

// Of what no memory could hold, as much as can be counted.
std::int64_t counted(double number) { return static_cast<std::int64_t>(std::min(number, 9e18)); }

// One call: the stages in their order, and what lives from one to the next. Lengths are local.
class Call
{
public:
    Call(PointCloudView const & cloud, ReconstructionOptions const & options, ReconstructionReport & report,
         CProgressCounter * progress)
        : m_options(options), m_report(report), m_progress(progress), m_cloud(cloud, progress)
    {}

    TriangleMesh run();
    ReconstructionEstimate estimate();

private:
    void prepare();
    void refuseWithoutArea() const;
    void removeOutliers();
    void measure();
    void removeRepeated();
    void settleDepth();
    VolTr::CVolTriangulationParams coreParameters() const;
    ReconstructionEstimate estimateCore(VolTr::CVolTriangulationParams const & params) const;
    void checkMemory(ReconstructionEstimate const & estimate) const;
    TriangleMesh extract(VolTr::CVolTriangulationParams const & params);
    void warnOfCore();
    void warnOfResult();
    void toCloud(TriangleMesh & mesh);

    ReconstructionOptions const & m_options;
    ReconstructionReport & m_report;
    CProgressCounter * m_progress;
    LocalCloud m_cloud;
    CCloudMeasures m_measures;
    int m_depth = 0;
    CellSizes m_cells;
};

// Points that span no area have no surface: all in one place, or on a line but for rounding.
void Call::refuseWithoutArea() const
{
    CloudScatter scatter(m_cloud.size(), m_cloud.extent());
    scatter.refuseWithoutExtent();
    scatter.addAll(m_cloud.points(), m_progress);
    scatter.refuseLine();
}

void Call::removeOutliers()
{
    std::vector<std::uint8_t> marks(static_cast<std::size_t>(m_cloud.size()));
    int const marked = FindOutliers(m_cloud.size(), m_cloud.points(), m_options.normalNeighbours,
                                    m_options.outlierRemoval, marks.data(), m_progress);
    if (marked == m_cloud.size())
        throw ReconstructionError(Kind::input, "all points of the cloud are outliers by --outliers; choose a "
                                               "larger value");
    m_cloud.remove(marks);
    m_report.outliersRemoved = static_cast<std::size_t>(marked);
}

void Call::measure()
{
    bool const areNormalsJudged = m_options.normals == Normals::automatic;
    m_measures = MeasureCloud(m_cloud.size(), m_cloud.points(),
                              areNormalsJudged ? m_cloud.normalVectors() : nullptr, m_progress);
}

// A point that is left out to see what the others say of it would be found again in its twin.
void Call::removeRepeated()
{
    if (m_measures.repeated < repeatedThatMatter)
        return;
    std::vector<std::uint8_t> marks(static_cast<std::size_t>(m_cloud.size()));
    int const marked = FindRepeatedPoints(m_cloud.size(), m_cloud.points(), marks.data(), m_progress);
    m_cloud.remove(marks);
    m_report.repeatedRemoved = static_cast<std::size_t>(marked);
    measure();
}

// The points as the core takes them.
void Call::prepare()
{
    refuseWithoutArea();
    if (m_options.outlierRemoval > 0.0) {
        removeOutliers();
        refuseWithoutArea();
    }
    measure();
    removeRepeated();
    m_report.spacing = m_cloud.frame().toCloud(m_measures.spacing);
    m_report.cloudNoise = m_cloud.frame().toCloud(m_measures.noise);
}

void Call::settleDepth()
{
    m_depth = chooseDepth(m_cloud, m_options, m_measures);
    m_cells.leaf = leafCellOf(m_cloud.extent(), m_depth);
    m_cells.spacing = m_measures.spacing;
    // Samples are no nearer to each other when cells are finer than they are.
    m_cells.trimDistance = m_options.trimDistance * std::max(m_cells.leaf, m_measures.spacing);
    m_report.leafCell = m_cloud.frame().toCloud(m_cells.leaf);
    if (4.5 * m_cells.leaf < m_measures.spacing) {
        char text[200];
        std::snprintf(text, sizeof(text),
                      "depth %d makes cells of %.3g, and the samples are %.3g apart: depth %d would show as "
                      "much for less",
                      m_depth, m_report.leafCell, m_report.spacing,
                      m_depth - static_cast<int>(std::log2(m_measures.spacing / m_cells.leaf)));
        m_report.warnings.push_back(text);
    }
}

VolTr::CVolTriangulationParams Call::coreParameters() const
{
    VolTr::CVolTriangulationParams params = m_options.core;
    params.setOctreeDepth(m_depth);
    params.setClosed(true); // what is to be open is cut off behind the core, along exact distances
    params.setAllComponents(true);
    params.setReach(m_options.boundary == Boundary::closed ? 0.0 : m_cells.trimDistance / m_cells.leaf);
    params.setLargestGap(m_options.boundary == Boundary::automatic ? m_options.largestHole : 0.0);
    params.setRefine(m_options.refine);
    params.setEstimateResultNormals(m_options.vertexNormals);
    return params;
}

ReconstructionEstimate Call::estimateCore(VolTr::CVolTriangulationParams const & params) const
{
    VolTr::CReconstructionEstimate const core =
        VolTr::estimateReconstruction(LocalSamples(m_cloud), params, false, m_progress);
    double const samples = static_cast<double>(m_cloud.size());
    // Where cells are finer than the samples' spacing, the core counts too few triangles: the surface goes on
    // between the samples. Cutting cubes makes nine triangles for each of their faces' areas.
    double const area = samples * m_measures.spacing * m_measures.spacing;
    double const cube = 2.0 * m_cells.leaf / static_cast<double>(params.getReconstructFactor());
    double const triangles = std::max(core.triangles, 9.0 * area / (cube * cube));
    // A triangle: itself and half a vertex with all that it can have, in arrays that grow by doubling unless
    // the core, which counts it with the refinement, writes there itself; and what the stages behind the core
    // keep of each, more where a boundary is cut.
    double const mesh = (12.0 + 0.5 * 31.0) * triangles;
    double const behind = 67.0 * triangles + 30.0 * samples;
    double const extraction =
        core.peakBytes() + 32.0 * (triangles - core.triangles) + (params.getRefine() ? 0.3 : 1.5) * mesh;
    double const before = (m_cloud.normals() != nullptr ? 40.0 : 190.0) * samples;
    bool const areNormalsToCome = m_cloud.normals() == nullptr || m_options.normals == Normals::estimate;
    double const copies = static_cast<double>(m_cloud.ownBytes()) + (areNormalsToCome ? 12.0 * samples : 0.0);
    ReconstructionEstimate estimate;
    estimate.depth = m_depth;
    estimate.nodes = core.nodes;
    estimate.triangles = counted(triangles);
    estimate.memory = counted(copies + std::max({before, extraction, behind}));
    return estimate;
}

void Call::checkMemory(ReconstructionEstimate const & estimate) const
{
    if (m_options.memoryLimit <= 0 || estimate.memory <= m_options.memoryLimit)
        return;
    char text[240];
    std::snprintf(text, sizeof(text),
                  "not enough memory: depth %d makes %lld nodes and about %lld triangles, which need about "
                  "%.3f GB, and %.3f GB may be taken; choose a smaller --depth or another --max-memory",
                  estimate.depth, static_cast<long long>(estimate.nodes),
                  static_cast<long long>(estimate.triangles), static_cast<double>(estimate.memory) / 1e9,
                  static_cast<double>(m_options.memoryLimit) / 1e9);
    throw ReconstructionError(Kind::memory, text);
}

TriangleMesh Call::extract(VolTr::CVolTriangulationParams const & params)
{
    TriangleMesh mesh;
    LocalSamples const samples(m_cloud);
    MeshTarget target(mesh, m_options.vertexNormals);
    VolTr::CVolumetricTriangulator triangulator(&target, &samples, &params, m_progress);
    triangulator.setReport(&m_report);
    try {
        triangulator.run();
    } catch (VolTr::CVolTriangulationError const & error) {
        throw ReconstructionError(Kind::failed, m_report.failure.empty()
                                                    ? std::string(error.what())
                                                    : error.what() + (": " + m_report.failure));
    }
    warnOfCore();
    return mesh;
}

void Call::warnOfCore()
{
    using Core = VolTr::CReconstructionReport;
    if (!m_report.converged) {
        char text[200];
        std::snprintf(text, sizeof(text),
                      "the iterative solver did not converge (relative residual %g), so the surface may be "
                      "wrong; --solver direct avoids that",
                      m_report.relativeResidual);
        m_report.warnings.push_back(text);
    }
    if (m_report.reason == Core::Reason::kernelOrDepth || m_report.reason == Core::Reason::didNotConverge)
        m_report.warnings.push_back(std::string("the exact path was taken, which costs far more: ") +
                                    m_report.reasonText());
}

void Call::warnOfResult()
{
    double const share = static_cast<double>(m_report.samplesFarFromMesh) / m_cloud.size();
    if (share > farShareThatWarns) {
        char text[200];
        std::snprintf(text, sizeof(text), "%zu samples (%.2g %%) are farther than two cells from the mesh",
                      m_report.samplesFarFromMesh, 100.0 * share);
        m_report.warnings.push_back(text);
    }
    if (m_report.turnedInsideOut)
        m_report.warnings.push_back("the normals point into the body, so the surface was turned; "
                                    "--input-normals given leaves it as it is");
    if (m_report.gapsLeftRough > 0)
        m_report.warnings.push_back(
            std::to_string(m_report.gapsLeftRough) +
            " closed gaps are too large or too bent to be smoothed, so the surface there "
            "is rough; --largest-hole leaves large ones open");
    if (m_options.boundary == Boundary::closed && !m_report.isClosed)
        m_report.warnings.push_back(
            m_report.endsAtLimit
                ? "the surface is not closed: it runs out of the region around the cloud in which it can be "
                  "followed, because too much of the object was not seen or its normals are wrong"
                : "the surface is not closed");
}

// Puts the mesh, and what the report says of lengths, into the place and the units of the cloud.
void Call::toCloud(TriangleMesh & mesh)
{
    LocalFrame const & frame = m_cloud.frame();
    mesh.origin = frame.origin;
    VolTr::CReconstructionReport::Refinement & refinement = m_report.refinement;
    for (double * length : {&m_report.boundaryLength, &refinement.width, &refinement.noise,
                            &refinement.rmsMove, &refinement.greatestMove})
        *length = frame.toCloud(*length);
    for (auto & width : refinement.widths) {
        width.cell = frame.toCloud(width.cell);
        width.leftOutError = frame.toCloud(width.leftOutError);
    }
    m_report.supportedArea = frame.toCloud(frame.toCloud(m_report.supportedArea));
    if (frame.scale == 1.0)
        return;
    for (float & coord : mesh.positions)
        coord = static_cast<float>(static_cast<double>(coord) / frame.scale);
    for (float & density : mesh.density)
        density = static_cast<float>(static_cast<double>(density) * frame.scale * frame.scale);
}

TriangleMesh Call::run()
{
    CallRecord record(m_report);
    auto const inPhase = [&](char const * name, double begin, double length, auto const & stage) {
        CPrgCntSubPhase const part(m_progress, begin, length, 0, true);
        CallRecord::Phase const phase(record, name);
        return stage();
    };
    inPhase("points", 0.0, 0.05, [&] { prepare(); });
    settleDepth();
    inPhase("normals", 0.05, 0.1,
            [&] { settleNormals(m_cloud, m_options, m_measures, m_report, m_progress); });
    VolTr::CVolTriangulationParams const params = coreParameters();
    if (m_options.memoryLimit > 0)
        inPhase("estimate", 0.15, 0.01, [&] { checkMemory(estimateCore(params)); });
    TriangleMesh mesh = [&] {
        CPrgCntSubPhase const part(m_progress, 0.16, 0.64, 0, true);
        CallRecord::Core const core(record);
        return extract(params);
    }();
    QzBackend::returnFreedMemory(static_cast<double>(mesh.triangleCount()) +
                                 static_cast<double>(m_cloud.size()));
    {
        CPrgCntSubPhase const part(m_progress, 0.8, 0.2, 0, true);
        finishMesh(mesh, m_cloud, m_cells, m_options, m_report, record, m_progress);
    }
    m_report.vertices = static_cast<int>(mesh.vertexCount());
    m_report.triangles = static_cast<int>(mesh.triangleCount());
    warnOfResult();
    toCloud(mesh);
    return mesh;
}

ReconstructionEstimate Call::estimate()
{
    {
        CPrgCntSubPhase const part(m_progress, 0.0, 0.5, 0, true);
        prepare();
    }
    settleDepth();
    CPrgCntSubPhase const part(m_progress, 0.5, 0.5, 0, true);
    return estimateCore(coreParameters());
}

} // namespace

TriangleMesh reconstruct(PointCloudView const & cloud, ReconstructionOptions const & options,
                         ReconstructionReport * report, CProgressCounter * progress)
{
    ReconstructionReport unread;
    ReconstructionReport & filled = report != nullptr ? *report : unread;
    filled = ReconstructionReport();
    options.check();
    CThreadNumberScope const threads(options.threads);
    return Call(cloud, options, filled, progress).run();
}

ReconstructionEstimate estimateReconstruction(PointCloudView const & cloud,
                                              ReconstructionOptions const & options,
                                              CProgressCounter * progress)
{
    ReconstructionReport unread;
    options.check();
    CThreadNumberScope const threads(options.threads);
    return Call(cloud, options, unread, progress).estimate();
}

} // namespace QZmath
