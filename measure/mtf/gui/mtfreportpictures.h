#pragma once
// The pictures of the MTF report: the chart with its regions outlined, each
// region's crop and each region's MTF graph. Graphs are drawn on the calling
// (GUI) thread; the files are PNG-encoded in parallel a few at a time, so
// that many large graphs neither serialise on one core nor pile up in
// memory.

#include "measure/mtf/mtfreport.h"

#include <QColor>
#include <QImage>
#include <QRectF>
#include <QSize>
#include <QVector>
#include <functional>
#include <memory>

class MTFPlot;

namespace kestro::mtf {

struct RegionOutline
{
    QRectF rect;
    QColor color;
    int number = 0;
};

// The picture scaled down (never up) to fit `bound`, with every region
// outlined in its colour and numbered.
QImage regionsPicture(const QImage &picture, const QVector<RegionOutline> &regions,
                      const QSize &bound);

class MtfReportPictureWriter : public MtfReportPictures
{
public:
    // `graphSize` is the plot widget size the graphs are rendered at (their
    // document size in millimetres at 85 dpi).
    MtfReportPictureWriter(const QImage &picture, const QVector<RegionOutline> &regions,
                           const QSize &graphSize);
    // Writes the pictures still waiting.
    ~MtfReportPictureWriter() override;

    bool writeRegionsPicture(const QString &path) override;
    bool writeRegionCrop(const regionBasedMTF &region, const QString &path) override;
    bool writeRegionGraph(const regionBasedMTF &region, const QString &path) override;

    // Writes the pictures still waiting.
    void finish();

    // Size bound of the regions picture.
    static QSize regionsPictureBound() { return QSize(1280, 960); }

private:
    // Keeps a file to write; writes the waiting ones once there is a large
    // picture (a graph, the regions picture) for every worker thread.
    void queue(std::function<void()> write, bool large);

    QImage m_picture;
    QVector<RegionOutline> m_regions;
    std::unique_ptr<MTFPlot> m_plot;
    QVector<std::function<void()>> m_waiting;
    int m_waitingLarge = 0;
};

} // namespace kestro::mtf
