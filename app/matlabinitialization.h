#pragma once
// Initialises the colour-calibration library off the interface thread at
// windowed start-up; its finished() signal tells the window that the
// library is ready.

#include <QThread>

class CColorCalibrate;

class MatlabInitialization : public QThread
{
    Q_OBJECT
public:
    MatlabInitialization(QObject *parent, CColorCalibrate *library, bool colorCalibration, bool mtf);

protected:
    void run() override;

private:
    CColorCalibrate *m_library;
    bool m_colorCalibration;
    bool m_mtf;
};
