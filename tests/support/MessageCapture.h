// Collects what the code under test writes on Qt's debug channel, for as long as the object lives.
#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace orv::test {

class MessageCapture
{
public:
    MessageCapture() { s_previous = qInstallMessageHandler(&MessageCapture::handle), clear(); }
    ~MessageCapture() { qInstallMessageHandler(s_previous); }

    // Each message prefixed with its level: "debug: ", "warning: ", "critical: ".
    QStringList const& all() const { return s_messages; }
    void clear() { s_messages.clear(); }

private:
    static void handle(QtMsgType type, QMessageLogContext const&, QString const& text)
    {
        static char const* const levels[] = {"debug", "warning", "critical", "fatal", "info"};
        s_messages << QString::fromLatin1(levels[type]) + ": " + text;
    }
    static inline QtMessageHandler s_previous = nullptr;
    static inline QStringList s_messages;
};

} // namespace orv::test
