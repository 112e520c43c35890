// Identification EEPROM records as the boards carry them: the check for every kind, the board
// identity, the article and the capabilities the article decides.
#include <cstdint>
#include <cstring>

#include "ident/IdentEeprom.h"
#include "ident/KSCapability.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    uint8_t record[KS_EEPROM_RECORD_SIZE] = {};
    memcpy(record, data, size < sizeof record ? size : sizeof record);
    crc_update(0xFF, data, size);
    for (int kind = 15; kind <= 21; ++kind)
        ident_eeprom_check(kind, record);
    KSBoardIdent ident;
    ident_eeprom_get_board_ident(record, &ident);
    KSArticle article;
    ident_eeprom_get_article(KS_EEPROM_MAIN, record, &article);
    for (int capability = 0; capability < 8; ++capability)
        ks_article_has_capability(static_cast<KSCapability_t>(capability), article.designation);
    return 0;
}
