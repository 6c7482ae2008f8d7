// The window and its pages as a user sees them on the test display: every
// page, with a picture loaded and results shown, lays out inside the window
// without a scroll bar, without controls squeezed below the size their text
// needs and without controls of one layout overlapping. Run the program on a
// 1366x768 and on a 1920x1080 screen; with KESTRO_SCREENSHOT_DIR set it also
// saves a picture of every tab there.

#include "app/kestro.h"
#include "imaging/frame.h"
#include "imaging/gui/imagegraphicsview.h"
#include "imaging/gui/macbethframeview.h"
#include "measure/color/gui/macbethchartpage.h"
#include "measure/mtf/gui/mtfpage.h"
#include "measure/uniformity/gui/uniformitypage.h"

#include "../measure/color/chartimage.h"
#include "testsupport.h"

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDockWidget>
#include <QGroupBox>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPainter>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

// Dark squares turned by five degrees on a light ground: slanted edges.
QImage slantedEdgeChart()
{
    QImage image(1200, 800, QImage::Format_RGB32);
    image.fill(qRgb(205, 205, 205));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(45, 45, 45));
    for (int row = 0; row < 2; ++row) {
        for (int col = 0; col < 3; ++col) {
            p.save();
            p.translate(200 + col * 400, 200 + row * 400);
            p.rotate(5);
            p.drawRect(-110, -110, 220, 220);
            p.restore();
        }
    }
    return image;
}

// A flat field with lens shading and a slight colour cast.
QImage flatField()
{
    QImage image(1600, 1200, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        const double dy = (y - 600.0) / 600.0;
        for (int x = 0; x < image.width(); ++x) {
            const double dx = (x - 800.0) / 800.0;
            const double fall = 1.0 - 0.3 * (dx * dx + dy * dy);
            line[x] = qRgb(int(225 * fall), int(235 * fall), int(215 * fall * (1.0 - 0.05 * dx)));
        }
    }
    return image;
}

