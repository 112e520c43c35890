// Everything wrong with an output-format description, each with its place, before a tool sends it:
// no JSON, no description, what the schema refuses (with the allowed values of an enumeration or
// the known keys), and a list that the records of its level do not have. The plug-in itself checks
// and answers as it always has; this only says more, and all of it at once.
#pragma once

#include <vector>

#include <QByteArray>
#include <QString>

class DescriptionCheck
{
public:
    struct Problem
    {
        QString path;    // a JSON pointer into the description ("/elements/3/type"); "" for the text
        QString message; // what is wrong and what to do
    };

    // text: a description, or a request object with the description under "format".
    explicit DescriptionCheck(QByteArray const& text);

    bool ok() const { return m_problems.empty(); }
    std::vector<Problem> const& problems() const { return m_problems; }
    // One problem a line: "/elements/3/type: ...".
    QString report() const;

private:
    void add(QString const& path, QString const& message) { m_problems.push_back({path, message}); }

    std::vector<Problem> m_problems;
};
