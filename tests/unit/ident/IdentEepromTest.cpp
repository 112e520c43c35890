// The identification EEPROMs of the boards, read through udev from fake at24 devices, and the
// capabilities their records give.
#include <cstring>
#include <tuple>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "EepromRecord.h"
#include "Require.h"
#include "ResourceUsage.h"
#include "Umockdev.h"
#include "ident/IdentEeprom.h"
#include "ident/KSCapability.h"

namespace orv::test {
namespace {

TEST(IdentEeprom, CheckAcceptsOnlyVersions2And3WithTheKindsLetterAndTheRecordsCrc)
{
    // The records' CRC is computed bit by bit, independently of the plug-in's table.
    for (char const* version : {"00", "01", "02", "03", "04", "13"})
        EXPECT_EQ(ident_eeprom_check(KS_EEPROM_MAIN, eepromRecord('M', "M20", "", version).data()),
                  strcmp(version, "02") == 0 || strcmp(version, "03") == 0)
            << version;
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_FRONTEND, eepromRecord('M', "M20").data()));
    EXPECT_FALSE(ident_eeprom_check(21, eepromRecord('M', "M20").data()));
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, nullptr));
    std::vector<uint8_t> record = eepromRecord('M', "M20");
    record[50] ^= 0x10;
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, record.data()));
    record = eepromRecord('M', "M20");
    record[1] = '?';
    record[127] = crc8Bitwise(record.data(), 127);
    EXPECT_FALSE(ident_eeprom_check(KS_EEPROM_MAIN, record.data()));
}

TEST(IdentEeprom, FieldsAreReadWhateverTheLetterAndCrcButArticlesOnlyFromTheMainBoard)
{
    std::vector<uint8_t> record = eepromRecord('F', "X7Q", "KV2010CD");
    record[127] ^= 0x01;
    KSBoardIdent ident;
    KSArticle article;
    EXPECT_TRUE(ident_eeprom_get_board_ident(record.data(), &ident));
    EXPECT_FALSE(ident_eeprom_get_article(KS_EEPROM_MAIN, record.data(), &article));
    EXPECT_EQ(std::string(ident.letter) + ident.code + " " + article.designation + " " + article.suffix,
              "FX7Q KV2010 CD");
    EXPECT_FALSE(ident_eeprom_get_article(KS_EEPROM_FRONTEND, eepromRecord('F', "F40").data(), &article));
}

TEST(EepromOnDevices, ReadsTheRecordOfAKindFromItsAt24DeviceOnly)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    testbed.addEeprom("2-0053", eepromRecord('M', "M21"));
    testbed.addEeprom("2-0052", eepromRecord('D', "D01"), "i2c-other");
    // A device whose path only begins with the name.
    testbed.addEeprom("2-00540", eepromRecord('F', "F41"));

    close(STDIN_FILENO); // as in the host daemon: the record may be read through descriptor 0
    uint8_t buffer[128];
    ResourceUsage before;
    for (int i = 0; i < 60; ++i) {
        if (i == 10) // after the first reads: libudev and the fake devices set up on first use
            before = ResourceUsage::now();
        memset(buffer, 0, sizeof buffer);
        ASSERT_TRUE(ident_eeprom_read(KS_EEPROM_MAIN, buffer, sizeof buffer));
        EXPECT_EQ(std::vector<uint8_t>(buffer, buffer + 128), eepromRecord('M', "M21"));
    }
    // umockdev's fake devices may open a socket or buffer an event of their own meanwhile; a device,
    // enumeration or monitor left behind per read is 2 KB or a descriptor each time.
    ResourceUsage const growth = ResourceUsage::now() - before;
    EXPECT_LT(growth.descriptors, 10);
    EXPECT_LT(growth.heap, 32768);
    char path[256];
    for (auto const& [subsystem, driver, size] :
         {std::tuple<char const*, char const*, size_t>{"i2c", "at24", 0},
          {nullptr, "at24", sizeof path},
          {"i2c", nullptr, sizeof path}})
        EXPECT_FALSE(sysfsudev_resolve_path(subsystem, driver, nullptr, path, size)) << size;
    EXPECT_FALSE(ident_eeprom_read(KS_EEPROM_MAIN, buffer, 127));
    for (int kind : {15, int(KS_EEPROM_DISPLAY), int(KS_EEPROM_FRONTEND)})
        EXPECT_FALSE(ident_eeprom_read(kind, buffer, sizeof buffer)) << kind;
}

TEST(EepromOnDevices, CapabilitiesNeedTheListedBoardAndTheListedArticle)
{
    KV_RUN_UNDER_UMOCKDEV();
    UmockdevTestbed testbed;
    // A capability in neither table is present on every device, readable EEPROMs or not.
    EXPECT_TRUE(ks_has_capability(static_cast<KSCapability_t>(77)));
    // Asked of an article by name, only a capability with an article list can be present.
    EXPECT_TRUE(ks_article_has_capability(KS_CAP_HIGH_RESOLUTION, "KV2210"));
    testbed.addEeprom("2-0053", eepromRecord('M', "M20", "KV2010AA"));
    testbed.addEeprom("2-0054", eepromRecord('F', "F40"));
    // Board and article listed; board listed (M20), but the article not.
    EXPECT_TRUE(ks_has_capability(KS_CAP_EXTENDED_RANGE));
    EXPECT_FALSE(ks_has_capability(KS_CAP_HIGH_RESOLUTION));
    testbed.removeAll();
    testbed.addEeprom("2-0053", eepromRecord('M', "M20", "KV2200AA"));
    EXPECT_TRUE(ks_has_capability(KS_CAP_HIGH_RESOLUTION));
}

} // namespace
} // namespace orv::test
