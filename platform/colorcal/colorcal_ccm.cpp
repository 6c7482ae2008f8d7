// Colour-correction output of CColorCalibrate: the matrices as sensor
// registers and the white-balance gains. They come from a processed chart;
// until one has been processed every call fails with a text that says so.

#include "colorcal.h"

#include <cstring>

namespace {
const char kNoChartText[] = "No color chart has been processed: process a chart on the Macbeth "
                            "Chart Image Tests page first.";
}

void CColorCalibrate::setError(int state, const char *text)
{
    m_errorState = state;
    std::strncpy(m_errorText, text, sizeof m_errorText - 1);
    m_errorText[sizeof m_errorText - 1] = '\0';
}

bool CColorCalibrate::SaveMatricesAsRegisters(const char *fileName, int matrixIndex,
                                              int asRegisters, int withComments)
{
    (void) fileName;
    (void) matrixIndex;
    (void) asRegisters;
    (void) withComments;
    setError(2, kNoChartText);
    return false;
}

bool CColorCalibrate::SaveMatricesForStrobixAwb(const char *fileName, int matrixIndex)
{
    (void) fileName;
    (void) matrixIndex;
    setError(2, kNoChartText);
    return false;
}

void CColorCalibrate::SetCalibResSavedFlag()
{
    m_calibResSaved = true;
}
