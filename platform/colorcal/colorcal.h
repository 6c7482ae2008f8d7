#pragma once
// colorcal: the open colour-calibration library. CColorCalibrate computes the
// slanted-edge MTF of one region of an image file and writes colour-correction
// matrices as register presets.

struct tl_camera_t;

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

    // Colour-correction output, from the matrices of the last processed
    // chart; without one, each call fails and LastErrorState gives the text.
    // Writes the matrix (`matrixIndex` -1: the current one) as the sensor's
    // colour-correction registers into an INI file.
    bool SaveMatricesAsRegisters(const char *fileName, int matrixIndex, int asRegisters,
                                 int withComments);
    // Writes the white-balance gains as the capture application's AWB section.
    bool SaveMatricesForStrobixAwb(const char *fileName, int matrixIndex);
    // Records that the calibration result has been saved.
    void SetCalibResSavedFlag();
    bool CalibResSaved() const { return m_calibResSaved; }

    tl_camera_t *camera() const { return m_camera; }

private:
    tl_camera_t *m_camera = nullptr;
    bool m_initialized = false;
    int m_errorState = 0;
    char m_errorText[256] = {};
    bool m_calibResSaved = false;
    void setError(int state, const char *text);
};
