#include "format/FormatTrace.h"

#include <cfloat>
#include <cmath>

#include "format/VariantText.h"

namespace {

struct Range
{
    double lowest;
    double highest;
};

// The range of the integer types the formatter converts through a double; the 64-bit ones take
// another path and are only clamped beyond it.
bool integerRange(VornFormatSettings::Type type, Range& range)
{
    switch (type) {
    case VornFormatSettings::Int8:
        range = {-128.0, 127.0};
        return true;
    case VornFormatSettings::Int16:
        range = {-32768.0, 32767.0};
        return true;
    case VornFormatSettings::Int32:
        range = {-2147483648.0, 2147483647.0};
        return true;
    case VornFormatSettings::UInt8:
        range = {0.0, 255.0};
        return true;
    case VornFormatSettings::UInt16:
        range = {0.0, 65535.0};
        return true;
    case VornFormatSettings::UInt32:
        range = {0.0, 4294967295.0};
        return true;
    case VornFormatSettings::Int64:
        range = {-9.2e18, 9.2e18};
        return true;
    case VornFormatSettings::UInt64:
        range = {0.0, 1.8e19};
        return true;
    default:
        return false;
    }
}

QString numberNote(QVariant const& value, VornFormatSettings const& settings)
{
    bool isNumber = false;
    double const read = value.toDouble(&isNumber);
    if (!isNumber)
        return QStringLiteral("no number: 0 written");
    double const x = double(settings.offset) + read * double(settings.scale);
    QString const type = VornFormatSettings::typeName(settings.type);
    if (std::isnan(x))
        return QStringLiteral("not a number: 0 written");
    Range range{};
    if (integerRange(settings.type, range)) {
        if (x < range.lowest || x > range.highest)
            return QStringLiteral("clamped to the range of ") + type;
        bool const wide =
            settings.type == VornFormatSettings::Int64 || settings.type == VornFormatSettings::UInt64;
        if (!wide && x != std::trunc(x))
            return QStringLiteral("fraction cut");
        return QString();
    }
    if (settings.dataEncoding == VornFormatSettings::Binary && std::fabs(x) > FLT_MAX)
        return QStringLiteral("beyond float32: written as infinity");
    return QString();
}

} // namespace

FormatTraceEntry FormatTrace::valueEntry(QVariant const& value, VornFormatSettings const& settings,
                                         std::size_t written)
{
    FormatTraceEntry entry;
    entry.length = written;
    entry.type = VornFormatSettings::typeName(settings.type);
    bool const text =
        settings.type == VornFormatSettings::String || settings.dataEncoding == VornFormatSettings::Ascii;
    entry.encoding = text ? QStringLiteral("ascii") : QStringLiteral("binary");
    entry.width = text ? settings.width : 0;
    entry.bigEndian = !text && settings.byteOrder == VornFormatSettings::BigEndian;
    bool const missing = !value.isValid() || value.isNull();
    entry.value = missing ? QString() : variantText(value);
    if (missing)
        entry.note = QStringLiteral("no value in the result: the default written");
    else if (settings.type != VornFormatSettings::String)
        entry.note = numberNote(value, settings);
    if (entry.note.isEmpty() && text && settings.width > 0 && written > std::size_t(settings.width))
        entry.note = QStringLiteral("wider than its width of %1").arg(settings.width);
    return entry;
}
