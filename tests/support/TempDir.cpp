#include "TempDir.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include <QDir>
#include <QString>

namespace orv {
namespace test {

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

} // namespace test
} // namespace orv
