#include "plc/PlcTypes.h"

#include "plc/CDecoder.h"
#include "plc/StDecoder.h"

QString PlcTypes::header(QString const& source) const
{
    QString const bus = m_bigEndianBus ? QStringLiteral("big endian") : QStringLiteral("little endian");
    if (m_layout.hasLists())
        return source + QStringLiteral("\nMade by vorn-host plc-types for a bus of byte order %1.").arg(bus);
    return source +
           QStringLiteral("\nMade by vorn-host plc-types. %1 bytes, packed: no padding between fields.\n"
                          "Numbers are in the bus's byte order (%2) unless a comment says otherwise;\n"
                          "a PLC of the other byte order swaps them itself.")
               .arg(m_layout.size())
               .arg(bus);
}

QString PlcTypes::text(Language language, QString const& source) const
{
    if (m_layout.hasLists()) {
        if (language == C)
            return CDecoder(m_layout).text(header(source));
        return StDecoder(m_layout).text(header(source));
    }
    return language == C ? cText(header(source)) : structuredText(header(source));
}

QString PlcTypes::structuredText(QString const& header) const
{
    PlcLayout::Record const& root = m_layout.root();
    QString out = QStringLiteral("(* %1 *)\n\n{attribute 'pack_mode' := '1'}\nTYPE %2 :\nSTRUCT\n")
                      .arg(DecoderWalk::commentLines(header, "*)"), root.typeName);
    std::size_t offset = 0;
    for (PlcLayout::Item const& item : root.items) {
        if (item.entry.length == 0)
            continue;
        QString const declared = item.isConstant() || item.isText()
                                     ? QStringLiteral("ARRAY[0..%1] OF BYTE").arg(item.entry.length - 1)
                                     : QString::fromLatin1(DecoderWalk::scalar(item.entry.type).st);
        out += QStringLiteral("    %1 : %2; (* offset %3: %4 *)\n")
                   .arg(item.name, declared)
                   .arg(offset)
                   .arg(DecoderWalk::commentText(DecoderWalk::describe(item), "*)"));
        offset += item.entry.length;
    }
    return out + QStringLiteral("END_STRUCT\nEND_TYPE\n");
}

QString PlcTypes::cText(QString const& header) const
{
    PlcLayout::Record const& root = m_layout.root();
    QString const name = root.typeName, upper = root.typeName.toUpper();
    QString out =
        QStringLiteral("/* %1 */\n#ifndef %2_H\n#define %2_H\n\n#include <stdint.h>\n\n#define %2_SIZE %3\n\n"
                       "#pragma pack(push, 1)\nstruct %4 {\n")
            .arg(DecoderWalk::commentLines(header, "*/"), upper)
            .arg(m_layout.size())
            .arg(name);
    std::size_t offset = 0;
    for (PlcLayout::Item const& item : root.items) {
        if (item.entry.length == 0)
            continue;
        QString const declared =
            item.isConstant() || item.isText()
                ? QStringLiteral("uint8_t %1[%2]").arg(item.name).arg(item.entry.length)
                : QStringLiteral("%1 %2").arg(QString::fromLatin1(DecoderWalk::scalar(item.entry.type).c),
                                              item.name);
        out += QStringLiteral("    %1; /* offset %2: %3 */\n")
                   .arg(declared)
                   .arg(offset)
                   .arg(DecoderWalk::commentText(DecoderWalk::describe(item), "*/"));
        offset += item.entry.length;
    }
    if (offset == 0)
        out += QStringLiteral("    uint8_t no_fields; /* the answer is empty; C needs a member */\n");
    return out + QStringLiteral(
                     "};\n#pragma pack(pop)\n\n/* Fails to compile where the packing is not honoured. */\n"
                     "typedef char %1_size_check[sizeof(struct %2) == %3_SIZE ? 1 : -1];\n\n#endif\n")
                     .arg(name, name, upper);
}
