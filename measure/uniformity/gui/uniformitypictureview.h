#pragma once
// The flat-field picture of the uniformity page with the centre window and
// the four corner windows drawn over it, each with its value. Labels keep
// their screen size at any zoom; the picture fits the view.

#include <QGraphicsView>
#include <QImage>
#include <QRectF>
#include <QString>
#include <array>

class QGraphicsPixmapItem;
class QGraphicsRectItem;
class QGraphicsScene;

namespace kestro {

class UniformityLabelItem;

class UniformityPictureView : public QGraphicsView
{
    Q_OBJECT
public:
    explicit UniformityPictureView(QWidget *parent = nullptr);

    void setPicture(const QImage &image);
    bool hasPicture() const;

    // Windows in picture pixels. The centre label shows `centerText` in the
    // middle of its window; the top-left label stands at its window's
    // top-left corner, the top-right one right-aligned at its window's
    // top-right corner, the bottom ones likewise along their windows' bottom
    // edges (inside the picture). On a picture shown narrower than a side's
    // two labels, the right-hand ones stand a row nearer the centre.
    void setWindows(const QRectF &center, const QString &centerText,
                    const std::array<QRectF, 4> &corners, const std::array<QString, 4> &labels);
    void clearWindows();

    // For tests: the drawn windows and label texts (centre first, then the
    // corners in top-left, top-right, bottom-left, bottom-right order).
    QRectF windowRect(int index) const;
    QString labelText(int index) const;
    // Scene position of a label's anchor and its alignment.
    QPointF labelAnchor(int index) const;
    Qt::Alignment labelAlignment(int index) const;

    // At least as wide as the widest label and high enough for the centre
    // label between a side's corner labels one above the other; preferably
    // wide enough for those next to each other.
    QSize minimumSizeHint() const override;
    QSize sizeHint() const override;

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void fit();
    QSizeF labelSize(int index) const;
    // The wider side's corner labels next to each other.
    double pairWidth() const;
    void placeLabels();

    QGraphicsScene *m_scene = nullptr;
    QGraphicsPixmapItem *m_picture = nullptr;
    std::array<QGraphicsRectItem *, 5> m_windows{};
    std::array<UniformityLabelItem *, 5> m_labels{};
};

} // namespace kestro
