#include "TempDir.h"

#include <cstdlib>
#include <stdexcept>

#include <QDir>

namespace orv::test {

TempDir::TempDir(char const* prefix, char const* parent)
{
    std::string pattern = std::string(parent) + "/" + prefix + "-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr)
        throw std::runtime_error("mkdtemp failed for " + pattern);
    m_path = pattern;
}

TempDir::~TempDir()
{
    QDir(QString::fromStdString(m_path)).removeRecursively();
}

} // namespace orv::test
