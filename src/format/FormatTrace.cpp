#include "format/FormatTrace.h"

#include "format/VariantText.h"
#include "format/VornFormatter.h"

namespace {

// What the formatter did to a value, in words; the first effect that applies.
QString noteOf(unsigned effects, VornFormatSettings const& settings)
{
    QString const type = VornFormatSettings::typeName(settings.type);
    struct
    {
        unsigned effect;
        QString note;
    } const notes[] = {
        {VornFormatter::Defaulted, QStringLiteral("no value in the result: the default written")},
        {VornFormatter::NoNumber, QStringLiteral("no number: 0 written")},
        {VornFormatter::NotANumber, QStringLiteral("not a number: 0 written")},
        {VornFormatter::Clamped, QStringLiteral("clamped to the range of ") + type},
        {VornFormatter::Wrapped, QStringLiteral("of the other sign: its 64 bits written as ") + type},
        {VornFormatter::FractionCut, QStringLiteral("fraction cut")},
        {VornFormatter::FractionRounded, QStringLiteral("fraction rounded")},
        {VornFormatter::Infinite, QStringLiteral("beyond float32: written as infinity")},
        {VornFormatter::Wider, QStringLiteral("wider than its width of %1").arg(settings.width)},
    };
    for (auto const& note : notes)
        if (effects & note.effect)
            return note.note;
    return QString();
}

} // namespace

FormatTraceEntry FormatTrace::valueEntry(QVariant const& value, VornFormatSettings const& settings,
                                         std::size_t written, unsigned effects)
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
    entry.note = noteOf(effects, settings);
    if (settings.type != VornFormatSettings::String) {
        entry.scale = settings.scale;
        entry.shift = settings.offset;
    }
    return entry;
}
