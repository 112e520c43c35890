// The device connector on the D-Bus system bus: every operation is a blocking method call on one
// of the camera's services at object path "/", with the reply decoded into a flat list of values.
#pragma once

#include <list>
#include <string>

#include "device/DBusMessageCodec.h"
#include "device/DbusArg.h"
#include "device/IMirelConnector.h"

struct DBusConnection;
struct DBusError;
struct DBusMessage;
struct DBusMessageIter;

namespace orv {

namespace Logger {
class RedisLogger;
}

class MirelDBusConnector : public IMirelConnector
{
public:
    // Connects and claims "com.orv.lrae"; on any failure the connector stays unconnected and every
    // call fails at once. Never throws.
    explicit MirelDBusConnector(Logger::RedisLogger& logger);
    ~MirelDBusConnector() override;

    MirelDBusConnector(MirelDBusConnector const&) = delete;
    MirelDBusConnector& operator=(MirelDBusConnector const&) = delete;

    int releaseTrigger() override;
    bool getDeviceParam(std::string const& name, std::string& value) override;
    bool getHWInfo(std::map<std::string, std::string>& info) override;
    bool setIO(int pin, int state) override;
    bool getIO(int pin, int& state) override;
    bool getIOMode(int pin, int& mode) override;
    int getApplicationList(std::vector<int>& indices, int& active) override;
    int activateApplication(int index) override;
    int getStatisticData(std::map<std::string, unsigned int>& data) override;

    bool connected() const { return m_connection != nullptr; }

    // The service name is both the destination and the interface. 0, or the device-failure status.
    int dbusCall(std::string service, std::string method, std::list<DBUS_ARG_T>& in,
                 std::list<DBUS_ARG_T>& out);
    int dBusProcessArgs(DBusMessageIter* it, std::list<DBUS_ARG_T>& out);
    bool dbusProcessDict(DBusMessageIter* it, DBusDict* dict);
    // Checks the services' leading result code and text; on success leaves it on the next value.
    bool dbusCheckErrRetval(std::list<DBUS_ARG_T>::iterator& it);

protected:
    // Sends one method call and waits for its reply: the reply, or null (logged) when none came.
    // The only place that talks to the bus, so that recorded replies can stand in for a live
    // service (the fuzz target of the reply decoding).
    virtual DBusMessage* exchange(DBusMessage* request);

private:
    // A call whose reply must hold exactly `count` values led by a zero result code and a text;
    // on success `it` is on the first value after the text.
    bool checkedCall(char const* service, char const* method, std::list<DBUS_ARG_T>& in,
                     std::list<DBUS_ARG_T>& out, size_t count, char const* countMessage,
                     std::list<DBUS_ARG_T>::iterator& it);
    bool readIntAfterCheck(char const* method, int pin, char const* countMessage, int& result);

    DBusConnection* m_connection;
    DBusError* m_error;
    Logger::RedisLogger& m_logger;
    DBusMessageCodec m_codec;
};

} // namespace orv