QString describe(const QWidget *w)
{
    QString name = w->objectName();
    if (name.isEmpty()) {
        if (auto *label = qobject_cast<const QLabel *>(w))
            name = label->text();
        else if (auto *button = qobject_cast<const QAbstractButton *>(w))
            name = button->text();
        else if (auto *box = qobject_cast<const QGroupBox *>(w))
            name = box->title();
    }
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
                faults << QStringLiteral("%1 is %2x%3, needs %4x%5")
                                  .arg(describe(w))
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
        const QSize screen = QGuiApplication::primaryScreen()->availableGeometry().size();
        window->setGeometry(QRect(QPoint(0, 0), screen));
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    void TearDown() override { window.reset(); }

    // Shows tab `index`, lets the layouts settle and, when asked, saves a
    // picture of the screen.
    void showTab(int index, const char *name)
    {
        window->workflow()->setCurrentIndex(index);
        QTest::qWait(300);
        const QString dir = qEnvironmentVariable("KESTRO_SCREENSHOT_DIR");
        if (!dir.isEmpty()) {
            const QSize size = QGuiApplication::primaryScreen()->size();
            QGuiApplication::primaryScreen()->grabWindow(0).save(QStringLiteral("%1/%2x%3-%4.png")
                                                                         .arg(dir)
                                                                         .arg(size.width())
                                                                         .arg(size.height())
                                                                         .arg(QLatin1String(name)));
        }
    }

    void expectFits(const char *page)
    {
        auto *scroll = window->findChild<QScrollArea *>(QStringLiteral("workflowScroll"));
        ASSERT_TRUE(scroll);
        const QSize need = window->workflow()->minimumSizeHint();
        const QSize room = scroll->viewport()->size();
        EXPECT_FALSE(scroll->horizontalScrollBar()->isVisible())
                << page << ": the pages need " << need.width() << " px, the window has "
                << room.width();
        EXPECT_FALSE(scroll->verticalScrollBar()->isVisible())
                << page << ": the pages need " << need.height() << " px, the window has "
                << room.height();
        const QStringList faults = layoutFaults(window.get());
        EXPECT_TRUE(faults.isEmpty()) << page << ":\n" << faults.join('\n').toStdString();
    }

    // The report dock shown below a page gets a fair share of the window's
    // height: the tabs are as tall as their tallest page needs, not more.
    void expectRoomForReports(const char *page, const char *dockName)
    {
        auto *dock = window->findChild<QDockWidget *>(QLatin1String(dockName));
        ASSERT_TRUE(dock);
        ASSERT_TRUE(dock->isVisible()) << page;
        EXPECT_GE(dock->height(), window->height() / 4)
                << page << ": the dock is " << dock->height() << " px of " << window->height();
    }

    // Where the pictures the pages open are kept: beside the screenshots
    // when they are taken (their names show in the pictures).
    QString pictureFile(const QString &name, const QImage &picture)
    {
        const QString shots = qEnvironmentVariable("KESTRO_SCREENSHOT_DIR");
        const QString path = shots.isEmpty() ? dir.filePath(name) : shots + '/' + name;
        EXPECT_TRUE(picture.save(path));
        return path;
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
    showTab(0, "initialization");
    expectFits("Initialization");

    auto *chart = window->findChild<MacbethChartPage *>();
    ASSERT_TRUE(chart);
    // A chart photograph with its patches detected; where the photographs
    // are not at hand, a drawn chart with its patches placed.
    CFrame frame;
    if (frame.load(test::sharedDataPath("charts/pedrodiamel_img-colorchecker.jpg"))) {
        chart->frameView()->addFrame(frame);
        chart->frameView()->startAutoDetect();
        QTRY_VERIFY_WITH_TIMEOUT(!chart->frameView()->isDetectionRunning(), 60000);
    } else {
        const test::GeneratedChart drawn = test::makeChart(test::kSrgbChartColours, 60, 12);
        ASSERT_TRUE(frame.load(pictureFile("chart.png", drawn.image)));
        chart->frameView()->addFrame(frame);
        for (const QRect &patch : drawn.rects)
            chart->frameView()->view()->addRegion(QRectF(patch).adjusted(4, 4, -4, -4));
    }
    showTab(1, "macbeth");
    ASSERT_EQ(chart->frameView()->regionRects().size(), 24);
    EXPECT_TRUE(chart->processMacbethChart());
    EXPECT_TRUE(chart->calculateNoise());
    showTab(1, "macbeth");
    expectFits("Macbeth Chart Image Tests");
    expectRoomForReports("Macbeth Chart Image Tests", "chartReportDock");

    auto *mtf = window->findChild<MtfPage *>();
    ASSERT_TRUE(mtf);
    const QString edges = pictureFile("edges.png", slantedEdgeChart());
    ASSERT_TRUE(mtf->loadImageFile(edges));
    for (const QRectF &r :
         {QRectF(60, 130, 80, 140), QRectF(160, 60, 140, 70), QRectF(480, 520, 80, 140)})
        mtf->view()->addRegion(r);
    EXPECT_TRUE(mtf->calcMTF(false));
    showTab(2, "mtf");
    expectFits("MTF");
    expectRoomForReports("MTF", "mtfReportDock");

    auto *uniformity = window->findChild<UniformityPage *>();
    ASSERT_TRUE(uniformity);
    ASSERT_TRUE(uniformity->loadPictureFile(pictureFile("flat.png", flatField())));
    uniformity->printUniHTML();
    showTab(3, "uniformity");
    expectFits("Color Uniformity");
    expectRoomForReports("Color Uniformity", "uniReportDock");

    // Beside the quick-start help the pages scroll (the chart page's plots
    // keep their size); the picture is for the manual.
    window->quickStart(true);
    showTab(2, "mtf-quickstart");
    window->quickStart(false);
}

TEST_F(PageLayout, ReportDocksFollowTheirTabs)
{
    auto *mtfDock = window->findChild<QDockWidget *>(QStringLiteral("mtfReportDock"));
    auto *uniDock = window->findChild<QDockWidget *>(QStringLiteral("uniReportDock"));
    ASSERT_TRUE(mtfDock && uniDock);
    window->workflow()->setCurrentIndex(0);
    EXPECT_TRUE(mtfDock->isHidden());
    EXPECT_TRUE(uniDock->isHidden());
    window->workflow()->setCurrentIndex(2);
    EXPECT_FALSE(mtfDock->isHidden());
    EXPECT_TRUE(uniDock->isHidden());

    // Closed by the user, it stays closed on its tab until opened again.
    mtfDock->close();
    window->workflow()->setCurrentIndex(3);
    EXPECT_FALSE(uniDock->isHidden());
    window->workflow()->setCurrentIndex(2);
    EXPECT_TRUE(mtfDock->isHidden());
    mtfDock->toggleViewAction()->trigger();
    EXPECT_FALSE(mtfDock->isHidden());

    // Floated, it comes back below the pages with Dock Windows.
    mtfDock->setFloating(true);
    window->dockWindows();
    EXPECT_FALSE(mtfDock->isFloating());
    EXPECT_EQ(window->dockWidgetArea(mtfDock), Qt::BottomDockWidgetArea);
}
