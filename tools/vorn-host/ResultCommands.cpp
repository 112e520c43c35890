// The result subcommands: acquire a result id, query its data by key, free it. A result stays
// acquired only within one plug-in load, so a client walks them in one session:
//   printf 'acquire\nquery 1 distance_image --out distance.bin\nfree 1\n' | vorn-host session
#include <cstdio>
#include <cstring>

#include <QString>

#include "HostCommand.h"
#include "core/ChunkHeader.h"
#include "core/CommandId.h"
#include "core/Paths.h"
#include "results/VORNResultRecords.h"
#include "resultsync/FrameClient.h"

namespace vornhost {
namespace {

char const* typeName(int32_t type)
{
    switch (type) {
    case orv::VORN_DATA_NONE:
        return "none";
    case orv::VORN_DATA_BINARY:
        return "binary";
    case orv::VORN_DATA_JSON:
        return "json";
    default:
        return "unknown";
    }
}

// Without an id, the oldest result the camera has published and nobody has taken yet, waiting up to
// a second for one (a trigger just sent publishes a moment later). The frame is only looked at,
// not taken: the plug-in takes it.
std::string nextPublishedId()
{
    orv::resultsync::FrameClient observer(false);
    std::unique_ptr<orv::resultsync::Frame> frame = observer.waitForFrame(1000);
    return frame ? frame->getId() : std::string();
}

int runAcquire(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(0, 1);
    std::string const id = args.count() == 1 ? args.at(0, "RESULT_ID") : nextPublishedId();
    if (id.empty()) {
        out.note("no result published in " + QString::fromStdString(orv::Paths::frameDir()) +
                 ": trigger the camera first");
        out.field("status", "no result");
        return 1;
    }
    Reply reply = plugin.call(orv::CommandId::AcquireResultId, id.c_str());
    out.reply(reply);
    out.field("id", QString::fromStdString(id));
    return exitCodeFor(reply);
}

void describeData(Output& out, unsigned char const* data, uint32_t size, int32_t type)
{
    if (data == nullptr || size < sizeof(orv::ChunkHeader))
        return;
    orv::ChunkHeader header;
    memcpy(&header, data, sizeof header);
    out.field("chunk_type", static_cast<qint64>(header.chunkType));
    out.field("width", static_cast<qint64>(header.width));
    out.field("height", static_cast<qint64>(header.height));
    out.field("pixel_format", static_cast<qint64>(header.pixelFormat));
    out.field("frame_count", static_cast<qint64>(header.frameCount));
    if (type == orv::VORN_DATA_JSON)
        out.field("text", QString::fromUtf8(reinterpret_cast<char const*>(data) + sizeof header,
                                            static_cast<int>(size - sizeof header)));
}

int runQuery(Plugin& plugin, Output& out, Args& args)
{
    std::optional<std::string> const file = args.option("--out");
    args.expectCount(2, 2);
    std::string const id = args.at(0, "RESULT_ID");
    std::string const key = args.at(1, "KEY");
    if (key.size() >= 256 || id.size() >= 256)
        throw UsageError("KEY and RESULT_ID are at most 255 characters");
    orv::VORNQueryProcessData_t request;
    memset(&request, 0, sizeof request);
    memcpy(request.key, key.data(), key.size());
    memcpy(request.id, id.data(), id.size());

    Reply reply = plugin.call(orv::CommandId::QueryResultData, &request);
    out.reply(reply);
    if (reply.empty() || reply.payload() == nullptr)
        return exitCodeFor(reply);
    auto const record = reply.record<orv::VORNResultData_t>();
    out.field("name",
              QString::fromUtf8(record.name, static_cast<int>(strnlen(record.name, sizeof record.name))));
    out.field("type", typeName(record.type));
    out.field("size", static_cast<qint64>(record.size));
    out.field("address", QString("0x%1").arg(reinterpret_cast<quintptr>(record.data), 0, 16));
    auto const* data = static_cast<unsigned char const*>(record.data);
    describeData(out, data, record.size, record.type);
    if (file && data != nullptr) {
        FILE* f = fopen(file->c_str(), "wb");
        bool const written = f != nullptr && fwrite(data, 1, record.size, f) == record.size;
        if (f != nullptr)
            fclose(f);
        if (!written) {
            out.note("cannot write " + QString::fromStdString(*file));
            return 1;
        }
        out.field("written", QString::fromStdString(*file));
    }
    return exitCodeFor(reply);
}

int runFree(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(1, 1);
    std::string const id = args.at(0, "RESULT_ID");
    Reply reply = plugin.call(orv::CommandId::FreeResultId, id.c_str());
    out.reply(reply);
    return exitCodeFor(reply);
}

bool const acquireRegistered =
    registerCommand({"acquire", "make the next published result current (default: the oldest one waiting)",
                     "acquire [RESULT_ID]", "vorn-host session <<< 'acquire'", runAcquire});
bool const queryRegistered = registerCommand(
    {"query",
     "data of the acquired result by key (frame data, json_model, json_diagnostic, z4_amplitude_png)",
     "query RESULT_ID KEY [--out FILE]",
     "printf 'acquire 1\\nquery 1 z4_amplitude_png --out amplitude.chunk\\n' | vorn-host session", runQuery});
bool const freeRegistered = registerCommand(
    {"free", "give back everything held for a result id", "free RESULT_ID", "vorn-host free 1", runFree});

} // namespace
} // namespace vornhost
