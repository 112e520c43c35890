// Qt's JSON parser without its leak. Qt 5.15 keeps the last of a key that an object repeats and
// loses the earlier value without freeing it when that is an object or array, even while it fails
// on the rest of the text; a client repeating a key in every request would slowly drain the host's
// memory. So Qt only sees JSON, as a strict parser judges it, and a text that repeats a key is first
// rewritten without the members that lose, which gives exactly what Qt gives.
#pragma once

#include <QByteArray>
#include <QJsonDocument>

class QJsonParseError;

namespace orv {

class JsonParser
{
public:
    // What QJsonDocument::fromJson gives for JSON text; for a text that is no JSON (Qt would read
    // some of those, such as raw control characters in strings), an empty document and Qt's error
    // for the text up to the offending character.
    static QJsonDocument parse(QByteArray const& text, QJsonParseError* error = nullptr);
};

} // namespace orv
