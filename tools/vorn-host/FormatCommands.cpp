// "format" and "validate": write a result in the layout of an output-format description, with the
// byte map of what wrote which byte, and check a description against the plug-in's format schema.
// Every description is checked here first, so that a mistake is named before anything is sent.
#include <cstdio>
#include <fstream>

#include <QJsonArray>

#include "DescriptionFile.h"
#include "HostCommand.h"
#include "core/CommandId.h"
#include "core/Paths.h"
#include "core/VornStatus.h"
#include "format/FormatTrace.h"
#include "format/VORNFormatResults.h"
#include "format/VornFormatOutput.h"
#include "god/God.h"
#include "logger/RedisLogger.h"
#include "plc/ByteMap.h"
#include "results/ResultKeys.h"
#include "results/VORNResultManager.h"

namespace vornhost {
namespace {

// The plug-in formats an unknown id as an empty result and still serves it: said plainly instead.
void requireResult(std::string const& id)
{
    QString const key = QLatin1String(orv::ResultKeys::RedisResultPrefix) + QString::fromStdString(id);
    QStringList fields, values;
    int const rc = god::getall(&key, &fields, &values);
    if (rc == 0 && fields.isEmpty())
        throw cli::Failure("no result " + id + ": Redis holds no " + key.toStdString() + " at " +
                               orv::Paths::redisCacheSocket() +
                               " (vorn-host acquire takes the oldest published result and names its id)",
                           1);
}

void writeFile(std::string const& path, QByteArray const& bytes, Output& out)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.constData(), bytes.size());
    if (!file)
        throw std::runtime_error("cannot write " + path);
    out.field("out", QString::fromStdString(path));
}

struct FormatArgs
{
    std::string id;
    bool bigEndian = false;
    bool acquire = false;
    std::optional<std::string> outFile;
    orv::FormatResultsRequest request{};
};

void printOutput(Output& out, QByteArray const& bytes)
{
    out.field("size", bytes.size());
    if (out.json()) {
        out.field("hex", QString::fromLatin1(bytes.toHex()));
    } else {
        out.field("text", ByteMap::visible(bytes));
        out.note(hexDump(reinterpret_cast<unsigned char const*>(bytes.constData()), size_t(bytes.size()))
                     .trimmed());
    }
}

// The byte map: the request formatted here, by the plug-in's own code, with a trace of what each
// element wrote where. The result is read from the same Redis and frame folder as the plug-in's.
int runExplain(Output& out, FormatArgs const& a)
{
    orv::Logger::RedisLogger logger("VORNHOST", orv::Paths::redisCacheSocket().c_str(), "LOG:ENTRIES", false);
    orv::VORNResultManager manager(logger);
    orv::VORNFormatResults command(manager, logger);
    if (a.acquire && !manager.acquire(a.id))
        throw cli::Failure("nothing acquired: result " + a.id + " is not waiting in " +
                               orv::Paths::frameDir() + " (vorn-host acquire takes the oldest one)",
                           1);
    VornFormatOutput output;
    FormatTrace trace;
    bool const served = command.formatTraced(a.request, output, trace);
    if (a.acquire)
        manager.release(a.id);
    out.field("served", served);
    QByteArray const bytes = output.toByteArray();
    printOutput(out, bytes);
    if (a.outFile)
        writeFile(*a.outFile, bytes, out);
    ByteMap const map(bytes, trace.entries());
    if (out.json())
        out.field("map", map.json());
    else
        for (QString const& line : map.lines())
            out.note(line);
    return served ? 0 : 1;
}

