#include "plc/LayoutRecord.h"

#include "format/RecordListInterface.h"

LayoutRecord::LayoutRecord(QMap<QString, int> counts) : m_shape(new Shape{std::move(counts), {}}) {}

LayoutRecord::LayoutRecord(QSharedPointer<Shape> shape) : m_shape(std::move(shape)) {}

QSharedPointer<RecordListInterface> LayoutRecord::getSubRecords(QString const& id)
{
    class List : public RecordListInterface
    {
    public:
        List(int count, QSharedPointer<Shape> shape) : m_count(count), m_shape(std::move(shape)) {}

        int size() const override { return m_count; }
        QSharedPointer<RecordInterface> getRecord(int index) override
        {
            if (index < 0 || index >= m_count)
                return {};
            return QSharedPointer<RecordInterface>(new LayoutRecord(m_shape));
        }

    private:
        int m_count;
        QSharedPointer<Shape> m_shape;
    };

    auto const it = m_shape->counts.constFind(id);
    if (it == m_shape->counts.constEnd())
        m_shape->uncounted.insert(id);
    int const count = it == m_shape->counts.constEnd() ? 0 : it.value();
    return QSharedPointer<RecordListInterface>(new List(count, m_shape));
}

QByteArray LayoutRecord::getBlob(QString const&)
{
    return QByteArray();
}

QVariant LayoutRecord::getValue(QString const&)
{
    return QVariant();
}
