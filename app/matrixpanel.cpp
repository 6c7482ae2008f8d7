#include "app/matrixpanel.h"

#include "app/kestro.h"
#include "measure/color/macbethcolordifference.h"
#include "platform/colorcal/colorcal.h"

#ifdef KESTRO_HAVE_COLOR_PAGE
#include "measure/color/gui/macbethchartpage.h"
#endif

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMetaMethod>
#include <QPointer>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <limits>

namespace {

QTableWidget *makeTable(int rows, const QStringList &rowNames, const QStringList &columnNames,
                        QWidget *parent)
{
    auto *table = new QTableWidget(rows, columnNames.size(), parent);
    table->setVerticalHeaderLabels(rowNames);
    table->setHorizontalHeaderLabels(columnNames);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionMode(QAbstractItemView::NoSelection);
    table->setFocusPolicy(Qt::NoFocus);
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columnNames.size(); ++c) {
            auto *item = new QTableWidgetItem;
            item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            table->setItem(r, c, item);
        }
    return table;
}

void setCell(QTableWidget *table, int row, int column, const QString &text)
{
    table->item(row, column)->setText(text);
}

// Sizes a table to show every cell, without scroll bars or empty space.
void fitTable(QTableWidget *table)
{
    table->resizeColumnsToContents();
    table->resizeRowsToContents();
    int width = table->verticalHeader()->sizeHint().width() + 2 * table->frameWidth();
    for (int c = 0; c < table->columnCount(); ++c)
        width += table->columnWidth(c);
    int height = table->horizontalHeader()->sizeHint().height() + 2 * table->frameWidth();
    for (int r = 0; r < table->rowCount(); ++r)
        height += table->rowHeight(r);
    table->setFixedSize(width, height);
}

} // namespace

MatrixPanel::MatrixPanel(CColorCalibrate *calibration, QWidget *parent)
    : QWidget(parent)
    , m_calibration(calibration)
{
    setObjectName(QStringLiteral("colorCorrectionPanel"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);

    auto *options = new QHBoxLayout;
    m_fit = new QComboBox(this);
    m_fit->setObjectName(QStringLiteral("colorCorrectionFit"));
    m_fit->addItem(tr("Least squares (linear RGB)"));
    m_fit->addItem(tr("Minimum \u0394E00"));
    m_fit->setToolTip(tr("Least squares fits the matrix in linear RGB; minimum \u0394E00 refines "
                         "it for the smallest color differences over the patches"));
    m_ridge = new QDoubleSpinBox(this);
    m_ridge->setObjectName(QStringLiteral("colorCorrectionRidge"));
    m_ridge->setRange(0.0, 10.0);
    m_ridge->setDecimals(4);
    m_ridge->setSingleStep(0.001);
    m_ridge->setToolTip(tr("Ridge strength: larger values keep the matrix coefficients small, "
                           "which lowers the noise gain at the cost of color accuracy (useful "
                           "values 0.001 to 0.05)"));
    auto *fitLabel = new QLabel(tr("&Fit:"), this);
    fitLabel->setBuddy(m_fit);
    auto *ridgeLabel = new QLabel(tr("&Ridge:"), this);
    ridgeLabel->setBuddy(m_ridge);
    options->addWidget(fitLabel);
    options->addWidget(m_fit);
    options->addSpacing(12);
    options->addWidget(ridgeLabel);
    options->addWidget(m_ridge);
    options->addStretch(1);
    layout->addLayout(options);

    auto *tables = new QHBoxLayout;
    const QStringList rgb = {tr("R"), tr("G"), tr("B")};
    m_matrix = makeTable(3, rgb, rgb + QStringList{tr("Noise gain")}, this);
    m_matrix->setObjectName(QStringLiteral("colorCorrectionMatrix"));
    m_matrix->setToolTip(tr("Output rows from input columns, in linear RGB after the gains; "
                            "each row sums to 1. Noise gain: root of the sum of squares of the "
                            "row"));
    m_deltaE = makeTable(2, {tr("Before"), tr("After")},
                         {tr("Mean \u0394E00"), tr("Max"), tr("95%")}, this);
    m_deltaE->setObjectName(QStringLiteral("colorCorrectionDeltaE"));
    m_deltaE->setToolTip(tr("Color differences of the patches in the fit, as measured and after "
                            "the gains, the exposure and the matrix"));
    tables->addWidget(m_matrix, 0, Qt::AlignTop);
    tables->addWidget(m_deltaE, 0, Qt::AlignTop);
    tables->addStretch(1);
    layout->addLayout(tables);

    m_gains = new QLabel(this);
    m_gains->setObjectName(QStringLiteral("colorCorrectionGains"));
    m_gains->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_gains);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("colorCorrectionStatus"));
    m_status->setWordWrap(true);
    layout->addWidget(m_status);

    connect(m_fit, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &MatrixPanel::optionsChanged);
    connect(m_ridge, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this,
            &MatrixPanel::optionsChanged);
    refresh();
}

