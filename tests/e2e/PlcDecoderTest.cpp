// The decoder that plc-types writes, compiled and run on real answers of the simulated camera whose
// models have ROI lists of different lengths: every field equals the byte map's, in both bus byte
// orders, and each kind of broken answer gives its own error.
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include "CameraSim.h"
#include "DBusDaemon.h"
#include "Process.h"
#include "RedisServer.h"
#include "TempDir.h"
#include "plc/PlcLayout.h"

using namespace orv::test;

namespace {

char const* const Description = KV_SOURCE_DIR "/docs/examples/format-plc-rois.json";

std::string vornHost()
{
    return KV_BINARY_DIR "/tools/vorn-host/vorn-host";
}

// A program that decodes the file it is given and prints "error N" or every field of the map.
std::string decodeProgram(QJsonArray const& map, PlcLayout const& layout, QStringList& expected)
{
    std::string body;
    for (QJsonValue const& v : map) {
        QJsonObject const e = v.toObject();
        QStringList steps;
        for (QJsonValue const& step : e["element"].toArray())
            steps.append(step.toString());
        QString const field = layout.designator(steps.join(QStringLiteral(" \u203a ")));
        if (field.isEmpty())
            continue;
        // Text as it is; a float with the 9 digits that tell every float32 apart; integers exactly.
        bool const text = e["encoding"].toString() == "ascii", real = e["type"].toString() == "float32";
        std::string const conversion = text ? "%s" : real ? "%.9g" : "%.17g";
        body += "    printf(\"" + field.toStdString() + "=" + conversion + "\\n\", " +
                (text ? "" : "(double)") + "a." + field.toStdString() + ");\n";
        expected.append(
            field + '=' +
            (text ? e["written"].toString() : QString::number(e["written"].toDouble(), 'g', real ? 9 : 17)));
    }
    return "#include <stdio.h>\n#include \"answer.h\"\n"
           "int main(int argc, char **argv) {\n"
           "    static uint8_t bytes[65536];\n    static struct answer a;\n"
           "    FILE *f = fopen(argv[argc - 1], \"rb\");\n"
           "    size_t n = fread(bytes, 1, sizeof bytes, f);\n    long status;\n    fclose(f);\n"
           "    status = answer_decode(bytes, n, &a);\n"
           "    if (status < 0) { printf(\"error %ld\\n\", status); return 0; }\n"
           "    printf(\"read %ld\\n\", status);\n" +
           body + "    return 0;\n}\n";
}

std::vector<std::string> decoded(std::string const& program, QByteArray const& answer,
                                 std::string const& file)
{
    std::ofstream(file, std::ios::binary).write(answer.constData(), answer.size());
    return runProgram({program, file}).lines;
}

class PlcDecoder : public ::testing::Test
{
protected:
    TempDir m_dir{"kv-decoder"};
    RedisEnvironment m_redis;
    DBusDaemon m_bus;
    CameraSim m_camera{{0, "176x132", 8, 3, {}, {}}};
};

TEST_F(PlcDecoder, ReadsRealAnswersWithListsOfEveryLengthInBothByteOrdersAndNamesEachBrokenAnswer)
{
    std::string const id = m_camera.trigger();
    QFile file(Description);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    QByteArray const request = "{\"format\":" + file.readAll() + "}";
    for (bool const big : {false, true}) {
        SCOPED_TRACE(big ? "big endian" : "little endian");
        std::vector<std::string> order =
            big ? std::vector<std::string>{"--big-endian"} : std::vector<std::string>{};
        std::vector<std::string> types = {
            "plc-types", Description, "--records", "models=3,rois=6", "--lang",
            "c",         "--name",    "answer",    "--out",           m_dir.file("answer.h")};
        std::vector<std::string> format = {"--json", "format", id, Description, "--explain"};
        types.insert(types.end(), order.begin(), order.end());
        format.insert(format.end(), order.begin(), order.end());
        ASSERT_EQ(runProgram(programCommand(vornHost(), types)).exitCode, 0);
        ProgramRun const explained = runProgram(programCommand(vornHost(), format));
        ASSERT_EQ(explained.exitCode, 0) << explained.err;
        std::string all;
        for (std::string const& line : explained.lines)
            all += line + '\n';
        QJsonObject const out = QJsonDocument::fromJson(QByteArray::fromStdString(all)).object();
        QByteArray const answer = QByteArray::fromHex(out["hex"].toString().toLatin1());

        PlcLayout const layout = PlcLayout::ofRequest(request, big, "answer", {{"models", 3}, {"rois", 6}});
        QStringList expected;
        std::ofstream(m_dir.file("decode.c")) << decodeProgram(out["map"].toArray(), layout, expected);
        std::string const build = KV_C_COMPILER " -std=c99 -Wall -Wextra -Werror -pedantic -I" +
                                  m_dir.path() + " -o " + m_dir.file("decode") + " " + m_dir.file("decode.c");
        ASSERT_EQ(system(build.c_str()), 0);

        std::vector<std::string> lines = decoded(m_dir.file("decode"), answer, m_dir.file("answer.bin"));
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.front(), "read " + std::to_string(answer.size()));
        QStringList got;
        for (std::size_t k = 1; k < lines.size(); ++k)
            got.append(QString::fromStdString(lines[k]));
        EXPECT_EQ(got, expected);
        EXPECT_GT(expected.size(), 40);

        QByteArray overCapacity = answer;
        overCapacity[6] = 4; // "models.count" above the 3 reserved
        for (auto const& [broken, error] : {std::pair{answer.left(answer.size() - 1), "error -1"},
                                            {overCapacity, "error -2"},
                                            {answer + 'x', "error -3"},
                                            {"XS" + answer.mid(2), "error -4"}})
            EXPECT_EQ(decoded(m_dir.file("decode"), broken, m_dir.file("broken.bin")),
                      std::vector<std::string>{error});
    }
}

} // namespace
