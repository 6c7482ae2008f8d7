// The command-line runner: parses one batch test, runs it without the event
// loop and leaves the outcome in the exit-code field and on stdout.

#include "app/batchpages.h"
#include "app/kestro.h"
#include "imaging/frame.h"
#include "imaging/imageload.h"
#include "platform/colorcal/imagecache.h"

#include <QImage>
#include <QString>

#include <climits>
#include <cstdio>

namespace {

// Batch output goes to stdout unchanged, without a newline added: test
// stations read these texts and compare them character for character.
void out(const char *text)
{
    std::printf("%s", text);
}

// Why a batch run could not do its work: on stderr, so that stdout keeps
// exactly the texts that test stations compare.
void reason(const QString &text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "\nKestro: %s\n", text.toLocal8Bit().constData());
}

// One command-line argument, as the program reads paths and values.
QString argText(char **argv, int i)
{
    return QString::fromLocal8Bit(argv[i]);
}

// Case-insensitive key prefix test of an argument.
bool hasKey(const QString &arg, const char *key)
{
    return arg.startsWith(QLatin1String(key), Qt::CaseInsensitive);
}

bool hasValue(const QString &arg)
{
    return arg.contains(QLatin1Char('='));
}

// Everything after the first "=".
QString valueOf(const QString &arg)
{
    return arg.mid(arg.indexOf(QLatin1Char('=')) + 1);
}

// Base-10 integer; 0 when it does not convert.
int intValue(const QString &arg)
{
    return valueOf(arg).toInt(nullptr, 10);
}

// Locale-independent double; 0 when it does not convert.
double doubleValue(const QString &arg)
{
    return valueOf(arg).toDouble();
}

} // namespace

void Kestro::runCommandLine(int argc, char **argv)
{
    if (argc < 2 || !argv || !argv[1])
        return;
    m_commandLineType = QString::fromLatin1(argv[1]);
    const QString test = m_commandLineType;
    auto is = [&](const char *name) {
        return test.compare(QLatin1String(name), Qt::CaseInsensitive) == 0;
    };
    if (is("Uniformity"))
        runUniformity(argc, argv);
    else if (is("MTF"))
        runMtf(argc, argv);
    else if (is("Color Difference") || is("ColorDifference"))
        runColorDifference(argc, argv);
    else if (is("Noise"))
        runNoise(argc, argv);
    std::fflush(stdout);
}

void Kestro::runColorDifference(int argc, char **argv)
{
    QString input;
    if (argc < 4) {
        out("Incorrect number of parameters, please follow the format for Color Difference Test\n");
        out("With marker location files:\n");
        out("\tKestroLoader.exe ColorDifference <path to image file> <path to html output> ROI=<path to "
            "location file>");
        out("With marker location files and color error upper threshold (%ERROR_LEVEL%=2 indiciates that "
            "maximum delta E2000 is above the threshold:\n");
        out("\tKestroLoader.exe ColorDifference <path to image file> <path to html output> ROI=<path to "
            "location file> Threshold=<color error threshold>");
        out("\n\nWithout marker location files:\n");
        out("\tKestroLoader.exe ColorDifference <path to image file> <path to html output>");
    } else {
        m_colorDiffImagePath = argText(argv, 2);
        m_colorDiffReportPath = argText(argv, 3);
        input = m_colorDiffImagePath;
        // Without a threshold the exit code is 1; the threshold itself is
        // only stored.
        m_exitCode = 1;
        for (int i = 4; i < argc; ++i) {
            const QString arg = argText(argv, i);
            if (hasKey(arg, "ROI") && hasValue(arg)) {
                m_roiFilePath = valueOf(arg);
                m_roiFileGiven = true;
            } else if (hasKey(arg, "Threshold")) {
                if (hasValue(arg)) {
                    m_colorDiffThreshold = doubleValue(arg);
                    m_colorDiffThresholdGiven = true;
                    m_exitCode = 0;
                } else {
                    m_exitCode = 1;
                }
            }
        }
    }
    QString error;
    const QImage image = kestro::loadImage(input, &error);
    if (image.isNull()) {
        m_exitCode = -1;
        out("\tCannot load the input file");
        reason(error);
    }
}

void Kestro::runNoise(int argc, char **argv)
{
    QString input;
    if (argc < 4) {
        out("Incorrect number of parameters, please follow the format for Noise Measurement Test");
        out("With marker location files:\n");
        out("\tKestroLoader.exe Noise <path to image file> <path to html output> ROI=<path to location file>");
        out("\n\nWithout marker location files:\n");
        out("\tKestroLoader.exe Noise <path to image file> <path to html output>");
    } else {
        m_colorDiffImagePath = argText(argv, 2);
        m_noiseReportPath = argText(argv, 3);
        input = m_colorDiffImagePath;
        m_roiFileGiven = false;
        if (argc > 4) {
            const QString arg = argText(argv, 4);
            if (hasKey(arg, "ROI") && hasValue(arg)) {
                m_roiFilePath = valueOf(arg);
                m_roiFileGiven = true;
            }
        }
    }
    CFrame frame;
    if (!frame.load(input)) {
        m_exitCode = -1;
        out("\tCannot load the input file");
        reason(frame.errorText());
    }
}

