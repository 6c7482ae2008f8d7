#include "app/matlabinitialization.h"

#include "platform/colorcal/colorcal.h"

MatlabInitialization::MatlabInitialization(QObject *parent, CColorCalibrate *library,
                                           bool colorCalibration, bool mtf)
    : QThread(parent)
    , m_library(library)
    , m_colorCalibration(colorCalibration)
    , m_mtf(mtf)
{ }

void MatlabInitialization::run()
{
    if (m_library)
        m_library->InitializeCalibration(m_colorCalibration, m_mtf);
}
