// The result subcommands: acquire a result id, query its data by key, free it. A result stays
// acquired only within one plug-in load, so a client walks them in one session:
//   printf 'acquire\nquery 1 distance_image --out distance.bin\nfree 1\n' | vorn-host session
#include <cstdio>
#include <cstring>
#include <strings.h>
#include <utility>

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

bool namedLike(std::string const& file, std::string const& suffix)
{
    return file.size() >= suffix.size() &&
           strcasecmp(file.c_str() + file.size() - suffix.size(), suffix.c_str()) == 0;
}

// What --out writes: the chunk as the plug-in answered it, or, for a FILE named *.png or *.json,
// the picture or text after the chunk header alone, so that viewers and editors open it as it is.
// A name that promises what the data is not is refused rather than written misleadingly.
std::pair<unsigned char const*, size_t> outputBytes(std::string const& file, bool raw, std::string const& key,
                                                    unsigned char const* data, size_t size, int32_t type)
{
    bool const png = namedLike(file, ".png"), json = namedLike(file, ".json");
    if (raw || (!png && !json))
        return {data, size};
    size_t const header = sizeof(orv::ChunkHeader);
    static unsigned char const signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    bool const isPng =
        size >= header + sizeof signature && memcmp(data + header, signature, sizeof signature) == 0;
    bool const isJson = size >= header && type == orv::VORN_DATA_JSON;
    if ((png && isPng) || (json && isJson))
        return {data + header, size - header};
    throw cli::Failure(key + " holds no " + (png ? "PNG picture" : "JSON text") + " to write to " + file +
                           ": name the file otherwise, or add --raw to write the chunk as it came",
                       1);
}

int runQuery(Plugin& plugin, Output& out, Args& args)
{
    std::optional<std::string> const file = args.option("--out");
    bool const raw = args.flag("--raw");
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
        auto const [bytes, count] = outputBytes(*file, raw, key, data, record.size, record.type);
        FILE* f = fopen(file->c_str(), "wb");
        bool const written = f != nullptr && fwrite(bytes, 1, count, f) == count;
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
     "query RESULT_ID KEY [--out FILE] [--raw]\n\n"
     "--out FILE writes the data as the plug-in answered it: a chunk, the 48-byte chunk header and\n"
     "then the payload. A FILE named *.png (z4_amplitude_png) or *.json (json_model, json_diagnostic)\n"
     "gets the picture or text alone, ready to open; --raw keeps the chunk whatever the name.",
     "printf 'acquire 1\\nquery 1 z4_amplitude_png --out amplitude.png\\n' | vorn-host session", runQuery});
bool const freeRegistered = registerCommand(
    {"free", "give back everything held for a result id", "free RESULT_ID", "vorn-host free 1", runFree});

} // namespace
} // namespace vornhost
