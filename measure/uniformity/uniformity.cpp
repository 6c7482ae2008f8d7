#include "measure/uniformity/uniformity.h"

#include <QImageReader>
#include <thread>

namespace kestro {

const char kUniformitySubsampleMessage[]
        = "Cannot display subsampled image. Please input valid subsampling size (1 - Height/8 or Width/8).";
const char kUniformityLoadFailureTitle[] = "File load failure";
const char kUniformityInvalidFormatTitle[] = "Invalid format";

QString uniformityLoadFailureText(const QString &fileName)
{
    return QStringLiteral("Failed to load the file : ") + fileName;
}

QString uniformityInvalidFormatText(const QString &fileName)
{
    return QStringLiteral("Only RGB files are supported for this test. Failed to load the file : ")
           + fileName;
}

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
    std::vector<std::thread> workers;
    for (int c = 1; c < 4; ++c)
        if (!pass.grids[c].values.empty())
            workers.emplace_back(summarise, c);
    summarise(0);
    for (std::thread &t : workers)
        t.join();
    return summaries;
}

UniformityCalculation::UniformityCalculation() = default;

UniformityCalculation::LoadResult UniformityCalculation::loadImage(const QString &path)
{
    QImageReader reader(path);
    const QImage image = reader.read();
    if (image.isNull()) {
        m_errorTitle = QString::fromLatin1(kUniformityLoadFailureTitle);
        m_errorText = uniformityLoadFailureText(path);
        return LoadFailed;
    }
    return setImage(image, path);
}

UniformityCalculation::LoadResult UniformityCalculation::setImage(const QImage &image,
                                                                  const QString &fileName)
{
    if (image.isNull()) {
        m_errorTitle = QString::fromLatin1(kUniformityLoadFailureTitle);
        m_errorText = uniformityLoadFailureText(fileName);
        return LoadFailed;
    }
    if (!UniformityImage::isSupportedFormat(image.format())) {
        m_errorTitle = QString::fromLatin1(kUniformityInvalidFormatTitle);
        m_errorText = uniformityInvalidFormatText(fileName);
        return InvalidFormat;
    }
    m_image = std::make_unique<UniformityImage>(image);
    m_fileName = fileName;
    m_errorTitle.clear();
    m_errorText.clear();
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
    const bool cpiqDue = m_cpiqEnabled && m_cpiqDirty;
    const bool zonesFit = isValidCpiqGrid(m_cpiqRows, m_cpiqCols, m_image->width(),
                                          m_image->height());
    if (cpiqDue && !zonesFit) {
        m_cpiq = CpiqResult();
        m_cpiq.error = cpiqGridError(m_cpiqRows, m_cpiqCols, m_image->width(), m_image->height());
        m_cpiqDirty = false;
    }
    if (m_gridDirty) {
        if (!UniformityImage::isValidSubsample(m_subsample, m_image->width(), m_image->height())) {
            m_subsampleValid = false;
            m_errorTitle.clear();
            m_errorText = QString::fromLatin1(kUniformitySubsampleMessage);
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
        m_errorText.clear();
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
    return true;
}

} // namespace kestro
