// An indexed list of records below one level of a result (the models of a result, the ROIs of a
// model); each record it hands out is a fresh object.
#pragma once

#include <QSharedPointer>

class RecordInterface;

class RecordListInterface
{
public:
    virtual ~RecordListInterface() = default;

    virtual int size() const = 0;
    // Null when the index is out of range or the entry cannot be read.
    virtual QSharedPointer<RecordInterface> getRecord(int index) = 0;
};
