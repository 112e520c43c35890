#include "plc/StDecoder.h"

namespace {

// Errors the function block reports; 0 is success.
char const* const Errors =
    "   error 0: answer holds every field; consumed says how many bytes were read.\n"
    "   error 1: the answer is too short: it ends inside a field.\n"
    "   error 2: a count is negative or above its list's capacity: raise the capacity.\n"
    "   error 3: bytes follow the answer: a count or the description differs.\n"
    "   error 4: a constant differs: not an answer to this description.\n"
    "   error 5: length is more than buffer holds.";

} // namespace

QString StDecoder::types() const
{
    QString out;
    for (PlcLayout::Record const* record : DecoderWalk::types(m_layout)) {
        out += QStringLiteral("TYPE %1 :\nSTRUCT\n").arg(record->typeName);
        int members = 0;
        for (PlcLayout::Item const& item : record->items) {
            QString declared;
            if (item.isList())
                declared =
                    QStringLiteral("ARRAY[0..%1] OF %2").arg(item.capacity - 1).arg(item.records->typeName);
            else if (item.isConstant())
                continue;
            else if (item.isText())
                declared = QStringLiteral("ARRAY[0..%1] OF BYTE").arg(item.entry.length - 1);
            else
                declared = QString::fromLatin1(DecoderWalk::scalar(item.entry.type).st);
            QString const what = item.isList()
                                     ? QStringLiteral("the records of \"%1\", as many as %2 says")
                                           .arg(item.entry.id, record->items[std::size_t(item.count)].name)
                                     : DecoderWalk::describe(item);
            out += QStringLiteral("    %1 : %2; (* %3 *)\n")
                       .arg(item.name, declared, DecoderWalk::commentText(what, "*)"));
            ++members;
        }
        if (members == 0)
            out += QStringLiteral(
                "    no_fields : BYTE; (* the records hold no field; a STRUCT needs a member *)\n");
        out += QStringLiteral("END_STRUCT\nEND_TYPE\n\n");
    }
    return out;
}

QString StDecoder::helpers() const
{
    return QStringLiteral(
               "(* The number of size bytes from buffer[start], big endian or little endian. *)\n"
               "FUNCTION %1_bits : LWORD\n"
               "VAR_IN_OUT\n    buffer : ARRAY[*] OF BYTE;\nEND_VAR\n"
               "VAR_INPUT\n    start : DINT;\n    size : DINT;\n    big : BOOL;\nEND_VAR\n"
               "VAR\n    k : DINT;\n    b : BYTE;\nEND_VAR\n"
               "%1_bits := 0;\n"
               "FOR k := 0 TO size - 1 DO\n"
               "    IF big THEN\n        b := buffer[start + k];\n    ELSE\n        b := buffer[start + size "
               "- 1 - k];\n"
               "    END_IF;\n"
               "    %1_bits := SHL(%1_bits, 8) OR BYTE_TO_LWORD(b);\n"
               "END_FOR;\n"
               "END_FUNCTION\n\n"
               "(* The REAL whose IEEE 754 bits these are, by arithmetic alone; infinity and not-a-number\n"
               "   give the largest REAL of their sign. *)\n"
               "FUNCTION %1_real : REAL\n"
               "VAR_INPUT\n    bits : LWORD;\nEND_VAR\n"
               "VAR\n    exponent : DINT;\n    magnitude : LREAL;\nEND_VAR\n"
               "exponent := ULINT_TO_DINT(LWORD_TO_ULINT(SHR(bits, 23) AND 16#FF));\n"
               "magnitude := ULINT_TO_LREAL(LWORD_TO_ULINT(bits AND 16#7FFFFF));\n"
               "IF exponent = 0 THEN\n"
               "    magnitude := magnitude * EXPT(LREAL#2.0, -149);\n"
               "ELSIF exponent = 255 THEN\n"
               "    magnitude := LREAL#3.4028234663852886E38;\n"
               "ELSE\n"
               "    magnitude := (magnitude + LREAL#8388608.0) * EXPT(LREAL#2.0, exponent - 150);\n"
               "END_IF;\n"
               "IF (bits AND 16#80000000) <> 0 THEN\n    magnitude := -magnitude;\nEND_IF;\n"
               "%1_real := LREAL_TO_REAL(magnitude);\n"
               "END_FUNCTION\n\n")
        .arg(m_prefix);
}

QString StDecoder::text(QString const& header)
{
    m_prefix = m_layout.root().typeName;
    m_body.clear();
    m_indent = 0;
    DecoderWalk::walk(m_layout, *this);

    QString const p = m_prefix;
    QString out =
        QStringLiteral("(* %1\n\n"
                       "   How to use:\n"
                       "       VAR decode : %2_decode; answer : %2; END_VAR\n"
                       "       decode(length := bytesReceived, buffer := received, answer := answer);\n"
                       "   %2_decode reads the whole answer of length bytes from the first element of\n"
                       "   buffer, field by field in the byte order each is written in (whatever the\n"
                       "   PLC's own), follows every count and checks every bound. A list holds at most\n"
                       "   its capacity (%3); its count field says how many records it holds.\n%4 *)\n\n")
            .arg(DecoderWalk::commentLines(header, "*)"), p, DecoderWalk::capacities(m_layout.root()),
                 QString::fromLatin1(Errors));
    out += types() + helpers();
    out +=
        QStringLiteral("FUNCTION_BLOCK %1_decode\n"
                       "VAR_INPUT\n    length : UDINT; (* bytes of the answer *)\nEND_VAR\n"
                       "VAR_IN_OUT\n    buffer : ARRAY[*] OF BYTE; (* the answer from its first element *)\n"
                       "    answer : %1;\nEND_VAR\n"
                       "VAR_OUTPUT\n    consumed : UDINT;\n    error : INT;\nEND_VAR\n"
                       "VAR\n    pos : DINT;\n    size : DINT;\n    first : DINT;\n    k : DINT;\n")
            .arg(p);
    for (int i = 1; i <= DecoderWalk::depth(m_layout.root()); ++i)
        out += QStringLiteral("    i%1 : DINT;\n").arg(i);
    // Records past a count keep no values of an earlier answer: the C decoder zeroes its answer too.
    out += QStringLiteral(
               "END_VAR\nVAR_TEMP\n    cleared : %1; (* every field at its initial value *)\nEND_VAR\n")
               .arg(p);
    out += QStringLiteral(
               "answer := cleared;\n"
               "error := 0;\nconsumed := 0;\npos := 0;\n"
               "first := LOWER_BOUND(buffer, 1);\n"
               "size := UDINT_TO_DINT(length);\n"
               "IF UPPER_BOUND(buffer, 1) - first + 1 < size THEN\n    error := 5;\n    RETURN;\nEND_IF;\n") +
           m_body +
           QStringLiteral("IF pos <> size THEN\n    error := 3;\n    RETURN;\nEND_IF;\n"
                          "consumed := DINT_TO_UDINT(pos);\nEND_FUNCTION_BLOCK\n");
    return out;
}

