// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/LinSys/LinearSystem.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace REmath
{
template <class T>
class CCSRSstorage;
}
namespace VsUt
{
class IDebugLog;
}

namespace VolTr
{

class CReconstructionReport;
class RunPhases;
struct StageContext;

/// Elements of a row of the upper half for which memory is reserved: nodes of the same depth and of all
/// coarser ones, as measured on closed surfaces. Kernels wider than their cells have more.
constexpr std::int64_t expectedElementsPerRow = 240;

/// What assembly and solution need to know of the concrete solver behind
/// `IVertexPosLinearSystem`: its matrix storage.
class tf_IMatrixMemoryReservator
{
public:
    virtual ~tf_IMatrixMemoryReservator();
    /// The row after which memory is reserved: the first, so that the storage does not grow in steps.
    virtual int reservationRow() const = 0;
    virtual void addRowElements(int count) = 0;
    virtual void reserveMemory() = 0;
    virtual std::int64_t expectedElements() const = 0;
    virtual std::int64_t elementsNumber() const = 0;
    /// Scales the matrix to a last element of magnitude 1 and logs the factor.
    virtual void normalizeSystem(VsUt::IDebugLog * log) = 0;
    virtual REmath::CCSRSstorage<double> & getStorage() = 0;
};

/// Tells the log and the report how the solver reached its solution.
class tf_ISystemSolveDetails
{
public:
    virtual ~tf_ISystemSolveDetails();
    virtual void logDetails(VsUt::IDebugLog * log, CReconstructionReport & report) = 0;
};

/// A linear solver with its two companions. They refer to the solver, so they go first.
struct ReconstructionSolver
{
    std::unique_ptr<REmath::IVertexPosLinearSystem<double>> solver;
    std::unique_ptr<tf_IMatrixMemoryReservator> matrixReservator;
    std::unique_ptr<tf_ISystemSolveDetails> solveDetails;
};

/// Makes the solver for the system of an octree, see `solverOf`.
/// \throws CVolTriangulationError for an unknown choice, and for a matrix that 32-bit indices cannot hold
ReconstructionSolver chooseSolver(StageContext const & context);

/// Fills the solver with the system of the reconstruction: minus the products of the basis functions with
/// their Laplacians, and their products with the divergence of the field. Runs right part and matrix at the
/// same time when two threads are there.
void assembleSystem(StageContext const & context, GradientBasis const & gradBasis, VectorField const & field,
                    ReconstructionSolver & system, RunPhases & phases);

/// Solves the system and returns the implicit function.
/// \throws CVolTriangulationError "Failed to solve linear system"
std::unique_ptr<Combination> solveEquation(StageContext const & context, ReconstructionSolver system);

} // namespace VolTr
