// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace VsFn
{

/// A procedure without arguments and result. What it throws passes through `Run`.
class QZMATH_API IFunctor
{
public:
    virtual ~IFunctor();
    void Run() { OnRun(); }

protected:
    IFunctor() = default;

private:
    virtual void OnRun() = 0;
};

} // namespace VsFn
