// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/ReconstructionEstimate.h>

#include <cstddef>

namespace qz_recon
{

/// Bytes that the program needs at its peak, itself and the cloud included: for the reconstruction, or for
/// the mesh while it is examined, which takes more where the reconstruction is accelerated.
double programMemory(VolTr::CReconstructionEstimate const & estimate, std::size_t samples, bool withNormals);

/// Bytes that this process can still take: the machine's available memory, and what its control group and its
/// address space limit leave.
double availableMemory();

/// Greatest memory that this process has occupied so far, in bytes; 0 if unknown.
double peakMemory();

} // namespace qz_recon
