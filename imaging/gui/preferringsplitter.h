#pragma once
// A splitter of two panes in which one pane prefers a width above its
// smallest one: when the splitter is laid out, that pane takes the width it
// prefers from the other one, but only as long as the other keeps its own
// smallest width. On a narrow window (beside the help dock on a laptop) it
// stays narrower, and its contents fold or scroll instead of widening the
// page.

#include <QSplitter>
#include <functional>

namespace kestro {

class PreferringSplitter : public QSplitter
{
public:
    using QSplitter::QSplitter;

    // Pane `pane` (0 or 1) prefers `width()` pixels.
    void setPreferredWidth(int pane, std::function<int()> width);

protected:
    bool event(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void giveRoom();

    int m_pane = -1;
    std::function<int()> m_width;
};

} // namespace kestro
