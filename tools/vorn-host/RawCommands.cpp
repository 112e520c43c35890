// "raw": any request id with a payload made on the command line, for ids no other subcommand knows.
#include <cstdlib>

#include "HostCommand.h"

namespace vornhost {
namespace {

int runRaw(Plugin& plugin, Output& out, Args& args)
{
    std::optional<std::string> integer = args.option("--int");
    std::optional<std::string> pair = args.option("--ints");
    std::optional<std::string> text = args.option("--text");
    std::optional<std::string> bytes = args.option("--bytes");
    args.expectCount(1, 1);
    int id = args.integer(0, "ID");

    int32_t words[2] = {0, 0};
    void const* payload = nullptr;
    if (integer) {
        words[0] = static_cast<int32_t>(strtol(integer->c_str(), nullptr, 0));
        payload = words;
    } else if (pair) {
        auto comma = pair->find(',');
        if (comma == std::string::npos)
            throw UsageError("--ints takes two integers separated by a comma");
        words[0] = static_cast<int32_t>(strtol(pair->substr(0, comma).c_str(), nullptr, 0));
        words[1] = static_cast<int32_t>(strtol(pair->substr(comma + 1).c_str(), nullptr, 0));
        payload = words;
    } else if (text) {
        payload = text->c_str();
    }

    Reply reply = plugin.call(id, payload);
    out.field("request", id);
    out.reply(reply);
    if (bytes && reply.payload() != nullptr) {
        // The reply carries no length: the caller says how much of the record to show.
        out.note(hexDump(reply.payload(), static_cast<size_t>(atoi(bytes->c_str()))).trimmed());
    }
    return exitCodeFor(reply);
}

bool const registered = registerCommand({"raw", "send any request id with an integer, pair or text payload",
                                         "raw ID [--int N | --ints A,B | --text TEXT] [--bytes N]",
                                         "vorn-host raw 20 --text vendor --bytes 16", runRaw});

} // namespace
} // namespace vornhost
