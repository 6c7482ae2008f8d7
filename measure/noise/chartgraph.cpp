#include "measure/noise/chartgraph.h"

#include <QFontMetricsF>
#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace {

const QColor kBackground(51, 51, 51);
const QColor kBarBackground(34, 34, 34);
const QColor kBarOutline(110, 110, 110);
const QColor kSelection(255, 204, 0);
const QColor kSeriesColors[ChartGraph::kSeriesCount] = {QColor(230, 40, 40), QColor(40, 200, 40),
                                                        QColor(60, 90, 255), QColor(20, 120, 60)};
const char kTextSample[] = "9999.99";

// White text on dark patches, black on light ones.
QColor textColorFor(const QColor &c)
{
    const int brightness = 30 * c.red() + 60 * c.green() + 10 * c.blue();
    return brightness < 12800 ? Qt::white : Qt::black;
}

QString valueText(double v)
{
    if (std::isnan(v))
        return QStringLiteral("--");
    if (std::isinf(v))
        return v > 0 ? QStringLiteral("inf") : QStringLiteral("-inf");
    return QString::number(v, 'f', 2);
}

// The widget's font scaled so that `lines` lines of `sample` fill the box
// (at most three times the widget's size); the "no text" marker when text
// of that size would be smaller than minPixels.
QFont fittedFont(const QFont &base, const QSizeF &box, int lines, const QString &sample,
                 double minPixels)
{
    const QRectF bounds = QFontMetricsF(base).boundingRect(sample);
    if (bounds.width() <= 0 || bounds.height() <= 0 || lines < 1)
        return QFont(QStringLiteral("-"));
    const double fx = (box.width() * 0.9) / bounds.width();
    const double fy = (box.height() * 0.95) / (bounds.height() * lines);
    const double factor = std::min({fx, fy, 3.0});
    QFont font = base;
    const double pixels = QFontInfo(base).pixelSize() * factor;
    if (pixels < minPixels)
        return QFont(QStringLiteral("-"));
    font.setPixelSize(static_cast<int>(pixels));
    return font;
}

// Value texts are laid out for "9999.99", or for the widest text when one is
// wider (a huge SNR of a noise-free patch), so that no text runs out of its
// cell; a cell too small for that takes the size of its own texts, then keeps
// only its first line.
QFont fontForLines(const QFont &base, const QSizeF &box, QStringList *lines)
{
    const QFontMetricsF metrics(base);
    while (!lines->isEmpty()) {
        QString own;
        for (const QString &line : *lines)
            if (metrics.horizontalAdvance(line) > metrics.horizontalAdvance(own))
                own = line;
        if (own.isEmpty())
            own = QStringLiteral("0");
        const QString sample = QLatin1String(kTextSample);
        const QString layout = metrics.horizontalAdvance(own) > metrics.horizontalAdvance(sample)
                                       ? own
                                       : sample;
        QFont font = fittedFont(base, box, lines->size(), layout, 7.0);
        if (font.family() != QLatin1String("-"))
            return font;
        font = fittedFont(base, box, lines->size(), own, 6.0);
        if (font.family() != QLatin1String("-"))
            return font;
        if (lines->size() == 1)
            break;
        *lines = lines->mid(0, 1);
    }
    return QFont(QStringLiteral("-"));
}

bool usable(const QFont &f)
{
    return f.family() != QLatin1String("-");
}

double finiteOrZero(double v)
{
    return std::isfinite(v) ? v : (std::isinf(v) && v > 0 ? 1e300 : 0.0);
}

// A bar of value v over the bar area, from the bottom.
void drawBar(QPainter &p, const QRect &area, double v, double scale, const QColor &color)
{
    p.setPen(kBarOutline);
    p.setBrush(kBarBackground);
    p.drawRect(area.adjusted(0, 0, -1, -1));
    const double fraction = std::clamp(finiteOrZero(v) / scale, 0.0, 1.0);
    const int top = area.top() + static_cast<int>(std::lround((1.0 - fraction) * area.height()));
    if (top > area.bottom())
        return;
    const QRect bar(area.left(), top, area.width(), area.bottom() - top + 1);
    p.setPen(QColor(200, 200, 200));
    p.setBrush(color);
    p.drawRect(bar.adjusted(0, 0, -1, -1));
}

} // namespace

QRect ChartGraph::Grid::cell(int k) const
{
    return QRect(margin + (k % 6) * cellWidth, margin + (k / 6) * cellHeight, cellWidth, cellHeight);
}

