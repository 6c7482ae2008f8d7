#pragma once
// The subsampled grid of one channel as a table: one row per grid row, one
// column per grid column, the block means with 6 significant digits. The
// selection (or the whole grid when nothing is selected) copies to the
// clipboard as tab-separated text, rows on lines, ready to paste into a
// spreadsheet.

#include <QAbstractTableModel>
#include <QDialog>
#include <vector>

class QTableView;

namespace kestro {

class UniformityGridModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    UniformityGridModel(std::vector<double> grid, int cols, int rows, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    double value(int col, int row) const;

private:
    std::vector<double> m_grid; // column-major
    int m_cols = 0;
    int m_rows = 0;
};

class UniformityDataDialog : public QDialog
{
    Q_OBJECT
public:
    UniformityDataDialog(std::vector<double> grid, int cols, int rows, const QString &channel,
                         QWidget *parent = nullptr);

    QTableView *table() const { return m_table; }
    // Tab-separated text of the selected cells' bounding block, or of the
    // whole grid without a selection.
    QString selectionText() const;

public slots:
    void copy();

private:
    UniformityGridModel *m_model = nullptr;
    QTableView *m_table = nullptr;
};

} // namespace kestro
