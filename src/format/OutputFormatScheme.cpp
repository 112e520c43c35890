#include "format/OutputFormatScheme.h"

#include <map>
#include <regex>

#include <QDebug>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "format/FormatSchema.h"

namespace orv {
namespace {

// Deeper than any description a layouter walks (records nest three levels); bounds the
// validator's recursion over hostile input.
constexpr int maxNesting = 64;

int nestingDepth(char const* text)
{
    int depth = 0;
    int deepest = 0;
    bool inString = false;
    for (char const* p = text; *p != '\0'; ++p) {
        if (inString) {
            if (*p == '\\' && p[1] != '\0')
                ++p;
            else if (*p == '"')
                inString = false;
        } else if (*p == '"') {
            inString = true;
        } else if (*p == '{' || *p == '[') {
            deepest = std::max(deepest, ++depth);
        } else if (*p == '}' || *p == ']') {
            --depth;
        }
    }
    return deepest;
}

std::string pointerText(rapidjson::Pointer const& pointer)
{
    rapidjson::StringBuffer buffer;
    pointer.StringifyUriFragment(buffer);
    return buffer.GetString();
}

std::string valueText(rapidjson::Value const& value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    std::string text = buffer.GetString();
    return text.size() > 60 ? text.substr(0, 57) + "..." : text;
}

std::string describeFailure(FormatSchema::Violation const& violation, rapidjson::Document const& document)
{
    std::string message = "at " + pointerText(violation.where);
    if (rapidjson::Value const* value = violation.where.Get(document))
        message += " (" + valueText(*value) + ")";
    message += ": " + FormatSchema::explain(violation.keyword) + " (schema keyword \"" + violation.keyword + "\")";
    return message;
}

} // namespace

bool doesJsonConformToOutputFormatScheme(char const* json, std::string& error)
{
    if (json == nullptr || *json == '\0') {
        qWarning() << "Received JSON data is 0 bytes ?!";
        error = "Received JSON data is 0 bytes";
        return false;
    }

    // Unicode escapes are taken out before parsing, so each one reads as a single character.
    static std::regex const unicodeEscape("\\\\u[0-9a-fA-F]{4}", std::regex::ECMAScript);
    std::string const text = std::regex_replace(std::string(json), unicodeEscape, ".");

    if (nestingDepth(text.c_str()) > maxNesting) {
        error = "the description nests deeper than " + std::to_string(maxNesting) + " levels";
        return false;
    }

    rapidjson::Document document;
    // Invalid UTF-8 is refused as the format-results command's own parser refuses it (and
    // RapidJSON would read past a broken sequence when it names the place of a failure).
    document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(text.c_str(),
                                                                                           text.size());
    if (document.HasParseError()) {
        std::string const reason = std::string(rapidjson::GetParseError_En(document.GetParseError())) +
                                   " (offset " + std::to_string(document.GetErrorOffset()) + ")";
        qWarning("%s: JSON deserialization error: %s", "doesJsonConformToOutputFormatScheme", reason.c_str());
        error = "JSON deserialization error: " + reason;
        return false;
    }

    FormatSchema const schema;
    if (!schema.error().empty()) {
        error = schema.error();
        return false;
    }
    FormatSchema::Violation violation;
    if (!schema.check(document, violation)) {
        error = describeFailure(violation, document);
        return false;
    }
    return true;
}

} // namespace orv
