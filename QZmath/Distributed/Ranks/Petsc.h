// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <petscsys.h>

namespace QZmath::Distributed
{

/// Initialises PETSc for the process when nobody has, over all its ranks, without its handlers of signals and
/// without reading a command line. Its errors come back as codes. Needs MPI to be initialised; it is
/// finalised with MPI. Collective over MPI_COMM_WORLD the first time.
void ensurePetsc();

/// \throws std::bad_alloc when PETSc found no memory, std::runtime_error with its text for other errors
void checkPetsc(PetscErrorCode code);

} // namespace QZmath::Distributed
