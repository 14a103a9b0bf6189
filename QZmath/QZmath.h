// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Umbrella over every public header of the library and of the system library beside it.
#include <QZmath/BlockProcessor/TransThreadPrgCntAdapter.h>
#include <QZmath/Export.h>
#include <QZmath/Foundation/Coord3DRefs.h>
#include <QZmath/Foundation/Functor.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/LinSys/Bicgstab.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCore.h>
#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>
#include <QZmath/LinSys/LinSysVariableManager.h>
#include <QZmath/LinSys/LinearSystem.h>
#include <QZmath/LinSys/VertexLinearCombination.h>
#include <QZmath/VolTriang/CSFunc3.h>
#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/InterlacedSupportIterator.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/Lattice.h>
#include <QZmath/VolTriang/LatticeIndex.h>
#include <QZmath/VolTriang/NodesPositioningPolicy.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/OctreeFuncEvalHelper.h>
#include <QZmath/VolTriang/OctreeFuncLinComb.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Parallelepiped.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>
#include <QZmath/VolTriang/ScalarProductHelper.h>
#include <QZmath/VolTriang/SingleVarPolynom.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>
#include <QZmath/VolTriang/VolumetricTriangulator.h>
#include <QZmath/VolTriang/jbProcess.h>

#include <QZsys/QZsys.h>
