#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QVariantMap>

#include "MessageCapture.h"
#include "format/RecordInterface.h"
#include "format/RecordListInterface.h"
#include "format/VornFlexibleLayouter.h"

using orv::test::MessageCapture;

namespace {

// A record with fixed values, blobs and lists, and a list over fixed records (null entries allowed).
class FakeRecord : public RecordInterface
{
public:
    QVariantMap values;
    QMap<QString, QByteArray> blobs;
    QMap<QString, QSharedPointer<RecordListInterface>> lists;

    QSharedPointer<RecordListInterface> getSubRecords(QString const& id) override { return lists.value(id); }
    QByteArray getBlob(QString const& id) override { return blobs.value(id); }
    QVariant getValue(QString const& id) override { return values.value(id); }
};

class FakeList : public RecordListInterface
{
public:
    QList<QSharedPointer<RecordInterface>> records;

    int size() const override { return records.size(); }
    QSharedPointer<RecordInterface> getRecord(int index) override { return records.value(index); }
};

QSharedPointer<FakeRecord> recordWith(QVariantMap values)
{
    auto record = QSharedPointer<FakeRecord>::create();
    record->values = std::move(values);
    return record;
}

QVariantMap format(char const* json)
{
    return QJsonDocument::fromJson(json).toVariant().toMap();
}

QByteArray layout(QSharedPointer<RecordInterface> record, char const* json, QVariantMap settings = {})
{
    QByteArray out;
    VornFlexibleLayouter().serializeRecord(record, format(json), settings, out);
    return out;
}

} // namespace

TEST(VornFlexibleLayouter, WritesConstantsAsTheyStandAndHexBlobsAsBytes)
{
    auto record = recordWith({{"start", "ignored"}, {"x", "rec"}});
    EXPECT_EQ(layout(record, R"({"elements":[{"type":"string","id":"start","value":"START"},
                                             {"type":"blob","value":"0d0a"},
                                             {"type":"records","id":"none","value":"x"},
                                             {"type":"string","id":"x","value":null}]})"),
              QByteArray("START\r\nrec"));
}

TEST(VornFlexibleLayouter, WritesValuesAndBlobsInElementOrderWithoutSeparators)
{
    auto record = recordWith({{"a", 258}, {"b", "txt"}});
    record->blobs.insert("img", QByteArray("\x01\x02\x03", 3));
    QByteArray const out = layout(record, R"({"elements":[
        {"type":"int16","id":"a","format":{"dataencoding":"binary","order":"big"}},
        {"type":"blob","id":"img"},
        {"type":"string","id":"b"},
        {"type":"blob","id":"missing"},
        {"type":"uint8","id":"missing","format":{"width":2}}]})");
    EXPECT_EQ(out, QByteArray("\x01\x02\x01\x02\x03txt 0", 10));
}

TEST(VornFlexibleLayouter, WritesTheNestedElementsOncePerRecordWithInheritedOptions)
{
    auto inner = QSharedPointer<FakeList>::create();
    inner->records << recordWith({{"v", 1}}) << recordWith({{"v", 22}});
    auto first = recordWith({{"n", 7}});
    first->lists.insert("rois", inner);
    auto models = QSharedPointer<FakeList>::create();
    models->records << first << QSharedPointer<RecordInterface>() << recordWith({{"n", 8}});
    auto main = recordWith({});
    main->lists.insert("models", models);

    MessageCapture messages;
    QByteArray const out = layout(main, R"({"elements":[{"type":"records","id":"models","format":{"fill":"0"},
        "elements":[{"type":"uint8","id":"n","format":{"width":2}},
                    {"type":"records","id":"rois","elements":[
                        {"type":"string","value":"|"},
                        {"type":"uint16","id":"v","format":{"width":3}}]},
                    {"type":"string","value":";"}]}]})");

    EXPECT_EQ(out, QByteArray("07|001|022;08;"));
    EXPECT_TRUE(messages.ofLevel("warning").contains("get a null-record at index: 1"));
    EXPECT_TRUE(messages.ofLevel("warning").contains(
        "type was record, but record-interface has no recordlist on the id: \"rois\""));
}

TEST(VornFlexibleLayouter, TheElementTypeWinsOverInheritedOptionsAndTheBusOrderReachesNestedLevels)
{
    auto inner = QSharedPointer<FakeList>::create();
    inner->records << recordWith({{"v", 1}});
    auto main = recordWith({});
    main->lists.insert("list", inner);
    QByteArray const out = layout(main, R"({"elements":[{"type":"records","id":"list",
        "format":{"type":"uint8","dataencoding":"binary","order":"busdepending"},
        "elements":[{"type":"uint16","id":"v"}]}]})",
                                  {{"busEndianness", 1u}});
    EXPECT_EQ(out, QByteArray("\x00\x01", 2));
}

TEST(VornFlexibleLayouter, GoesOnAfterAListThatTheRecordDoesNotServe)
{
    MessageCapture messages;
    EXPECT_EQ(layout(recordWith({{"x", 5}}), R"({"elements":[{"type":"records","id":"nothing","elements":[]},
                                                             {"type":"int8","id":"x"}]})"),
              QByteArray("5"));
    EXPECT_EQ(
        messages.ofLevel("warning").filter("recordlist"),
        QStringList({"type was record, but record-interface has no recordlist on the id: \"nothing\""}));
}

TEST(VornFlexibleLayouter, AFormatWithoutElementsWritesNothing)
{
    EXPECT_TRUE(layout(recordWith({{"x", 5}}), R"({})").isEmpty());
    EXPECT_TRUE(layout(QSharedPointer<RecordInterface>(), R"({"elements":[{"type":"string","value":"x"}]})")
                    .isEmpty());
}
