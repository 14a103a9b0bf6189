// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/GraphObject.h>

CGraphObject::~CGraphObject() = default;

void CGraphObject::setSelected(bool selected) { m_bSelected = selected; }
void CGraphObject::setID(unsigned long id) { m_ID = id; }
bool CGraphObject::getOwnColor(unsigned long & color) const { return m_ownColor.get(color); }

bool CGraphObject::setOwnColor(unsigned long color)
{
    m_ownColor.set(color);
    return true;
}

void CGraphObject::deleteOwnColor() { m_ownColor.isSet = false; }

void CGraphObject::setActive(bool active)
{
    m_bActive = active;
    OnActivation();
}

void CGraphObject::setVisible(bool visible)
{
    m_bVisible = visible;
    OnChangeVisibility();
}

void CGraphObject::OnActivation() {}
void CGraphObject::OnChangeVisibility() {}
