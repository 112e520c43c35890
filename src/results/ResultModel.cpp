#include "results/ResultModel.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QtGlobal>

#include "core/JsonParser.h"

bool ResultModel::parse(QByteArray& json)
{
    QJsonParseError error;
    // Swapped in before the error is looked at: callers rely on a failed parse emptying the model.
    m_map = orv::JsonParser::toVariant(json, &error).toMap();
    if (error.error != QJsonParseError::NoError) {
        qWarning("%s: An error occurred during parsing: %s", "parse",
                 error.errorString().toLocal8Bit().constData());
        return false;
    }
    return true;
}

QByteArray ResultModel::serialize()
{
    return QJsonDocument::fromVariant(QVariant(m_map)).toJson(QJsonDocument::Indented);
}

QVariant ResultModel::get(QString key)
{
    return m_map.value(key);
}

bool ResultModel::get(QString key, QVariant& out)
{
    auto it = m_map.constFind(key);
    if (it == m_map.constEnd())
        return false;
    out = it.value();
    return true;
}

bool ResultModel::get(QString key, ResultModel& out)
{
    auto it = m_map.constFind(key);
    if (it == m_map.constEnd())
        return false;
    QVariantMap const nested = it.value().toMap();
    if (nested.isEmpty())
        return false;
    out.replace(nested);
    return true;
}

bool ResultModel::getRecursive(QString key, QVariant& out)
{
    if (get(key, out))
        return true;
    for (auto it = m_map.constBegin(); it != m_map.constEnd(); ++it) {
        if (it.value().type() != QVariant::Map)
            continue;
        QVariantMap const nested = it.value().toMap();
        if (nested.isEmpty())
            continue;
        // Only the first non-empty object is searched; later siblings are never tried.
        ResultModel child;
        child.replace(nested);
        return child.getRecursive(key, out);
    }
    return false;
}

void ResultModel::insert(QString key, QVariant value)
{
    m_map.insert(key, value);
}

void ResultModel::replace(const QMap<QString, QVariant>& map)
{
    m_map = map;
}

void ResultModel::clear()
{
    m_map = QMap<QString, QVariant>();
}

QList<QString> ResultModel::getKeys()
{
    return m_map.keys();
}

QMap<QString, QVariant>& ResultModel::getMap()
{
    return m_map;
}

const QMap<QString, QVariant>& ResultModel::getConstMap() const
{
    return m_map;
}

ResultModel::operator QVariant()
{
    return QVariant(m_map);
}
