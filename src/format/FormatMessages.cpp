#include "format/FormatMessages.h"

#include <QLoggingCategory>

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
    if (m_notes.empty()) // the usual case, once for every value written
        return;
    // What qWarning() and its siblings do: ask the default category's filter (logging rules can
    // switch a level off), then hand the text to the installed handler.
    QLoggingCategory const* const category = QLoggingCategory::defaultCategory();
    for (Note const& note : m_notes) {
        if (category == nullptr || category->isEnabled(note.level))
            qt_message_output(note.level, QMessageLogContext(), note.text);
    }
}
