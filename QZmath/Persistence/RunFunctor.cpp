// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/RunFunctor.h>

namespace VsFn
{

IFunctor::~IFunctor() = default;

} // namespace VsFn
