#pragma once
// Report pictures of plots. Header only: the plot libraries that include it
// link Qwt themselves.

#include <QImage>
#include <QPainter>
#include <QRectF>
#include <qwt_plot.h>
#include <qwt_plot_renderer.h>

namespace kestro {

// `plot` drawn as a document of its width x height in millimetres at
// `dotsPerInch`, on white, with that resolution set; null when it comes out
// empty.
inline QImage renderPlotDocument(QwtPlot *plot, double dotsPerInch)
{
    const QSizeF pixels = QSizeF(plot->width(), plot->height()) / 25.4 * dotsPerInch;
    const QRect rect = QRectF(QPointF(0.0, 0.0), pixels).toRect();
    if (rect.isEmpty())
        return QImage();
    QImage image(rect.size(), QImage::Format_RGB32);
    const int dotsPerMeter = qRound(dotsPerInch / 25.4 * 1000.0);
    image.setDotsPerMeterX(dotsPerMeter);
    image.setDotsPerMeterY(dotsPerMeter);
    image.fill(Qt::white);
    QPainter painter(&image);
    QwtPlotRenderer renderer;
    renderer.render(plot, &painter, QRectF(rect));
    painter.end();
    return image;
}

} // namespace kestro
