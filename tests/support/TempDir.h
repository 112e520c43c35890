// A private directory under /tmp, removed with everything in it when the object goes.
#pragma once

#include <string>

namespace orv::test {

class TempDir
{
public:
    // parent: where the directory is made ("/dev/shm" for a tmpfs, as the camera's frame folder is).
    explicit TempDir(char const* prefix = "kv", char const* parent = "/tmp");
    ~TempDir();
    TempDir(TempDir const&) = delete;
    TempDir& operator=(TempDir const&) = delete;

    std::string const& path() const { return m_path; }
    std::string file(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path; // short on purpose: Unix socket paths are limited to 107 bytes
};

} // namespace orv::test
