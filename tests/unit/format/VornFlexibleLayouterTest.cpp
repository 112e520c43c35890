// The layouter walking a parsed result: element order, constants, blobs, nested lists, inheritance.
#include <gtest/gtest.h>

#include <QJsonDocument>

#include "MessageCapture.h"
#include "format/RecordMain.h"
#include "format/VornFlexibleLayouter.h"
#include "results/ResultModel.h"

using orv::test::MessageCapture;

namespace {

// The result laid out whole, or only its list of that name.
QByteArray layout(char const* result, char const* format, QString const& list = {})
{
    QByteArray text(result);
    ResultModel model;
    EXPECT_TRUE(model.parse(text)) << result;
    auto const record = QSharedPointer<orv::RecordMain>::create(nullptr, model, "1");
    QVariantMap const description = QJsonDocument::fromJson(format).toVariant().toMap();
    QByteArray out;
    list.isEmpty()
        ? VornFlexibleLayouter().serializeRecord(record, description, {}, out)
        : VornFlexibleLayouter().serializeRecordList(record->getSubRecords(list), description, {}, out);
    return out;
}

} // namespace

TEST(VornFlexibleLayouter, WritesConstantsValuesAndBlobsInElementOrderWithoutSeparators)
{
    MessageCapture messages;
    // A list on its own: its elements once per record, each with its note, a constant's too.
    EXPECT_EQ(layout(R"({"model_002":{"n":2},"model_001":{"n":1}})",
                     R"({"elements":[{"type":"uint8","id":"n"},{"type":"string","value":";"}]})", "models"),
              "1;2;");
    EXPECT_EQ(messages.all().count("warning: Missing 'dataencoding' is missing"), 4);
    EXPECT_EQ(
        layout(R"({"start":"ignored","x":"rec","a":258,"b":"txt","c":1.2345678901234568e+17})",
               R"({"elements":[{"type":"string","id":"start","value":"START"},{"type":"blob","value":"0d0a"},
        {"type":"records","id":"models","value":"x"}, {"type":"string","id":"x","value":null},
        {"type":"int16","id":"a","format":{"dataencoding":"binary","order":"big"}}, {"type":"string","id":"b"},
        {"type":"blob","id":"missing"}, {"type":"uint8","id":"missing","format":{"width":2}},
        {"type":"string","id":"c"}]})"),
        "START\r\nrec\1\2txt 01.23456789012346e+17"); // a double in 15 digits, not as an integer
}

TEST(VornFlexibleLayouter, WritesNestedElementsOncePerRecordWithInheritedOptionsButTheirOwnType)
{
    MessageCapture messages;
    // Models in key order, the empty one unreadable; ROIs in numeric key order, updated in place.
    EXPECT_EQ(layout(R"({"model_003":{"n":8},"model_002":{},"model_001":{"n":7,
                         "ROIs":{"10":{"v":10},"9":{"v":9},"2":{"v":2,"boundingBox":{"x":5}}},
                         "ROIsUpdated":{"ROIs":[{"id":9,"v":90},{"id":77,"v":77}]}}})",
                     R"({"elements":[{"type":"records","id":"models","format":{"fill":"0","type":"float32"},
        "elements":[{"type":"uint8","id":"n","format":{"width":2}},{"type":"string","value":" "},
                    {"type":"uint8","id":"rois.count"},
                    {"type":"records","id":"rois","elements":[
                        {"type":"string","value":"|"},{"type":"uint8","id":"id"},{"type":"string","value":":"},
                        {"type":"uint16","id":"v","format":{"width":3}},{"type":"string","value":","},
                        {"type":"uint8","id":"bounding_box_x"}]},
                    {"type":"string","value":";"}]},
        {"type":"records","id":"nothing","elements":[{"type":"string","value":"?"}]},
        {"type":"string","value":"end"}]})"),
              "07 3|2:002,5|9:090,0|10:010,0;08 0;end");
    EXPECT_EQ(messages.all().filter(QRegExp("^warning: (get|type|Req)")),
              QStringList({"warning: get a null-record at index: 1",
                           "warning: Requested RecordListROIs, but the model has no ROIs",
                           "warning: type was record, but record-interface has no recordlist on the id: "
                           "\"nothing\""}));
}
