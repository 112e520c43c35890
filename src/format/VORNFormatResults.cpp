#include "format/VORNFormatResults.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "core/VornStatus.h"
#include "format/FormatTrace.h"
#include "format/RecordMain.h"
#include "format/VornFormatOutput.h"
#include "logger/RedisLogger.h"
#include "results/ResultLookup.h"
#include "results/ResultModel.h"
#include "results/VORNResultManager.h"

using orv::Logger::RedisLogger;

namespace orv {

VORNFormatResults::VORNFormatResults(VORNResultManager& manager, RedisLogger& logger)
    : m_logger(logger), m_manager(manager)
{}

QVariant VORNFormatResults::getValue(QString const& id)
{
    return getVORNIdFromRedis(id);
}

unsigned char const* VORNFormatResults::getBlob(std::string const& id, unsigned int& length)
{
    return ResultLookup(m_manager, m_logger, m_resultId).blob(id, length);
}

QVariant VORNFormatResults::getVORNIdFromRedis(QString const& id)
{
    return ResultLookup(m_manager, m_logger, m_resultId).deviceValue(id);
}

DataBlock* VORNFormatResults::execute(DataBlock const* request)
{
    auto* reply = static_cast<FormatResultsReply*>(malloc(sizeof(FormatResultsReply)));
    if (reply != nullptr) {
        memset(reply, 0, sizeof *reply);
        // KEPT: a served request too answers with this status; clients look at the data flag.
        reply->status = VornStatus::GenericFailure;
    }
    DataBlock* block = create_DataBlock(ReplyCode::Default, reinterpret_cast<unsigned char*>(reply));
    if (block == nullptr) {
        free(reply);
        return nullptr;
    }
    if (reply == nullptr || request == nullptr || request->data == nullptr)
        return block;

    auto const& record = *reinterpret_cast<FormatResultsRequest const*>(request->data);
    std::shared_ptr<VornFormatPlan const> plan = planFor(record);
    if (plan == nullptr) {
        reply->status = VornStatus::RejectedArgument;
        return block;
    }

    VornFormatOutput output;
    try {
        format(record, *plan, output);
    } catch (std::exception const& e) {
        m_logger.log(RedisLogger::ERROR, "%s: formatting failed: %s", "execute", e.what());
        return block;
    }
    // Only a 64-bit host can make more than the reply's 32-bit size holds; a variable of 64 bits
    // keeps the camera's compiler from calling the test always false.
    uint64_t const outputSize = output.size();
    if (outputSize > UINT32_MAX) {
        m_logger.log(RedisLogger::ERROR, "%s: %zu bytes of output do not fit the reply", "execute",
                     output.size());
        return block;
    }

    // malloc(0) may give null; an empty output is still a served request.
    auto* data = static_cast<unsigned char*>(malloc(output.size() == 0 ? 1 : output.size()));
    if (data == nullptr) {
        m_logger.log(RedisLogger::ERROR, "%s: no memory for %zu bytes of output", "execute", output.size());
        return block;
    }
    output.copyTo(data);
    reply->data = data;
    reply->size = static_cast<uint32_t>(output.size());
    reply->hasData = 1;
    reply->reserved = 0;
    return block;
}

std::shared_ptr<VornFormatPlan const> VORNFormatResults::planFor(FormatResultsRequest const& request)
{
    // Read in place; a missing or oversized text parses as empty, which is a parse error.
    bool const readable = request.json != nullptr && request.jsonLength <= static_cast<uint32_t>(INT32_MAX);
    QByteArray const text =
        readable ? QByteArray::fromRawData(request.json, static_cast<int>(request.jsonLength)) : QByteArray();
    BusByteOrder const bus =
        request.busByteOrder == BigEndianBus ? BusByteOrder::BigEndian : BusByteOrder::LittleEndian;
    if (std::shared_ptr<VornFormatPlan const> known = m_plans.find(text, bus))
        return known;

    QString error;
    std::shared_ptr<VornFormatPlan const> plan = VornFormatPlan::fromRequest(text, bus, &error);
    if (plan == nullptr) {
        m_logger.log(RedisLogger::WARN, "%s: An error occurred during parsing: %s", "execute",
                     error.toLocal8Bit().constData());
        return nullptr;
    }
    m_plans.insert(text, bus, plan);
    return plan;
}

void VORNFormatResults::format(FormatResultsRequest const& request, VornFormatPlan const& plan,
                               VornFormatOutput& output, FormatTrace* trace)
{
    // The id field is a fixed 12 bytes; an id that fills it has no terminator there.
    m_resultId.assign(request.resultId, strnlen(request.resultId, sizeof request.resultId));

    // Read in place: the manager keeps the model of the current id until the next id is asked for,
    // and this request asks for no other.
    ResultModel const noModel;
    ResultModel const* model = m_manager.getJsonModel(m_resultId);
    if (model == nullptr)
        m_logger.log(RedisLogger::WARN, "%s: getJsonModel(%s) returned nullptr", "execute",
                     m_resultId.c_str());

    ResultLookup const lookup(m_manager, m_logger, m_resultId);
    RecordMain main(&lookup, model != nullptr ? *model : noModel, m_resultId.c_str());
    plan.write(main, output, trace);
}

bool VORNFormatResults::formatTraced(FormatResultsRequest const& request, VornFormatOutput& output,
                                     FormatTrace& trace)
{
    std::shared_ptr<VornFormatPlan const> plan = planFor(request);
    if (plan == nullptr)
        return false;
    format(request, *plan, output, &trace);
    return true;
}

} // namespace orv
