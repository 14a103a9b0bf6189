// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
class CProgressCounter;
struct CCloudMeasures;

namespace QZmath
{

class LocalCloud;
struct ReconstructionOptions;
struct ReconstructionReport;

/// Sees to it that the cloud has normals, as the options want them, and says in the report what is doubtful.
/// \param measures of the cloud with the normals that it has come with
/// \throws ReconstructionError when there are none, and none can be estimated
QZMATH_SISTER_API void settleNormals(LocalCloud & cloud, ReconstructionOptions const & options,
                                     CCloudMeasures const & measures, ReconstructionReport & report,
                                     CProgressCounter * progress);

} // namespace QZmath
