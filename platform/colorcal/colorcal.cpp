#include "colorcal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

CColorCalibrate::CColorCalibrate(tl_camera_t *camera)
    : m_camera(camera)
{
}

CColorCalibrate::~CColorCalibrate() = default;

bool CColorCalibrate::InitializeCalibration(bool colorCalibration, bool mtf)
{
    (void)colorCalibration;
    (void)mtf;
    // The computations are self-contained: nothing to load or warm up.
    m_initialized = true;
    m_errorState = 0;
    m_errorText[0] = '\0';
    return true;
}

int CColorCalibrate::LastErrorState(char *text, int size) const
{
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
