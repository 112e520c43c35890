#include "plc/LayoutRecord.h"

#include "format/RecordListInterface.h"

QSharedPointer<RecordListInterface> LayoutRecord::getSubRecords(QString const&)
{
    class List : public RecordListInterface
    {
    public:
        explicit List(int count) : m_count(count) {}

        int size() const override { return m_count; }
        QSharedPointer<RecordInterface> getRecord(int index) override
        {
            if (index < 0 || index >= m_count)
                return {};
            return QSharedPointer<RecordInterface>(new LayoutRecord(m_count));
        }

    private:
        int m_count;
    };
    return QSharedPointer<RecordListInterface>(new List(m_records));
}

QByteArray LayoutRecord::getBlob(QString const&)
{
    return QByteArray();
}

QVariant LayoutRecord::getValue(QString const&)
{
    return QVariant();
}
