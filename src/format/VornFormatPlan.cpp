#include "format/VornFormatPlan.h"

#include <QDebug>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QVariantList>

#include "core/JsonParser.h"
#include "format/FormatTrace.h"
#include "format/RecordInterface.h"
#include "format/RecordListInterface.h"
#include "format/VornFormatOutput.h"
#include "format/VornFormatter.h"

std::shared_ptr<VornFormatPlan const> VornFormatPlan::fromRequest(QByteArray const& text, BusByteOrder bus,
                                                                  QString* error)
{
    QJsonParseError parsed{};
    QJsonDocument const document = orv::JsonParser::parse(text, &parsed);
    if (parsed.error != QJsonParseError::NoError) {
        if (error != nullptr)
            *error = parsed.errorString();
        return nullptr;
    }
    // The one option a request sets for all its elements: an element ordered "busdepending" reads it.
    QMap<QString, QVariant> settings;
    settings.insert(QStringLiteral("busEndianness"), bus == BusByteOrder::BigEndian ? 1u : 0u);
    return fromNode(document.toVariant().toMap().value(QStringLiteral("format")).toMap(), settings);
}

std::shared_ptr<VornFormatPlan const> VornFormatPlan::fromNode(QMap<QString, QVariant> const& node,
                                                               QMap<QString, QVariant> const& settings)
{
    return std::shared_ptr<VornFormatPlan const>(new VornFormatPlan(node, settings));
}

VornFormatPlan::VornFormatPlan(QMap<QString, QVariant> const& node, QMap<QString, QVariant> const& settings)
    : m_elements(prepare(node, settings))
{}

std::vector<VornFormatPlan::Element> VornFormatPlan::prepare(QMap<QString, QVariant> const& format,
                                                             QMap<QString, QVariant> const& settings)
{
    std::vector<Element> elements;
    for (QVariant const& element : format.value(QStringLiteral("elements")).toList()) {
        elements.push_back(prepareElement(element.toMap(), settings));
        elements.back().index = int(elements.size()) - 1;
    }
    return elements;
}

VornFormatPlan::Element VornFormatPlan::prepareElement(QMap<QString, QVariant> const& element,
                                                       QMap<QString, QVariant> const& settings)
{
    Element planned;
    planned.id = element.value(QStringLiteral("id")).toString();
    QString const type = element.value(QStringLiteral("type")).toString();

    // The element's options override the inherited ones; the merged set is what nested lists inherit.
    QMap<QString, QVariant> merged = settings;
    QMap<QString, QVariant> const options = element.value(QStringLiteral("format")).toMap();
    for (auto it = options.constBegin(); it != options.constEnd(); ++it)
        merged.insert(it.key(), it.value());

    bool const isRecords = type == QLatin1String("records");
    bool const isBlob = type == QLatin1String("blob");
    QVariant const constant = element.value(QStringLiteral("value"));
    bool const hasConstant = constant.isValid() && !constant.isNull();

    if (isRecords) {
        planned.kind = hasConstant ? Element::Nothing : Element::Records;
        if (!hasConstant)
            planned.elements = prepare(element, merged);
        return planned;
    }
    if (hasConstant)
        planned.constantValue = constant;
    if (isBlob) {
        planned.blob = true;
        planned.kind = hasConstant ? Element::Constant : Element::Blob;
        if (hasConstant)
            planned.constant = QByteArray::fromHex(constant.toString().toLatin1());
        return planned;
    }
    // The element's own type decides, whatever an enclosing level or its "format" object says.
    merged.insert(QStringLiteral("type"), type);
    planned.settings.loadSettingsFromVariants(merged, planned.messages);
    planned.kind = hasConstant ? Element::Constant : Element::Value;
    if (hasConstant) {
        std::string bytes;
        VornFormatter::formatInto(constant, planned.settings, bytes, &planned.constantEffects);
        planned.constant = QByteArray(bytes.data(), static_cast<int>(bytes.size()));
    }
    return planned;
}

void VornFormatPlan::write(RecordInterface& record, VornFormatOutput& out, FormatTrace* trace) const
{
    writeElements(m_elements, record, out, trace, QString());
}

