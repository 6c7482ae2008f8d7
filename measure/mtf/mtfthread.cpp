#include "measure/mtf/mtfthread.h"

#include "measure/mtf/regionbasedmtf.h"

#include <algorithm>

MTFThread::MTFThread(QObject *parent, MTFRegionSource *source)
    : QThread(parent)
    , m_source(source)
{ }

void MTFThread::run()
{
    runRegions();
}

void MTFThread::runRegions()
{
    MTFRegionSource *source = m_source;
    if (!source || source->mtfRegionCount() < 1)
        return;
    for (int i = 0; i < source->mtfRegionCount(); ++i) {
        auto *mtf = dynamic_cast<regionBasedMTF *>(source->mtfRegionCalculation(i));
        if (!mtf) {
            mtf = new regionBasedMTF();
            source->attachMtfRegionCalculation(i, mtf);
        }
        mtf->setPictureHeight(static_cast<unsigned>(std::max(0, source->mtfPictureHeight())));
        mtf->setDrawnRegion(source->mtfRegionRect(i));
        mtf->setFileName(source->mtfFileName());
        mtf->setGamma(source->mtfGamma());
        mtf->calculate(); // a failed region keeps its message and stays invalid
        emit setProgressValue(i + 1);
    }
}
