// The byte map of an output: what each element of a description wrote where, from the plan itself.
#include <cmath>
#include <limits>
#include <tuple>

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include "MessageCapture.h"
#include "format/FormatTrace.h"
#include "format/RecordMain.h"
#include "format/VornFormatOutput.h"
#include "format/VornFormatPlan.h"
#include "format/VornFormatter.h"
#include "results/ResultModel.h"

namespace {

char const* const Result =
    R"({"a":300,"f":-2.75,"t":"text","model_001":{"n":7,"ROIs":{"1":{"v":1},"2":{"v":2}}},
                              "model_002":{"n":8,"ROIs":{"3":{"v":3}}}})";

// The output and its map for a description ({"elements": ...}) over Result.
QByteArray formatted(QByteArray const& description, FormatTrace& trace)
{
    ResultModel model;
    QByteArray result(Result);
    EXPECT_TRUE(model.parse(result));
    orv::RecordMain main(nullptr, model, "1");
    auto const plan =
        VornFormatPlan::fromRequest("{\"format\":" + description + "}", BusByteOrder::LittleEndian);
    VornFormatOutput out;
    plan->write(main, out, &trace);
    VornFormatOutput untraced;
    plan->write(main, untraced);
    EXPECT_EQ(out.toByteArray(), untraced.toByteArray()) << "a trace must not change the output";
    return out.toByteArray();
}

} // namespace

TEST(FormatTrace, MapsEveryByteOfEveryCorpusDescriptionOnceAndInOrder)
{
    orv::test::MessageCapture quiet;
    int described = 0;
    for (QString const dir : {"valid", "invalid"}) {
        QDir const folder(KV_SOURCE_DIR "/tests/data/formats/" + dir);
        for (QString const& name : folder.entryList({"*.json"})) {
            QFile file(folder.filePath(name));
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            QByteArray const text = file.readAll();
            if (!QJsonDocument::fromJson(text).isObject())
                continue;
            SCOPED_TRACE(name.toStdString());
            FormatTrace trace;
            QByteArray const out = formatted(text, trace);
            std::size_t next = 0;
            for (FormatTraceEntry const& entry : trace.entries()) {
                EXPECT_EQ(entry.offset, next) << entry.path.toStdString();
                next += entry.length;
            }
            EXPECT_EQ(next, std::size_t(out.size()));
            ++described;
        }
    }
    EXPECT_GT(described, 50);
}

TEST(FormatTrace, NamesThePlaceTheRecordIdAndWhatWasNotAsAsked)
{
    orv::test::MessageCapture quiet;
    FormatTrace trace;
    formatted(R"({"elements":[{"type":"int8","id":"a","format":{"dataencoding":"binary"}},
        {"type":"int16","id":"f","format":{"dataencoding":"binary","order":"big"}},
        {"type":"uint8","id":"gone"},{"type":"string","value":"<"},{"type":"blob","id":"distance_image"},
        {"type":"string","id":"t","format":{"width":2}},
        {"type":"records","id":"models","elements":[{"type":"records","id":"rois","elements":[
            {"type":"uint16","id":"v"}]}]},{"type":"records","id":"model","elements":[]}]})",
              trace);
    // offset, length, element, id, type and encoding, value, note
    std::vector<QStringList> const expected = {
        {"0", "1", "elements[0]", "a", "int8 binary", "300", "clamped to the range of int8"},
        {"1", "2", "elements[1]", "f", "int16 binary", "-2.75", "fraction cut"},
        {"3", "1", "elements[2]", "gone", "uint8 ascii", "", "no value in the result: the default written"},
        {"4", "1", "elements[3]", "", "string ascii", "<", "constant"},
        {"5", "0", "elements[4]", "distance_image", "bytes ", "",
         "no such data for this result: nothing written"},
        {"5", "4", "elements[5]", "t", "string ascii", "text", "wider than its width of 2"},
        {"9", "0", "elements[6]", "models", "records ", "2", ""},
        {"9", "0", "elements[6] › models[0] › elements[0]", "rois", "records ", "2", ""},
        {"9", "1", "elements[6] › models[0] › elements[0] › rois[0] › elements[0]", "v", "uint16 ascii", "1",
         ""},
        {"10", "1", "elements[6] › models[0] › elements[0] › rois[1] › elements[0]", "v", "uint16 ascii", "2",
         ""},
        {"11", "0", "elements[6] › models[1] › elements[0]", "rois", "records ", "1", ""},
        {"11", "1", "elements[6] › models[1] › elements[0] › rois[0] › elements[0]", "v", "uint16 ascii", "3",
         ""},
        {"12", "0", "elements[7]", "model", "records ", "", "no such list in this record: nothing written"},
    };
    std::vector<QStringList> traced;
    for (FormatTraceEntry const& e : trace.entries())
        traced.push_back({QString::number(e.offset), QString::number(e.length), e.path, e.id,
                          e.type + ' ' + e.encoding, e.value, e.note});
    EXPECT_EQ(traced, expected);
    EXPECT_TRUE(trace.entries()[1].bigEndian);
}

