#pragma once
// A calculation bound to one image region. It keeps its inputs and its last
// result, and recomputes only when an input has really changed (dirty flag).

#include <QRect>
#include <QString>

class regionBasedCalculation
{
public:
    virtual ~regionBasedCalculation() = default;

    // Stores the rectangle and marks the result stale, unless all four
    // coordinates are unchanged.
    virtual void setRegion(const QRect &rect)
    {
        if (rect.left() == m_region.left() && rect.top() == m_region.top()
            && rect.right() == m_region.right() && rect.bottom() == m_region.bottom())
            return;
        m_region = rect;
        m_dirty = true;
    }
    virtual QRect region() const { return m_region; }
    // Runs the calculation if the result is stale; true on success.
    virtual bool calculate() = 0;
    // Text of the last failure.
    virtual QString errorMessage() const = 0;
    virtual bool isValid() const { return !m_dirty; }
    virtual void invalidate() { m_dirty = true; }

protected:
    bool m_dirty = true;
    QRect m_region;
};
