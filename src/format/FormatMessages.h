// The notes that reading an element's options gives (a missing type, a bad value, an unused key),
// kept as text so that they can be written again every time the element is used, without reading
// the options again.
#pragma once

#include <deque>

#include <QDebug>
#include <QString>

class FormatMessages
{
public:
    // Writes one note into the list the way qDebug() and its siblings write to the debug output:
    // the same rendering of values, the same blanks between them.
    class Writer
    {
    public:
        explicit Writer(QString* text) : m_text(text), m_debug(text) {}
        ~Writer();
        Writer(Writer const&) = delete;
        Writer& operator=(Writer const&) = delete;

        Writer& nospace()
        {
            m_debug.nospace();
            return *this;
        }
        template <typename T> Writer& operator<<(T const& value)
        {
            m_debug << value;
            return *this;
        }

    private:
        QString* m_text;
        QDebug m_debug;
    };

    Writer add(QtMsgType level);
    // Every note to Qt's message output, in the order they were added, at their level.
    void replay() const;
    bool isEmpty() const { return m_notes.empty(); }

private:
    struct Note
    {
        QtMsgType level;
        QString text;
    };
    std::deque<Note> m_notes; // a deque: a writer keeps the address of its text while it writes
};
