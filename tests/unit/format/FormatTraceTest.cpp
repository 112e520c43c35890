// The byte map of an output: what each element of a description wrote where, from the plan itself.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include "MessageCapture.h"
#include "format/FormatTrace.h"
#include "format/RecordMain.h"
#include "format/VornFormatOutput.h"
#include "format/VornFormatPlan.h"
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
            {"type":"uint16","id":"v"}]}]}]})",
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
        {"9", "1", "elements[6] › models[0] › elements[0] › rois[0] › elements[0]", "v", "uint16 ascii", "1",
         ""},
        {"10", "1", "elements[6] › models[0] › elements[0] › rois[1] › elements[0]", "v", "uint16 ascii", "2",
         ""},
        {"11", "1", "elements[6] › models[1] › elements[0] › rois[0] › elements[0]", "v", "uint16 ascii", "3",
         ""},
    };
    std::vector<QStringList> traced;
    for (FormatTraceEntry const& e : trace.entries())
        traced.push_back({QString::number(e.offset), QString::number(e.length), e.path, e.id,
                          e.type + ' ' + e.encoding, e.value, e.note});
    EXPECT_EQ(traced, expected);
    EXPECT_TRUE(trace.entries()[1].bigEndian);
}
