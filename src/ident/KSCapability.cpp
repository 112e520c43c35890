#include "ident/KSCapability.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "ident/IdentEeprom.h"

namespace {

bool listed(std::vector<std::string> const& list, std::string const& value)
{
    return std::find(list.begin(), list.end(), value) != list.end();
}

bool boardHasCapability(KSEEPROMCapElem const& entry)
{
    auto record = std::make_unique<uint8_t[]>(KS_EEPROM_RECORD_SIZE);
    if (!ident_eeprom_read(entry.kind, record.get(), KS_EEPROM_RECORD_SIZE) ||
        !ident_eeprom_check(entry.kind, record.get()))
        return false;
    std::string const code(reinterpret_cast<char const*>(record.get()) + 6, 3);
    return listed(entry.boardCodes, code);
}

} // namespace

extern "C" bool ks_has_capability(KSCapability_t capability)
{
    KSEEPROMCapTable const& boards = ks_eeprom_capabilities();
    auto const board = boards.find(capability);
    if (board != boards.end() && !boardHasCapability(board->second))
        return false;

    KSArticleCapTable const& articles = ks_article_capabilities();
    auto const article = articles.find(capability);
    if (article == articles.end())
        return true;

    uint8_t record[KS_EEPROM_RECORD_SIZE];
    KSArticle designation;
    if (!ident_eeprom_read(KS_EEPROM_MAIN, record, sizeof record) ||
        !ident_eeprom_get_article(KS_EEPROM_MAIN, record, &designation))
        return false;
    return listed(article->second, designation.designation);
}

extern "C" bool ks_article_has_capability(KSCapability_t capability, char const* article)
{
    KSArticleCapTable const& articles = ks_article_capabilities();
    auto const entry = articles.find(capability);
    return entry != articles.end() && article != nullptr && listed(entry->second, article);
}
