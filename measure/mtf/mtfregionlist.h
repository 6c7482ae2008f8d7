#pragma once
// A plain list of MTF regions that owns their calculations: the region source
// of runs without a view (the command-line tool, batch runs, tests).

#include "measure/mtf/mtfthread.h"
#include "measure/mtf/regionbasedmtf.h"

#include <QRectF>
#include <memory>
#include <vector>

class MTFRegionList : public MTFRegionSource
{
public:
    void addRegion(const QRectF &rect) { m_items.push_back({rect, nullptr}); }
    void setFileName(const QString &fileName) { m_fileName = fileName; }
    void setGamma(double gamma) { m_gamma = gamma; }
    void setPictureHeight(int height) { m_pictureHeight = height; }

    // The region's calculation once a run has attached one, else null.
    regionBasedMTF *mtf(int index) const
    {
        return dynamic_cast<regionBasedMTF *>(mtfRegionCalculation(index));
    }

    int mtfRegionCount() const override { return static_cast<int>(m_items.size()); }
    QRectF mtfRegionRect(int index) const override
    {
        return m_items.at(static_cast<std::size_t>(index)).rect;
    }
    regionBasedCalculation *mtfRegionCalculation(int index) const override
    {
        return m_items.at(static_cast<std::size_t>(index)).calculation.get();
    }
    void attachMtfRegionCalculation(int index, regionBasedCalculation *calculation) override
    {
        m_items.at(static_cast<std::size_t>(index)).calculation.reset(calculation);
    }
    int mtfPictureHeight() const override { return m_pictureHeight; }
    QString mtfFileName() const override { return m_fileName; }
    double mtfGamma() const override { return m_gamma; }

private:
    struct Item
    {
        QRectF rect;
        std::unique_ptr<regionBasedCalculation> calculation;
    };
    std::vector<Item> m_items;
    QString m_fileName;
    double m_gamma = 1.0;
    int m_pictureHeight = 0;
};
