// THE PRODUCT TABLES: which boards and which articles have which capability.
//
// PLACEHOLDERS: the board codes and article designations below are made up for development and
// the simulated camera; they are not a camera maker's product list. A camera's real table is
// supplied by replacing the entries here with the maker's board codes and articles and rebuilding
// (nothing is read from files at run time); the tests that build EEPROM records name these codes
// and change with them.
//
// This file is data. A product engineer adds a board revision or an article here and nothing else
// changes. Board codes are the three characters at bytes 6-8 of a board's identification EEPROM;
// article designations are the six characters at bytes 98-103 of the main board's EEPROM.
//
// A capability is present when
//   - its board (if it has a board entry) carries one of the listed board codes, and
//   - the article (if it has an article entry) is one of the listed designations.
// A capability listed in neither table is present on every device.

#include "ident/IdentEeprom.h"
#include "ident/KSCapability.h"

KSEEPROMCapTable const& ks_eeprom_capabilities()
{
    static KSEEPROMCapTable const table = {
        // Connector board (kind 20, letter 'A'): the I/O wiring.
        {KS_CAP_IO_TWO_PORTS, {KS_EEPROM_ADAPTER, {"A21", "A22", "A23"}}},
        {KS_CAP_IO_THREE_PORTS, {KS_EEPROM_ADAPTER, {"A31", "A32"}}},
        // Front-end board (kind 16, letter 'F'): long-range illumination optics.
        {KS_CAP_EXTENDED_RANGE, {KS_EEPROM_FRONTEND, {"F40", "F41", "F42", "F43"}}},
        // Main board (kind 18, letter 'M'): the high-resolution imager.
        {KS_CAP_HIGH_RESOLUTION, {KS_EEPROM_MAIN, {"M20", "M21"}}},
    };
    return table;
}

KSArticleCapTable const& ks_article_capabilities()
{
    static KSArticleCapTable const table = {
        // The long-range articles; the same front end is also fitted to standard-range articles.
        {KS_CAP_EXTENDED_RANGE, {"KV2010", "KV2011", "KV2210"}},
        // The high-resolution articles.
        {KS_CAP_HIGH_RESOLUTION, {"KV2200", "KV2210"}},
    };
    return table;
}
