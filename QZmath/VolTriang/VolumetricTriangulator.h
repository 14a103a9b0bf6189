// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <memory>

class CProgressCounter;

/// Plain switch for callers that measure triangulation times; initially true. The library itself does not
/// read it.
extern QZMATH_API bool b_MEASURE_TRIANG_TIME_On;

namespace VolTr
{

class CReconstructionReport;
class CVolumetricTriangulatorImpl;

/// Reconstructs a triangle surface from an oriented point cloud.
///
/// An octree is built over the samples; a smooth compactly supported kernel stands on each of its nodes. The
/// sample normals are splatted into a vector field U on that basis, and the implicit function X with Lap X =
/// div U is found by a Galerkin projection. The surface is the level set of X through the weighted mean of X
/// at the samples. Cf. M. Kazhdan, M. Bolitho, H. Hoppe, "Poisson Surface Reconstruction", SGP 2006;
/// extraction by continuation over tetrahedra, cf. J. Bloomenthal, "An Implicit Surface Polygonizer",
/// Graphics Gems IV, 1994.
///
/// Only the component of the surface that is connected to the samples nearest to the middle of the cloud is
/// extracted, unless `allComponents` asks for all, and all of it, unless `reach` sets a limit. With n octree
/// nodes, memory is about 240 stored elements of 12 bytes per node plus what the solver needs; time is
/// dominated by the solve. Objects share no state: different ones may run at the same time.
class QZMATH_API CVolumetricTriangulator
{
public:
    /// \param target   receives the mesh; the caller's, must outlive `run`
    /// \param samples  the cloud; the caller's, must outlive `run`
    /// \param params   copied; null means the defaults, with which `run` fails for lack of a depth
    /// \param progress moved from 0 to 1 and asked for interruption; the caller's; may be null
    CVolumetricTriangulator(ITriangulationTarget * target, IInputSamples const * samples,
                            CVolTriangulationParams const * params, CProgressCounter * progress);
    virtual ~CVolumetricTriangulator();

    /// Where `run` tells what it did and found; null, as at first, keeps that to itself. The caller's, must
    /// outlive `run`. A report serves one run at a time.
    void setReport(CReconstructionReport * report);

    /// Runs the reconstruction, once per object, on the calling thread with helper threads
    /// (`CVescaThreadingTasksHelper::setNumOfPhisicalThread` limits them). The result does not depend on
    /// their number.
    ///
    /// Success is the absence of an exception:
    /// - `std::exception` "Incorrect tree depth detected in VolTr::COctree constructor", or a text that
    ///   names the sample with a coordinate that is not finite;
    /// - `CVolTriangulationError` "Unexpected solver type", "Failed to solve linear system",
    ///   "Failed to reconstruct iso-value surface", or a text that says that the system is too large for
    ///   32-bit indices;
    /// - `CUserIntrException` after `CProgressCounter::interrupt`;
    /// - `std::bad_alloc`; and whatever the caller's own samples, target or log throw.
    ///
    /// Vertices and triangles given to the target before a failure stay there.
    void run();

private:
    std::shared_ptr<CVolumetricTriangulatorImpl> m_impl; // shared with copies of this handle
};

} // namespace VolTr
