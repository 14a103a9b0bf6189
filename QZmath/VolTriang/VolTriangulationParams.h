// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace VsUt
{
class IDebugLog;
}

namespace VolTr
{

/// Parameters of a reconstruction. A plain value: every field `f` is read by `getF()`, written by
/// `setF(value)` and reached by reference as `f()`. Nothing is checked here; `CVolumetricTriangulator::run`
/// refuses what cannot be used.
class QZMATH_API CVolTriangulationParams
{
public:
    CVolTriangulationParams();
    virtual ~CVolTriangulationParams();
    CVolTriangulationParams(CVolTriangulationParams const &);
    CVolTriangulationParams & operator=(CVolTriangulationParams const &);

    /// Depth of the octree: the leaf lattice has `1 << octreeDepth` steps along each axis. It must be set:
    /// the default is refused by `run`. At least 2 with `useCenter`, 1 without; at most 29. Default -1.
    int getOctreeDepth() const { return m_octreeDepth; }
    int & octreeDepth() { return m_octreeDepth; }
    void setOctreeDepth(int value) { m_octreeDepth = value; }

    /// Fineness of the mesh: the polygoniser's cubes are as large as two leaf cells divided by this, which is
    /// `COctree::getCellSize(octreeDepth - 1) / reconstructFactor`. Default 1.0.
    float getReconstructFactor() const { return m_reconstructFactor; }
    float & reconstructFactor() { return m_reconstructFactor; }
    void setReconstructFactor(float value) { m_reconstructFactor = value; }

    /// Is the surface closed? If not, it ends where no sample is near and at samples that the cloud marks as
    /// its border, so that holes stay open. If so, it is followed wherever it runs; around a cloud that
    /// leaves most of its object out, or whose samples are all at one place, that is as far as the lattice of
    /// cubes goes, where the mesh then has a border: `CReconstructionReport::endsAtLimit` tells. Default
    /// true.
    bool getClosed() const { return m_closed; }
    bool & closed() { return m_closed; }
    void setClosed(bool value) { m_closed = value; }

    /// Vertices get normals from the gradient of the implicit function; otherwise their normals are zero.
    /// Default false.
    bool getEstimateResultNormals() const { return m_estimateResultNormals; }
    bool & estimateResultNormals() { return m_estimateResultNormals; }
    void setEstimateResultNormals(bool value) { m_estimateResultNormals = value; }

    /// The progress counter is told the name of each phase (`CProgressCounter::onPhaseName`). Default false.
    bool getPhaseNameShown() const { return m_phaseNameShown; }
    bool & phaseNameShown() { return m_phaseNameShown; }
    void setPhaseNameShown(bool value) { m_phaseNameShown = value; }

    /// Does a basis function stand at the centre of a cell of its depth, and not at a corner? Default true.
    bool getUseCenter() const { return m_useCenter; }
    bool & useCenter() { return m_useCenter; }
    void setUseCenter(bool value) { m_useCenter = value; }

    /// Width of the basis functions relative to the quadratic B-spline on their cells. Above 1 widens them; 0
    /// or a negative value leaves them as they are. Default 0.95.
    float getKernelScaleFactor() const { return m_kernelScaleFactor; }
    float & kernelScaleFactor() { return m_kernelScaleFactor; }
    void setKernelScaleFactor(float value) { m_kernelScaleFactor = value; }

    /// Sink of the log lines, not owned; null silences the log. It is called from worker threads too.
    /// Default null.
    VsUt::IDebugLog * getDebugLog() const { return m_debugLog; }
    VsUt::IDebugLog *& debugLog() { return m_debugLog; }
    void setDebugLog(VsUt::IDebugLog * value) { m_debugLog = value; }

    /// Heed the density of the samples: sparse ones are splatted on coarser depths, and all weigh by the area
    /// that they stand for. Default true.
    bool getVariableDensity() const { return m_variableDensity; }
    bool & variableDensity() { return m_variableDensity; }
    void setVariableDensity(bool value) { m_variableDensity = value; }

    /// Coarseness of the density estimate: it is taken with nodes so many depths above the deepest ones, or
    /// with the coarsest where there are not so many. Negative values count as 0. Default 2.
    int getDensityEstimationDepthDelta() const { return m_densityEstimationDepthDelta; }
    int & densityEstimationDepthDelta() { return m_densityEstimationDepthDelta; }
    void setDensityEstimationDepthDelta(int value) { m_densityEstimationDepthDelta = value; }

    /// Reach of the basis towards coarse functions: beside the deepest depth, so many above it carry some.
    /// All depths do when the value is negative or exceeds their number. Default -1.
    int getDetalizationLevel() const { return m_detalizationLevel; }
    int & detalizationLevel() { return m_detalizationLevel; }
    void setDetalizationLevel(int value) { m_detalizationLevel = value; }

