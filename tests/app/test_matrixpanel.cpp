// The colour-correction panel in the window: a chart is processed, the panel
// shows its correction and fit choices, the result is saved into the demo
// sensor's default INI file and applied to the sensor, whose registers then
// hold the written values.

#include "../platform/colorcal/ccmchart.h"

#include "acquisition/camera.h"
#include "app/kestro.h"
#include "app/matrixpanel.h"
#include "imaging/frame.h"
#include "imaging/gui/imagegraphicsview.h"
#include "imaging/gui/macbethframeview.h"
#include "measure/color/gui/macbethchartpage.h"
#include "platform/colorcal/ccm_registers.h"
#include "platform/colorcal/colorcal.h"
#include "platform/tarnlib/tarnlib.h"

#include "testsupport.h"

#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QTableWidget>
#include <gtest/gtest.h>

using namespace kestro;

namespace {

using kestro::test::boxesOf;

double cell(QTableWidget *table, int row, int column)
{
    return table->item(row, column)->text().toDouble();
}

} // namespace

TEST(MatrixPanel, ProcessedChartIsShownSavedAndAppliedToTheSensor)
{
    QTemporaryDir home;
    test::ScopedEnvironment env;
    env.set("XDG_DATA_HOME", QFile::encodeName(home.path()));
    env.set("KESTRO_DEMO_CAMERA", "KSD644-REV1");
    {
        Kestro window;
        window.setCommandLineMode(false);
        window.initialize();
        MatrixPanel *panel = installMatrixPanel(&window);
        ASSERT_TRUE(panel);
        auto *group = window.findChild<QGroupBox *>("matrixPanel");
        EXPECT_FALSE(group->isEnabled());
        boxesOf([&] { window.probeCameras(); });
        ASSERT_TRUE(window.isCameraOpen());

        // The chart measured through the page, which hands it to the panel.
        QVector<QRect> rects;
        const ccm::Chart chart = test::renderChart(test::sampleMixing(), test::sampleGains(), 0.8,
                                                   0.0, 1, false);
        auto *page = window.findChild<MacbethChartPage *>();
        ASSERT_TRUE(page);
        CFrame frame;
        ASSERT_TRUE(frame.load(
                test::saveImage(home, "chart.png", test::renderChartImage(chart, 40, &rects))));
        page->frameView()->addFrame(frame);
        for (const QRect &r : rects)
            page->frameView()->view()->addRegion(QRectF(r));
        ASSERT_TRUE(page->processMacbethChart());
        EXPECT_TRUE(group->isEnabled());
        // The corrected chart's colour difference beside the uncorrected
        // one; the options refit at once.
        EXPECT_LT(cell(panel->deltaETable(), 1, 0), 0.8);
        EXPECT_GT(cell(panel->deltaETable(), 0, 0), 10.0);
        const double plainGain = cell(panel->matrixTable(), 0, 3);
        panel->ridgeBox()->setValue(0.02);
        EXPECT_LT(cell(panel->matrixTable(), 0, 3), plainGain);

        const QString ini = window.camera()->defaultIniFile();
        EXPECT_EQ(boxesOf([&] { window.saveToDefaultIni(); }),
                  "OK: CCM registers written to the file " + ini + ".\n");
        EXPECT_TRUE(window.colorCalibration()->CalibResSaved());
        EXPECT_EQ(boxesOf([&] { window.applySettingsToSensor(); }), QString());

        // Every register written to the file now holds its value.
        QFile file(ini);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray text = file.readAll();
        EXPECT_TRUE(text.contains("[Strobix Initialization]"));
        ccm::SensorCorrectionRegisters regs;
        QString why;
        ASSERT_TRUE(ccm::describeSensorCorrection(window.camera()->handle(), &regs, &why));
        int checked = 0;
        for (const QByteArray &line : text.split('\n')) {
            const int eq = line.indexOf('=');
            for (const ccm::RegisterField &r : regs.matrix)
                checked += line.left(eq) == r.name.toLatin1() ? 1 : 0;
            for (const ccm::RegisterField &r : regs.gains) {
                if (line.left(eq) != r.name.toLatin1())
                    continue;
                unsigned value = 0;
                ASSERT_EQ(tl_ReadRegister(window.camera()->handle(), r.address, &value), TL_OK);
                EXPECT_EQ(value, line.mid(eq + 3).trimmed().toUInt(nullptr, 16)) << line.data();
                ++checked;
            }
        }
        EXPECT_EQ(checked, 12);
        unsigned rr = 0;
        tl_ReadRegister(window.camera()->handle(), regs.matrix[0].address, &rr);
        EXPECT_NEAR(regs.matrixFormat.decode(rr) / 256.0,
                    window.colorCalibration()->CorrectionResult().matrix[0][0], 1.0 / 256);
    }
}
