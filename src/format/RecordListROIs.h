// The regions of interest of one evaluation model, in ascending order of their numbers, with the
// model's updated ROIs in place of the originals.
#pragma once

#include <QStringList>

#include "format/RecordListInterface.h"
#include "results/ResultModel.h"

namespace orv {

class RecordListROIs : public RecordListInterface
{
public:
    explicit RecordListROIs(ResultModel& model);

    int size() const override;
    QSharedPointer<RecordInterface> getRecord(int index) override;

private:
    void applyUpdates(ResultModel& model);

    ResultModel m_table;
    QStringList m_keys;
};

} // namespace orv
