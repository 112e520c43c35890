#include "plc/CDecoder.h"

namespace {

QString upper(QString const& name)
{
    return name.toUpper();
}

} // namespace

QString CDecoder::capacityName(PlcLayout::Item const& list) const
{
    return upper(list.records->typeName) + QStringLiteral("_CAPACITY");
}

QString CDecoder::types() const
{
    QString out;
    for (PlcLayout::Record const* record : DecoderWalk::types(m_layout)) {
        out += QStringLiteral("struct %1 {\n").arg(record->typeName);
        int members = 0;
        for (PlcLayout::Item const& item : record->items) {
            QString declared;
            if (item.isList())
                declared = QStringLiteral("struct %1 %2[%3]")
                               .arg(item.records->typeName, item.name, capacityName(item));
            else if (item.isConstant())
                continue;
            else if (item.isText())
                declared = QStringLiteral("char %1[%2]").arg(item.name).arg(item.entry.length + 1);
            else
                declared = QStringLiteral("%1 %2").arg(
                    QString::fromLatin1(DecoderWalk::scalar(item.entry.type).c), item.name);
            QString const what = item.isList()
                                     ? QStringLiteral("the records of \"%1\", as many as %2 says")
                                           .arg(item.entry.id, record->items[std::size_t(item.count)].name)
                                     : DecoderWalk::describe(item);
            out += QStringLiteral("    %1; /* %2 */\n").arg(declared, DecoderWalk::commentText(what, "*/"));
            ++members;
        }
        if (members == 0)
            out +=
                QStringLiteral("    uint8_t no_fields; /* the records hold no field; C needs a member */\n");
        out += QStringLiteral("};\n\n");
    }
    return out;
}

QString CDecoder::text(QString const& header)
{
    m_prefix = m_layout.root().typeName;
    m_body.clear();
    m_indent = 1;
    DecoderWalk::walk(m_layout, *this);

    QString const p = m_prefix, P = upper(m_prefix);
    QString out =
        QStringLiteral("/* %1\n\n"
                       "   How to use:\n"
                       "       struct %2 answer;\n"
                       "       long n = %2_decode(bytes, length, &answer);\n"
                       "       if (n < 0) fprintf(stderr, \"%s\\n\", %2_error_text(n));\n"
                       "   %2_decode reads the whole answer of `length` bytes, field by field in the byte\n"
                       "   order each is written in (whatever this machine's own), follows every count,\n"
                       "   checks every bound, and returns the number of bytes read or a negative\n"
                       "   %2_error. A list holds at most its capacity (%3); its count field says how\n"
                       "   many records it holds. Text fields end with a NUL added here. */\n")
            .arg(DecoderWalk::commentLines(header, "*/"), p, DecoderWalk::capacities(m_layout.root()));
    out +=
        QStringLiteral(
            "#ifndef %1_H\n#define %1_H\n\n#include <stddef.h>\n#include <stdint.h>\n#include <string.h>\n\n")
            .arg(P);
    for (PlcLayout::Record const* record : DecoderWalk::types(m_layout)) {
        for (PlcLayout::Item const& item : record->items) {
            if (item.isList())
                out += QStringLiteral("#define %1 %2\n").arg(capacityName(item)).arg(item.capacity);
        }
    }
    out += QStringLiteral("\n") + types();
    out +=
        QStringLiteral(
            "enum %1_error {\n"
            "    %2_TOO_SHORT = -1,      /* the answer ends inside a field */\n"
            "    %2_OVER_CAPACITY = -2,  /* a count is negative or above its list's capacity */\n"
            "    %2_TRAILING_BYTES = -3, /* bytes follow the answer */\n"
            "    %2_WRONG_CONSTANT = -4  /* a constant differs: not an answer to this description */\n"
            "};\n\n"
            "static inline const char *%1_error_text(long status)\n{\n"
            "    switch (status) {\n"
            "    case %2_TOO_SHORT: return \"the answer is too short: it ends inside a field\";\n"
            "    case %2_OVER_CAPACITY: return \"a count is above its list's capacity: raise the "
            "capacity\";\n"
            "    case %2_TRAILING_BYTES: return \"bytes follow the answer: a count or a description "
            "differs\";\n"
            "    case %2_WRONG_CONSTANT: return \"a constant differs: not an answer to this description\";\n"
            "    default: return status < 0 ? \"unknown error\" : \"read\";\n"
            "    }\n}\n\n"
            "/* The number of `size` bytes at p, big endian or little endian. */\n"
            "static inline uint64_t %1_bits(const uint8_t *p, size_t size, int big)\n{\n"
            "    uint64_t bits = 0;\n"
            "    size_t k;\n"
            "    for (k = 0; k < size; ++k)\n"
            "        bits = (bits << 8) | p[big ? k : size - 1 - k];\n"
            "    return bits;\n}\n\n"
            "/* Two's complement of `size` bytes, without relying on the conversion of large unsigned "
            "values. */\n"
            "static inline int64_t %1_signed(uint64_t bits, size_t size)\n{\n"
            "    uint64_t const sign = (uint64_t)1 << (8 * size - 1);\n"
            "    return (bits & sign) ? -(int64_t)(~bits & (sign - 1)) - 1 : (int64_t)bits;\n}\n\n"
            "static inline float %1_float(uint64_t bits)\n{\n"
            "    uint32_t const word = (uint32_t)bits;\n"
            "    float value;\n"
            "    memcpy(&value, &word, sizeof value);\n"
            "    return value;\n}\n\n")
            .arg(p, P);
    QString loops;
    for (int i = 1; i <= DecoderWalk::depth(m_layout.root()); ++i)
        loops += QStringLiteral("%1i%2").arg(i == 1 ? "" : ", ").arg(i);
    out += QStringLiteral(
               "static inline long %1_decode(const uint8_t *answer, size_t length, struct %1 *out)\n{\n"
               "    size_t pos = 0;\n")
               .arg(p);
    if (!loops.isEmpty())
        out += QStringLiteral("    size_t %1;\n").arg(loops);
    out +=
        QStringLiteral("    memset(out, 0, sizeof *out);\n") + m_body +
        QStringLiteral(
            "    if (pos != length)\n        return %1_TRAILING_BYTES;\n    return (long)pos;\n}\n\n#endif\n")
            .arg(P);
    return out;
}

