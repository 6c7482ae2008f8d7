#include "measure/uniformity/uniformity.h"

#include "imaging/imageload.h"
#include "imaging/parallel.h"

namespace kestro {

static void summariseCenter(UniformityData &data, int centerPercent, UniformitySummary &summary)
{
    summary.center = data.centerValue(centerPercent / 100.0);
}

static void summariseCorners(UniformityData &data, int cornerPercent, UniformitySummary &summary)
{
    summary.corners = data.cornerValues(cornerPercent / 100.0);
    for (int i = 0; i < 4; ++i)
        summary.labels[i] = uniformityCornerLabel(summary.corners[i], summary.center);
}

static void summariseStatistics(const UniformityData &data, UniformitySummary &summary)
{
    summary.cols = data.cols();
    summary.rows = data.rows();
    summary.minimum = data.minimum();
    summary.maximum = data.maximum();
    summary.sum = data.sum();
    summary.mean = data.mean();
}

UniformitySummary summariseUniformity(UniformityData &data, int centerPercent, int cornerPercent)
{
    UniformitySummary summary;
    summariseStatistics(data, summary);
    summariseCenter(data, centerPercent, summary);
    summariseCorners(data, cornerPercent, summary);
    return summary;
}

std::array<UniformitySummary, 4> summariseChannels(UniformityPass &pass, int centerPercent,
                                                   int cornerPercent)
{
    std::array<UniformitySummary, 4> summaries;
    auto summarise = [&](int c) {
        UniformityGrid &grid = pass.grids[c];
        if (grid.values.empty())
            return;
        UniformityData data;
        data.swapGrid(grid.values, grid.cols, grid.rows);
        summaries[c] = summariseUniformity(data, centerPercent, cornerPercent);
        grid.values = data.takeGrid();
    };
    parallelFor(4, summarise);
    return summaries;
}

UniformityCalculation::UniformityCalculation() = default;

UniformityCalculation::LoadResult UniformityCalculation::loadImage(const QString &path)
{
    // The shared loader: a pipe or device is refused instead of blocking, and
    // a picture too large to hold is refused before it is decoded.
    const ImageLoadResult read = readImageFile(path);
    if (!read.ok()) {
        m_failure = {UniformityError::LoadFailure, path};
        return LoadFailed;
    }
    return setImage(read.image, path);
}

UniformityCalculation::LoadResult UniformityCalculation::setImage(const QImage &image,
                                                                  const QString &fileName)
{
    if (image.isNull()) {
        m_failure = {UniformityError::LoadFailure, fileName};
        return LoadFailed;
    }
    if (!UniformityImage::isSupportedFormat(image.format())) {
        m_failure = {UniformityError::InvalidFormat, fileName};
        return InvalidFormat;
    }
    m_image = std::make_unique<UniformityImage>(image);
    m_fileName = fileName;
    m_failure = UniformityFailure();
    m_gridDirty = true;
    m_cpiqDirty = true;
    return Loaded;
}

void UniformityCalculation::setChannel(UniformityChannel channel)
{
    if (channel != m_channel) {
        m_channel = channel;
        m_gridDirty = true;
    }
}

void UniformityCalculation::setSubsampleSize(int size)
{
    if (size != m_subsample) {
        m_subsample = size;
        m_gridDirty = true;
    }
}

void UniformityCalculation::setCenterPercent(int percent)
{
    if (percent != m_centerPercent) {
        m_centerPercent = percent;
        m_centerDirty = true;
    }
}

void UniformityCalculation::setCornerPercent(int percent)
{
    if (percent != m_cornerPercent) {
        m_cornerPercent = percent;
        m_cornersDirty = true;
    }
}

void UniformityCalculation::setCpiqEnabled(bool enabled)
{
    if (enabled != m_cpiqEnabled) {
        m_cpiqEnabled = enabled;
        m_cpiqDirty = true;
    }
}

void UniformityCalculation::setCpiqZones(int rows, int cols)
{
    if (rows != m_cpiqRows || cols != m_cpiqCols) {
        m_cpiqRows = rows;
        m_cpiqCols = cols;
        m_cpiqDirty = true;
    }
}

bool UniformityCalculation::update()
{
    if (!m_image)
        return false;
    if (!isValidUniformityPercent(m_centerPercent)) {
        m_failure = {UniformityError::InvalidCenterPercent, QString(), m_centerPercent};
        return false;
    }
    if (!isValidUniformityPercent(m_cornerPercent)) {
        m_failure = {UniformityError::InvalidCornerPercent, QString(), m_cornerPercent};
        return false;
    }
    const bool cpiqDue = m_cpiqEnabled && m_cpiqDirty;
    const bool zonesFit = isValidCpiqGrid(m_cpiqRows, m_cpiqCols, m_image->width(),
                                          m_image->height());
    if (cpiqDue && !zonesFit) {
        m_cpiq = computeCpiq(*m_image, m_cpiqRows, m_cpiqCols);
        m_cpiqDirty = false;
    }
    if (m_gridDirty) {
        if (!UniformityImage::isValidSubsample(m_subsample, m_image->width(), m_image->height())) {
            m_subsampleValid = false;
            m_failure = {UniformityError::InvalidSubsample};
            if (m_cpiqEnabled && m_cpiqDirty) {
                m_cpiq = computeCpiq(*m_image, m_cpiqRows, m_cpiqCols);
                m_cpiqDirty = false;
            }
            return false;
        }
        // The zones, when due, come from the same pass as the grid.
        const bool withZones = m_cpiqEnabled && m_cpiqDirty;
        // The spare grid memory may sit under another channel's slot.
        const int channel = static_cast<int>(m_channel);
        for (int c = 0; c < 4; ++c)
            if (m_pass.grids[c].values.capacity() > m_pass.grids[channel].values.capacity())
                m_pass.grids[c].values.swap(m_pass.grids[channel].values);
        m_image->compute(m_pass, m_subsample, uniformityChannelBit(m_channel),
                         withZones ? m_cpiqRows : 0, withZones ? m_cpiqCols : 0);
        if (withZones) {
            m_cpiq = cpiqFromZoneMeans(m_pass.zones);
            m_cpiqDirty = false;
        }
        UniformityGrid &grid = m_pass.grids[channel];
        m_data.setSubsampleSize(m_subsample);
        // The previous grid comes back into the pass for the next recompute.
        m_data.swapGrid(grid.values, grid.cols, grid.rows);
        summariseStatistics(m_data, m_summary);
        m_subsampleValid = true;
        m_gridDirty = false;
        m_centerDirty = true;
    }
    if (m_cpiqEnabled && m_cpiqDirty) {
        m_cpiq = computeCpiq(*m_image, m_cpiqRows, m_cpiqCols);
        m_cpiqDirty = false;
    }
    if (!m_subsampleValid)
        return false;
    if (m_centerDirty) {
        summariseCenter(m_data, m_centerPercent, m_summary);
        m_centerDirty = false;
        m_cornersDirty = true; // the drop-offs are taken against the centre
    }
    if (m_cornersDirty) {
        summariseCorners(m_data, m_cornerPercent, m_summary);
        m_cornersDirty = false;
    }
    m_failure = UniformityFailure();
    return true;
}

} // namespace kestro
