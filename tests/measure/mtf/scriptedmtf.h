#pragma once
// A regionBasedMTF whose library call is replaced by a scripted answer, for
// tests of what is built around the call.

#include "measure/mtf/regionbasedmtf.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QTemporaryDir>

#include <cstring>
#include <string>

class ScriptedMTF : public regionBasedMTF
{
public:
    int calls = 0;
    bool result = true;
    std::string message;
    unsigned points = 3;
    double redPeak = 1.0, grayPeak = 1.0;
    // Written into every channel of the metric arrays.
    double mtf50 = 0.25, mtf50Peak = 0.26, mtf10 = 0.45, mtf10Peak = 0.46, slope = 5,
           contrast = 0.7;

protected:
    bool callLibrary(unsigned int &count, double *freq, double *gray, double *red, double *green,
                     double *blue, double *m50, double *m50p, double *m10, double *m10p,
                     double *slopes, double *contrasts, char *errorText, int errorSize,
                     const char *, double, int, int, int, int, int mode) override
    {
        ++calls;
        EXPECT_EQ(errorSize, 1024);
        EXPECT_EQ(mode, 3);
        count = points;
        for (unsigned i = 0; i < points; ++i) {
            freq[i] = 0.1 * i;
            red[i] = i == 1 ? redPeak : 0.5;
            green[i] = blue[i] = 0.5;
            gray[i] = i == 1 ? grayPeak : 0.5;
        }
        for (int c = 0; c < 4; ++c) {
            m50[c] = mtf50;
            m50p[c] = mtf50Peak;
            m10[c] = mtf10;
            m10p[c] = mtf10Peak;
            slopes[c] = slope;
            contrasts[c] = contrast;
        }
        for (int c = 0; c < 4; ++c) {
            m_quality.cnr[c] = 40 + c;
            m_quality.samplesPerBin[c] = 12.5;
        }
        std::strncpy(errorText, message.c_str(), static_cast<std::size_t>(errorSize));
        return result;
    }
};

// A flat 200 x 100 gray picture file for the scripted calculations to open.
inline QString flatPictureFile(const QTemporaryDir &dir)
{
    QImage picture(200, 100, QImage::Format_Grayscale8);
    picture.fill(100);
    const QString path = dir.filePath("picture.png");
    EXPECT_TRUE(picture.save(path));
    return path;
}
