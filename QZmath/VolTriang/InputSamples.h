// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace VolTr
{

/// The oriented point cloud that a reconstruction reads, implemented by the caller over its own storage.
///
/// Samples are numbered from 0. All operations are called from several threads at the same time and must
/// allow it; the pointers that they return must stay valid while another sample or the other property of the
/// same sample is asked for.
class QZMATH_API IInputSamples
{
public:
    virtual ~IInputSamples();

private:
    virtual int onPointsNumber() const = 0;
    virtual float const * onGetSampleCoords3(int sample) const = 0;
    virtual float const * onGetSampleNormal3(int sample) const = 0;
    virtual bool onIsBoundaryVertex(int sample) const = 0;

public:
    /// How many samples there are.
    int pointsNumber() const { return onPointsNumber(); }
    /// Three finite coordinates, in the caller's units.
    float const * getSampleCoords3(int sample) const { return onGetSampleCoords3(sample); }
    /// Three components of the surface normal, all pointing to the same side of the surface. Used as given:
    /// not normalised, so that the length is a weight of the sample.
    float const * getSampleNormal3(int sample) const { return onGetSampleNormal3(sample); }
    /// Does the sample lie on the border of an open surface? Read only when the surface is declared open.
    bool isBoundaryVertex(int sample) const { return onIsBoundaryVertex(sample); }

protected:
    IInputSamples() = default;
    IInputSamples(IInputSamples const &) = default;
    IInputSamples & operator=(IInputSamples const &) = default;
};

} // namespace VolTr
