// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace qz_recon
{

struct Options;

/// Opens the standard streams that the program was started without on the null device. Otherwise the first
/// files that it opens would take their places, and messages would go into them. Call first.
void openStandardStreams();

/// Refuses before the work begins what would fail after it, and what would replace a file that another
/// argument names: files are compared by what they are, links followed.
/// \throws UsageError, QZmath::OutputError
void checkFileArguments(Options const & options);

} // namespace qz_recon
