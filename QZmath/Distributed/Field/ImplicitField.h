// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Cloud/RankCloud.h>
#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/DistributedReconstruction.h>
#include <QZmath/Distributed/Export.h>
#include <QZmath/Distributed/Ranks/Partition.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/Tree/TreeRule.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <functional>
#include <optional>

namespace QZmath::Distributed
{

class RankLattice;

/// The implicit function of the samples of all ranks: on each rank as far as its territory and the margin of
/// the surface around it need it. Nodes have the same amplitudes on all ranks that have them.
///
/// What makes the field is called once, in the order of the members; each of these is collective, and throws
/// as `Communicator::together` does.
class QZMATH_DISTRIBUTED_API ImplicitField
{
public:
    /// All arguments must outlive the field.
    /// \param progress may be null
    ImplicitField(Communicator const & ranks, Partition const & partition, RankCloud const & cloud,
                  VolTr::TreeCube const & cube, DistributedOptions const & options, int depth, int threads,
                  DistributedReport & report, CProgressCounter * progress);
    ~ImplicitField();

    /// The octree over the own samples and those around them.
    void buildTree();
    /// Weights of the samples.
    void estimateDensity();
    /// The nodes of all ranks, and the field of the normals on them.
    void splat();
    /// Right part and iteration.
    /// \throws RankError when the iteration does not converge
    std::vector<float> solve();
    /// The function with these amplitudes, given at own nodes and on replicated depths; the nodes are gone
    /// afterwards.
    void take(std::vector<float> amplitudes);
    void findIsoValue();

    RankLattice const & lattice() const { return *m_lattice; } ///< from `splat` to `take`
    VolTr::BrickFunction const & function() const { return *m_function; }
    double isoValue() const { return m_isoValue; }
    VolTr::StageContext context();
    /// Frees the function and the weights; the context tells of neither afterwards.
    void release();

private:
    Communicator const & m_ranks;
    Partition const & m_partition;
    RankCloud const & m_cloud;
    RankSamples const m_samples;
    VolTr::TreeCube const & m_cube;
    DistributedOptions const & m_options;
    int const m_threads;
    DistributedReport & m_report;
    CProgressCounter * const m_progress;
    VolTr::CVolTriangulationParams m_params;
    VolTr::Kernel const m_kernel;
    VolTr::CReconstructionReport m_coreReport;
    std::optional<VolTr::COctree> m_octree;
    std::optional<VolTr::Basis> m_basis;
    VolTr::SampleDensity m_density;
    std::unique_ptr<RankLattice> m_lattice;
    std::vector<std::array<double, 3>> m_field; // compact
    std::optional<VolTr::BrickFunction> m_function;
    double m_isoValue = 0.0;
};

} // namespace QZmath::Distributed
