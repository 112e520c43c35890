#include "plc/DescriptionCheck.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <QStringList>

#include "format/FormatSchema.h"
#include "format/RecordListInterface.h"
#include "format/RecordMain.h"
#include "results/ResultModel.h"

namespace {

using orv::FormatSchema;
using Value = rapidjson::Value;

QString text(Value const& value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    QString shown = QString::fromUtf8(buffer.GetString());
    return shown.size() > 60 ? shown.left(57) + QStringLiteral("...") : shown;
}

QString pointerText(rapidjson::Pointer const& pointer)
{
    rapidjson::StringBuffer buffer;
    pointer.Stringify(buffer);
    return QString::fromUtf8(buffer.GetString());
}

// The lists that the records of each level have, asked of the plug-in's own records over a result
// with one model and one ROI: level 0 the result, 1 a model, 2 a ROI.
QStringList listsAt(int level)
{
    static QByteArray json = R"({"model_001": {"ROIs": {"1": {}}}})";
    static ResultModel const model = [] {
        ResultModel parsed;
        parsed.parse(json);
        return parsed;
    }();
    static QStringList const candidates = {QStringLiteral("models"), QStringLiteral("rois")};
    orv::RecordMain main(nullptr, model, "0");
    QSharedPointer<RecordInterface> record(&main, [](RecordInterface*) {});
    for (int l = 0; l < level && record != nullptr; ++l) {
        QSharedPointer<RecordListInterface> const list = record->getSubRecords(candidates[l]);
        record = list.isNull() ? nullptr : list->getRecord(0);
    }
    QStringList lists;
    for (QString const& id : candidates) {
        if (record != nullptr && !record->getSubRecords(id).isNull())
            lists.append(id);
    }
    return lists;
}

struct Walk
{
    std::vector<DescriptionCheck::Problem>& problems;
    FormatSchema element{R"({"$ref": "vorn-format.json#/definitions/element"})"};
    FormatSchema optionSchema{R"({"$ref": "vorn-format-options.json#"})"};
    FormatSchema valueType{R"({"$ref": "vorn-format.json#/definitions/valueType"})"};

    void add(QString const& path, QString const& message) { problems.push_back({path, message}); }

    void violation(QString const& base, FormatSchema::Violation const& v, Value const& checked)
    {
        QString const path = base + pointerText(v.where);
        Value const* value = v.where.Get(checked);
        QString message = value != nullptr ? text(*value) + QStringLiteral(" ") : QString();
        message += QString::fromStdString(FormatSchema::explain(v.keyword));
        if (!v.allowed.empty()) {
            QStringList allowed;
            for (std::string const& a : v.allowed)
                allowed.append(QString::fromStdString(a));
            message += (v.keyword == "enum" ? QStringLiteral("; allowed: ") : QStringLiteral("; known: ")) +
                       allowed.join(QStringLiteral(", "));
        }
        add(path, message);
    }

    void checkOptions(QString const& path, Value const& format, rapidjson::Document::AllocatorType& allocator)
    {
        // Key by key, so that every wrong option is named, not only the first.
        for (auto const& member : format.GetObject()) {
            Value one(rapidjson::kObjectType);
            one.AddMember(Value(member.name, allocator), Value(member.value, allocator), allocator);
            FormatSchema::Violation v;
            if (!optionSchema.check(one, v))
                violation(path, v, one);
        }
    }

    void elements(QString const& path, Value const& list, int level,
                  rapidjson::Document::AllocatorType& allocator)
    {
        if (!list.IsArray()) {
            add(path, text(list) +
                          QStringLiteral(" is no list: \"elements\" is a list of elements, [ {...}, ... ]"));
            return;
        }
        for (rapidjson::SizeType i = 0; i < list.Size(); ++i)
            one(path + QStringLiteral("/%1").arg(i), list[i], level, allocator);
    }

    void one(QString const& path, Value const& element, int level,
             rapidjson::Document::AllocatorType& allocator)
    {
        if (!element.IsObject()) {
            add(path,
                text(element) + QStringLiteral(" is no element: an element is an object with a \"type\""));
            return;
        }
        // An unknown type fails every kind of element alike; said with the types there are.
        if (element.HasMember("type") && element["type"].IsString() && element["type"] != "records" &&
            element["type"] != "blob") {
            FormatSchema::Violation v;
            if (!valueType.check(element["type"], v)) {
                v.allowed = valueType.enumeration(FormatSchema::fileName(), "/definitions/valueType");
                v.allowed.insert(v.allowed.end(), {"records", "blob"});
                violation(path + QStringLiteral("/type"), v, element["type"]);
                return;
            }
        }
        // The element without its options and nested elements: those are checked on their own.
        Value bare(element, allocator);
        bare.RemoveMember("format");
        if (bare.HasMember("elements"))
            bare["elements"].SetArray();
        std::size_t const before = problems.size();
        FormatSchema::Violation v;
        if (!this->element.check(bare, v))
            violation(path, v, bare);
        if (problems.size() == before && element.HasMember("type") && element["type"] == "records" &&
            element.HasMember("id") && element["id"].IsString()) {
            QString const id = QString::fromUtf8(element["id"].GetString());
            QStringList const lists = listsAt(level);
            if (!lists.contains(id))
                add(path + QStringLiteral("/id"),
                    QStringLiteral("\"%1\": the records here have no list of that name; %2")
                        .arg(id, lists.isEmpty()
                                     ? QStringLiteral("they have no list at all")
                                     : QStringLiteral("lists here: ") + lists.join(QStringLiteral(", "))));
        }
        if (element.HasMember("format") && element["format"].IsObject())
            checkOptions(path + QStringLiteral("/format"), element["format"], allocator);
        if (element.HasMember("elements"))
            elements(path + QStringLiteral("/elements"), element["elements"], level + 1, allocator);
    }
};

} // namespace

DescriptionCheck::DescriptionCheck(QByteArray const& json)
{
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(json.constData(), rapidjson::SizeType(json.size()));
    if (document.HasParseError()) {
        std::size_t const at = document.GetErrorOffset();
        QByteArray const before = json.left(int(at));
        add(QString(), QStringLiteral("no JSON: %1 (line %2, column %3)")
                           .arg(QString::fromUtf8(rapidjson::GetParseError_En(document.GetParseError())))
                           .arg(before.count('\n') + 1)
                           .arg(at - std::size_t(before.lastIndexOf('\n') + 1) + 1));
        return;
    }
    // A request carries the description under "format"; a file may hold either.
    Value const* description = &document;
    QString base;
    if (document.IsObject() && document.HasMember("format") && !document.HasMember("elements")) {
        description = &document["format"];
        base = QStringLiteral("/format");
    }
    if (!description->IsObject() || !description->HasMember("elements")) {
        add(base, QStringLiteral("%1 is no description: a description is an object with \"elements\", a list "
                                 "of elements (see docs/examples)")
                      .arg(text(*description)));
        return;
    }
    FormatSchema const whole;
    if (!whole.error().empty()) {
        add(QString(), QString::fromStdString(whole.error()));
        return;
    }
    Walk walk{m_problems};
    for (auto const& member : description->GetObject()) {
        if (member.name != "elements")
            add(base + QStringLiteral("/") + QString::fromUtf8(member.name.GetString()),
                QStringLiteral("is no key of a description: it has \"elements\" only"));
    }
    walk.elements(base + QStringLiteral("/elements"), (*description)["elements"], 0, document.GetAllocator());
    FormatSchema::Violation v;
    if (m_problems.empty() && !whole.check(*description, v))
        walk.violation(base, v, *description); // what the parts alone do not show
}

QString DescriptionCheck::report() const
{
    QStringList lines;
    for (Problem const& p : m_problems)
        lines.append((p.path.isEmpty() ? QStringLiteral("/") : p.path) + QStringLiteral(": ") + p.message);
    return lines.join(QLatin1Char('\n'));
}
