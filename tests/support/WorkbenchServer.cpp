#include "WorkbenchServer.h"

#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include "Process.h"

namespace orv::test {

WorkbenchServer::WorkbenchServer(std::vector<std::string> const& options)
{
    std::vector<std::string> args{"serve", "--listen", "127.0.0.1:0"};
    args.insert(args.end(), options.begin(), options.end());
    int const out = open(m_dir.file("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    int const err = open(m_dir.file("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    m_pid = spawn(programCommand(KV_BINARY_DIR "/tools/vorn-host/vorn-host", args), out, err);
    close(out);
    close(err);
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::string const opening = "workbench: ";
    while (m_url.empty() && std::chrono::steady_clock::now() < deadline) {
        std::ifstream printed(m_dir.file("out"));
        std::string line;
        if (std::getline(printed, line) && line.rfind(opening, 0) == 0)
            m_url = line.substr(opening.size(), line.find(' ', opening.size()) - opening.size());
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (m_url.empty()) {
        stopProcess(m_pid);
        throw std::runtime_error("vorn-host serve printed no URL: " + errors());
    }
    size_t const from = m_url.find("//") + 2;
    m_address = m_url.substr(from, m_url.find('/', from) - from);
}

WorkbenchServer::~WorkbenchServer()
{
    stopProcess(m_pid);
    expectNoSanitizerReport(errors(), "vorn-host serve");
}

std::string WorkbenchServer::errors() const
{
    std::ifstream file(m_dir.file("err"));
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

} // namespace orv::test
