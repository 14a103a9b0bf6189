// SPDX-License-Identifier: Apache-2.0
#include <QZsys/Fragments.h>

IVescaFragmentDescriptor_Old::~IVescaFragmentDescriptor_Old() = default;
IVescaFragment_Old::~IVescaFragment_Old() = default;
IVescaFragmentParallelWorker_Old::~IVescaFragmentParallelWorker_Old() = default;