int runFormat(Plugin& plugin, Output& out, Args& args)
{
    FormatArgs a;
    a.bigEndian = args.flag("--big-endian");
    a.acquire = args.flag("--acquire");
    bool const explain = args.flag("--explain");
    a.outFile = args.option("--out");
    std::optional<std::string> const idOption = args.option("--id");
    args.expectCount(idOption ? 1 : 2, idOption ? 1 : 2);
    a.id = idOption ? *idOption : args.at(0, "RESULT_ID");
    if (a.id.empty() || a.id.size() >= sizeof(orv::FormatResultsRequest::resultId))
        throw UsageError("RESULT_ID has 1 to 11 characters");
    DescriptionFile const description(args.at(idOption ? 0 : 1, "DESCRIPTION.json"));
    description.require();
    requireResult(a.id);
    memcpy(a.request.resultId, a.id.c_str(), a.id.size() + 1);
    a.request.json = description.request().constData();
    a.request.jsonLength = static_cast<uint32_t>(description.request().size());
    a.request.busByteOrder = a.bigEndian ? orv::VORNFormatResults::BigEndianBus : 1234;
    if (explain)
        return runExplain(out, a);

    if (a.acquire) {
        Reply acquired = plugin.call(orv::CommandId::AcquireResultId, a.id.c_str());
        if (acquired.empty() || acquired.status() != orv::VornStatus::Success)
            throw cli::Failure("nothing acquired: the plug-in answered " + statusName(acquired.status()) +
                                   " for result " + a.id +
                                   " (vorn-host acquire takes the oldest waiting one)",
                               1);
        out.field("acquired", true);
    }
    Reply reply = plugin.call(orv::CommandId::FormatResults, &a.request);
    out.reply(reply);
    int code = 1;
    if (!reply.empty() && reply.payload() != nullptr) {
        auto const result = reply.record<orv::FormatResultsReply>();
        QByteArray const bytes(reinterpret_cast<char const*>(result.data), static_cast<int>(result.size));
        // A served request keeps the generic status word; the flag tells that output is attached.
        out.field("served", result.hasData == 1);
        if (result.hasData == 1) {
            code = 0;
            printOutput(out, bytes);
            if (a.outFile)
                writeFile(*a.outFile, bytes, out);
        }
        // The plug-in hands the output over with the reply; the host frees it.
        free(result.data);
    }
    if (a.acquire)
        plugin.call(orv::CommandId::FreeResultId, a.id.c_str());
    return code;
}

int runValidate(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(1, 1);
    DescriptionFile const description(args.at(0, "DESCRIPTION.json"));
    // The plug-in names the first problem in its log; every problem is named here.
    if (!description.problems().isEmpty()) {
        out.field("valid", false);
        QStringList const problems = description.problems().split('\n');
        if (out.json())
            out.field("problems", QJsonArray::fromStringList(problems));
        for (QString const& problem : problems)
            out.note(problem);
        return 1;
    }
    QByteArray const text = description.description();
    Reply reply = plugin.call(orv::CommandId::ValidateFormat, text.constData());
    out.reply(reply);
    bool const valid = !reply.empty() && reply.status() == orv::VornStatus::Success;
    out.field("valid", valid);
    if (!valid)
        out.note("the plug-in refuses what the check here accepts: its reason is in its log (kslog tail)");
    return valid ? 0 : 1;
}

bool const formatRegistered = registerCommand(
    {"format", "write a result in the layout of an output-format description (text and hex dump)",
     "format RESULT_ID DESCRIPTION.json [--big-endian] [--acquire] [--out FILE] [--explain]\n"
     "       vorn-host format DESCRIPTION.json --id RESULT_ID [...]\n\n"
     "DESCRIPTION.json may be - for standard input. The description is checked first: every mistake\n"
     "is named with its place. With --explain, the output is made by the plug-in's code in this\n"
     "process and shown as a byte map: for every range of bytes the element of the description that\n"
     "wrote it, the record id it read, type, encoding and byte order, the value as read and the\n"
     "number written when scaled, and a note where the bytes are not what was asked for. --out\n"
     "writes the output to FILE as well",
     "vorn-host format 12 docs/examples/format-demo.json --acquire --out result.bin", runFormat});

bool const validateRegistered = registerCommand(
    {"validate",
     "check an output-format description: every mistake with its place, then the plug-in's verdict",
     "validate DESCRIPTION.json", "vorn-host validate docs/examples/format-demo.json", runValidate});

} // namespace
} // namespace vornhost
