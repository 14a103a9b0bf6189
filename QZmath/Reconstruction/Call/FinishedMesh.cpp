// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Call/FinishedMesh.h>

#include <QZmath/Reconstruction/Call/CallRecord.h>
#include <QZmath/Reconstruction/Cloud/LocalCloud.h>
#include <QZmath/Reconstruction/Mesh/Attributes.h>
#include <QZmath/Reconstruction/Mesh/BoundaryStage.h>
#include <QZmath/Reconstruction/Mesh/Components.h>
#include <QZmath/Reconstruction/Mesh/Fairing.h>
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/PointDistances.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>
#include <QZmath/Reconstruction/Mesh/Simplification.h>
#include <QZmath/Reconstruction/Mesh/Slivers.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <QZmath/Backend/Parallel.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace QZmath
{

namespace
{

using QzBackend::LoopTeam;
using namespace Stages;

// Six times the volume inside a closed mesh.
double signedVolume(TriangleMesh const & mesh, LoopTeam & team)
{
    return sumOver(team, mesh.triangleCount(), [&mesh](std::size_t triangle) {
        Triangle const corners = triangleOf(mesh, triangle);
        return dot(corners.a, cross(corners.b, corners.c));
    });
}

void turn(TriangleMesh & mesh)
{
    for (std::size_t corner = 0; corner < mesh.triangles.size(); corner += 3)
        std::swap(mesh.triangles[corner + 1], mesh.triangles[corner + 2]);
    for (float & component : mesh.normals)
        component = -component;
}

ReconstructionReport::Angles anglesOf(TriangleMesh const & mesh, LoopTeam & team)
{
    AngleDistribution const angles = measureAngles(mesh, team);
    return {angles.least, angles.belowOne, angles.belowFive, angles.belowTen};
}

class Finisher
{
public:
    Finisher(TriangleMesh & mesh, LocalCloud const & cloud, CellSizes const & cells,
             ReconstructionOptions const & options, ReconstructionReport & report, LoopTeam & team)
        : m_mesh(mesh), m_cloud(cloud), m_cells(cells), m_options(options), m_report(report), m_team(team),
          m_samples(cloud.positions(), static_cast<std::size_t>(cloud.size()), team)
    {}

    void settlePieces();
    void fairGaps(double from, double until);
    void cleanTriangles();
    void addAttributes();
    void judge();

private:
    TriangleMesh & m_mesh;
    LocalCloud const & m_cloud;
    CellSizes const m_cells;
    ReconstructionOptions const & m_options;
    ReconstructionReport & m_report;
    LoopTeam & m_team;
    SampleIndex const m_samples;
};

// What of the surface stays.
void Finisher::settlePieces()
{
    BoundaryRule rule;
    rule.boundary = m_options.boundary;
    rule.trimDistance = m_cells.trimDistance;
    rule.leafCell = m_cells.leaf;
    rule.largestHole = m_options.largestHole;
    rule.boundaryMarks = m_cloud.boundary();
    BoundaryFindings const boundary = settleBoundary(m_mesh, m_samples, rule, m_team);
    m_report.supportedArea = boundary.supportedArea;
    m_report.holesClosed = boundary.holesClosed;
    m_report.closedArea = boundary.supportedArea > 0.0 ? boundary.closedArea / boundary.supportedArea : 0.0;
    ComponentFindings const components = keepComponents(
        m_mesh, m_samples, {m_options.allComponents, m_options.smallestComponent, rule.trimDistance}, m_team);
    m_report.componentsFound = components.found;
    m_report.componentsKept = components.kept;
    m_report.specksDropped = components.dropped;
}

// How what closes the gaps runs.
void Finisher::fairGaps(double from, double until)
{
    if (m_report.holesClosed == 0)
        return;
    FairingRule rule;
    rule.trimDistance = m_cells.trimDistance;
    FairingFindings const found = fairPatches(m_mesh, m_samples, rule, m_team, from, until);
    m_report.gapsFaired = found.faired;
    m_report.gapsLeftRough = found.left;
}

void Finisher::cleanTriangles()
{
    m_report.anglesBefore = anglesOf(m_mesh, m_team);
    m_report.sliversRemoved = removeSlivers(m_mesh, m_cells.leaf, m_team);
    m_report.anglesAfter = anglesOf(m_mesh, m_team);
    if (m_options.simplifyError > 0.0) {
        m_report.trianglesBeforeSimplification = m_mesh.triangleCount();
        simplify(m_mesh, m_options.simplifyError * m_cells.leaf, m_team);
    }
}

void Finisher::addAttributes()
{
    // Colours rest on the samples that the place of the vertex rests on, but on no more than they need: where
    // the surface is smooth, the refinement reaches farther than colours may be blurred.
    double const widest = std::max(m_cells.leaf, m_cells.spacing);
    double const refined = m_report.refinement.width;
    double const width = refined > 0.0 ? std::min(refined, widest) : widest;
    if (m_cloud.colors() != nullptr)
        colourVertices(m_mesh, m_samples, m_cloud.colors(), m_cloud.normals(), width, m_team);
    if (m_options.vertexDensity)
        measureDensity(m_mesh, m_samples, m_cloud.normals(), m_cells.leaf, m_team);
}

// What the result is like as a whole.
void Finisher::judge()
{
    BorderLoops const borders = measureBorders(m_mesh, m_team);
    m_report.boundariesLeft = borders.count;
    m_report.boundaryLength = borders.length;
    m_report.isClosed = borders.count == 0;
    m_report.samplesFarFromMesh = samplesFarFromMesh(m_samples, m_mesh, 2.0 * m_cells.leaf, m_team);
    bool const mayTurn = m_options.normals == Normals::automatic && !m_report.normalsEstimated;
    if (mayTurn && m_report.isClosed && signedVolume(m_mesh, m_team) < 0.0) {
        turn(m_mesh);
        m_report.turnedInsideOut = true;
    }
}

} // namespace

void finishMesh(TriangleMesh & mesh, LocalCloud const & cloud, CellSizes const & cells,
                ReconstructionOptions const & options, ReconstructionReport & report, CallRecord & record,
                CProgressCounter * progress)
{
    auto const work = [&](LoopTeam & team) {
        auto const inPhase = [&](char const * name, double end, auto const & stage) {
            {
                CallRecord::Phase const phase(record, name);
                stage();
            }
            team.setPosition(end);
        };
        std::optional<Finisher> finisher;
        inPhase("index", 0.15, [&] { finisher.emplace(mesh, cloud, cells, options, report, team); });
        inPhase("boundary", 0.35, [&] { finisher->settlePieces(); });
        inPhase("fairing", 0.6, [&] { finisher->fairGaps(0.35, 0.6); });
        inPhase("triangles", 0.75, [&] { finisher->cleanTriangles(); });
        inPhase("attributes", 0.9, [&] { finisher->addAttributes(); });
        inPhase("check", 1.0, [&] { finisher->judge(); });
    };
    LoopTeam::run(CVescaThreadingTasksHelper::getNumOfPhisicalThread(), progress, work);
    if (mesh.triangles.empty())
        throw ReconstructionError(ReconstructionError::Kind::failed,
                                  "nothing is left of the surface: no piece of it is supported by samples");
}

} // namespace QZmath
