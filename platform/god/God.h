// Reads one Redis hash of the local result cache into two parallel lists, as the camera's key-store
// library does.
#pragma once

#include <QString>
#include <QStringList>

namespace god {

// Error codes of getall; 0 is success.
enum GetAllError : int
{
    NotConnected = 1, // the cache socket cannot be reached
    NoReply = 2,      // the command got no reply (connection lost)
    WrongReply = 3,   // Redis answered with an error or something other than a list of pairs
    BadArgument = 4,  // a null argument
};

// HGETALL of the hash named key: field names into fields, values into values, in Redis's order.
// A missing hash is success with two empty lists. Uses one connection per thread to the cache
// socket, made again after a failure.
int getall(QString const* key, QStringList* fields, QStringList* values);

} // namespace god
