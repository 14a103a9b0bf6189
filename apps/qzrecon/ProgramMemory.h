// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace qz_recon
{

/// Bytes that this process can still take: the machine's available memory, and what its control group and its
/// address space limit leave.
double availableMemory();

/// Memory that this process occupies now, in bytes; 0 if unknown.
double occupiedMemory();

/// Greatest memory that this process has occupied so far, in bytes; 0 if unknown.
double peakMemory();

} // namespace qz_recon
