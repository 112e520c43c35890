#include "format/FormatSchema.h"

#include <cstring>
#include <fstream>
#include <sstream>

#include <rapidjson/error/en.h>

#include "core/Paths.h"

namespace orv {
namespace {

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

bool parseSchema(std::string const& text, std::string const& name, rapidjson::Document& document,
                 std::string& error)
{
    document.Parse(text.c_str(), text.size());
    if (document.HasParseError())
        error = "schema " + name + " is not JSON: " + rapidjson::GetParseError_En(document.GetParseError());
    return !document.HasParseError();
}

bool parseSchemaFile(std::string const& path, rapidjson::Document& document, std::string& error)
{
    std::string text;
    if (!readFile(path, text)) {
        error = "cannot read schema file " + path;
        return false;
    }
    return parseSchema(text, "file " + path, document, error);
}

} // namespace

// Resolves references between schema files from the schema directory; each file once.
class FormatSchema::Provider : public rapidjson::IRemoteSchemaDocumentProvider
{
public:
    explicit Provider(std::string dir) : m_dir(std::move(dir)) {}

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

    rapidjson::Document const* source(std::string const& name) const
    {
        auto const it = m_documents.find(name);
        return it == m_documents.end() ? nullptr : &it->second.source;
    }

    // The schema files read so far, for a place in one of them.
    std::vector<rapidjson::Document const*> sources() const
    {
        std::vector<rapidjson::Document const*> all;
        for (auto const& document : m_documents)
            all.push_back(&document.second.source);
        return all;
    }

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

std::string FormatSchema::explain(std::string const& keyword)
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

std::string const& FormatSchema::fileName()
{
    static std::string const name = "vorn-format.json";
    return name;
}

FormatSchema::FormatSchema(std::string const& root) : m_provider(new Provider(Paths::vornSchemaDir()))
{
    bool const parsed = root.empty() ? parseSchemaFile(Paths::vornSchemaDir() + fileName(), m_source, m_error)
                                     : parseSchema(root, "text", m_source, m_error);
    if (!parsed)
        return;
    m_schema = std::make_unique<rapidjson::SchemaDocument>(m_source, m_provider.get());
    m_error = m_provider->error();
}

FormatSchema::~FormatSchema() = default;

bool FormatSchema::check(rapidjson::Value const& value, Violation& violation) const
{
    rapidjson::SchemaValidator validator(*m_schema);
    if (value.Accept(validator))
        return true;
    violation.where = validator.GetInvalidDocumentPointer();
    violation.keyword = validator.GetInvalidSchemaKeyword();
    violation.allowed.clear();
    if (violation.keyword == "enum" || violation.keyword == "additionalProperties")
        violation.allowed = allowedAt(validator.GetInvalidSchemaPointer(), violation.keyword);
    // The library names the object's schema for a property's enumeration: look under the property.
    rapidjson::SizeType const depth = violation.where.GetTokenCount();
    if (violation.allowed.empty() && violation.keyword == "enum" && depth > 0) {
        rapidjson::Pointer::Token const& last = violation.where.GetTokens()[depth - 1];
        violation.allowed = allowedAt(
            validator.GetInvalidSchemaPointer().Append("properties", 10).Append(last.name, last.length),
            "enum");
    }
    return false;
}

std::vector<std::string> FormatSchema::enumeration(std::string const& file, char const* place) const
{
    rapidjson::Document const* document = m_provider->source(file);
    rapidjson::Value const* values =
        document == nullptr ? nullptr : rapidjson::Pointer(place).Append("enum", 4).Get(*document);
    std::vector<std::string> allowed;
    if (values != nullptr && values->IsArray()) {
        for (auto const& item : values->GetArray())
            allowed.push_back(item.IsString() ? item.GetString() : "");
    }
    return allowed;
}

std::vector<std::string> FormatSchema::allowedAt(rapidjson::Pointer const& schemaPlace,
                                                 std::string const& keyword) const
{
    // The place does not say which file it is in; every enumeration of these files is found at a
    // place that exists in one file only.
    std::vector<rapidjson::Document const*> documents = m_provider->sources();
    documents.insert(documents.begin(), &m_source);
    for (rapidjson::Document const* document : documents) {
        rapidjson::Value const* place = schemaPlace.Get(*document);
        char const* const list = keyword == "enum" ? "enum" : "properties";
        if (place == nullptr || !place->IsObject() || !place->HasMember(list))
            continue;
        rapidjson::Value const& values = place->FindMember(list)->value;
        std::vector<std::string> allowed;
        if (values.IsArray()) {
            for (auto const& item : values.GetArray()) {
                if (item.IsString())
                    allowed.push_back(item.GetString());
            }
        } else if (values.IsObject()) {
            for (auto const& member : values.GetObject())
                allowed.push_back(member.name.GetString());
        }
        return allowed;
    }
    return {};
}

} // namespace orv
