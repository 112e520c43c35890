// Qt's JSON parser without its leak. Qt 5.15 keeps the last of a key that an object repeats and
// loses the earlier value without freeing it when that is an object or array, even while it fails
// on the rest of the text; a client repeating a key in every request would slowly drain the host's
// memory. So Qt only sees JSON, as a strict parser judges it, and a text that repeats a key is first
// rewritten without the members that lose, which gives exactly what Qt gives.
#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QVariant>

class QJsonParseError;

namespace orv {

class JsonParser
{
public:
    // What QJsonDocument::fromJson gives for JSON text; for a text that is no JSON (Qt would read
    // some of those, such as raw control characters in strings), an empty document and Qt's error
    // for the text up to the offending character.
    static QJsonDocument parse(QByteArray const& text, QJsonParseError* error = nullptr);
    // The parsed text as variants, as parse(text).toVariant() gives it, except that a number written
    // with a fraction or an exponent stays a double: Qt 5.15 makes an integer of one whose value is
    // whole, and 1.2345678901234568e+17 would then read as the text 123456789012345680 instead of
    // 1.23456789012346e+17.
    static QVariant toVariant(QByteArray const& text, QJsonParseError* error = nullptr);
};

} // namespace orv
