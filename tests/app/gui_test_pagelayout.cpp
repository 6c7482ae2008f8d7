// The window and its pages as a user sees them on the test display: every
// page, with a picture loaded and results shown, lays out inside the window
// without a scroll bar, without controls squeezed below the size their text
// needs and without controls of one layout overlapping.

#include "app/kestro.h"
#include "imaging/frame.h"
#include "imaging/gui/imagegraphicsview.h"
#include "imaging/gui/macbethframeview.h"
#include "measure/color/gui/macbethchartpage.h"
#include "measure/mtf/gui/mtfpage.h"
#include "measure/uniformity/gui/uniformitypage.h"

#include "../measure/color/chartimage.h"
#include "../platform/colorcal/slantededge.h"
#include "testsupport.h"

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QDockWidget>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <functional>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

// A widget as a failure message names it: its class and its name or text.
QString describe(const QWidget *w)
{
    QString name = w->objectName();
    if (auto *label = qobject_cast<const QLabel *>(w); label && name.isEmpty())
        name = label->text();
    return QStringLiteral("%1 \"%2\"").arg(QLatin1String(w->metaObject()->className()), name);
}

// A control whose text or frame is cut when it is narrower or lower than
// its minimum size hint (one that ignores its size hint accepts any width).
bool isTextControl(const QWidget *w)
{
    if (w->sizePolicy().horizontalPolicy() == QSizePolicy::Ignored)
        return false;
    if (auto *label = qobject_cast<const QLabel *>(w))
        return !label->wordWrap() && !label->text().isEmpty();
    return qobject_cast<const QAbstractButton *>(w) || qobject_cast<const QComboBox *>(w)
           || qobject_cast<const QAbstractSpinBox *>(w) || qobject_cast<const QLineEdit *>(w);
}

// Everything on the shown page that a user would see as clipped or
// overlapping, one line each.
QStringList layoutFaults(QWidget *root)
{
    QStringList faults;
    const QList<QWidget *> widgets = root->findChildren<QWidget *>();
    for (QWidget *w : widgets) {
        // Qt's own parts (dock title buttons, scroll bars) are the style's.
        if (!w->isVisible() || w->isWindow() || w->objectName().startsWith("qt_"))
            continue;
        // Inside a scroll area of a page a control may be larger than the
        // view (the window's own scroll area is checked by its scroll bars).
        bool scrolled = false;
        for (QWidget *p = w->parentWidget(); p && p != root; p = p->parentWidget())
            scrolled = scrolled
                       || (qobject_cast<QAbstractScrollArea *>(p)
                           && p->objectName() != QLatin1String("workflowScroll"));
        if (isTextControl(w) && !scrolled) {
            const QSize need = w->minimumSizeHint();
            if (w->width() < need.width() || w->height() < need.height())
                faults << describe(w)
                                  + QStringLiteral(" is %1x%2, needs %3x%4")
                                            .arg(w->width())
                                            .arg(w->height())
                                            .arg(need.width())
                                            .arg(need.height());
        }
        QLayout *layout = w->layout();
        if (!layout)
            continue;
        // Every widget that the layout tree of `w` places.
        QList<QWidget *> items;
        std::function<void(QLayout *)> collect = [&](QLayout *l) {
            for (int i = 0; i < l->count(); ++i) {
                QLayoutItem *item = l->itemAt(i);
                if (item->widget() && item->widget()->isVisible())
                    items << item->widget();
                else if (item->layout())
                    collect(item->layout());
            }
        };
        collect(layout);
        for (int i = 0; i < items.size(); ++i) {
            if (!w->rect().contains(items[i]->geometry()) && !scrolled
                && !qobject_cast<QAbstractScrollArea *>(w))
                faults << QStringLiteral("%1 reaches out of %2").arg(describe(items[i]), describe(w));
            for (int j = i + 1; j < items.size(); ++j) {
                if (items[i]->geometry().intersects(items[j]->geometry()))
                    faults << QStringLiteral("%1 overlaps %2")
                                      .arg(describe(items[i]), describe(items[j]));
            }
        }
    }
    faults.removeDuplicates();
    return faults;
}

