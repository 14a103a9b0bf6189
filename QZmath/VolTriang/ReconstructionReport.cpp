// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/ReconstructionReport.h>

namespace VolTr
{

char const * CReconstructionReport::pathText() const
{
    switch (path) {
    case Path::exact:
        return "exact";
    case Path::accelerated:
        return "accelerated";
    case Path::none:
        break;
    }
    return "none";
}

char const * CReconstructionReport::reasonText() const
{
    switch (reason) {
    case Reason::asParameters:
        return "the parameters ask for it";
    case Reason::solverChosen:
        return "the parameters ask for a solver of the stored system";
    case Reason::kernelOrDepth:
        return "the accelerated path cannot serve this kernel or depth";
    case Reason::noSamples:
        return "there are no samples";
    case Reason::didNotConverge:
        return "the accelerated path did not converge";
    case Reason::none:
        break;
    }
    return "none";
}

char const * CReconstructionReport::solverText() const
{
    switch (solver) {
    case Solver::direct:
        return "direct";
    case Solver::iterative:
        return "iterative";
    case Solver::decomposing:
        return "decomposing";
    case Solver::accelerated:
        return "accelerated";
    case Solver::none:
        break;
    }
    return "none";
}

} // namespace VolTr
