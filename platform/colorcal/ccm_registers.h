#pragma once
// Colour correction as sensor registers: the fixed-point formats of the
// registers, rounding a matrix so that every row still sums to exactly one,
// the sensor's description of its colour-correction registers, and the INI
// preset file edit that replaces one section and keeps every other byte.
//
// A sensor data file describes its colour correction in a group of its own:
//
//   [ColorCorrection]
//   Matrix=CCM_RR,CCM_RG,CCM_RB,CCM_GR,CCM_GG,CCM_GB,CCM_BR,CCM_BG,CCM_BB
//   MatrixFormat=S7.8
//   Gains=DIGITAL_GAIN_RED,DIGITAL_GAIN_GREEN,DIGITAL_GAIN_BLUE
//   GainFormat=U4.8
//
// The matrix registers row by row (red, green, blue output), the white-
// balance gain registers (red, green, blue), each with its number format:
// U unsigned, S two's complement, SM sign and magnitude (the top bit is the
// sign), then integer bits "." fraction bits; the sign bit is not counted
// (S7.8 is 16 bits wide and 1.0 is 256). The registers themselves (address,
// width) are those of the sensor's register map.

#include "ccm.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <array>

struct tl_camera_t;

namespace kestro::ccm {

struct FixedFormat
{
    enum Kind { Unsigned, TwosComplement, SignMagnitude };
    Kind kind = TwosComplement;
    int integerBits = 0;
    int fractionBits = 0;

    // "S7.8", "SM3.10", "U4.8"; false for anything else or more than 32 bits.
    static bool parse(const QString &text, FixedFormat *format);
    QString text() const;
    int bits() const { return (kind == Unsigned ? 0 : 1) + integerBits + fractionBits; }
    long long one() const { return 1LL << fractionBits; }
    long long maxCode() const { return (1LL << (integerBits + fractionBits)) - 1; }
    long long minCode() const
    {
        return kind == Unsigned ? 0 : kind == TwosComplement ? -maxCode() - 1 : -maxCode();
    }
    // The register value of a code in [minCode(), maxCode()], and back.
    unsigned int encode(long long code) const;
    long long decode(unsigned int value) const;
};

using CodeRow = std::array<long long, 3>;

// Rounds each row to codes of `format` whose sum is exactly format.one(): the
// nearest codes, then the one or two codes nearest to a rounding boundary
// moved by one step where the row sum is off. False, with the reason, when a
// coefficient does not fit the format or a row does not sum to one.
bool quantizeMatrix(const Mat3 &matrix, const FixedFormat &format, std::array<CodeRow, 3> *codes,
                    QString *why);

struct RegisterField
{
    QString name;
    unsigned int address = 0;
    int bits = 0;
};

struct SensorCorrectionRegisters
{
    QString sensorDataFile; // base name, for messages
    std::array<RegisterField, 9> matrix;
    FixedFormat matrixFormat;
    std::array<RegisterField, 3> gains;
    FixedFormat gainFormat;
};

// Finds the sensor data file of the camera's sensor (name, revision and part
// id as identified) in the camera library's sensor data folder and reads its
// colour-correction group, checked against the camera's register map. False,
// with a sentence saying what is missing, otherwise.
bool describeSensorCorrection(tl_camera_t *camera, SensorCorrectionRegisters *out, QString *why);

// Replaces every section [name] of an INI text by one section with `lines`
// (written with the text's own line ending): the first where it stood, later
// ones dropped. A section runs from its header to its last line that is not
// blank or a comment; blank and comment lines after it stay, as they usually
// introduce what follows. Without such a section, it is appended after a
// blank line. Every other byte of the text is kept.
QByteArray replaceIniSection(const QByteArray &text, const QByteArray &name,
                             const QList<QByteArray> &lines);

// Reads an existing INI file for editing (empty when there is none yet) and
// writes it back through a temporary file renamed into place. False, with the
// reason, when the path is not a regular file, is read-only, too large, or
// cannot be read or written; the file is then as it was.
bool readIniForEdit(const QString &path, QByteArray *text, QString *why);
bool writeIniAtomically(const QString &path, const QByteArray &text, QString *why);

} // namespace kestro::ccm
