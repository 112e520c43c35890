// Data types for the PLC or PC that reads an output: made from the map of an output whose size is
// fixed once its record counts are known, as Structured Text (IEC 61131-3, packed) or a packed C
// struct. Every field is one range of the map, in order; record lists become arrays of a nested type.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <vector>

#include <QString>

#include "format/FormatTrace.h"

class PlcTypes
{
public:
    enum Language
    {
        StructuredText,
        C,
    };

    // A description whose output has no fixed size: the message names the element.
    struct NotFixed : std::runtime_error
    {
        using std::runtime_error::runtime_error;
    };

    // entries: the map of the output, in order; typeName: the outermost type's name.
    PlcTypes(std::vector<FormatTraceEntry> const& entries, QString const& typeName, bool bigEndianBus);

    // source: a line for the header comment, e.g. the description's file and the record counts.
    QString text(Language language, QString const& source) const;
    std::size_t size() const { return m_size; }
    // Where each entry of the map lies in the outermost type, as a C member designator
    // ("models[1].rois[0].x"), in the order of the entries.
    std::vector<QString> const& designators() const { return m_designators; }

private:
    struct Member
    {
        QString name;
        std::size_t offset = 0; // in its type
        std::size_t length = 0;
        QString scalar;   // the binary number's type ("uint16"); empty for bytes and arrays
        int arrayOf = -1; // index of the records' type, with count records
        std::size_t count = 0;
        QString comment;
    };
    struct Type
    {
        QString name;
        std::vector<Member> members;
        std::size_t size = 0;
    };

    using Entries = std::vector<FormatTraceEntry>;
    // Builds the type of the entries whose paths start with prefix; designators of each entry in
    // order, relative to the type.
    int build(Entries const& entries, QString const& prefix, QString const& name,
              std::vector<QString>& designators);
    Member leaf(FormatTraceEntry const& entry, std::size_t base) const;
    static QString uniqueName(QString const& wanted, Type const& type);

    QString structuredText(QString const& header) const;
    QString cText(QString const& header) const;

    std::vector<Type> m_types; // nested types before the types that use them
    std::vector<QString> m_designators;
    std::size_t m_size = 0;
    bool m_bigEndianBus;
};