void CDecoder::line(QString const& statement)
{
    m_body += QString(4 * m_indent, QLatin1Char(' ')) + statement + QLatin1Char('\n');
}

void CDecoder::need(PlcLayout::Item const& item)
{
    line(QStringLiteral("/* %1: %2 */")
             .arg(DecoderWalk::place(item), DecoderWalk::commentText(DecoderWalk::describe(item), "*/")));
    line(QStringLiteral("if (length - pos < %1)").arg(item.entry.length));
    line(QStringLiteral("    return %1_TOO_SHORT;").arg(upper(m_prefix)));
}

void CDecoder::number(PlcLayout::Item const& item, QString const& target)
{
    need(item);
    DecoderWalk::Scalar const s = DecoderWalk::scalar(item.entry.type);
    QString const bits = QStringLiteral("%1_bits(answer + pos, %2, %3)")
                             .arg(m_prefix)
                             .arg(s.bytes)
                             .arg(item.entry.bigEndian ? 1 : 0);
    QString value;
    if (s.isFloat)
        value = QStringLiteral("%1_float(%2)").arg(m_prefix, bits);
    else if (s.isSigned)
        value = QStringLiteral("(%1)%2_signed(%3, %4)")
                    .arg(QString::fromLatin1(s.c), m_prefix, bits)
                    .arg(s.bytes);
    else
        value = QStringLiteral("(%1)%2").arg(QString::fromLatin1(s.c), bits);
    line(QStringLiteral("out->%1 = %2;").arg(target, value));
    line(QStringLiteral("pos += %1;").arg(item.entry.length));
}

void CDecoder::text(PlcLayout::Item const& item, QString const& target)
{
    need(item);
    line(QStringLiteral("memcpy(out->%1, answer + pos, %2);").arg(target).arg(item.entry.length));
    line(QStringLiteral("pos += %1;").arg(item.entry.length));
}

void CDecoder::constant(PlcLayout::Item const& item)
{
    need(item);
    // One literal per byte: a hex escape would otherwise take the digits of the next byte.
    QString literal;
    for (char byte : item.bytes)
        literal +=
            QStringLiteral("\"\\x%1\"").arg(uint(static_cast<unsigned char>(byte)), 2, 16, QLatin1Char('0'));
    line(QStringLiteral("if (memcmp(answer + pos, %1, %2) != 0)").arg(literal).arg(item.entry.length));
    line(QStringLiteral("    return %1_WRONG_CONSTANT;").arg(upper(m_prefix)));
    line(QStringLiteral("pos += %1;").arg(item.entry.length));
}

void CDecoder::beginList(PlcLayout::Item const& list, PlcLayout::Item const& countItem, QString const& count,
                         QString const& index)
{
    line(QStringLiteral("/* %1: the records of \"%2\" */")
             .arg(DecoderWalk::place(list), DecoderWalk::commentText(list.entry.id, "*/")));
    DecoderWalk::Scalar const s = DecoderWalk::scalar(countItem.entry.type);
    // A check that cannot fail for the count's type would draw the compiler's warning.
    QStringList checks;
    if (s.isSigned)
        checks.append(QStringLiteral("out->%1 < 0").arg(count));
    if (DecoderWalk::maximum(countItem.entry.type) > static_cast<unsigned long long>(list.capacity))
        checks.append(QStringLiteral("out->%1 > %2").arg(count, capacityName(list)));
    if (!checks.isEmpty()) {
        line(QStringLiteral("if (%1)").arg(checks.join(QStringLiteral(" || "))));
        line(QStringLiteral("    return %1_OVER_CAPACITY;").arg(upper(m_prefix)));
    }
    line(QStringLiteral("for (%1 = 0; %1 < (size_t)out->%2; ++%1) {").arg(index, count));
    ++m_indent;
}

void CDecoder::endList()
{
    --m_indent;
    line(QStringLiteral("}"));
}
