#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "EepromRecord.h"
#include "Require.h"
#include "Umockdev.h"
#include "info/IdentEeprom.h"
#include "info/KSCapability.h"

namespace orv {
namespace test {
namespace {

TEST(IdentEepromCrc, MatchesABitwiseCrc8WithPolynomial0x97)
{
    uint8_t const single[] = {0x01};
    EXPECT_EQ(crc_update(0x00, single, 1), 0x97);
    uint8_t const two[] = {0x02, 0x03};
    EXPECT_EQ(crc_update(0x00, two, 1), 0xB9);
    EXPECT_EQ(crc_update(0x00, two + 1, 1), 0x2E);
    EXPECT_EQ(crc_update(0xFF, two, 0), 0xFF);

    std::vector<uint8_t> bytes(300);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i * 37 + 11);
    EXPECT_EQ(crc_update(0xFF, bytes.data(), bytes.size()), crc8Bitwise(bytes.data(), bytes.size()));
}

TEST(IdentEepromCrc, PrintsTheTableAsCSource)
{
    ::testing::internal::CaptureStdout();
    crc_print();
    std::string const text = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(
        text.rfind("\nstatic uint8_t crc_tab8[SMSP_CRC_TABLE_SIZE] = {\n    0x00, 0x97, 0xb9, 0x2e, ", 0),
        0u);
    EXPECT_EQ(text.substr(text.size() - 3), "\n};");
}

TEST(IdentEepromCheck, AcceptsOnlyVersions2And3WithTheBoardLetterOfTheKindAndAMatchingCrc)
{
    EXPECT_TRUE(ident_eeprom_check(KS_EEPROM_MAIN, eepromRecord('M', "M20", "", "02").data()));
    EXPECT_TRUE(ident_eeprom_check(KS_EEPROM_MAIN, eepromRecord('M', "M20", "", "03").data()));
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, eepromRecord('M', "M20", "", "04").data()));
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, eepromRecord('M', "M20", "", "01").data()));
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_FRONTEND, eepromRecord('M', "M20").data()));
    EXPECT_FALSE(ident_eeprom_check(21, eepromRecord('M', "M20").data()));
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, nullptr));

    std::vector<uint8_t> tampered = eepromRecord('M', "M20");
    tampered[50] ^= 0x10;
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, tampered.data()));
    std::vector<uint8_t> header = eepromRecord('M', "M20");
    header[1] = '?';
    header[127] = crc8Bitwise(header.data(), 127);
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, header.data()));
}

TEST(IdentEepromFields, BoardIdentIgnoresTheLetterAndCrcButNotTheHeader)
{
    std::vector<uint8_t> record = eepromRecord('M', "X7Q");
    record[127] ^= 0xFF;
    KSBoardIdent ident;
    ASSERT_TRUE(ident_eeprom_get_board_ident(record.data(), &ident));
    EXPECT_STREQ(ident.letter, "M");
    EXPECT_STREQ(ident.code, "X7Q");
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_FRONTEND, record.data()));

    memset(&ident, 'z', sizeof ident);
    EXPECT_FALSE(ident_eeprom_get_board_ident(eepromRecord('M', "X7Q", "", "09").data(), &ident));
    EXPECT_EQ(ident.code[3], '\0');
    EXPECT_EQ(ident.code[0], 'z');
}

TEST(IdentEepromFields, ArticleIsFilledEvenWhenTheRecordFailsItsCheck)
{
    KSArticle article;
    EXPECT_TRUE(
        ident_eeprom_get_article(KS_EEPROM_MAIN, eepromRecord('M', "M20", "KV2200AB").data(), &article));
    EXPECT_STREQ(article.designation, "KV2200");
    EXPECT_STREQ(article.suffix, "AB");

    std::vector<uint8_t> broken = eepromRecord('M', "M20", "KV2010CD");
    broken[127] ^= 1;
    EXPECT_FALSE(ident_eeprom_get_article(KS_EEPROM_MAIN, broken.data(), &article));
    EXPECT_STREQ(article.designation, "KV2010");

    memset(&article, 'z', sizeof article);
    EXPECT_FALSE(
        ident_eeprom_get_article(KS_EEPROM_FRONTEND, eepromRecord('F', "F40", "KV2010CD").data(), &article));
    EXPECT_EQ(article.designation[0], 'z');
}

