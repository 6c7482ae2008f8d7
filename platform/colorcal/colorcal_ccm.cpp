// Colour-correction output of CColorCalibrate: the matrix of the last
// processed chart as sensor registers, and its white-balance gains. Until a
// chart has been processed every call fails with a text that says so.

#include "colorcal.h"

#include "ccm_registers.h"

#include <QFile>

#include <cmath>
#include <cstring>

namespace {

const char kNoChartText[] = "No color chart has been processed: process a chart on the Macbeth "
                            "Chart Image Tests page first.";

// The INI sections the writers own.
const char kMatrixSection[] = "Color Correction Matrix";
const char kAwbSection[] = "Strobix AWB";

using namespace kestro::ccm;

QByteArray number(double value, int digits = 6)
{
    return QByteArray::number(value, 'g', digits);
}

QByteArray registerValue(const FixedFormat &format, long long code, int bits)
{
    const int digits = (bits + 3) / 4;
    return "0x" + QByteArray::number(format.encode(code), 16).toUpper().rightJustified(digits, '0');
}

QByteArray fitName(const Result &r)
{
    return r.fit == Fit::MinimumDeltaE ? "minimum dE00" : "least-squares";
}

} // namespace

void CColorCalibrate::setError(int state, const char *text)
{
    const std::lock_guard<std::mutex> lock(m_errorMutex);
    m_errorState = state;
    std::strncpy(m_errorText, text, sizeof m_errorText - 1);
    m_errorText[sizeof m_errorText - 1] = '\0';
}

bool CColorCalibrate::setError(int state, const QString &text)
{
    setError(state, text.toLocal8Bit().constData());
    return false;
}

bool CColorCalibrate::SetChartPatches(int count, const double *measuredRgb,
                                      const double *referenceLab)
{
    const double nan = std::nan("");
    for (int i = 0; i < kPatchCount; ++i) {
        const bool given = measuredRgb && referenceLab && i < count;
        for (int c = 0; c < 3; ++c)
            m_chart.measured[i][c] = given ? measuredRgb[3 * i + c] : nan;
        m_chart.reference[i] = given ? Lab{referenceLab[3 * i], referenceLab[3 * i + 1],
                                           referenceLab[3 * i + 2]}
                                     : Lab{nan, nan, nan};
    }
    m_hasChart = true;
    m_calibResSaved = false;
    m_result = computeCorrection(m_chart, m_options);
    return m_result.ok;
}

void CColorCalibrate::ClearChart()
{
    m_hasChart = false;
    m_result = Result();
}

bool CColorCalibrate::SetCorrectionFit(int fit, double ridge)
{
    if ((fit != 0 && fit != 1) || !std::isfinite(ridge) || ridge < 0.0)
        return false;
    const Fit chosen = fit == 1 ? Fit::MinimumDeltaE : Fit::LeastSquares;
    if (chosen == m_options.fit && ridge == m_options.ridge)
        return !m_hasChart || m_result.ok;
    m_options.fit = chosen;
    m_options.ridge = ridge;
    if (!m_hasChart)
        return true;
    m_result = computeCorrection(m_chart, m_options);
    return m_result.ok;
}

bool CColorCalibrate::readyToWrite(const char *fileName, int matrixIndex,
                                   SensorCorrectionRegisters *regs)
{
    if (!m_hasChart) {
        setError(CC_ERR_NO_CHART, kNoChartText);
        return false;
    }
    if (!m_result.ok)
        return setError(CC_ERR_NO_MATRIX,
                        QStringLiteral("The processed chart gave no color correction: %1")
                                .arg(QString::fromStdString(m_result.error)));
    if (!fileName || !*fileName)
        return setError(CC_ERR_ARGUMENT, QStringLiteral("No file name was given."));
    if (matrixIndex != -1 && matrixIndex != 0)
        return setError(CC_ERR_ARGUMENT,
                        QStringLiteral("There is no color-correction matrix %1: only the "
                                       "current one (-1 or 0).")
                                .arg(matrixIndex));
    tl_camera_t *camera = m_cameraSource ? m_cameraSource() : m_camera;
    QString why;
    if (!describeSensorCorrection(camera, regs, &why))
        return setError(CC_ERR_NO_REGISTERS, why);
    return true;
}

