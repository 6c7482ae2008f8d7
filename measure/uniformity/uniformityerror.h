#pragma once
// The failures of the uniformity calculation: a code for each, and the one
// function that turns a failure into the text the user sees.

#include <QString>
#include <utility>

namespace kestro {

// Message and titles the page shows.
extern const char kUniformitySubsampleMessage[];
extern const char kUniformityLoadFailureTitle[];   // "File load failure"
extern const char kUniformityInvalidFormatTitle[]; // "Invalid format"

// Why a uniformity calculation could not be done.
enum class UniformityError {
    None,
    LoadFailure,          // the file could not be read as a picture
    InvalidFormat,        // a picture that is not 32-bit RGB, ARGB or premultiplied ARGB
    InvalidSubsample,     // subsample size outside 1 .. min(width / 8, height / 8)
    InvalidCenterPercent, // centre percentage outside 0..100
    InvalidCornerPercent, // corner percentage outside 0..100
    InvalidCpiqGrid,      // a CPIQ zone grid that the picture cannot hold
    NoCpiqZones,          // CPIQ values asked for without zone means
    NoImage,              // no valid RGB picture
};

// A failure with what its text names.
struct UniformityFailure
{
    UniformityFailure(UniformityError e = UniformityError::None, QString file = QString(),
                      int percent = 0, int rows = 0, int cols = 0, int w = 0, int h = 0)
        : error(e)
        , fileName(std::move(file))
        , value(percent)
        , zoneRows(rows)
        , zoneCols(cols)
        , width(w)
        , height(h)
    { }
    UniformityError error = UniformityError::None;
    QString fileName; // LoadFailure, InvalidFormat
    int value = 0;    // InvalidCenterPercent, InvalidCornerPercent: the percentage
    int zoneRows = 0; // InvalidCpiqGrid: the zone grid and the picture
    int zoneCols = 0;
    int width = 0;
    int height = 0;
};

// The text the user sees for a failure (empty for None), and the title of
// its message box ("File load failure", "Invalid format", otherwise empty).
QString uniformityErrorText(const UniformityFailure &failure);
QString uniformityErrorTitle(UniformityError error);

// Shorthands for the texts of the two load failures.
QString uniformityLoadFailureText(const QString &fileName);
QString uniformityInvalidFormatText(const QString &fileName);

// Centre and corner percentages from 0 to 100 are measured; 0 gives empty
// windows (NaN values).
bool isValidUniformityPercent(int percent);

} // namespace kestro
