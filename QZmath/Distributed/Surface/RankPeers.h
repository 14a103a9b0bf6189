// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Cloud/RankCloud.h>
#include <QZmath/Distributed/Surface/CubeOwners.h>
#include <QZmath/Distributed/Surface/Steps.h>
#include <QZmath/VolTriang/Stages/CloudPeers.h>

namespace QZmath::Distributed
{

/// The ranks as the holders of a cloud. They meet before each exchange, so all of them end when one fails.
class RankPeers final : public VolTr::CloudPeers
{
public:
    /// Collective.
    /// \param leafCell in model units
    RankPeers(Steps & steps, RankCloud const & cloud, CubeOwners const & owners, double leafCell);

    bool isOwn(int sample) const override { return m_cloud.isOwn[static_cast<std::size_t>(sample)] != 0; }
    std::int64_t samples() const override { return m_samples; }
    std::int64_t samplesBefore() const override { return m_before; }
    double reach() const override { return m_reach; }
    bool isNear(double const * place, double distance) const override;
    bool isOwnPlace(double const * place) const override
    {
        return m_owners.partition().ownerOfUnit(m_owners.unitAt(place)) == m_steps.ranks().rank();
    }
    bool isForOthers(Box const & box) const override;
    void sum(double * values, std::size_t count) override;
    std::vector<char> gather(std::vector<char> const & own) override;
    std::vector<char> deal(std::vector<char> records, std::size_t size, std::vector<Box> const & boxes,
                           bool isForItself) override;

private:
    Steps & m_steps;
    RankCloud const & m_cloud;
    CubeOwners const & m_owners;
    double const m_reach;
    std::int64_t m_samples;
    std::int64_t m_before;
};

} // namespace QZmath::Distributed
