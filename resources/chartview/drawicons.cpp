// Draws the chart frame view's tool-bar icons (name.png at 32 x 32 and
// name@2x.png at 64 x 64 for high-density screens) into the current folder.
// Every shape is laid out on a 24-unit grid with strokes of 2 units or more,
// so the icons stay clear when shown at 20 pixels.
//
//   g++ -fPIC drawicons.cpp -o drawicons $(pkg-config --cflags --libs Qt5Gui)
//   QT_QPA_PLATFORM=offscreen ./drawicons
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QPen>
#include <QPolygonF>
#include <QString>
#include <cmath>
#include <functional>

namespace {

const QColor kInk(45, 52, 64);
const QColor kBlue(40, 110, 200);
const QColor kGreen(40, 150, 70);
const QColor kRed(200, 50, 45);
const QColor kOrange(230, 140, 30);

QPen pen(const QColor &c, double w)
{
    QPen p(c, w);
    p.setCapStyle(Qt::RoundCap);
    p.setJoinStyle(Qt::RoundJoin);
    return p;
}

// A small 3 x 2 chart: enough patches to read as a colour chart at 20 px.
void chart(QPainter &p, const QRectF &r)
{
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(30, 30, 30));
    p.drawRoundedRect(r, 1.5, 1.5);
    const QColor patches[6] = {QColor(194, 150, 130), QColor(98, 122, 157), QColor(87, 160, 67),
                               QColor(214, 126, 44),  QColor(200, 60, 70),  QColor(235, 235, 235)};
    const double cw = (r.width() - 2) / 3.0, ch = (r.height() - 2) / 2.0;
    for (int i = 0; i < 6; ++i) {
        const double x = r.left() + 1 + (i % 3) * cw, y = r.top() + 1 + (i / 3) * ch;
        p.setBrush(patches[i]);
        p.drawRect(QRectF(x + 0.6, y + 0.6, cw - 1.2, ch - 1.2));
    }
}

void arrowHead(QPainter &p, QPointF tip, double angleDeg, double size, const QColor &c)
{
    const double a = angleDeg * M_PI / 180.0;
    const QPointF d(std::cos(a), std::sin(a)), n(-d.y(), d.x());
    QPolygonF tri({tip, tip - d * size + n * size * 0.6, tip - d * size - n * size * 0.6});
    p.setPen(Qt::NoPen);
    p.setBrush(c);
    p.drawPolygon(tri);
}

void circularArrow(QPainter &p, QPointF c, double radius, const QColor &col, double width)
{
    p.setPen(pen(col, width));
    p.setBrush(Qt::NoBrush);
    const QRectF box(c.x() - radius, c.y() - radius, 2 * radius, 2 * radius);
    p.drawArc(box, 60 * 16, 280 * 16);
    // Arrow at the arc's end (angle 60 degrees, counter-clockwise sweep ends
    // at 340 degrees in Qt's convention).
    const double end = -340.0 * M_PI / 180.0;
    const QPointF tip(c.x() + radius * std::cos(end), c.y() + radius * std::sin(end));
    arrowHead(p, tip + QPointF(0.5, 1.5), -80, width * 2.2, col);
}

void magnifier(QPainter &p, bool plus)
{
    p.setPen(pen(kInk, 2.4));
    p.setBrush(QColor(230, 240, 250));
    p.drawEllipse(QPointF(10, 10), 7, 7);
    p.setPen(pen(kInk, 3.5));
    p.drawLine(QPointF(15.5, 15.5), QPointF(21, 21));
    p.setPen(pen(kBlue, 2.4));
    p.drawLine(QPointF(6.5, 10), QPointF(13.5, 10));
    if (plus)
        p.drawLine(QPointF(10, 6.5), QPointF(10, 13.5));
}

void mouseArrow(QPainter &p)
{
    QPolygonF a({{6, 2}, {6, 19}, {10, 15}, {13, 22}, {16, 20.5}, {13, 14}, {19, 14}});
    p.setPen(pen(kInk, 1.8));
    p.setBrush(Qt::white);
    p.drawPolygon(a);
}

void patchSize(QPainter &p, bool grow)
{
    p.setPen(pen(kInk, 2));
    p.setBrush(QColor(214, 126, 44));
    const double s = grow ? 6 : 4;
    p.drawRect(QRectF(12 - s, 12 - s, 2 * s, 2 * s));
    // Diagonal arrows pointing out (grow) or in (shrink) at two corners.
    const QColor c = grow ? kGreen : kRed;
    p.setPen(pen(c, 2));
    if (grow) {
        p.drawLine(QPointF(16, 8), QPointF(20.5, 3.5));
        arrowHead(p, QPointF(22, 2), -45, 5, c);
        p.setPen(pen(c, 2));
        p.drawLine(QPointF(8, 16), QPointF(3.5, 20.5));
        arrowHead(p, QPointF(2, 22), 135, 5, c);
    } else {
        p.drawLine(QPointF(22, 2), QPointF(17.5, 6.5));
        arrowHead(p, QPointF(16, 8), 135, 5, c);
        p.setPen(pen(c, 2));
        p.drawLine(QPointF(2, 22), QPointF(6.5, 17.5));
        arrowHead(p, QPointF(8, 16), -45, 5, c);
    }
}

