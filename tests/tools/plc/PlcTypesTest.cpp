// Data types made from a description: the Structured Text read back and the C struct compiled must
// both put every field where the map of the output has it.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <sstream>

#include <QFile>
#include <QJsonDocument>

#include "MessageCapture.h"
#include "TempDir.h"
#include "plc/LayoutRecord.h"
#include "plc/PlcTypes.h"
#include "format/VornFormatOutput.h"
#include "format/VornFormatPlan.h"

namespace {

// Every binary type, constants, fixed text, a big-endian field and lists in a list.
char const* const Fixed = R"({"elements":[{"type":"string","value":"KV"},{"type":"blob","value":"0d0a0d"},
    {"type":"uint8","id":"models.count","format":{"dataencoding":"binary"}},
    {"type":"records","id":"models","format":{"dataencoding":"binary"},"elements":[
        {"type":"int8","id":"a"},{"type":"uint8","id":"b"},{"type":"int16","id":"c","format":{"order":"big"}},
        {"type":"uint16","id":"d"},{"type":"int32","id":"e"},{"type":"uint32","id":"f"},{"type":"float32","id":"g"},
        {"type":"int64","id":"h"},{"type":"uint64","id":"i"},
        {"type":"string","id":"t","format":{"dataencoding":"ascii","width":5}},
        {"type":"records","id":"rois","elements":[{"type":"float32","id":"v"},{"type":"uint8","id":"v"}]}]},
    {"type":"string","value":"\r\n"}]})";

// The map of the description's output for 2 models of 3 ROIs each.
FormatTrace layoutOf(QByteArray const& description)
{
    orv::test::MessageCapture quiet;
    LayoutRecord record({{"models", 2}, {"rois", 3}});
    VornFormatOutput out;
    FormatTrace trace;
    VornFormatPlan::fromRequest("{\"format\":" + description + "}", BusByteOrder::LittleEndian)
        ->write(record, out, &trace);
    return trace;
}

std::vector<QByteArray> fixedDescriptions()
{
    QFile demo(KV_SOURCE_DIR "/docs/examples/format-demo-binary.json");
    EXPECT_TRUE(demo.open(QIODevice::ReadOnly));
    return {Fixed, demo.readAll()};
}

using Ranges = std::vector<std::pair<std::size_t, std::size_t>>; // offset, length

// The ranges a PLC gives the fields of the last type, packed: an elementary field or byte array is one.
Ranges readStructuredText(std::string const& text, std::map<std::string, std::size_t> const& elementary)
{
    std::map<std::string, std::vector<std::pair<std::string, std::size_t>>> types; // fields: type, count
    std::string type;
    std::smatch m;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_match(line, m, std::regex(R"(TYPE (\w+) :)")))
            type = m[1];
        else if (std::regex_match(line, m,
                                  std::regex(R"(    \w+ : (ARRAY\[0\.\.(\d+)\] OF )?(\w+); \(\*.*\*\))")))
            types[type].emplace_back(m[3], m[1].matched ? std::stoul(m[2]) + 1 : 1);
    }
    Ranges ranges;
    std::function<std::size_t(std::string const&, std::size_t)> lay = [&](std::string const& name,
                                                                          std::size_t at) {
        std::size_t const start = at;
        for (auto const& [fieldType, count] : types.at(name)) {
            if (elementary.count(fieldType))
                ranges.emplace_back(at, elementary.at(fieldType) * count);
            for (std::size_t k = 0; k < count; ++k)
                at += elementary.count(fieldType) ? elementary.at(fieldType) : lay(fieldType, at);
        }
        return at - start;
    };
    lay(type, 0);
    return ranges;
}

} // namespace

TEST(PlcTypes, StructuredTextPutsEveryFieldWhereTheMapHasItAndNamesWhatHasNoFixedSize)
{
    std::map<std::string, std::size_t> const sizes = {{"SINT", 1}, {"USINT", 1}, {"BYTE", 1},  {"INT", 2},
                                                      {"UINT", 2}, {"DINT", 4},  {"UDINT", 4}, {"REAL", 4},
                                                      {"LINT", 8}, {"ULINT", 8}};
    for (QByteArray const& description : fixedDescriptions()) {
        FormatTrace const trace = layoutOf(description);
        Ranges mapped;
        for (FormatTraceEntry const& entry : trace.entries())
            mapped.emplace_back(entry.offset, entry.length);
        PlcTypes const types(trace.entries(), "layout", false);
        EXPECT_EQ(readStructuredText(types.text(PlcTypes::StructuredText, "test").toStdString(), sizes),
                  mapped);
    }
    for (auto const& [element, error] :
         {std::pair{R"({"type":"blob","id":"x_image"})", "(\"x_image\") is a blob"},
          {R"({"type":"uint16","id":"n"})", "(\"n\") is text of no fixed width"},
          {R"({"type":"float32","id":"s","format":{"width":4}})", "(\"s\") is text of no fixed width"}}) {
        FormatTrace const trace =
            layoutOf(QByteArray(R"({"elements":[{"type":"int8","value":1},)") + element + "]}");
        try {
            PlcTypes(trace.entries(), "layout", false);
            ADD_FAILURE() << element;
        } catch (PlcTypes::NotFixed const& e) {
            EXPECT_EQ(std::string(e.what()).rfind("elements[1] " + std::string(error), 0), 0u) << e.what();
        }
    }
}

TEST(PlcTypesCompiled, TheCStructHasTheSizeOfTheOutputAndEveryOffsetOfItsMap)
{
    orv::test::TempDir dir;
    for (QByteArray const& description : fixedDescriptions()) {
        FormatTrace const trace = layoutOf(description);
        PlcTypes const types(trace.entries(), "layout", false);
        std::ofstream program(dir.path() + "/layout.c");
        program << types.text(PlcTypes::C, "test").toStdString()
                << "#include <stddef.h>\n#include <stdio.h>\nint main(void) {\n"
                << "    printf(\"%zu\\n\", sizeof(struct layout));\n";
        std::string expected = std::to_string(types.size()) + "\n";
        for (std::size_t k = 0; k < trace.entries().size(); ++k) {
            if (types.designators()[k].isEmpty())
                continue;
            program << "    printf(\"%zu\\n\", offsetof(struct layout, "
                    << types.designators()[k].toStdString() << "));\n";
            expected += std::to_string(trace.entries()[k].offset) + "\n";
        }
        program << "    return 0;\n}\n";
        program.close();
        std::string const build =
            KV_C_COMPILER " -std=c11 -Wall -Werror -o " + dir.path() + "/layout " + dir.path() + "/layout.c";
        ASSERT_EQ(system(build.c_str()), 0) << types.text(PlcTypes::C, "test").toStdString();
        FILE* run = popen((dir.path() + "/layout").c_str(), "r");
        std::string printed;
        for (char buffer[256]; fgets(buffer, sizeof buffer, run) != nullptr;)
            printed += buffer;
        EXPECT_EQ(pclose(run), 0);
        EXPECT_EQ(printed, expected);
    }
}
