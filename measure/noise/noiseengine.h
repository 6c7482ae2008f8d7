#pragma once
// Per-patch noise measurement over a frame set.
//
// For every patch rectangle and every channel of the frames' format the engine
// gives the signal and the noise components (overall, temporal, fixed-pattern,
// row/column fixed-pattern and row/column temporal) as population standard
// deviations. Frames are accumulated one at a time: per pixel a running mean
// and sum of squared deviations (Welford), per patch row and column the same
// over the per-frame row and column means, so memory does not depend on the
// number of frames and a frame can be dropped as soon as it was added.

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <QVector>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

class CFrame;

namespace kestro {

// How a frame's samples are split into channels.
enum class NoiseLayout {
    Rgb,    // "R", "G", "B": sRGB bytes, decoded to linear light on a 0..255 scale
    Bayer,  // "BayerR", "BayerGr", "BayerGb", "BayerB": mosaic sites, raw DN minus black
    Single, // one sample per pixel
};

struct NoiseChannelResult
{
    QString name;
    double signal = 0.0;
    double overall = 0.0;  // RMS Dyn: sqrt(mean over pixels of sigma^2)
    double temporal = 0.0; // Avg Dyn: mean over pixels of sigma
    double fpn = 0.0;
    double columnFpn = 0.0;
    double rowFpn = 0.0;
    double columnTemporal = 0.0; // Col Dyn
    double rowTemporal = 0.0;    // Row Dyn
};

// One patch of the chart.
struct NoisePatchResult
{
    int frames = 0;
    NoiseLayout layout = NoiseLayout::Rgb;
    QVector<NoiseChannelResult> channels; // at most 6

    // The noise behind the SNR: Overall with two frames or more, FPN with
    // one (temporal noise cannot be seen in a single frame).
    double snrNoise(int channel) const;
    // Signal / snrNoise (infinite or NaN as the division gives).
    double snr(int channel) const;
    // 20 log10(snr).
    double snrDb(int channel) const;
};

// Why a noise calculation could not be done.
enum class NoiseError {
    None,
    InvalidFrame,    // a frame without usable sample data, or no frame at all
    FormatMismatch,  // a frame laid out differently from the first
    InvalidRegion,   // patches that do not lie inside the picture
    PatchesTooLarge, // accumulators beyond the memory bound of one calculation
    OutOfMemory,
};

// A failure with what its text names.
struct NoiseFailure
{
    NoiseFailure(NoiseError e = NoiseError::None, QVector<QRect> invalid = {},
                 unsigned long long needed = 0)
        : error(e)
        , regions(std::move(invalid))
        , bytes(needed)
    { }
    NoiseError error = NoiseError::None;
    QVector<QRect> regions;       // InvalidRegion: every invalid patch
    unsigned long long bytes = 0; // PatchesTooLarge: the memory needed
};

// The text the user sees for a failure (empty for None).
QString noiseErrorText(const NoiseFailure &failure);
// Shorthands for the texts of the two refusals of a frame set.
QString noiseFormatMismatchText(); // "Frames in the frameset do not have the same format. ..."
QString noiseInvalidFrameText();   // "Invalid frame data. Calculation cannot be performed."

// The engine's view of one frame: where its samples are and how to read them.
// Patch rectangles are given in picture coordinates; pictureOffset maps them
// onto the sample grid (raw frames: the picture is the mosaic less a 2-pixel
// border, so the offset is (2, 2)).
struct NoiseFrameData
{
    const std::uint8_t *data = nullptr;
    std::size_t size = 0; // bytes available at data
    int width = 0;        // sample grid
    int height = 0;
    int bytesPerLine = 0;
    int bytesPerPixel = 1; // 4 for RGB (B, G, R, A bytes); 1 or 2 otherwise
    NoiseLayout layout = NoiseLayout::Single;
    int bayerOrder = 0;      // 0 GR/BG, 1 RG/GB, 2 BG/GR, 3 GB/RG (top-left 2 x 2)
    double blackLevel = 0.0; // subtracted from raw samples
    QSize picture;           // region coordinate space
    QPoint pictureOffset;    // picture (0, 0) on the sample grid
    QString singleName = QStringLiteral("Mono");
    // Value of each 8-bit sample (RGB: sRGB decoding; indexed gray: palette
    // gray level; raw: DN minus black). Ignored for 2-byte samples.
    double lut[256] = {};

    // Fills the 8-bit lookup for the layout (identity minus black level, or
    // sRGB decoding scaled to 0..255 for RGB).
    void setDefaultLut();
};

// Describes a loaded frame for the engine. False for an invalid frame or a
// frame without usable sample data.
bool noiseFrameData(const CFrame &frame, NoiseFrameData *out);

// Streaming accumulator: start() with the first frame and the patch
// rectangles, add() every frame (the first one too), then results().
class NoiseAccumulator
{
public:
    NoiseAccumulator();
    ~NoiseAccumulator();
    NoiseAccumulator(const NoiseAccumulator &) = delete;
    NoiseAccumulator &operator=(const NoiseAccumulator &) = delete;

    // Sets up the accumulation for frames laid out like `first` (which is
    // not added). Patches are integer rectangles in picture coordinates; any
    // that does not lie inside the picture fails the start (InvalidRegion,
    // naming every such patch).
    bool start(const NoiseFrameData &first, const QVector<QRect> &patches);
    bool start(const CFrame &first, const QVector<QRect> &patches);

    // Adds one frame; fails (FormatMismatch) when it is not laid out like the
    // first.
    bool add(const NoiseFrameData &frame);
    bool add(const CFrame &frame);

    int frames() const { return m_frames; }
    QVector<NoisePatchResult> results() const;
    NoiseError error() const { return m_failure.error; }
    const NoiseFailure &failure() const { return m_failure; }
    QString errorMessage() const { return noiseErrorText(m_failure); }
    // Bytes held by the accumulators.
    std::size_t memoryBytes() const;

private:
    struct Channel;
    struct Patch;
    struct FrameFacts;
    bool sameLayout(const NoiseFrameData &frame) const;

    std::vector<Patch> m_patches;
    NoiseFrameData m_layout;
    FrameFacts *m_facts = nullptr;
    bool m_started = false;
    int m_frames = 0;
    NoiseFailure m_failure;
};

// Runs the whole calculation over a frame set. Every frame must be
// compatible with the first, since the per-pixel statistics pair up samples
// at the same place in every frame. On failure `failure` (or `error`, its
// text) says why and `results` is left unchanged.
bool measureNoise(const QList<const CFrame *> &frames, const QVector<QRect> &patches,
                  QVector<NoisePatchResult> *results, NoiseFailure *failure);
bool measureNoise(const QList<const CFrame *> &frames, const QVector<QRect> &patches,
                  QVector<NoisePatchResult> *results, QString *error);

} // namespace kestro
