// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysFailure.h>

namespace REmath
{

char const * failureText(LinSysFailure failure)
{
    switch (failure) {
    case LinSysFailure::none:
        return "nothing went wrong";
    case LinSysFailure::spoiled:
        return "the system was stated with contradictions";
    case LinSysFailure::incomplete:
        return "the system has not as many equations as free vertices";
    case LinSysFailure::malformed:
        return "elements of the matrix or boundaries of blocks are out of place";
    case LinSysFailure::notFinite:
        return "a coefficient or a right part is not a finite number";
    case LinSysFailure::singular:
        return "the matrix is singular, or not definite as declared";
    case LinSysFailure::noMemory:
        return "there is not enough memory";
    case LinSysFailure::interrupted:
        return "the solve was interrupted";
    case LinSysFailure::notConverged:
        return "the iteration did not converge";
    case LinSysFailure::unknown:
        break;
    }
    return "the solver gave no reason";
}

} // namespace REmath
