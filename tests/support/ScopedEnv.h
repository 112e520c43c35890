// Sets an environment variable for one scope and restores what was there before.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace orv::test {

class ScopedEnv
{
public:
    ScopedEnv(std::string name, std::string const& value) : m_name(std::move(name))
    {
        if (char const* old = getenv(m_name.c_str()))
            m_old = old;
        setenv(m_name.c_str(), value.c_str(), 1);
    }
    ~ScopedEnv()
    {
        if (m_old)
            setenv(m_name.c_str(), m_old->c_str(), 1);
        else
            unsetenv(m_name.c_str());
    }
    ScopedEnv(ScopedEnv const&) = delete;
    ScopedEnv& operator=(ScopedEnv const&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_old;
};

} // namespace orv::test
