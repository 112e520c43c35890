#include "plc/PlcLayout.h"

#include "format/VornFormatOutput.h"
#include "format/VornFormatPlan.h"
#include "plc/LayoutRecord.h"

namespace {

QString const Step = QStringLiteral(" \u203a ");

// "elements[12]" -> 12
int indexOf(QString const& step)
{
    return step.section(QLatin1Char('['), 1).section(QLatin1Char(']'), 0, 0).toInt();
}

QString where(FormatTraceEntry const& entry)
{
    return QStringLiteral("%1 (\"%2\")").arg(entry.path, entry.id);
}

} // namespace

PlcLayout PlcLayout::ofRequest(QByteArray const& request, bool bigEndianBus, QString const& typeName,
                               QMap<QString, int> const& capacities)
{
    // A result without values whose every list holds one record shows each list's shape once.
    std::shared_ptr<VornFormatPlan const> const plan = VornFormatPlan::fromRequest(
        request, bigEndianBus ? BusByteOrder::BigEndian : BusByteOrder::LittleEndian);
    if (plan == nullptr)
        throw NotDecodable("the description is no JSON");
    LayoutRecord record;
    VornFormatOutput output;
    FormatTrace trace;
    plan->write(record, output, &trace);
    return PlcLayout(output.toByteArray(), trace.entries(), typeName, capacities);
}

PlcLayout::PlcLayout(QByteArray const& output, std::vector<FormatTraceEntry> const& entries,
                     QString const& typeName, QMap<QString, int> const& capacities)
    : m_output(output), m_capacities(capacities)
{
    m_root = build(entries, 0, entries.size(), QString(), PlcNames::identifier(typeName));
}

std::shared_ptr<PlcLayout::Record> PlcLayout::build(Entries const& entries, std::size_t begin,
                                                    std::size_t end, QString const& prefix,
                                                    QString const& typeName)
{
    auto record = std::make_shared<Record>();
    record->typeName = m_typeNames.unique(typeName);
    PlcNames names;
    for (std::size_t i = begin; i < end;) {
        FormatTraceEntry const& entry = entries[i++];
        QString const step = entry.path.mid(prefix.size());
        Item item = entry.kind == QLatin1String("list") ? Item() : leaf(entry);
        item.entry = entry;
        item.element = indexOf(step);
        item.name =
            names.unique(PlcNames::identifier(item.isConstant() ? QStringLiteral("constant") : entry.id));
        if (entry.kind == QLatin1String("list")) {
            ++m_lists;
            QString const inner = prefix + step + Step + entry.id + QStringLiteral("[0]") + Step;
            std::size_t last = i;
            while (last < end && entries[last].path.startsWith(inner))
                ++last;
            // Named outer list first, as the description reads.
            if (!m_capacities.contains(entry.id) && !m_missing.contains(entry.id))
                m_missing.append(entry.id);
            m_listIds.insert(entry.id);
            item.records = build(entries, i, last, inner, typeName + QLatin1Char('_') + item.name);
            i = last;
            item.capacity = m_capacities.value(entry.id, 1);
            countList(*record, item);
        } else if (prefix.isEmpty()) {
            m_size += entry.length;
        }
        record->items.push_back(item);
    }
    return record;
}

PlcLayout::Item PlcLayout::leaf(FormatTraceEntry const& entry) const
{
    if (entry.kind == QLatin1String("blob"))
        throw NotDecodable(
            (where(entry) + QStringLiteral(" is data of the result: its size is the result's, so "
                                           "no fixed code reads what follows it"))
                .toStdString());
    Item item;
    item.entry = entry;
    bool const text = entry.encoding == QLatin1String("ascii");
    if (text && entry.kind == QLatin1String("value") &&
        (entry.width == 0 || entry.length != std::size_t(entry.width)))
        throw NotDecodable(
            (where(entry) +
             QStringLiteral(" is text of no fixed width: give it a \"width\" that every value fits"))
                .toStdString());
    if (item.isConstant())
        item.bytes = m_output.mid(int(entry.offset), int(entry.length));
    return item;
}

void PlcLayout::countList(Record const& record, Item& list) const
{
    QString const countId = list.entry.id + QStringLiteral(".count");
    for (int k = int(record.items.size()) - 1; k >= 0; --k) {
        Item const& item = record.items[std::size_t(k)];
        if (item.entry.kind != QLatin1String("value") || item.entry.id != countId)
            continue;
        if (item.isText() || item.entry.type == QLatin1String("float32"))
            throw NotDecodable(
                (where(item.entry) +
                 QStringLiteral(" counts the records of \"%1\" but is no binary integer: a reader "
                                "needs the count as a binary integer type")
                     .arg(list.entry.id))
                    .toStdString());
        list.count = k;
        return;
    }
    throw NotDecodable(
        QStringLiteral(
            "%1, the list \"%2\": the answer does not say how many records follow, so no reader can "
            "tell where the list ends; put {\"type\": \"uint16\", \"id\": \"%3\", \"format\": "
            "{\"dataencoding\": \"binary\"}} before it, in the same record")
            .arg(list.entry.path, list.entry.id, countId)
            .toStdString());
}

QString PlcLayout::designator(QString const& path) const
{
    QStringList const steps = path.split(Step);
    Record const* record = m_root.get();
    QString designator;
    for (int s = 0; s < steps.size() && record != nullptr; ++s) {
        int const element = indexOf(steps[s]);
        Item const* found = nullptr;
        for (Item const& item : record->items) {
            if (item.element == element)
                found = &item;
        }
        if (found == nullptr)
            return QString();
        if (!found->isList())
            return s + 1 == steps.size() && !found->isConstant() ? designator + found->name : QString();
        if (s + 1 == steps.size())
            return QString();
        designator += QStringLiteral("%1[%2].").arg(found->name).arg(indexOf(steps[++s]));
        record = found->records.get();
    }
    return QString();
}

QStringList PlcLayout::unknownCapacities() const
{
    QStringList unknown;
    for (QString const& id : m_capacities.keys())
        if (!m_listIds.contains(id))
            unknown.append(id);
    return unknown;
}
