#include "measure/uniformity/cpiq.h"

#include "measure/color/cielab.h"
#include "measure/uniformity/exactsum.h"

#include <cmath>

namespace kestro {

bool isValidCpiqGrid(int rows, int cols, int width, int height)
{
    return rows >= 1 && cols >= 1 && rows <= kCpiqMaxZones && cols <= kCpiqMaxZones
           && rows <= height && cols <= width;
}

QString cpiqGridError(int rows, int cols, int width, int height)
{
    return uniformityErrorText(
            {UniformityError::InvalidCpiqGrid, QString(), 0, rows, cols, width, height});
}

static CpiqResult failed(const UniformityFailure &failure)
{
    CpiqResult result;
    result.failure = failure.error;
    result.error = uniformityErrorText(failure);
    return result;
}

CpiqResult cpiqFromZoneMeans(const UniformityZoneMeans &means)
{
    CpiqResult result;
    const std::size_t n = static_cast<std::size_t>(means.rows) * means.cols;
    if (means.rows < 1 || means.cols < 1 || means.red.size() != n || means.green.size() != n
        || means.blue.size() != n)
        return failed({UniformityError::NoCpiqZones});
    result.rows = means.rows;
    result.cols = means.cols;
    result.zones.resize(n);
    ExactSum sumA;
    ExactSum sumB;
    for (int r = 0; r < means.rows; ++r) {
        for (int c = 0; c < means.cols; ++c) {
            const std::size_t k = static_cast<std::size_t>(r) * means.cols + c;
            CpiqZone &zone = result.zones[k];
            zone.row = r + 1;
            zone.column = c + 1;
            zone.R = means.red[k];
            zone.G = means.green[k];
            zone.B = means.blue[k];
            const LabColor lab = srgbToLab(zone.R / 255.0, zone.G / 255.0, zone.B / 255.0);
            zone.L = lab.L;
            zone.a = lab.a;
            zone.b = lab.b;
            sumA.add(lab.a);
            sumB.add(lab.b);
        }
    }
    const double meanA = sumA.value() / static_cast<double>(n);
    const double meanB = sumB.value() / static_cast<double>(n);
    double metric = 0.0;
    bool undefined = false;
    for (CpiqZone &zone : result.zones) {
        zone.deltaAb = std::hypot(zone.a - meanA, zone.b - meanB);
        if (std::isnan(zone.deltaAb))
            undefined = true;
        else if (zone.deltaAb > metric)
            metric = zone.deltaAb;
    }
    result.metric = undefined ? std::nan("") : metric;
    result.valid = true;
    return result;
}

CpiqResult computeCpiq(const UniformityImage &image, int rows, int cols)
{
    if (!image.isValid())
        return failed({UniformityError::NoImage});
    if (!isValidCpiqGrid(rows, cols, image.width(), image.height()))
        return failed({UniformityError::InvalidCpiqGrid, QString(), 0, rows, cols, image.width(),
                       image.height()});
    return cpiqFromZoneMeans(image.compute(0, 0, rows, cols).zones);
}

} // namespace kestro
