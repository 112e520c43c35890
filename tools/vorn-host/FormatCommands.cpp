// "format" and "validate": write an acquired result in the layout of an output-format description,
// and check a description against the plug-in's format schema.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "HostCommand.h"
#include "core/CommandId.h"
#include "core/JsonParser.h"
#include "core/Paths.h"
#include "core/VornStatus.h"
#include "format/FormatTrace.h"
#include "format/VORNFormatResults.h"
#include "format/VornFormatOutput.h"
#include "format/VornFormatPlan.h"
#include "logger/RedisLogger.h"
#include "plc/LayoutRecord.h"
#include "plc/PlcTypes.h"
#include "results/VORNResultManager.h"

namespace vornhost {
namespace {

std::string readFile(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw UsageError("cannot read " + path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The plug-in takes a request object with the description under "format"; a file holding the bare
// description is wrapped, one that already is a request is sent as it stands.
std::string requestText(std::string const& description)
{
    QJsonDocument const document = QJsonDocument::fromJson(QByteArray::fromStdString(description));
    if (document.isObject() && document.object().contains("format") &&
        !document.object().contains("elements"))
        return description;
    return "{\"format\":" + description + "}";
}

// Printable characters as they are, everything else as \xHH, so the text shows the exact bytes.
QString visibleText(QByteArray const& bytes)
{
    QString text;
    for (char c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F && byte != '\\')
            text += QChar(byte);
        else
            text += QString::asprintf("\\x%02x", byte);
    }
    return text;
}

QJsonObject mapEntry(FormatTraceEntry const& entry)
{
    QJsonObject object{{"offset", qint64(entry.offset)},
                       {"length", qint64(entry.length)},
                       {"element", entry.path},
                       {"kind", entry.kind},
                       {"type", entry.type}};
    if (!entry.id.isEmpty())
        object.insert("id", entry.id);
    if (!entry.encoding.isEmpty())
        object.insert("encoding", entry.encoding);
    if (!entry.value.isEmpty())
        object.insert("value", entry.value);
    if (!entry.note.isEmpty())
        object.insert("note", entry.note);
    return object;
}

void printMap(Output& out, FormatTrace const& trace)
{
    QJsonArray map;
    int elementWidth = 7, idWidth = 2;
    for (FormatTraceEntry const& entry : trace.entries()) {
        map.append(mapEntry(entry));
        elementWidth = std::max(elementWidth, int(entry.path.size()));
        idWidth = std::max(idWidth, int(entry.id.size()));
    }
    if (out.json()) {
        out.field("map", map);
        return;
    }
    auto const line = [&](QString const& offset, QString const& length, QString const& element,
                          QString const& id, QString const& type, QString const& value, QString const& note) {
        QString text = QStringLiteral("%1 %2  %3  %4  %5 %6 %7")
                           .arg(offset, 6)
                           .arg(length, 6)
                           .arg(element, -elementWidth)
                           .arg(id, -idWidth)
                           .arg(type, -14)
                           .arg(value, -18)
                           .arg(note);
        while (text.endsWith(' '))
            text.chop(1);
        out.note(text);
    };
    line("offset", "length", "element", "id", "type", "value", "note");
    for (FormatTraceEntry const& entry : trace.entries()) {
        QString value = visibleText(entry.value.toUtf8());
        if (value.size() > 18)
            value = value.left(15) + "...";
        line(QString::number(entry.offset), QString::number(entry.length), entry.path, entry.id,
             entry.encoding.isEmpty() ? entry.type : entry.type + ' ' + entry.encoding, value, entry.note);
    }
}

// Formatting notes on the debug channel only repeat what the map says; warnings still show.
QtMessageHandler previousHandler = nullptr;

void dropDebugMessage(QtMsgType type, QMessageLogContext const& context, QString const& text)
{
    if (type == QtDebugMsg)
        return;
    if (previousHandler != nullptr)
        previousHandler(type, context, text);
    else
        fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
}

// The byte map: the request formatted here, by the plug-in's own code, with a trace of what each
// element wrote where. The result is read from the same Redis and frame folder as the plug-in's.
int runExplain(Output& out, orv::FormatResultsRequest const& request, bool acquire)
{
    orv::Logger::RedisLogger logger("VORNHOST", orv::Paths::redisCacheSocket().c_str(), "LOG:ENTRIES", false);
    orv::VORNResultManager manager(logger);
    orv::VORNFormatResults command(manager, logger);
    std::string const id = request.resultId;
    if (acquire)
        out.field("acquired", manager.acquire(id));
    VornFormatOutput output;
    FormatTrace trace;
    previousHandler = qInstallMessageHandler(dropDebugMessage);
    bool const served = command.formatTraced(request, output, trace);
    qInstallMessageHandler(previousHandler);
    if (acquire)
        manager.release(id);
    out.field("served", served);
    if (!served) {
        out.note("the description is no JSON; the reason is in the log (kslog tail)");
        return 1;
    }
    QByteArray const bytes = output.toByteArray();
    out.field("size", bytes.size());
    out.field("text", visibleText(bytes));
    printMap(out, trace);
    return 0;
}

int runFormat(Plugin& plugin, Output& out, Args& args)
{
    bool const bigEndian = args.flag("--big-endian");
    bool const acquire = args.flag("--acquire");
    bool const explain = args.flag("--explain");
    std::optional<std::string> const outFile = args.option("--out");
    std::optional<std::string> const idOption = args.option("--id");
    args.expectCount(idOption ? 1 : 2, idOption ? 1 : 2);
    std::string const id = idOption ? *idOption : args.at(0, "RESULT_ID");
    std::string const json = requestText(readFile(args.at(idOption ? 0 : 1, "DESCRIPTION.json")));
    if (id.size() >= sizeof(orv::FormatResultsRequest::resultId))
        throw UsageError("RESULT_ID has at most 11 characters");
    orv::FormatResultsRequest request{};
    memcpy(request.resultId, id.c_str(), id.size() + 1);
    request.json = json.data();
    request.jsonLength = static_cast<uint32_t>(json.size());
    request.busByteOrder = bigEndian ? orv::VORNFormatResults::BigEndianBus : 1234;
    if (explain)
        return runExplain(out, request, acquire);

    if (acquire) {
        Reply acquired = plugin.call(orv::CommandId::AcquireResultId, id.c_str());
        out.field("acquired", !acquired.empty() && acquired.status() == orv::VornStatus::Success);
    }

    Reply reply = plugin.call(orv::CommandId::FormatResults, &request);
    out.reply(reply);

    int code = 1;
    if (!reply.empty() && reply.payload() != nullptr) {
        auto const result = reply.record<orv::FormatResultsReply>();
        QByteArray const bytes(reinterpret_cast<char const*>(result.data), static_cast<int>(result.size));
        // A served request keeps the generic status word; the flag tells that output is attached.
        out.field("served", result.hasData == 1);
        out.field("size", static_cast<int>(result.size));
        if (result.hasData == 1) {
            code = 0;
            if (outFile) {
                std::ofstream file(*outFile, std::ios::binary);
                file.write(bytes.constData(), bytes.size());
                out.field("out", QString::fromStdString(*outFile));
            }
            out.field("text", visibleText(bytes));
            out.note(hexDump(result.data, result.size).trimmed());
        }
        // The plug-in hands the output over with the reply; the host frees it.
        free(result.data);
    }

    if (acquire)
        plugin.call(orv::CommandId::FreeResultId, id.c_str());
    return code;
}

int runValidate(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(1, 1);
    std::string const description = readFile(args.at(0, "DESCRIPTION.json"));
    Reply reply = plugin.call(orv::CommandId::ValidateFormat, description.c_str());
    out.reply(reply);
    out.field("valid", !reply.empty() && reply.status() == orv::VornStatus::Success);
    if (reply.status() != orv::VornStatus::Success)
        out.note("the reason is in the plug-in's log (kslog tail)");
    return exitCodeFor(reply);
}

// "models=4,rois=16": records per list id.
QMap<QString, int> recordCounts(std::string const& text)
{
    QMap<QString, int> counts;
    for (QString const& pair : QString::fromStdString(text).split(',', Qt::SkipEmptyParts)) {
        bool ok = false;
        int const count = pair.section('=', 1).toInt(&ok);
        if (!pair.contains('=') || !ok || count < 1 || count > 65535)
            throw UsageError(
                "--records wants LIST=COUNT pairs with counts from 1 to 65535, as models=4,rois=16");
        counts.insert(pair.section('=', 0, 0), count);
    }
    return counts;
}

void discardMessage(QtMsgType, QMessageLogContext const&, QString const&) {}

int runPlcTypes(Output& out, Args& args)
{
    bool const bigEndian = args.flag("--big-endian");
    std::optional<std::string> const records = args.option("--records");
    std::string const language = args.option("--lang").value_or("st");
    if (language != "st" && language != "c")
        throw UsageError("--lang is st or c");
    args.expectCount(1, 1);
    std::string const path = args.at(0, "DESCRIPTION.json");
    QMap<QString, int> const counts = recordCounts(records.value_or(""));

    QString error;
    std::shared_ptr<VornFormatPlan const> const plan =
        VornFormatPlan::fromRequest(QByteArray::fromStdString(requestText(readFile(path))),
                                    bigEndian ? BusByteOrder::BigEndian : BusByteOrder::LittleEndian, &error);
    if (plan == nullptr)
        throw std::runtime_error(path + " is no JSON: " + error.toStdString());

    // The layout is the output of a result of the given counts; what the options say about values
    // that a real result would carry is of no use here.
    LayoutRecord record(counts);
    VornFormatOutput output;
    FormatTrace trace;
    QtMessageHandler const previous = qInstallMessageHandler(discardMessage);
    plan->write(record, output, &trace);
    qInstallMessageHandler(previous);
    QSet<QString> const uncounted = record.uncounted();
    if (!uncounted.isEmpty())
        throw UsageError("give the number of records of " +
                         QStringList(uncounted.values()).join(", ").toStdString() + " with --records, as " +
                         uncounted.values().first().toStdString() + "=4");

    if (output.size() == 0)
        throw std::runtime_error(path + " writes nothing: there is no type to make");
    QString const name = QFileInfo(QString::fromStdString(path)).completeBaseName();
    PlcTypes const types(trace.entries(), name, bigEndian);
    QString source =
        QStringLiteral("Layout of the output of %1").arg(QFileInfo(QString::fromStdString(path)).fileName());
    if (records)
        source += QStringLiteral(" with records %1").arg(QString::fromStdString(*records));
    source += '.';
    QString const text = types.text(language == "c" ? PlcTypes::C : PlcTypes::StructuredText, source);
    if (out.json()) {
        out.field("size", qint64(types.size()));
        out.field("text", text);
    } else {
        out.note(text.trimmed());
    }
    return 0;
}

bool const formatRegistered = registerCommand(
    {"format", "write a result in the layout of an output-format description (text and hex dump)",
     "format RESULT_ID DESCRIPTION.json [--big-endian] [--acquire] [--out FILE] [--explain]\n"
     "       vorn-host format DESCRIPTION.json --id RESULT_ID [...]\n\n"
     "With --explain, the output is made by the plug-in's code in this process and shown as a byte\n"
     "map: for every range of bytes the element of the description that wrote it, the record id it\n"
     "read, type and encoding, the value and a note where the bytes are not what was asked for",
     "vorn-host format 12 docs/examples/format-demo.json --acquire --out result.bin", runFormat});

bool const plcTypesRegistered = registerCommand(
    {"plc-types", "write PLC (Structured Text) or C data types for the output of a description",
     "plc-types DESCRIPTION.json [--records LIST=COUNT,...] [--lang st|c] [--big-endian]\n\n"
     "Every record list needs its count (--records models=4,rois=16); every field must have a fixed\n"
     "size: binary numbers, constants, and text with a \"width\" that every value fits. Needs no\n"
     "plug-in and no Redis.",
     "vorn-host plc-types docs/examples/format-demo-binary.json --records models=4,rois=16 --lang c", nullptr,
     runPlcTypes});

bool const validateRegistered = registerCommand(
    {"validate", "check an output-format description against the format schema", "validate DESCRIPTION.json",
     "vorn-host validate docs/examples/format-demo.json", runValidate});

} // namespace
} // namespace vornhost
