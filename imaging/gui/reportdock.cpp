#include "imaging/gui/reportdock.h"

#include <QAction>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QTabWidget>
#include <QVBoxLayout>
#include <QWindow>

namespace kestro {

namespace {

// Holds the report view and asks for the dock's first height.
class ReportContent : public QWidget
{
public:
    explicit ReportContent(QWidget *view)
    {
        auto *layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(view);
    }
    QSize sizeHint() const override
    {
        const QScreen *screen = window()->windowHandle() ? window()->windowHandle()->screen()
                                                         : QGuiApplication::primaryScreen();
        const int height = screen ? screen->availableGeometry().height() : 768;
        return QSize(QWidget::sizeHint().width(), ReportDock::firstHeight(height));
    }
};

} // namespace

int ReportDock::firstHeight(int screenHeight)
{
    return screenHeight / 4;
}

ReportDock::ReportDock(const QString &title, const QString &name, QWidget *view, QWidget *page)
    : QDockWidget(title, page)
{
    setObjectName(name);
    setWidget(new ReportContent(view));
    m_pageArea = new QWidget(page);
    auto *layout = new QVBoxLayout(m_pageArea);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(this);
    // Opened again from the window's dock menu.
    connect(toggleViewAction(), &QAction::triggered, this,
            [this](bool shown) { m_closedByUser = !shown; });
}

ReportDock *ReportDock::takeFromPage()
{
    m_pageArea->hide();
    return this;
}

void ReportDock::showWithTab(QTabWidget *tabs, QWidget *page)
{
    m_tabs = tabs;
    m_page = page;
    connect(tabs, &QTabWidget::currentChanged, this, &ReportDock::follow);
    follow();
}

void ReportDock::closeEvent(QCloseEvent *event)
{
    // Only the user closes a dock (its close button).
    m_closedByUser = true;
    QDockWidget::closeEvent(event);
}

void ReportDock::follow()
{
    QWidget *current = m_tabs->currentWidget();
    const bool onItsTab = current && (current == m_page || current->isAncestorOf(m_page));
    setVisible(onItsTab && !m_closedByUser);
}

} // namespace kestro

#include "moc_reportdock.cpp"
