// A C99 header that reads an answer with lists: the decoded types with fixed-capacity arrays, and a
// function that walks the answer as it really is, field by field in the bus's byte order, and says
// how many bytes it read or what is wrong. Only the language and its standard headers are used.
#pragma once

#include <QString>

#include "plc/DecoderWalk.h"

class CDecoder : public DecoderSink
{
public:
    explicit CDecoder(PlcLayout const& layout) : m_layout(layout) {}

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
    QString capacityName(PlcLayout::Item const& list) const;
    void need(PlcLayout::Item const& item);
    void line(QString const& statement);

    PlcLayout const& m_layout;
    QString m_prefix; // the root type's name: every global name starts with it
    QString m_body;
    int m_indent = 1;
};
