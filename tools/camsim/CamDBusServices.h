// The simulated camera's device services on the system bus: the image service "com.orv.imager",
// the parameter service "com.orv.quillon" and the I/O manager "com.orv.iom", all at object path
// "/", with state that behaves like a camera's, and faults on request for tests.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FaultCatalog.h"

struct DBusConnection;
struct DBusMessage;

namespace camsim {

struct Pin
{
    int mode; // 14: output; anything else: input
    int state;
};

class CamDBusServices
{
public:
    enum class Decoding
    {
        None,
        Positive,
        Negative
    };

    CamDBusServices();
    ~CamDBusServices();
    CamDBusServices(CamDBusServices const&) = delete;
    CamDBusServices& operator=(CamDBusServices const&) = delete;

    // Called on each accepted trigger, on the services' thread; tells whether a result was produced
    // and how it decoded. Without one, every trigger gives a positively decoded result.
    void setTriggerHandler(std::function<Decoding()> handler);
    void setFault(std::string const& method, Fault fault);
    void setApplicationCount(int count); // indices 1..count
    void setParameter(std::string const& name, std::string const& value);
    void setPin(int pin, Pin value);
    Pin pin(int pin) const;

    // Connects to the system bus (DBUS_SYSTEM_BUS_ADDRESS) on a private connection and owns the
    // three names. False with the reason in `error`.
    bool connect(std::string& error);
    // Serves until stop() (or a disconnect); on the calling thread, or on a thread of its own.
    void run();
    void start();
    void stop();

    // The bus connection's message filter: true when the call was one of ours and was answered.
    bool handle(DBusMessage* call);

private:
    void reply(DBusMessage* call, DBusMessage* answer);
    Fault faultFor(std::string const& method) const;

    DBusMessage* trigger(DBusMessage* call, Fault const& fault);
    DBusMessage* getParameter(DBusMessage* call, Fault const& fault);
    DBusMessage* getHWInfo(DBusMessage* call, Fault const& fault);
    DBusMessage* getApplicationList(DBusMessage* call, Fault const& fault);
    DBusMessage* switchApplication(DBusMessage* call, Fault const& fault);
    DBusMessage* pinCall(DBusMessage* call, std::string const& method, Fault const& fault);
    DBusMessage* getStatistics(DBusMessage* call, Fault const& fault);
    DBusMessage* control(DBusMessage* call, std::string const& method);

    mutable std::mutex m_mutex;
    DBusConnection* m_connection = nullptr;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;

    std::function<Decoding()> m_onTrigger;
    std::map<std::string, Fault> m_faults;
    std::map<std::string, std::string> m_parameters;
    std::map<std::string, std::string> m_hwInfo;
    std::vector<int> m_applications;
    std::map<int, Pin> m_pins;
    unsigned int m_triggers = 0;
    unsigned int m_results = 0;
    unsigned int m_positive = 0;
    unsigned int m_negative = 0;
};

} // namespace camsim
