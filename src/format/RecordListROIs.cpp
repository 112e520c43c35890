#include "format/RecordListROIs.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <QDebug>

#include "format/RecordRoi.h"
#include "format/VariantText.h"

namespace orv {

RecordListROIs::RecordListROIs(ResultModel& model)
{
    if (!model.get(QStringLiteral("ROIs"), m_table)) {
        qWarning() << "Requested RecordListROIs, but the model has no ROIs";
        return;
    }
    // Each key read as a number once, not at every comparison; the order is the same.
    std::vector<std::pair<int, QString>> numbered;
    for (QString const& key : m_table.getKeys())
        numbered.emplace_back(key.toInt(nullptr, 10), key);
    std::sort(numbered.begin(), numbered.end(),
              [](auto const& a, auto const& b) { return a.first < b.first; });
    for (auto const& [number, key] : numbered)
        m_keys.append(key);
    // KEPT: after the keys, so an updated ROI that was not among the ROIs is stored but not listed.
    applyUpdates(model);
}

void RecordListROIs::applyUpdates(ResultModel& model)
{
    QVariant updated;
    if (!model.get(QStringLiteral("ROIsUpdated"), updated))
        return;
    QVariantList const rois = updated.toMap().value(QStringLiteral("ROIs")).toList();
    for (QVariant const& roi : rois) {
        QVariantMap const fields = roi.toMap();
        m_table.insert(variantText(fields.value(QStringLiteral("id"))), fields);
    }
}

int RecordListROIs::size() const
{
    return m_keys.size();
}

QSharedPointer<RecordInterface> RecordListROIs::getRecord(int index)
{
    if (index < 0 || index >= m_keys.size())
        return QSharedPointer<RecordInterface>();
    QString const& key = m_keys.at(index);
    ResultModel roi;
    if (!m_table.get(key, roi))
        return QSharedPointer<RecordInterface>();
    return QSharedPointer<RecordRoi>::create(roi, key.toInt(nullptr, 10));
}

} // namespace orv
