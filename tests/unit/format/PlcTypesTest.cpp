// Data types made from a description: the Structured Text read back and the C struct compiled must
// both lay out every field where the map of the output puts it.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <sstream>

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include "MessageCapture.h"
#include "TempDir.h"
#include "format/FormatTrace.h"
#include "format/LayoutRecord.h"
#include "format/PlcTypes.h"
#include "format/VornFormatOutput.h"
#include "format/VornFormatPlan.h"

namespace {

QMap<QString, int> const Counts = {{"models", 2}, {"rois", 3}};

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

struct Layout
{
    FormatTrace trace;
    std::size_t size = 0;
};

Layout layoutOf(QByteArray const& description)
{
    orv::test::MessageCapture quiet;
    VornFormatPlan const plan(QJsonDocument::fromJson(description).toVariant().toMap(), {});
    QSet<QString> uncounted;
    LayoutRecord record(Counts, uncounted);
    VornFormatOutput out;
    Layout layout;
    plan.write(record, out, &layout.trace);
    layout.size = out.size();
    return layout;
}

// The ranges a PLC gives the fields of the outermost Structured Text type, packed, elementary fields
// and byte arrays as one range each.
std::vector<std::pair<std::size_t, std::size_t>> readStructuredText(std::string const& text)
{
    std::map<std::string, std::size_t> const elementary = {
        {"SINT", 1}, {"USINT", 1}, {"BYTE", 1}, {"INT", 2},  {"UINT", 2},
        {"DINT", 4}, {"UDINT", 4}, {"REAL", 4}, {"LINT", 8}, {"ULINT", 8}};
    struct Field
    {
        std::string type;
        std::size_t count;
    };
    std::map<std::string, std::vector<Field>> types;
    std::string current;
    std::regex const typeLine(R"(^TYPE (\w+) :$)"),
        fieldLine(R"(^    \w+ : (ARRAY\[0\.\.(\d+)\] OF )?(\w+); \(\*.*\*\)$)");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::smatch m;
        if (std::regex_match(line, m, typeLine))
            current = m[1];
        else if (std::regex_match(line, m, fieldLine))
            types[current].push_back({m[3], m[1].matched ? std::stoul(m[2]) + 1 : 1});
    }
    std::vector<std::pair<std::size_t, std::size_t>> ranges;
    std::function<std::size_t(std::string const&, std::size_t)> lay = [&](std::string const& type,
                                                                          std::size_t at) {
        std::size_t const start = at;
        for (Field const& field : types.at(type)) {
            if (elementary.count(field.type)) {
                ranges.emplace_back(at, elementary.at(field.type) * field.count);
                at += ranges.back().second;
            } else {
                for (std::size_t k = 0; k < field.count; ++k)
                    at += lay(field.type, at);
            }
        }
        return at - start;
    };
    lay(current, 0);
    return ranges;
}

std::vector<QByteArray> fixedDescriptions()
{
    std::vector<QByteArray> descriptions = {Fixed};
    for (QString const path : {KV_SOURCE_DIR "/docs/examples/format-demo-binary.json"}) {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        descriptions.push_back(file.readAll());
    }
    return descriptions;
}

} // namespace

TEST(PlcTypes, StructuredTextPutsEveryFieldWhereTheMapHasItAndNamesWhatHasNoFixedSize)
{
    for (QByteArray const& description : fixedDescriptions()) {
        Layout const layout = layoutOf(description);
        PlcTypes const types(layout.trace.entries(), "layout", false);
        std::vector<std::pair<std::size_t, std::size_t>> mapped;
        for (FormatTraceEntry const& entry : layout.trace.entries())
            mapped.emplace_back(entry.offset, entry.length);
        EXPECT_EQ(readStructuredText(types.text(PlcTypes::StructuredText, "test").toStdString()), mapped);
        EXPECT_EQ(types.size(), layout.size);
    }
    struct
    {
        char const* element;
        char const* error;
    } const notFixed[] = {
        {R"({"type":"blob","id":"x_image"})", "elements[1] (\"x_image\") is a blob"},
        {R"({"type":"uint16","id":"n"})", "elements[1] (\"n\") is text of no fixed width"},
        {R"({"type":"float32","id":"s","format":{"width":4}})",
         "elements[1] (\"s\") is text of no fixed width"},
    };
    for (auto const& c : notFixed) {
        Layout const layout = layoutOf(
            QByteArray(R"({"elements":[{"type":"uint8","id":"a","format":{"dataencoding":"binary"}},)") +
            c.element + "]}");
        try {
            PlcTypes(layout.trace.entries(), "layout", false);
            ADD_FAILURE() << c.element;
        } catch (PlcTypes::NotFixed const& e) {
            EXPECT_EQ(std::string(e.what()).rfind(c.error, 0), 0u) << e.what();
        }
    }
}

TEST(PlcTypesCompiled, TheCStructHasTheSizeOfTheOutputAndEveryOffsetOfItsMap)
{
    orv::test::TempDir dir;
    for (QByteArray const& description : fixedDescriptions()) {
        Layout const layout = layoutOf(description);
        PlcTypes const types(layout.trace.entries(), "layout", false);
        std::ofstream program(dir.path() + "/layout.c");
        program << types.text(PlcTypes::C, "test").toStdString()
                << "#include <stddef.h>\n#include <stdio.h>\nint main(void) {\n"
                << "    printf(\"%zu\\n\", sizeof(struct layout));\n";
        std::ostringstream expected;
        expected << layout.size << "\n";
        for (std::size_t k = 0; k < layout.trace.entries().size(); ++k) {
            if (types.designators()[k].isEmpty())
                continue;
            program << "    printf(\"%zu\\n\", offsetof(struct layout, "
                    << types.designators()[k].toStdString() << "));\n";
            expected << layout.trace.entries()[k].offset << "\n";
        }
        program << "    return 0;\n}\n";
        program.close();
        std::string const build = std::string(KV_C_COMPILER) + " -std=c11 -Wall -Werror -o " + dir.path() +
                                  "/layout " + dir.path() + "/layout.c";
        ASSERT_EQ(system(build.c_str()), 0) << types.text(PlcTypes::C, "test").toStdString();
        FILE* run = popen((dir.path() + "/layout").c_str(), "r");
        std::string printed;
        for (char buffer[256]; fgets(buffer, sizeof buffer, run) != nullptr;)
            printed += buffer;
        EXPECT_EQ(pclose(run), 0);
        EXPECT_EQ(printed, expected.str());
    }
}
