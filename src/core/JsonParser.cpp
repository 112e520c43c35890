#include "core/JsonParser.h"

#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include <QJsonParseError>

#include <rapidjson/error/error.h>
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
    // Keys seen in each open object; hashed, so that an object of a hundred thousand keys costs a
    // hundred thousand look-ups, not five billion comparisons.
    std::vector<std::unordered_set<std::string>> objects;
    size_t depth = 0;
    bool repeated = false;

    bool Key(char const* name, rapidjson::SizeType length, bool)
    {
        repeated = !objects.back().emplace(name, length).second;
        return !repeated;
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

// First pass of the rewrite: how often each key occurs in each object, objects in document order.
struct KeyCounter : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, KeyCounter>
{
    std::vector<std::map<std::string, int>> objects; // in the order the objects start
    std::vector<size_t> open;                        // indices of the objects being read

    bool StartObject()
    {
        open.push_back(objects.size());
        objects.emplace_back();
        return true;
    }
    bool Key(char const* name, rapidjson::SizeType length, bool)
    {
        ++objects[open.back()][std::string(name, length)];
        return true;
    }
    bool EndObject(rapidjson::SizeType)
    {
        open.pop_back();
        return true;
    }
};

// Second pass: writes the text again, leaving out every member that a later one of the same key
// shadows (Qt keeps the last). Numbers are copied as they stand, never converted.
struct Rewriter : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Rewriter>
{
    explicit Rewriter(std::vector<std::map<std::string, int>>& counts) : counts(counts), writer(out) {}

    std::vector<std::map<std::string, int>>& counts;
    rapidjson::StringBuffer out;
    rapidjson::Writer<rapidjson::StringBuffer> writer;
    std::vector<size_t> open;
    size_t next = 0;       // index of the next object to start
    int skipping = 0;      // > 0 while inside a value left out (its depth), -1 for a scalar value left out
    bool skipNext = false; // the key just read is shadowed: leave its value out

    // Whether an event is written: not while a value is left out.
    bool keep(int depthChange)
    {
        if (skipNext) {
            skipNext = false;
            skipping = depthChange > 0 ? 1 : 0;
            return false;
        }
        if (skipping > 0) {
            skipping += depthChange;
            return false;
        }
        return true;
    }
    bool Null() { return !keep(0) || writer.Null(); }
    bool Bool(bool b) { return !keep(0) || writer.Bool(b); }
    bool RawNumber(char const* text, rapidjson::SizeType length, bool)
    {
        return !keep(0) || writer.RawValue(text, length, rapidjson::kNumberType);
    }
    bool String(char const* text, rapidjson::SizeType length, bool)
    {
        return !keep(0) || writer.String(text, length);
    }
    bool StartObject()
    {
        open.push_back(next++);
        return !keep(1) || writer.StartObject();
    }
    bool Key(char const* name, rapidjson::SizeType length, bool)
    {
        if (skipping > 0)
            return true;
        int& remaining = counts[open.back()][std::string(name, length)];
        skipNext = --remaining > 0;
        return skipNext || writer.Key(name, length);
    }
    bool EndObject(rapidjson::SizeType)
    {
        open.pop_back();
        return !keep(-1) || writer.EndObject();
    }
    bool StartArray() { return !keep(1) || writer.StartArray(); }
    bool EndArray(rapidjson::SizeType) { return !keep(-1) || writer.EndArray(); }
};

// The text without the members that a later one of the same key shadows, as Qt keeps it.
QByteArray withoutShadowedMembers(QByteArray const& text, QJsonParseError* error)
{
    constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;
    KeyCounter counter;
    rapidjson::MemoryStream counting(text.constData(), static_cast<size_t>(text.size()));
    rapidjson::ParseResult const counted = rapidjson::Reader().Parse<flags>(counting, counter);
    if (counted.IsError()) {
        if (error != nullptr) {
            error->error = qtError(counted.Code());
            error->offset = static_cast<int>(counted.Offset());
        }
        return QByteArray();
    }
    Rewriter rewriter(counter.objects);
    rapidjson::MemoryStream rewriting(text.constData(), static_cast<size_t>(text.size()));
    rapidjson::Reader().Parse<flags>(rewriting, rewriter);
    return QByteArray(rewriter.out.GetString(), static_cast<int>(rewriter.out.GetSize()));
}

} // namespace

QJsonDocument JsonParser::parse(QByteArray const& text, QJsonParseError* error)
{
    RepeatedKeyFinder finder;
    rapidjson::MemoryStream scan(text.constData(), static_cast<size_t>(text.size()));
    rapidjson::Reader reader;
    rapidjson::ParseResult const scanned =
        reader.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag>(scan, finder);
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
