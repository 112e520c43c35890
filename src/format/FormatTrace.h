// What the layouter wrote where while it formatted: one entry per element it wrote, in output
// order, so that a tool can explain an output byte by byte. Entries of nothing written (a missing
// blob, the start of a list) are kept with length 0: they explain a gap or a count a client would
// otherwise wonder about.
#pragma once

#include <cstddef>
#include <vector>

#include <QString>
#include <QVariant>

#include "format/VornFormatSettings.h"

struct FormatTraceEntry
{
    std::size_t offset = 0;
    std::size_t length = 0;
    QString path;     // the element's place in the description: "elements[3] › models[1] › elements[0]"
    QString id;       // the record id read; empty for a constant
    QString kind;     // "value", "constant", "blob" or "list" (its records' entries follow)
    QString type;     // "int16", "float32", "string"...; "bytes" for a blob, "records" for a list
    QString encoding; // "binary" or "ascii"; empty for a blob
    int width = 0;    // the "width" option of an ASCII field
    bool bigEndian = false; // of a binary number
    QString value;          // the value as read, as text; empty when there was none; a list's size
    float scale = 1.0f;     // of a number: written is value * scale + shift, then clamped
    float shift = 0.0f;
    QString note; // where the output is not what was asked for
};

class FormatTrace
{
public:
    void add(FormatTraceEntry entry) { m_entries.push_back(std::move(entry)); }
    std::vector<FormatTraceEntry> const& entries() const { return m_entries; }

    // A value's entry: type, encoding and a note where the written bytes are not the value itself,
    // as the formatter's effects (VornFormatter::Effect) say.
    static FormatTraceEntry valueEntry(QVariant const& value, VornFormatSettings const& settings,
                                       std::size_t written, unsigned effects);

private:
    std::vector<FormatTraceEntry> m_entries;
};
