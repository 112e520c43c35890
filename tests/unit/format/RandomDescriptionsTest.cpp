// Descriptions built at random from what the schema allows, over a result with extreme values:
// each must validate, and its output must have exactly the size its element types promise.
#include <random>

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "MessageCapture.h"
#include "ScopedEnv.h"
#include "format/OutputFormatScheme.h"
#include "format/RecordMain.h"
#include "format/VornFlexibleLayouter.h"

namespace {

char const* const result = R"({"huge":1e308,"tiny":-1e308,"zero":0,"text":"12abc","long":"\u00e4\\x41\\x4",
    "list":[1,2],"obj":{"a":1},"flag":true,
    "model_001":{"ROIs":{"1":{"v":1e300},"2":{"v":-7}}},"model_002":{"ROIs":{}}})";

char const* const ids[] = {"huge", "tiny", "zero",    "text", "long", "list",
                           "obj",  "flag", "missing", "v",    "id"};
char const* const numberTypes[] = {"int8",   "int16",   "int32", "uint8", "uint16",
                                   "uint32", "float32", "int64", "uint64"};
int const numberWidths[] = {1, 2, 4, 1, 2, 4, 4, 8, 8};

class Generator
{
public:
    explicit Generator(unsigned seed) : m_random(seed) {}

    // One element and the exact byte count it must produce (-1: at least `minimum` bytes).
    QJsonObject element(int depth, int& exact, int& minimum)
    {
        int const kind = pick(depth < 2 ? 4 : 3);
        QJsonObject element;
        QJsonObject options = formatOptions();
        exact = -1;
        minimum = 0;
        if (kind == 3) {
            element["type"] = "records";
            element["id"] = depth == 0 ? "models" : "rois";
            QJsonArray inner;
            int ignoredExact = 0, ignoredMinimum = 0;
            for (int i = pick(3); i > 0; --i)
                inner.append(this->element(depth + 1, ignoredExact, ignoredMinimum));
            element["elements"] = inner;
        } else if (kind == 2) {
            element["type"] = "string";
            element["id"] = ids[pick(11)];
            minimum = options.value("width").toInt();
        } else {
            int const type = pick(9);
            element["type"] = numberTypes[type];
            element["id"] = ids[pick(11)];
            bool const binary = options.value("dataencoding").toString() == "binary";
            if (binary)
                exact = numberWidths[type];
            else
                minimum = std::max(1, options.value("width").toInt());
        }
        element["format"] = options;
        return element;
    }

private:
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(m_random); }

    QJsonObject formatOptions()
    {
        QJsonObject o;
        o["dataencoding"] = pick(2) ? "binary" : "ascii";
        if (pick(2))
            o["scale"] = pick(2) ? 1e30 : -0.001;
        if (pick(2))
            o["offset"] = pick(2) ? -1e30 : 3.5;
        char const* orders[] = {"little", "big", "network", "busdepending"};
        o["order"] = orders[pick(4)];
        o["width"] = pick(3) == 0 ? 65535 : pick(12);
        if (pick(2))
            o["fill"] = pick(2) ? QString(QChar(0)) : QString("xyz");
        o["precision"] = pick(3) == 0 ? 99 : pick(8);
        o["displayformat"] = pick(2) ? "fixed" : "scientific";
        o["alignment"] = pick(2) ? "left" : "right";
        o["decimalseparator"] = pick(2) ? "," : ".";
        o["base"] = 2 + pick(15);
        o["numericfill"] = pick(2) == 0;
        return o;
    }

    std::mt19937 m_random;
};

} // namespace

TEST(RandomDescriptions, ValidateAndProduceExactlyTheBytesTheirTypesPromise)
{
    orv::test::ScopedEnv schema("ORV_VORN_SCHEMA_DIR", KV_SOURCE_DIR "/schema");
    QByteArray text(result);
    ResultModel model;
    ASSERT_TRUE(model.parse(text));
    orv::test::MessageCapture quiet;

    Generator generator(20261122);
    for (int round = 0; round < 200; ++round) {
        int exactTotal = 0;
        int minimumTotal = 0;
        bool exact = true;
        QJsonArray elements;
        for (int i = 0; i < 4; ++i) {
            int e = 0, m = 0;
            QJsonObject const element = generator.element(0, e, m);
            elements.append(element);
            if (element.value("type") == "records")
                exact = false;
            else if (e >= 0)
                exactTotal += e;
            else {
                exact = false;
                minimumTotal += m;
            }
        }
        QByteArray const json =
            QJsonDocument(QJsonObject{{"elements", elements}}).toJson(QJsonDocument::Compact);
        std::string error;
        ASSERT_TRUE(orv::doesJsonConformToOutputFormatScheme(json.constData(), error)) << error << "\n"
                                                                                       << json.constData();

        auto main = QSharedPointer<orv::RecordMain>::create(nullptr, model, "1");
        QByteArray out;
        VornFlexibleLayouter().serializeRecord(main, QJsonDocument::fromJson(json).toVariant().toMap(),
                                               {{"busEndianness", 1u}}, out);
        if (exact)
            EXPECT_EQ(out.size(), exactTotal) << json.constData();
        else
            EXPECT_GE(out.size(), exactTotal + minimumTotal) << json.constData();
    }
}
