#include "format/VornFlexibleLayouter.h"

#include "format/RecordInterface.h"
#include "format/RecordListInterface.h"
#include "format/VornFormatOutput.h"
#include "format/VornFormatPlan.h"

void VornFlexibleLayouter::serializeRecordList(QSharedPointer<RecordListInterface> list,
                                               QMap<QString, QVariant> const& format,
                                               QMap<QString, QVariant> const& settings, QByteArray& out)
{
    if (list.isNull())
        return;
    VornFormatOutput output;
    VornFormatPlan::fromNode(format, settings)->writeList(*list, output);
    out.append(output.toByteArray());
}

void VornFlexibleLayouter::serializeRecord(QSharedPointer<RecordInterface> record,
                                           QMap<QString, QVariant> const& format,
                                           QMap<QString, QVariant> const& settings, QByteArray& out)
{
    if (record.isNull())
        return;
    VornFormatOutput output;
    VornFormatPlan::fromNode(format, settings)->write(*record, output);
    out.append(output.toByteArray());
}
