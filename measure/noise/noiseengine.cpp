#include "measure/noise/noiseengine.h"

#include "imaging/demosaic.h"
#include "imaging/frame.h"
#include "imaging/region.h"
#include "imaging/srgb.h"

#include <QColor>
#include <QImage>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

namespace kestro {

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
// Upper bound of the per-site accumulators of one calculation.
const unsigned long long kMaxAccumulatorBytes = 4ull << 30;

// Mosaic position class (bayerPositionClass: 0 green on a red row, 1 red,
// 2 blue, 3 green on a blue row) of the channels BayerR, BayerGr, BayerGb,
// BayerB.
const int kBayerChannelClass[4] = {1, 0, 3, 2};

struct Welford
{
    // Adds x as the n-th value (inv = 1 / n).
    static inline void add(double &mean, double &m2, double x, double inv)
    {
        const double d = x - mean;
        mean += d * inv;
        m2 += d * (x - mean);
    }
};

} // namespace

QString noiseErrorText(const NoiseFailure &failure)
{
    switch (failure.error) {
    case NoiseError::None:
        break;
    case NoiseError::InvalidFrame:
        return QStringLiteral("Invalid frame data. Calculation cannot be performed.");
    case NoiseError::FormatMismatch:
        return QStringLiteral("Frames in the frameset do not have the same format. Calculation "
                              "cannot be performed.");
    case NoiseError::InvalidRegion: {
        QString text;
        for (const QRect &r : failure.regions)
            text += invalidRegionText(r);
        return text;
    }
    case NoiseError::PatchesTooLarge:
        return QStringLiteral("The patches are too large for the noise calculation (%1 MiB needed).")
                .arg(failure.bytes >> 20);
    case NoiseError::OutOfMemory:
        return QStringLiteral("Not enough memory for the noise calculation.");
    }
    return QString();
}

QString noiseFormatMismatchText()
{
    return noiseErrorText({NoiseError::FormatMismatch});
}

QString noiseInvalidFrameText()
{
    return noiseErrorText({NoiseError::InvalidFrame});
}

double NoisePatchResult::snrNoise(int channel) const
{
    if (channel < 0 || channel >= channels.size())
        return kNaN;
    const NoiseChannelResult &c = channels[channel];
    return frames >= 2 ? c.overall : c.fpn;
}

double NoisePatchResult::snr(int channel) const
{
    if (channel < 0 || channel >= channels.size())
        return kNaN;
    return channels[channel].signal / snrNoise(channel);
}

double NoisePatchResult::snrDb(int channel) const
{
    return 20.0 * std::log10(snr(channel));
}

void NoiseFrameData::setDefaultLut()
{
    for (int v = 0; v < 256; ++v) {
        if (layout == NoiseLayout::Rgb)
            lut[v] = srgbToLinear(v / 255.0) * 255.0;
        else
            lut[v] = v - blackLevel;
    }
}

