#include "format/VornFormatSettings.h"

#include <algorithm>

#include <QSet>

namespace {

bool equalsText(QVariant const& value, char const* text)
{
    return value == QVariant(QString::fromLatin1(text));
}

struct TypeName
{
    char const* text;
    VornFormatSettings::Type type;
};

constexpr TypeName typeNames[] = {
    {"string", VornFormatSettings::String}, {"int8", VornFormatSettings::Int8},
    {"int16", VornFormatSettings::Int16},   {"int32", VornFormatSettings::Int32},
    {"uint8", VornFormatSettings::UInt8},   {"uint16", VornFormatSettings::UInt16},
    {"uint32", VornFormatSettings::UInt32}, {"float32", VornFormatSettings::Float32},
    {"int64", VornFormatSettings::Int64},   {"uint64", VornFormatSettings::UInt64},
};

// Records the key as used and hands out its value; false when the key is absent.
bool take(QMap<QString, QVariant> const& options, QSet<QString>& used, char const* key, QVariant& value)
{
    auto const it = options.constFind(QString::fromLatin1(key));
    if (it == options.constEnd())
        return false;
    used.insert(it.key());
    value = it.value();
    return true;
}

// The option as a number within 0..limit, the bounds the format schema enforces. A description that
// is not validated first (the format-results command does not validate) may ask for more: the value
// is then held at the bound and reported, and the request is still served.
int bounded(QVariant const& value, char const* key, int limit, FormatMessages& messages)
{
    int const requested = value.toInt();
    int const held = std::clamp(requested, 0, limit);
    if (held != requested)
        messages.add(QtCriticalMsg).nospace()
            << "Unexpect value of '" << key << "' " << value << ", using " << held;
    return held;
}

} // namespace

QString VornFormatSettings::typeName(Type type)
{
    for (TypeName const& name : typeNames) {
        if (name.type == type)
            return QString::fromLatin1(name.text);
    }
    return QString::number(static_cast<int>(type));
}

bool VornFormatSettings::isSigned() const
{
    return type == Int8 || type == Int16 || type == Int32 || type == Int64 || type == Float32;
}

void VornFormatSettings::loadSettingsFromVariants(QMap<QString, QVariant> const& options)
{
    FormatMessages messages;
    loadSettingsFromVariants(options, messages);
    messages.replay();
}

void VornFormatSettings::loadSettingsFromVariants(QMap<QString, QVariant> const& options,
                                                  FormatMessages& messages)
{
    QSet<QString> used;
    QVariant value;

    if (take(options, used, "dataencoding", value)) {
        if (equalsText(value, "ascii"))
            dataEncoding = Ascii;
        else if (equalsText(value, "binary"))
            dataEncoding = Binary;
        else
            messages.add(QtCriticalMsg) << "Unexpect value of 'dataencoding'" << value;
    } else {
        messages.add(QtWarningMsg) << "Missing 'dataencoding' is missing";
    }

    if (take(options, used, "type", value)) {
        bool known = false;
        for (TypeName const& name : typeNames) {
            if (equalsText(value, name.text)) {
                type = name.type;
                known = true;
                break;
            }
        }
        if (!known)
            messages.add(QtCriticalMsg) << "Unexpect value of 'type'" << value;
    } else {
        messages.add(QtWarningMsg) << "Missing 'type' is missing";
    }

    if (take(options, used, "scale", value))
        scale = value.toFloat();
    if (take(options, used, "offset", value))
        offset = value.toFloat();

    if (take(options, used, "order", value)) {
        if (equalsText(value, "little")) {
            byteOrder = LittleEndian;
        } else if (equalsText(value, "big") || equalsText(value, "network")) {
            byteOrder = BigEndian;
        } else if (equalsText(value, "busdepending")) {
            auto const bus = options.constFind(QStringLiteral("busEndianness"));
            if (bus == options.constEnd()) {
                messages.add(QtWarningMsg) << "busEndianness not found in map";
            } else {
                messages.add(QtDebugMsg).nospace() << "busEndianness Using: " << bus.value().toUInt();
                byteOrder = bus.value().toUInt();
            }
        } else {
            // KEPT: the text names another key; readers of the device's logs know it this way.
            messages.add(QtCriticalMsg) << "Unexpect value of 'alignment'" << value;
        }
    }
    // Put there by the format-results command for every element, so never a leftover.
    used.insert(QStringLiteral("busEndianness"));

    if (take(options, used, "width", value))
        width = bounded(value, "width", MaxWidth, messages);

    if (take(options, used, "fill", value)) {
        QString const text = value.toString();
        if (text.isEmpty())
            messages.add(QtCriticalMsg) << "Unexpect empty value of 'fill'" << value;
        else
            fill = text.at(0).toLatin1();
    }

    if (take(options, used, "precision", value))
        precision = bounded(value, "precision", MaxPrecision, messages);

    if (take(options, used, "displayformat", value)) {
        if (equalsText(value, "fixed"))
            displayFormat = 'f';
        else if (equalsText(value, "scientific"))
            displayFormat = 'e';
        else
            messages.add(QtCriticalMsg) << "Unexpect value of 'displayformat'" << value;
    }

    if (take(options, used, "alignment", value)) {
        if (equalsText(value, "left"))
            alignment = Left;
        else if (equalsText(value, "right"))
            alignment = Right;
        else
            messages.add(QtCriticalMsg) << "Unexpect value of 'alignment'" << value;
    }

    if (take(options, used, "decimalseparator", value)) {
        QString const text = value.toString();
        if (text.isEmpty())
            // KEPT: the text names another key, as the established message always has.
            messages.add(QtCriticalMsg) << "Unexpect empty value of 'fill'" << value;
        else
            decimalSeparator = text.at(0).toLatin1();
    }

    if (take(options, used, "base", value)) {
        int const requested = value.toInt();
        if (requested >= 2 && requested <= 16)
            base = requested;
        else
            messages.add(QtCriticalMsg) << "Unexpect value of 'base'" << value;
    }

    if (take(options, used, "numericfill", value))
        numericFill = value.toBool();

    QSet<QString> unused = QSet<QString>(options.keyBegin(), options.keyEnd());
    unused.subtract(used);
    if (!unused.isEmpty())
        messages.add(QtCriticalMsg).nospace()
            << "WARNING: The VORN-Formatter-Settings contain unused elements: " << unused;
}
