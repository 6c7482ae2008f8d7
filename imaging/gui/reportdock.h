#pragma once
// The report view of a measurement page as a dock widget. On its own the page
// shows the dock in its place among its views; the main window takes it
// (Kestro::addDockView) and docks it below the pages, where it can float and
// be put back. There it belongs to the page's tab: it is shown while that tab
// is current and hidden on the others, so each page brings its own report
// along; a report the user closed stays closed until it is opened again
// (its toggle action in the window's dock menu).

#include <QDockWidget>

class QTabWidget;

namespace kestro {

class ReportDock : public QDockWidget
{
    Q_OBJECT
public:
    // A dock titled `title`, named `name` (window layouts keep its place by
    // it), holding `view`; its place in the page is pageArea().
    ReportDock(const QString &title, const QString &name, QWidget *view, QWidget *page);

    // The widget the page lays out where the report goes.
    QWidget *pageArea() const { return m_pageArea; }
    // Hides the page's place of the dock and hands the dock over.
    ReportDock *takeFromPage();

    // While docked in a window, shown only while the tab of `tabs` that holds
    // `page` is current.
    void showWithTab(QTabWidget *tabs, QWidget *page);

    // First height of the report (without the title) on a screen of
    // `screenHeight`: a quarter of it, which leaves the pages above the room
    // they need on a laptop screen too. The user drags it taller or floats
    // it.
    static int firstHeight(int screenHeight);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void follow();

    QWidget *m_pageArea = nullptr;
    QTabWidget *m_tabs = nullptr;
    QWidget *m_page = nullptr;
    bool m_closedByUser = false;
};

} // namespace kestro
