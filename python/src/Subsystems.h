// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

/// What each source adds to the extension module.
namespace qz_python
{

void bindReconstruction(pybind11::module_ & module);
void bindFiles(pybind11::module_ & module);
void bindSurfaceAnalysis(pybind11::module_ & module);
void bindFitting(pybind11::module_ & module);
void bindProjections(pybind11::module_ & module);
void bindLinearSystems(pybind11::module_ & module);
void bindSamples(pybind11::module_ & module);

} // namespace qz_python
