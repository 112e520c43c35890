// An output-format description read once: for every element what it writes (a constant made
// ahead, a value, a blob, the records of a list), where the value comes from and the options it is
// written with, together with the notes that reading those options gave. A plan serves any number
// of requests with the same description and bus byte order, from any number of threads.
#pragma once

#include <vector>

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariant>

#include "format/FormatMessages.h"
#include "format/VornFormatSettings.h"

class FormatTrace;
class RecordInterface;
class VornFormatOutput;

class VornFormatPlan
{
public:
    // format: a node with "elements" (a description's "format" object, or a records element);
    // settings: the options it inherits ("busEndianness" at the top).
    VornFormatPlan(QMap<QString, QVariant> const& format, QMap<QString, QVariant> const& settings);

    // Appends what the description makes of the record. Writes the notes of every element each time
    // it is used, as reading its options would, and warns about missing lists and records. With a
    // trace, also tells it what each element wrote where.
    void write(RecordInterface& record, VornFormatOutput& out, FormatTrace* trace = nullptr) const;

private:
    struct Element
    {
        enum Kind
        {
            Constant, // bytes made when the plan was made
            Value,
            Blob,
            Records,
            Nothing, // a records element with a constant: writes nothing
        };
        Kind kind = Nothing;
        int index = 0; // in its "elements"
        QString id;
        VornFormatSettings settings;
        FormatMessages messages;
        QByteArray constant;
        QVariant constantValue; // as the description has it, for the trace
        bool blob = false;
        std::vector<Element> elements; // of a records element
    };

    static std::vector<Element> prepare(QMap<QString, QVariant> const& format,
                                        QMap<QString, QVariant> const& settings);
    static Element prepareElement(QMap<QString, QVariant> const& element,
                                  QMap<QString, QVariant> const& settings);
    // path: where the elements sit in the description, for the trace ("" at the top).
    static void writeElements(std::vector<Element> const& elements, RecordInterface& record,
                              VornFormatOutput& out, FormatTrace* trace, QString const& path);
    static void writeRecords(Element const& element, RecordInterface& record, VornFormatOutput& out,
                             FormatTrace* trace, QString const& path);
    static void traceElement(Element const& element, QVariant const& value, std::size_t offset,
                             VornFormatOutput const& out, FormatTrace& trace, QString const& path);

    std::vector<Element> m_elements;
};
