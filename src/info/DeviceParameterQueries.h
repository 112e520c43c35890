// The device-info items that are parameters of the device's parameter store, and the ones that
// are fixed texts of this product.
#pragma once

#include "info/QueryDeviceInfo.h"

namespace orv {

// Reads one named device parameter; fails when the device cannot be asked.
class QueryDeviceParameter : public QueryDeviceInfo
{
public:
    QueryDeviceParameter(IMirelConnector* connector, char const* parameter)
        : QueryDeviceInfo(connector), m_parameter(parameter)
    {}
    bool execute(std::string& value) override;

private:
    char const* m_parameter;
};

class QueryArticelNumber : public QueryDeviceParameter
{
public:
    explicit QueryArticelNumber(IMirelConnector* c) : QueryDeviceParameter(c, "ArticleNumber") {}
};

class QueryDeviceName : public QueryDeviceParameter
{
public:
    explicit QueryDeviceName(IMirelConnector* c) : QueryDeviceParameter(c, "Name") {}
};

class QueryDeviceDescription : public QueryDeviceParameter
{
public:
    explicit QueryDeviceDescription(IMirelConnector* c) : QueryDeviceParameter(c, "Description") {}
};

class QueryIPV4DHCP : public QueryDeviceParameter
{
public:
    explicit QueryIPV4DHCP(IMirelConnector* c) : QueryDeviceParameter(c, "IPAddressConfig") {}
};

// A text that is the same on every device of this product.
class QueryConstant : public QueryDeviceInfo
{
public:
    QueryConstant(IMirelConnector* connector, char const* text) : QueryDeviceInfo(connector), m_text(text) {}
    bool execute(std::string& value) override
    {
        value = m_text;
        return true;
    }

private:
    char const* m_text;
};

class QueryVendorName : public QueryConstant
{
public:
    explicit QueryVendorName(IMirelConnector* c) : QueryConstant(c, "ORV ELECTRONIC") {}
};

// The location is not stored on the device; every device reports the same placeholder.
class QueryDeviceLocation : public QueryConstant
{
public:
    explicit QueryDeviceLocation(IMirelConnector* c) : QueryConstant(c, "New Location") {}
};

class QueryXMLRPCPort : public QueryConstant
{
public:
    explicit QueryXMLRPCPort(IMirelConnector* c) : QueryConstant(c, "80") {}
};

} // namespace orv