bool noiseFrameData(const CFrame &frame, NoiseFrameData *out)
{
    if (!frame.isValid())
        return false;
    NoiseFrameData d;
    const QImage picture = frame.image();
    d.data = frame.data();
    if (!d.data || frame.dataSize() < 1)
        return false;
    d.size = static_cast<std::size_t>(frame.dataSize());
    d.width = frame.width();
    d.height = frame.height();
    d.bytesPerLine = frame.bytesPerLine();
    const bool raw = picture.isNull() || d.data != picture.constBits();
    if (raw) {
        // Raw samples are 16-bit little-endian words whatever the depth, rows
        // at the full width.
        d.bytesPerPixel = 2;
        d.bytesPerLine = d.width * 2;
        const int type = frame.imageType();
        d.blackLevel = frame.blackLevel();
        if (type == 0 || type == 4) {
            d.layout = NoiseLayout::Single;
            d.singleName = channelName(type, 0);
        } else {
            d.layout = NoiseLayout::Bayer;
            d.bayerOrder = frame.bayerOrder();
            if (d.bayerOrder < 0 || d.bayerOrder > 3)
                d.bayerOrder = 0; // as the display picture treats it
        }
        // The picture is demosaiced from the mosaic rounded down to even
        // sizes and loses two pixels on each side.
        d.picture = QSize((d.width & ~1) - 4, (d.height & ~1) - 4);
        d.pictureOffset = QPoint(2, 2);
        d.setDefaultLut();
    } else if (picture.format() == QImage::Format_ARGB32) {
        d.layout = NoiseLayout::Rgb;
        d.bytesPerPixel = 4;
        d.picture = picture.size();
        d.setDefaultLut();
    } else if (picture.format() == QImage::Format_Indexed8) {
        d.layout = NoiseLayout::Single;
        d.bytesPerPixel = 1;
        d.picture = picture.size();
        const QVector<QRgb> table = picture.colorTable();
        for (int v = 0; v < 256; ++v)
            d.lut[v] = v < table.size() ? qGray(table[v]) : v;
    } else {
        return false;
    }
    *out = d;
    return true;
}

// Accumulators of one channel of one patch. The channel's samples form a
// grid of nx x ny sites starting at (xs, ys) on the sample grid with the
// given step (2 for mosaic sites).
struct NoiseAccumulator::Channel
{
    QString name;
    int xs = 0, ys = 0, nx = 0, ny = 0, step = 1, byteOffset = 0;
    std::vector<double> mean, m2;       // per site over frames
    std::vector<double> colMean, colM2; // per column over the frames' column means
    std::vector<double> rowMean, rowM2; // per row over the frames' row means
    std::vector<double> colSum;         // scratch: column sums of the current frame

    void allocate()
    {
        const std::size_t n = static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny);
        mean.assign(n, 0.0);
        m2.assign(n, 0.0);
        colMean.assign(nx, 0.0);
        colM2.assign(nx, 0.0);
        rowMean.assign(ny, 0.0);
        rowM2.assign(ny, 0.0);
        colSum.assign(nx, 0.0);
    }

    template<typename Sample>
    void add(const NoiseFrameData &f, double inv, Sample sample)
    {
        if (nx <= 0 || ny <= 0)
            return;
        const std::size_t pixelStep = static_cast<std::size_t>(step) * f.bytesPerPixel;
        double *pm = mean.data();
        double *pm2 = m2.data();
        double *cs = colSum.data();
        for (int i = 0; i < ny; ++i) {
            const std::uint8_t *p = f.data
                                    + static_cast<std::size_t>(ys + i * step) * f.bytesPerLine
                                    + static_cast<std::size_t>(xs) * f.bytesPerPixel + byteOffset;
            double rowSum = 0.0;
            for (int j = 0; j < nx; ++j, p += pixelStep, ++pm, ++pm2) {
                const double v = sample(p);
                Welford::add(*pm, *pm2, v, inv);
                rowSum += v;
                cs[j] += v;
            }
            Welford::add(rowMean[i], rowM2[i], rowSum / nx, inv);
        }
        for (int j = 0; j < nx; ++j) {
            Welford::add(colMean[j], colM2[j], cs[j] / ny, inv);
            cs[j] = 0.0;
        }
    }

    NoiseChannelResult result(int frames) const
    {
        NoiseChannelResult r;
        r.name = name;
        const std::size_t count = mean.size();
        if (count == 0 || frames < 1) {
            r.signal = r.overall = r.temporal = r.fpn = kNaN;
            r.columnFpn = r.rowFpn = r.columnTemporal = r.rowTemporal = kNaN;
            return r;
        }
        const double n = frames;
        double sum = 0.0, var = 0.0, sd = 0.0;
        for (std::size_t k = 0; k < count; ++k) {
            sum += mean[k];
            const double v = std::max(m2[k], 0.0) / n;
            var += v;
            sd += std::sqrt(v);
        }
        const double signal = sum / count;
        double fpn = 0.0;
        for (std::size_t k = 0; k < count; ++k)
            fpn += (mean[k] - signal) * (mean[k] - signal);
        double colFpn = 0.0, colDyn = 0.0;
        for (int j = 0; j < nx; ++j) {
            colFpn += (colMean[j] - signal) * (colMean[j] - signal);
            colDyn += std::max(colM2[j], 0.0) / n;
        }
        double rowFpn = 0.0, rowDyn = 0.0;
        for (int i = 0; i < ny; ++i) {
            rowFpn += (rowMean[i] - signal) * (rowMean[i] - signal);
            rowDyn += std::max(rowM2[i], 0.0) / n;
        }
        r.signal = signal;
        r.overall = std::sqrt(var / count);
        r.temporal = sd / count;
        r.fpn = std::sqrt(fpn / count);
        r.columnFpn = std::sqrt(colFpn / nx);
        r.rowFpn = std::sqrt(rowFpn / ny);
        r.columnTemporal = std::sqrt(colDyn / nx);
        r.rowTemporal = std::sqrt(rowDyn / ny);
        return r;
    }

    std::size_t bytes() const
    {
        return (mean.capacity() + m2.capacity() + colMean.capacity() + colM2.capacity()
                + rowMean.capacity() + rowM2.capacity() + colSum.capacity())
               * sizeof(double);
    }
};