void fitToSize(QPainter &p)
{
    p.setPen(pen(kInk, 2));
    p.setBrush(QColor(230, 240, 250));
    p.drawRect(QRectF(6, 6, 12, 12));
    p.setPen(pen(kBlue, 2.2));
    const QPointF corners[4] = {{2, 2}, {22, 2}, {22, 22}, {2, 22}};
    for (const QPointF &c : corners) {
        const QPointF dx(c.x() < 12 ? 5 : -5, 0), dy(0, c.y() < 12 ? 5 : -5);
        p.drawLine(c, c + dx);
        p.drawLine(c, c + dy);
    }
}

void saveAs(QPainter &p)
{
    p.setPen(pen(kInk, 1.8));
    p.setBrush(kBlue);
    p.drawRoundedRect(QRectF(3, 3, 18, 18), 2, 2);
    p.setBrush(Qt::white);
    p.drawRect(QRectF(7, 3, 10, 7));
    p.setBrush(QColor(220, 225, 230));
    p.drawRect(QRectF(6, 13, 12, 8));
    // The pen of "save as".
    p.setPen(pen(kOrange, 3));
    p.drawLine(QPointF(13, 19), QPointF(21, 11));
}

void folderRegions(QPainter &p)
{
    p.setPen(pen(QColor(20, 70, 150), 1.6));
    p.setBrush(QColor(90, 150, 230));
    QPainterPath back;
    back.moveTo(2, 6);
    back.lineTo(9, 6);
    back.lineTo(11, 8);
    back.lineTo(22, 8);
    back.lineTo(22, 20);
    back.lineTo(2, 20);
    back.closeSubpath();
    p.drawPath(back);
    p.setBrush(QColor(120, 180, 245));
    p.drawRect(QRectF(2, 10, 20, 10));
    // Region rectangles on the folder.
    p.setPen(pen(kRed, 1.8));
    p.setBrush(Qt::NoBrush);
    p.drawRect(QRectF(6, 12.5, 5, 5));
    p.drawRect(QRectF(13, 12.5, 5, 5));
}

void navigate(QPainter &p, bool right)
{
    QPolygonF a = right ? QPolygonF(
                          {{4, 9}, {12, 9}, {12, 4}, {21, 12}, {12, 20}, {12, 15}, {4, 15}})
                        : QPolygonF(
                                {{20, 9}, {12, 9}, {12, 4}, {3, 12}, {12, 20}, {12, 15}, {20, 15}});
    p.setPen(pen(QColor(20, 90, 40), 1.6));
    p.setBrush(kGreen);
    p.drawPolygon(a);
}

void macbethAuto(QPainter &p)
{
    chart(p, QRectF(1, 7, 17, 12));
    // A spark: found automatically.
    QPolygonF star;
    for (int i = 0; i < 8; ++i) {
        const double r = (i % 2) ? 2.2 : 5.5, a = i * M_PI / 4 - M_PI / 2;
        star << QPointF(18 + r * std::cos(a), 6 + r * std::sin(a));
    }
    p.setPen(pen(QColor(150, 100, 0), 1));
    p.setBrush(QColor(255, 210, 40));
    p.drawPolygon(star);
}

void cornerHandles(QPainter &p)
{
    p.setPen(pen(kRed, 2));
    p.setBrush(Qt::NoBrush);
    const QPointF pts[4] = {{4, 6}, {20, 6}, {20, 18}, {4, 18}};
    for (const QPointF &c : pts)
        p.drawEllipse(c, 2.8, 2.8);
}

void macbethCorner(QPainter &p)
{
    chart(p, QRectF(4, 6, 16, 12));
    cornerHandles(p);
}

void macbethCornerReset(QPainter &p)
{
    chart(p, QRectF(1, 1, 15, 11));
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(16, 16), 7.5, 7.5);
    circularArrow(p, QPointF(16, 16), 5, kBlue, 2.2);
}

void refresh(QPainter &p)
{
    circularArrow(p, QPointF(12, 12), 8, kGreen, 2.8);
}

void save(const QString &name, const std::function<void(QPainter &)> &draw)
{
    for (int scale : {1, 2}) {
        const int side = 32 * scale;
        QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter p(&image);
        p.setRenderHint(QPainter::Antialiasing);
        p.scale(side / 24.0, side / 24.0);
        draw(p);
        p.end();
        image.save(scale == 1 ? name + ".png" : name + "@2x.png");
    }
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    save("refresh", refresh);
    save("zoom_out", [](QPainter &p) { magnifier(p, false); });
    save("zoom_in", [](QPainter &p) { magnifier(p, true); });
    save("fit_to_size", fitToSize);
    save("macbeth_auto", macbethAuto);
    save("macbeth_corner", macbethCorner);
    save("mouse-arrow", mouseArrow);
    save("macbeth_corner_reset", macbethCornerReset);
    save("patchIncrease", [](QPainter &p) { patchSize(p, true); });
    save("patchDecrease", [](QPainter &p) { patchSize(p, false); });
    save("save_as", saveAs);
    save("folder_blue_regions", folderRegions);
    save("navigate_left", [](QPainter &p) { navigate(p, false); });
    save("navigate_right", [](QPainter &p) { navigate(p, true); });
    return 0;
}