void MatrixPanel::setCalibration(CColorCalibrate *calibration)
{
    m_calibration = calibration;
    refresh();
}

void MatrixPanel::takeChart(const QStdMacbethChartColorDifference &model)
{
    if (!m_calibration)
        return;
    double rgb[kestro::kMacbethPatchCount][3], lab[kestro::kMacbethPatchCount][3];
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (int i = 0; i < kestro::kMacbethPatchCount; ++i) {
        const MacbethPatch &p = model.patch(i);
        const double values[6] = {p.hasMeasured ? p.R : nan, p.G, p.B, p.refL, p.refA, p.refB};
        std::copy(values, values + 3, rgb[i]);
        std::copy(values + 3, values + 6, lab[i]);
    }
    m_calibration->SetCorrectionFit(m_fit->currentIndex(), m_ridge->value());
    m_calibration->SetChartPatches(kestro::kMacbethPatchCount, &rgb[0][0], &lab[0][0]);
    refresh();
    emit chartTaken();
}

void MatrixPanel::chartProcessed()
{
    if (const QStdMacbethChartColorDifference *model = m_chartSource ? m_chartSource() : nullptr)
        takeChart(*model);
}

void MatrixPanel::optionsChanged()
{
    if (!m_calibration)
        return;
    m_calibration->SetCorrectionFit(m_fit->currentIndex(), m_ridge->value());
    refresh();
}

void MatrixPanel::refresh()
{
    const bool haveChart = m_calibration && m_calibration->HasChart();
    const kestro::ccm::Result *r = haveChart ? &m_calibration->CorrectionResult() : nullptr;
    const bool ok = r && r->ok;
    for (int row = 0; row < 3; ++row) {
        for (int c = 0; c < 3; ++c)
            setCell(m_matrix, row, c, ok ? QString::number(r->matrix[row][c], 'f', 4) : QString());
        setCell(m_matrix, row, 3, ok ? QString::number(r->noiseGain[row], 'f', 3) : QString());
    }
    const kestro::ccm::Stats *stats[2] = {ok ? &r->before : nullptr, ok ? &r->after : nullptr};
    for (int row = 0; row < 2; ++row) {
        const kestro::ccm::Stats *s = stats[row];
        setCell(m_deltaE, row, 0, s ? QString::number(s->mean, 'f', 2) : QString());
        setCell(m_deltaE, row, 1, s ? QString::number(s->max, 'f', 2) : QString());
        setCell(m_deltaE, row, 2, s ? QString::number(s->p95, 'f', 2) : QString());
    }
    m_gains->setText(ok ? tr("White-balance gains R %1, G %2, B %3; exposure %4")
                                     .arg(r->gains[0], 0, 'f', 4)
                                     .arg(r->gains[1], 0, 'f', 4)
                                     .arg(r->gains[2], 0, 'f', 4)
                                     .arg(r->exposure, 0, 'f', 4)
                        : QString());
    QString status;
    if (!haveChart) {
        status = tr("Process a chart on the Macbeth Chart Image Tests page to compute the "
                    "color correction.");
    } else if (!ok) {
        status = QString::fromStdString(r->error);
    } else if (!r->excluded.empty()) {
        QStringList patches;
        for (int p : r->excluded)
            patches << QString::number(p);
        status = tr("Clipped patches left out of the fit: %1.")
                         .arg(patches.join(QLatin1String(", ")));
    } else {
        status = tr("All 24 patches are in the fit.");
    }
    m_status->setText(status);
    fitTable(m_matrix);
    fitTable(m_deltaE);
}

namespace kestro {

MatrixPanel *installMatrixPanel(Kestro *window)
{
    auto *group = window->findChild<QGroupBox *>(QStringLiteral("matrixPanel"));
    auto *layout = group ? qobject_cast<QBoxLayout *>(group->layout()) : nullptr;
    if (!layout)
        return nullptr;
    CColorCalibrate *calibration = window->colorCalibration();
    if (auto *existing = group->findChild<MatrixPanel *>()) {
        existing->setCalibration(calibration);
        return existing;
    }
    auto *panel = new MatrixPanel(calibration, group);
    layout->insertWidget(1, panel);
    QObject::connect(panel, &MatrixPanel::chartTaken, window, [window] { window->matrixPanel(1); });
#ifdef KESTRO_HAVE_COLOR_PAGE
    // The chart page tells when a measurement succeeded, where it has the
    // signal for it.
    if (MacbethChartPage *page = window->findChild<MacbethChartPage *>()) {
        QPointer<MacbethChartPage> guarded(page);
        panel->setChartSource([guarded]() -> const QStdMacbethChartColorDifference * {
            return guarded ? &guarded->colorDifference() : nullptr;
        });
        const int signal = page->metaObject()->indexOfSignal("chartProcessed()");
        const int slot = panel->metaObject()->indexOfSlot("chartProcessed()");
        if (signal >= 0)
            QObject::connect(page, page->metaObject()->method(signal), panel,
                             panel->metaObject()->method(slot));
    }
#endif
    return panel;
}

} // namespace kestro
