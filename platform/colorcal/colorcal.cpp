#include "colorcal.h"

#include "imagecache.h"
#include "sfr_measure.h"

#include <QFile>
#include <QRect>
#include <QString>
#include <algorithm>

#include <cstdio>
#include <cstdlib>
#include <cstring>

CColorCalibrate::CColorCalibrate(tl_camera_t *camera)
    : m_camera(camera)
{ }

CColorCalibrate::~CColorCalibrate() = default;

bool CColorCalibrate::InitializeCalibration(bool colorCalibration, bool mtf)
{
    (void) colorCalibration;
    (void) mtf;
    // The computations are self-contained: nothing to load or warm up.
    const std::lock_guard<std::mutex> lock(m_errorMutex);
    m_initialized = true;
    m_errorState = 0;
    m_errorText[0] = '\0';
    return true;
}

int CColorCalibrate::LastErrorState(char *text, int size) const
{
    const std::lock_guard<std::mutex> lock(m_errorMutex);
    if (text && size > 0) {
        std::strncpy(text, m_errorText, static_cast<std::size_t>(size) - 1);
        text[size - 1] = '\0';
    }
    return m_errorState;
}

const char *CColorCalibrate::RequiredRuntime()
{
    const char *named = std::getenv("KESTRO_COLORCAL_RUNTIME");
    return named && *named ? named : nullptr;
}

bool CColorCalibrate::CalculateMTF(unsigned int &pointCount, double *frequencies, double *grayCurve,
                                   double *redCurve, double *greenCurve, double *blueCurve,
                                   double *mtf50, double *mtf50Peak, double *mtf10,
                                   double *mtf10Peak, double *slopeDegrees, double *contrast,
                                   char *errorText, int errorSize, const char *fileName,
                                   double gamma, int left, int top, int width, int height, int mode,
                                   MtfQuality *quality)
{
    (void) mode;
    pointCount = 0;
    if (!frequencies || !grayCurve || !redCurve || !greenCurve || !blueCurve || !mtf50 || !mtf50Peak
        || !mtf10 || !mtf10Peak || !slopeDegrees || !contrast || !errorText || errorSize <= 0
        || !fileName)
        return false;
    auto setError = [&](const kestro::sfr::Failure &failure) {
        const QByteArray text = QString::fromStdString(kestro::sfr::failureText(failure))
                                        .toLocal8Bit();
        const int n = std::min(static_cast<int>(text.size()), errorSize - 1);
        std::memcpy(errorText, text.constData(), static_cast<std::size_t>(n));
        errorText[n] = '\0';
    };
    try {
        const QString path = QFile::decodeName(fileName);
        QString why;
        const QImage image = kestro::colorcal::loadImageCached(path, &why);
        if (image.isNull()) {
            kestro::sfr::Failure failure(kestro::sfr::FailureCode::UnreadableImage);
            failure.text[0] = path.toStdString();
            failure.text[1] = why.toStdString();
            setError(failure);
            return true;
        }
        kestro::sfr::Result r;
        kestro::sfr::measureImageRegion(image, QRect(left, top, width, height), gamma, r);
        if (!r.ok()) {
            setError(r.failure);
            return true;
        }
        const int n = static_cast<int>(r.frequencies.size());
        double *curves[4] = {redCurve, greenCurve, blueCurve, grayCurve};
        for (int i = 0; i < n; ++i) {
            frequencies[i] = r.frequencies[static_cast<std::size_t>(i)];
            for (int c = 0; c < 4; ++c)
                curves[c][i] = r.curve[c][static_cast<std::size_t>(i)];
        }
        for (int c = 0; c < 4; ++c) {
            mtf50[c] = r.mtf50[c];
            mtf50Peak[c] = r.mtf50Peak[c];
            mtf10[c] = r.mtf10[c];
            mtf10Peak[c] = r.mtf10Peak[c];
            slopeDegrees[c] = r.slopeDegrees[c];
            contrast[c] = r.contrast[c];
        }
        if (quality) {
            for (int c = 0; c < 4; ++c) {
                quality->cnr[c] = r.cnr[c];
                quality->samplesPerBin[c] = r.samplesPerBin[c];
            }
        }
        pointCount = static_cast<unsigned int>(n);
        setError(kestro::sfr::Failure());
        return true;
    } catch (...) {
        pointCount = 0;
        return false;
    }
}
