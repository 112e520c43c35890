// The check of output-format descriptions against the installed schema.
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QVector>

#include "MessageCapture.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "format/OutputFormatScheme.h"

using orv::doesJsonConformToOutputFormatScheme;
using orv::test::MessageCapture;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

std::string const schemaDir = KV_SOURCE_DIR "/schema";
std::string const corpusDir = KV_SOURCE_DIR "/tests/data/formats";

std::string error; // why the last description was rejected

bool conforms(std::string const& json, std::string const& dir = schemaDir)
{
    orv::test::ScopedEnv schema("ORV_VORN_SCHEMA_DIR", dir);
    return error.clear(), doesJsonConformToOutputFormatScheme(json.c_str(), error);
}

} // namespace

TEST(OutputFormatScheme, GivesTheVerdictOfTheCorpusOnEachDescriptionAndAReasonForEachRejection)
{
    MessageCapture quiet;
    int checked = 0;
    for (char const* verdict : {"valid", "invalid"}) {
        for (auto const& entry : fs::directory_iterator(corpusDir + "/" + verdict)) {
            std::ifstream in(entry.path());
            EXPECT_EQ(conforms({std::istreambuf_iterator<char>(in), {}}), verdict == std::string("valid"))
                << entry.path() << ": " << error;
            EXPECT_EQ(error.empty(), verdict == std::string("valid")) << entry.path();
            ++checked;
        }
    }
    EXPECT_GE(checked, 70);
}

TEST(OutputFormatScheme, SaysWhereAndWhatIsWrongAndWarnsAboutAnEmptyText)
{
    MessageCapture messages;
    EXPECT_FALSE(conforms(""));
    EXPECT_FALSE(doesJsonConformToOutputFormatScheme(nullptr, error));
    EXPECT_EQ(messages.all(), QVector<QString>(2, "warning: Received JSON data is 0 bytes ?!").toList());
    EXPECT_FALSE(conforms(R"({"elements":[{"type":"uint8","id":"x","format":{"base":17}}]})"));
    EXPECT_THAT(error, HasSubstr("at #/elements/0/format/base (17): is above the largest allowed value"));
    EXPECT_FALSE(conforms(R"({"elements":[{"type":"uint8","id":"x","fromat":{}}]})"));
    EXPECT_THAT(error, HasSubstr("at #/elements/0/fromat ({}): holds a key that no element or option knows"));
    EXPECT_FALSE(conforms(R"({"elements":[{"type":"records","id":"models"}]})"));
    EXPECT_THAT(error, HasSubstr("\"records\" needs \"id\" and \"elements\""));
}

TEST(OutputFormatScheme, ReadsAUnicodeEscapeAsOneCharacterAndCountsOnlyNestingBracketsOutsideTexts)
{
    // An escaped key no longer names the key; a broken escape stays for the parser to reject.
    EXPECT_TRUE(conforms(R"({"elements":[{"type":"string","value":"\u00e4\u00f6"}]})"));
    EXPECT_FALSE(conforms(R"({"elements":[{"\u0074ype":"string","value":"x"}]})"));
    EXPECT_FALSE(conforms(R"({"elements":[{"type":"string","value":"\uZZZZ"}]})"));
    // Brackets inside a text do not nest, also after an escaped quote.
    EXPECT_TRUE(conforms(R"({"elements":[{"type":"string","value":"\")" + std::string(100, '[') + R"("}]})"));
    // A hundred elements side by side are not nested; a hundred thousand brackets after a text are.
    std::string many = R"({"elements":[)", deep = R"({"a":"x","b":)";
    for (int i = 0; i < 100000; ++i)
        deep += "[ ", many += i < 100 ? R"({"type":"string","value":"x"},)" : "";
    EXPECT_TRUE(conforms(many + R"({"type":"string","value":"x"}]})")) << error;
    EXPECT_FALSE(conforms(deep));
    EXPECT_THAT(error, HasSubstr("nests deeper than"));
}

TEST(OutputFormatScheme, FailsWhenASchemaFileIsMissingInsteadOfAcceptingAnything)
{
    orv::test::TempDir dir;
    fs::copy_file(schemaDir + "/vorn-format.json", dir.file("vorn-format.json"));
    EXPECT_FALSE(conforms(R"({"elements":[]})", dir.path()));
    EXPECT_THAT(error, HasSubstr("vorn-format-options.json"));
    fs::remove(dir.file("vorn-format.json"));
    EXPECT_FALSE(conforms(R"({"elements":[]})", dir.path()));
    EXPECT_THAT(error, HasSubstr("cannot read schema file"));
}
