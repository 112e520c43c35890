#include "format/VornFlexibleLayouter.h"

#include <QDebug>

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
    // The size is asked anew for every index on purpose: a list may only know it as it goes.
    for (int i = 0; i < list->size(); ++i) {
        QSharedPointer<RecordInterface> record = list->getRecord(i);
        if (record.isNull()) {
            qWarning() << "get a null-record at index:" << i;
            continue;
        }
        serializeRecord(record, format, settings, out);
    }
}

void VornFlexibleLayouter::serializeRecord(QSharedPointer<RecordInterface> record,
                                           QMap<QString, QVariant> const& format,
                                           QMap<QString, QVariant> const& settings, QByteArray& out)
{
    if (record.isNull())
        return;
    VornFormatOutput output;
    VornFormatPlan(format, settings).write(*record, output);
    out.append(output.toByteArray());
}
