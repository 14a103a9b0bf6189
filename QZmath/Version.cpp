// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Version.h>

namespace QZmath
{

char const * versionString() { return QZMATH_VERSION_STRING; }

int versionNumber() { return QZMATH_VERSION; }

} // namespace QZmath