struct NoiseAccumulator::Patch
{
    std::vector<Channel> channels;
};

// What every frame must share with the first: the statistics pair up the
// samples at the same place in every frame, so the sample layout, the depth
// and the colour order must be the same.
struct NoiseAccumulator::FrameFacts
{
    std::uint32_t kind = 0;
    int dataSize = 0, width = 0, height = 0, bytesPerLine = 0, bitsPerPixel = 0, bayerOrder = 0,
        tag = 0;

    static FrameFacts of(const CFrame &f)
    {
        FrameFacts r;
        r.kind = f.kind();
        r.dataSize = f.dataSize();
        r.width = f.width();
        r.height = f.height();
        r.bytesPerLine = f.bytesPerLine();
        r.bitsPerPixel = f.bitsPerPixel();
        r.bayerOrder = f.bayerOrder();
        r.tag = f.tag();
        return r;
    }
    bool operator==(const FrameFacts &o) const
    {
        return kind == o.kind && dataSize == o.dataSize && width == o.width && height == o.height
               && bytesPerLine == o.bytesPerLine && bitsPerPixel == o.bitsPerPixel
               && bayerOrder == o.bayerOrder && tag == o.tag;
    }
};

NoiseAccumulator::NoiseAccumulator() = default;

NoiseAccumulator::~NoiseAccumulator()
{
    delete m_facts;
}

