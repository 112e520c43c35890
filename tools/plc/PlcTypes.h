// The code a PLC or PC reads an answer with, made from a description's layout: for an answer of
// fixed size (no lists) a packed type with its size, as Structured Text (IEC 61131-3) or C; for an
// answer with lists a decoder (CDecoder, StDecoder) that follows the counts the answer carries.
#pragma once

#include <QString>

#include "plc/PlcLayout.h"

class PlcTypes
{
public:
    enum Language
    {
        StructuredText,
        C,
    };

    PlcTypes(PlcLayout const& layout, bool bigEndianBus) : m_layout(layout), m_bigEndianBus(bigEndianBus) {}

    // source: a line for the header comment, e.g. the description's file and the capacities.
    QString text(Language language, QString const& source) const;

private:
    QString header(QString const& source) const;
    QString structuredText(QString const& header) const;
    QString cText(QString const& header) const;

    PlcLayout const& m_layout;
    bool m_bigEndianBus;
};
