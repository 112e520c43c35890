// The output-format schema of the schema directory ("vorn-format.json" and the files it refers to),
// loaded once for any number of checks of JSON values against it or against one of its parts.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <rapidjson/document.h>
#include <rapidjson/schema.h>

namespace orv {

class FormatSchema
{
public:
    // root: the schema to check with, as JSON text that may refer to the schema files by name, e.g.
    // {"$ref": "vorn-format.json#/definitions/element"}; empty: the description schema itself.
    explicit FormatSchema(std::string const& root = std::string());
    ~FormatSchema();
    FormatSchema(FormatSchema const&) = delete;
    FormatSchema& operator=(FormatSchema const&) = delete;

    // Why the schema could not be loaded; empty when it was.
    std::string const& error() const { return m_error; }

    // Where a value breaks the schema.
    struct Violation
    {
        rapidjson::Pointer where; // into the value checked
        std::string keyword;      // the schema keyword broken ("enum", "type", ...)
        // For "enum" the values the schema allows there, for "additionalProperties" the keys.
        std::vector<std::string> allowed;
    };
    // True when the value conforms; otherwise false with the first violation. Only when loaded.
    bool check(rapidjson::Value const& value, Violation& violation) const;

    // The values an enumeration of one of the schema files allows ("vorn-format.json",
    // "/definitions/valueType"), once a check has loaded that file.
    std::vector<std::string> enumeration(std::string const& file, char const* place) const;

    static std::string const& fileName(); // "vorn-format.json"
    // What breaking a keyword of this schema means, in words ("is not one of the allowed values").
    static std::string explain(std::string const& keyword);

private:
    class Provider;
    std::vector<std::string> allowedAt(rapidjson::Pointer const& schemaPlace,
                                       std::string const& keyword) const;

    std::unique_ptr<Provider> m_provider;
    rapidjson::Document m_source;
    std::unique_ptr<rapidjson::SchemaDocument> m_schema;
    std::string m_error;
};

} // namespace orv
