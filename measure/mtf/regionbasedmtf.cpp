#include "measure/mtf/regionbasedmtf.h"

#include "imaging/roifile.h"
#include "platform/colorcal/colorcal.h"
#include "platform/colorcal/imagecache.h"

#include <QFile>
#include <QImage>
#include <QStringList>
#include <algorithm>
#include <cmath>

regionBasedMTF::regionBasedMTF()
    : m_calibration(sharedCalibration())
{ }

regionBasedMTF::regionBasedMTF(CColorCalibrate &calibration)
    : m_calibration(calibration)
{ }

CColorCalibrate &regionBasedMTF::sharedCalibration()
{
    // The computation keeps no state in the object, so one serves all regions
    // and threads.
    static CColorCalibrate calibration(nullptr);
    return calibration;
}

void regionBasedMTF::publish()
{
    m_published.fetch_add(1, std::memory_order_release);
}

void regionBasedMTF::acquire() const
{
    (void) m_published.load(std::memory_order_acquire);
}

void regionBasedMTF::setFileName(const QString &fileName)
{
    acquire();
    if (fileName.compare(m_fileName, Qt::CaseSensitive) == 0)
        return;
    m_fileName = fileName;
    m_dirty = true;
    publish();
}

void regionBasedMTF::setGamma(double gamma)
{
    acquire();
    if (gamma == m_gamma)
        return;
    m_gamma = gamma;
    m_dirty = true;
    publish();
}

void regionBasedMTF::setPictureHeight(unsigned height)
{
    acquire();
    if (height == m_pictureHeight)
        return;
    m_pictureHeight = height;
    m_dirty = true;
    publish();
}

void regionBasedMTF::setRegion(const QRect &rect)
{
    acquire();
    regionBasedCalculation::setRegion(rect);
    publish();
}

QRect regionBasedMTF::region() const
{
    acquire();
    return regionBasedCalculation::region();
}

bool regionBasedMTF::isValid() const
{
    acquire();
    return regionBasedCalculation::isValid();
}

void regionBasedMTF::invalidate()
{
    acquire();
    regionBasedCalculation::invalidate();
    publish();
}

void regionBasedMTF::setDrawnRegion(const QRectF &drawn)
{
    const QRectF rect = drawn.normalized();
    const double edges[4] = {rect.left(), rect.top(), rect.right(), rect.bottom()};
    const bool inRange = std::all_of(std::begin(edges), std::end(edges), [](double v) {
        return std::isfinite(v) && std::fabs(v) <= kMaxCoordinate;
    });
    acquire();
    QString rangeError;
    if (!inRange) {
        rangeError = QStringLiteral("The region (left %1, top %2, width %3, height %4) lies beyond "
                                    "the largest picture size; redraw it on the picture.")
                             .arg(QString::number(drawn.left(), 'g', 6),
                                  QString::number(drawn.top(), 'g', 6),
                                  QString::number(drawn.width(), 'g', 6),
                                  QString::number(drawn.height(), 'g', 6));
    }
    if (rangeError != m_rangeError) {
        m_rangeError = rangeError;
        m_dirty = true;
        publish();
    }
    setRegion(kestro::roiStoredRect(rect));
}

const double *regionBasedMTF::frequencies() const
{
    return isValid() ? m_frequencies : nullptr;
}

const double *regionBasedMTF::frequenciesLWPH() const
{
    return isValid() ? m_frequenciesLWPH : nullptr;
}

const double *regionBasedMTF::curve(int channel) const
{
    if (!isValid())
        return nullptr;
    switch (channel) {
    case Red:
        return m_redCurve;
    case Green:
        return m_greenCurve;
    case Blue:
        return m_blueCurve;
    case Gray:
        return m_grayCurve;
    default:
        return nullptr;
    }
}

double regionBasedMTF::overshoot(int channel) const
{
    acquire();
    return channel >= 0 && channel < 4 ? m_overshoot[channel] : 0.0;
}

double regionBasedMTF::contrastToNoise(int channel) const
{
    return isValid() && channel >= 0 && channel < 4 ? m_quality.cnr[channel] : std::nan("");
}

double regionBasedMTF::samplesPerBin(int channel) const
{
    return isValid() && channel >= 0 && channel < 4 ? m_quality.samplesPerBin[channel]
                                                    : std::nan("");
}

QString regionBasedMTF::errorMessage() const
{
    acquire();
    return m_errorMessage;
}

QString regionBasedMTF::regionInfoHtml() const
{
    acquire();
    // One multi-argument pass, so that a "%1" in the file name is not taken
    // for the place of a later argument.
    QString info = QString("<table><tr><th align=\"left\">Region</th><td> topleft(%1, %2), width: "
                           "%3, height: %4</td> </tr><tr><th align=\"left\">File Name</th><td "
                           "width=\"500px\"> %5</td></tr><tr><th align=\"left\">ROI "
                           "Distance</th><td> %6</td></tr></table>")
                           .arg(QString::number(m_region.left()), QString::number(m_region.top()),
                                QString::number(m_region.width()),
                                QString::number(m_region.height()), m_fileName,
                                QString::number(m_roiDistance, 'g', 6));
    if (isValid()) {
        // The edge quality behind the result, per channel.
        auto perChannel = [this](double (regionBasedMTF::*figure)(int) const) {
            QStringList values;
            for (int c : {Red, Green, Blue, Gray})
                values << channelName(c) + QLatin1Char(' ')
                                  + QString::number((this->*figure)(c), 'g', 3);
            return values.join(QLatin1String(", "));
        };
        info.insert(info.size() - int(qstrlen("</table>")),
                    QLatin1String("<tr><th align=\"left\">Edge contrast-to-noise</th><td> ")
                            + perChannel(&regionBasedMTF::contrastToNoise)
                            + QLatin1String("</td></tr><tr><th align=\"left\">Samples per "
                                            "bin</th><td> ")
                            + perChannel(&regionBasedMTF::samplesPerBin)
                            + QLatin1String("</td></tr>"));
    }
    return info;
}

