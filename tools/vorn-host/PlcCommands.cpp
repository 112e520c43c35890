// "plc-types": the code a PLC or a PC reads the answer to a description with, made without the
// plug-in: a packed type for an answer of fixed size, a decoder that follows the counts of an answer
// with lists.
#include <fstream>

#include "DescriptionFile.h"
#include "HostCommand.h"
#include "plc/PlcLayout.h"
#include "plc/PlcTypes.h"

namespace vornhost {
namespace {

// "models=4,rois=16": the records a PLC reserves per list id.
QMap<QString, int> capacities(std::string const& text)
{
    QMap<QString, int> counts;
    for (QString const& pair : QString::fromStdString(text).split(',', Qt::SkipEmptyParts)) {
        bool ok = false;
        int const count = pair.section('=', 1).toInt(&ok);
        if (!pair.contains('=') || !ok || count < 1 || count > 65535)
            throw UsageError("--records wants LIST=CAPACITY pairs with capacities from 1 to 65535, as "
                             "models=4,rois=16");
        counts.insert(pair.section('=', 0, 0), count);
    }
    return counts;
}

int runPlcTypes(Output& out, Args& args)
{
    bool const bigEndian = args.flag("--big-endian");
    std::optional<std::string> const records = args.option("--records");
    std::string const language = args.option("--lang").value_or("st");
    std::optional<std::string> const name = args.option("--name");
    std::optional<std::string> const outFile = args.option("--out");
    if (language != "st" && language != "c")
        throw UsageError("--lang is st or c");
    args.expectCount(1, 1);
    QMap<QString, int> const capacity = capacities(records.value_or(""));
    DescriptionFile const description(args.at(0, "DESCRIPTION.json"));
    description.require();

    QString const typeName = name ? QString::fromStdString(*name) : description.baseName();
    PlcLayout const layout = PlcLayout::ofRequest(description.request(), bigEndian, typeName, capacity);
    if (layout.empty())
        throw cli::Failure(description.path() + " writes nothing: there is no type to make", 1);
    QStringList const unknown = layout.unknownCapacities();
    if (!unknown.isEmpty()) {
        QStringList lists = layout.listIds();
        lists.sort();
        throw UsageError("--records names " + unknown.join(", ").toStdString() +
                         ", which is no list of this description" +
                         (lists.isEmpty() ? std::string(": it has none")
                                          : " (its lists: " + lists.join(", ").toStdString() + ")"));
    }
    QStringList const missing = layout.missingCapacities();
    if (!missing.isEmpty())
        throw UsageError("give the capacity of " + missing.join(", ").toStdString() +
                         " with --records: the most records a PLC reserves, as " +
                         missing.first().toStdString() + "=16");
    QString source = QStringLiteral("Reads the answer to %1").arg(QString::fromStdString(description.path()));
    if (records)
        source += QStringLiteral(" with capacities %1").arg(QString::fromStdString(*records));
    source += '.';
    QString const text =
        PlcTypes(layout, bigEndian).text(language == "c" ? PlcTypes::C : PlcTypes::StructuredText, source);
    if (outFile) {
        std::ofstream file(*outFile, std::ios::binary);
        file << text.toStdString();
        if (!file)
            throw std::runtime_error("cannot write " + *outFile);
        out.field("out", QString::fromStdString(*outFile));
    }
    // The code alone on standard output, so that it can go straight into a file.
    if (!outFile && !out.json()) {
        out.note(text.trimmed());
        return 0;
    }
    out.field("type", layout.root().typeName);
    out.field("decoder", layout.hasLists());
    if (out.json())
        out.field("text", text);
    return 0;
}

int runPlcTypesSafely(Output& out, Args& args)
{
    try {
        return runPlcTypes(out, args);
    } catch (PlcLayout::NotDecodable const& e) {
        throw cli::Failure(std::string("no fixed code reads this answer: ") + e.what(), 1);
    }
}

bool const plcTypesRegistered = registerCommand(
    {"plc-types", "write the Structured Text or C that reads the answer to a description on a PLC or PC",
     "plc-types DESCRIPTION.json [--records LIST=CAPACITY,...] [--lang st|c] [--big-endian] [--name NAME] "
     "[--out FILE]\n\n"
     "An answer without lists gets a packed type of its size. An answer with lists gets a decoder: types\n"
     "with arrays of the capacities --records gives (the most records a PLC reserves per list), and a\n"
     "function (C) or function block (Structured Text) that reads the answer as it is, follows the\n"
     "count that each list needs before it (\"models.count\" before \"models\"), checks every bound and\n"
     "says what is wrong. Every field needs a fixed size: binary numbers, constants, and text with a\n"
     "\"width\" that every value fits. Names follow one rule in both languages (docs/plc-guide.md).\n"
     "DESCRIPTION.json may be - for standard input. Needs no plug-in and no Redis.",
     "vorn-host plc-types docs/examples/format-plc-rois.json --records models=4,rois=16 --lang c", nullptr,
     runPlcTypesSafely});

} // namespace
} // namespace vornhost
