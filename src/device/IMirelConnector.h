// What the protocol commands may ask of the device: trigger, parameters, hardware information,
// I/O pins, applications and decoding statistics. Each call blocks until the device answered.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace orv {

class IMirelConnector
{
public:
    // Returns the image service's own code, used as the reply status as it stands.
    virtual int releaseTrigger() = 0;
    virtual bool getDeviceParam(std::string const& name, std::string& value) = 0;
    virtual bool getHWInfo(std::map<std::string, std::string>& info) = 0;
    virtual bool setIO(int pin, int state) = 0;
    virtual bool getIO(int pin, int& state) = 0;
    virtual bool getIOMode(int pin, int& mode) = 0;
    // 0 or the device-service failure status.
    virtual int getApplicationList(std::vector<int>& indices, int& active) = 0;
    // Returns the parameter service's own code, used as the reply status as it stands.
    virtual int activateApplication(int index) = 0;
    // 0 or the device-service failure status.
    virtual int getStatisticData(std::map<std::string, unsigned int>& data) = 0;
    virtual ~IMirelConnector() = default;
};

// The pin mode that marks an I/O pin as an output.
constexpr int IO_MODE_OUTPUT = 14;

} // namespace orv
