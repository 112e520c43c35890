// A description as the format subcommands take it: from a file or standard input ("-"), checked
// before anything is sent, and wrapped into the request object the plug-in reads.
#pragma once

#include <string>

#include <QByteArray>
#include <QString>

namespace vornhost {

class DescriptionFile
{
public:
    // Reads the file (UsageError when it cannot) and checks the description.
    explicit DescriptionFile(std::string const& path);

    // Every problem found, each with its place, one a line; empty when there is none.
    QString const& problems() const { return m_problems; }
    // Throws the problems as one cli::Failure (exit 1), naming the file.
    void require() const;
    // The text as read.
    QByteArray const& text() const { return m_text; }
    // The description alone, as the plug-in's check takes it (from a request object, its "format").
    QByteArray const& description() const { return m_description; }
    // The request object with the description under "format", as the plug-in takes it.
    QByteArray const& request() const { return m_request; }
    std::string const& path() const { return m_path; }
    // The name a type made from it gets: the file's base name, "description" for standard input.
    QString baseName() const;

private:
    std::string m_path;
    QByteArray m_text;
    QByteArray m_request;
    QByteArray m_description;
    QString m_problems;
};

} // namespace vornhost