QRect ChartGraph::Grid::inner(const QRect &c) const
{
    const int gap = cellWidth / 9;
    return QRect(c.left() + gap / 2, c.top() + gap / 2, c.width() - gap, c.height() - gap);
}

ChartGraph::ChartGraph(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void ChartGraph::setMode(int mode)
{
    if (mode < ValueMode || mode > GrayMode || mode == m_mode)
        return;
    m_mode = mode;
    update();
}

void ChartGraph::setPatchColors(const QColor *colors, int n)
{
    m_colors.clear();
    for (int i = 0; colors && i < std::min(n, int(kPatchCount)); ++i)
        m_colors << colors[i];
    update();
}

void ChartGraph::setPatchColors(const QVector<QColor> &colors)
{
    setPatchColors(colors.constData(), colors.size());
}

void ChartGraph::setValues(const double *values, int n)
{
    m_values.clear();
    for (int i = 0; values && i < std::min(n, int(kPatchCount)); ++i)
        m_values << values[i];
    update();
}

void ChartGraph::setGrayValues(const double *values, int n)
{
    m_grayValues.clear();
    for (int i = 0; values && i < std::min(n, 6); ++i)
        m_grayValues << values[i];
    update();
}

void ChartGraph::setSeries(const double *const series[kSeriesCount], int n)
{
    for (int s = 0; s < kSeriesCount; ++s) {
        m_series[s].clear();
        for (int i = 0; series && series[s] && i < std::min(n, int(kPatchCount)); ++i)
            m_series[s] << series[s][i];
    }
    update();
}

void ChartGraph::clearValues()
{
    m_values.clear();
    m_grayValues.clear();
    for (auto &s : m_series)
        s.clear();
    update();
}

void ChartGraph::setSelectedPatch(int index)
{
    if (index < -1 || index >= kPatchCount)
        index = -1;
    if (index == m_selected)
        return;
    m_selected = index;
    update();
}

QSize ChartGraph::sizeHint() const
{
    return QSize(600, 400);
}

QSize ChartGraph::minimumSizeHint() const
{
    return QSize(120, 80);
}

ChartGraph::Grid ChartGraph::grid(const QSize &size) const
{
    Grid g;
    g.margin = size.width() / 50;
    g.cellWidth = (size.width() - 2 * g.margin) / 6;
    g.cellHeight = (size.height() - 2 * g.margin) / 4;
    return g;
}

double ChartGraph::scale() const
{
    double s = 1.0;
    auto take = [&s](const QVector<double> &values) {
        for (double v : values)
            if (std::isfinite(v))
                s = std::max(s, v);
    };
    switch (m_mode) {
    case ValueMode:
        take(m_values);
        break;
    case NoiseMode:
        for (const auto &series : m_series)
            take(series);
        break;
    case GrayMode:
        take(m_grayValues);
        break;
    }
    return s;
}

QColor ChartGraph::patchColor(int k) const
{
    return k >= 0 && k < m_colors.size() && m_colors[k].isValid() ? m_colors[k]
                                                                  : QColor(128, 128, 128);
}

int ChartGraph::patchAt(const QPoint &pos) const
{
    const Grid g = grid(size());
    if (g.cellWidth < 1 || g.cellHeight < 1 || pos.x() < g.margin || pos.y() < g.margin)
        return -1;
    const int col = (pos.x() - g.margin) / g.cellWidth;
    const int row = (pos.y() - g.margin) / g.cellHeight;
    if (col > 5 || row > 3)
        return -1;
    return m_mode == GrayMode ? 18 + col : row * 6 + col;
}

void ChartGraph::mousePressEvent(QMouseEvent *event)
{
    const int k = patchAt(event->pos());
    if (k >= 0) {
        setSelectedPatch(k);
        emit patchSelected(k);
    }
    QWidget::mousePressEvent(event);
}

void ChartGraph::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    paintChart(p, size());
}

QImage ChartGraph::renderImage(const QSize &size) const
{
    QImage image(size.expandedTo(QSize(1, 1)), QImage::Format_RGB32);
    if (image.isNull())
        return image;
    image.fill(kBackground);
    QPainter p(&image);
    paintChart(p, size);
    return image;
}

