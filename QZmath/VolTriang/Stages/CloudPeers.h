// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace VolTr
{

/// The holders of a cloud that is spread over several processes, for stages that decide by all of it.
///
/// A holder has samples of its own, the part of the cloud in its territory, and around them copies of those
/// of others. The own samples of all, holder by holder, stand in the order of the curve of `SampleFeet`.
class QZMATH_SISTER_API CloudPeers
{
public:
    struct Box
    {
        std::array<double, 3> low;
        std::array<double, 3> high;
    };

    virtual ~CloudPeers();

    // From any threads.

    virtual bool isOwn(int sample) const = 0;
    /// Is a place in the territory of this holder? Each is in that of one.
    virtual bool isOwnPlace(double const * place) const = 0;
    /// True for all places not farther from the territory than that along each axis, and for few others.
    virtual bool isNear(double const * place, double distance) const = 0;
    /// Does a box meet the territory of another holder?
    virtual bool isForOthers(Box const & box) const = 0;
    /// Own samples of all holders.
    virtual std::int64_t samples() const = 0;
    /// Own samples of the holders before this one.
    virtual std::int64_t samplesBefore() const = 0;
    /// All samples that lie closer to the territory than this are here, and the function is exact there; in
    /// model units, along each axis.
    virtual double reach() const = 0;

    // All holders call what follows, in the same order. It may throw on all when one has failed.

    /// The sums over all holders, with the same bits for each.
    virtual void sum(double * values, std::size_t count) = 0;
    /// What all holders give, in their order.
    virtual std::vector<char> gather(std::vector<char> const & own) = 0;
    /// Gives each record to all whose territory meets its box. What this one gets comes by holders, in their
    /// order.
    /// \param size        of a record, in bytes
    /// \param isForItself does this one get records of its own?
    virtual std::vector<char> deal(std::vector<char> records, std::size_t size,
                                   std::vector<Box> const & boxes, bool isForItself) = 0;
};

} // namespace VolTr
