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
namespace VsPCnt
{
class CMultiPhaseManager;
}
namespace VsUt
{
class IDebugLog;
}

namespace VolTr
{

struct StageContext;

/// What assembly and solution need to know of the concrete solver behind `IVertexPosLinearSystem`: its matrix
/// storage.
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

/// Tells the log how the solver reached its solution.
class tf_ISystemSolveDetails
{
public:
    virtual ~tf_ISystemSolveDetails();
    virtual void logDetails(VsUt::IDebugLog * log) = 0;
};

/// A linear solver with its two companions. They refer to the solver, so they go first.
struct ReconstructionSolver
{
    std::unique_ptr<REmath::IVertexPosLinearSystem<double>> solver;
    std::unique_ptr<tf_IMatrixMemoryReservator> matrixReservator;
    std::unique_ptr<tf_ISystemSolveDetails> solveDetails;
};

/// Makes the solver for a system of `unknowns`: by size (0), direct (1, 2), iterative (3) or decomposing (4).
/// \throws CVolTriangulationError for any other choice, and for a matrix that 32-bit indices cannot hold
ReconstructionSolver chooseSolver(int prefferedSolver, int unknowns, VsUt::IDebugLog * log);

/// Fills the solver with the system of the reconstruction: minus the products of the basis functions with
/// their Laplacians, and their products with the divergence of the field. Runs right part and matrix at the
/// same time when two threads are there.
void assembleSystem(StageContext const & context, GradientBasis const & gradBasis, VectorField const & field,
                    ReconstructionSolver & system, VsPCnt::CMultiPhaseManager & phases);

/// Solves the system and returns the implicit function.
/// \throws CVolTriangulationError "Failed to solve linear system"
std::unique_ptr<Combination> solveEquation(StageContext const & context, ReconstructionSolver system);

} // namespace VolTr
