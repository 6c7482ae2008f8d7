// Wiring of the "Color Uniformity" page: the page fills the window's fourth
// tab (its report view a dock of the window), captures through the window's
// camera, and runs the batch uniformity test from the window's uniformity
// fields, whose defaults are the page's.

#include "app/kestro.h"
#include "imaging/gui/reportdock.h"
#include "measure/uniformity/gui/uniformitypage.h"

#include <QTabWidget>
#include <QVBoxLayout>

void Kestro::wireUniformityPage()
{
    QWidget *tab = m_workflow->widget(3);
    if (!tab || tab->findChild<kestro::UniformityPage *>())
        return;
    auto *layout = new QVBoxLayout(tab);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *page = new kestro::UniformityPage(tab);
    layout->addWidget(page);
    // The report docks below the pages while the uniformity tab is shown.
    kestro::ReportDock *report = page->reportDock()->takeFromPage();
    addDockView(report, Qt::BottomDockWidgetArea);
    report->showWithTab(m_workflow, page);

    page->setCaptureFunction([this](QImage &picture) { return captureImage(picture); });
    page->setBatchSettingsProvider([this] {
        kestro::UniformityBatchSettings s;
        s.imagePath = m_uniImagePath;
        s.reportPath = m_uniReportPath;
        s.centerPercent = m_uniCenterPercent;
        s.cornerPercent = m_uniCornerPercent;
        s.showContour = m_uniShowContour;
        s.contourLow = m_uniContourLow;
        s.contourStepSize = m_uniContourStepSize;
        s.contourHigh = m_uniContourHigh;
        s.chartSize = m_uniChartSize;
        s.subSampleSize = m_uniSubSampleSize;
        s.colorMapName = m_uniColorMapName;
        return s;
    });
    setUniformityBatch(page);

    // The batch parameters that the command line does not give are the
    // page's.
    const kestro::UniformityBatchSettings defaults = page->currentSettings();
    m_uniCenterPercent = defaults.centerPercent;
    m_uniCornerPercent = defaults.cornerPercent;
    m_uniShowContour = defaults.showContour;
    m_uniContourLow = defaults.contourLow;
    m_uniContourStepSize = defaults.contourStepSize;
    m_uniContourHigh = defaults.contourHigh;
    m_uniChartSize = defaults.chartSize;
    m_uniSubSampleSize = defaults.subSampleSize;
    m_uniColorMapName = defaults.colorMapName;
}
