#include "format/RecordMain.h"

#include <QDebug>

#include "format/RecordListModels.h"
#include "results/ResultLookup.h"

namespace orv {
namespace {

// Follows a chain of nested objects; a missing level gives an invalid value.
QVariant nested(QVariant const& top, std::initializer_list<char const*> path)
{
    QVariant value = top;
    for (char const* key : path)
        value = value.toMap().value(QString::fromLatin1(key));
    return value;
}

QVariant timing(QVariantMap const& statistics, char const* family, QString const& suffix, bool& handled)
{
    QVariantMap const times = statistics.value(QString::fromLatin1(family)).toMap();
    for (char const* ending : {"min", "max", "mean"}) {
        if (suffix.endsWith(QLatin1String(ending)))
            return times.value(QString::fromLatin1(ending));
    }
    handled = false;
    return QVariant();
}

} // namespace

RecordMain::RecordMain(ResultLookup const* result, ResultModel const& model, char const* resultId)
    : m_owner(result), m_model(model), m_resultId(resultId)
{}

QSharedPointer<RecordListInterface> RecordMain::models()
{
    if (m_models.isNull())
        m_models = QSharedPointer<RecordListModels>::create(m_model, QString::fromLatin1(m_resultId));
    return m_models;
}

QSharedPointer<RecordListInterface> RecordMain::getSubRecords(QString const& id)
{
    if (id == QLatin1String("models"))
        return models();
    return QSharedPointer<RecordListInterface>();
}

QByteArray RecordMain::getBlob(QString const& id)
{
    if (m_owner == nullptr)
        return QByteArray();
    unsigned int length = 0;
    unsigned char const* data = m_owner->blob(id.toStdString(), length);
    if (data == nullptr)
        return QByteArray();
    return QByteArray::fromRawData(reinterpret_cast<char const*>(data), static_cast<int>(length));
}

QVariant RecordMain::getValue(QString const& id)
{
    if (id == QLatin1String("models.count"))
        return models()->size();
    if (id == QLatin1String("digital_outputs"))
        return nested(m_model.get(QStringLiteral("ll_results")), {"digital_out", "values"});
    if (id == QLatin1String("virtual_outputs"))
        return virtualOutputs();
    if (id == QLatin1String("current_passed"))
        return nested(m_model.get(QStringLiteral("ll_results")), {"statistics", "current_passed"}) ==
               QVariant(true);
    if (id == QLatin1String("activeapp_id"))
        return m_model.get(QStringLiteral("ApplicationIndex"));
    if (id.startsWith(QLatin1String("statistics_"))) {
        bool handled = true;
        QVariant const value = statistic(id, handled);
        if (handled)
            return value;
    }

    if (m_owner != nullptr) {
        QVariant const fromDevice = m_owner->deviceValue(id);
        if (fromDevice.isValid())
            return fromDevice;
    }
    return lookup(id);
}

QVariant RecordMain::virtualOutputs()
{
    QVariantMap const bytes = nested(m_model.get(QStringLiteral("ll_results")), {"virtual_out"}).toMap();
    unsigned long long outputs = 0;
    for (int i = 8; i >= 1; --i) {
        outputs <<= 8;
        outputs |=
            static_cast<unsigned long long>(bytes.value(QStringLiteral("byte%1").arg(i)).toInt() & 0xFF);
    }
    return QVariant::fromValue<qulonglong>(outputs);
}

QVariant RecordMain::statistic(QString const& id, bool& handled)
{
    QString const suffix = id.mid(int(sizeof "statistics_") - 1);
    QVariant statisticsTree;
    bool const present = m_model.get(QStringLiteral("adv_statistics"), statisticsTree);
    QVariantMap const statistics = statisticsTree.toMap();

    static std::pair<char const*, char const*> const counters[] = {
        {"overall_count", "number_of_frames"},
        {"passed_count", "number_of_passed_frames"},
        {"failed_count", "number_of_failed_frames"},
        {"aborted_count", "number_of_aborted_frames"},
    };
    for (auto const& counter : counters) {
        if (suffix == QLatin1String(counter.first))
            return present ? statistics.value(QString::fromLatin1(counter.second)) : QVariant();
    }

    static std::pair<char const*, char const*> const timings[] = {
        {"acquisition_time_", "frame_acquisition"},
        {"evaluation_time_", "frame_evaluation"},
        {"frame_duration_", "frame_duration"},
    };
    for (auto const& family : timings) {
        if (suffix.startsWith(QLatin1String(family.first))) {
            QVariant const value = timing(statistics, family.second, suffix, handled);
            return present ? value : QVariant();
        }
    }

    qDebug() << "Main ResultModel doesn't contain id:" << id;
    return QVariant();
}

QVariant RecordMain::lookup(QString const& id)
{
    QVariant value;
    if (m_model.get(id, value))
        return value;
    qDebug() << "Main ResultModel doesn't contain id:" << id;
    return QVariant();
}

} // namespace orv