void ChartGraph::paintChart(QPainter &p, const QSize &size) const
{
    p.setPen(kBackground);
    p.setBrush(kBackground);
    p.drawRect(0, 0, size.width() - 1, size.height() - 1);

    const Grid g = grid(size);
    if (g.cellWidth < 4 || g.cellHeight < 4)
        return;
    const double s = scale();

    auto drawSelection = [&](const QRect &cell) {
        p.save();
        p.setBackgroundMode(Qt::OpaqueMode);
        p.setBackground(kBackground);
        p.setPen(QPen(kSelection, std::max(2, g.cellWidth / 40), Qt::DashLine));
        p.setBrush(Qt::NoBrush);
        p.drawRect(cell.adjusted(1, 1, -2, -2));
        p.restore();
    };
    // Left half: the patch colour with lines of text in white on dark patches
    // and black on light ones, so that they stay readable on every patch.
    auto drawColorWithText = [&](const QRect &area, const QColor &color, const QStringList &lines) {
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawRect(area);
        QStringList shown = lines;
        const QFont font = fontForLines(this->font(), area.size(), &shown);
        if (shown.isEmpty() || !usable(font))
            return;
        p.setFont(font);
        p.setPen(textColorFor(color));
        const int lineHeight = area.height() / shown.size();
        for (int i = 0; i < shown.size(); ++i)
            p.drawText(QRect(area.left(), area.top() + i * lineHeight, area.width(), lineHeight),
                       Qt::AlignCenter, shown[i]);
    };
    auto halves = [](const QRect &inner, QRect *left, QRect *right) {
        *left = QRect(inner.left(), inner.top(), inner.width() / 2, inner.height());
        *right = QRect(left->right() + 1, inner.top(), inner.width() - left->width(),
                       inner.height());
    };

    if (m_mode == ValueMode) {
        for (int k = 0; k < kPatchCount; ++k) {
            const QRect cell = g.cell(k);
            if (k == m_selected)
                drawSelection(cell);
            QRect left, right;
            halves(g.inner(cell), &left, &right);
            const QColor color = patchColor(k);
            const bool has = k < m_values.size();
            drawColorWithText(left, color,
                              has ? QStringList{valueText(m_values[k]), QString::number(k + 1)}
                                  : QStringList{QString::number(k + 1)});
            drawBar(p, right, has ? m_values[k] : 0.0, s, color);
        }
    } else if (m_mode == NoiseMode) {
        // Only the series that hold data get a bar and a text line.
        QVector<int> used;
        for (int i = 0; i < kSeriesCount; ++i) {
            const bool any = std::any_of(m_series[i].begin(), m_series[i].end(),
                                         [](double v) { return v != 0.0 && !std::isnan(v); });
            if (any)
                used << i;
        }
        for (int k = 0; k < kPatchCount; ++k) {
            const QRect cell = g.cell(k);
            if (k == m_selected)
                drawSelection(cell);
            QRect left, right;
            halves(g.inner(cell), &left, &right);
            QStringList lines;
            for (int i : used)
                lines << (k < m_series[i].size() ? valueText(m_series[i][k]) : QString());
            if (lines.isEmpty())
                lines << QString::number(k + 1);
            drawColorWithText(left, patchColor(k), lines);
            const int n = std::max(1, int(used.size()));
            const int barWidth = right.width() / n;
            for (int j = 0; j < used.size(); ++j) {
                const int i = used[j];
                const QRect area(right.left() + j * barWidth, right.top(),
                                 j + 1 == n ? right.width() - j * barWidth : barWidth,
                                 right.height());
                drawBar(p, area, k < m_series[i].size() ? m_series[i][k] : 0.0, s, kSeriesColors[i]);
            }
            if (used.isEmpty())
                drawBar(p, right, 0.0, s, patchColor(k));
        }
    } else {
        // Gray patches on the bottom row, each with a tall bar over the
        // three rows above it.
        for (int j = 0; j < 6; ++j) {
            const int k = 18 + j;
            const QRect cell = g.cell(k);
            if (k == m_selected)
                drawSelection(cell.united(g.cell(j)));
            const QColor color = patchColor(k);
            const double v = j < m_grayValues.size() ? m_grayValues[j] : 0.0;
            const QRect top = g.inner(g.cell(j));
            const QRect above = g.inner(g.cell(12 + j));
            drawBar(p, QRect(top.topLeft(), above.bottomRight()), v, s, color);
            QRect left, right;
            halves(g.inner(cell), &left, &right);
            drawColorWithText(left, color,
                              j < m_grayValues.size() ? QStringList{valueText(v)}
                                                      : QStringList{QString()});
            drawColorWithText(right, color, {QString::number(k + 1)});
        }
    }
}
