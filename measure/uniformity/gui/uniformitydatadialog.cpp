#include "measure/uniformity/gui/uniformitydatadialog.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeySequence>
#include <QPushButton>
#include <QShortcut>
#include <QTableView>
#include <QVBoxLayout>
#include <limits>

namespace kestro {

UniformityGridModel::UniformityGridModel(std::vector<double> grid, int cols, int rows,
                                         QObject *parent)
    : QAbstractTableModel(parent)
    , m_grid(std::move(grid))
    , m_cols(cols)
    , m_rows(rows)
{
    if (m_cols < 0 || m_rows < 0
        || m_grid.size() != static_cast<std::size_t>(m_cols) * static_cast<std::size_t>(m_rows)) {
        m_grid.clear();
        m_cols = 0;
        m_rows = 0;
    }
}

int UniformityGridModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows;
}

int UniformityGridModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_cols;
}

double UniformityGridModel::value(int col, int row) const
{
    return m_grid[static_cast<std::size_t>(col) * m_rows + row];
}

QVariant UniformityGridModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || role != Qt::DisplayRole)
        return QVariant();
    return QString::number(value(index.column(), index.row()), 'g', 6);
}

QVariant UniformityGridModel::headerData(int section, Qt::Orientation, int role) const
{
    // Grid coordinates start at 0, as on the chart's axes.
    if (role != Qt::DisplayRole)
        return QVariant();
    return section;
}

UniformityDataDialog::UniformityDataDialog(std::vector<double> grid, int cols, int rows,
                                           const QString &channel, QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Subsampled data of the %1 channel (%2 x %3)")
                           .arg(channel)
                           .arg(cols)
                           .arg(rows));
    m_model = new UniformityGridModel(std::move(grid), cols, rows, this);
    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("uniDataTable"));
    m_table->setModel(m_model);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->horizontalHeader()->setDefaultSectionSize(70);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    QPushButton *copyButton = buttons->addButton(QStringLiteral("Copy"),
                                                 QDialogButtonBox::ActionRole);
    copyButton->setObjectName(QStringLiteral("uniDataCopy"));
    connect(copyButton, &QPushButton::clicked, this, &UniformityDataDialog::copy);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *copyShortcut = new QShortcut(QKeySequence::Copy, m_table);
    connect(copyShortcut, &QShortcut::activated, this, &UniformityDataDialog::copy);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addWidget(buttons);
    resize(720, 480);
}

QString UniformityDataDialog::selectionText() const
{
    int top = 0;
    int left = 0;
    int bottom = m_model->rowCount() - 1;
    int right = m_model->columnCount() - 1;
    // Selection ranges, not indexes: selecting the whole of a large grid
    // stays one range.
    const QItemSelection selection = m_table->selectionModel()->selection();
    if (!selection.isEmpty()) {
        top = left = std::numeric_limits<int>::max();
        bottom = right = -1;
        for (const QItemSelectionRange &range : selection) {
            top = qMin(top, range.top());
            bottom = qMax(bottom, range.bottom());
            left = qMin(left, range.left());
            right = qMax(right, range.right());
        }
    }
    QString text;
    for (int row = top; row <= bottom; ++row) {
        for (int col = left; col <= right; ++col) {
            if (col > left)
                text += QLatin1Char('\t');
            text += QString::number(m_model->value(col, row), 'g', 6);
        }
        text += QLatin1Char('\n');
    }
    return text;
}

void UniformityDataDialog::copy()
{
    QApplication::clipboard()->setText(selectionText());
}

} // namespace kestro

#include "moc_uniformitydatadialog.cpp"
