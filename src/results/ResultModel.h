// One JSON result document of the camera (the per-frame result model and the diagnostic documents
// derived from it), held as an implicitly shared map from top-level keys to values.
#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>

class ResultModel
{
public:
    ResultModel() = default;

    // Replaces the content with the parsed document; a failed parse or a top-level array leaves
    // the model empty, so a model never keeps stale content after a parse.
    bool parse(QByteArray& json);
    // The whole map as indented JSON text.
    QByteArray serialize();

    // Exact top-level lookups: no path syntax, a dot or slash is just part of a key.
    QVariant get(QString key);
    bool get(QString key, QVariant& out);
    // Hit only for a non-empty object; the nested map is shared, not copied.
    bool get(QString key, ResultModel& out);
    // Depth-first search that descends into the first non-empty nested object only.
    bool getRecursive(QString key, QVariant& out);

    void insert(QString key, QVariant value);
    void replace(const QMap<QString, QVariant>& map);
    void clear();

    QList<QString> getKeys();
    QMap<QString, QVariant>& getMap();
    const QMap<QString, QVariant>& getConstMap() const;

    operator QVariant();

private:
    QMap<QString, QVariant> m_map;
};
