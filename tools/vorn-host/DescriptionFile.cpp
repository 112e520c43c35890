#include "DescriptionFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include "HostCommand.h"
#include "plc/DescriptionCheck.h"

namespace vornhost {

DescriptionFile::DescriptionFile(std::string const& path) : m_path(path)
{
    std::ostringstream text;
    if (path == "-") {
        text << std::cin.rdbuf();
    } else {
        std::ifstream in(path, std::ios::binary);
        if (!in)
            throw UsageError("cannot read " + path + ": " + strerror(errno));
        text << in.rdbuf();
    }
    m_text = QByteArray::fromStdString(text.str());
    m_problems = DescriptionCheck(m_text).report();
    // A file holding the bare description is wrapped; one that already is a request stands as it is.
    QJsonObject const object = QJsonDocument::fromJson(m_text).object();
    bool const wrapped = object.contains("format") && !object.contains("elements");
    m_request = wrapped ? m_text : "{\"format\":" + m_text + "}";
    // The plug-in's check takes the description itself, never the request around it.
    m_description =
        wrapped ? QJsonDocument(object.value("format").toObject()).toJson(QJsonDocument::Compact) : m_text;
}

void DescriptionFile::require() const
{
    if (!m_problems.isEmpty())
        throw cli::Failure((m_path == "-" ? std::string("standard input") : m_path) +
                               " is no description the plug-in can serve:\n" + m_problems.toStdString(),
                           1);
}

QString DescriptionFile::baseName() const
{
    return m_path == "-" ? QStringLiteral("description")
                         : QFileInfo(QString::fromStdString(m_path)).completeBaseName();
}

} // namespace vornhost
