#include "plc/PlcTypes.h"

#include <algorithm>

#include <QMap>
#include <QRegularExpression>
#include <QStringList>

namespace {

QString const Step = QStringLiteral(" \u203a ");

struct Elementary
{
    char const* st;
    char const* c;
};

QMap<QString, Elementary> const& elementaryTypes()
{
    static QMap<QString, Elementary> const types = {
        {"int8", {"SINT", "int8_t"}},      {"int16", {"INT", "int16_t"}},
        {"int32", {"DINT", "int32_t"}},    {"int64", {"LINT", "int64_t"}},
        {"uint8", {"USINT", "uint8_t"}},   {"uint16", {"UINT", "uint16_t"}},
        {"uint32", {"UDINT", "uint32_t"}}, {"uint64", {"ULINT", "uint64_t"}},
        {"float32", {"REAL", "float"}},
    };
    return types;
}

// A name both languages accept: letters, digits and single underscores, not starting with a digit.
QString identifier(QString const& wanted)
{
    QString name = wanted;
    name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9]+")), QStringLiteral("_"));
    while (name.startsWith(QLatin1Char('_')))
        name.remove(0, 1);
    while (name.endsWith(QLatin1Char('_')))
        name.chop(1);
    if (name.isEmpty())
        return QStringLiteral("field");
    if (name.at(0).isDigit())
        name.prepend(QStringLiteral("f_"));
    return name;
}

// A comment's text on one line that does not close the comment early: control characters as \xHH.
QString commentText(QString const& text, char const* closing)
{
    QString shown;
    for (QChar c : text)
        shown += c.unicode() < 0x20 ? QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'))
                                    : QString(c);
    return shown.replace(QLatin1String(closing), QStringLiteral("* )"));
}

QString commentLines(QString const& text, char const* closing)
{
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines)
        line = commentText(line, closing);
    return lines.join(QStringLiteral("\n   "));
}

} // namespace

PlcTypes::PlcTypes(std::vector<FormatTraceEntry> const& entries, QString const& typeName, bool bigEndianBus)
    : m_bigEndianBus(bigEndianBus)
{
    for (FormatTraceEntry const& entry : entries)
        m_size += entry.length;
    build(entries, QString(), identifier(typeName), m_designators);
}

int PlcTypes::build(Entries const& entries, QString const& prefix, QString const& name,
                    std::vector<QString>& designators)
{
    Type type;
    type.name = name;
    std::size_t const base = entries.empty() ? 0 : entries.front().offset;
    for (std::size_t i = 0; i < entries.size();) {
        QStringList const steps = entries[i].path.mid(prefix.size()).split(Step);
        if (steps.size() == 1) {
            Member member = leaf(entries[i++], base);
            member.name = uniqueName(member.name, type);
            designators.push_back(member.length > 0 ? member.name : QString());
            if (member.length > 0)
                type.members.push_back(member);
            continue;
        }
        // A list: steps[0] is its element, steps[1] "id[k]" one of its records.
        QString const id = steps[1].left(steps[1].lastIndexOf(QLatin1Char('[')));
        QString const listPrefix = prefix + steps[0] + Step + id + QLatin1Char('[');
        std::vector<Entries> records;
        for (; i < entries.size() && entries[i].path.startsWith(listPrefix); ++i) {
            std::size_t const k =
                entries[i].path.mid(listPrefix.size()).section(QLatin1Char(']'), 0, 0).toUInt();
            if (k >= records.size())
                records.resize(k + 1);
            records[k].push_back(entries[i]);
        }
        for (Entries const& record : records) {
            bool same = !records.front().empty() && record.size() == records.front().size();
            for (std::size_t k = 0; same && k < record.size(); ++k)
                same = record[k].length == records.front()[k].length;
            if (!same)
                throw NotFixed(
                    QStringLiteral("%1 (\"%2\"): its records differ in size, so no one type holds them")
                        .arg(prefix + steps[0], id)
                        .toStdString());
        }
        Member member;
        member.name = uniqueName(identifier(id), type);
        std::vector<QString> inner;
        member.arrayOf = build(records.front(), listPrefix + QStringLiteral("0]") + Step,
                               name + QLatin1Char('_') + identifier(id), inner);
        member.count = records.size();
        member.offset = records.front().front().offset - base;
        member.length = m_types[std::size_t(member.arrayOf)].size * member.count;
        member.comment =
            QStringLiteral("offset %1, %2 records of \"%3\"").arg(member.offset).arg(member.count).arg(id);
        for (std::size_t k = 0; k < records.size(); ++k) {
            for (QString const& designator : inner)
                designators.push_back(
                    designator.isEmpty()
                        ? QString()
                        : QStringLiteral("%1[%2].%3").arg(member.name).arg(k).arg(designator));
        }
        type.members.push_back(member);
    }
    for (Member const& member : type.members)
        type.size += member.length;
    // Two lists of one id in one record would otherwise give two types of one name.
    for (int n = 2;
         std::any_of(m_types.begin(), m_types.end(), [&](Type const& t) { return t.name == type.name; }); ++n)
        type.name = name + QLatin1Char('_') + QString::number(n);
    m_types.push_back(type);
    return int(m_types.size()) - 1;
}

