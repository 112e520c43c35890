#include "plc/ByteMap.h"

#include <cstring>

#include <QJsonObject>

#include "plc/DecoderWalk.h"

namespace {

bool isNumberType(QString const& type)
{
    return type != QLatin1String("string") && type != QLatin1String("bytes") &&
           type != QLatin1String("records");
}

// A value as JSON: a number where the text is one, else the text.
QJsonValue jsonValue(QString const& text, QString const& type)
{
    bool number = false;
    double const value = text.toDouble(&number);
    if (number && (isNumberType(type) || type == QLatin1String("records")))
        return value;
    return text;
}

} // namespace

QString ByteMap::visible(QByteArray const& bytes)
{
    QString text;
    for (char c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F && byte != '\\')
            text += QChar(byte);
        else
            text += QString::asprintf("\\x%02x", byte);
    }
    return text;
}

QString ByteMap::written(QByteArray const& bytes, FormatTraceEntry const& entry)
{
    if (entry.kind == QLatin1String("list") || entry.kind == QLatin1String("blob") ||
        entry.type == QLatin1String("bytes"))
        return QString();
    if (entry.encoding == QLatin1String("ascii"))
        return QString::fromLatin1(bytes);
    DecoderWalk::Scalar const s = DecoderWalk::scalar(entry.type);
    if (bytes.size() != s.bytes)
        return QString();
    quint64 bits = 0;
    for (int k = 0; k < s.bytes; ++k)
        bits = (bits << 8) | static_cast<unsigned char>(bytes[entry.bigEndian ? k : s.bytes - 1 - k]);
    if (s.isFloat) {
        quint32 const word = quint32(bits);
        float value;
        memcpy(&value, &word, sizeof value);
        return QString::number(double(value), 'g', 9);
    }
    if (!s.isSigned)
        return QString::number(bits);
    quint64 const sign = quint64(1) << (8 * s.bytes - 1);
    return QString::number((bits & sign) ? -qint64(~bits & (sign - 1)) - 1 : qint64(bits));
}

QByteArray ByteMap::bytesOf(FormatTraceEntry const& entry) const
{
    return m_output.mid(int(entry.offset), int(entry.length));
}

QString ByteMap::order(FormatTraceEntry const& entry)
{
    if (entry.encoding != QLatin1String("binary") || !isNumberType(entry.type) || entry.length < 2)
        return QString();
    return entry.bigEndian ? QStringLiteral("big") : QStringLiteral("little");
}

QJsonArray ByteMap::json() const
{
    QJsonArray map;
    for (FormatTraceEntry const& entry : m_entries) {
        QJsonArray path;
        for (QString const& step : entry.path.split(QStringLiteral(" \u203a ")))
            path.append(step);
        QByteArray const bytes = bytesOf(entry);
        QJsonObject object{{"offset", qint64(entry.offset)},
                           {"length", qint64(entry.length)},
                           {"element", path},
                           {"kind", entry.kind},
                           {"type", entry.type},
                           {"hex", QString::fromLatin1(bytes.toHex())}};
        auto const set = [&object](char const* key, QJsonValue const& value, bool when) {
            if (when)
                object.insert(QLatin1String(key), value);
        };
        set("id", entry.id, !entry.id.isEmpty());
        set("encoding", entry.encoding, !entry.encoding.isEmpty());
        set("order", order(entry), !order(entry).isEmpty());
        set("value", jsonValue(entry.value, entry.type), !entry.value.isEmpty());
        QString const w = written(bytes, entry);
        set("written",
            jsonValue(w, entry.encoding == QLatin1String("ascii") ? QStringLiteral("string") : entry.type),
            !w.isEmpty());
        set("scale", double(entry.scale), entry.scale != 1.0f);
        set("shift", double(entry.shift), entry.shift != 0.0f);
        set("note", entry.note, !entry.note.isEmpty());
        map.append(object);
    }
    return map;
}

QString ByteMap::valueColumn(FormatTraceEntry const& entry, QString const& written)
{
    QString value = visible(entry.value.toUtf8());
    if (entry.kind == QLatin1String("list"))
        return entry.value.isEmpty() ? QString() : entry.value + QStringLiteral(" records");
    if (entry.scale != 1.0f || entry.shift != 0.0f) {
        value += QStringLiteral(" \u00d7%1").arg(double(entry.scale));
        if (entry.shift != 0.0f)
            value += QStringLiteral(" %1%2").arg(entry.shift < 0 ? "" : "+").arg(double(entry.shift));
        value += QStringLiteral(" \u2192 ") + visible(written.toUtf8());
    }
    return value;
}

QStringList ByteMap::lines() const
{
    int elementWidth = 7, idWidth = 2, valueWidth = 5;
    std::vector<QString> values;
    for (FormatTraceEntry const& entry : m_entries) {
        values.push_back(valueColumn(entry, written(bytesOf(entry), entry)));
        elementWidth = std::max(elementWidth, int(entry.path.size()));
        idWidth = std::max(idWidth, int(entry.id.size()));
        valueWidth = std::min(30, std::max(valueWidth, int(values.back().size())));
    }
    QStringList out;
    auto const line = [&](QString const& offset, QString const& length, QString const& element,
                          QString const& id, QString const& type, QString const& order, QString value,
                          QString const& note) {
        if (value.size() > valueWidth)
            value = value.left(valueWidth - 3) + QStringLiteral("...");
        QString text = QStringLiteral("%1 %2  %3  %4  %5 %6 %7 %8")
                           .arg(offset, 6)
                           .arg(length, 6)
                           .arg(element, -elementWidth)
                           .arg(id, -idWidth)
                           .arg(type, -14)
                           .arg(order, -6)
                           .arg(value, -valueWidth)
                           .arg(note);
        while (text.endsWith(QLatin1Char(' ')))
            text.chop(1);
        out.append(text);
    };
    line(QStringLiteral("offset"), QStringLiteral("length"), QStringLiteral("element"), QStringLiteral("id"),
         QStringLiteral("type"), QStringLiteral("order"), QStringLiteral("value"), QStringLiteral("note"));
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        FormatTraceEntry const& e = m_entries[i];
        line(QString::number(e.offset), QString::number(e.length), e.path, e.id,
             e.encoding.isEmpty() ? e.type : e.type + QLatin1Char(' ') + e.encoding, order(e), values[i],
             e.note);
    }
    return out;
}
