// Wiring of the "Macbeth Chart Image Tests" page (colour difference and
// noise) and of the report export, which the window's save actions and the
// batch runner call for every page.

#include "app/kestro.h"
#include "app/messages.h"
#include "app/reportexport.h"

#ifdef KESTRO_HAVE_COLOR_PAGE
#include "imaging/gui/reportdock.h"
#include "measure/color/gui/macbethchartpage.h"
#endif

#include <QLayout>
#include <QTabWidget>
#include <functional>

namespace {

// The window as the export sees it. The page pointers are read when a
// report is saved, so pages wired after the export are found.
class WindowReportHost : public QObject, public KestroReportHost
{
public:
    WindowReportHost(Kestro *window, std::function<KestroMtfBatch *()> mtf,
                     std::function<KestroUniformityBatch *()> uniformity)
        : QObject(window)
        , m_window(window)
        , m_mtf(std::move(mtf))
        , m_uniformity(std::move(uniformity))
    { }

    QString currentTestName() const override { return m_window->commandLineType(); }
    bool batchMode() const override { return m_window->commandLineMode(); }
    QWidget *dialogParent() const override { return m_window; }
    QString reportPath(ReportKind kind) const override
    {
        switch (kind) {
        case ColorDifferenceReport:
            return m_window->colorDiffReportPath();
        case NoiseReport:
            return m_window->noiseReportPath();
        case MtfReport:
            return m_window->mtfReportPath();
        case UniformityReport:
            return m_window->uniReportPath();
        }
        return QString();
    }
    void setReportPath(ReportKind kind, const QString &path) override
    {
        switch (kind) {
        case ColorDifferenceReport:
            m_window->setColorDiffReportPath(path);
            break;
        case NoiseReport:
            m_window->setNoiseReportPath(path);
            break;
        case MtfReport:
            m_window->setMtfReportPath(path);
            break;
        case UniformityReport:
            m_window->setUniReportPath(path);
            break;
        }
    }
    KestroMtfBatch *mtfPage() const override { return m_mtf(); }
    KestroUniformityBatch *uniformityPage() const override { return m_uniformity(); }

private:
    Kestro *m_window;
    std::function<KestroMtfBatch *()> m_mtf;
    std::function<KestroUniformityBatch *()> m_uniformity;
};

} // namespace

void Kestro::wireColorDifferencePage()
{
    if (m_reportExport)
        return; // wired once
    kestro::ChartReportSource *charts = nullptr;
#ifdef KESTRO_HAVE_COLOR_PAGE
    QWidget *tab = m_workflow->findChild<QWidget *>(QStringLiteral("tabColorEval"));
    if (tab && tab->layout()) {
        // The page brings its own colour and noise tab widgets.
        for (const char *placeholder : {"colorDifferenceTabs", "noiseTabs"}) {
            if (auto *old = tab->findChild<QTabWidget *>(QLatin1String(placeholder),
                                                         Qt::FindDirectChildrenOnly))
                delete old;
        }
        auto *page = new MacbethChartPage(tab);
        tab->layout()->addWidget(page);
        page->setBatchMode(m_commandLineMode);
        page->setUseWebView(!kestro::isNonInteractiveDisplay());
        page->setMessageFunction(
                [this](QMessageBox::Icon icon, const QString &title, const QString &text) {
                    kestro::showMessage(this, icon, title, text);
                });
        page->setCaptureFunction([this](QImage &picture) { return captureImage(picture); });
        charts = page;
        // The reports dock below the pages while the chart tab is shown.
        kestro::ReportDock *reports = page->reportDock()->takeFromPage();
        addDockView(reports, Qt::BottomDockWidgetArea);
        reports->showWithTab(m_workflow, page);
    }
#endif
    auto *host = new WindowReportHost(
            this, [this] { return m_mtfBatch; }, [this] { return m_uniformityBatch; });
    setReportExport(new KestroReportExporter(host, charts, this));
}

void Kestro::wireNoisePage()
{
#ifdef KESTRO_HAVE_COLOR_PAGE
    if (auto *page = m_workflow->findChild<MacbethChartPage *>())
        page->initNoiseCharts();
#endif
}