bool CColorCalibrate::writeSection(const char *fileName, const char *section,
                                   const QList<QByteArray> &lines)
{
    const QString path = QFile::decodeName(fileName);
    QByteArray text;
    QString why;
    if (!readIniForEdit(path, &text, &why)
        || !writeIniAtomically(path, replaceIniSection(text, section, lines), &why))
        return setError(CC_ERR_FILE, why);
    setError(0, "");
    return true;
}

bool CColorCalibrate::SaveMatricesAsRegisters(const char *fileName, int matrixIndex,
                                              int asRegisters, int withComments)
{
    SensorCorrectionRegisters regs;
    if (!readyToWrite(fileName, matrixIndex, &regs))
        return false;
    std::array<CodeRow, 3> codes;
    QString why;
    if (!quantizeMatrix(m_result.matrix, regs.matrixFormat, &codes, &why))
        return setError(CC_ERR_RANGE, why);

    QList<QByteArray> lines;
    const char *rowNames[3] = {"red", "green", "blue"};
    if (withComments) {
        lines << "; Color correction from the chart (" + fitName(m_result) + " fit, ridge "
                         + number(m_result.ridge) + "), applied to linear RGB after the"
              << "; white-balance gains; every row sums to 1 (format "
                         + regs.matrixFormat.text().toLatin1()
                         + ", 1.0 = " + QByteArray::number(regs.matrixFormat.one()) + ")."
              << "; Mean dE00 " + number(m_result.before.mean, 4) + " before, "
                         + number(m_result.after.mean, 4) + " after; noise gain "
                         + number(m_result.noiseGain[0], 4) + " " + number(m_result.noiseGain[1], 4)
                         + " " + number(m_result.noiseGain[2], 4) + ".";
    }
    for (int r = 0; r < 3; ++r) {
        if (withComments)
            lines << QByteArray("; ") + rowNames[r] + ": " + number(m_result.matrix[r][0]) + " "
                             + number(m_result.matrix[r][1]) + " " + number(m_result.matrix[r][2]);
        for (int c = 0; c < 3; ++c) {
            const RegisterField &reg = regs.matrix[3 * r + c];
            const double exact = static_cast<double>(codes[r][c]) / regs.matrixFormat.one();
            lines << reg.name.toLatin1() + '='
                             + (asRegisters
                                        ? registerValue(regs.matrixFormat, codes[r][c], reg.bits)
                                        : number(exact, 10));
        }
    }
    return writeSection(fileName, kMatrixSection, lines);
}

bool CColorCalibrate::SaveMatricesForStrobixAwb(const char *fileName, int matrixIndex)
{
    SensorCorrectionRegisters regs;
    if (!readyToWrite(fileName, matrixIndex, &regs))
        return false;
    const FixedFormat &format = regs.gainFormat;
    QList<QByteArray> lines;
    lines << "; White-balance gains from the gray patches (green 1): " + number(m_result.gains[0])
                     + " " + number(m_result.gains[1]) + " " + number(m_result.gains[2]);
    for (int c = 0; c < 3; ++c) {
        const long long code = std::llround(m_result.gains[c] * format.one());
        if (code < 1 || code > format.maxCode())
            return setError(CC_ERR_RANGE,
                            QStringLiteral("The gain %1 does not fit the register %2 (format %3).")
                                    .arg(m_result.gains[c])
                                    .arg(regs.gains[c].name, format.text()));
        lines << regs.gains[c].name.toLatin1() + '='
                         + registerValue(format, code, regs.gains[c].bits);
    }
    return writeSection(fileName, kAwbSection, lines);
}

void CColorCalibrate::SetCalibResSavedFlag()
{
    m_calibResSaved = true;
}
