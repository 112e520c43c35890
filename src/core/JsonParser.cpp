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

// The places of the numbers written with a fraction or an exponent, each as the path of object keys
// and array positions that leads to it. A member that a later one of the same key shadows is
// replaced by the later one's places, as Qt keeps the later member.
struct DoubleNumbers : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, DoubleNumbers>
{
    struct Level
    {
        bool array;
        int index;       // the position of the array element being read
        std::string key; // the key of the object member being read
    };
    std::vector<Level> open;
    std::map<std::vector<std::string>, bool> numbers; // the paths of the numbers written as doubles

    // The path of the value being read; a step is "#N" for position N, "." and the key otherwise.
    std::vector<std::string> path() const
    {
        std::vector<std::string> steps;
        for (Level const& level : open)
            steps.push_back(level.array ? "#" + std::to_string(level.index) : "." + level.key);
        return steps;
    }
    // A value starts: it takes the next position of an array, and it shadows whatever an earlier
    // member of the same key left at its place.
    void starting()
    {
        if (!open.empty() && open.back().array)
            ++open.back().index;
        if (!numbers.empty()) {
            std::vector<std::string> const prefix = path();
            auto it = numbers.lower_bound(prefix);
            while (it != numbers.end() && it->first.size() >= prefix.size() &&
                   std::equal(prefix.begin(), prefix.end(), it->first.begin()))
                it = numbers.erase(it);
        }
    }
    bool Default()
    {
        starting();
        return true;
    }
    bool RawNumber(char const* text, rapidjson::SizeType length, bool)
    {
        starting();
        if (std::string(text, length).find_first_of(".eE") != std::string::npos)
            numbers[path()] = true;
        return true;
    }
    bool Key(char const* name, rapidjson::SizeType length, bool)
    {
        open.back().key.assign(name, length);
        return true;
    }
    bool StartObject() { return start(false); }
    bool StartArray() { return start(true); }
    bool start(bool array)
    {
        starting();
        open.push_back({array, -1, std::string()});
        return true;
    }
    bool EndObject(rapidjson::SizeType) { return end(); }
    bool EndArray(rapidjson::SizeType) { return end(); }
    bool end()
    {
        open.pop_back();
        return true;
    }
};

// The variant that a path leads to, or null when the tree has no such place.
QVariant* find(QVariant& root, std::vector<std::string> const& path)
{
    QVariant* at = &root;
    for (std::string const& step : path) {
        if (step[0] == '#' && at->userType() == QMetaType::QVariantList) {
            auto& list = *static_cast<QVariantList*>(at->data());
            int const index = std::stoi(step.substr(1));
            if (index >= list.size())
                return nullptr;
            at = &list[index];
        } else if (step[0] == '.' && at->userType() == QMetaType::QVariantMap) {
            auto& map = *static_cast<QVariantMap*>(at->data());
            auto const it = map.find(QString::fromStdString(step.substr(1)));
            if (it == map.end())
                return nullptr;
            at = &it.value();
        } else {
            return nullptr;
        }
    }
    return at;
}

} // namespace

QVariant JsonParser::toVariant(QByteArray const& text, QJsonParseError* error)
{
    QJsonParseError parsed{};
    QVariant tree = parse(text, &parsed).toVariant();
    if (error != nullptr)
        *error = parsed;
    if (parsed.error != QJsonParseError::NoError)
        return tree;
    DoubleNumbers numbers;
    rapidjson::MemoryStream stream(text.constData(), static_cast<size_t>(text.size()));
    rapidjson::Reader().Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag>(
        stream, numbers);
    for (auto const& number : numbers.numbers) {
        QVariant* const value = find(tree, number.first);
        if (value != nullptr && value->userType() == QMetaType::LongLong)
            *value = QVariant(static_cast<double>(value->toLongLong()));
    }
    return tree;
}

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