    /// Linear solver: 0 by the size of the system, 1 or 2 direct, 3 iterative, 4 decomposing. `run` refuses
    /// others. Default 0.
    ///
    /// Cost, with n unknowns (2 to 8 for each leaf cell, most on small clouds) and 150 to 350 elements a row:
    /// the direct solver takes a time that grows as n^2 at most (1 s for 8000 to 20000). An iteration of the
    /// other two reads the matrix twice, and both stop after 10000 of them, the decomposing one for each of
    /// the three blocks that it merges, whether they have converged or not. They have no preconditioner, and
    /// kernels wider than 1 spoil the condition of the matrix: at a kernel scale of 1.3, 1089 points at depth
    /// 6 (7901 unknowns) take 20778 iterations and a minute without converging, where the direct solver takes
    /// a second. The report tells `iterations` and `converged`.
    int getPrefferedSolver() const { return m_prefferedSolver; }
    int & prefferedSolver() { return m_prefferedSolver; }
    void setPrefferedSolver(int value) { m_prefferedSolver = value; }

    /// With `prefferedSolver` 0, solve without a matrix and extract the surface from bricks of values: the
    /// same surface to a small fraction of a cell, in a fraction of the time and memory. Where that cannot
    /// serve (a kernel scale above 1, a tree of more than 13 node depths, no convergence) the run logs so and
    /// goes the other way. Default false.
    bool getAccelerated() const { return m_accelerated; }
    bool & accelerated() { return m_accelerated; }
    void setAccelerated(bool value) { m_accelerated = value; }

    /// Relative residual at which the accelerated solver stops. At the default of 1e-3 the surface is
    /// displaced by less than 1 % of a leaf cell. Values that are not above 0 cannot be reached and lead to
    /// the other solvers.
    double getSolverTolerance() const { return m_solverTolerance; }
    double & solverTolerance() { return m_solverTolerance; }
    void setSolverTolerance(double value) { m_solverTolerance = value; }

    /// Move the vertices of the extracted surface onto the samples around them, over a width that is chosen
    /// by leaving samples out: finds details that the implicit function rounds off, and averages noise. Moves
    /// at most one cell of the deepest nodes, and none far from samples; the triangles stay which they are.
    /// Vertex normals, when asked for, are then those of the samples. Default false.
    bool getRefine() const { return m_refine; }
    bool & refine() { return m_refine; }
    void setRefine(bool value) { m_refine = value; }

    /// Bring the implicit function nearer to one value at all samples, before the surface is extracted: takes
    /// false pieces off that outliers make, and finds sharper creases. Unlike `refine`, it may change the
    /// topology, for better or worse: thin, gappy scans may get handles. Default false.
    bool getCorrectField() const { return m_correctField; }
    bool & correctField() { return m_correctField; }
    void setCorrectField(bool value) { m_correctField = value; }

    /// Extract all pieces of the surface that pass near a sample, through its cube of the lattice or one
    /// beside it, and not only the one that is met near the middle of the cloud: that one first, the others
    /// by their least sample. All lie on one lattice of cubes, which then ends where the nodes of the octree
    /// do; without, it goes on for as many cubes from the start as the octree has along an edge, far beyond
    /// it. Default false.
    bool getAllComponents() const { return m_allComponents; }
    bool & allComponents() { return m_allComponents; }
    void setAllComponents(bool value) { m_allComponents = value; }

    /// Distance from the nearest sample, in leaf cells, up to which the surface counts as supported. It is
    /// then followed over its supported parts first. What lies between and around them, its patches, is
    /// followed from all sides at the same time, each as far as `largestGap` allows; a patch that is larger
    /// is abandoned: what was followed of it stays in the mesh, with a border at least `reach` + 1 leaf cells
    /// away from every sample. So an open cloud is not surrounded by a large sheet. Without `allComponents`,
    /// supported parts that only abandoned patches connect with the first one are not found. Nothing is
    /// followed beyond the nodes of the octree. Values that are not above 0, and infinity, set no limit.
    /// Default 0.
    double getReach() const { return m_reach; }
    double & reach() { return m_reach; }
    void setReach(double value) { m_reach = value; }

    /// With `reach`: the area that a patch may have, as a share of that of all supported surface. All patches
    /// together, but for the strips along supported surface that are always followed, never take more than
    /// the supported surface, or so many times that if this is above 1. Areas are taken from the cubes that
    /// the surface crosses, right to a tenth. Default 0.2.
    double getLargestGap() const { return m_largestGap; }
    double & largestGap() { return m_largestGap; }
    void setLargestGap(double value) { m_largestGap = value; }

    /// Polygoniser cubes along an edge of the octree's cube: `(1 << octreeDepth) * reconstructFactor`.
    float getCellFactor() const;
    /// Expected edge length of a triangle for a model whose largest extent is `modelSize`.
    float estimateTriangleSize(float modelSize) const;
    /// Expected number of triangles, 6 f f with f = `getCellFactor()`, truncated; at most the greatest `int`.
    int estimateTrianglesNumber() const;

private:
    int m_octreeDepth;
    float m_reconstructFactor;
    bool m_closed;
    bool m_estimateResultNormals;
    bool m_phaseNameShown;
    bool m_useCenter;
    float m_kernelScaleFactor;
    VsUt::IDebugLog * m_debugLog;
    bool m_variableDensity;
    int m_densityEstimationDepthDelta;
    int m_detalizationLevel;
    int m_prefferedSolver;
    bool m_accelerated;
    double m_solverTolerance;
    bool m_refine;
    bool m_correctField;
    bool m_allComponents;
    double m_reach;
    double m_largestGap;
};

} // namespace VolTr
