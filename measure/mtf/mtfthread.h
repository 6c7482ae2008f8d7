#pragma once
// MTFThread: runs the MTF calculation of every region in turn, on its own
// thread (start()) or on the calling thread (runSynchronously()).

#include <QRectF>
#include <QString>
#include <QThread>

class regionBasedCalculation;

// What the run reads from its owner (the main window, or a batch run): the MTF
// view's region items in list order, the picture shown, the current MTF image
// file name and gamma. The owner keeps these unchanged during a run.
class MTFRegionSource
{
public:
    virtual ~MTFRegionSource() = default;
    virtual int mtfRegionCount() const = 0;
    // The item's rectangle in image pixel coordinates.
    virtual QRectF mtfRegionRect(int index) const = 0;
    // The calculation attached to the item, or null.
    virtual regionBasedCalculation *mtfRegionCalculation(int index) const = 0;
    // Attaches a calculation to the item, which takes ownership.
    virtual void attachMtfRegionCalculation(int index, regionBasedCalculation *calculation) = 0;
    virtual int mtfPictureHeight() const = 0;
    virtual QString mtfFileName() const = 0;
    virtual double mtfGamma() const = 0;
};

class MTFThread : public QThread
{
    Q_OBJECT
public:
    explicit MTFThread(QObject *parent = nullptr, MTFRegionSource *source = nullptr);

    void setSource(MTFRegionSource *source) { m_source = source; }
    MTFRegionSource *source() const { return m_source; }

    // The same loop on the calling thread; the caller runs its finished
    // handler afterwards.
    void runSynchronously() { runRegions(); }

signals:
    // Number of regions handled so far, after each region.
    void setProgressValue(int value);

protected:
    void run() override;

private:
    void runRegions();
    MTFRegionSource *m_source = nullptr;
};
