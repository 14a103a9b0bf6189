// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/ModelSizer.h>

IModelSizer::~IModelSizer() = default;

void IModelSizer::OnGetModelSize(double &, double &, double &) const {}
void IModelSizer::OnSetModelSize(double, double, double) {}
void IModelSizer::OnResetModelSizeDefault() {}

void IModelSizer::GetLinearLimits(double const * transform, double * limits)
{
    OnGetLinearLimits(transform, limits);
}

void IModelSizer::updateLimits() { OnUpdateLimits(); }

void IModelSizer::getModelSize(double & x, double & y, double & z) const
{
    GetModelSizeDefault(x, y, z);
    OnGetModelSize(x, y, z);
}

void IModelSizer::setModelSize(double x, double y, double z)
{
    SetModelSizeDefault(x, y, z);
    OnSetModelSize(x, y, z);
}

void IModelSizer::resetModelSize()
{
    ResetModelSizeDefault();
    OnResetModelSizeDefault();
}

void IModelSizer::GetModelSizeDefault(double & x, double & y, double & z) const
{
    x = m_sizeX;
    y = m_sizeY;
    z = m_sizeZ;
}

void IModelSizer::SetModelSizeDefault(double x, double y, double z)
{
    m_sizeX = x;
    m_sizeY = y;
    m_sizeZ = z;
}

void IModelSizer::ResetModelSizeDefault() { SetModelSizeDefault(1.0, 1.0, 1.0); }
