#include "format/VornFormatter.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include <QDebug>

#include "format/DecimalText.h"
#include "format/VariantText.h"
#include "format/VornFormatSettings.h"

namespace {

// Little-endian bytes of an unsigned integer image, reversed for a big-endian client.
void appendBytes(std::string& out, uint64_t bits, int width, unsigned int byteOrder)
{
    char bytes[8];
    for (int i = 0; i < width; ++i)
        bytes[i] = static_cast<char>((bits >> (8 * i)) & 0xFF);
    if (byteOrder == VornFormatSettings::BigEndian)
        std::reverse(bytes, bytes + width);
    out.append(bytes, size_t(width));
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

// Converts without undefined behaviour: NaN gives 0, everything else saturates to T's range; says
// which of these happened, and when a fraction went.
template <typename T> T saturate(double x, unsigned& effects)
{
    if (std::isnan(x)) {
        effects |= VornFormatter::NotANumber;
        return 0;
    }
    if (x <= static_cast<double>(std::numeric_limits<T>::lowest())) {
        if (x < static_cast<double>(std::numeric_limits<T>::lowest()))
            effects |= VornFormatter::Clamped;
        return std::numeric_limits<T>::lowest();
    }
    // The maximum of a 64-bit type is not exactly representable as a double; compare against 2^N.
    if (x >= std::ldexp(1.0, std::numeric_limits<T>::digits)) {
        effects |= VornFormatter::Clamped;
        return std::numeric_limits<T>::max();
    }
    if (x != std::trunc(x))
        effects |= VornFormatter::FractionCut;
    return static_cast<T>(x);
}

float toFloat32(double x, unsigned& effects)
{
    if (std::fabs(x) > FLT_MAX) {
        effects |= VornFormatter::Infinite;
        return x > 0 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
    }
    return static_cast<float>(x);
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

// The escapes of the text that starts at `from`, decoded in place.
void decodeEscapes(std::string& text, size_t from)
{
    for (;;) {
        size_t const found = text.find("\\x", from);
        if (found == std::string::npos || text.size() - (found + 2) < 2)
            break;
        char const high = text[found + 2];
        char const low = text[found + 3];
        if (isHexDigit(high) && isHexDigit(low))
            text.replace(found, 4, 1, static_cast<char>(hexValue(high) * 16 + hexValue(low)));
        from = found + 1;
    }
}

bool isMissing(QVariant const& value)
{
    return !value.isValid() || value.isNull();
}

// As Qt reads a 64-bit integer from a variant: exactly from one, rounded from a double, 0 from what
// is no number. Says what that did to the value.
template <typename T> T variantToInt64(QVariant const& value, unsigned& effects)
{
    int const type = value.userType();
    if (type == QMetaType::LongLong || type == QMetaType::ULongLong) {
        bool const otherSign = std::is_signed_v<T> ? type == QMetaType::ULongLong && value.toLongLong() < 0
                                                   : type == QMetaType::LongLong && value.toLongLong() < 0;
        if (otherSign)
            effects |= VornFormatter::Wrapped;
        return static_cast<T>(std::is_signed_v<T> ? value.toLongLong() : value.toULongLong());
    }
    if (type == QMetaType::Double || type == QMetaType::Float) {
        // Qt rounds doubles; beyond the 64-bit range its conversion is undefined, so saturate first.
        double const d = value.toDouble();
        if (!std::isfinite(d) || std::fabs(d) >= 9.2e18)
            return saturate<T>(d, effects);
        if (d != std::trunc(d))
            effects |= VornFormatter::FractionRounded;
        if (!std::is_signed_v<T> && qRound64(d) < 0)
            effects |= VornFormatter::Wrapped;
    }
    bool ok = false;
    T const converted = static_cast<T>(std::is_signed_v<T> ? value.toLongLong(&ok) : value.toULongLong(&ok));
    // Qt reads a text that is no whole number ("12.5") as 0 and calls that a success.
    bool strict = true;
    if (type == QMetaType::QString)
        value.toString().toLongLong(&strict);
    if (isMissing(value))
        effects |= VornFormatter::Defaulted;
    else if (!ok || !strict)
        effects |= VornFormatter::NoNumber;
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
    std::string out;
    formatInto(value, settings, out);
    return QByteArray(out.data(), static_cast<int>(out.size()));
}

void VornFormatter::formatInto(QVariant const& value, VornFormatSettings const& settings, std::string& out,
                               unsigned* effects)
{
    unsigned done = 0;
    switch (settings.type) {
    case VornFormatSettings::Int8:
        writeNumber<signed char>(value, settings, out, done);
        break;
    case VornFormatSettings::Int16:
        writeNumber<short>(value, settings, out, done);
        break;
    case VornFormatSettings::Int32:
        writeNumber<int>(value, settings, out, done);
        break;
    case VornFormatSettings::UInt8:
        writeNumber<unsigned char>(value, settings, out, done);
        break;
    case VornFormatSettings::UInt16:
        writeNumber<unsigned short>(value, settings, out, done);
        break;
    case VornFormatSettings::UInt32:
        writeNumber<unsigned int>(value, settings, out, done);
        break;
    case VornFormatSettings::Float32:
        writeNumber<float>(value, settings, out, done);
        break;
    case VornFormatSettings::Int64:
        writeInt64<long long>(value, settings, out, done);
        break;
    case VornFormatSettings::UInt64:
        writeInt64<unsigned long long>(value, settings, out, done);
        break;
    case VornFormatSettings::String:
        writeText(value, settings, out, done);
        break;
    default:
        qCritical() << "Called VornFormatter::formatValue with unsupported type:"
                    << static_cast<int>(settings.type);
    }
    if (effects != nullptr)
        *effects |= done;
}

template <typename T>
void VornFormatter::writeNumber(QVariant const& value, VornFormatSettings const& settings, std::string& out,
                                unsigned& effects)
{
    bool number = false;
    double const read = value.toDouble(&number);
    if (isMissing(value))
        effects |= Defaulted;
    else if (!number)
        effects |= NoNumber;
    double const x = static_cast<double>(settings.offset) + read * static_cast<double>(settings.scale);
    size_t const from = out.size();

    if constexpr (std::is_same_v<T, float>) {
        if (settings.dataEncoding == VornFormatSettings::Binary) {
            appendBytes(out, bitsOf(toFloat32(x, effects)), sizeof(float), settings.byteOrder);
            return;
        }
        DecimalText::appendDouble(out, x, settings.displayFormat, settings.precision);
        if (settings.decimalSeparator != '.')
            std::replace(out.begin() + long(from), out.end(), '.', settings.decimalSeparator);
    } else {
        T const clamped = saturate<T>(x, effects);
        if (settings.dataEncoding == VornFormatSettings::Binary) {
            appendBytes(out, bitsOf(clamped), sizeof(T), settings.byteOrder);
            return;
        }
        DecimalText::appendInteger(out, clamped, settings.base);
    }
    pad(out, from, settings, effects);
}

template <typename T>
void VornFormatter::writeInt64(QVariant const& value, VornFormatSettings const& settings, std::string& out,
                               unsigned& effects)
{
    T number = variantToInt64<T>(value, effects);
    if (settings.scale != 1.0f || settings.offset != 0.0f) {
        float const scaled = settings.offset + settings.scale * static_cast<float>(number);
        number = saturate<T>(static_cast<double>(scaled), effects);
    }
    if (settings.dataEncoding == VornFormatSettings::Binary) {
        appendBytes(out, static_cast<uint64_t>(number), 8, settings.byteOrder);
        return;
    }
    size_t const from = out.size();
    if constexpr (std::is_signed_v<T>)
        DecimalText::appendInteger(out, number, settings.base);
    else
        DecimalText::appendUnsigned(out, number, settings.base);
    pad(out, from, settings, effects);
}

void VornFormatter::writeText(QVariant const& value, VornFormatSettings const& settings, std::string& out,
                              unsigned& effects)
{
    if (isMissing(value))
        effects |= Defaulted;
    size_t const from = out.size();
    QByteArray const text = variantText(value).toUtf8();
    out.append(text.constData(), size_t(text.size()));
    decodeEscapes(out, from);
    pad(out, from, settings, effects);
}

void VornFormatter::pad(std::string& out, size_t from, VornFormatSettings const& settings, unsigned& effects)
{
    size_t const width = size_t(std::max(settings.width, 0));
    size_t const length = out.size() - from;
    if (settings.numericFill && settings.type != VornFormatSettings::String && length > 0) {
        size_t sign = 0;
        if (settings.isSigned()) {
            if (out[from] != '-')
                out.insert(from, 1, '+');
            sign = 1;
        }
        if (width > out.size() - from)
            out.insert(from + sign, width - (out.size() - from), '0');
    } else if (width > length) {
        if (settings.alignment == VornFormatSettings::Left)
            out.append(width - length, settings.fill);
        else
            out.insert(from, width - length, settings.fill);
    }
    if (width > 0 && out.size() - from > width)
        effects |= Wider;
}

template <typename T>
QByteArray VornFormatter::intToBytes(QVariant const& value, VornFormatSettings const& settings)
{
    std::string out;
    unsigned effects = 0;
    writeNumber<T>(value, settings, out, effects);
    return QByteArray(out.data(), static_cast<int>(out.size()));
}

template <typename T>
QByteArray VornFormatter::int64ToBytes(QVariant const& value, VornFormatSettings const& settings)
{
    std::string out;
    unsigned effects = 0;
    writeInt64<T>(value, settings, out, effects);
    return QByteArray(out.data(), static_cast<int>(out.size()));
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
    std::string out(text.constData(), size_t(text.size()));
    unsigned effects = 0;
    pad(out, 0, settings, effects);
    return QByteArray(out.data(), static_cast<int>(out.size()));
}

QByteArray VornFormatter::decodeHexEscapes(QByteArray bytes)
{
    std::string text(bytes.constData(), size_t(bytes.size()));
    decodeEscapes(text, 0);
    return QByteArray(text.data(), static_cast<int>(text.size()));
}
