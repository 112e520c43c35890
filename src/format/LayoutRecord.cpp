#include "format/LayoutRecord.h"

#include "format/RecordListInterface.h"

namespace {

class LayoutRecordList : public RecordListInterface
{
public:
    LayoutRecordList(int count, QMap<QString, int> const& counts, QSet<QString>& uncounted)
        : m_count(count), m_counts(counts), m_uncounted(uncounted)
    {}

    int size() const override { return m_count; }
    QSharedPointer<RecordInterface> getRecord(int index) override
    {
        if (index < 0 || index >= m_count)
            return {};
        return QSharedPointer<RecordInterface>(new LayoutRecord(m_counts, m_uncounted));
    }

private:
    int m_count;
    QMap<QString, int> const& m_counts;
    QSet<QString>& m_uncounted;
};

} // namespace

LayoutRecord::LayoutRecord(QMap<QString, int> const& counts, QSet<QString>& uncounted)
    : m_counts(counts), m_uncounted(uncounted)
{}

QSharedPointer<RecordListInterface> LayoutRecord::getSubRecords(QString const& id)
{
    auto const it = m_counts.constFind(id);
    if (it == m_counts.constEnd())
        m_uncounted.insert(id);
    int const count = it == m_counts.constEnd() ? 0 : it.value();
    return QSharedPointer<RecordListInterface>(new LayoutRecordList(count, m_counts, m_uncounted));
}

QByteArray LayoutRecord::getBlob(QString const&)
{
    return QByteArray();
}

QVariant LayoutRecord::getValue(QString const&)
{
    return QVariant();
}
