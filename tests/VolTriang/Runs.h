// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolumetricTriangulator.h>

#include <support/Mesh.h>
#include <support/SampledClouds.h>

#include <QZsys/ParallelTasks.h>

#include <gtest/gtest.h>

#include <exception>
#include <string>

namespace qz_test
{

/// What a whole reconstruction gave.
struct Result
{
    Mesh mesh;
    std::string failure; ///< text of the exception, after "triangulation: " for those of the triangulator
    VolTr::CReconstructionReport report;
};

inline Result reconstruct(VolTr::IInputSamples const & samples, VolTr::CVolTriangulationParams const & params,
                          int threads = 0, CProgressCounter * progress = nullptr)
{
    CThreadNumberScope const scope(threads);
    MeshTarget target;
    Result run;
    try {
        VolTr::CVolumetricTriangulator triangulator(&target, &samples, &params, progress);
        triangulator.setReport(&run.report);
        triangulator.run();
    } catch (VolTr::CVolTriangulationError const & error) {
        run.failure = std::string("triangulation: ") + error.what();
    } catch (std::exception const & error) {
        run.failure = error.what();
    }
    EXPECT_EQ(target.violation(), "");
    run.mesh = target.mesh();
    return run;
}

inline VolTr::CVolTriangulationParams paramsOf(int depth, bool accelerated = false)
{
    VolTr::CVolTriangulationParams params;
    params.setOctreeDepth(depth);
    params.setAccelerated(accelerated);
    return params;
}

inline double leafCell(VolTr::IInputSamples const & samples, int depth)
{
    return VolTr::COctree(&samples, depth, nullptr, true, 0).getUnit();
}

} // namespace qz_test
