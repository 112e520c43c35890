// One request's view of the acquired result by the names clients use: frame data in place, the data
// derived from the result, and the values the device keeps for it. The format-results command's
// records read through it, and the query command serves its keys by the same table.
#pragma once

#include <string>

#include <QString>
#include <QVariant>

namespace orv {

class VORNResultManager;
namespace Logger {
class RedisLogger;
}

class ResultLookup
{
public:
    enum class Kind
    {
        None,
        FrameData,
        JsonModel,
        JsonDiagnostic,
        DiagnosticData,
        AmplitudePicture,
    };
    // What a key names; None for a key no client can ask for.
    static Kind kindOf(std::string const& key);

    ResultLookup(VORNResultManager& manager, Logger::RedisLogger& logger, std::string resultId);

    // A blob of a formatted output: frame data, the JSON model, the diagnostic record or text;
    // null (length 0) for any other key or for data the result does not have. A derived chunk that
    // an id that is no number cannot number is missing, and the log says why.
    unsigned char const* blob(std::string const& key, unsigned int& length) const;
    // A value the device keeps in the result's hash, by the id a description uses ("temp_front1",
    // "evaltime", ...); invalid for any other id, "temp_imx6" included: that one always comes from
    // the result itself.
    QVariant deviceValue(QString const& id) const;

private:
    VORNResultManager& m_manager;
    Logger::RedisLogger& m_logger;
    std::string m_resultId;
};

} // namespace orv
