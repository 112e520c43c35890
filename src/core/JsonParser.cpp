#include "core/JsonParser.h"

#include <string>
#include <vector>

#include <QJsonParseError>

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace orv {
namespace {

// Qt refuses texts nested deeper than this; they need no rewriting.
constexpr size_t QtMaxNesting = 1024;

// Stops the scan at the first repeated key (or at a nesting Qt would refuse anyway).
struct RepeatedKeyFinder : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, RepeatedKeyFinder>
{
    std::vector<std::vector<std::string>> objects; // keys seen in each open object
    size_t depth = 0;
    bool repeated = false;

    bool Key(char const* name, rapidjson::SizeType length, bool)
    {
        std::vector<std::string>& keys = objects.back();
        for (std::string const& key : keys)
            if (key.size() == length && key.compare(0, length, name, length) == 0)
                return !(repeated = true);
        keys.emplace_back(name, length);
        return true;
    }
    bool StartObject()
    {
        objects.emplace_back();
        return ++depth <= QtMaxNesting;
    }
    bool EndObject(rapidjson::SizeType)
    {
        objects.pop_back();
        --depth;
        return true;
    }
    bool StartArray() { return ++depth <= QtMaxNesting; }
    bool EndArray(rapidjson::SizeType)
    {
        --depth;
        return true;
    }
};

// Keeps, of each repeated key, its last member (as Qt does); depth is bounded by the scan above.
void dropShadowed(rapidjson::Value& value)
{
    if (value.IsArray()) {
        for (rapidjson::Value& element : value.GetArray())
            dropShadowed(element);
        return;
    }
    if (!value.IsObject())
        return;
    for (auto member = value.MemberBegin(); member != value.MemberEnd();) {
        bool shadowed = false;
        for (auto later = member + 1; later != value.MemberEnd() && !shadowed; ++later)
            shadowed = later->name == member->name;
        if (shadowed) {
            member = value.EraseMember(member); // keeps the order of the others
        } else {
            dropShadowed(member->value);
            ++member;
        }
    }
}

// The Qt error closest to RapidJSON's, for a text that never reaches Qt.
QJsonParseError::ParseError qtError(rapidjson::ParseErrorCode code)
{
    switch (code) {
    case rapidjson::kParseErrorObjectMissName:
    case rapidjson::kParseErrorObjectMissCommaOrCurlyBracket:
        return QJsonParseError::UnterminatedObject;
    case rapidjson::kParseErrorObjectMissColon:
        return QJsonParseError::MissingNameSeparator;
    case rapidjson::kParseErrorArrayMissCommaOrSquareBracket:
        return QJsonParseError::UnterminatedArray;
    case rapidjson::kParseErrorStringMissQuotationMark:
        return QJsonParseError::UnterminatedString;
    case rapidjson::kParseErrorStringEscapeInvalid:
    case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
    case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
        return QJsonParseError::IllegalEscapeSequence;
    case rapidjson::kParseErrorStringInvalidEncoding:
        return QJsonParseError::IllegalUTF8String;
    case rapidjson::kParseErrorNumberTooBig:
    case rapidjson::kParseErrorNumberMissFraction:
    case rapidjson::kParseErrorNumberMissExponent:
        return QJsonParseError::IllegalNumber;
    case rapidjson::kParseErrorDocumentRootNotSingular:
        return QJsonParseError::GarbageAtEnd;
    default:
        return QJsonParseError::IllegalValue;
    }
}

// The text without the members that a later one of the same key shadows, as Qt keeps it.
QByteArray withoutShadowedMembers(QByteArray const& text, QJsonParseError* error)
{
    rapidjson::Document document;
    // Full precision, so that every number is written back as the same double Qt would read.
    document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(
        text.constData(), static_cast<size_t>(text.size()));
    if (document.HasParseError()) {
        if (error != nullptr) {
            error->error = qtError(document.GetParseError());
            error->offset = static_cast<int>(document.GetErrorOffset());
        }
        return QByteArray();
    }
    dropShadowed(document);
    rapidjson::StringBuffer out;
    rapidjson::Writer<rapidjson::StringBuffer> writer(out);
    document.Accept(writer);
    return QByteArray(out.GetString(), static_cast<int>(out.GetSize()));
}

} // namespace

QJsonDocument JsonParser::parse(QByteArray const& text, QJsonParseError* error)
{
    RepeatedKeyFinder finder;
    rapidjson::MemoryStream scan(text.constData(), static_cast<size_t>(text.size()));
    rapidjson::Reader reader;
    rapidjson::ParseResult const scanned = reader.Parse<rapidjson::kParseIterativeFlag>(scan, finder);
    if (!finder.repeated) {
        if (!scanned.IsError())
            return QJsonDocument::fromJson(text, error);
        if (finder.depth > QtMaxNesting) {
            if (error != nullptr) {
                error->error = QJsonParseError::DeepNesting;
                error->offset = static_cast<int>(scanned.Offset());
            }
            return QJsonDocument();
        }
        // No JSON. Qt names the error itself from the text up to the offending character; it
        // cannot read past it to a repeated key that the scan never saw.
        QJsonParseError own{};
        QJsonDocument::fromJson(text.left(static_cast<int>(scanned.Offset()) + 1), &own);
        if (own.error == QJsonParseError::NoError) { // a character only Qt reads
            own.error = qtError(scanned.Code());
            own.offset = static_cast<int>(scanned.Offset());
        }
        if (error != nullptr)
            *error = own;
        return QJsonDocument();
    }
    QByteArray const rewritten = withoutShadowedMembers(text, error);
    return rewritten.isEmpty() ? QJsonDocument() : QJsonDocument::fromJson(rewritten, error);
}

} // namespace orv
