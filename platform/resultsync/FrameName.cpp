#include "resultsync/FrameName.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "resultsync/FrameFormat.h"

namespace orv {
namespace resultsync {
namespace {

std::string build(char const* prefix, uint64_t sequence, std::string const& id)
{
    char number[32];
    snprintf(number, sizeof number, "%020" PRIu64, sequence);
    return std::string(prefix) + number + "-" + id + FrameFormat::Suffix;
}

} // namespace

std::string FrameName::published(uint64_t sequence, std::string const& id)
{
    return build(FrameFormat::FramePrefix, sequence, id);
}

std::string FrameName::taken(uint64_t sequence, std::string const& id)
{
    return build(FrameFormat::TakenPrefix, sequence, id);
}

bool FrameName::parse(std::string const& name, char const* prefix, uint64_t* sequence, std::string* id)
{
    size_t const prefixLength = strlen(prefix);
    size_t const suffixLength = strlen(FrameFormat::Suffix);
    size_t const digits = 20;
    // The sequence, a dash and an id of one character at least: publishers refuse an empty id.
    if (name.size() < prefixLength + digits + 2 + suffixLength || name.compare(0, prefixLength, prefix) != 0)
        return false;
    if (name.compare(name.size() - suffixLength, suffixLength, FrameFormat::Suffix) != 0)
        return false;
    if (name[prefixLength + digits] != '-')
        return false;
    uint64_t value = 0;
    for (size_t i = prefixLength; i < prefixLength + digits; ++i) {
        if (name[i] < '0' || name[i] > '9')
            return false;
        value = value * 10 + static_cast<uint64_t>(name[i] - '0');
    }
    *sequence = value;
    size_t const idStart = prefixLength + digits + 1;
    *id = name.substr(idStart, name.size() - suffixLength - idStart);
    return true;
}

} // namespace resultsync
} // namespace orv
