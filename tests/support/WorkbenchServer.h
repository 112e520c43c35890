// A running `vorn-host serve` of this build, on a free loopback port unless told otherwise, for as
// long as the object lives.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "TempDir.h"

namespace orv::test {

class WorkbenchServer
{
public:
    // Starts the server with `options` and waits up to 20 s for the URL it prints; throws otherwise.
    explicit WorkbenchServer(std::vector<std::string> const& options = {});
    ~WorkbenchServer(); // stops it; a sanitizer report on its standard error fails the test

    std::string const& url() const { return m_url; }         // "http://127.0.0.1:PORT/" (and the token)
    std::string const& address() const { return m_address; } // "127.0.0.1:PORT"
    std::string errors() const;                              // its standard error so far
    pid_t pid() const { return m_pid; }

private:
    TempDir m_dir{"kv-workbench"};
    pid_t m_pid = -1;
    std::string m_url;
    std::string m_address;
};

} // namespace orv::test
