// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Base class of what knows the extent of a model along three axes. It keeps a default size, 1 along each
/// axis at first, for subclasses that have no better one. Not thread-safe.
///
/// What stands in the arrays of the limits is agreed between a subclass and its callers; they are handed
/// through.
class QZMATH_API IModelSizer
{
    virtual void OnGetLimits(double * limits) = 0;
    virtual void OnGetLinearLimits(double const * transform, double * limits) = 0;
    virtual void OnUpdateLimits() = 0;
    /// Finds the default size in its arguments, and may put another one there.
    virtual void OnGetModelSize(double & x, double & y, double & z) const;
    virtual void OnSetModelSize(double x, double y, double z);
    virtual void OnResetModelSizeDefault();

public:
    virtual ~IModelSizer();

    virtual void GetLinearLimits(double const * transform, double * limits);
    virtual void updateLimits();

    void GetLimits(double * limits) { OnGetLimits(limits); }

    /// The default size, unless the subclass knows better.
    void getModelSize(double & x, double & y, double & z) const;
    /// Makes it the default size, and tells the subclass.
    void setModelSize(double x, double y, double z);
    /// Makes the default size 1 along each axis again, and tells the subclass.
    void resetModelSize();

private:
    void GetModelSizeDefault(double & x, double & y, double & z) const;
    void SetModelSizeDefault(double x, double y, double z);
    void ResetModelSizeDefault();

    double m_sizeX = 1.0;
    double m_sizeY = 1.0;
    double m_sizeZ = 1.0;
};