void Kestro::runMtf(int argc, char **argv)
{
    if (argc < 4) {
        out("Incorrect number of parameters, please follow the format for MTF Test\n\n");
        out("With ROI regions defined in file:\n");
        out("\tMTF <Path to input image file> <Path to html output file> Gamma=<Gamma value int float> "
            "ROI=<Path to ROI region file>\n\n");
        out("With ROI regions defined in line:\n");
        out("\tMTF <Path to input image file> <Path to html output file> Gamma=<Gamma value int float> "
            "X1=<top-left X> Y1=<top-left Y> X2=<bottom-right X> Y2=<bottom-right Y>\n\n");
        return;
    }
    m_mtfImagePath = argText(argv, 2);
    m_mtfReportPath = argText(argv, 3);
    if (argc < 5)
        return;
    int x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    for (int i = 4; i < argc; ++i) {
        const QString arg = argText(argv, i);
        const bool given = hasValue(arg);
        if (hasKey(arg, "ROI")) {
            if (given) {
                m_roiFilePath = valueOf(arg);
                m_roiFileGiven = true;
            }
        } else if (hasKey(arg, "Gamma")) {
            if (given)
                m_mtfGamma = doubleValue(arg);
        } else if (hasKey(arg, "x1")) {
            if (given)
                x1 = intValue(arg);
        } else if (hasKey(arg, "y1")) {
            if (given)
                y1 = intValue(arg);
        } else if (hasKey(arg, "x2")) {
            if (given)
                x2 = intValue(arg);
        } else if (hasKey(arg, "y2")) {
            if (given)
                y2 = intValue(arg);
        }
    }
    if (!m_roiFileGiven && (x1 == x2 || y1 == y2))
        return;
    // Through the calculation's cache of decoded files: the regions then
    // measure this picture instead of decoding the file again.
    QString error;
    QImage image = kestro::colorcal::loadImageCached(m_mtfImagePath, &error);
    if (image.isNull()) {
        // Nothing to measure: the exit code stays 0, the reason goes to
        // stderr, no report is written.
        reason(QStringLiteral("cannot read ") + m_mtfImagePath + QStringLiteral(": ") + error);
        return;
    }
    newSlantedEdgeImage(image);
    if (!m_roiFileGiven) {
        // Widths are computed in 64 bits so that extreme corners cannot
        // overflow; the rectangle keeps what fits.
        const qint64 width = qAbs(qint64(x2) - qint64(x1));
        const qint64 height = qAbs(qint64(y2) - qint64(y1));
        m_mtfInlineRegion = QRect(qMin(x1, x2), qMin(y1, y2), int(qMin<qint64>(width, INT_MAX)),
                                  int(qMin<qint64>(height, INT_MAX)));
    }
    if (calcMTF(false))
        saveToHTMLFile();
}

void Kestro::runUniformity(int argc, char **argv)
{
    if (argc < 3) {
        out("Incorrect number of parameters, please fellow the format for Uniformity Test");
    } else {
        m_uniImagePath = argText(argv, 2);
        m_uniReportPath = argc > 3 ? argText(argv, 3) : QString();
        for (int i = 4; i < argc; ++i) {
            const QString arg = argText(argv, i);
            const bool given = hasValue(arg);
            if (hasKey(arg, "colormap")) {
                if (given)
                    m_uniColorMapName = valueOf(arg);
            } else if (hasKey(arg, "CenterPercent")) {
                if (given)
                    m_uniCenterPercent = intValue(arg);
            } else if (hasKey(arg, "CornerPercent")) {
                if (given)
                    m_uniCornerPercent = intValue(arg);
            } else if (hasKey(arg, "ShowContour")) {
                if (given)
                    m_uniShowContour = valueOf(arg).compare(QLatin1String("true"),
                                                            Qt::CaseInsensitive)
                                       == 0;
            } else if (hasKey(arg, "ContourLow")) {
                if (given)
                    m_uniContourLow = intValue(arg);
            } else if (hasKey(arg, "ContourSS")) {
                if (given)
                    m_uniContourStepSize = intValue(arg);
            } else if (hasKey(arg, "ContourHigh")) {
                if (given)
                    m_uniContourHigh = intValue(arg);
            } else if (hasKey(arg, "ChartSize")) {
                if (given)
                    m_uniChartSize = intValue(arg);
            } else if (hasKey(arg, "SubSampleSize")) {
                if (given)
                    m_uniSubSampleSize = intValue(arg);
            }
        }
    }
    runUniformityCalculation();
    saveToHTMLFile();
}

void Kestro::newSlantedEdgeImage(QImage &image)
{
    if (m_mtfBatch)
        m_mtfBatch->newSlantedEdgeImage(image);
}

bool Kestro::calcMTF(bool interactive)
{
    if (!m_matlabRuntimeInstalled || !m_colorCalibrationReady) {
        std::fprintf(
                stderr,
                "Kestro: the MTF measurement is disabled: the calibration library is not ready.\n");
        return false;
    }
    if (!m_mtfBatch) {
        std::fprintf(stderr, "Kestro: the MTF measurement is not available yet.\n");
        return false;
    }
    return m_mtfBatch->calcMTF(interactive);
}

bool Kestro::runUniformityCalculation()
{
    if (!m_uniformityBatch) {
        std::fprintf(stderr, "Kestro: the uniformity measurement is not available yet.\n");
        return false;
    }
    return m_uniformityBatch->runUniformity();
}