void StDecoder::line(QString const& statement)
{
    m_body += QString(4 * m_indent, QLatin1Char(' ')) + statement + QLatin1Char('\n');
}

QString StDecoder::byteAt(QString const& offset) const
{
    return QStringLiteral("buffer[first + pos + %1]").arg(offset);
}

void StDecoder::need(PlcLayout::Item const& item)
{
    line(QStringLiteral("(* %1: %2 *)")
             .arg(DecoderWalk::place(item), DecoderWalk::commentText(DecoderWalk::describe(item), "*)")));
    line(QStringLiteral("IF size - pos < %1 THEN").arg(item.entry.length));
    line(QStringLiteral("    error := 1;"));
    line(QStringLiteral("    RETURN;"));
    line(QStringLiteral("END_IF;"));
}

void StDecoder::number(PlcLayout::Item const& item, QString const& target)
{
    need(item);
    DecoderWalk::Scalar const s = DecoderWalk::scalar(item.entry.type);
    QString const bits = QStringLiteral("%1_bits(buffer, first + pos, %2, %3)")
                             .arg(m_prefix)
                             .arg(s.bytes)
                             .arg(item.entry.bigEndian ? QStringLiteral("TRUE") : QStringLiteral("FALSE"));
    QString const value = s.isFloat ? QStringLiteral("%1_real(%2)").arg(m_prefix, bits)
                                    : QStringLiteral("LWORD_TO_%1(%2)").arg(QString::fromLatin1(s.st), bits);
    line(QStringLiteral("answer.%1 := %2;").arg(target, value));
    line(QStringLiteral("pos := pos + %1;").arg(item.entry.length));
}

void StDecoder::text(PlcLayout::Item const& item, QString const& target)
{
    need(item);
    line(QStringLiteral("FOR k := 0 TO %1 DO").arg(item.entry.length - 1));
    line(QStringLiteral("    answer.%1[k] := %2;").arg(target, byteAt(QStringLiteral("k"))));
    line(QStringLiteral("END_FOR;"));
    line(QStringLiteral("pos := pos + %1;").arg(item.entry.length));
}

void StDecoder::constant(PlcLayout::Item const& item)
{
    need(item);
    QStringList differs;
    for (int k = 0; k < item.bytes.size(); ++k)
        differs.append(QStringLiteral("%1 <> 16#%2")
                           .arg(byteAt(QString::number(k)))
                           .arg(uint(static_cast<unsigned char>(item.bytes[k])), 2, 16, QLatin1Char('0')));
    line(QStringLiteral("IF %1 THEN")
             .arg(differs.join(QStringLiteral("\n") + QString(4 * m_indent + 3, QLatin1Char(' ')) +
                               QStringLiteral("OR "))));
    line(QStringLiteral("    error := 4;"));
    line(QStringLiteral("    RETURN;"));
    line(QStringLiteral("END_IF;"));
    line(QStringLiteral("pos := pos + %1;").arg(item.entry.length));
}

void StDecoder::beginList(PlcLayout::Item const& list, PlcLayout::Item const& countItem, QString const& count,
                          QString const& index)
{
    line(QStringLiteral("(* %1: the records of \"%2\" *)")
             .arg(DecoderWalk::place(list), DecoderWalk::commentText(list.entry.id, "*)")));
    QString const type = QString::fromLatin1(DecoderWalk::scalar(countItem.entry.type).st);
    QString const asDint = type == QLatin1String("DINT")
                               ? QStringLiteral("answer.%1").arg(count)
                               : QStringLiteral("%1_TO_DINT(answer.%2)").arg(type, count);
    // Compared as the count's own type, so that no conversion can wrap a large count into range.
    QStringList checks;
    if (DecoderWalk::scalar(countItem.entry.type).isSigned)
        checks.append(QStringLiteral("answer.%1 < 0").arg(count));
    checks.append(QStringLiteral("answer.%1 > %2").arg(count).arg(list.capacity));
    line(QStringLiteral("IF %1 THEN").arg(checks.join(QStringLiteral(" OR "))));
    line(QStringLiteral("    error := 2;"));
    line(QStringLiteral("    RETURN;"));
    line(QStringLiteral("END_IF;"));
    line(QStringLiteral("FOR %1 := 0 TO %2 - 1 DO").arg(index, asDint));
    ++m_indent;
}

void StDecoder::endList()
{
    --m_indent;
    line(QStringLiteral("END_FOR;"));
}
