#include "imaging/gui/preferringsplitter.h"

#include <QEvent>

namespace kestro {

void PreferringSplitter::setPreferredWidth(int pane, std::function<int()> width)
{
    m_pane = pane;
    m_width = std::move(width);
    giveRoom();
}

bool PreferringSplitter::event(QEvent *event)
{
    const bool handled = QSplitter::event(event);
    // A pane's new smallest or preferred width arrives as a layout request.
    if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::Show)
        giveRoom();
    return handled;
}

void PreferringSplitter::resizeEvent(QResizeEvent *event)
{
    QSplitter::resizeEvent(event);
    giveRoom();
}

void PreferringSplitter::giveRoom()
{
    QList<int> widths = sizes();
    if (m_pane < 0 || m_pane > 1 || widths.size() != 2 || !m_width)
        return;
    const int other = 1 - m_pane;
    const QWidget *otherPane = widget(other);
    const int otherMinimum = qMax(otherPane->minimumSizeHint().width(), otherPane->minimumWidth());
    const int missing = m_width() - widths[m_pane];
    if (missing <= 0 || widths[other] - missing < otherMinimum)
        return;
    widths[m_pane] += missing;
    widths[other] -= missing;
    setSizes(widths);
}

} // namespace kestro