bool NoiseAccumulator::start(const NoiseFrameData &first, const QVector<QRect> &patches)
{
    m_started = false;
    m_frames = 0;
    m_patches.clear();
    m_failure = NoiseFailure();

    const bool rgb = first.layout == NoiseLayout::Rgb;
    if (!first.data || first.width < 1 || first.height < 1 || first.bytesPerLine < 1
        || (rgb ? first.bytesPerPixel != 4 : (first.bytesPerPixel != 1 && first.bytesPerPixel != 2))
        || static_cast<long long>(first.bytesPerLine)
                   < static_cast<long long>(first.width) * first.bytesPerPixel
        || static_cast<unsigned long long>(first.bytesPerLine)
                           * static_cast<unsigned long long>(first.height)
                   > first.size
        || first.bayerOrder < 0 || first.bayerOrder > 3) {
        m_failure = {NoiseError::InvalidFrame};
        return false;
    }

    const QRect pictureRect(QPoint(0, 0), first.picture);
    for (const QRect &r : patches) {
        const bool valid = !r.isNull() && !first.picture.isEmpty()
                           && pictureRect.contains(r.topLeft())
                           && pictureRect.contains(r.bottomRight());
        if (!valid)
            m_failure.regions.append(r);
    }
    if (!m_failure.regions.isEmpty()) {
        m_failure.error = NoiseError::InvalidRegion;
        return false;
    }
    const QRect grid(0, 0, first.width, first.height);

    m_patches.resize(patches.size());
    for (int p = 0; p < patches.size(); ++p) {
        const QRect r = patches[p].translated(first.pictureOffset);
        if (!grid.contains(r.topLeft()) || !grid.contains(r.bottomRight())) {
            m_patches.clear();
            m_failure = {NoiseError::InvalidFrame};
            return false;
        }
        std::vector<Channel> &channels = m_patches[p].channels;
        switch (first.layout) {
        case NoiseLayout::Rgb: {
            static const char *const names[3] = {"R", "G", "B"};
            for (int c = 0; c < 3; ++c) {
                Channel ch;
                ch.name = QLatin1String(names[c]);
                ch.xs = r.left();
                ch.ys = r.top();
                ch.nx = r.width();
                ch.ny = r.height();
                ch.byteOffset = 2 - c; // ARGB32 words are B, G, R, A in memory
                channels.push_back(ch);
            }
            break;
        }
        case NoiseLayout::Bayer:
            for (int c = 0; c < 4; ++c) {
                int px = 0, py = 0;
                for (int k = 0; k < 4; ++k) {
                    if (bayerPositionClass(first.bayerOrder, k & 1, k >> 1)
                        == kBayerChannelClass[c]) {
                        px = k & 1;
                        py = k >> 1;
                    }
                }
                Channel ch;
                ch.name = channelName(1, c);
                ch.step = 2;
                ch.xs = r.left() + ((px - r.left()) & 1);
                ch.ys = r.top() + ((py - r.top()) & 1);
                ch.nx = ch.xs <= r.right() ? (r.right() - ch.xs) / 2 + 1 : 0;
                ch.ny = ch.ys <= r.bottom() ? (r.bottom() - ch.ys) / 2 + 1 : 0;
                channels.push_back(ch);
            }
            break;
        case NoiseLayout::Single: {
            Channel ch;
            ch.name = first.singleName;
            ch.xs = r.left();
            ch.ys = r.top();
            ch.nx = r.width();
            ch.ny = r.height();
            channels.push_back(ch);
            break;
        }
        }
    }
    // Two running values per sample site; refuse patch sets that would not
    // fit rather than fail half-way.
    unsigned long long sites = 0;
    for (const Patch &patch : m_patches)
        for (const Channel &ch : patch.channels)
            sites += static_cast<unsigned long long>(ch.nx)
                     * static_cast<unsigned long long>(ch.ny);
    const unsigned long long bytes = sites * 2 * sizeof(double);
    if (bytes > kMaxAccumulatorBytes) {
        m_patches.clear();
        m_failure = {NoiseError::PatchesTooLarge, {}, bytes};
        return false;
    }
    try {
        for (Patch &patch : m_patches)
            for (Channel &ch : patch.channels)
                ch.allocate();
    } catch (const std::bad_alloc &) {
        m_patches.clear();
        m_failure = {NoiseError::OutOfMemory};
        return false;
    }
    m_layout = first;
    delete m_facts;
    m_facts = nullptr;
    m_started = true;
    return true;
}

bool NoiseAccumulator::start(const CFrame &first, const QVector<QRect> &patches)
{
    NoiseFrameData data;
    if (!noiseFrameData(first, &data)) {
        m_started = false;
        m_patches.clear();
        m_failure = {NoiseError::InvalidFrame};
        return false;
    }
    if (!start(data, patches))
        return false;
    m_facts = new FrameFacts(FrameFacts::of(first));
    return true;
}

