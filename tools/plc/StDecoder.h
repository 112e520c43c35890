// Structured Text (IEC 61131-3) that reads an answer with lists: the decoded types with
// fixed-capacity arrays, and a function block that walks the answer as it really is, field by field
// in the bus's byte order, and reports the bytes it read or what is wrong. Only standard types,
// conversions and functions are used.
#pragma once

#include <QString>

#include "plc/DecoderWalk.h"

class StDecoder : public DecoderSink
{
public:
    explicit StDecoder(PlcLayout const& layout) : m_layout(layout) {}

    // header: the lines of the leading comment that say where the code comes from.
    QString text(QString const& header);

    void number(PlcLayout::Item const& item, QString const& target) override;
    void text(PlcLayout::Item const& item, QString const& target) override;
    void constant(PlcLayout::Item const& item) override;
    void beginList(PlcLayout::Item const& list, PlcLayout::Item const& countItem, QString const& count,
                   QString const& index) override;
    void endList() override;

private:
    QString types() const;
    QString helpers() const;
    void need(PlcLayout::Item const& item);
    void line(QString const& statement);
    QString byteAt(QString const& offset) const;

    PlcLayout const& m_layout;
    QString m_prefix; // the root type's name: every global name starts with it
    QString m_body;
    int m_indent = 0;
};
