#pragma once
// The uniformity calculation of a flat-field image: one channel reduced to a
// grid of block means (UniformityData), its statistics, the centre value and
// the four corner values with their drop-off labels. UniformityCalculation
// holds the page's inputs and recomputes, in the order grid, statistics,
// centre, corners, only what a change made stale.

#include "measure/uniformity/cpiq.h"
#include "measure/uniformity/uniformitydata.h"
#include "measure/uniformity/uniformityerror.h"
#include "measure/uniformity/uniformityimage.h"

#include <QString>
#include <array>
#include <memory>

namespace kestro {

// Everything shown or reported for one channel's grid.
struct UniformitySummary
{
    int cols = 0;
    int rows = 0;
    double minimum = 0.0;
    double maximum = 0.0;
    double sum = 0.0;
    double mean = 0.0;
    double center = 0.0;
    std::array<double, 4> corners{}; // in UniformityCorner order
    std::array<QString, 4> labels;
};

// Centre, then corners and labels, of the grid in `data`, for centre and
// corner percentages (stores the windows in `data` for drawing).
UniformitySummary summariseUniformity(UniformityData &data, int centerPercent, int cornerPercent);

// Summaries of the grids of a pass (the empty ones stay default), the
// channels side by side on the worker pool; the grids are left in the pass.
std::array<UniformitySummary, 4> summariseChannels(UniformityPass &pass, int centerPercent,
                                                   int cornerPercent);

class UniformityCalculation
{
public:
    enum LoadResult { Loaded, LoadFailed, InvalidFormat };

    UniformityCalculation();

    // Loads a picture; on failure the previous picture stays and errorTitle()
    // and errorText() tell why.
    LoadResult loadImage(const QString &path);
    LoadResult setImage(const QImage &image, const QString &fileName);
    bool hasImage() const { return m_image != nullptr; }
    const UniformityImage *image() const { return m_image.get(); }
    QString fileName() const { return m_fileName; }

    void setChannel(UniformityChannel channel);
    UniformityChannel channel() const { return m_channel; }
    void setSubsampleSize(int size);
    int subsampleSize() const { return m_subsample; }
    void setCenterPercent(int percent);
    int centerPercent() const { return m_centerPercent; }
    void setCornerPercent(int percent);
    int cornerPercent() const { return m_cornerPercent; }

    // CPIQ colour-uniformity zones, computed by update() while enabled.
    void setCpiqEnabled(bool enabled);
    bool cpiqEnabled() const { return m_cpiqEnabled; }
    void setCpiqZones(int rows, int cols);
    int cpiqRows() const { return m_cpiqRows; }
    int cpiqCols() const { return m_cpiqCols; }
    const CpiqResult &cpiq() const { return m_cpiq; }

    // Brings the results up to date. With an invalid subsample size it sets
    // the subsampling message, clears the valid flag and changes nothing
    // else; returns false then (and when there is no picture). The CPIQ
    // zones are brought up to date in any case while enabled. A centre or
    // corner percentage outside 0..100 is refused the same way, before
    // anything is computed.
    bool update();
    bool isSubsampleValid() const { return m_subsampleValid; }

    // The last failure (None after a successful update).
    UniformityError error() const { return m_failure.error; }
    QString errorTitle() const { return uniformityErrorTitle(m_failure.error); }
    QString errorText() const { return uniformityErrorText(m_failure); }

    // Results of the last update(): centre value (0 until computed), corner
    // values and labels.
    double centerValue() const { return m_summary.center; }
    const UniformitySummary &summary() const { return m_summary; }
    UniformityData &data() { return m_data; }
    const UniformityData &data() const { return m_data; }

private:
    std::unique_ptr<UniformityImage> m_image;
    QString m_fileName;
    UniformityChannel m_channel = UniformityChannel::Y;
    int m_subsample = 10;
    int m_centerPercent = 10;
    int m_cornerPercent = 10;
    bool m_gridDirty = true;
    bool m_centerDirty = true;
    bool m_cornersDirty = true;
    bool m_subsampleValid = false;
    bool m_cpiqEnabled = false;
    bool m_cpiqDirty = true;
    int m_cpiqRows = kCpiqDefaultRows;
    int m_cpiqCols = kCpiqDefaultCols;
    CpiqResult m_cpiq;
    UniformityFailure m_failure;
    UniformityData m_data;
    UniformitySummary m_summary;
    // The last pass; its grid memory (the previous grid, swapped out of
    // m_data) is written over by the next recompute.
    UniformityPass m_pass;
};

} // namespace kestro
