#include "plc/DecoderWalk.h"

#include <algorithm>
#include <cmath>

#include <QMap>

DecoderWalk::Scalar DecoderWalk::scalar(QString const& type)
{
    static QMap<QString, Scalar> const types = {
        {"int8", {"SINT", "int8_t", 1, true, false}},
        {"int16", {"INT", "int16_t", 2, true, false}},
        {"int32", {"DINT", "int32_t", 4, true, false}},
        {"int64", {"LINT", "int64_t", 8, true, false}},
        {"uint8", {"USINT", "uint8_t", 1, false, false}},
        {"uint16", {"UINT", "uint16_t", 2, false, false}},
        {"uint32", {"UDINT", "uint32_t", 4, false, false}},
        {"uint64", {"ULINT", "uint64_t", 8, false, false}},
        {"float32", {"REAL", "float", 4, true, true}},
    };
    return types.value(type, Scalar{"BYTE", "uint8_t", 1, false, false});
}

unsigned long long DecoderWalk::maximum(QString const& type)
{
    Scalar const s = scalar(type);
    int const bits = 8 * s.bytes - (s.isSigned ? 1 : 0);
    return bits >= 64 ? ~0ULL : (1ULL << bits) - 1;
}

void DecoderWalk::walk(PlcLayout const& layout, DecoderSink& sink)
{
    walkRecord(layout.root(), QString(), 0, sink);
}

void DecoderWalk::walkRecord(PlcLayout::Record const& record, QString const& base, int depth,
                             DecoderSink& sink)
{
    for (PlcLayout::Item const& item : record.items) {
        if (item.isList()) {
            PlcLayout::Item const& count = record.items[std::size_t(item.count)];
            QString const index = QStringLiteral("i%1").arg(depth + 1);
            sink.beginList(item, count, base + count.name, index);
            walkRecord(*item.records, QStringLiteral("%1%2[%3].").arg(base, item.name, index), depth + 1,
                       sink);
            sink.endList();
        } else if (item.isConstant()) {
            if (item.entry.length > 0)
                sink.constant(item);
        } else if (item.isText()) {
            sink.text(item, base + item.name);
        } else {
            sink.number(item, base + item.name);
        }
    }
}

std::vector<PlcLayout::Record const*> DecoderWalk::types(PlcLayout const& layout)
{
    std::vector<PlcLayout::Record const*> out;
    addTypes(layout.root(), out);
    return out;
}

void DecoderWalk::addTypes(PlcLayout::Record const& record, std::vector<PlcLayout::Record const*>& out)
{
    for (PlcLayout::Item const& item : record.items) {
        if (item.isList())
            addTypes(*item.records, out);
    }
    out.push_back(&record);
}

int DecoderWalk::depth(PlcLayout::Record const& record)
{
    int deepest = 0;
    for (PlcLayout::Item const& item : record.items) {
        if (item.isList())
            deepest = std::max(deepest, 1 + depth(*item.records));
    }
    return deepest;
}

QString DecoderWalk::describe(PlcLayout::Item const& item)
{
    FormatTraceEntry const& e = item.entry;
    QString text = item.isConstant()
                       ? QStringLiteral("constant %1").arg(QString::fromLatin1(item.bytes.toHex()))
                       : QStringLiteral("\"%1\"").arg(e.id);
    if (item.isText()) {
        text += QStringLiteral(", text of %1 character%2").arg(e.length).arg(e.length == 1 ? "" : "s");
        if (e.type != QLatin1String("string") && e.type != QLatin1String("bytes"))
            text += QStringLiteral(" (%1 as text)").arg(e.type);
        return text;
    }
    text += QStringLiteral(", ") + e.type;
    if (e.length > 1)
        text += e.bigEndian ? QStringLiteral(" big endian") : QStringLiteral(" little endian");
    if (e.scale != 1.0f)
        text += QStringLiteral(", written as value * %1").arg(double(e.scale));
    if (e.shift != 0.0f)
        text += QStringLiteral("%1 %2 %3")
                    .arg(e.scale != 1.0f ? "" : ", written as value")
                    .arg(e.shift < 0 ? "-" : "+")
                    .arg(double(std::abs(e.shift)));
    return text;
}

QString DecoderWalk::place(PlcLayout::Item const& item)
{
    return QString(item.entry.path).replace(QStringLiteral(" \u203a "), QStringLiteral(" > "));
}

QString DecoderWalk::capacities(PlcLayout::Record const& record)
{
    QStringList all;
    for (PlcLayout::Item const& item : record.items) {
        if (!item.isList())
            continue;
        all.append(QStringLiteral("%1 %2").arg(item.entry.id).arg(item.capacity));
        QString const inner = capacities(*item.records);
        if (!inner.isEmpty())
            all.append(inner);
    }
    return all.join(QStringLiteral(", "));
}

QString DecoderWalk::commentLines(QString const& text, char const* closing)
{
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines)
        line = commentText(line, closing);
    return lines.join(QStringLiteral("\n   "));
}

QString DecoderWalk::commentText(QString const& text, char const* closing)
{
    QString shown;
    for (QChar c : text)
        shown += c.unicode() < 0x20 ? QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'))
                                    : QString(c);
    return shown.replace(QLatin1String(closing), QStringLiteral("* )"));
}
