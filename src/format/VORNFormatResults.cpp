#include "format/VORNFormatResults.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <QJsonDocument>
#include <QJsonParseError>

#include "core/JsonParser.h"
#include "core/VornStatus.h"
#include "format/FormatTrace.h"
#include "format/RecordMain.h"
#include "format/VornFormatOutput.h"
#include "logger/RedisLogger.h"
#include "results/ResultModel.h"
#include "results/VORNResultManager.h"

using orv::Logger::RedisLogger;

namespace orv {

namespace {

unsigned char const* bytesOf(VORNResultManager::ResultData const* data, unsigned int& length)
{
    if (data == nullptr || data->data == nullptr)
        return nullptr;
    length = static_cast<unsigned int>(data->size);
    return static_cast<unsigned char const*>(data->data);
}

} // namespace

VORNFormatResults::VORNFormatResults(VORNResultManager& manager, RedisLogger& logger)
    : m_logger(logger), m_manager(manager)
{}

std::map<std::string, VORNFormatResults::BlobHandler> const& VORNFormatResults::blobHandlers()
{
    static std::map<std::string, BlobHandler> const handlers = {
        {"normalized_amplitude_image", &VORNFormatResults::getTmpFsData},
        {"distance_image", &VORNFormatResults::getTmpFsData},
        {"x_image", &VORNFormatResults::getTmpFsData},
        {"y_image", &VORNFormatResults::getTmpFsData},
        {"z_image", &VORNFormatResults::getTmpFsData},
        {"confidence_image", &VORNFormatResults::getTmpFsData},
        {"extrinsic_calibration", &VORNFormatResults::getTmpFsData},
        {"all_cartesian_vector_matrices", &VORNFormatResults::getTmpFsData},
        {"amplitude_image", &VORNFormatResults::getTmpFsData},
        {"raw_image_data", &VORNFormatResults::getTmpFsData},
        {"all_unit_vector_matrices", &VORNFormatResults::getTmpFsData},
        {"json_model", &VORNFormatResults::getJsonModel},
        {"diagnostic_data", &VORNFormatResults::getDiagnosticData},
        {"json_diagnostic", &VORNFormatResults::getJsonDiagnostic},
    };
    return handlers;
}

QMap<QString, VORNFormatResults::ValueHandler> const& VORNFormatResults::valueHandlers()
{
    static QMap<QString, ValueHandler> const handlers = {
        {"temp_front1", &VORNFormatResults::getVORNIdFromRedis},
        {"temp_front2", &VORNFormatResults::getVORNIdFromRedis},
        {"temp_imx6", &VORNFormatResults::getVORNIdFromRedis},
        {"temp_illu", &VORNFormatResults::getVORNIdFromRedis},
        {"evaltime", &VORNFormatResults::getVORNIdFromRedis},
        {"exposure_time_1", &VORNFormatResults::getVORNIdFromRedis},
        {"exposure_time_2", &VORNFormatResults::getVORNIdFromRedis},
        {"exposure_time_3", &VORNFormatResults::getVORNIdFromRedis},
    };
    return handlers;
}

QMap<QString, QString> const& VORNFormatResults::deviceKeys()
{
    // "temp_imx6" has no key on purpose: its value then comes from the result itself.
    static QMap<QString, QString> const keys = {
        {"temp_front1", "TemperatureFrontend1"}, {"temp_front2", "TemperatureFrontend2"},
        {"temp_illu", "TemperatureIllu"},        {"evaltime", "FrameDuration"},
        {"exposure_time_1", "ExposureTime1"},    {"exposure_time_2", "ExposureTime2"},
        {"exposure_time_3", "ExposureTime3"},
    };
    return keys;
}

QVariant VORNFormatResults::getValue(QString const& id)
{
    auto const it = valueHandlers().constFind(id);
    if (it == valueHandlers().constEnd())
        return QVariant();
    return (this->*it.value())(id);
}

unsigned char const* VORNFormatResults::getBlob(std::string const& id, unsigned int& length)
{
    length = 0;
    auto const it = blobHandlers().find(id);
    if (it == blobHandlers().end())
        return nullptr;
    try {
        return (this->*it->second)(id, length);
    } catch (std::exception const& e) {
        // A result id that is no number cannot name a chunk's frame; the blob is then missing.
        m_logger.log(RedisLogger::ERROR, "%s(%s): %s", "getBlob", id.c_str(), e.what());
        length = 0;
        return nullptr;
    }
}

QVariant VORNFormatResults::getVORNIdFromRedis(QString const& id)
{
    auto const it = deviceKeys().constFind(id);
    if (it == deviceKeys().constEnd())
        return QVariant();
    return QVariant(m_manager.getRedisResult(m_resultId, it.value()));
}

unsigned char const* VORNFormatResults::getTmpFsData(std::string const& id, unsigned int& length)
{
    unsigned int size = 0;
    auto const* data = static_cast<unsigned char const*>(m_manager.getTmpFSData(m_resultId, id, &size));
    length = data != nullptr ? size : 0;
    return data;
}

unsigned char const* VORNFormatResults::getJsonModel(std::string const&, unsigned int& length)
{
    return bytesOf(m_manager.getSerializedJsonModel(m_resultId), length);
}

unsigned char const* VORNFormatResults::getDiagnosticData(std::string const&, unsigned int& length)
{
    return bytesOf(m_manager.getDiagnosticData(m_resultId), length);
}

unsigned char const* VORNFormatResults::getJsonDiagnostic(std::string const&, unsigned int& length)
{
    return bytesOf(m_manager.getJsonDiagnostic(m_resultId), length);
}

DataBlock* VORNFormatResults::execute(DataBlock const* request)
{
    auto* reply = static_cast<FormatResultsReply*>(malloc(sizeof(FormatResultsReply)));
    if (reply != nullptr) {
        memset(reply, 0, sizeof *reply);
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
    bool const bigEndianBus = request.busByteOrder == BigEndianBus;
    if (std::shared_ptr<VornFormatPlan const> known = m_plans.find(text, bigEndianBus))
        return known;

    QJsonParseError error{};
    QJsonDocument const document = JsonParser::parse(text, &error);
    if (error.error != QJsonParseError::NoError) {
        m_logger.log(RedisLogger::WARN, "%s: An error occurred during parsing: %s", "execute",
                     error.errorString().toLocal8Bit().constData());
        return nullptr;
    }
    QVariantMap settings;
    settings.insert(QStringLiteral("busEndianness"), bigEndianBus ? 1u : 0u);
    auto plan = std::make_shared<VornFormatPlan const>(
        document.toVariant().toMap().value(QStringLiteral("format")).toMap(), settings);
    m_plans.insert(text, bigEndianBus, plan);
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

    RecordMain main(this, model != nullptr ? *model : noModel, m_resultId.c_str());
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
