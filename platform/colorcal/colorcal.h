#pragma once
// colorcal: the open colour-calibration library. CColorCalibrate computes the
// slanted-edge MTF of one region of an image file, and the colour-correction
// matrix and white-balance gains of the last processed chart (see ccm.h),
// which it writes as sensor register presets.

#include "platform/colorcal/ccm_registers.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <functional>
#include <mutex>

struct tl_camera_t;

// Error states of LastErrorState besides 0 (success).
enum ColorCalErrorState {
    CC_ERR_NO_CHART = 2,     // no chart has been processed
    CC_ERR_NO_MATRIX = 3,    // the processed chart gave no correction
    CC_ERR_ARGUMENT = 4,     // missing file name, unknown matrix index
    CC_ERR_NO_REGISTERS = 5, // the sensor has no described colour-correction registers
    CC_ERR_RANGE = 6,        // a value does not fit its register
    CC_ERR_FILE = 7          // the INI file cannot be read or written
};

class CColorCalibrate
{
public:
    explicit CColorCalibrate(tl_camera_t *camera);
    ~CColorCalibrate();
    CColorCalibrate(const CColorCalibrate &) = delete;
    CColorCalibrate &operator=(const CColorCalibrate &) = delete;

    // Prepares the library. Returns false and records an error state on
    // failure.
    bool InitializeCalibration(bool colorCalibration, bool mtf);

    // 0 when the last initialisation or call succeeded; otherwise non-zero and,
    // when a buffer is given, its text (at most size bytes with the NUL).
    int LastErrorState(char *text = nullptr, int size = 0) const;

    // The shared library of the numerical runtime this build needs, or null
    // when it needs none. The environment variable KESTRO_COLORCAL_RUNTIME
    // names one (used by tests to exercise a missing runtime).
    static const char *RequiredRuntime();

    // How far the result of each channel (red 0, green 1, blue 2, gray 3) can
    // be trusted: the edge's contrast-to-noise ratio (light minus dark over
    // the noise of one pixel, in linear light; infinite for a noise-free
    // picture) and the mean number of pixels behind each quarter-pixel value
    // of the edge profile across the edge. NaN for a channel that could not
    // be measured.
    struct MtfQuality
    {
        double cnr[4];
        double samplesPerBin[4];
    };

    // Slanted-edge MTF of one region of an image file. The library reads the
    // file itself (decoded images are cached by path and modification time);
    // `fileName` is in the platform's file-name encoding (QFile::encodeName).
    // Outputs: the number of frequency points (at most 1000, up to 1 cycle per
    // pixel along the edge normal), the frequencies, the gray, red, green and
    // blue curves, and per channel (red 0, green 1, blue 2, gray 3) MTF50,
    // MTF50P, MTF10, MTF10P, the edge angle in degrees and the edge contrast.
    // Curve and frequency arrays must hold 1000 values, metric arrays 4.
    // `gamma` linearises 8-bit values v as (v / 255)^(1 / gamma). `mode` is
    // passed through and not interpreted.
    // Returns true when the computation ran; `errorText` then holds a
    // terminated text, empty on success, else what is wrong with the region
    // or file (in the local 8-bit encoding, as file names are; plain ASCII
    // unless it quotes such a name). Returns false on an internal fault
    // (missing buffers). `quality`, when given, receives the quality figures
    // of a successful computation.
    bool CalculateMTF(unsigned int &pointCount, double *frequencies, double *grayCurve,
                      double *redCurve, double *greenCurve, double *blueCurve, double *mtf50,
                      double *mtf50Peak, double *mtf10, double *mtf10Peak, double *slopeDegrees,
                      double *contrast, char *errorText, int errorSize, const char *fileName,
                      double gamma, int left, int top, int width, int height, int mode,
                      MtfQuality *quality = nullptr);

    // The last processed chart: `count` patches (a whole chart has 24) in
    // patch order, their measured colours as sRGB-encoded channel fractions
    // 0..1 and the chart's reference L*a*b* (count × 3 values each; a
    // non-finite value marks a patch that was not measured). The correction
    // is fitted at once with the current fit options; false when none could
    // be fitted (CorrectionResult().error says why; the writers then fail
    // with that text). A new chart clears the saved flag.
    bool SetChartPatches(int count, const double *measuredRgb, const double *referenceLab);
    void ClearChart();
    bool HasChart() const { return m_hasChart; }
    // Fit options: 0 least squares, 1 minimum ΔE00; ridge strength L >= 0.
    // Refits the current chart; false for unknown options (kept as they
    // were) or when the refit gives no correction.
    bool SetCorrectionFit(int fit, double ridge);
    kestro::ccm::Options CorrectionOptions() const { return m_options; }
    const kestro::ccm::Result &CorrectionResult() const { return m_result; }

    // Colour-correction output of the last processed chart; without one,
    // each call fails and LastErrorState gives the text. The registers'
    // names, widths and formats come from the sensor data file of the
    // camera's sensor. Existing sections of the file are replaced and every
    // other line kept; the file is replaced in one step, and left as it was
    // on failure.
    // Writes the matrix (`matrixIndex` -1 or 0: the current one) as the
    // sensor's colour-correction registers into an INI file: register values
    // with `asRegisters`, else the coefficients as decimal numbers;
    // `withComments` adds comment lines with the fit and its figures.
    bool SaveMatricesAsRegisters(const char *fileName, int matrixIndex, int asRegisters,
                                 int withComments);
    // Writes the white-balance gains as the capture application's AWB
    // section: the sensor's digital gain registers.
    bool SaveMatricesForStrobixAwb(const char *fileName, int matrixIndex);
    // Records that the calibration result has been saved.
    void SetCalibResSavedFlag();
    bool CalibResSaved() const { return m_calibResSaved; }

    // Where the writers find the open camera when it changes after
    // construction (the window opens and closes cameras); without a source,
    // the camera given at construction.
    void SetCameraSource(std::function<tl_camera_t *()> source)
    {
        m_cameraSource = std::move(source);
    }

    tl_camera_t *camera() const { return m_camera; }

private:
    tl_camera_t *m_camera = nullptr;
    std::function<tl_camera_t *()> m_cameraSource;
    // The error state is set by initialisation on a worker thread while the
    // window may already ask for it: both sides take the lock.
    mutable std::mutex m_errorMutex;
    bool m_initialized = false;
    int m_errorState = 0;
    char m_errorText[512] = {};
    bool m_calibResSaved = false;
    bool m_hasChart = false;
    kestro::ccm::Chart m_chart;
    kestro::ccm::Options m_options;
    kestro::ccm::Result m_result;
    void setError(int state, const char *text);
    bool setError(int state, const QString &text);
    // The checks both writers make before touching a file.
    bool readyToWrite(const char *fileName, int matrixIndex,
                      kestro::ccm::SensorCorrectionRegisters *regs);
    bool writeSection(const char *fileName, const char *section, const QList<QByteArray> &lines);
};
