#pragma once
// regionBasedMTF: the slanted-edge MTF of one region, computed by the
// colour-calibration library on the image file and kept until an input
// changes. Results live in fixed arrays inside the object.

#include "imaging/regionbasedcalculation.h"
#include "platform/colorcal/colorcal.h"

#include <QRectF>
#include <QString>
#include <atomic>

class regionBasedMTF : public regionBasedCalculation
{
public:
    // Channel numbering of every per-channel accessor.
    enum MtfChannel { Red = 0, Green = 1, Blue = 2, Gray = 3 };
    static constexpr int kMaxPoints = 1000;

    // Uses the calibration object shared by all regions.
    regionBasedMTF();
    explicit regionBasedMTF(CColorCalibrate &calibration);
    ~regionBasedMTF() override = default;

    bool calculate() override;
    QString errorMessage() const override;
    bool isValid() const override;
    QRect region() const override;
    void setRegion(const QRect &rect) override;
    void invalidate() override;

    // Each setter marks the result stale only when the value really changes.
    void setFileName(const QString &fileName);
    void setGamma(double gamma);
    void setPictureHeight(unsigned height);
    // The region as drawn or read, in real pixel coordinates: the smallest
    // integer rectangle that holds it, normalised. One that is not finite or
    // reaches beyond kMaxCoordinate is kept clamped and refused by
    // calculate() with a message that names it.
    void setDrawnRegion(const QRectF &rect);
    static constexpr double kMaxCoordinate = 1 << 30;
    QString fileName() const { return acquired(m_fileName); }
    double gamma() const { return acquired(m_gamma); }
    unsigned pictureHeight() const { return acquired(m_pictureHeight); }

    // Null while there is no valid result (and for a channel outside 0..3).
    const double *frequencies() const;
    const double *frequenciesLWPH() const;
    const double *curve(int channel) const;
    unsigned pointCount() const { return acquired(m_pointCount); }

    // The last computed values, valid or not (0 outside 0..4).
    double mtf50(int channel) const { return metric(m_mtf50, channel); }
    double mtf50Peak(int channel) const { return metric(m_mtf50Peak, channel); }
    double mtf10(int channel) const { return metric(m_mtf10, channel); }
    double mtf10Peak(int channel) const { return metric(m_mtf10Peak, channel); }
    double slopeDegrees(int channel) const { return metric(m_slopeDegrees, channel); }
    double contrast(int channel) const { return metric(m_contrast, channel); }
    // Curve maximum minus 1 for red, green and blue; the plain maximum for
    // gray; 0.0 for any other channel.
    double overshoot(int channel) const;
    double roiDistance() const { return acquired(m_roiDistance); }
    // How far the result can be trusted, per channel: the edge's
    // contrast-to-noise ratio and the mean number of pixels behind each
    // value of the edge profile. NaN while there is no result and for a
    // channel outside 0..3.
    double contrastToNoise(int channel) const;
    double samplesPerBin(int channel) const;

    // The region, file and distance; with a result also the edge quality.
    QString regionInfoHtml() const;
    // "left_top_width_height", used in report image names.
    QString regionTag() const;
    static QString channelName(int channel);

    // The calibration object used by regions created without one.
    static CColorCalibrate &sharedCalibration();

protected:
    // The library call; a seam for tests.
    virtual bool callLibrary(unsigned int &pointCount, double *frequencies, double *gray,
                             double *red, double *green, double *blue, double *mtf50,
                             double *mtf50Peak, double *mtf10, double *mtf10Peak,
                             double *slopeDegrees, double *contrast, char *errorText, int errorSize,
                             const char *fileName, double gamma, int left, int top, int width,
                             int height, int mode);

    // The edge quality of the last call; the library call fills it, NaN
    // until then.
    CColorCalibrate::MtfQuality m_quality{};

    // Inputs and results are written on the MTF worker thread and read on
    // the interface thread after the run. That handover (a queued signal,
    // QThread::wait) happens inside Qt, out of the thread sanitizer's sight,
    // and plain reads would not be ordered by the C++ memory model either:
    // every change ends with publish() (a release) and every read starts
    // with acquire().
    void publish();
    void acquire() const;

private:
    template<typename T>
    const T &acquired(const T &member) const
    {
        acquire();
        return member;
    }
    double metric(const double (&values)[5], int channel) const
    {
        acquire();
        return channel >= 0 && channel < 5 ? values[channel] : 0.0;
    }
    std::atomic<unsigned> m_published{0};

    double m_frequencies[kMaxPoints] = {};
    double m_frequenciesLWPH[kMaxPoints] = {};
    double m_grayCurve[kMaxPoints] = {};
    double m_redCurve[kMaxPoints] = {};
    double m_greenCurve[kMaxPoints] = {};
    double m_blueCurve[kMaxPoints] = {};
    double m_mtf50[5] = {};
    double m_mtf50Peak[5] = {};
    double m_mtf10[5] = {};
    double m_mtf10Peak[5] = {};
    double m_slopeDegrees[5] = {};
    double m_contrast[5] = {};
    double m_overshoot[4] = {};
    double m_gamma = 1.0;
    unsigned m_pictureHeight = 0;
    double m_roiDistance = 0;
    QString m_errorMessage;
    QString m_rangeError; // set when the drawn region is out of range
    QString m_fileName;
    CColorCalibrate &m_calibration;
    unsigned m_pointCount = 0;
};
