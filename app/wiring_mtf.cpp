// Wiring of the MTF page: it fills the window's third tab, its result pane
// is a dock of the window.

#include "app/kestro.h"

#include "imaging/gui/reportdock.h"
#include "measure/mtf/gui/mtfpage.h"

#include <QTabWidget>
#include <QVBoxLayout>

void Kestro::wireMtfPage()
{
    QWidget *tab = m_workflow->widget(2);
    auto *page = tab->findChild<MtfPage *>();
    if (!page) {
        auto *layout = new QVBoxLayout(tab);
        layout->setContentsMargins(0, 0, 0, 0);
        page = new MtfPage(tab);
        layout->addWidget(page);
        // The result pane docks below the pages while the MTF tab is shown.
        kestro::ReportDock *results = page->reportDock()->takeFromPage();
        addDockView(results, Qt::BottomDockWidgetArea);
        results->showWithTab(m_workflow, page);
    }
    // Batch runs take their fields from the window as the runner left them.
    page->setBatchSettings([this] {
        MtfBatchSettings batch;
        batch.commandLine = m_commandLineMode;
        batch.gamma = m_mtfGamma;
        batch.imagePath = m_mtfImagePath;
        batch.inlineRegion = m_mtfInlineRegion;
        batch.roiFile = m_roiFilePath;
        batch.roiFileGiven = m_roiFileGiven;
        return batch;
    });
    page->setCaptureFunction([this](QImage &picture) { return captureImage(picture); });
    setMtfBatch(page);
    // The batch gamma when the command line gives none.
    m_mtfGamma = page->customGamma();
}
