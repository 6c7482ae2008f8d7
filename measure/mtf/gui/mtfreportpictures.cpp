#include "measure/mtf/gui/mtfreportpictures.h"

#include "measure/mtf/gui/mtfplot.h"
#include "measure/mtf/regionbasedmtf.h"

#include "imaging/parallel.h"
#include "imaging/pngwriter.h"

#include <QPainter>
#include <algorithm>

namespace kestro::mtf {

QImage regionsPicture(const QImage &picture, const QVector<RegionOutline> &regions,
                      const QSize &bound)
{
    if (picture.isNull() || bound.isEmpty())
        return QImage();
    const double scale = std::min({1.0, double(bound.width()) / picture.width(),
                                   double(bound.height()) / picture.height()});
    QImage out = scale < 1.0 ? picture.scaled(picture.size() * scale, Qt::KeepAspectRatio,
                                              Qt::SmoothTransformation)
                             : picture;
    out = out.convertToFormat(QImage::Format_RGB32);
    QPainter painter(&out);
    painter.setRenderHint(QPainter::Antialiasing, false);
    QFont font(QStringLiteral("Helvetica"));
    font.setPixelSize(14);
    painter.setFont(font);
    for (const RegionOutline &r : regions) {
        const QRectF rect(r.rect.normalized().topLeft() * scale, r.rect.normalized().size() * scale);
        painter.setPen(QPen(r.color, 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(rect);
        if (r.number > 0)
            painter.drawText(rect.topLeft() + QPointF(3, 15), QString::number(r.number));
    }
    painter.end();
    return out;
}

MtfReportPictureWriter::MtfReportPictureWriter(const QImage &picture,
                                               const QVector<RegionOutline> &regions,
                                               const QSize &graphSize)
    : m_picture(picture)
    , m_regions(regions)
    , m_plot(std::make_unique<MTFPlot>())
{
    m_plot->resize(graphSize);
}

MtfReportPictureWriter::~MtfReportPictureWriter()
{
    finish();
}

void MtfReportPictureWriter::finish()
{
    const QVector<std::function<void()>> writes = std::move(m_waiting);
    m_waiting.clear();
    m_waitingLarge = 0;
    kestro::parallelFor(writes.size(), [&writes](int i) { writes[i](); });
}

void MtfReportPictureWriter::queue(std::function<void()> write, bool large)
{
    m_waiting.append(std::move(write));
    // A graph is 55 MB: only a few wait at a time.
    if (large && ++m_waitingLarge >= kestro::parallelThreadCount())
        finish();
}

bool MtfReportPictureWriter::writeRegionsPicture(const QString &path)
{
    if (m_picture.isNull())
        return false;
    // Scaling a large picture down is the costly part: it runs in parallel
    // with the other pictures.
    queue([this,
           path] { savePng(regionsPicture(m_picture, m_regions, regionsPictureBound()), path); },
          true);
    return true;
}

bool MtfReportPictureWriter::writeRegionCrop(const regionBasedMTF &region, const QString &path)
{
    const QRect part = region.region().normalized() & m_picture.rect();
    if (part.isEmpty())
        return false;
    const QImage crop = m_picture.copy(part);
    queue([crop, path] { savePng(crop, path); }, false);
    return true;
}

bool MtfReportPictureWriter::writeRegionGraph(const regionBasedMTF &region, const QString &path)
{
    if (!region.isValid())
        return false;
    m_plot->setPictureHeight(region.pictureHeight());
    m_plot->setLWPHMode(false);
    m_plot->setData(region.frequencies(), region.curve(regionBasedMTF::Gray),
                    region.curve(regionBasedMTF::Red), region.curve(regionBasedMTF::Green),
                    region.curve(regionBasedMTF::Blue), region.pointCount());
    const QImage graph = m_plot->renderImage();
    if (graph.isNull())
        return false;
    queue([graph, path] { savePng(graph, path); }, true);
    return true;
}

} // namespace kestro::mtf
