#include "format/VornFlexibleLayouter.h"

#include <QDebug>
#include <QVariantList>

#include "format/RecordInterface.h"
#include "format/RecordListInterface.h"
#include "format/VornFormatter.h"

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
    QVariantList const elements = format.value(QStringLiteral("elements")).toList();
    for (QVariant const& element : elements)
        serializeElement(*record, element.toMap(), settings, out);
}

void VornFlexibleLayouter::serializeElement(RecordInterface& record, QMap<QString, QVariant> const& element,
                                            QMap<QString, QVariant> const& settings, QByteArray& out)
{
    QString const id = element.value(QStringLiteral("id")).toString();
    QString const type = element.value(QStringLiteral("type")).toString();

    QMap<QString, QVariant> merged = settings;
    QMap<QString, QVariant> const options = element.value(QStringLiteral("format")).toMap();
    for (auto it = options.constBegin(); it != options.constEnd(); ++it)
        merged.insert(it.key(), it.value());

    bool const isRecords = type == QLatin1String("records");
    bool const isBlob = type == QLatin1String("blob");
    QVariant const constant = element.value(QStringLiteral("value"));

    if (constant.isValid() && !constant.isNull()) {
        if (isRecords)
            return;
        if (isBlob) {
            out.append(QByteArray::fromHex(constant.toString().toLatin1()));
            return;
        }
        merged.insert(QStringLiteral("type"), type);
        out.append(VornFormatter::formatValue(constant, merged));
        return;
    }

    if (isRecords) {
        QSharedPointer<RecordListInterface> list = record.getSubRecords(id);
        if (list.isNull()) {
            qWarning() << "type was record, but record-interface has no recordlist on the id:" << id;
            return;
        }
        serializeRecordList(list, element, merged, out);
    } else if (isBlob) {
        out.append(record.getBlob(id));
    } else {
        merged.insert(QStringLiteral("type"), type);
        out.append(VornFormatter::formatValue(record.getValue(id), merged));
    }
}
