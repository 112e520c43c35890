// Turns one value of a result into the bytes of one output element: text or raw bytes, scaled,
// clamped, in the requested byte order, base, notation and field width.
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariant>

class VornFormatSettings;

class VornFormatter
{
public:
    // Never fails: unsuitable values become 0 or empty text, out-of-range numbers are clamped, and
    // an unknown type yields an empty result and a message on the debug channel.
    static QByteArray formatValue(QVariant const& value, QMap<QString, QVariant> const& options);
    // The same with the options already read, as a prepared description holds them.
    static QByteArray formatValue(QVariant const& value, VornFormatSettings const& settings);

    // For the 8-, 16- and 32-bit integers and float32: scaled in double precision, then clamped.
    template <typename T>
    static QByteArray intToBytes(QVariant const& value, VornFormatSettings const& settings);
    // For int64 and uint64: unscaled values keep every bit; scaled ones go through single precision.
    template <typename T>
    static QByteArray int64ToBytes(QVariant const& value, VornFormatSettings const& settings);

    // Sign and zero padding for numeric fill, else fill-character padding by alignment; never cuts.
    static QByteArray handleAsciiFieldWidthAndAlignment(QByteArray const& text,
                                                        VornFormatSettings const& settings);

    // Replaces each backslash-x followed by two hexadecimal digits with the byte they encode.
    static QByteArray decodeHexEscapes(QByteArray bytes);
};
