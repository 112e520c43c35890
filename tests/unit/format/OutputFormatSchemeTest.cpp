#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MessageCapture.h"
#include "Require.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "format/OutputFormatScheme.h"

using orv::doesJsonConformToOutputFormatScheme;
using orv::test::MessageCapture;
using orv::test::ScopedEnv;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

std::string const schemaDir = KV_SOURCE_DIR "/schema";
std::string const corpusDir = KV_SOURCE_DIR "/tests/data/formats";

std::string readText(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class OutputFormatScheme : public testing::Test
{
protected:
    bool conforms(std::string const& json)
    {
        m_error.clear();
        return doesJsonConformToOutputFormatScheme(json.c_str(), m_error);
    }
    std::string const& error() const { return m_error; }

private:
    ScopedEnv m_schemaDir{"ORV_VORN_SCHEMA_DIR", schemaDir};
    std::string m_error;
};

// The corpus file name (valid/... or invalid/...) mapped to the verdict of python3-jsonschema.
std::map<std::string, std::string> independentVerdicts(std::vector<fs::path> const& files)
{
    std::string command = "python3 '" + corpusDir + "/jsonschema_verdicts.py' '" + schemaDir + "'";
    for (fs::path const& file : files)
        command += " '" + file.string() + "'";
    std::map<std::string, std::string> verdicts;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return verdicts;
    char line[4096];
    while (fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream words(line);
        std::string verdict, file;
        words >> verdict >> file;
        verdicts[fs::path(file).parent_path().filename().string() + "/" +
                 fs::path(file).filename().string()] = verdict;
    }
    pclose(pipe);
    return verdicts;
}

} // namespace

TEST_F(OutputFormatScheme, AgreesWithTheCorpusAndWithAnIndependentValidator)
{
    KV_REQUIRE(system("python3 -c 'import jsonschema' 2>/dev/null") == 0,
               "python3-jsonschema is not installed");

    std::vector<fs::path> files;
    for (char const* verdict : {"valid", "invalid"})
        for (auto const& entry : fs::directory_iterator(corpusDir + "/" + verdict))
            files.push_back(entry.path());
    ASSERT_GE(files.size(), 40u);
    std::map<std::string, std::string> const independent = independentVerdicts(files);
    ASSERT_EQ(independent.size(), files.size());

    MessageCapture quiet;
    for (fs::path const& file : files) {
        std::string const name = file.parent_path().filename().string() + "/" + file.filename().string();
        std::string const expected = file.parent_path().filename().string();
        std::string const ours = conforms(readText(file)) ? "valid" : "invalid";
        EXPECT_EQ(ours, expected) << name << ": " << error();
        EXPECT_EQ(independent.at(name), expected) << name << " (python3-jsonschema)";
        if (ours == "invalid") {
            EXPECT_FALSE(error().empty()) << name;
        }
    }
}

TEST_F(OutputFormatScheme, SaysWhereAndWhatIsWrong)
{
    EXPECT_FALSE(conforms(R"({"elements":[{"type":"uint8","id":"x","format":{"base":17}}]})"));
    EXPECT_THAT(error(), HasSubstr("/elements/0/format/base (17): is above the largest allowed value"));

    EXPECT_FALSE(conforms(R"({"elements":[{"type":"uint8","id":"x","fromat":{}}]})"));
    EXPECT_THAT(error(), HasSubstr("at #/elements/0"));
    EXPECT_THAT(error(), HasSubstr("holds a key that no element or option knows"));

    EXPECT_FALSE(conforms(R"({"elements":[{"type":"records","id":"models"}]})"));
    EXPECT_THAT(error(), HasSubstr("\"records\" needs \"id\" and \"elements\""));
}

TEST_F(OutputFormatScheme, RejectsEmptyAndMalformedTextWithAWarning)
{
    MessageCapture messages;
    EXPECT_FALSE(conforms(""));
    EXPECT_EQ(messages.all(), QStringList({"warning: Received JSON data is 0 bytes ?!"}));

    messages.clear();
    EXPECT_FALSE(conforms("{\"elements\":["));
    ASSERT_EQ(messages.all().size(), 1);
    EXPECT_TRUE(messages.all().at(0).startsWith(
        "warning: doesJsonConformToOutputFormatScheme: JSON deserialization error: "));
    std::string reason;
    EXPECT_FALSE(doesJsonConformToOutputFormatScheme(nullptr, reason));
}

TEST_F(OutputFormatScheme, ReadsEachUnicodeEscapeAsOneCharacter)
{
    // An escaped key no longer names the key; a broken escape stays for the parser to reject.
    EXPECT_TRUE(conforms(R"({"elements":[{"type":"string","value":"\u00e4\u00f6"}]})"));
    EXPECT_FALSE(conforms(R"({"elements":[{"\u0074ype":"string","value":"x"}]})"));
    EXPECT_FALSE(conforms(R"({"elements":[{"type":"string","value":"\uZZZZ"}]})"));
}

TEST_F(OutputFormatScheme, RejectsDescriptionsNestedBeyondAnyUse)
{
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "[";
    EXPECT_FALSE(conforms(deep));
    EXPECT_THAT(error(), HasSubstr("nests deeper than"));
}

TEST(OutputFormatSchemeFiles, FailsWhenAReferencedSchemaFileIsMissingInsteadOfAcceptingAnything)
{
    orv::test::TempDir dir;
    fs::copy_file(schemaDir + "/vorn-format.json", dir.file("vorn-format.json"));
    ScopedEnv schema("ORV_VORN_SCHEMA_DIR", dir.path());
    std::string error;

    EXPECT_FALSE(doesJsonConformToOutputFormatScheme(R"({"elements":[]})", error));
    EXPECT_THAT(error, HasSubstr("vorn-format-options.json"));

    fs::remove(dir.file("vorn-format.json"));
    EXPECT_FALSE(doesJsonConformToOutputFormatScheme(R"({"elements":[]})", error));
    EXPECT_THAT(error, HasSubstr("cannot read schema file"));
}
