// Follows the log's channel, as `tail -F` follows a file: when the server goes away it says so once,
// waits for it with a short back-off, and goes on following when it is back. Entries are filtered
// by the same Lua expression that selects stored entries, run by the server on each entry.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "RedisLink.h"

namespace kslog {

class LogFollower
{
public:
    // Shows one entry's text; false when nobody reads any more, which ends the following.
    using Show = std::function<bool(std::string const& entry)>;

    // `who` starts each note on standard error; `filter` is empty for every entry.
    LogFollower(std::string socket, std::string channel, std::string filter, std::string who);
    ~LogFollower();

    // Runs the filter once on a made-up entry, so that an expression the server refuses ends the
    // tool at once rather than hiding every entry. Throws std::runtime_error with the server's text.
    void checkFilter();
    // Returns only when `show` returns false.
    void run(Show const& show);

private:
    bool open(std::string& why);
    // False when the connection ended (why says how), true when `show` refused an entry.
    bool follow(Show const& show, std::string& why);
    // Whether the entry passes the filter; empty when the connection ended.
    std::optional<bool> passes(std::string const& entry, std::string& why);
    void note(std::string const& text) const;

    std::string m_socket;
    std::string m_channel;
    std::string m_script;
    std::string m_who;
    std::unique_ptr<RedisLink> m_feed;   // subscribed
    std::unique_ptr<RedisLink> m_filter; // runs the filter; only with one
    bool m_filterFailed = false;
};

} // namespace kslog
