// The values of the device services' messages: a reply's values decoded into the flat list of
// DBUS_ARG_T that the connector checks, and a call's arguments encoded into its message.
#pragma once

#include <list>

#include "device/DbusArg.h"

struct DBusMessage;
struct DBusMessageIter;

namespace orv {

namespace Logger {
class RedisLogger;
}

class DBusMessageCodec
{
public:
    // The logger takes the ERROR line of every value that cannot be decoded.
    explicit DBusMessageCodec(Logger::RedisLogger& logger);

    // Every value of the message, in order: 0, or the device-failure status. A message without
    // values decodes to nothing.
    int decode(DBusMessage* message, std::list<DBUS_ARG_T>& out) const;
    // The values from the iterator to the end of its container. Arrays and structures are flattened
    // into their members; a run of dictionary entries becomes one 'e' value. A value of an
    // unsupported type or a malformed dictionary is logged and makes the result the device-failure
    // status: decoding stops within its own container but goes on in the containers around it, and
    // what was decoded stays in `out`.
    int processArgs(DBusMessageIter* it, std::list<DBUS_ARG_T>& out) const;
    // The run of dictionary entries from the iterator, each a text key and a variant holding one
    // basic value; the iterator ends after the run. False, logged, at the first other entry.
    bool processDict(DBusMessageIter* it, DBusDict* dict) const;

    // Appends the arguments in order: false, leaving the message partly filled, at the first that
    // cannot be sent ('b', 'i', 's', 'u' and 'y' can; a null text cannot).
    static bool encode(DBusMessage* message, std::list<DBUS_ARG_T> const& args);

    // Whether a decoded value of this type carries an integer in its value word.
    static bool isIntegerType(int type);

private:
    Logger::RedisLogger& m_logger;
};

} // namespace orv