PlcTypes::Member PlcTypes::leaf(FormatTraceEntry const& entry, std::size_t base) const
{
    QString const where = QStringLiteral("%1 (\"%2\")").arg(entry.path, entry.id);
    bool const constant = entry.kind == QLatin1String("constant");
    if (entry.kind == QLatin1String("blob"))
        throw NotFixed((where + QStringLiteral(" is a blob: its size is the result's, not the description's"))
                           .toStdString());
    bool const text = entry.encoding == QLatin1String("ascii");
    if (text && !constant && (entry.width == 0 || entry.length != std::size_t(entry.width)))
        throw NotFixed(
            (where + QStringLiteral(" is text of no fixed width: give it a \"width\" that every value fits"))
                .toStdString());

    Member member;
    member.name = identifier(constant ? QStringLiteral("constant") : entry.id);
    member.offset = entry.offset - base;
    member.length = entry.length;
    if (!text && entry.type != QLatin1String("bytes"))
        member.scalar = entry.type;
    QString source = constant ? QStringLiteral("constant") : QStringLiteral("\"%1\"").arg(entry.id);
    if (constant && !entry.value.isEmpty())
        source += QStringLiteral(" ") + entry.value;
    QString kind = text ? QStringLiteral("text") : entry.type;
    if (!text && entry.type != QLatin1String("bytes") && entry.bigEndian != m_bigEndianBus)
        kind += entry.bigEndian ? QStringLiteral(", big endian") : QStringLiteral(", little endian");
    member.comment = QStringLiteral("offset %1, %2 byte%3: %4, %5")
                         .arg(member.offset)
                         .arg(member.length)
                         .arg(member.length == 1 ? "" : "s")
                         .arg(source, kind);
    return member;
}

QString PlcTypes::uniqueName(QString const& wanted, Type const& type)
{
    auto const taken = [&type](QString const& name) {
        for (Member const& member : type.members) {
            if (member.name == name)
                return true;
        }
        return false;
    };
    QString name = wanted;
    for (int n = 2; taken(name); ++n)
        name = wanted + QLatin1Char('_') + QString::number(n);
    return name;
}

QString PlcTypes::text(Language language, QString const& source) const
{
    QString header =
        source +
        QStringLiteral("\nMade by vorn-host plc-types. %1 bytes, packed: no padding between fields;\n"
                       "offsets count from the start of each type. Byte order of the bus: %2.")
            .arg(m_size)
            .arg(m_bigEndianBus ? QStringLiteral("big endian") : QStringLiteral("little endian"));
    return language == C ? cText(header) : structuredText(header);
}

QString PlcTypes::structuredText(QString const& header) const
{
    QString out = QStringLiteral("(* %1 *)\n").arg(commentLines(header, "*)"));
    for (Type const& type : m_types) {
        out += QStringLiteral("\n{attribute 'pack_mode' := '1'}\nTYPE %1 :\nSTRUCT\n").arg(type.name);
        for (Member const& member : type.members) {
            QString declared;
            if (member.arrayOf >= 0)
                declared = QStringLiteral("ARRAY[0..%1] OF %2")
                               .arg(member.count - 1)
                               .arg(m_types[std::size_t(member.arrayOf)].name);
            else if (!member.scalar.isEmpty())
                declared = QString::fromLatin1(elementaryTypes().value(member.scalar).st);
            else
                declared = QStringLiteral("ARRAY[0..%1] OF BYTE").arg(member.length - 1);
            out += QStringLiteral("    %1 : %2; (* %3 *)\n")
                       .arg(member.name, declared, commentText(member.comment, "*)"));
        }
        out += QStringLiteral("END_STRUCT\nEND_TYPE\n");
    }
    return out;
}

QString PlcTypes::cText(QString const& header) const
{
    QString out = QStringLiteral("/* %1 */\n#include <stdint.h>\n\n#pragma pack(push, 1)\n")
                      .arg(commentLines(header, "*/"));
    for (Type const& type : m_types) {
        out += QStringLiteral("struct %1 {\n").arg(type.name);
        for (Member const& member : type.members) {
            QString declared;
            if (member.arrayOf >= 0)
                declared = QStringLiteral("struct %1 %2[%3]")
                               .arg(m_types[std::size_t(member.arrayOf)].name, member.name)
                               .arg(member.count);
            else if (!member.scalar.isEmpty())
                declared = QStringLiteral("%1 %2").arg(
                    QString::fromLatin1(elementaryTypes().value(member.scalar).c), member.name);
            else
                declared = QStringLiteral("uint8_t %1[%2]").arg(member.name).arg(member.length);
            out += QStringLiteral("    %1; /* %2 */\n").arg(declared, commentText(member.comment, "*/"));
        }
        out += QStringLiteral("};\n");
    }
    return out + QStringLiteral("#pragma pack(pop)\n");
}
