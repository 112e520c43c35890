// Whether this device has a capability, decided from its boards' identification EEPROMs and its
// article designation. The tables that decide it are in CapabilityTables.cpp.
#pragma once

#include <map>
#include <string>
#include <vector>

// A fixed underlying type: a product may ask for a capability newer than this table, and any int
// must then be a valid value (it is answered as present everywhere).
enum KSCapability_t : int
{
    KS_CAP_IO_TWO_PORTS = 0,    // two switchable I/Os, on pins 0 and 1
    KS_CAP_IO_THREE_PORTS = 1,  // three switchable I/Os, on pins 3, 5 and 4
    KS_CAP_EXTENDED_RANGE = 2,  // front end with the long-range illumination optics
    KS_CAP_HIGH_RESOLUTION = 3, // 224 x 172 imager
};

struct KSEEPROMCapElem
{
    int kind;                            // the EEPROM to read (16, 18 or 20)
    std::vector<std::string> boardCodes; // three-character board codes that have the capability
};

using KSEEPROMCapTable = std::map<KSCapability_t, KSEEPROMCapElem>;
using KSArticleCapTable = std::map<KSCapability_t, std::vector<std::string>>;

// Built once, on first use.
KSEEPROMCapTable const& ks_eeprom_capabilities();
KSArticleCapTable const& ks_article_capabilities();

extern "C" {
// A capability that neither table names is present on every device.
bool ks_has_capability(KSCapability_t capability);
bool ks_article_has_capability(KSCapability_t capability, char const* article);
}
