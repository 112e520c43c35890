// "format" and "validate": write an acquired result in the layout of an output-format description,
// and check a description against the plug-in's format schema.
#include <cstdio>
#include <fstream>
#include <sstream>

#include <QJsonDocument>
#include <QJsonObject>

#include "HostCommand.h"
#include "core/VornStatus.h"
#include "format/VORNFormatResults.h"

namespace vornhost {
namespace {

constexpr int AcquireResultId = 4;
constexpr int FreeResultId = 5;
constexpr int FormatResults = 26;
constexpr int ValidateFormat = 27;

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

int runFormat(Plugin& plugin, Output& out, Args& args)
{
    bool const bigEndian = args.flag("--big-endian");
    bool const acquire = args.flag("--acquire");
    std::optional<std::string> const outFile = args.option("--out");
    args.expectCount(2, 2);
    std::string const id = args.at(0, "RESULT_ID");
    std::string const json = requestText(readFile(args.at(1, "DESCRIPTION.json")));
    if (id.size() >= sizeof(orv::FormatResultsRequest::resultId))
        throw UsageError("RESULT_ID has at most 11 characters");

    if (acquire) {
        Reply acquired = plugin.call(AcquireResultId, id.c_str());
        out.field("acquired", !acquired.empty() && acquired.status() == orv::VornStatus::Success);
    }

    orv::FormatResultsRequest request{};
    memcpy(request.resultId, id.c_str(), id.size() + 1);
    request.json = json.data();
    request.jsonLength = static_cast<uint32_t>(json.size());
    request.busByteOrder = bigEndian ? orv::VORNFormatResults::BigEndianBus : 1234;
    Reply reply = plugin.call(FormatResults, &request);
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
        plugin.call(FreeResultId, id.c_str());
    return code;
}

int runValidate(Plugin& plugin, Output& out, Args& args)
{
    args.expectCount(1, 1);
    std::string const description = readFile(args.at(0, "DESCRIPTION.json"));
    Reply reply = plugin.call(ValidateFormat, description.c_str());
    out.reply(reply);
    out.field("valid", !reply.empty() && reply.status() == orv::VornStatus::Success);
    if (reply.status() != orv::VornStatus::Success)
        out.note("the reason is in the plug-in's log (kslog tail)");
    return exitCodeFor(reply);
}

bool const formatRegistered = registerCommand(
    {"format", "write a result in the layout of an output-format description (text and hex dump)",
     "format RESULT_ID DESCRIPTION.json [--big-endian] [--acquire] [--out FILE]",
     "vorn-host format 12 docs/examples/format-demo.json --acquire --out result.bin", runFormat});

bool const validateRegistered = registerCommand(
    {"validate", "check an output-format description against the format schema", "validate DESCRIPTION.json",
     "vorn-host validate docs/examples/format-demo.json", runValidate});

} // namespace
} // namespace vornhost