class PageLayout : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const char *name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME"})
            m_env.set(name, QFile::encodeName(m_home.filePath(name)));
        QFile::remove(settingsFileLocation(QCoreApplication::applicationDirPath(),
                                           m_home.filePath("config")));
        window = std::make_unique<Kestro>();
        window->setCommandLineMode(false);
        window->initialize();
        window->setGeometry(QGuiApplication::primaryScreen()->availableGeometry());
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }

    // Shows tab `index`, lets the layouts settle and checks that the page
    // fits, also beside the Quick Start dock in a 1366x768 window, and,
    // below it, its report dock gets a fair share of the height (the tabs
    // are as tall as their tallest page needs, not more).
    void expectFits(int index, const char *page, const char *dockName = nullptr)
    {
        window->workflow()->setCurrentIndex(index);
        const QRect screen = window->geometry();
        auto *scroll = window->findChild<QScrollArea *>(QStringLiteral("workflowScroll"));
        ASSERT_TRUE(scroll);
        for (const bool help : {false, true}) {
            if (help)
                window->setGeometry(QRect(screen.topLeft(), screen.size().boundedTo({1366, 768})));
            window->quickStart(help);
            QTest::qWait(300);
            const std::string where = page + std::string(help ? " beside Quick Start" : "");
            EXPECT_FALSE(scroll->horizontalScrollBar()->isVisible())
                    << where << ": the pages need " << window->workflow()->minimumSizeHint().width()
                    << " px";
            // A window shrunk on a larger screen keeps its report dock's
            // height, so only the width is that of a laptop.
            EXPECT_TRUE(window->size() != screen.size() || !scroll->verticalScrollBar()->isVisible())
                    << where << ": the pages need "
                    << window->workflow()->minimumSizeHint().height() << " px";
            const QStringList faults = layoutFaults(window.get());
            EXPECT_TRUE(faults.isEmpty()) << where << ":\n" << faults.join('\n').toStdString();
        }
        window->quickStart(false);
        window->setGeometry(screen);
        QTest::qWait(300);
        if (!dockName)
            return;
        auto *dock = window->findChild<QDockWidget *>(QLatin1String(dockName));
        ASSERT_TRUE(dock && dock->isVisible()) << page;
        EXPECT_GE(dock->height(), window->height() / 4)
                << page << ": the dock is " << dock->height() << " px of " << window->height();
    }

    std::unique_ptr<Kestro> window;
    QTemporaryDir dir;

private:
    QTemporaryDir m_home;
    test::ScopedEnvironment m_env;
};

} // namespace

TEST_F(PageLayout, EveryPageFitsTheScreenWithResultsShown)
{
    expectFits(0, "Initialization");

    auto *chart = window->findChild<MacbethChartPage *>();
    ASSERT_TRUE(chart);
    // A drawn chart with its patches placed.
    const test::GeneratedChart drawn = test::makeChart(test::kSrgbChartColours, 60, 12);
    CFrame frame;
    ASSERT_TRUE(frame.load(test::saveImage(dir, "chart.png", drawn.image)));
    chart->frameView()->addFrame(frame);
    for (const QRect &patch : drawn.rects)
        chart->frameView()->view()->addRegion(QRectF(patch).adjusted(4, 4, -4, -4));
    window->workflow()->setCurrentIndex(1);
    EXPECT_TRUE(chart->processMacbethChart());
    EXPECT_TRUE(chart->calculateNoise());
    expectFits(1, "Macbeth Chart Image Tests", "chartReportDock");

    auto *mtf = window->findChild<MtfPage *>();
    ASSERT_TRUE(mtf);
    ASSERT_TRUE(mtf->loadImageFile(test::saveImage(dir, "edge.png", test::makeEdgeImage({}))));
    mtf->view()->addRegion(QRectF(0, 0, 128, 200));
    EXPECT_TRUE(mtf->calcMTF(false));
    expectFits(2, "MTF", "mtfReportDock");

    auto *uniformity = window->findChild<UniformityPage *>();
    ASSERT_TRUE(uniformity);
    ASSERT_TRUE(uniformity->loadPictureFile(
            test::saveImage(dir, "flat.png", test::shadedFlatField(1600, 1200))));
    uniformity->printUniHTML();
    expectFits(3, "Color Uniformity", "uniReportDock");
}
