// The device subcommands: device information, trigger, applications, I/O and statistics.
#include <cstdlib>
#include <cstring>

#include <QJsonArray>

#include "HostCommand.h"
#include "core/CommandId.h"
#include "core/VornStatus.h"
#include "device/DeviceReplies.h"
#include "info/VORNQueryDeviceInfo.h"

namespace vornhost {
namespace {

// A text field of a reply record that need not be terminated.
QString boundedText(char const* text, size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(strnlen(text, size)));
}

int runDeviceInfo(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(1, 1);
    std::string const key = args.at(0, "KEY");
    Reply reply = plugin.call(orv::CommandId::QueryDeviceInfo, key.c_str());
    out.reply(reply);
    if (!reply.empty() && reply.payload() != nullptr) {
        auto const record = reply.record<orv::VORNDeviceInfoReply>();
        out.field("key", boundedText(record.key, sizeof record.key));
        out.field("value", boundedText(record.value, sizeof record.value));
    }
    return exitCodeFor(reply);
}

int runTrigger(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(0, 0);
    Reply reply = plugin.call(orv::CommandId::AsyncTrigger, nullptr);
    out.reply(reply);
    return exitCodeFor(reply);
}

int runApps(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(0, 0);
    Reply reply = plugin.call(orv::CommandId::GetApplicationList, nullptr);
    out.reply(reply);
    if (!reply.empty() && reply.payload() != nullptr) {
        auto const record = reply.record<orv::VORNApplicationListReply>();
        QJsonArray indices;
        for (int i = 0; i < record.count && i < orv::MaxApplications; ++i)
            indices.append(record.indices[i]);
        out.field("count", record.count);
        out.field("active", record.active);
        out.field("applications", indices);
    }
    return exitCodeFor(reply);
}

int runSetApp(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(1, 1);
    int32_t const index = args.integer(0, "INDEX");
    Reply reply = plugin.call(orv::CommandId::SetApplication, &index);
    out.reply(reply);
    return exitCodeFor(reply);
}

int runGetIO(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(1, 1);
    int32_t const io = args.integer(0, "IO");
    Reply reply = plugin.call(orv::CommandId::GetIO, &io);
    out.reply(reply);
    if (!reply.empty() && reply.payload() != nullptr && reply.status() == orv::VornStatus::Success) {
        auto const record = reply.record<orv::VORNGetIOReply>();
        out.field("io", record.io);
        out.field("state", record.state);
    }
    return exitCodeFor(reply);
}

int runSetIO(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(2, 2);
    orv::VORNSetIORequest const request{args.integer(0, "IO"), args.integer(1, "STATE")};
    Reply reply = plugin.call(orv::CommandId::SetIO, &request);
    out.reply(reply);
    return exitCodeFor(reply);
}

int runStats(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(2, 2);
    std::string const key = args.at(0, "KEY");
    orv::VORNStatisticRequest request{};
    if (key.size() >= sizeof request.key)
        throw UsageError("KEY has at most 255 characters");
    memcpy(request.key, key.c_str(), key.size() + 1);
    request.representation = args.integer(1, "REPR");
    Reply reply = plugin.call(orv::CommandId::QueryStatisticInfo, &request);
    out.reply(reply);
    if (!reply.empty() && reply.payload() != nullptr) {
        auto const record = reply.record<orv::VORNStatisticReply>();
        if (reply.status() == orv::VornStatus::Success && record.value != nullptr) {
            out.field("representation", record.representation);
            out.field("size", record.size);
            switch (record.representation) {
            case 3:
                out.field("value", static_cast<double>(*static_cast<float*>(record.value)));
                break;
            case 4:
                out.field("value", *static_cast<double*>(record.value));
                break;
            default:
                out.field("value", static_cast<qint64>(*static_cast<uint32_t*>(record.value)));
                break;
            }
        }
        // The value buffer is handed over with the reply, like the payload.
        free(record.value);
    }
    return exitCodeFor(reply);
}

bool const deviceInfoRegistered = registerCommand(
    {"device-info", "one item of the device's identity or network settings",
     "device-info KEY   (vendor, article_number, name, location, device_info, ipv4_address, ipv4_subnetmask, "
     "ipv4_gateway, mac_address, ipv4_dhcp, port_number)",
     "vorn-host device-info mac_address", runDeviceInfo});
bool const triggerRegistered =
    registerCommand({"trigger", "trigger one image acquisition", "trigger", "vorn-host trigger", runTrigger});
bool const appsRegistered = registerCommand(
    {"apps", "list the applications and the active one", "apps", "vorn-host apps --json", runApps});
bool const setAppRegistered = registerCommand(
    {"set-app", "switch to another application", "set-app INDEX", "vorn-host set-app 2", runSetApp});
bool const getIORegistered = registerCommand(
    {"get-io", "read the state of an I/O (1 to 3)", "get-io IO", "vorn-host get-io 1", runGetIO});
bool const setIORegistered = registerCommand(
    {"set-io", "set an output I/O (1 to 3) to 0 or 1", "set-io IO STATE", "vorn-host set-io 1 1", runSetIO});
bool const statsRegistered = registerCommand(
    {"stats", "one decoding statistics counter; REPR 1 or 2 unsigned, 3 float, 4 double",
     "stats KEY REPR   (number_of_results, number_of_positive_decodings, number_of_false_decodings)",
     "vorn-host stats number_of_results 4", runStats});

} // namespace
} // namespace vornhost
