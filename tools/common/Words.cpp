#include "Words.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace cli {

namespace {

bool isOption(std::string const& word)
{
    // "-" alone is a file name (standard input); "-5" may be a number where a tool reads one.
    return word.size() > 1 && word[0] == '-';
}

} // namespace

size_t Words::optionEnd() const
{
    return size_t(std::find(m_words.begin(), m_words.end(), "--") - m_words.begin());
}

bool Words::flag(std::string const& name, std::string const& alias)
{
    bool found = false;
    for (size_t i = 0; i < optionEnd();) {
        if (m_words[i] == name || (!alias.empty() && m_words[i] == alias)) {
            m_words.erase(m_words.begin() + long(i));
            found = true;
        } else {
            ++i;
        }
    }
    return found;
}

std::optional<std::string> Words::option(std::string const& name, std::string const& alias)
{
    std::vector<std::string> const values = options(name, alias);
    if (values.empty())
        return std::nullopt;
    return values.back();
}

std::vector<std::string> Words::options(std::string const& name, std::string const& alias)
{
    std::vector<std::string> values;
    for (size_t i = 0; i < optionEnd();) {
        std::string const& word = m_words[i];
        size_t taken = 0;
        if (word == name || (!alias.empty() && word == alias)) {
            if (i + 1 >= optionEnd())
                throw UsageError(word + " needs a value");
            values.push_back(m_words[i + 1]);
            taken = 2;
        } else if (word.rfind(name + "=", 0) == 0) {
            values.push_back(word.substr(name.size() + 1));
            taken = 1;
        } else if (alias.size() == 2 && word.size() > 2 && word.rfind(alias, 0) == 0) {
            values.push_back(word.substr(2));
            taken = 1;
        }
        if (taken == 0)
            ++i;
        else
            m_words.erase(m_words.begin() + long(i), m_words.begin() + long(i + taken));
    }
    return values;
}

long long Words::toNumber(std::string const& text, std::string const& what, long long low, long long high,
                          std::string const& why)
{
    // Base 0 would read "010" as 8: nobody typing a pid or a count means octal.
    size_t const digits = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
    bool const hex = text.compare(digits, 2, "0x") == 0 || text.compare(digits, 2, "0X") == 0;
    char* end = nullptr;
    errno = 0;
    long long const value = strtoll(text.c_str(), &end, hex ? 16 : 10);
    bool const whole = !text.empty() && !isspace(static_cast<unsigned char>(text[0])) && *end == '\0';
    if (!whole || errno != 0 || value < low || value > high)
        throw UsageError(what + " must be a number from " + std::to_string(low) + " to " +
                         std::to_string(high) + (why.empty() ? "" : " (" + why + ")") + ", not \"" + text +
                         "\"");
    return value;
}

std::optional<long long> Words::number(std::string const& name, long long low, long long high,
                                       std::string const& alias, std::string const& why)
{
    std::optional<std::string> const text = option(name, alias);
    if (!text)
        return std::nullopt;
    return toNumber(*text, name, low, high, why);
}

std::optional<std::string> Words::dashCount()
{
    std::optional<std::string> count;
    for (size_t i = 0; i < optionEnd();) {
        std::string const& word = m_words[i];
        bool const digits = word.size() > 1 && word[0] == '-' &&
                            std::all_of(word.begin() + 1, word.end(), [](char c) { return isdigit(c) != 0; });
        if (!digits) {
            ++i;
            continue;
        }
        if (count)
            throw UsageError("give one count, not \"" + *count + "\" and \"" + word + "\"");
        count = word.substr(1);
        m_words.erase(m_words.begin() + long(i));
    }
    return count;
}

std::string Words::takeCommand(std::vector<std::string> const& names)
{
    for (size_t i = 0; i < optionEnd(); ++i) {
        if (std::find(names.begin(), names.end(), m_words[i]) != names.end()) {
            std::string const name = m_words[i];
            m_words.erase(m_words.begin() + long(i));
            return name;
        }
    }
    return "";
}

void Words::rejectUnknownOptions() const
{
    for (size_t i = 0; i < optionEnd(); ++i) {
        if (isOption(m_words[i]) && !isdigit(static_cast<unsigned char>(m_words[i][1])))
            throw UsageError("unknown option \"" + m_words[i] + "\"");
    }
}

size_t Words::count() const
{
    return m_words.size() - (optionEnd() < m_words.size() ? 1 : 0);
}

std::string const& Words::at(size_t index, char const* what) const
{
    if (index >= count())
        throw UsageError(std::string("missing ") + what);
    return m_words[index < optionEnd() ? index : index + 1];
}

int Words::integer(size_t index, char const* what) const
{
    return static_cast<int>(toNumber(at(index, what), what, INT_MIN, INT_MAX));
}

void Words::expectCount(size_t minimum, size_t maximum) const
{
    rejectUnknownOptions();
    if (count() < minimum)
        throw UsageError("too few arguments");
    if (count() > maximum)
        throw UsageError("unexpected argument \"" + at(maximum, "") + "\"");
}

} // namespace cli
