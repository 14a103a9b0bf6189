// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Base class of the objects of a scene: identity, flags, and three colours that may each be set or not.
/// Colours are packed with red in the lowest byte, green in the next and blue in the third.
///
/// A `get...Color` gives false and leaves its argument as it is when that colour is not set. Copies take
/// everything. Not thread-safe.
class QZMATH_API CGraphObject
{
public:
    virtual ~CGraphObject();

    virtual void setSelected(bool selected);
    virtual void setID(unsigned long id);
    virtual bool getOwnColor(unsigned long & color) const;
    /// Always true.
    virtual bool setOwnColor(unsigned long color);
    virtual void deleteOwnColor();

    unsigned long getID() const { return m_ID; }
    bool isActive() const { return m_bActive; }
    bool isSelected() const { return m_bSelected; }
    bool isVisible() const { return m_bVisible; }

    /// Stores the flag and calls `OnActivation`, also when nothing changes.
    void setActive(bool active);
    /// Stores the flag and calls `OnChangeVisibility`, also when nothing changes.
    void setVisible(bool visible);

    bool getTempColor(unsigned long & color) const { return m_tempColor.get(color); }
    void setTempColor(unsigned long color) { m_tempColor.set(color); }
    void deleteTempColor() { m_tempColor.isSet = false; }

    bool getGroupColor(unsigned long & color) const { return m_groupColor.get(color); }
    void setGroupColor(unsigned long color) { m_groupColor.set(color); }
    void deleteGroupColor() { m_groupColor.isSet = false; }

private:
    virtual void OnActivation();
    virtual void OnChangeVisibility();

    struct SOptionalColor
    {
        unsigned long value = 0;
        bool isSet = false;

        bool get(unsigned long & color) const
        {
            if (isSet)
                color = value;
            return isSet;
        }
        void set(unsigned long color)
        {
            value = color;
            isSet = true;
        }
    };

    unsigned long m_ID = 0;
    bool m_bActive = true;
    bool m_bSelected = false;
    [[maybe_unused]] bool m_bReserved = false; ///< belongs to nobody; copied with the rest
    bool m_bVisible = true;
    SOptionalColor m_ownColor;
    SOptionalColor m_tempColor;
    SOptionalColor m_groupColor;
};