TEST(Capabilities, ArticleQueryReadsOnlyTheArticleTable)
{
    EXPECT_TRUE(ks_article_has_capability(KS_CAP_HIGH_RESOLUTION, "KV2200"));
    EXPECT_FALSE(ks_article_has_capability(KS_CAP_HIGH_RESOLUTION, "KV2010"));
    // The I/O capabilities depend on the I/O board only.
    EXPECT_FALSE(ks_article_has_capability(KS_CAP_IO_THREE_PORTS, "KV2200"));
}

TEST(IdentEepromDevices, ReadsTheRecordOfEachKindFromItsAt24Device)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    testbed.addEeprom("2-0053", eepromRecord('M', "M21", "KV2210AA"));
    testbed.addEeprom("2-0054", eepromRecord('F', "F41"));
    testbed.addEeprom("2-0052", eepromRecord('D', "D01"), "i2c-other");

    uint8_t buffer[128];
    ASSERT_TRUE(ident_eeprom_read(KS_EEPROM_MAIN, buffer, sizeof buffer));
    EXPECT_TRUE(ident_eeprom_check(KS_EEPROM_MAIN, buffer));
    EXPECT_EQ(memcmp(buffer + 6, "M21", 3), 0);
    ASSERT_TRUE(ident_eeprom_read(KS_EEPROM_FRONTEND, buffer, sizeof buffer));
    EXPECT_EQ(buffer[5], 'F');

    EXPECT_FALSE(ident_eeprom_read(KS_EEPROM_MAIN, buffer, 127));
    EXPECT_FALSE(ident_eeprom_read(15, buffer, sizeof buffer));
    // Present, but bound to another driver; and not present at all.
    EXPECT_FALSE(ident_eeprom_read(KS_EEPROM_DISPLAY, buffer, sizeof buffer));
    EXPECT_FALSE(ident_eeprom_read(KS_EEPROM_ADAPTER, buffer, sizeof buffer));
}

TEST(IdentEepromDevices, ResolvesOnlyAPathThatEndsInTheName)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    testbed.addEeprom("2-00530", eepromRecord('M', "M20"));

    char path[512];
    EXPECT_FALSE(sysfsudev_resolve_path("i2c", "at24", "2-0053", path, sizeof path));
    ASSERT_TRUE(sysfsudev_resolve_path("i2c", "at24", "2-00530", path, sizeof path));
    EXPECT_EQ(std::string(path).substr(std::string(path).size() - 8), "/2-00530");

    testbed.addEeprom("2-0053", eepromRecord('M', "M20"));
    ASSERT_TRUE(sysfsudev_resolve_path("i2c", "at24", "2-0053", path, sizeof path));
    EXPECT_EQ(std::string(path).substr(std::string(path).size() - 7), "/2-0053");
}

TEST(Capabilities, NeedTheListedBoardAndTheListedArticle)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    // Unknown capabilities are present on every device, readable EEPROMs or not.
    EXPECT_TRUE(ks_has_capability(static_cast<KSCapability_t>(77)));
    EXPECT_FALSE(ks_has_capability(KS_CAP_IO_TWO_PORTS));

    testbed.addEeprom("2-0050", eepromRecord('A', "A31"));
    testbed.addEeprom("2-0053", eepromRecord('M', "M20", "KV2010AA"));
    testbed.addEeprom("2-0054", eepromRecord('F', "F40"));
    EXPECT_TRUE(ks_has_capability(KS_CAP_IO_THREE_PORTS));
    EXPECT_FALSE(ks_has_capability(KS_CAP_IO_TWO_PORTS));
    // Board listed, article listed.
    EXPECT_TRUE(ks_has_capability(KS_CAP_EXTENDED_RANGE));
    // Board listed (M20), article not listed for high resolution.
    EXPECT_FALSE(ks_has_capability(KS_CAP_HIGH_RESOLUTION));

    testbed.removeAll();
    testbed.addEeprom("2-0053", eepromRecord('M', "M20", "KV2200AA"));
    EXPECT_TRUE(ks_has_capability(KS_CAP_HIGH_RESOLUTION));
    // The front end's EEPROM is gone: its capability is absent whatever the article says.
    EXPECT_FALSE(ks_has_capability(KS_CAP_EXTENDED_RANGE));
}

} // namespace
} // namespace test
} // namespace orv
