// The byte map of a formatted answer for people and programs: per range of bytes the element that
// wrote it, its type, byte order and encoding, the value as read and the number the bytes hold, the
// bytes themselves and a note where they are not what the value asked for.
#pragma once

#include <vector>

#include <QByteArray>
#include <QJsonArray>
#include <QStringList>

#include "format/FormatTrace.h"

class ByteMap
{
public:
    ByteMap(QByteArray output, std::vector<FormatTraceEntry> entries)
        : m_output(std::move(output)), m_entries(std::move(entries))
    {}

    // One object per entry: offset, length, element (the path as a list of steps), kind, type,
    // encoding, order, id, value (a number where it is one), written, scale, shift, hex, note.
    QJsonArray json() const;
    // A table with a header line, one line per entry.
    QStringList lines() const;

    // Printable ASCII as it is, every other byte (and the backslash) as \xHH.
    static QString visible(QByteArray const& bytes);
    // The number a binary field's bytes hold, or the text an ASCII field wrote; empty for others.
    static QString written(QByteArray const& bytes, FormatTraceEntry const& entry);

private:
    QByteArray bytesOf(FormatTraceEntry const& entry) const;
    static QString order(FormatTraceEntry const& entry);
    static QString valueColumn(FormatTraceEntry const& entry, QString const& written);

    QByteArray m_output;
    std::vector<FormatTraceEntry> m_entries;
};