TEST(FormatTrace, TheNoteOfEveryIntegerEdgeSaysWhatItsBytesHold)
{
    double const inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
    // type, value, options, the text written, the note ("clamped": clamped to the range of the type;
    // "sign": of the other sign, its 64 bits written as the type)
    std::tuple<char const*, QVariant, QVariantMap, char const*, char const*> const cases[] = {
        {"int64", 9.2233720368547e18, {}, "9223372036854700032", ""},           // below 2^63: exact
        {"int64", 9223372036854775807.0, {}, "9223372036854775807", "clamped"}, // 2^63
        {"int64", -9.3e18, {}, "-9223372036854775808", "clamped"},
        {"int64", -9223372036854775808.0, {}, "-9223372036854775808", ""}, // -2^63 is in range
        {"int64", nan, {}, "0", "not a number: 0 written"},
        {"int64", inf, {}, "9223372036854775807", "clamped"},
        {"int64", -inf, {}, "-9223372036854775808", "clamped"},
        {"int64", 2.5, {}, "3", "fraction rounded"},
        {"int64", qlonglong(4611686018427387904), {{"scale", 4}}, "9223372036854775807", "clamped"},
        {"uint64", qlonglong(-1), {}, "18446744073709551615", "sign"},
        {"uint64", -1.5, {}, "18446744073709551615", "sign"},
        {"uint64", 2.5, {}, "3", "fraction rounded"},
        {"uint64", 0.25, {}, "0", "fraction rounded"},
        {"uint64", 18446744073709551616.0, {}, "18446744073709551615", "clamped"},
        {"uint64", 1.8446744073709550e19, {}, "18446744073709549568", ""},
        {"uint64", nan, {}, "0", "not a number: 0 written"},
        {"uint64", -inf, {}, "0", "clamped"},
        {"int8", 127.9, {}, "127", "fraction cut"},
        {"int8", 128, {}, "127", "clamped"},
        {"int8", -128.5, {}, "-128", "clamped"}, // below the range before the cut
        {"int8", -129, {}, "-128", "clamped"},
        {"int8", nan, {}, "0", "not a number: 0 written"},
        {"int8", inf, {}, "127", "clamped"},
        {"int8", "x", {}, "0", "no number: 0 written"},
        {"uint8", -0.5, {}, "0", "clamped"},
        {"uint8", -1, {}, "0", "clamped"},
    };
    orv::test::MessageCapture quiet;
    for (auto const& [type, value, given, written, note] : cases) {
        SCOPED_TRACE(std::string(type) + " " + value.toString().toStdString());
        QVariantMap options = given;
        options.insert("type", type);
        options.insert("dataencoding", "ascii");
        VornFormatSettings settings;
        settings.loadSettingsFromVariants(options);
        std::string text;
        unsigned effects = 0;
        VornFormatter::formatInto(value, settings, text, &effects);
        FormatTraceEntry const entry = FormatTrace::valueEntry(value, settings, text.size(), effects);
        std::string const expected =
            note == std::string("clamped") ? "clamped to the range of " + std::string(type)
            : note == std::string("sign")  ? "of the other sign: its 64 bits written as " + std::string(type)
                                           : note;
        EXPECT_EQ(text, written);
        EXPECT_EQ(entry.note.toStdString(), expected);
        EXPECT_EQ(entry.length, text.size());
    }
}