void VornFormatPlan::writeElements(std::vector<Element> const& elements, RecordInterface& record,
                                   VornFormatOutput& out, FormatTrace* trace, QString const& path)
{
    for (Element const& element : elements) {
        std::size_t const offset = out.size();
        QVariant value;
        unsigned effects = 0;
        switch (element.kind) {
        case Element::Constant:
            element.messages.replay();
            out.append(element.constant);
            break;
        case Element::Value:
            // The value first: a record's note about a missing id comes before the option notes.
            value = record.getValue(element.id);
            element.messages.replay();
            VornFormatter::formatInto(value, element.settings, out.gathered(), &effects);
            break;
        case Element::Blob:
            out.appendBlob(record.getBlob(element.id));
            break;
        case Element::Records:
            writeRecords(element, record, out, trace, path);
            break;
        case Element::Nothing:
            break;
        }
        if (trace != nullptr)
            traceElement(element, value, effects, offset, out, *trace, path);
    }
}

void VornFormatPlan::writeList(RecordListInterface& list, VornFormatOutput& out) const
{
    writeEach(m_elements, QString(), 0, list, out, nullptr, QString());
}

void VornFormatPlan::writeRecords(Element const& element, RecordInterface& record, VornFormatOutput& out,
                                  FormatTrace* trace, QString const& path)
{
    QSharedPointer<RecordListInterface> list = record.getSubRecords(element.id);
    if (trace != nullptr)
        traceList(element, list.data(), out.size(), *trace, path);
    if (list.isNull()) {
        qWarning() << "type was record, but record-interface has no recordlist on the id:" << element.id;
        return;
    }
    writeEach(element.elements, element.id, element.index, *list, out, trace, path);
}

void VornFormatPlan::writeEach(std::vector<Element> const& elements, QString const& id, int index,
                               RecordListInterface& list, VornFormatOutput& out, FormatTrace* trace,
                               QString const& path)
{
    // The size is asked anew for every index on purpose: a list may only know it as it goes.
    for (int i = 0; i < list.size(); ++i) {
        QSharedPointer<RecordInterface> sub = list.getRecord(i);
        if (sub.isNull()) {
            qWarning() << "get a null-record at index:" << i;
            continue;
        }
        QString const inner =
            trace == nullptr
                ? QString()
                : QStringLiteral("%1elements[%2] \u203a %3[%4] \u203a ").arg(path).arg(index).arg(id).arg(i);
        writeElements(elements, *sub, out, trace, inner);
    }
}

void VornFormatPlan::traceElement(Element const& element, QVariant const& value, unsigned effects,
                                  std::size_t offset, VornFormatOutput const& out, FormatTrace& trace,
                                  QString const& path)
{
    std::size_t const written = out.size() - offset;
    FormatTraceEntry entry;
    switch (element.kind) {
    case Element::Value:
        entry = FormatTrace::valueEntry(value, element.settings, written, effects);
        break;
    case Element::Constant:
        if (element.blob) {
            entry.type = QStringLiteral("bytes");
            entry.value = QString::fromLatin1(element.constant.toHex());
            entry.note = QStringLiteral("constant");
        } else {
            entry = FormatTrace::valueEntry(element.constantValue, element.settings, written,
                                            element.constantEffects);
            entry.note =
                entry.note.isEmpty() ? QStringLiteral("constant") : QStringLiteral("constant, ") + entry.note;
        }
        break;
    case Element::Blob:
        entry.type = QStringLiteral("bytes");
        if (written == 0)
            entry.note = QStringLiteral("no such data for this result: nothing written");
        break;
    case Element::Records:
    case Element::Nothing:
        return; // its elements have their own entries
    }
    entry.offset = offset;
    entry.length = written;
    entry.path = QStringLiteral("%1elements[%2]").arg(path).arg(element.index);
    entry.id = element.kind == Element::Constant ? QString() : element.id;
    entry.kind = element.kind == Element::Blob       ? QStringLiteral("blob")
                 : element.kind == Element::Constant ? QStringLiteral("constant")
                                                     : QStringLiteral("value");
    trace.add(entry);
}

void VornFormatPlan::traceList(Element const& element, RecordListInterface* list, std::size_t offset,
                               FormatTrace& trace, QString const& path)
{
    // Written nothing itself: the line says how many records follow, or that the record has no
    // such list (a misspelt id), which the output alone never shows.
    FormatTraceEntry entry;
    entry.offset = offset;
    entry.path = QStringLiteral("%1elements[%2]").arg(path).arg(element.index);
    entry.id = element.id;
    entry.kind = QStringLiteral("list");
    entry.type = QStringLiteral("records");
    if (list == nullptr)
        entry.note = QStringLiteral("no such list in this record: nothing written");
    else
        entry.value = QString::number(list->size());
    trace.add(entry);
}
