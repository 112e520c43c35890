// Turns one value of a result into the bytes of one output element: text or raw bytes, scaled,
// clamped, in the requested byte order, base, notation and field width.
#pragma once

#include <string>

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariant>

class VornFormatSettings;

class VornFormatter
{
public:
    // What writing a value did to it where the bytes are not the value as asked for; a set of bits.
    enum Effect : unsigned
    {
        Defaulted = 1u << 0,       // no value: 0 or an empty text written
        NoNumber = 1u << 1,        // a value that is no number: 0 written
        NotANumber = 1u << 2,      // NaN for an integer: 0 written
        Clamped = 1u << 3,         // beyond the type's range: the nearer end of it written
        FractionCut = 1u << 4,     // the fraction dropped toward zero
        FractionRounded = 1u << 5, // the fraction rounded, as a 64-bit integer is read from a fraction
        Wrapped = 1u << 6,         // a 64-bit integer of the other sign: its 64 bits written as they are
        Infinite = 1u << 7,        // beyond float32: written as infinity
        Wider = 1u << 8,           // a text longer than its width: written whole
    };

    // Never fails: unsuitable values become 0 or empty text, out-of-range numbers are clamped, and
    // an unknown type yields an empty result and a message on the debug channel.
    static QByteArray formatValue(QVariant const& value, QMap<QString, QVariant> const& options);
    // The same with the options already read, as a prepared description holds them.
    static QByteArray formatValue(QVariant const& value, VornFormatSettings const& settings);
    // Appends the bytes formatValue makes to out, without a buffer of their own, and adds to
    // `effects` (when given) what was done to the value.
    static void formatInto(QVariant const& value, VornFormatSettings const& settings, std::string& out,
                           unsigned* effects = nullptr);

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

private:
    template <typename T>
    static void writeNumber(QVariant const& value, VornFormatSettings const& settings, std::string& out,
                            unsigned& effects);
    template <typename T>
    static void writeInt64(QVariant const& value, VornFormatSettings const& settings, std::string& out,
                           unsigned& effects);
    static void writeText(QVariant const& value, VornFormatSettings const& settings, std::string& out,
                          unsigned& effects);
    // Pads the text that starts at `from` to the end of out, as handleAsciiFieldWidthAndAlignment.
    static void pad(std::string& out, size_t from, VornFormatSettings const& settings, unsigned& effects);
};
