#include "format/FormatMessages.h"

FormatMessages::Writer::~Writer()
{
    // A message written in spacing mode ends with the blank added after its last part; Qt's
    // message output takes that blank off, so the kept text does the same.
    if (m_debug.autoInsertSpaces() && m_text->endsWith(QLatin1Char(' ')))
        m_text->chop(1);
}

FormatMessages::Writer FormatMessages::add(QtMsgType level)
{
    m_notes.push_back({level, QString()});
    return Writer(&m_notes.back().text);
}

void FormatMessages::replay() const
{
    // The same path as qWarning() and its siblings, so the default category's filter and the
    // installed handler apply as they did when the options were read.
    for (Note const& note : m_notes)
        qt_message_output(note.level, QMessageLogContext(), note.text);
}
