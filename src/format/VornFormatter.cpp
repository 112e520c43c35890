#include "format/VornFormatter.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include <QDebug>

#include "format/VariantText.h"
#include "format/VornFormatSettings.h"

namespace {

// Little-endian bytes of an unsigned integer image, reversed for a big-endian client.
QByteArray toBytes(uint64_t bits, int width, unsigned int byteOrder)
{
    QByteArray bytes(width, '\0');
    for (int i = 0; i < width; ++i)
        bytes[i] = static_cast<char>((bits >> (8 * i)) & 0xFF);
    if (byteOrder == VornFormatSettings::BigEndian)
        std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

template <typename T> uint64_t bitsOf(T value)
{
    if constexpr (std::is_same_v<T, float>) {
        uint32_t bits;
        memcpy(&bits, &value, sizeof bits);
        return bits;
    } else {
        return static_cast<uint64_t>(static_cast<std::make_unsigned_t<T>>(value));
    }
}

// Converts without undefined behaviour: NaN gives 0, everything else saturates to T's range.
template <typename T> T saturate(double x)
{
    if (std::isnan(x))
        return 0;
    if (x <= static_cast<double>(std::numeric_limits<T>::lowest()))
        return std::numeric_limits<T>::lowest();
    // The maximum of a 64-bit type is not exactly representable as a double; compare against 2^N.
    if (x >= std::ldexp(1.0, std::numeric_limits<T>::digits))
        return std::numeric_limits<T>::max();
    return static_cast<T>(x);
}

float toFloat32(double x)
{
    if (x > FLT_MAX)
        return std::numeric_limits<float>::infinity();
    if (x < -FLT_MAX)
        return -std::numeric_limits<float>::infinity();
    return static_cast<float>(x);
}

// Qt writes negative numbers of other bases as their two's complement; clients get sign and magnitude.
QByteArray integerText(long long value, int base)
{
    // The magnitude of the smallest value is computed unsigned, where it does not overflow.
    unsigned long long const magnitude =
        value < 0 ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
    QByteArray text = QByteArray::number(magnitude, base);
    if (value < 0)
        text.prepend('-');
    return text;
}

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

int hexValue(char c)
{
    if (c <= '9')
        return c - '0';
    return (c | 0x20) - 'a' + 10;
}

template <typename T> T variantToInt64(QVariant const& value)
{
    if (value.userType() == QMetaType::LongLong || value.userType() == QMetaType::ULongLong)
        return static_cast<T>(std::is_signed_v<T> ? value.toLongLong() : value.toULongLong());
    if (value.userType() == QMetaType::Double || value.userType() == QMetaType::Float) {
        // Qt rounds doubles; beyond the 64-bit range its conversion is undefined, so saturate first.
        double const d = value.toDouble();
        if (!std::isfinite(d) || std::fabs(d) >= 9.2e18)
            return saturate<T>(d);
    }
    bool ok = false;
    T const converted = static_cast<T>(std::is_signed_v<T> ? value.toLongLong(&ok) : value.toULongLong(&ok));
    return ok ? converted : 0;
}

} // namespace

QByteArray VornFormatter::formatValue(QVariant const& value, QMap<QString, QVariant> const& options)
{
    VornFormatSettings settings;
    settings.loadSettingsFromVariants(options);
    return formatValue(value, settings);
}

QByteArray VornFormatter::formatValue(QVariant const& value, VornFormatSettings const& settings)
{
    switch (settings.type) {
    case VornFormatSettings::Int8:
        return intToBytes<signed char>(value, settings);
    case VornFormatSettings::Int16:
        return intToBytes<short>(value, settings);
    case VornFormatSettings::Int32:
        return intToBytes<int>(value, settings);
    case VornFormatSettings::UInt8:
        return intToBytes<unsigned char>(value, settings);
    case VornFormatSettings::UInt16:
        return intToBytes<unsigned short>(value, settings);
    case VornFormatSettings::UInt32:
        return intToBytes<unsigned int>(value, settings);
    case VornFormatSettings::Float32:
        return intToBytes<float>(value, settings);
    case VornFormatSettings::Int64:
        return int64ToBytes<long long>(value, settings);
    case VornFormatSettings::UInt64:
        return int64ToBytes<unsigned long long>(value, settings);
    case VornFormatSettings::String:
        return handleAsciiFieldWidthAndAlignment(decodeHexEscapes(variantText(value).toUtf8()), settings);
    }
    qCritical() << "Called VornFormatter::formatValue with unsupported type:"
                << static_cast<int>(settings.type);
    return QByteArray();
}

template <typename T>
QByteArray VornFormatter::intToBytes(QVariant const& value, VornFormatSettings const& settings)
{
    double x = static_cast<double>(settings.offset) + value.toDouble() * static_cast<double>(settings.scale);

    if constexpr (std::is_same_v<T, float>) {
        if (settings.dataEncoding == VornFormatSettings::Binary)
            return toBytes(bitsOf(toFloat32(x)), sizeof(float), settings.byteOrder);
        QString text = QString::number(x, settings.displayFormat, settings.precision);
        text.replace(QLatin1Char('.'), QLatin1Char(settings.decimalSeparator));
        return handleAsciiFieldWidthAndAlignment(text.toLatin1(), settings);
    } else {
        T const clamped = saturate<T>(x);
        if (settings.dataEncoding == VornFormatSettings::Binary)
            return toBytes(bitsOf(clamped), sizeof(T), settings.byteOrder);
        return handleAsciiFieldWidthAndAlignment(integerText(clamped, settings.base), settings);
    }
}

template <typename T>
QByteArray VornFormatter::int64ToBytes(QVariant const& value, VornFormatSettings const& settings)
{
    T number = variantToInt64<T>(value);
    if (settings.scale != 1.0f || settings.offset != 0.0f) {
        float const scaled = settings.offset + settings.scale * static_cast<float>(number);
        number = saturate<T>(static_cast<double>(scaled));
    }

    if (settings.dataEncoding == VornFormatSettings::Binary)
        return toBytes(static_cast<uint64_t>(number), 8, settings.byteOrder);
    QByteArray const text = std::is_signed_v<T>
                                ? integerText(number, settings.base)
                                : QByteArray::number(static_cast<qulonglong>(number), settings.base);
    return handleAsciiFieldWidthAndAlignment(text, settings);
}

template QByteArray VornFormatter::intToBytes<int>(QVariant const&, VornFormatSettings const&);
template QByteArray VornFormatter::intToBytes<unsigned int>(QVariant const&, VornFormatSettings const&);
template QByteArray VornFormatter::intToBytes<float>(QVariant const&, VornFormatSettings const&);
template QByteArray VornFormatter::intToBytes<signed char>(QVariant const&, VornFormatSettings const&);
template QByteArray VornFormatter::intToBytes<short>(QVariant const&, VornFormatSettings const&);
template QByteArray VornFormatter::intToBytes<unsigned char>(QVariant const&, VornFormatSettings const&);
template QByteArray VornFormatter::intToBytes<unsigned short>(QVariant const&, VornFormatSettings const&);
template QByteArray VornFormatter::int64ToBytes<long long>(QVariant const&, VornFormatSettings const&);
template QByteArray VornFormatter::int64ToBytes<unsigned long long>(QVariant const&,
                                                                    VornFormatSettings const&);

QByteArray VornFormatter::handleAsciiFieldWidthAndAlignment(QByteArray const& text,
                                                            VornFormatSettings const& settings)
{
    QByteArray result = text;
    if (settings.numericFill && settings.type != VornFormatSettings::String && !text.isEmpty()) {
        int signLength = 0;
        if (settings.isSigned()) {
            if (!result.startsWith('-'))
                result.prepend('+');
            signLength = 1;
        }
        if (settings.width > result.size())
            result.insert(signLength, QByteArray(settings.width - result.size(), '0'));
        return result;
    }

    if (settings.width > result.size()) {
        QByteArray const padding(settings.width - result.size(), settings.fill);
        if (settings.alignment == VornFormatSettings::Left)
            result.append(padding);
        else
            result.prepend(padding);
    }
    return result;
}

QByteArray VornFormatter::decodeHexEscapes(QByteArray bytes)
{
    int from = 0;
    for (;;) {
        int const found = bytes.indexOf("\\x", from);
        if (found < 0 || bytes.size() - (found + 2) < 2)
            break;
        char const high = bytes.at(found + 2);
        char const low = bytes.at(found + 3);
        if (isHexDigit(high) && isHexDigit(low))
            bytes.replace(found, 4, QByteArray(1, static_cast<char>(hexValue(high) * 16 + hexValue(low))));
        from = found + 1;
    }
    return bytes;
}
