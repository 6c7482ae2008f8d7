#include "measure/uniformity/gui/uniformitypictureview.h"

#include <QFontMetricsF>
#include <QGraphicsItem>
#include <QGraphicsPixmapItem>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QPainter>
#include <QPen>
#include <QPixmap>
#include <QtMath>
#include <algorithm>

namespace kestro {

// A text with a dark translucent background that keeps its screen size; it
// is placed by an anchor point and the alignment of the text to it.
class UniformityLabelItem : public QGraphicsItem
{
public:
    UniformityLabelItem()
    {
        setFlag(ItemIgnoresTransformations);
        setZValue(3);
    }

    void set(const QString &text, const QPointF &anchor, Qt::Alignment alignment)
    {
        prepareGeometryChange();
        m_text = text;
        m_alignment = alignment;
        setPos(anchor);
        const QFontMetricsF metrics(m_font);
        const QSizeF size(metrics.horizontalAdvance(m_text) + 2 * kMargin,
                          metrics.height() + 2 * kMargin);
        double x = 0.0;
        if (alignment & Qt::AlignRight)
            x = -size.width();
        else if (alignment & Qt::AlignHCenter)
            x = -size.width() / 2;
        double y = 0.0;
        if (alignment & Qt::AlignBottom)
            y = -size.height();
        else if (alignment & Qt::AlignVCenter)
            y = -size.height() / 2;
        m_rect = QRectF(QPointF(x, y + m_rows * size.height()), size);
        update();
    }

    // Moves the label by whole label heights below (positive) or above
    // (negative) the place its anchor and alignment give it.
    void setRows(int rows)
    {
        if (rows == m_rows)
            return;
        prepareGeometryChange();
        m_rect.translate(0.0, (rows - m_rows) * m_rect.height());
        m_rows = rows;
        update();
    }

    QString text() const { return m_text; }
    Qt::Alignment alignment() const { return m_alignment; }
    QRectF boundingRect() const override { return m_rect; }

