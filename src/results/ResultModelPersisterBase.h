// Stores and loads JSON result models under a key; keeps the storage behind the result manager
// exchangeable.
#pragma once

#include <QString>

class ResultModel;

namespace orv {

class ResultModelPersisterBase
{
public:
    virtual ~ResultModelPersisterBase() = default;

    virtual bool put(QString key, ResultModel& model) = 0;
    virtual bool putJson(QString key, QString json) = 0;
    virtual bool get(QString key, ResultModel& model) = 0;
    virtual QString getJson(QString key) = 0;
};

} // namespace orv
