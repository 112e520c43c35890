#include "results/ResultLookup.h"

#include <exception>
#include <map>

#include <QMap>

#include "logger/RedisLogger.h"
#include "results/ResultKeys.h"
#include "results/VORNResultManager.h"

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

ResultLookup::Kind ResultLookup::kindOf(std::string const& key)
{
    // Built on first use, so it exists before any request whatever the order of static construction.
    static std::map<std::string, Kind> const kinds = [] {
        std::map<std::string, Kind> table = {{ResultKeys::JsonModel, Kind::JsonModel},
                                             {ResultKeys::JsonDiagnostic, Kind::JsonDiagnostic},
                                             {ResultKeys::DiagnosticData, Kind::DiagnosticData},
                                             {ResultKeys::AmplitudePicture, Kind::AmplitudePicture}};
        for (char const* frameKey : ResultKeys::FrameData)
            table.emplace(frameKey, Kind::FrameData);
        return table;
    }();
    auto const it = kinds.find(key);
    return it != kinds.end() ? it->second : Kind::None;
}

ResultLookup::ResultLookup(VORNResultManager& manager, Logger::RedisLogger& logger, std::string resultId)
    : m_manager(manager), m_logger(logger), m_resultId(std::move(resultId))
{}

unsigned char const* ResultLookup::blob(std::string const& key, unsigned int& length) const
{
    length = 0;
    try {
        switch (kindOf(key)) {
        case Kind::FrameData: {
            unsigned int size = 0;
            auto const* data =
                static_cast<unsigned char const*>(m_manager.getTmpFSData(m_resultId, key, &size));
            length = data != nullptr ? size : 0;
            return data;
        }
        case Kind::JsonModel:
            return bytesOf(m_manager.getSerializedJsonModel(m_resultId), length);
        case Kind::DiagnosticData:
            return bytesOf(m_manager.getDiagnosticData(m_resultId), length);
        case Kind::JsonDiagnostic:
            return bytesOf(m_manager.getJsonDiagnostic(m_resultId), length);
        case Kind::AmplitudePicture: // a picture is no blob of an output
        case Kind::None:
            return nullptr;
        }
    } catch (std::exception const& e) {
        // A result id that is no number cannot number a chunk's frame; the blob is then missing.
        m_logger.log(Logger::RedisLogger::ERROR, "%s(%s): %s", "getBlob", key.c_str(), e.what());
        length = 0;
    }
    return nullptr;
}

QVariant ResultLookup::deviceValue(QString const& id) const
{
    // KEPT: "temp_imx6" has no field, so it always comes from the result itself.
    static QMap<QString, QString> const fields = {
        {"temp_front1", "TemperatureFrontend1"}, {"temp_front2", "TemperatureFrontend2"},
        {"temp_illu", "TemperatureIllu"},        {"evaltime", "FrameDuration"},
        {"exposure_time_1", "ExposureTime1"},    {"exposure_time_2", "ExposureTime2"},
        {"exposure_time_3", "ExposureTime3"},
    };
    auto const it = fields.constFind(id);
    if (it == fields.constEnd())
        return QVariant();
    return QVariant(m_manager.getRedisResult(m_resultId, it.value()));
}

} // namespace orv
