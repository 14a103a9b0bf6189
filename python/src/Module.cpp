// SPDX-License-Identifier: Apache-2.0
#include <python/src/Released.h>
#include <python/src/Subsystems.h>

#include <QZmath/Version.h>

PYBIND11_MODULE(_qzmath, module)
{
    module.doc() =
        "The library behind the package qzmath. Arguments are checked for type and shape only as far as "
        "memory is concerned; the functions of qzmath check the rest and say what is wrong.";
    module.attr("version") = QZmath::versionString();
    qz_python::Released::watchEnd();
    qz_python::bindReconstruction(module);
    qz_python::bindFiles(module);
    qz_python::bindSurfaceAnalysis(module);
    qz_python::bindFitting(module);
    qz_python::bindProjections(module);
    qz_python::bindLinearSystems(module);
    qz_python::bindSamples(module);
}
