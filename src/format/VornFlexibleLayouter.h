// Walks the "elements" of an output-format description over a record and appends, per element, a
// formatted value, a blob, a constant, or every record of a nested list under the element's own
// elements. Holds no state: one instance serves any number of requests.
#pragma once

#include "format/VornResultLayouter.h"

class VornFlexibleLayouter : public VornResultLayouter
{
public:
    void serializeRecordList(QSharedPointer<RecordListInterface> list, QMap<QString, QVariant> const& format,
                             QMap<QString, QVariant> const& settings, QByteArray& out) override;
    // Options of an element override the inherited settings; the merged set is what nested lists
    // inherit. Missing lists, records and values never stop the walk. The description is read into
    // a plan for this one call; the format-results command keeps its plans for the next request.
    void serializeRecord(QSharedPointer<RecordInterface> record, QMap<QString, QVariant> const& format,
                         QMap<QString, QVariant> const& settings, QByteArray& out) override;
};