bool NoiseAccumulator::sameLayout(const NoiseFrameData &f) const
{
    const NoiseFrameData &l = m_layout;
    return f.data && f.layout == l.layout && f.width == l.width && f.height == l.height
           && f.bytesPerLine == l.bytesPerLine && f.bytesPerPixel == l.bytesPerPixel
           && f.bayerOrder == l.bayerOrder && f.picture == l.picture
           && f.pictureOffset == l.pictureOffset
           && static_cast<unsigned long long>(f.bytesPerLine)
                              * static_cast<unsigned long long>(f.height)
                      <= f.size;
}

bool NoiseAccumulator::add(const NoiseFrameData &frame)
{
    if (!m_started) {
        m_failure = {NoiseError::InvalidFrame};
        return false;
    }
    if (!sameLayout(frame)) {
        m_failure = {NoiseError::FormatMismatch};
        return false;
    }
    ++m_frames;
    const double inv = 1.0 / m_frames;
    const double black = frame.blackLevel;
    for (Patch &patch : m_patches) {
        for (Channel &ch : patch.channels) {
            if (frame.bytesPerPixel == 2) {
                ch.add(frame, inv, [black](const std::uint8_t *p) {
                    std::uint16_t v;
                    std::memcpy(&v, p, 2);
                    return static_cast<double>(v) - black;
                });
            } else {
                const double *lut = frame.lut;
                ch.add(frame, inv, [lut](const std::uint8_t *p) { return lut[*p]; });
            }
        }
    }
    return true;
}

bool NoiseAccumulator::add(const CFrame &frame)
{
    if (!m_started) {
        m_failure = {NoiseError::InvalidFrame};
        return false;
    }
    if (m_facts && !(frame.isValid() && FrameFacts::of(frame) == *m_facts)) {
        m_failure = {NoiseError::FormatMismatch};
        return false;
    }
    NoiseFrameData data;
    if (!noiseFrameData(frame, &data)) {
        m_failure = {NoiseError::InvalidFrame};
        return false;
    }
    return add(data);
}

QVector<NoisePatchResult> NoiseAccumulator::results() const
{
    QVector<NoisePatchResult> out;
    out.reserve(static_cast<int>(m_patches.size()));
    for (const Patch &patch : m_patches) {
        NoisePatchResult r;
        r.frames = m_frames;
        r.layout = m_layout.layout;
        for (const Channel &ch : patch.channels)
            r.channels.append(ch.result(m_frames));
        out.append(r);
    }
    return out;
}

std::size_t NoiseAccumulator::memoryBytes() const
{
    std::size_t total = 0;
    for (const Patch &patch : m_patches)
        for (const Channel &ch : patch.channels)
            total += ch.bytes();
    return total;
}

bool measureNoise(const QList<const CFrame *> &frames, const QVector<QRect> &patches,
                  QVector<NoisePatchResult> *results, NoiseFailure *failure)
{
    auto refuse = [failure](const NoiseFailure &why) {
        if (failure)
            *failure = why;
        return false;
    };
    if (frames.isEmpty() || !frames.first() || !frames.first()->isValid())
        return refuse({NoiseError::InvalidFrame});
    const CFrame &first = *frames.first();
    for (const CFrame *frame : frames) {
        if (!frame || !frame->isCompatible(first))
            return refuse({NoiseError::FormatMismatch});
    }
    NoiseAccumulator acc;
    if (!acc.start(first, patches))
        return refuse(acc.failure());
    for (const CFrame *frame : frames) {
        if (!acc.add(*frame))
            return refuse(acc.failure());
    }
    if (results)
        *results = acc.results();
    if (failure)
        *failure = NoiseFailure();
    return true;
}

bool measureNoise(const QList<const CFrame *> &frames, const QVector<QRect> &patches,
                  QVector<NoisePatchResult> *results, QString *error)
{
    NoiseFailure failure;
    const bool ok = measureNoise(frames, patches, results, &failure);
    if (error)
        *error = noiseErrorText(failure);
    return ok;
}

} // namespace kestro
