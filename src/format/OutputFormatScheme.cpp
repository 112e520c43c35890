#include "format/OutputFormatScheme.h"

#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>

#include <QDebug>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/pointer.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "core/Paths.h"

namespace orv {
namespace {

constexpr char const* schemaFileName = "vorn-format.json";
// Deeper than any description a layouter walks (records nest three levels); bounds the
// validator's recursion over hostile input.
constexpr int maxNesting = 64;

bool readFile(std::string const& path, std::string& text)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream content;
    content << in.rdbuf();
    text = content.str();
    return true;
}

bool parseSchemaFile(std::string const& path, rapidjson::Document& document, std::string& error)
{
    std::string text;
    if (!readFile(path, text)) {
        error = "cannot read schema file " + path;
        return false;
    }
    document.Parse(text.c_str(), text.size());
    if (document.HasParseError()) {
        error =
            "schema file " + path + " is not JSON: " + rapidjson::GetParseError_En(document.GetParseError());
        return false;
    }
    return true;
}

// Resolves references between schema files from the schema directory; each file once per check.
class SchemaDirectoryProvider : public rapidjson::IRemoteSchemaDocumentProvider
{
public:
    explicit SchemaDirectoryProvider(std::string dir) : m_dir(std::move(dir)) {}

    rapidjson::SchemaDocument const* GetRemoteDocument(char const* uri,
                                                       rapidjson::SizeType /*length*/) override
    {
        // The reference text is NUL-terminated and runs up to its '#'. The length is not used: the
        // library version of Debian 12 passes one character less than the file name.
        std::string const name(uri, strcspn(uri, "#"));
        auto const known = m_documents.find(name);
        if (known != m_documents.end())
            return known->second.schema.get();
        // Only plain file names of the schema directory; nothing is fetched from elsewhere.
        if (name.empty() || name.find('/') != std::string::npos || name.find(':') != std::string::npos) {
            m_error = "schema reference \"" + name + "\" is not a file of the schema directory";
            return nullptr;
        }
        Loaded& loaded = m_documents[name];
        if (!parseSchemaFile(m_dir + name, loaded.source, m_error))
            return nullptr;
        loaded.schema = std::make_unique<rapidjson::SchemaDocument>(loaded.source, this);
        return loaded.schema.get();
    }

    // A reference that cannot be loaded would otherwise silently accept anything.
    std::string const& error() const { return m_error; }

private:
    struct Loaded
    {
        rapidjson::Document source;
        std::unique_ptr<rapidjson::SchemaDocument> schema;
    };
    std::string m_dir;
    std::map<std::string, Loaded> m_documents;
    std::string m_error;
};

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

std::string explainKeyword(std::string const& keyword)
{
    static std::map<std::string, std::string> const explanations = {
        {"type", "has the wrong JSON type"},
        {"enum", "is not one of the allowed values"},
        {"required", "lacks a required key"},
        {"additionalProperties", "holds a key that no element or option knows"},
        {"minimum", "is below the smallest allowed value"},
        {"maximum", "is above the largest allowed value"},
        {"minLength", "is too short"},
        {"pattern", "is not a text of hex digit pairs"},
        {"oneOf", "is no known element kind: \"records\" needs \"id\" and \"elements\"; \"blob\", \"string\" "
                  "and the number types need \"id\" or a \"value\" of their kind and no \"elements\""},
        {"not", "has \"elements\", which only a \"records\" element may have"},
        {"anyOf", "needs an \"id\" or a \"value\""},
    };
    auto const it = explanations.find(keyword);
    return it != explanations.end() ? it->second : "violates the schema keyword \"" + keyword + "\"";
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

std::string describeFailure(rapidjson::SchemaValidator const& validator, rapidjson::Document const& document)
{
    rapidjson::Pointer const where = validator.GetInvalidDocumentPointer();
    std::string const keyword = validator.GetInvalidSchemaKeyword();
    std::string message = "at " + pointerText(where);
    if (rapidjson::Value const* value = where.Get(document))
        message += " (" + valueText(*value) + ")";
    message += ": " + explainKeyword(keyword) + " (schema keyword \"" + keyword + "\")";
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

    std::string const dir = Paths::vornSchemaDir();
    rapidjson::Document schemaSource;
    if (!parseSchemaFile(dir + schemaFileName, schemaSource, error))
        return false;
    SchemaDirectoryProvider provider(dir);
    rapidjson::SchemaDocument const schema(schemaSource, &provider);
    if (!provider.error().empty()) {
        error = provider.error();
        return false;
    }
    rapidjson::SchemaValidator validator(schema);
    if (!document.Accept(validator)) {
        error = describeFailure(validator, document);
        return false;
    }
    return true;
}

} // namespace orv