QString regionBasedMTF::regionTag() const
{
    acquire();
    return QString("%1_%2_%3_%4")
            .arg(m_region.left())
            .arg(m_region.top())
            .arg(m_region.width())
            .arg(m_region.height());
}

QString regionBasedMTF::channelName(int channel)
{
    switch (channel) {
    case Red:
        return QStringLiteral("Red");
    case Green:
        return QStringLiteral("Green");
    case Blue:
        return QStringLiteral("Blue");
    case Gray:
        return QStringLiteral("Gray");
    default:
        return QStringLiteral("Invalid");
    }
}

bool regionBasedMTF::callLibrary(unsigned int &pointCount, double *frequencies, double *gray,
                                 double *red, double *green, double *blue, double *mtf50,
                                 double *mtf50Peak, double *mtf10, double *mtf10Peak,
                                 double *slopeDegrees, double *contrast, char *errorText,
                                 int errorSize, const char *fileName, double gamma, int left,
                                 int top, int width, int height, int mode)
{
    return m_calibration.CalculateMTF(pointCount, frequencies, gray, red, green, blue, mtf50,
                                      mtf50Peak, mtf10, mtf10Peak, slopeDegrees, contrast,
                                      errorText, errorSize, fileName, gamma, left, top, width,
                                      height, mode, &m_quality);
}

bool regionBasedMTF::calculate()
{
    acquire();
    if (!m_dirty)
        return true;
    // Whichever way the calculation ends, its results are published.
    struct Publisher
    {
        regionBasedMTF *self;
        ~Publisher() { self->publish(); }
    } publisher{this};
    std::fill(std::begin(m_overshoot), std::end(m_overshoot), 0.0);
    if (!m_rangeError.isEmpty()) {
        m_errorMessage = m_rangeError;
        return false;
    }

    // The picture comes from the library's cache of decoded files, so the
    // library's own read of the same file does not decode it again.
    const QImage picture = kestro::colorcal::loadImageCached(m_fileName);
    if (picture.isNull()) {
        m_errorMessage = QStringLiteral("Cannot open the file : ") + m_fileName;
        return false;
    }
    // Centres in integer division as the rectangles store them, in 64 bits so
    // that no region can overflow the squares.
    const auto centre = [](qint64 start, qint64 size) { return (2 * start + size - 1) / 2; };
    const qint64 dx = centre(0, picture.width()) - centre(m_region.left(), m_region.width());
    const qint64 dy = centre(0, picture.height()) - centre(m_region.top(), m_region.height());
    m_roiDistance = std::sqrt(static_cast<double>(dx) * static_cast<double>(dx)
                              + static_cast<double>(dy) * static_cast<double>(dy));

    char errorText[1024] = {};
    unsigned int count = 0;
    std::fill(std::begin(m_quality.cnr), std::end(m_quality.cnr), std::nan(""));
    std::fill(std::begin(m_quality.samplesPerBin), std::end(m_quality.samplesPerBin), std::nan(""));
    const QByteArray name = QFile::encodeName(m_fileName);
    const bool ran = callLibrary(count, m_frequencies, m_grayCurve, m_redCurve, m_greenCurve,
                                 m_blueCurve, m_mtf50, m_mtf50Peak, m_mtf10, m_mtf10Peak,
                                 m_slopeDegrees, m_contrast, errorText, 1024, name.constData(),
                                 m_gamma, m_region.left(), m_region.top(), m_region.width(),
                                 m_region.height(), 3);
    m_pointCount = std::min<unsigned>(count, kMaxPoints);
    for (unsigned i = 0; i < m_pointCount; ++i)
        m_frequenciesLWPH[i] = 2.0 * m_pictureHeight * m_frequencies[i];

    bool success;
    if (ran) {
        errorText[sizeof errorText - 1] = '\0';
        // The library writes its texts in the local 8-bit encoding, like
        // the file names it quotes.
        m_errorMessage = QString::fromLocal8Bit(errorText);
        success = m_errorMessage.isEmpty();
    } else {
        m_errorMessage = QStringLiteral("Internal operation error in MTF calculation");
        success = false;
    }
    m_dirty = !success;
    if (success) {
        const double *curves[4] = {m_redCurve, m_greenCurve, m_blueCurve, m_grayCurve};
        for (int c = 0; c < 4; ++c) {
            double peak = 0;
            for (unsigned i = 0; i < m_pointCount; ++i)
                peak = std::max(peak, curves[c][i]);
            m_overshoot[c] = peak;
        }
        // Gray keeps the plain maximum.
        for (int c = Red; c <= Blue; ++c)
            m_overshoot[c] -= 1.0;
    }
    return success;
}
