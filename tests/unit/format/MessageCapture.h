// Collects what the code under test writes on Qt's debug channel, for as long as the object lives.
#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace orv {
namespace test {

class MessageCapture
{
public:
    MessageCapture() { s_previous = qInstallMessageHandler(&MessageCapture::handle), messages().clear(); }
    ~MessageCapture() { qInstallMessageHandler(s_previous); }
    MessageCapture(MessageCapture const&) = delete;
    MessageCapture& operator=(MessageCapture const&) = delete;

    // Each message prefixed with its level: "debug: ", "warning: ", "critical: ".
    QStringList const& all() const { return messages(); }
    QStringList ofLevel(QString const& level) const
    {
        QStringList found;
        for (QString const& message : messages())
            if (message.startsWith(level + ": "))
                found << message.mid(level.size() + 2);
        return found;
    }
    void clear() { messages().clear(); }

private:
    static QStringList& messages()
    {
        static QStringList list;
        return list;
    }
    static void handle(QtMsgType type, QMessageLogContext const&, QString const& text)
    {
        static char const* const levels[] = {"debug", "warning", "critical", "fatal", "info"};
        messages() << QString::fromLatin1(levels[type]) + ": " + text;
    }
    static inline QtMessageHandler s_previous = nullptr;
};

} // namespace test
} // namespace orv
