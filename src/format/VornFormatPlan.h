// An output-format description read once: for every element what it writes (a constant made
// ahead, a value, a blob, the records of a list), where the value comes from and the options it is
// written with, together with the notes that reading those options gave. A plan serves any number
// of requests with the same description and bus byte order, from any number of threads.
#pragma once

#include <memory>
#include <vector>

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariant>

#include "format/FormatMessages.h"
#include "format/VornFormatSettings.h"

class FormatTrace;
class RecordInterface;
class RecordListInterface;
class VornFormatOutput;

// The byte order of a client's field bus, as its format request declares it.
enum class BusByteOrder
{
    LittleEndian,
    BigEndian,
};

class VornFormatPlan
{
public:
    // The plan of a request's JSON text, an object whose "format" is the description, for a client
    // bus of the given byte order: the way every request, tool and test reads a description. Null
    // when the text is no JSON; `error` then holds the parser's message.
    static std::shared_ptr<VornFormatPlan const> fromRequest(QByteArray const& text, BusByteOrder bus,
                                                             QString* error = nullptr);
    // The plan of one format node (a node with "elements") under the options it inherits, as the
    // layouter's callers hand them over. Every plan is made here.
    static std::shared_ptr<VornFormatPlan const> fromNode(QMap<QString, QVariant> const& node,
                                                          QMap<QString, QVariant> const& settings);

    // Appends what the description makes of the record. Writes the notes of every element each time
    // it is used, as reading its options would, and warns about missing lists and records. With a
    // trace, also tells it what each element wrote where.
    void write(RecordInterface& record, VornFormatOutput& out, FormatTrace* trace = nullptr) const;
    // The same for every record of a list, in order.
    void writeList(RecordListInterface& list, VornFormatOutput& out) const;

private:
    VornFormatPlan(QMap<QString, QVariant> const& node, QMap<QString, QVariant> const& settings);

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
        QVariant constantValue;       // as the description has it, for the trace
        unsigned constantEffects = 0; // what formatting it did to the constant (VornFormatter::Effect)
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
    static void writeEach(std::vector<Element> const& elements, QString const& id, int index,
                          RecordListInterface& list, VornFormatOutput& out, FormatTrace* trace,
                          QString const& path);
    static void traceList(Element const& element, RecordListInterface* list, std::size_t offset,
                          FormatTrace& trace, QString const& path);
    static void traceElement(Element const& element, QVariant const& value, unsigned effects,
                             std::size_t offset, VornFormatOutput const& out, FormatTrace& trace,
                             QString const& path);

    std::vector<Element> m_elements;
};
