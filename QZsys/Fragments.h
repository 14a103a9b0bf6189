// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

/// Names one block of a model to those who walk it block by block. What a block is, the deriving class says.
class QZSYS_API IVescaFragmentDescriptor_Old
{
public:
    virtual ~IVescaFragmentDescriptor_Old();
};

/// The data of one block, taken out of a model.
class QZSYS_API IVescaFragment_Old
{
public:
    virtual ~IVescaFragment_Old();
};

/// Works on blocks, one after the other, on one thread.
class QZSYS_API IVescaFragmentParallelWorker_Old
{
public:
    virtual ~IVescaFragmentParallelWorker_Old();

    /// Works on one block. `fragment` is null when the block's data are not taken out of the model.
    /// @return 0 for success, 10 for a user interruption, any other value for an error
    virtual int ProcessFragment(IVescaFragmentDescriptor_Old & descriptor, IVescaFragment_Old * fragment) = 0;
};
