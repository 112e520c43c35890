// Writes one acquired result in the byte layout a client described in its output-format
// description, and serves the record views the device values and image blobs they ask for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <QString>
#include <QVariant>

#include "core/VORNCommand.h"
#include "format/VornFormatPlanCache.h"

class FormatTrace;
class VornFormatOutput;

namespace orv {

class VORNResultManager;
namespace Logger {
class RedisLogger;
}

// The request payload: the result id, then where the request's JSON text lies and the client's bus
// byte order.
struct FormatResultsRequest
{
    char resultId[12];    // NUL-terminated decimal text
    char const* json;     // an object with the entry "format"
    uint32_t jsonLength;  // bytes of json
    int32_t busByteOrder; // 4321: big endian; anything else: little endian
};

// The reply payload: status, then the formatted bytes (malloc'd; the host frees them).
struct FormatResultsReply
{
    int32_t status;
    unsigned char* data;
    uint32_t size;
    uint32_t hasData; // 1 once the output is attached
    uint32_t reserved;
};

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(FormatResultsRequest) == 24, "the format request is 24 bytes");
static_assert(offsetof(FormatResultsRequest, json) == 12, "JSON address at offset 12");
static_assert(offsetof(FormatResultsRequest, jsonLength) == 16, "JSON length at offset 16");
static_assert(offsetof(FormatResultsRequest, busByteOrder) == 20, "byte order at offset 20");
static_assert(sizeof(FormatResultsReply) == 20, "the format reply is 20 bytes");
static_assert(offsetof(FormatResultsReply, data) == 4, "data address at offset 4");
static_assert(offsetof(FormatResultsReply, size) == 8, "data length at offset 8");
static_assert(offsetof(FormatResultsReply, hasData) == 12, "flag at offset 12");
static_assert(offsetof(FormatResultsReply, reserved) == 16, "last word at offset 16");
#endif

class VORNFormatResults : public VORNCommand
{
public:
    static constexpr int32_t BigEndianBus = 4321;

    VORNFormatResults(VORNResultManager& manager, Logger::RedisLogger& logger);

    DataBlock* execute(DataBlock const* request) override;

    // The current request's result, as its records read it: the values the device keeps for it
    // ("temp_front1", "evaltime", ...; invalid for other ids) and the bytes the result manager holds
    // for it (null for an unknown or missing blob).
    QVariant getValue(QString const& id);
    unsigned char const* getBlob(std::string const& id, unsigned int& length);
    QVariant getVORNIdFromRedis(QString const& id);

    // Formats as a request is served and tells the trace what each element wrote where, for tools
    // that explain an output byte by byte; false (and logged) when the text is no JSON.
    bool formatTraced(FormatResultsRequest const& request, VornFormatOutput& output, FormatTrace& trace);

private:
    // The plan of the request's description, kept or read now; null (and logged) when the text is
    // no JSON. The parse comes before the result id on purpose: a rejected request touches nothing.
    std::shared_ptr<VornFormatPlan const> planFor(FormatResultsRequest const& request);
    void format(FormatResultsRequest const& request, VornFormatPlan const& plan, VornFormatOutput& output,
                FormatTrace* trace = nullptr);

    Logger::RedisLogger& m_logger;
    std::string m_resultId;
    VORNResultManager& m_manager;
    VornFormatPlanCache m_plans;
};

} // namespace orv
