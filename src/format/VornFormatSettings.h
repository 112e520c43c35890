// The options of one element of an output-format description, parsed and checked: how one value
// is written (text or raw bytes, which type, scaling, byte order, width, fill, notation, base).
#pragma once

#include <QMap>
#include <QString>
#include <QVariant>

#include "format/FormatMessages.h"

class VornFormatSettings
{
public:
    // Numbers are part of the interface: the value formatter switches on them.
    enum Type : int
    {
        String = 0,
        Int8 = 1,
        Int16 = 2,
        Int32 = 3,
        UInt8 = 4,
        UInt16 = 5,
        UInt32 = 6,
        Float32 = 7,
        Int64 = 8,
        UInt64 = 9,
    };
    enum DataEncoding : int
    {
        Ascii = 0,
        Binary = 1
    };
    enum Alignment : int
    {
        Left = 0,
        Right = 1
    };
    enum ByteOrder : unsigned int
    {
        LittleEndian = 0,
        BigEndian = 1
    };

    // The largest "width" and "precision" a description may ask for, as the format schema has them:
    // one value never allocates more than that, whatever a request holds.
    static constexpr int MaxWidth = 65535;
    static constexpr int MaxPrecision = 99;

    VornFormatSettings() = default;

    // Takes every valid option of the map and reports every bad, missing or unknown one on the
    // debug channel; a bad option keeps its default, so a partly wrong description still works.
    void loadSettingsFromVariants(QMap<QString, QVariant> const& options);
    // The same, with the reports kept in messages instead, for an element read once and used often.
    void loadSettingsFromVariants(QMap<QString, QVariant> const& options, FormatMessages& messages);

    bool isSigned() const;
    // The type's name as descriptions write it ("uint16").
    static QString typeName(Type type);

    Type type = String;
    DataEncoding dataEncoding = Ascii;
    float scale = 1.0f;
    float offset = 0.0f;
    unsigned int byteOrder = LittleEndian;
    int width = 0;
    char fill = ' ';
    int precision = 6;
    char displayFormat = 'f'; // 'f' fixed or 'e' scientific
    Alignment alignment = Right;
    char decimalSeparator = '.';
    int base = 10;
    bool numericFill = false;
};