    void paint(QPainter *painter, const QStyleOptionGraphicsItem *, QWidget *) override
    {
        painter->fillRect(m_rect, QColor(0, 0, 0, 150));
        painter->setFont(m_font);
        painter->setPen(Qt::yellow);
        painter->drawText(m_rect, Qt::AlignCenter, m_text);
    }

private:
    static constexpr double kMargin = 2.0;
    QString m_text;
    Qt::Alignment m_alignment = Qt::AlignLeft | Qt::AlignTop;
    int m_rows = 0;
    QFont m_font;
    QRectF m_rect;
};

UniformityPictureView::UniformityPictureView(QWidget *parent)
    : QGraphicsView(parent)
{
    m_scene = new QGraphicsScene(this);
    setScene(m_scene);
    setBackgroundBrush(palette().dark());
    setRenderHint(QPainter::SmoothPixmapTransform);
    m_picture = m_scene->addPixmap(QPixmap());
    for (int i = 0; i < 5; ++i) {
        // Cosmetic pens: the outlines stay two pixels wide at any zoom.
        QPen pen(i == 0 ? QColor(Qt::red) : QColor(Qt::yellow), 2);
        pen.setCosmetic(true);
        m_windows[i] = m_scene->addRect(QRectF(), pen);
        m_windows[i]->setZValue(2);
        m_labels[i] = new UniformityLabelItem;
        m_scene->addItem(m_labels[i]);
    }
    clearWindows();
}

void UniformityPictureView::setPicture(const QImage &image)
{
    m_picture->setPixmap(QPixmap::fromImage(image));
    m_scene->setSceneRect(QRectF(QPointF(0, 0), QSizeF(image.size())));
    fit();
}

bool UniformityPictureView::hasPicture() const
{
    return !m_picture->pixmap().isNull();
}

void UniformityPictureView::setWindows(const QRectF &center, const QString &centerText,
                                       const std::array<QRectF, 4> &corners,
                                       const std::array<QString, 4> &labels)
{
    m_windows[0]->setRect(center);
    m_labels[0]->set(centerText, center.center(), Qt::AlignCenter);
    const Qt::Alignment align[4] = {Qt::AlignLeft | Qt::AlignTop, Qt::AlignRight | Qt::AlignTop,
                                    Qt::AlignLeft | Qt::AlignBottom,
                                    Qt::AlignRight | Qt::AlignBottom};
    for (int i = 0; i < 4; ++i) {
        const QRectF &r = corners[i];
        m_windows[i + 1]->setRect(r);
        const QPointF anchor((align[i] & Qt::AlignRight) ? r.right() : r.left(),
                             (align[i] & Qt::AlignBottom) ? r.bottom() : r.top());
        m_labels[i + 1]->set(labels[i], anchor, align[i]);
    }
    for (int i = 0; i < 5; ++i) {
        m_windows[i]->setVisible(true);
        m_labels[i]->setVisible(true);
    }
    placeLabels();
    updateGeometry();
}

void UniformityPictureView::clearWindows()
{
    for (int i = 0; i < 5; ++i) {
        m_windows[i]->setVisible(false);
        m_labels[i]->setVisible(false);
    }
    updateGeometry();
}

QSizeF UniformityPictureView::labelSize(int index) const
{
    return m_labels[index]->isVisible() ? m_labels[index]->boundingRect().size() : QSizeF();
}

double UniformityPictureView::pairWidth() const
{
    return std::max(labelSize(1).width() + labelSize(2).width(),
                    labelSize(3).width() + labelSize(4).width());
}

void UniformityPictureView::placeLabels()
{
    // A side's corner labels stand next to each other while the picture on
    // the screen is as wide as both; on a narrower one the right-hand ones
    // step a row towards the centre, so that no label covers another.
    const bool stagger = transform().m11() * m_scene->sceneRect().width() < pairWidth();
    m_labels[2]->setRows(stagger ? 1 : 0);
    m_labels[4]->setRows(stagger ? -1 : 0);
}

QSize UniformityPictureView::minimumSizeHint() const
{
    // Labels keep their screen size, so the view needs their room at any
    // zoom: the widest label with a gap, five label rows (a side's corner
    // labels one above the other, the centre one between them).
    const double gap = 16.0;
    double width = 0.0;
    double height = 0.0;
    for (int i = 0; i < 5; ++i) {
        width = std::max(width, labelSize(i).width());
        height = std::max(height, labelSize(i).height());
    }
    const QSize frame(2 * frameWidth(), 2 * frameWidth());
    return QGraphicsView::minimumSizeHint().expandedTo(
            QSize(qCeil(width + gap), qCeil(5 * height + 2 * gap)) + frame);
}

QSize UniformityPictureView::sizeHint() const
{
    // Wide enough for a side's corner labels next to each other.
    const double gap = 16.0;
    const QSize frame(2 * frameWidth(), 2 * frameWidth());
    return QGraphicsView::sizeHint().expandedTo(QSize(qCeil(pairWidth() + gap), 0) + frame);
}

QRectF UniformityPictureView::windowRect(int index) const
{
    return index >= 0 && index < 5 && m_windows[index]->isVisible() ? m_windows[index]->rect()
                                                                    : QRectF();
}

QString UniformityPictureView::labelText(int index) const
{
    return index >= 0 && index < 5 && m_labels[index]->isVisible() ? m_labels[index]->text()
                                                                   : QString();
}

QPointF UniformityPictureView::labelAnchor(int index) const
{
    return index >= 0 && index < 5 ? m_labels[index]->pos() : QPointF();
}

Qt::Alignment UniformityPictureView::labelAlignment(int index) const
{
    return index >= 0 && index < 5 ? m_labels[index]->alignment() : Qt::Alignment();
}

void UniformityPictureView::resizeEvent(QResizeEvent *event)
{
    QGraphicsView::resizeEvent(event);
    fit();
}

void UniformityPictureView::fit()
{
    if (hasPicture())
        fitInView(m_scene->sceneRect(), Qt::KeepAspectRatio);
    placeLabels();
}

} // namespace kestro

#include "moc_uniformitypictureview.cpp"
