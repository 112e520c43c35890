// The answer to a description as a PLC reads it: per record its fields in order and its lists, each
// list with the field before it that counts its records and the capacity a PLC reserves for them.
// Made from the byte map of a layout whose every list holds one record (LayoutRecord), so that each
// list shows the shape of its records once.
#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <vector>

#include <QByteArray>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

#include "format/FormatTrace.h"
#include "plc/PlcNames.h"

class PlcLayout
{
public:
    // An answer no fixed code can read; the message names the element and what to change.
    struct NotDecodable : std::runtime_error
    {
        using std::runtime_error::runtime_error;
    };

    struct Record;
    struct Item
    {
        QString name;                    // identifier in its record; constants have one too
        FormatTraceEntry entry;          // the field's, or the list's own (kind "list")
        QByteArray bytes;                // what a constant writes
        int element = 0;                 // its index in the description's "elements"
        std::shared_ptr<Record> records; // a list: the type of its records
        int capacity = 0;                // a list: the records a PLC reserves
        int count = -1;                  // a list: the index of the item in the same record that counts it

        bool isList() const { return records != nullptr; }
        bool isConstant() const { return entry.kind == QLatin1String("constant"); }
        // Text of a fixed width (a "string" or an ASCII number); otherwise a binary number.
        bool isText() const
        {
            return entry.encoding == QLatin1String("ascii") || entry.type == QLatin1String("bytes");
        }
        bool isSigned() const { return entry.type.startsWith(QLatin1String("int")); }
    };
    struct Record
    {
        QString typeName; // a legal, unique type name
        std::vector<Item> items;
    };

    // The layout of the answer to a request (an object with the description under "format"), as
    // the plug-in's own formatting lays it out for a bus of the given byte order.
    static PlcLayout ofRequest(QByteArray const& request, bool bigEndianBus, QString const& typeName,
                               QMap<QString, int> const& capacities);
    // output and entries: a layout's output and its byte map; capacities: records per list id.
    PlcLayout(QByteArray const& output, std::vector<FormatTraceEntry> const& entries, QString const& typeName,
              QMap<QString, int> const& capacities);

    Record const& root() const { return *m_root; }
    bool hasLists() const { return m_lists > 0; }
    bool empty() const { return m_root->items.empty(); }
    std::size_t size() const { return m_size; } // of the answer without lists
    QStringList missingCapacities() const { return m_missing; }
    // Capacities given for a list id the answer does not have (a misspelt one, most often).
    QStringList unknownCapacities() const;
    QStringList listIds() const { return m_listIds.values(); }
    // Where an entry of a real answer's byte map lies in the decoded type, as a C member designator
    // ("models[1].rois[0].x"); empty for a constant, a list's own entry or an unknown place.
    QString designator(QString const& path) const;

private:
    using Entries = std::vector<FormatTraceEntry>;
    std::shared_ptr<Record> build(Entries const& entries, std::size_t begin, std::size_t end,
                                  QString const& prefix, QString const& typeName);
    Item leaf(FormatTraceEntry const& entry) const;
    void countList(Record const& record, Item& list) const;

    QByteArray m_output;
    QMap<QString, int> m_capacities;
    std::shared_ptr<Record> m_root;
    std::size_t m_size = 0;
    int m_lists = 0;
    QStringList m_missing;
    QSet<QString> m_listIds;
    PlcNames m_typeNames; // type names are global in both languages
};
