#include "imaging/region.h"

#include "imaging/srgb.h"

#include <cmath>

namespace kestro {

QRect alignedRect(const QRectF &rect)
{
    // Edges are rounded in double and kept inside a range where the integer
    // rectangle (and right = left + width - 1) cannot overflow; a region that
    // large is refused by isRegionValid() anyway. Non-finite edges read 0.
    constexpr double kLimit = 1 << 30;
    auto edge = [](double v, bool up) {
        if (!std::isfinite(v))
            return 0.0;
        v = up ? std::ceil(v) : std::floor(v);
        return v < -kLimit ? -kLimit : (v > kLimit ? kLimit : v);
    };
    const double left = edge(rect.x(), false);
    const double top = edge(rect.y(), false);
    const double right = edge(rect.x() + rect.width(), true);
    const double bottom = edge(rect.y() + rect.height(), true);
    return QRect(static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
                 static_cast<int>(bottom - top));
}

bool isRegionValid(const QImage &image, const QRect &rect)
{
    if (rect.isNull() || image.isNull())
        return false;
    const QRect bounds = image.rect();
    const qint64 right = qint64(rect.left()) + rect.width() - 1;
    const qint64 bottom = qint64(rect.top()) + rect.height() - 1;
    return bounds.contains(rect.topLeft()) && right >= bounds.left() && right <= bounds.right()
           && bottom >= bounds.top() && bottom <= bounds.bottom();
}

QColor regionMeanColor(const QImage &image, const QRect &rect)
{
    if (!isRegionValid(image, rect))
        return QColor();
    const int right = rect.left() + rect.width() - 1;
    const int bottom = rect.top() + rect.height() - 1;
    double sumR = 0, sumG = 0, sumB = 0;
    for (int y = rect.top(); y <= bottom; ++y) {
        for (int x = rect.left(); x <= right; ++x) {
            if (!image.valid(x, y))
                return QColor();
            const QRgb px = image.pixel(x, y);
            sumR += qRed(px);
            sumG += qGreen(px);
            sumB += qBlue(px);
        }
    }
    const double n = static_cast<double>(rect.width()) * rect.height() * 255.0;
    QColor c;
    c.setRgbF(sumR / n, sumG / n, sumB / n);
    return c;
}

bool isNearNeutral(double r, double g, double b)
{
    const double R = srgbToLinear(r) * 100.0;
    const double G = srgbToLinear(g) * 100.0;
    const double B = srgbToLinear(b) * 100.0;
    const double X = (0.4124 * R + 0.3576 * G + 0.1805 * B) / 95.0;
    const double Y = (0.2126 * R + 0.7152 * G + 0.0722 * B) / 100.0;
    const double Z = (0.0193 * R + 0.1192 * G + 0.9505 * B) / 108.9;
    auto f = [](double t) { return t > 0.008856 ? std::cbrt(t) : 7.787 * t + 4.0 / 29.0; };
    const double a = 500.0 * (f(X) - f(Y));
    const double bb = 200.0 * (f(Y) - f(Z));
    return std::sqrt(a * a + bb * bb) <= 10.0;
}

QColor regionOverlayColor(const QImage &picture, const QRectF &rect)
{
    const QColor red(Qt::red);
    if (picture.isNull())
        return red;
    const QRect r = alignedRect(rect);
    if (!isRegionValid(picture, r))
        return red;
    const QColor mean = regionMeanColor(picture, r);
    if (!mean.isValid())
        return red;
    if (isNearNeutral(mean.redF(), mean.greenF(), mean.blueF()))
        return red;
    QColor complement;
    complement.setRgbF(1.0 - mean.redF(), 1.0 - mean.greenF(), 1.0 - mean.blueF());
    return complement;
}

QString invalidRegionText(const QRect &rect)
{
    // The inclusive corner in 64 bits: left + width - 1 overflows int for
    // extreme rectangles.
    const qint64 right = qint64(rect.left()) + rect.width() - 1;
    const qint64 bottom = qint64(rect.top()) + rect.height() - 1;
    return QStringLiteral("Invalid region:((") + QString::number(rect.left()) + QStringLiteral(", ")
           + QString::number(rect.top()) + QStringLiteral("), (") + QString::number(right)
           + QStringLiteral(", ") + QString::number(bottom) + QStringLiteral("))");
}

} // namespace kestro
