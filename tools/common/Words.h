// The words of a tool's command line. Options are taken out wherever they stand, before or after
// the subcommand, in any of the usual spellings; what is left are the positional words.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

// A wrong command line: printed with the subcommand's usage, exit code 2.
struct UsageError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// A failure with its own exit code (1 unless a tool documents another).
struct Failure : std::runtime_error
{
    Failure(std::string const& what, int exitCode) : std::runtime_error(what), code(exitCode) {}
    int code;
};

class Words
{
public:
    explicit Words(std::vector<std::string> words = {}) : m_words(std::move(words)) {}

    // "--name" (or the short alias "-x") anywhere before a lone "--"; every occurrence is taken.
    bool flag(std::string const& name, std::string const& alias = "");
    // "--name VALUE", "--name=VALUE", "-x VALUE" or "-xVALUE"; the last one given counts.
    std::optional<std::string> option(std::string const& name, std::string const& alias = "");
    // Every value of an option that may be given more than once, in the order given.
    std::vector<std::string> options(std::string const& name, std::string const& alias = "");
    // An option's value as a number from low to high (decimal, or 0x.. hexadecimal; a leading zero
    // is not octal). `why`, when given, follows the range in the error: what the range stands for.
    std::optional<long long> number(std::string const& name, long long low, long long high,
                                    std::string const& alias = "", std::string const& why = "");
    static long long toNumber(std::string const& text, std::string const& what, long long low, long long high,
                              std::string const& why = "");
    // A word "-N" (a dash and digits only), taken out: the count shorthand of head and tail ("-5"
    // for "-n 5"). Empty when there is none; a usage error when there are two.
    std::optional<std::string> dashCount();

    // The first word that names a command, taken out; the words around it stay in order. Empty when
    // none does.
    std::string takeCommand(std::vector<std::string> const& names);
    // After every option was taken: a word that still looks like one was not understood.
    void rejectUnknownOptions() const;

    // Positional words (a lone "--" is not one: the words after it are never options).
    size_t count() const;
    std::string const& at(size_t index, char const* what) const;
    int integer(size_t index, char const* what) const;
    // Also refuses a word that still looks like an option.
    void expectCount(size_t minimum, size_t maximum) const;

private:
    // Where options may stand: up to a lone "--", which is dropped once the options are read.
    size_t optionEnd() const;

    std::vector<std::string> m_words;
};

} // namespace cli
