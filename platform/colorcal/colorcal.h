#pragma once
// colorcal: the open colour-calibration library. CColorCalibrate computes the
// slanted-edge MTF of one region of an image file and writes colour-correction
// matrices as register presets.

struct tl_camera;
typedef struct tl_camera tl_camera_t;

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

    tl_camera_t *camera() const { return m_camera; }

private:
    tl_camera_t *m_camera = nullptr;
    bool m_initialized = false;
    int m_errorState = 0;
    char m_errorText[256] = {};
};
